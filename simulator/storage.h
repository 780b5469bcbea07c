// The sectors behind a simulated device: in memory for tests, or in an image file for the simulator process. Called by
// the device model only; an implementation knows nothing of datagrams or of what the sectors hold.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "platform/raw_file.h"

namespace media_adapter::simulator {

inline constexpr uint32_t kSectorSize = 512;

class Storage {
 public:
  virtual ~Storage() = default;
  virtual uint32_t SectorCount() const = 0;
  // out, data: whole sectors. False when the range leaves the storage or the medium fails; what was read or written by
  // then is unspecified.
  virtual bool Read(uint32_t sector, std::span<uint8_t> out) = 0;
  virtual bool Write(uint32_t sector, std::span<const uint8_t> data) = 0;
};

class MemoryStorage : public Storage {
 public:
  // A rest that fills no sector is padded with zeros.
  explicit MemoryStorage(std::vector<uint8_t> bytes);

  uint32_t SectorCount() const override { return static_cast<uint32_t>(bytes_.size() / kSectorSize); }
  bool Read(uint32_t sector, std::span<uint8_t> out) override;
  bool Write(uint32_t sector, std::span<const uint8_t> data) override;

  std::vector<uint8_t>& Bytes() { return bytes_; }

 private:
  std::vector<uint8_t> bytes_;
};

// An image file, held open for reading and writing and locked against a second simulator. A write has reached the
// operating system when Write returns: it survives the death of the process.
class FileStorage : public Storage {
 public:
  // Null when the image cannot be used; `error` then says why, in words for a user.
  static std::unique_ptr<FileStorage> Open(const std::string& path, std::string& error);
  ~FileStorage() override;
  FileStorage(const FileStorage&) = delete;
  FileStorage& operator=(const FileStorage&) = delete;

  uint32_t SectorCount() const override { return sectorCount_; }
  bool Read(uint32_t sector, std::span<uint8_t> out) override;
  bool Write(uint32_t sector, std::span<const uint8_t> data) override;

 private:
  FileStorage(platform::FileHandle handle, uint32_t sectorCount) : handle_(handle), sectorCount_(sectorCount) {}

  platform::FileHandle handle_;
  uint32_t sectorCount_;
};

}  // namespace media_adapter::simulator
