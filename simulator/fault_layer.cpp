#include "simulator/fault_layer.h"

#include <algorithm>
#include <utility>

namespace media_adapter::simulator {

bool FaultLayer::IsActive() const {
  return options_.loss > 0 || options_.duplicate > 0 || options_.reorder > 0 || options_.delay.count() > 0;
}

void FaultLayer::Enter(Travelling datagram, Time now) {
  // Every datagram takes the same number of draws, so that one rate does not shift the outcomes of another.
  const bool isLost = Happens(options_.loss);
  const bool isDoubled = Happens(options_.duplicate);
  const bool isReordered = Happens(options_.reorder);
  const bool isCopyReordered = Happens(options_.reorder);
  if (isLost) return;
  if (isDoubled) Pass(datagram, isCopyReordered, now);
  Pass(std::move(datagram), isReordered, now);
}

std::optional<Travelling> FaultLayer::Leave(Time now) {
  if (held_ && held_->due <= now) ReleaseHeld(held_->due);
  if (queue_.empty() || queue_.front().due > now) return std::nullopt;
  std::optional<Travelling> datagram(std::move(queue_.front().datagram));
  queue_.pop_front();
  return datagram;
}

std::optional<Time> FaultLayer::NextTime() const {
  if (queue_.empty()) return held_ ? std::optional(held_->due) : std::nullopt;
  return held_ ? std::min(held_->due, queue_.front().due) : queue_.front().due;
}

bool FaultLayer::Holds(size_t route) const {
  return (held_ && held_->datagram.route == route) ||
         std::ranges::any_of(queue_, [=](const Waiting& waiting) { return waiting.datagram.route == route; });
}

bool FaultLayer::Happens(double probability) {
  // 53 random bits as a fraction below 1; the standard distributions differ between libraries.
  return static_cast<double>(random_() >> 11) * 0x1p-53 < probability;
}

void FaultLayer::Pass(Travelling datagram, bool isReordered, Time now) {
  if (isReordered && !held_) {
    held_ = Waiting{now + kHoldTime, std::move(datagram)};
    return;
  }
  queue_.push_back({now + options_.delay, std::move(datagram)});
  ReleaseHeld(now);
}

void FaultLayer::ReleaseHeld(Time now) {
  if (!held_) return;
  queue_.push_back({now + options_.delay, std::move(held_->datagram)});
  held_.reset();
}

}  // namespace media_adapter::simulator
