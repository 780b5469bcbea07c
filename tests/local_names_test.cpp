// How local files are named where several spellings lead to one of them. There is no such mount here: links stand for
// it.
#include <gtest/gtest.h>

#include <filesystem>

#include "platform/local_files.h"
#include "platform/posix/stored_name.h"
#include "tests/support/temp_folder.h"

namespace media_adapter {
namespace {

TEST(LocalNames, AreTakenFromTheFolder) {
  const sim::TempFolder folder;
  const auto stored = [&](const char* text, const char* found) {
    struct stat file {};
    EXPECT_EQ(stat((folder / found).c_str(), &file), 0);
    return platform::StoredName(folder / text, file);
  };
  sim::WriteWholeFile(folder / "Name.TXT", sim::Bytes(1));
  sim::WriteWholeFile(folder / "other", sim::Bytes(1));
  EXPECT_EQ(stored("Name.TXT", "Name.TXT"), "Name.TXT");
  EXPECT_EQ(stored("nAME.txt", "Name.TXT"), "Name.TXT");
  EXPECT_EQ(stored("\xC3\xA9", "Name.TXT"), "Name.TXT") << "a letter that the folder takes for another";
  EXPECT_EQ(stored("OTHER", "Name.TXT"), "Name.TXT") << "alike, but another file";
  std::filesystem::create_hard_link(folder / "Name.TXT", folder / "a second name");
  std::filesystem::create_symlink("Name.TXT", folder / "Link");
  EXPECT_EQ(stored("nAME.txt", "Name.TXT"), "Name.TXT");
  EXPECT_EQ(stored("A Second Name", "Name.TXT"), "a second name");
  EXPECT_EQ(stored("LINK", "Name.TXT"), "Link");
  EXPECT_EQ(stored("gone", "other"), "other");

  std::filesystem::create_hard_link(folder / "Name.TXT", folder / "nAME.txt");
  EXPECT_EQ(platform::FindLocalFile(folder / "nAME.txt")->name, "nAME.txt") << "both are there";
  EXPECT_EQ(platform::FindLocalFile(folder / "Name.TXT")->name, "Name.TXT");
  std::filesystem::current_path(folder.Path());
  EXPECT_EQ(platform::FindLocalFile("nAME.txt")->name, "nAME.txt");
  std::filesystem::current_path("/");
}

}  // namespace
}  // namespace media_adapter
