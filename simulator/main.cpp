// media-adapter-sim: plays media adapters on this machine, each with an image file as its mass storage.
// Exit status: 0 ended by SIGINT or SIGTERM, 1 a file or a socket cannot be used, 2 usage.

#include <CLI/CLI.hpp>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "simulator/device_options.h"
#include "simulator/udp_server.h"

namespace {

using namespace media_adapter::simulator;

constexpr int kTrouble = 1;
constexpr int kUsage = 2;

constexpr const char* kDescription =
    "Plays one or several media adapters on the loopback network.\n"
    "\n"
    "Each device answers on its own address, port 14001, and to broadcasts; a FAT image file is its mass storage.\n"
    "Once all sockets are bound, the line \"ready\" goes to standard output. SIGINT or SIGTERM ends it.";

constexpr const char* kExamples =
    "Examples:\n"
    "  media-adapter-sim --device 127.0.0.11,living-room,music.img\n"
    "  media-adapter-sim --device 127.0.0.11,a,a.img,secret --device 127.0.0.12,b,b.img --verbose\n"
    "  media-adapter-sim --device '127.0.0.11,a,disk\\, old.img' --loss 0.05 --duplicate 0.05 --reorder 0.05\n"
    "  media-adapter-sim --device-file devices.json --password-file password.txt\n"
    "with devices.json:\n"
    "  [{\"address\": \"127.0.0.11\", \"name\": \"a\", \"image\": \"a.img\", \"password\": \"\", "
    "\"mac\": \"02:00:7f:00:00:0b\"}]\n"
    "\n"
    "Exit status: 0 after a signal to end, 1 when a file or a socket cannot be used, 2 for wrong usage.";

struct Options {
  std::vector<std::string> devices;
  std::string deviceFile;
  std::string passwordFile;
  double delay = 0;  // ms
  std::vector<std::string> unknownElements, untoldElements;
  Behaviour behaviour;
  ServerOptions server;
};

int Complain(const std::string& message, int exitStatus) {
  std::fprintf(stderr, "media-adapter-sim: %s\n", message.c_str());
  return exitStatus;
}

void Declare(CLI::App& app, Options& options) {
  const CLI::Range probability(0.0, 1.0);
  app.add_option("--device", options.devices,
                 "A device, ADDRESS,NAME,IMAGE[,PASSWORD[,MAC]]; repeatable. A backslash takes the character after it "
                 "as it stands, a comma too. The MAC is made from the address if not given.")
      ->type_name("TEXT")
      ->allow_extra_args(false);
  app.add_option("--device-file", options.deviceFile, "More devices, as a JSON array (see the examples)")
      ->type_name("FILE");
  app.add_option("--password-file", options.passwordFile,
                 "The first line is the password of every device that has none of its own")
      ->type_name("FILE");
  app.add_option("--loss", options.server.faults.loss, "Lose a datagram, in each direction, with this probability")
      ->type_name("P")
      ->check(probability);
  app.add_option("--duplicate", options.server.faults.duplicate, "Deliver it twice with this probability")
      ->type_name("P")
      ->check(probability);
  app.add_option("--reorder", options.server.faults.reorder, "Deliver it after the next one with this probability")
      ->type_name("P")
      ->check(probability);
  app.add_option("--delay", options.delay,
                 "Delay every datagram, in each direction, by so many milliseconds, such as 0.25")
      ->type_name("MS")
      ->check(CLI::Range(0.0, 60000.0));
  app.add_option("--busy", options.behaviour.busyReplies,
                 "Each device answers its first N file-access requests with status 5 (busy)")
      ->type_name("N");
  app.add_option("--die-after-writes", options.behaviour.writesBeforeDeath,
                 "Each device falls silent for good when it has taken N writes, the last one answered")
      ->type_name("N");
  app.add_option("--refuse-write-after", options.behaviour.writesBeforeRefusal,
                 "Each device answers the write after N others with status 8 and does not do it")
      ->type_name("N");
  app.add_option("--refusals", options.behaviour.refusals, "So many such answers, 1 by default")->type_name("N");
  app.add_option("--unknown-element", options.unknownElements,
                 "Each device answers status 2 when this element, such as 8.1, is asked for or set; repeatable")
      ->type_name("ELEMENT")
      ->allow_extra_args(false);
  app.add_option("--untold-element", options.untoldElements, "Each device leaves this element out of its replies")
      ->type_name("ELEMENT")
      ->allow_extra_args(false);
  app.add_option("--seed", options.server.faults.seed, "Seed of the faults; the same seed, the same faults")
      ->type_name("N")
      ->capture_default_str();
  app.add_option(
         "--log-writes", options.server.writeLogPath,
         "Append a line \"SECTOR COUNT\" for every accepted write, in order; with several devices, the device's "
         "address follows")
      ->type_name("FILE");
  app.add_option("--pcap", options.server.pcapPath,
                 "Write every datagram that arrives and every one that is sent to this file, for Wireshark")
      ->type_name("FILE");
  app.add_flag("--verbose", options.server.isVerbose, "Print one line for every datagram");
  app.add_flag("--any-interface", options.server.allowsAnyInterface,
               "Allow addresses outside 127.0.0.0/8, and hear hosts outside it");
  app.footer(kExamples);
}

// "8.1" as class * 256 + index.
std::optional<uint16_t> ParseElement(std::string_view text) {
  uint8_t elementClass = 0, index = 0;
  const char* const end = text.data() + text.size();
  const auto first = std::from_chars(text.data(), end, elementClass);
  if (first.ec != std::errc() || first.ptr == end || *first.ptr != '.') return std::nullopt;
  const auto second = std::from_chars(first.ptr + 1, end, index);
  if (second.ec != std::errc() || second.ptr != end) return std::nullopt;
  return static_cast<uint16_t>(elementClass * 256 + index);
}

// False with `error`.
bool ParseElements(const std::vector<std::string>& texts, std::vector<uint16_t>& elements, std::string& error) {
  for (const std::string& text : texts) {
    const auto element = ParseElement(text);
    if (!element) {
      error = "\"" + text + "\" is no element, like 8.1";
      return false;
    }
    elements.push_back(*element);
  }
  return true;
}

// The devices that the options ask for; none with `error` when they are wrong.
std::optional<std::vector<DeviceOptions>> CollectDevices(const Options& options, std::string& error) {
  std::vector<DeviceOptions> devices;
  for (const std::string& text : options.devices) {
    const auto device = ParseDevice(text, error);
    if (!device) return std::nullopt;
    devices.push_back(*device);
  }
  if (!options.deviceFile.empty() && !ReadDeviceFile(options.deviceFile, devices, error)) return std::nullopt;
  if (!options.passwordFile.empty()) {
    const auto password = ReadPassword(options.passwordFile, error);
    if (!password) return std::nullopt;
    for (DeviceOptions& device : devices) {
      if (!device.hasPassword) device.identity.password = *password;
    }
  }
  if (devices.empty()) {
    error = "no device: give --device or --device-file (see --help)";
    return std::nullopt;
  }
  if (const auto conflict = FindConflict(devices)) {
    error = *conflict;
    return std::nullopt;
  }
  return devices;
}

UdpServer* playing = nullptr;

void OnStopSignal(int) { playing->Stop(); }

void StopAtSignals(UdpServer& server) {
  playing = &server;
  std::signal(SIGINT, OnStopSignal);
  std::signal(SIGTERM, OnStopSignal);
#ifdef SIGBREAK  // Ctrl-Break, or a console that is closed
  std::signal(SIGBREAK, OnStopSignal);
#endif
}

int Play(const Options& options, std::vector<DeviceOptions> devices) {
  if (!media_adapter::platform::StartSockets()) return Complain("the system's sockets cannot be used", kTrouble);
  UdpServer server(options.server);
  StopAtSignals(server);
  std::string error;
  for (DeviceOptions& device : devices) {
    auto storage = FileStorage::Open(device.image, error);
    if (!storage) return Complain(error, kTrouble);
    const std::string name = device.identity.name;
    if (!server.Add(std::make_unique<DeviceModel>(std::move(device.identity), std::move(storage), options.behaviour),
                    error)) {
      return Complain(error.insert(0, "device " + name + ": "), kTrouble);
    }
  }
  if (!server.Open(error)) return Complain(error, kTrouble);
  std::puts("ready");
  std::fflush(stdout);
  return server.Run(error) ? 0 : Complain(error, kTrouble);
}

int RunTool(int argc, char** argv) {
  CLI::App app(kDescription, "media-adapter-sim");
  Options options;
  app.set_version_flag("--version", "media-adapter-sim " MEDIA_ADAPTER_TOOL_VERSION);
  Declare(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kUsage;
  }
  options.server.faults.delay =
      std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::duration<double, std::milli>(options.delay));
  std::string error;
  auto devices = CollectDevices(options, error);
  if (!devices || !ParseElements(options.unknownElements, options.behaviour.unknownElements, error) ||
      !ParseElements(options.untoldElements, options.behaviour.untoldElements, error)) {
    return Complain(error, kUsage);
  }
  return Play(options, std::move(*devices));
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return RunTool(argc, argv);
  } catch (const std::exception& exception) {  // out of memory, for one
    std::fprintf(stderr, "media-adapter-sim: %s\n", exception.what());
    return kTrouble;
  }
}
