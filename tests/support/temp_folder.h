// A folder for one test's files, and what tests do with them.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <random>
#include <span>
#include <string>
#include <vector>

namespace media_adapter::sim {

using Bytes = std::vector<uint8_t>;

// In memory where there is room for it: on a disk the volumes would be most of a test's time.
class TempFolder {
 public:
  explicit TempFolder(const std::filesystem::path& parent = RoomyFolder()) {
    std::random_device random;
    do {
      path_ = parent / ("media-adapter-" + std::to_string(random()));
    } while (!std::filesystem::create_directory(path_));
  }
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::filesystem::path& Path() const { return path_; }
  std::string operator/(const std::string& name) const { return (path_ / name).string(); }

 private:
  static std::filesystem::path RoomyFolder() {
    std::error_code none;
    const bool isRoomy = std::filesystem::space("/dev/shm", none).available >= 1 << 30 && !none;
    return isRoomy ? "/dev/shm" : std::filesystem::temp_directory_path();
  }

  std::filesystem::path path_;
};

inline Bytes ReadWholeFile(const std::filesystem::path& path) {
  std::ifstream stream(path, std::ios::binary | std::ios::ate);
  Bytes bytes(stream ? static_cast<size_t>(stream.tellg()) : 0);
  stream.seekg(0);
  stream.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return bytes;
}

inline void WriteWholeFile(const std::filesystem::path& path, std::span<const uint8_t> bytes) {
  std::ofstream stream(path, std::ios::binary);
  stream.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

// Seconds since 1970.
inline void SetLastWrite(const std::filesystem::path& path, int64_t seconds) {
  const std::chrono::sys_seconds time{std::chrono::seconds(seconds)};
  std::filesystem::last_write_time(path, std::chrono::file_clock::from_sys(time));
}

// Bytes that differ at every place, so that a misplaced, doubled or lost piece shows.
inline Bytes Pattern(size_t size, uint32_t seed = 1) {
  Bytes bytes(size);
  uint32_t state = seed * 2654435761U + 1;
  for (uint8_t& byte : bytes) {
    state = state * 1664525U + 1013904223U;
    byte = static_cast<uint8_t>(state >> 24);
  }
  return bytes;
}

}  // namespace media_adapter::sim
