#include <cstdio>

#include "platform/file_stream.h"
#include "platform/local_files.h"

namespace media_adapter::platform {
namespace {

constexpr size_t kBufferSize = 64 * 1024;  // of a stream; a received file reaches the disk in writes of this size

}  // namespace

LocalFile::~LocalFile() {
  if (stream_ != nullptr) std::fclose(stream_);
}

bool LocalFile::Open(const std::string& path, FileUse use) {
  Close();
  const Interruptible interruptible;
  stream_ = OpenRegularFile(path, use);
  position_ = 0;
  if (stream_ == nullptr) return false;
  buffer_ = std::make_unique<char[]>(kBufferSize);
  std::setvbuf(stream_, buffer_.get(), _IOFBF, kBufferSize);
  return true;
}

bool LocalFile::OpenForReading(const std::string& path) { return Open(path, FileUse::Read); }

bool LocalFile::CreateForWriting(const std::string& path) { return Open(path, FileUse::Replace); }

std::optional<uint64_t> LocalFile::Size() {
  if (stream_ == nullptr) return std::nullopt;
  return StreamSize(stream_);
}

bool LocalFile::Seek(uint64_t offset) {
  if (stream_ == nullptr) return false;
  if (position_ == offset) return true;  // a seek would empty the buffer
  const Interruptible interruptible;
  if (!SeekStream(stream_, offset)) return false;
  position_ = offset;
  return true;
}

int64_t LocalFile::Read(std::span<uint8_t> buffer) {
  if (stream_ == nullptr) return -1;
  const Interruptible interruptible;
  const size_t count = std::fread(buffer.data(), 1, buffer.size(), stream_);
  position_ += count;
  if (count < buffer.size() && std::ferror(stream_) != 0) return -1;
  return static_cast<int64_t>(count);
}

bool LocalFile::Write(std::span<const uint8_t> bytes) {
  if (stream_ == nullptr) return false;
  const Interruptible interruptible;
  const size_t count = std::fwrite(bytes.data(), 1, bytes.size(), stream_);
  position_ += count;
  return count == bytes.size();
}

bool LocalFile::Close() {
  if (stream_ == nullptr) return true;
  std::FILE* const stream = stream_;
  stream_ = nullptr;
  const bool wasGood = std::ferror(stream) == 0;
  const Interruptible interruptible;
  return std::fclose(stream) == 0 && wasGood;
}

}  // namespace media_adapter::platform
