// What the library costs, beside the least that the same datagrams cost, from one run against a simulated device on
// loopback. Each pair is measured in interleaved repetitions; the medians make the lines "ratio NAME VALUE" (1 is the
// bare client's speed, less is slower). Also counts the library's memory over many requests.
//
// The library's own code is linked in; the main thread stands in for the worker where single sectors are measured.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sched.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "api/media_adapter.h"
#include "bench/bare_client.h"
#include "bench/loopback_device.h"
#include "fat/sector_buffers.h"
#include "fat/volume.h"
#include "platform/thread.h"
#include "protocol/channel.h"
#include "protocol/device_table.h"
#include "worker/device_socket_setup.h"
#include "worker/library.h"

namespace media_adapter::bench {
namespace {

constexpr uint32_t kStreamedSize = 20 * 1024 * 1024;
constexpr uint32_t kWrittenSize = 1024 * 1024;
constexpr uint32_t kSectorsWritten = kWrittenSize / kSectorSize;
constexpr int kSectorsPerRound = 2000;
constexpr int kRepetitions = 21;
constexpr int kMemoryRequests = 10000;
constexpr std::chrono::minutes kPatience{10};

struct Pair {
  const char* name;
  const char* library;
  const char* bare;
};
constexpr Pair kPairs[] = {{"sector-reads", "read/library", "read/bare"},
                           {"streamed-read", "stream/library", "stream/bare"},
                           {"sector-writes", "write/library", "write/bare"}};

void Check(uint32_t status, const char* what) {
  if (status != MEDIA_ADAPTER_OK)
    throw std::runtime_error(std::string(what) + " ends with status " + std::to_string(status));
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

  double Median(const std::string& name) {
    std::vector<double>& times = times_.at(name);
    std::ranges::nth_element(times, times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2));
    return times[times.size() / 2];
  }

 private:
  std::map<std::string, std::vector<double>> times_;
};

void Register(const char* name, const std::function<void()>& round) {
  benchmark::RegisterBenchmark(name,
                               [round](benchmark::State& state) {
                                 for ([[maybe_unused]] const auto iteration : state) round();
                               })
      ->Iterations(1)
      ->Repetitions(kRepetitions)
      ->UseRealTime()
      ->Unit(benchmark::kMillisecond);
}

void StoreInRoot(const std::string& localPath) {
  std::string root = "\\";  // the library shortens it
  Check(API_RFAWriteData(localPath.c_str(), root.data(), 0, "", 0)->status, "writing a file");
}

// Whole files, through the exports.
void MeasureFiles(const LoopbackDevice& device, BareClient& bare, MedianReporter& reporter) {
  std::string folder = (device.Folder() / "in").string();
  std::filesystem::create_directory(folder);
  const std::string streamed = device.MakeFile("stream.bin", kStreamedSize).string();
  const std::string bareFile = (device.Folder() / "bare.bin").string();
  const std::string written = device.MakeFile("written.bin", kWrittenSize).string();
  StoreInRoot(streamed);

  // The volume was empty: the file to stream lies at its first clusters, and its last sector stays free.
  const uint32_t streamSector = ClusterToSector(kFirstCluster);
  bare.SetSector(sessionInfo.lastSector);

  Register("stream/bare", [&bare, streamSector, bareFile] { bare.Stream(streamSector, kStreamedSize, bareFile); });
  Register("stream/library", [&folder] {
    Check(API_RFAReadData("\\stream.bin", folder.data(), 0, "", 0)->status, "streaming the file");
  });
  Register("write/bare", [&bare] {
    for (uint32_t i = 0; i < kSectorsWritten; ++i) bare.WriteSector();
  });
  Register("write/library", [&written] { StoreInRoot(written); });
  benchmark::RunSpecifiedBenchmarks(&reporter, "stream|write");
}

// Single sectors. The worker has ended; this thread takes its place.
void MeasureSectors(BareClient& bare, MedianReporter& reporter) {
  OpenChannel();
  Channel& channel = WorkerChannel();
  Check(CreateDeviceSocket(channel.deviceSocket, "127.0.0.1", false), "opening a socket");
  channel.queue.Watch(&channel.deviceSocket);
  if (!AllocateSectorBuffers(BufferKind::WithoutFatCache)) Check(MEDIA_ADAPTER_NOT_ENOUGH_MEMORY, "taking buffers");

  Register("read/bare", [&bare] {
    for (int i = 0; i < kSectorsPerRound; ++i) bare.ReadSector();
  });
  Register("read/library", [] {
    for (int i = 0; i < kSectorsPerRound; ++i) Check(RFAReadData(sessionInfo.lastSector, 1, {}), "reading a sector");
  });
  benchmark::RunSpecifiedBenchmarks(&reporter, "read/");
  FreeSectorBuffers();
  CloseChannel();
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

void PrintRatios(MedianReporter& reporter) {
  for (const Pair& pair : kPairs) {
    std::printf("ratio %s %.3f\n", pair.name, reporter.Median(pair.bare) / reporter.Median(pair.library));
  }
}

void Measure(const LoopbackDevice& device) {
  StartLibrary();
  Check(API_SetIpInterface("127.0.0.1"), "choosing the interface");
  if (API_Search("bench")->deviceCount != 1) throw std::runtime_error("the device is not found");
  BareClient bare(kDeviceAddress, std::span(deviceTable.entries[0].macAddress));
  MedianReporter reporter;
  MeasureFiles(device, bare, reporter);
  MeasureMemory();
  StopLibrary();
  MeasureSectors(bare, reporter);
  PrintRatios(reporter);
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

// Lets what is started from here on run on one of the allowed processors, where there are several. Device and client
// get one each, as if they were machines: left alone they now share one and now do not, which decides more than what is
// measured here.
void StayOn(const cpu_set_t& allowed, int ordinal) {
  if (CPU_COUNT(&allowed) <= ordinal) return;
  int processor = 0;
  for (int i = 0; i < CPU_SETSIZE && ordinal >= 0; ++i) {
    if (CPU_ISSET(i, &allowed) && ordinal-- == 0) processor = i;
  }
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(processor, &one);
  sched_setaffinity(0, sizeof one, &one);
}

int Main(int argc, char** argv) {
  std::vector<char*> arguments(argv, argv + argc);
  std::string interleaved = "--benchmark_enable_random_interleaving=true";
  arguments.push_back(interleaved.data());
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;

  cpu_set_t allowed;
  sched_getaffinity(0, sizeof allowed, &allowed);
  StayOn(allowed, 1);
  const LoopbackDevice device(std::filesystem::canonical("/proc/self/exe").parent_path() / "media-adapter-sim");
  StayOn(allowed, 0);
  theDevice = &device;
  platform::Thread thread;
  if (!thread.Start(MeasureOnWorkersKindOfThread) || !thread.Wait(kPatience)) hasFailed = true;
  return hasFailed ? 1 : 0;
}

}  // namespace
}  // namespace media_adapter::bench

int main(int argc, char** argv) {
  try {
    return media_adapter::bench::Main(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bench: %s\n", error.what());
    return 1;
  }
}
