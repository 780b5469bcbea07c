// Names and paths of this system, whose characters are more than a code page has. WindowsNames runs under code page
// 1252, TwoByteNames under 932.
#include <gtest/gtest.h>
#include <windows.h>

#include "platform/local_files.h"
#include "tests/support/temp_folder.h"

namespace media_adapter::system_tests {
namespace {

using platform::FindLocalFile;
using platform::LocalFile;

// The path's other form, of eight and three characters.
std::string Alias(const std::filesystem::path& path) {
  std::wstring alias(MAX_PATH, L'\0');
  alias.resize(GetShortPathNameW(path.c_str(), alias.data(), MAX_PATH));
  return std::filesystem::path(alias).string();
}

TEST(WindowsNames, ANameThatLosesCharactersIsNone) {
  ASSERT_EQ(GetACP(), 1252U);
  const sim::TempFolder folder(std::filesystem::temp_directory_path());
  for (const wchar_t* name : {L"\uFF41bc.text", L"a\u2044b.text", L"\u0444.text"}) {
    sim::WriteWholeFile(folder.Path() / name, sim::Bytes(1));
    EXPECT_TRUE(LocalFile().OpenForReading(Alias(folder.Path() / name)));
    EXPECT_FALSE(FindLocalFile(Alias(folder.Path() / name)));
  }
  sim::WriteWholeFile(folder.Path() / L"\u20AC \u00E9.text", sim::Bytes(1));
  EXPECT_EQ(FindLocalFile(Alias(folder.Path() / L"\u20AC \u00E9.text")).value().name, "\x80 \xE9.text");
}

TEST(WindowsNames, AShortNameReplacesNothing) {
  const sim::TempFolder folder(std::filesystem::temp_directory_path());
  const std::string path = folder / "A long name.text";
  sim::WriteWholeFile(path, sim::Bytes(1));
  ASSERT_NE(Alias(path), path);
  EXPECT_FALSE(LocalFile().CreateForWriting(Alias(path)));
  EXPECT_EQ(std::filesystem::file_size(path), 1U);
  for (const char* own : {"A long name.text", "a LONG name.TEXT"}) {
    EXPECT_TRUE(LocalFile().CreateForWriting(folder / own)) << own;
  }
}

TEST(WindowsNames, APathMayHaveItsPrefix) {
  const sim::TempFolder folder(std::filesystem::temp_directory_path());
  const std::string path = "\\\\?\\" + (folder / "name");
  sim::WriteWholeFile(folder / "name", sim::Bytes(1));
  EXPECT_TRUE(LocalFile().OpenForReading(path));
  EXPECT_EQ(FindLocalFile(path).value().name, "name");
  for (const char* pattern : {"n*", "nam?"}) EXPECT_FALSE(FindLocalFile("\\\\?\\" + (folder / pattern))) << pattern;
}

TEST(WindowsNames, AFileMayBeDeletedWhileItIsRead) {
  const sim::TempFolder folder(std::filesystem::temp_directory_path());
  sim::WriteWholeFile(folder / "name", sim::Pattern(100000));
  LocalFile file;
  ASSERT_TRUE(file.OpenForReading(folder / "name"));
  EXPECT_TRUE(DeleteFileA((folder / "name").c_str()));
  sim::Bytes bytes(100000);
  EXPECT_EQ(file.Read(bytes), 100000);
  EXPECT_EQ(bytes, sim::Pattern(100000));
}

TEST(TwoByteNames, ASecondByteIsNoSeparator) {
  ASSERT_EQ(GetACP(), 932U);
  EXPECT_FALSE(platform::EndsInSeparator("C:\\\x95\x5C"));
  EXPECT_TRUE(platform::EndsInSeparator("C:\\\x95\x5C\\"));
  const sim::TempFolder folder(std::filesystem::temp_directory_path());
  sim::WriteWholeFile(folder.Path() / L"\u8868", sim::Bytes(1));
  const std::string start = folder.Path().string() + '\\';
  EXPECT_EQ(FindLocalFile(start + "\x95\x5C").value().name, "\x95\x5C");
  EXPECT_FALSE(LocalFile().OpenForReading(start + "\x95")) << "half a character";
}

}  // namespace
}  // namespace media_adapter::system_tests
