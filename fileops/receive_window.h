// The receive window of a streamed file: which packets have arrived, and what to acknowledge or ask for again. Packets
// come in groups of three; the window looks ahead over the current group and the next. No I/O: the file read acts on
// its decisions.
//
// What a packet does, by its distance from the last packet of the last acknowledged group (rel = number - acked):
//
//   rel        action
//   0, -3      the end of an acknowledged group again: acknowledge it again
//   1 to 3     of the current group; when all three are there, acknowledge the group and move on;
//              on the third while one is missing, ask again for the missing ones
//   4 to 6     of the next group; if the current one was not asked for again yet, ask again for what it misses
//   -2, -1     its bytes are written again, nothing is sent
//   other      ignored
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace media_adapter {

// A TransferAcknowledgement to send.
struct Acknowledgement {
  uint16_t number = 0;
  std::array<uint16_t, 3> missing{};  // ascending
  uint8_t missingCount = 0;           // 0: a plain acknowledgement
  const char* label = "";             // for the trace of a failed send

  std::span<const uint16_t> Missing() const { return std::span(missing).first(missingCount); }
};

class ReceiveWindow {
 public:
  // For `size` bytes (at least 1), whose first packet is numbered `firstNumber`.
  ReceiveWindow(uint16_t firstNumber, uint32_t size)
      : firstNumber_(firstNumber), acked_(firstNumber - 1U), size_(size) {}

  // Where a packet's bytes go.
  struct Place {
    bool isInWindow = false;
    uint32_t offset = 0;  // in the file
    uint32_t room = 0;    // bytes that may be written there
  };
  Place PlaceOf(uint16_t number) const;

  // Takes note of packet `number`, for which `written` bytes were written. Returns what to send, in order: at most two.
  std::span<const Acknowledgement> Accept(uint16_t number, uint32_t written);

  // Bytes written for packets, each counted at its first arrival; the file is whole when they are `size`.
  uint32_t Total() const { return total_; }
  bool IsComplete() const { return total_ >= size_; }

 private:
  static constexpr int kGroup = 3;
  static constexpr int kLookAhead = 2 * kGroup;

  int32_t Distance(uint16_t number) const;
  void Send(int32_t ahead, const char* label);
  void AskAgain(const char* label);
  void FinishGroup();

  uint16_t firstNumber_;
  uint32_t acked_;  // number of the last packet of the last acknowledged group
  uint32_t size_;
  uint32_t total_ = 0;
  std::array<bool, kLookAhead + 1> received_{};  // by distance, 1 to 6
  bool askedAgain_ = false;

  std::array<Acknowledgement, 2> toSend_{};
  size_t toSendCount_ = 0;
};

}  // namespace media_adapter
