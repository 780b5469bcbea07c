// Texts: device paths, and the comparison of names. Letter case is that of A to Z only, without any locale.
#pragma once

#include <string>
#include <string_view>

namespace media_adapter {

// The names in a path: the number of its backslashes, not counting one at its end. -1 for the empty path.
int CountPathComponents(std::string_view path);

// The characters between the k-th backslash (k from 1) and the next or the end; empty when there are none.
std::string_view GetPathComponent(std::string_view path, int k);

// Equal but for trailing spaces and letter case.
bool NamesEqual(std::string_view a, std::string_view b);

char ToLower(char c);
char ToUpper(char c);
bool IsLower(char c);
bool IsUpper(char c);

}  // namespace media_adapter
