// This machine's own ways into networks.
#pragma once

#include <string>
#include <vector>

namespace media_adapter::cli {

struct LocalInterface {
  std::string name;
  std::string address;  // IPv4, dotted
};

// Those that are up and have an IPv4 address; the loopback interface comes last.
std::vector<LocalInterface> LocalInterfaces();

}  // namespace media_adapter::cli
