#include "simulator/storage.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace media_adapter::simulator {
namespace {

bool IsInside(uint32_t sector, size_t bytes, uint32_t sectorCount) {
  return bytes % kSectorSize == 0 && uint64_t{sector} + bytes / kSectorSize <= sectorCount;
}

// Runs `transfer(done)`, a pread or pwrite of what is left, until all of `size` bytes went through.
template <typename Transfer>
bool TransferAll(size_t size, Transfer transfer) {
  size_t done = 0;
  while (done < size) {
    const ssize_t step = transfer(done);
    if (step > 0) {
      done += static_cast<size_t>(step);
    } else if (step == 0 || errno != EINTR) {
      return false;
    }
  }
  return true;
}

off_t OffsetOf(uint32_t sector) { return static_cast<off_t>(sector) * kSectorSize; }

}  // namespace

MemoryStorage::MemoryStorage(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)) {
  bytes_.resize((bytes_.size() + kSectorSize - 1) / kSectorSize * kSectorSize);
}

bool MemoryStorage::Read(uint32_t sector, std::span<uint8_t> out) {
  if (!IsInside(sector, out.size(), SectorCount())) return false;
  std::copy_n(bytes_.begin() + OffsetOf(sector), out.size(), out.begin());
  return true;
}

bool MemoryStorage::Write(uint32_t sector, std::span<const uint8_t> data) {
  if (!IsInside(sector, data.size(), SectorCount())) return false;
  std::ranges::copy(data, bytes_.begin() + OffsetOf(sector));
  return true;
}

std::unique_ptr<FileStorage> FileStorage::Open(const std::string& path, std::string& error) {
  const int handle = open(path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK);
  if (handle < 0) {
    error = path + ": cannot be opened for reading and writing: " + std::strerror(errno);
    return nullptr;
  }
  std::unique_ptr<FileStorage> storage(new FileStorage(handle, 0));
  struct stat info {};
  if (fstat(handle, &info) != 0 || !S_ISREG(info.st_mode)) {
    error = path + ": is no regular file";
    return nullptr;
  }
  const auto size = static_cast<uint64_t>(info.st_size);
  if (size == 0 || size % kSectorSize != 0 || size / kSectorSize > UINT32_MAX) {
    error =
        path + ": its size of " + std::to_string(size) + " bytes is no whole number of 512-byte sectors, 1 to 2^32 - 1";
    return nullptr;
  }
  if (flock(handle, LOCK_EX | LOCK_NB) != 0) {
    error = path + (errno == EWOULDBLOCK ? ": is in use by another simulated device"
                                         : std::string(": cannot be locked: ") + std::strerror(errno));
    return nullptr;
  }
  storage->sectorCount_ = static_cast<uint32_t>(size / kSectorSize);
  return storage;
}

FileStorage::~FileStorage() { close(handle_); }

bool FileStorage::Read(uint32_t sector, std::span<uint8_t> out) {
  return IsInside(sector, out.size(), sectorCount_) && TransferAll(out.size(), [&](size_t done) {
           return pread(handle_, out.data() + done, out.size() - done, OffsetOf(sector) + static_cast<off_t>(done));
         });
}

bool FileStorage::Write(uint32_t sector, std::span<const uint8_t> data) {
  return IsInside(sector, data.size(), sectorCount_) && TransferAll(data.size(), [&](size_t done) {
           return pwrite(handle_, data.data() + done, data.size() - done, OffsetOf(sector) + static_cast<off_t>(done));
         });
}

}  // namespace media_adapter::simulator
