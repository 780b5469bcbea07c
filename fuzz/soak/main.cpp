// soak: random histories of everything that users do with a volume, under everything that goes wrong around it.
//
//   soak [--seeds N] [--first S] [--jobs J]
//
// Runs the seeds S to S + N - 1 in J processes and prints the rate; for a seed that fails, its steps, what broke and
// how to run it again; exits with 1 then. A seed decides everything: the volume, what is done, what goes wrong; time is
// virtual. A process whose seed takes two minutes of real time hangs.
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <new>
#include <thread>

#include "fuzz/soak/history.h"

namespace media_adapter::soak {
namespace {

constexpr unsigned kLongestSeed = 120;  // seconds
constexpr size_t kMaxJobs = 64;

struct Options {
  uint64_t seeds = 200, first = 1;
  size_t jobs = std::clamp<size_t>(std::thread::hardware_concurrency(), 1, kMaxJobs);
  // Strangers judge one history in so many.
  uint64_t JudgedEvery() const { return seeds < 10 ? 1 : std::max<uint64_t>(10, seeds / 100); }
};

// What the processes share.
struct Shared {
  std::atomic<uint64_t> next;
  std::atomic<bool> isOver;
  Totals totals;
  std::atomic<uint64_t> seeds[kMaxJobs];  // at work
};

// A process: takes seeds until there are no more, or one failed.
void Work(const Options& options, const std::vector<Shape>& shapes, Shared& shared, std::atomic<uint64_t>& seed) {
  for (uint64_t n = shared.next++; n < options.seeds && !shared.isOver; n = shared.next++) {
    seed = options.first + n;
    alarm(kLongestSeed);
    if (!RunSeed(seed, shapes, seed % options.JudgedEvery() == 0, shared.totals)) shared.isOver = true;
  }
}

int Main(const Options& options) {
  const auto shapes = MakeShapes();
  void* memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return 1;
  Shared& shared = *new (memory) Shared{};
  const auto start = std::chrono::steady_clock::now();
  std::map<pid_t, std::atomic<uint64_t>*> workers;
  for (size_t job = 0; job < options.jobs; ++job) {
    const pid_t worker = fork();
    if (worker < 0) return 1;
    if (worker == 0) {
      Work(options, shapes, shared, shared.seeds[job]);
      _exit(0);
    }
    workers[worker] = &shared.seeds[job];
  }
  int status = 0;
  for (pid_t worker = wait(&status); worker > 0; worker = wait(&status)) {
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) continue;
    std::printf("%s; again: soak --first %llu --seeds 1\n",
                WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM ? "hangs" : "crashed",
                static_cast<unsigned long long>(*workers[worker]));
    shared.isOver = true;
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const auto seeds = static_cast<unsigned long long>(std::min(shared.next.load(), options.seeds));
  const auto number = [](const std::atomic<uint64_t>& value) { return static_cast<unsigned long long>(value); };
  std::printf(
      "%s: %llu seeds in %.0f s, %.1f a second; %llu steps, %llu failed by faults; %llu volumes judged by strangers\n",
      shared.isOver ? "FAILED" : "clean", seeds, seconds, static_cast<double>(seeds) / seconds,
      number(shared.totals.steps), number(shared.totals.failures), number(shared.totals.judged));
  return shared.isOver ? 1 : 0;
}

}  // namespace
}  // namespace media_adapter::soak

int main(int count, char** arguments) {
  media_adapter::soak::Options options;
  CLI::App app("Random histories of a volume under everything that goes wrong around it.");
  app.add_option("--seeds", options.seeds, "how many to run");
  app.add_option("--first", options.first, "the first one");
  app.add_option("--jobs", options.jobs, "processes")->check(CLI::Range(size_t{1}, media_adapter::soak::kMaxJobs));
  CLI11_PARSE(app, count, arguments);
  return media_adapter::soak::Main(options);
}
