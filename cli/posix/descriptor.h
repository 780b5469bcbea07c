// A descriptor of the system that has an owner.
#pragma once

#include <unistd.h>

#include <utility>

namespace media_adapter::cli {

// Closes a descriptor when it goes.
class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number_(number) {}
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int Get() const { return number_; }
  bool IsOpen() const { return number_ >= 0; }

 private:
  int number_;
};

}  // namespace media_adapter::cli
