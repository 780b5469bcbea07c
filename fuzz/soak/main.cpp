// soak: random histories of everything that users do with a volume, under everything that goes wrong around it.
//
//   soak [--seeds N] [--first S] [--jobs J]
//
// Runs the seeds S to S + N - 1, J at once, and prints the rate; for a seed that fails, its steps, what broke and
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

struct Options {
  uint64_t seeds = 200, first = 1;
  size_t jobs = std::max<size_t>(std::thread::hardware_concurrency(), 1);
  // Strangers judge one history in so many.
  uint64_t JudgedEvery() const { return seeds < 10 ? 1 : std::max<uint64_t>(10, seeds / 100); }
};

// Each seed has a process of its own. None begins when one has failed.
int Main(const Options& options) {
  using Number = unsigned long long;
  const auto shapes = MakeShapes();
  void* memory = mmap(nullptr, sizeof(Totals), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return 1;
  Totals& totals = *new (memory) Totals{};
  const auto start = std::chrono::steady_clock::now();
  std::map<pid_t, uint64_t> running;  // seeds by their processes
  uint64_t begun = 0;
  bool isGood = true;
  for (;;) {
    if (isGood && begun < options.seeds && running.size() < options.jobs) {
      const uint64_t seed = options.first + begun++;
      const pid_t process = fork();
      if (process < 0) return 1;
      if (process == 0) {
        alarm(kLongestSeed);
        _exit(RunSeed(seed, shapes, seed % options.JudgedEvery() == 0, totals) ? 0 : 1);
      }
      running[process] = seed;
      continue;
    }
    int status = 0;
    const auto ended = running.find(wait(&status));
    if (ended == running.end()) break;
    isGood = isGood && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (WIFSIGNALED(status)) {
      std::printf("%s; again: soak --first %llu --seeds 1\n", WTERMSIG(status) == SIGALRM ? "hangs" : "crashed",
                  static_cast<Number>(ended->second));
    }
    running.erase(ended);
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::printf(
      "%s: %llu seeds in %.0f s, %.1f a second; %llu steps, %llu failed by faults; %llu volumes judged by strangers\n",
      isGood ? "clean" : "FAILED", static_cast<Number>(begun), seconds, static_cast<double>(begun) / seconds,
      static_cast<Number>(totals.steps), static_cast<Number>(totals.failures), static_cast<Number>(totals.judged));
  return isGood ? 0 : 1;
}

}  // namespace
}  // namespace media_adapter::soak

int main(int count, char** arguments) {
  media_adapter::soak::Options options;
  CLI::App app("Random histories of a volume under everything that goes wrong around it.");
  app.add_option("--seeds", options.seeds, "how many to run");
  app.add_option("--first", options.first, "the first one");
  app.add_option("--jobs", options.jobs, "processes at once")->check(CLI::PositiveNumber);
  CLI11_PARSE(app, count, arguments);
  return media_adapter::soak::Main(options);
}
