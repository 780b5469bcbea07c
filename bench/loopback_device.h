// The device that the benchmarks talk to: a simulator process on loopback, over a volume made for the occasion in a
// temporary folder. Process and folder go when the object does.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>

namespace media_adapter::bench {

inline constexpr const char* kDeviceAddress = "127.0.0.21";

class LoopbackDevice {
 public:
  // simulator: path of the simulator's program. Throws std::runtime_error when it cannot be brought up.
  explicit LoopbackDevice(const std::filesystem::path& simulator);
  ~LoopbackDevice();
  LoopbackDevice(const LoopbackDevice&) = delete;
  LoopbackDevice& operator=(const LoopbackDevice&) = delete;

  const std::filesystem::path& Folder() const { return folder_; }
  // A local file of `size` bytes with content of no pattern.
  std::filesystem::path MakeFile(const char* name, uint32_t size) const;

 private:
  void MakeVolume() const;
  void StartSimulator(const std::filesystem::path& simulator);

  std::filesystem::path folder_;
  pid_t process_ = -1;
};

}  // namespace media_adapter::bench
