// A simulated device as a process of its own, with an empty volume behind it that the tests fill through the library.
#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/temp_folder.h"
#include "tests/system/platform.h"

namespace media_adapter::system_tests {

inline constexpr const char* kPassword = "secret";

class SimulatedDevice {
 public:
  // Every test file has addresses of its own: they run side by side.
  SimulatedDevice(std::string address, std::string name) : address_(std::move(address)), name_(std::move(name)) {
    std::filesystem::copy_file(MEDIA_ADAPTER_EMPTY_VOLUME, Volume());
    Start();
  }

  // Starts it, or starts it anew, on the volume as it is.
  void Start(const std::vector<std::string>& options = {}) {
    process_.reset();
    std::vector<std::string> command = {MEDIA_ADAPTER_SIMULATOR, "--device",
                                        address_ + "," + name_ + "," + HostPath(Volume()) + "," + kPassword};
    command.insert(command.end(), options.begin(), options.end());
    if (!process_.emplace(command).WaitForLine("ready")) throw std::runtime_error("no simulator at " + address_);
  }
  void Kill() { process_.reset(); }

  const std::string& Name() const { return name_; }
  std::string Volume() const { return folder_ / "volume.img"; }

 private:
  sim::TempFolder folder_;
  std::string address_, name_;
  std::optional<Process> process_;
};

}  // namespace media_adapter::system_tests
