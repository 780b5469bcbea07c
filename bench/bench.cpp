// What the library costs, beside the least that the same datagrams cost, from one run against simulated devices on
// loopback. Prints, beside what the benchmarks of Google's library print:
//
//   ratio PLACE-NAME VALUE      the bare client's time by the library's: 1 is its speed, more is quicker. PLACE is
//                               "cross", device and library on a processor each, or "one", both on the same
//   cpu slow-device VALUE       the library's processor time by the bare client's, an exchange with a device that
//                               answers after half a millisecond
//   call NAME VALUE ms          whole calls, device and library on a processor each
//   allocations NAME VALUE      that the library makes for an exchange, and for a packet of a stream
//   memory growth VALUE         over many requests
//
// Each pair is measured in interleaved rounds, of which the medians count. The library's own code is linked in; the
// main thread stands in for the worker where single sectors are measured.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sched.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <map>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "api/media_adapter.h"
#include "bench/bare_client.h"
#include "bench/loopback_device.h"
#include "fat/sector_buffers.h"
#include "fat/volume.h"
#include "platform/load_hook.h"
#include "platform/thread.h"
#include "protocol/channel.h"
#include "protocol/device_table.h"
#include "worker/device_socket_setup.h"
#include "worker/library.h"

namespace media_adapter::platform {

void AllowUnloading(bool (*)()) {}  // the library is linked in

}  // namespace media_adapter::platform

namespace media_adapter::bench {
namespace {

constexpr uint32_t kStreamedSize = 20 * 1024 * 1024;
constexpr uint32_t kSmallSize = 1024 * 1024;
constexpr int kSectorsPerRound = 2000;
constexpr int kSlowSectorsPerRound = 100;
constexpr int kSlowRounds = 201;
constexpr int kRounds = 21;
constexpr int kListedFiles = 300;
constexpr int kMemoryRequests = 10000;
constexpr std::chrono::minutes kPatience{10};

// The processors that device and library run on.
struct Place {
  std::string name;
  int ordinal;  // of the device's processor among those that this process may use; the library has the first
};
const Place kPlaces[] = {{"cross", 1}, {"one", 0}};

std::atomic<uint64_t> allocations = 0;

// The processors that this process was given.
const cpu_set_t kAllowed = [] {
  cpu_set_t allowed;
  sched_getaffinity(0, sizeof allowed, &allowed);
  return allowed;
}();

// Lets a process (0: this thread, and what it starts) run on one of them only, where there are so many. Left alone,
// device and library now share one and now do not, which decides more than what is measured here.
void StayOn(pid_t process, int ordinal) {
  if (CPU_COUNT(&kAllowed) <= ordinal) return;
  int processor = -1;
  for (int left = ordinal; left >= 0; --left) {
    while (!CPU_ISSET(++processor, &kAllowed)) continue;
  }
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(processor, &one);
  sched_setaffinity(process, sizeof one, &one);
}

void Check(uint32_t status, const char* what) {
  if (status != MEDIA_ADAPTER_OK)
    throw std::runtime_error(std::string(what) + " ends with status " + std::to_string(status));
}

double MedianOf(std::vector<double>& values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::ranges::nth_element(values, middle);
  return *middle;
}

// Keeps every repetition's time an iteration, and prints what the usual console shows.
class MedianReporter : public benchmark::ConsoleReporter {
 public:
  MedianReporter() : ConsoleReporter(OO_Tabular) {}  // without colours, which would stain the ratio lines

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Iteration) times_[run.run_name.function_name].push_back(run.GetAdjustedRealTime());
    }
    ConsoleReporter::ReportRuns(runs);
  }

  double Median(const std::string& name) { return MedianOf(times_.at(name)); }

 private:
  std::map<std::string, std::vector<double>> times_;
};

void Register(const std::string& name, const std::function<void()>& round) {
  benchmark::RegisterBenchmark(name.c_str(),
                               [round](benchmark::State& state) {
                                 for ([[maybe_unused]] const auto iteration : state) round();
                               })
      ->Iterations(1)
      ->Repetitions(kRounds)
      ->UseRealTime()
      ->Unit(benchmark::kMillisecond);
}

void RunRegistered(MedianReporter& reporter) {
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::ClearRegisteredBenchmarks();
}

void StoreInRoot(const std::string& localPath) {
  std::string root = "\\";  // the library shortens it
  Check(API_RFAWriteData(localPath.c_str(), root.data(), 0, "", 0)->status, "writing a file");
}

void Read(const std::string& devicePath, std::string folder) {
  Check(API_RFAReadData(devicePath.c_str(), folder.data(), 0, "", 0)->status, "reading");
}

void MakeListedFolder(const LoopbackDevice& device) {
  Check(API_RFACreateDirectory("\\listed", 0, "", 0)->status, "making a folder");
  std::string folder = "\\listed";
  for (int i = 0; i < kListedFiles; ++i) {
    const std::string file = device.MakeFile((std::to_string(i) + " is a file with a long name").c_str(), 0).string();
    Check(API_RFAWriteData(file.c_str(), folder.data(), 0, "", 0)->status, "writing an empty file");
  }
}

// Whole files, through the exports.
void MeasureFiles(const Place& place, const LoopbackDevice& device, BareClient& bare, MedianReporter& reporter) {
  const std::string folder = (device.Folder() / "in").string();
  const std::string bareFile = (device.Folder() / "bare.bin").string();
  // The volume was empty: the file to stream lies at its first clusters.
  const uint32_t sector = ClusterToSector(kFirstCluster);
  Register(place.name + "/stream/bare", [&bare, sector, bareFile] { bare.Stream(sector, kStreamedSize, bareFile); });
  Register(place.name + "/stream/library", [folder] { Read("\\stream.bin", folder); });
  if (place.ordinal != 0) {
    const std::string small = (device.Folder() / "small.bin").string();
    Register("list-300", [folder] { Read("\\listed", folder); });
    Register("put-1MB", [small] { StoreInRoot(small); });
  }
  RunRegistered(reporter);
}

// What a packet of a stream takes: the difference of a long file and a short one.
void CountAllocations(const LoopbackDevice& device) {
  const auto countOf = [&](const char* path) {
    const uint64_t before = allocations;
    Read(path, (device.Folder() / "in").string());
    return static_cast<double>(allocations - before);
  };
  const double packets = static_cast<double>(kStreamedSize - kSmallSize) / wire::kPacketSize;
  std::printf("allocations packet %.4f\n", (countOf("\\stream.bin") - countOf("\\small.bin")) / packets);
}

void WriteSector() {
  static const std::array<uint8_t, kSectorSize> data{};
  Check(RFAWriteData(sessionInfo.lastSector, 1, data, {}), "writing a sector");
}

void ReadSector() { Check(RFAReadData(sessionInfo.lastSector, 1, {}), "reading a sector"); }

// Single sectors, the last one, which no file holds.
void MeasureSectors(const Place& place, BareClient& bare, MedianReporter& reporter) {
  const auto registerRounds = [&](const char* name, const std::function<void()>& exchange) {
    Register(place.name + name, [exchange] {
      for (int i = 0; i < kSectorsPerRound; ++i) exchange();
    });
  };
  registerRounds("/read/bare", [&bare] { bare.ReadSector(); });
  registerRounds("/read/library", ReadSector);
  registerRounds("/write/bare", [&bare] { bare.WriteSector(); });
  registerRounds("/write/library", WriteSector);
  RunRegistered(reporter);
}

double ProcessorTime() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// In pairs, since how quick the processor is changes from one second to the next.
void MeasureSlowDevice(BareClient& bare) {
  const auto timeOf = [](const std::function<void()>& exchange) {
    const double before = ProcessorTime();
    for (int i = 0; i < kSlowSectorsPerRound; ++i) exchange();
    return ProcessorTime() - before;
  };
  std::vector<double> ratios;
  for (int round = 0; round < kSlowRounds; ++round) {
    const double bareTime = timeOf([&] { bare.ReadSector(); });
    const double libraryTime =
        timeOf([] { Check(RFAReadData(1, 1, {.password = {}, .device = 1}), "reading a sector slowly"); });
    ratios.push_back(libraryTime / bareTime);
  }
  std::printf("cpu slow-device %.3f\n", MedianOf(ratios));
}

void MeasureMemory() {
  const auto connect = [](int times) {
    for (int i = 0; i < times; ++i) Check(API_RFAConnect(0, "", 0)->status, "connecting");
  };
  connect(kMemoryRequests / 10);  // the first ones pay for what lasts, such as the C library's own caches
  const size_t before = mallinfo2().uordblks;
  connect(kMemoryRequests);
  const auto growth = static_cast<long long>(mallinfo2().uordblks) - static_cast<long long>(before);
  std::printf("memory growth %lld bytes over %d requests\n", growth, kMemoryRequests);
}

void PrintResults(MedianReporter& reporter) {
  constexpr const char* kPairs[][2] = {
      {"sector-reads", "read"}, {"sector-writes", "write"}, {"streamed-read", "stream"}};
  for (const Place& place : kPlaces) {
    for (const auto& [name, benchmark] : kPairs) {
      const std::string path = place.name + "/" + benchmark;
      std::printf("ratio %s-%s %.3f\n", place.name.c_str(), name,
                  reporter.Median(path + "/bare") / reporter.Median(path + "/library"));
    }
  }
  for (const char* call : {"list-300", "put-1MB"}) std::printf("call %s %.2f ms\n", call, reporter.Median(call));
}

// The worker has ended; this thread takes its place.
void MeasureAsWorker(const LoopbackDevice& device, BareClient& bare, BareClient& slowBare, MedianReporter& reporter) {
  OpenChannel();
  Channel& channel = WorkerChannel();
  Check(CreateDeviceSocket(channel.deviceSocket, "127.0.0.1", false), "opening a socket");
  channel.queue.Watch(&channel.deviceSocket);
  if (!AllocateSectorBuffers(BufferKind::WithoutFatCache)) Check(MEDIA_ADAPTER_NOT_ENOUGH_MEMORY, "taking buffers");
  bare.SetSector(sessionInfo.lastSector);
  for (const Place& place : kPlaces) {
    StayOn(device.Process(), place.ordinal);
    MeasureSectors(place, bare, reporter);
  }
  const uint64_t before = allocations;
  for (int i = 0; i < kSectorsPerRound; ++i) i % 2 == 0 ? ReadSector() : WriteSector();
  std::printf("allocations exchange %.4f\n", static_cast<double>(allocations - before) / kSectorsPerRound);
  Check(RFAConnect({.password = {}, .device = 1}), "connecting to the slow device");
  MeasureSlowDevice(slowBare);
  FreeSectorBuffers();
  CloseChannel();
}

void Measure(const LoopbackDevice& device) {
  StartLibrary();
  Check(API_SetIpInterface("127.0.0.1"), "choosing the interface");
  if (API_Search("")->deviceCount != 2) throw std::runtime_error("the devices are not found");
  if (deviceTable.entries[0].name[0] != 'b') {
    std::swap(deviceTable.entries[0], deviceTable.entries[1]);
  }
  BareClient bare(kDeviceAddress, std::span(deviceTable.entries[0].macAddress));
  BareClient slowBare(kSlowDeviceAddress, std::span(deviceTable.entries[1].macAddress));
  std::filesystem::create_directory(device.Folder() / "in");
  StoreInRoot(device.MakeFile("stream.bin", kStreamedSize).string());
  StoreInRoot(device.MakeFile("small.bin", kSmallSize).string());
  MakeListedFolder(device);
  MedianReporter reporter;
  for (const Place& place : kPlaces) {
    StayOn(device.Process(), place.ordinal);
    MeasureFiles(place, device, bare, reporter);
  }
  CountAllocations(device);
  MeasureMemory();
  StopLibrary();
  MeasureAsWorker(device, bare, slowBare, reporter);
  PrintResults(reporter);
}

// The bare client gets a thread like the library's worker: how soon a thread runs once a packet is there decides much
// of what is measured.
const LoopbackDevice* theDevice;
bool hasFailed;

void MeasureOnWorkersKindOfThread() {
  try {
    Measure(*theDevice);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bench: %s\n", error.what());
    hasFailed = true;
  }
}

int Main(int argc, char** argv) {
  std::vector<char*> arguments(argv, argv + argc);
  std::string interleaved = "--benchmark_enable_random_interleaving=true";
  arguments.push_back(interleaved.data());
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;

  const LoopbackDevice device(std::filesystem::canonical("/proc/self/exe").parent_path() / "media-adapter-sim");
  StayOn(0, 0);
  theDevice = &device;
  platform::Thread thread;
  if (!thread.Start(MeasureOnWorkersKindOfThread) || !thread.Wait(kPatience)) hasFailed = true;
  return hasFailed ? 1 : 0;
}

}  // namespace
}  // namespace media_adapter::bench

[[gnu::noinline]] void* operator new(size_t size) {
  ++media_adapter::bench::allocations;
  if (void* const memory = std::malloc(std::max<size_t>(size, 1))) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept { std::free(memory); }

int main(int argc, char** argv) {
  try {
    return media_adapter::bench::Main(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bench: %s\n", error.what());
    return 1;
  }
}
