#include <algorithm>
#include <cstring>
#include <utility>

#include "platform/local_files.h"

namespace media_adapter::platform {
namespace {

constexpr size_t kBufferSize = 64 * 1024;  // a received file reaches the disk in writes of this size

}  // namespace

// What was written and did not reach the system is dropped: its call may have no end. When the thread was ended inside
// such a call, even closing may have none.
LocalFile::~LocalFile() {
  if (file_ != kNoFile && !isInCall_) CloseFile(file_);
}

template <class Call>
auto LocalFile::AskSystem(Call call) {
  const Interruptible interruptible;
  isInCall_ = true;
  const auto result = call();
  isInCall_ = false;
  return result;
}

bool LocalFile::Open(const std::string& path, FileUse use) {
  Close();
  if (!buffer_) buffer_ = std::make_unique_for_overwrite<uint8_t[]>(kBufferSize);
  file_ = AskSystem([&] { return OpenRegularFile(path, use); });
  position_ = bufferStart_ = buffered_ = 0;
  isWritten_ = file_ != kNoFile && use == FileUse::Replace;
  isGood_ = true;
  return file_ != kNoFile;
}

bool LocalFile::OpenForReading(const std::string& path) { return Open(path, FileUse::Read); }

bool LocalFile::CreateForWriting(const std::string& path) { return Open(path, FileUse::Replace); }

std::optional<uint64_t> LocalFile::Size() { return FileSize(file_); }

bool LocalFile::Seek(uint64_t offset) {
  position_ = offset;
  return file_ != kNoFile;
}

// Fills the buffer from the position on. False when the file cannot be read.
bool LocalFile::Fill() {
  bufferStart_ = position_;
  const int64_t count = AskSystem([&] { return ReadAt(file_, {buffer_.get(), kBufferSize}, position_); });
  buffered_ = static_cast<size_t>(std::max<int64_t>(count, 0));
  return count >= 0;
}

int64_t LocalFile::Read(std::span<uint8_t> buffer) {
  if (file_ == kNoFile || isWritten_) return -1;
  size_t done = 0;
  while (done < buffer.size()) {
    const bool isThere = position_ >= bufferStart_ && position_ < bufferStart_ + buffered_;
    if (!isThere && !Fill()) return -1;
    const auto ready = std::span(buffer_.get(), buffered_).subspan(static_cast<size_t>(position_ - bufferStart_));
    if (ready.empty()) break;  // the file's end
    const size_t count = std::min(ready.size(), buffer.size() - done);
    std::memcpy(buffer.data() + done, ready.data(), count);
    done += count;
    position_ += count;
  }
  return static_cast<int64_t>(done);
}

// Hands what the buffer holds to the system. What it does not take is lost.
bool LocalFile::Flush() {
  std::span<const uint8_t> rest(buffer_.get(), buffered_);
  buffered_ = 0;
  while (!rest.empty()) {
    const int64_t count = AskSystem([&] { return WriteAt(file_, rest, bufferStart_); });
    if (count <= 0) return isGood_ = false;
    bufferStart_ += static_cast<uint64_t>(count);
    rest = rest.subspan(static_cast<size_t>(count));
  }
  return true;
}

bool LocalFile::Write(std::span<const uint8_t> bytes) {
  if (!isWritten_) return false;
  while (!bytes.empty()) {
    const bool goesOn = position_ == bufferStart_ + buffered_ && buffered_ < kBufferSize;
    if (!goesOn && !Flush()) return false;
    if (buffered_ == 0) bufferStart_ = position_;
    const size_t count = std::min(bytes.size(), kBufferSize - buffered_);
    std::memcpy(buffer_.get() + buffered_, bytes.data(), count);
    buffered_ += count;
    position_ += count;
    bytes = bytes.subspan(count);
  }
  return true;
}

bool LocalFile::Close() {
  if (file_ == kNoFile) return true;
  if (std::exchange(isWritten_, false)) Flush();
  const FileHandle file = std::exchange(file_, kNoFile);
  return AskSystem([&] { return CloseFile(file); }) && isGood_;
}

}  // namespace media_adapter::platform
