// The patterns of --exclude: which files and folders get, put and sync pass over.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace media_adapter::cli {

class Exclusions {
 public:
  // A pattern that begins with "/" starts at the folder that is copied into, any other at every depth below it; one
  // that ends in "/" means folders only.
  explicit Exclusions(std::vector<std::string> patterns) : patterns_(std::move(patterns)) {}

  // path: below the folder that is copied into, its names joined by "/". What lies below an excluded folder is not
  // asked for.
  bool Has(std::string_view path, bool isFolder) const;

 private:
  std::vector<std::string> patterns_;
};

}  // namespace media_adapter::cli
