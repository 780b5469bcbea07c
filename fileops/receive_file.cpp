#include "fileops/receive_file.h"

#include <algorithm>
#include <atomic>
#include <chrono>

#include "fat/cluster_chain.h"
#include "fat/volume.h"
#include "fileops/receive_window.h"
#include "platform/clock.h"
#include "platform/local_files.h"
#include "protocol/exchange.h"
#include "protocol/packet.h"
#include "protocol/protocol_state.h"

namespace media_adapter {
namespace {

constexpr uint32_t kPercent = 100;

// A transfer that brings no new byte for so long ends: the packets that still come hold it up for ever.
constexpr std::chrono::seconds kMaxStall{60};

// Packet numbers do not wrap: what one stream can carry. The rest of a longer file is read sector by sector.
constexpr uint32_t kMaxStreamed = wire::kMaxPacketNumber / wire::kPacketsPerBlock * wire::kBlockSize;
constexpr uint32_t kStreamedSectors = kMaxStreamed / kSectorSize;

// Writes what the last packet carries, as far as it belongs into the file. Bytes written, or none when they could not
// be.
std::optional<uint32_t> WritePacket(const ReceiveWindow& window, platform::LocalFile& file) {
  const auto place = window.PlaceOf(transferBuffer.lastPacketNumber);
  if (!place.isInWindow) return 0;
  const uint32_t count = std::min<uint32_t>(place.room, transferBuffer.size);
  const auto bytes = std::span(transferBuffer.data).first(count);
  if (count != 0 && !(file.Seek(place.offset) && file.Write(bytes))) return std::nullopt;
  return count;
}

// Tells how long a transfer has brought nothing new.
class StallWatch {
 public:
  // total: bytes that are there by now.
  bool HasStalled(uint32_t total) {
    const auto now = platform::MonotonicNow();
    if (total != total_) lastGain_ = now;
    total_ = total;
    return now - lastGain_ >= kMaxStall;
  }

 private:
  uint32_t total_ = 0;
  std::chrono::nanoseconds lastGain_ = platform::MonotonicNow();
};

// Takes packets until `streamed` bytes are there, the device reports a status, or the transfer stalls or times out.
StatusCode ReceiveStream(platform::LocalFile& file, uint32_t streamed, uint32_t size, const Progress& progress) {
  ReceiveWindow window(SequenceCounter(), streamed);
  StallWatch watch;
  protocolState.transferTimedOut = false;
  while (protocolState.replyStatus == MEDIA_ADAPTER_OK) {
    const auto written = WritePacket(window, file);
    if (!written) return MEDIA_ADAPTER_INVALID_PATH;
    for (const Acknowledgement& each : window.Accept(transferBuffer.lastPacketNumber, *written)) {
      AcknowledgePacket(each.number, each.Missing(), sessionValues, each.label);
    }
    if (window.IsComplete()) return MEDIA_ADAPTER_OK;
    progress.Set(window.Total(), size);
    if (watch.HasStalled(window.Total())) return MEDIA_ADAPTER_NO_RESPONSE;
    WaitForPacket();
    if (protocolState.transferTimedOut) return MEDIA_ADAPTER_NO_RESPONSE;
  }
  return protocolState.replyStatus;
}

// The bytes of all clusters.
uint64_t VolumeBytes() {
  return (uint64_t{LastCluster()} - kFirstCluster + 1) * fatVolume.sectorsPerCluster * kSectorSize;
}

// The sectors of a file's chain, behind those that the stream brought.
class ChainReader {
 public:
  explicit ChainReader(uint32_t firstCluster) : cluster_(firstCluster) {}

  // Passes over `count` sectors without reading them.
  StatusCode Skip(uint32_t count) {
    StatusCode status = MEDIA_ADAPTER_OK;
    inCluster_ += count;
    for (; inCluster_ >= fatVolume.sectorsPerCluster && status == MEDIA_ADAPTER_OK;
         inCluster_ -= fatVolume.sectorsPerCluster) {
      status = Follow();
    }
    return status;
  }

  // Reads the next sectors into the working area, two where they lie together in a cluster. `count`: how many.
  StatusCode Read(uint32_t& count) {
    if (const StatusCode status = Skip(0); status != MEDIA_ADAPTER_OK) return status;  // into the next cluster
    count = std::min(kMaxSectorsPerRequest, fatVolume.sectorsPerCluster - inCluster_);
    const uint32_t sector = ClusterToSector(cluster_) + inCluster_;
    inCluster_ += count;
    return ReadSectors(sector, count);
  }

 private:
  // A chain that ends before its file does points nowhere.
  StatusCode Follow() {
    StatusCode status = MEDIA_ADAPTER_OK;
    cluster_ = GetFatEntry(cluster_, EntryUse::Read, status);
    if (status == MEDIA_ADAPTER_OK && (cluster_ == kEnd || cluster_ > LastCluster())) {
      status = MEDIA_ADAPTER_INVALID_SECTOR_ADDRESS;
    }
    return status;
  }

  uint32_t cluster_;
  uint32_t inCluster_ = 0;  // sectors of it that are behind; all of them after its last one
};

StatusCode ReadRest(platform::LocalFile& file, uint32_t firstCluster, uint32_t size, const Progress& progress) {
  ChainReader chain(firstCluster);
  if (const StatusCode status = chain.Skip(kStreamedSectors); status != MEDIA_ADAPTER_OK) return status;
  if (!file.Seek(kMaxStreamed)) return MEDIA_ADAPTER_INVALID_PATH;
  for (uint32_t done = kMaxStreamed; done < size;) {
    uint32_t sectors = 0;
    if (const StatusCode status = chain.Read(sectors); status != MEDIA_ADAPTER_OK) return status;
    const uint32_t count = std::min(sectors * kSectorSize, size - done);
    if (!file.Write(WorkingPair().first(count))) return MEDIA_ADAPTER_INVALID_PATH;
    done += count;
    progress.Set(done, size);
  }
  return MEDIA_ADAPTER_OK;
}

StatusCode ReceiveContents(platform::LocalFile& file, uint32_t firstCluster, uint32_t size, const Progress& progress) {
  const uint32_t cluster = firstCluster == 0 ? kFirstCluster : firstCluster;
  if (cluster < kFirstCluster || cluster > LastCluster()) return MEDIA_ADAPTER_INVALID_SECTOR_ADDRESS;
  if (size > VolumeBytes()) return MEDIA_ADAPTER_INVALID_SECTOR_ADDRESS;
  SetSequenceCounter(0);
  StatusCode status = RFAStartTransfer(ClusterToSector(cluster), sessionValues);
  if (status != MEDIA_ADAPTER_OK) return status;
  status = ReceiveStream(file, std::min(size, kMaxStreamed), size, progress);
  EndTransfer();
  if (status == MEDIA_ADAPTER_OK && size > kMaxStreamed) status = ReadRest(file, cluster, size, progress);
  progress.Set(kPercent);
  return status;
}

}  // namespace

void Progress::Set(uint32_t percent) const {
  if (value_ != nullptr) std::atomic_ref(*value_).store(percent, std::memory_order_relaxed);
}

StatusCode ReceiveFile(const std::string& localPath, uint32_t firstCluster, uint32_t size, const Progress& progress) {
  platform::LocalFile file;
  if (!file.CreateForWriting(localPath)) return MEDIA_ADAPTER_INVALID_PATH;
  if (firstCluster == kEnd || size == 0) return MEDIA_ADAPTER_OK;
  const StatusCode status = ReceiveContents(file, firstCluster, size, progress);
  const bool isKept = file.Close();
  return status == MEDIA_ADAPTER_OK && !isKept ? StatusCode{MEDIA_ADAPTER_INVALID_PATH} : status;
}

}  // namespace media_adapter
