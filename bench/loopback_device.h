// The device that the benchmarks talk to: a simulator process on loopback, over a volume made for the occasion in a
// temporary folder, and a slow one. Processes and folder go when the object does.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace media_adapter::bench {

inline constexpr const char* kDeviceAddress = "127.0.0.21";
inline constexpr const char* kSlowDeviceAddress = "127.0.0.22";  // answers after half a millisecond

class LoopbackDevice {
 public:
  // simulator: path of the simulator's program. Throws std::runtime_error when it cannot be brought up.
  explicit LoopbackDevice(const std::filesystem::path& simulator);
  ~LoopbackDevice();
  LoopbackDevice(const LoopbackDevice&) = delete;
  LoopbackDevice& operator=(const LoopbackDevice&) = delete;

  pid_t Process() const { return processes_.front(); }  // of the quick one
  const std::filesystem::path& Folder() const { return folder_; }
  // A local file of `size` bytes with content of no pattern.
  std::filesystem::path MakeFile(const char* name, uint32_t size) const;

 private:
  void MakeVolume() const;
  pid_t StartSimulator(std::string simulator, const char* address, const char* name, const char* delay) const;

  std::filesystem::path folder_;
  std::vector<pid_t> processes_;
};

}  // namespace media_adapter::bench
