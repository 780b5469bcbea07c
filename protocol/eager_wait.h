// Whether the worker looks for the datagram that it awaits for a while before it sleeps.
//
// A quick device has answered before a sleeping thread is awake again: waking it, on another processor most of all,
// takes many times what the answer takes. So the worker looks first, for kLongest at most, and only while that pays:
// each look in vain doubles the number of waits that go straight to sleep, up to kMostSkipped, and the first look that
// pays ends that. A look pays that finds its datagram, the last looks having been clearly quicker than the last sleeps:
// on one processor the device only runs when the worker lets it. So a device that is slow, or that shares the
// processor, costs one look in a thousand waits, and one that becomes quick is noticed within a few thousand.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>

namespace media_adapter {

class EagerWait {
 public:
  using Duration = std::chrono::nanoseconds;
  static constexpr Duration kLongest = std::chrono::microseconds(50);

  enum class Way : uint8_t { Sleep, SleepMeasured, Look };

  // How to wait this time. Of the waits in a row that sleep, the last is measured: the next look is to be quicker.
  Way Next() {
    if (toSkip_ == 0) return Way::Look;
    return --toSkip_ == 0 ? Way::SleepMeasured : Way::Sleep;
  }

  // What a look or a measured sleep came to. `hasCome`: the look found its datagram.
  void Learn(Way way, bool hasCome, Duration duration) {
    Duration& average = way == Way::Look ? looked_ : slept_;
    average += (std::min(duration, kLongestKnown) - average) / 4;
    if (way != Way::Look) return;
    const bool pays = hasCome && (slept_ == Duration::zero() || looked_ < slept_ / 4 * 3);
    skipped_ = pays ? 0 : std::clamp(2 * skipped_, 1U, kMostSkipped);
    toSkip_ = skipped_;
  }

 private:
  static constexpr uint32_t kMostSkipped = 1024;
  static constexpr Duration kLongestKnown = 2 * kLongest;

  uint32_t skipped_ = 0;  // after the last look
  uint32_t toSkip_ = 0;
  Duration looked_{}, slept_{};  // the last waits with a look and without: averages; zero before the first
};

}  // namespace media_adapter
