// Files of this host, on this system's own file system: what a LocalFile keeps and finds again, beside a model of it.
#include "platform/local_files.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/temp_folder.h"

namespace media_adapter::sim {
namespace {

using platform::LocalFile;

constexpr bool kIsWindows = std::filesystem::path::preferred_separator == '\\';

// The bytes of a file, in runs shorter and longer than its buffer, which follow one another or do not.
class Model {
 public:
  void Write(LocalFile& file) {
    const Bytes run = Pattern(ChooseRun(file, 200000), static_cast<uint32_t>(random_()));
    EXPECT_TRUE(file.Write(run));
    if (!run.empty()) content.resize(std::max(content.size(), place + run.size()));
    for (const uint8_t byte : run) content[place++] = byte;
  }
  void Read(LocalFile& file) {
    Bytes run(ChooseRun(file, content.size() + 1000));
    const auto rest = std::span(content).subspan(std::min(place, content.size()));
    const auto expected = rest.first(std::min(rest.size(), run.size()));
    EXPECT_EQ(file.Read(run), std::ssize(expected));
    run.resize(expected.size());
    EXPECT_TRUE(std::ranges::equal(run, expected)) << place;
    place += run.size();
  }
  Bytes content;
  size_t place = 0;

 private:
  // Seeks now and then. Returns the size of the next run.
  size_t ChooseRun(LocalFile& file, size_t end) {
    const bool goesOn = random_() % 3 != 0;
    if (!goesOn) place = random_() % end;
    EXPECT_TRUE(goesOn || file.Seek(place));
    return random_() % (random_() % 4 == 0 ? 150000 : 3000);
  }
  std::mt19937 random_;
};

TEST(LocalFiles, HoldWhatWasWrittenInWhateverOrder) {
  const TempFolder folder;
  const std::string path = folder / "Name.TXT";
  LocalFile file;
  Bytes byte(1);
  for (int again = 0; again < 3; ++again) {
    Model model;
    ASSERT_TRUE(file.CreateForWriting(path)) << "what was there goes";
    for (int i = 0; i < 50; ++i) model.Write(file);
    EXPECT_EQ(file.Read(byte), -1);
    EXPECT_TRUE(file.Close());
    EXPECT_EQ(ReadWholeFile(path), model.content);
    model.place = 0;
    ASSERT_TRUE(file.OpenForReading(path));
    EXPECT_EQ(file.Size(), model.content.size());
    for (int i = 0; i < 100; ++i) model.Read(file);
    EXPECT_FALSE(file.Write(byte));
  }
  EXPECT_TRUE(file.Close() && file.Close());
  EXPECT_FALSE(file.Seek(0) || file.Write(byte) || file.Size());
  EXPECT_EQ(file.Read(byte), -1);
}

TEST(LocalFiles, AreRegularFiles) {
  const TempFolder folder;
  LocalFile file;
  EXPECT_FALSE(file.OpenForReading(folder / "none"));
  EXPECT_FALSE(file.OpenForReading(folder.Path().string()));
  EXPECT_FALSE(file.CreateForWriting(folder.Path().string()));
  EXPECT_FALSE(file.CreateForWriting(kIsWindows ? "NUL" : "/dev/null"));
  Bytes byte(1);
  EXPECT_TRUE(kIsWindows || (file.OpenForReading("/proc/self/mem") && file.Read(byte) == -1)) << "nothing lies at 0";
}

}  // namespace
}  // namespace media_adapter::sim
