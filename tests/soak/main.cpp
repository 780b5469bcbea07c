// soak: random histories of everything that users do with a volume, under everything that goes wrong around it.
//
//   soak [--seeds N] [--first S] [--jobs J]
//
// Runs the seeds S to S + N - 1 in J processes, prints the rate, and for a seed that fails what broke and how to run it
// again; exits with 1 then. Each seed's world is made from the seed alone: the volume's shape, what is done, what goes
// wrong, on a virtual clock. A process whose seed takes longer than two minutes of real time has hung.
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <new>
#include <thread>

#include "tests/soak/history.h"

namespace media_adapter::soak {
namespace {

constexpr unsigned kLongestSeed = 120;  // seconds
constexpr uint64_t kMaxJobs = 64;

struct Options {
  uint64_t seeds = 200, first = 1, jobs = std::max(1U, std::thread::hardware_concurrency());
};

// What the processes share.
struct Shared {
  std::atomic<uint64_t> next, steps, failures, judged, datagrams;
  std::atomic<bool> isOver;
  std::atomic<uint64_t> seeds[kMaxJobs];  // at work
};

[[noreturn]] void Usage() {
  std::fputs("Usage: soak [--seeds N] [--first S] [--jobs J]\n", stderr);
  std::exit(2);
}

Options Parse(int count, char** arguments) {
  Options options;
  for (int i = 1; i < count; i += 2) {
    const std::string name = arguments[i];
    uint64_t* value = name == "--seeds" ? &options.seeds : name == "--first" ? &options.first : nullptr;
    if (name == "--jobs") value = &options.jobs;
    if (value == nullptr || i + 1 == count) Usage();
    *value = std::strtoull(arguments[i + 1], nullptr, 10);
  }
  options.jobs = std::clamp<uint64_t>(options.jobs, 1, kMaxJobs);
  return options;
}

bool RunSeed(uint64_t seed, const Shape& shape, bool isJudged, Shared& shared) {
  History history(seed, shape);
  try {
    history.Run(isJudged);
  } catch (const std::runtime_error& error) {
    std::printf("%s=> %s\nFAILED on shape FAT%d/%u; again: soak --first %llu --seeds 1\n", history.story.c_str(),
                error.what(), shape.shape.fatBits, shape.shape.sectorsPerCluster,
                static_cast<unsigned long long>(seed));
    std::fflush(stdout);
    return false;
  }
  shared.steps += history.totals.steps;
  shared.failures += history.totals.failures;
  shared.judged += history.totals.judged;
  shared.datagrams += history.totals.datagrams;
  return true;
}

// Strangers judge one history in so many.
uint64_t JudgedEvery(const Options& options) {
  return options.seeds < 10 ? 1 : std::max<uint64_t>(10, options.seeds / 100);
}

// In a process of its own: takes seeds until there are no more. Returns its exit code.
int Work(uint64_t job, const Options& options, const std::vector<Shape>& shapes, Shared& shared) {
  const sim::TempFolder folder;
  std::filesystem::current_path(folder.Path());
  for (const char* name : {"u", "d"}) std::filesystem::create_directory(name);
  bool isGood = true;
  while (isGood && !shared.isOver) {
    const uint64_t n = shared.next++;
    if (n >= options.seeds) break;
    const uint64_t seed = shared.seeds[job] = options.first + n;
    alarm(kLongestSeed);
    isGood =
        RunSeed(seed, shapes[seed % shapes.size()], seed % JudgedEvery(options) == 0 || options.seeds == 1, shared);
  }
  alarm(0);
  if (!isGood) shared.isOver = true;
  std::filesystem::current_path("/");
  return isGood ? 0 : 1;
}

int Main(const Options& options) {
  setenv("TZ", "UTC", 1);
  setenv("LC_ALL", "C.UTF-8", 1);
  tzset();
  if (std::filesystem::is_directory("/dev/shm")) setenv("TMPDIR", "/dev/shm", 0);  // a disk would be most of the time
  const auto shapes = MakeShapes();
  void* memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return 1;
  Shared& shared = *new (memory) Shared{};
  const auto start = std::chrono::steady_clock::now();
  std::fflush(stdout);
  std::map<pid_t, uint64_t> jobs;
  for (uint64_t job = 0; job < options.jobs; ++job) {
    const pid_t child = fork();
    if (child < 0) return 1;
    if (child == 0) _exit(Work(job, options, shapes, shared));
    jobs[child] = job;
  }
  bool isGood = true;
  int status = 0;
  for (pid_t child = wait(&status); child > 0; child = wait(&status)) {
    const bool hasEnded = WIFEXITED(status) && WEXITSTATUS(status) <= 1;
    if (!hasEnded) {
      std::printf("FAILED: %s; again: soak --first %llu --seeds 1\n",
                  WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM ? "hung" : "crashed",
                  static_cast<unsigned long long>(shared.seeds[jobs[child]]));
    }
    isGood = isGood && hasEnded && WEXITSTATUS(status) == 0;
    if (!isGood) shared.isOver = true;
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const uint64_t run = std::min(shared.next.load(), options.seeds);
  std::printf(
      "%s: %llu seeds in %.1f s, %.1f a second; %llu steps, %llu of them failed by faults, %llu requests, %llu "
      "volumes judged by fsck.fat and mtools\n",
      isGood ? "clean" : "FAILED", static_cast<unsigned long long>(run), seconds, static_cast<double>(run) / seconds,
      static_cast<unsigned long long>(shared.steps), static_cast<unsigned long long>(shared.failures),
      static_cast<unsigned long long>(shared.datagrams), static_cast<unsigned long long>(shared.judged));
  return isGood ? 0 : 1;
}

}  // namespace
}  // namespace media_adapter::soak

int main(int count, char** arguments) {
  return media_adapter::soak::Main(media_adapter::soak::Parse(count, arguments));
}
