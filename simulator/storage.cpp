#include "simulator/storage.h"

#include <algorithm>
#include <cstddef>
#include <system_error>

namespace media_adapter::simulator {
namespace {

bool IsInside(uint32_t sector, size_t bytes, uint32_t sectorCount) {
  return bytes % kSectorSize == 0 && uint64_t{sector} + bytes / kSectorSize <= sectorCount;
}

// Runs `transfer(done)`, which moves some of what is left, until all of `size` bytes went through.
template <typename Transfer>
bool TransferAll(size_t size, Transfer transfer) {
  for (size_t done = 0; done < size;) {
    const int64_t step = transfer(done);
    if (step <= 0) return false;
    done += static_cast<size_t>(step);
  }
  return true;
}

uint64_t OffsetOf(uint32_t sector) { return uint64_t{sector} * kSectorSize; }

}  // namespace

MemoryStorage::MemoryStorage(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)) {
  bytes_.resize((bytes_.size() + kSectorSize - 1) / kSectorSize * kSectorSize);
}

bool MemoryStorage::Read(uint32_t sector, std::span<uint8_t> out) {
  if (!IsInside(sector, out.size(), SectorCount())) return false;
  std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(OffsetOf(sector)), out.size(), out.begin());
  return true;
}

bool MemoryStorage::Write(uint32_t sector, std::span<const uint8_t> data) {
  if (!IsInside(sector, data.size(), SectorCount())) return false;
  std::ranges::copy(data, bytes_.begin() + static_cast<std::ptrdiff_t>(OffsetOf(sector)));
  return true;
}

std::unique_ptr<FileStorage> FileStorage::Open(const std::string& path, std::string& error) {
  std::error_code code;
  const platform::FileHandle handle = platform::OpenExclusively(path, code);
  if (handle == platform::kNoFile) {
    error = path + ": ";
    if (!code) {
      error += "is no regular file";
    } else if (code == std::errc::device_or_resource_busy) {
      error += "is in use by another simulated device";
    } else {
      error += "cannot be opened for reading and writing: " + code.message();
    }
    return nullptr;
  }
  std::unique_ptr<FileStorage> storage(new FileStorage(handle, 0));
  const uint64_t size = platform::FileSize(handle).value_or(0);
  if (size == 0 || size % kSectorSize != 0 || size / kSectorSize > UINT32_MAX) {
    error =
        path + ": its size of " + std::to_string(size) + " bytes is no whole number of 512-byte sectors, 1 to 2^32 - 1";
    return nullptr;
  }
  storage->sectorCount_ = static_cast<uint32_t>(size / kSectorSize);
  return storage;
}

FileStorage::~FileStorage() { platform::CloseFile(handle_); }

bool FileStorage::Read(uint32_t sector, std::span<uint8_t> out) {
  return IsInside(sector, out.size(), sectorCount_) && TransferAll(out.size(), [&](size_t done) {
           return platform::ReadAt(handle_, out.subspan(done), OffsetOf(sector) + done);
         });
}

bool FileStorage::Write(uint32_t sector, std::span<const uint8_t> data) {
  return IsInside(sector, data.size(), sectorCount_) && TransferAll(data.size(), [&](size_t done) {
           return platform::WriteAt(handle_, data.subspan(done), OffsetOf(sector) + done);
         });
}

}  // namespace media_adapter::simulator
