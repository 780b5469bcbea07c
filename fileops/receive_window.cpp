#include "fileops/receive_window.h"

#include <algorithm>

#include "protocol/wire.h"

namespace media_adapter {

int32_t ReceiveWindow::Distance(uint16_t number) const {
  return static_cast<int32_t>(number) - static_cast<int32_t>(acked_ & 0xFFFF);
}

ReceiveWindow::Place ReceiveWindow::PlaceOf(uint16_t number) const {
  const int32_t distance = Distance(number);
  if (distance < 1 - kGroup || distance > kLookAhead) return {};
  // Number 0, which only a confused device sends, has the place of the first.
  const uint32_t i = number < firstNumber_ ? 0 : static_cast<uint32_t>(number - firstNumber_);
  const uint32_t inBlock = i % wire::kPacketsPerBlock * wire::kPacketSize;
  const uint32_t offset = i / wire::kPacketsPerBlock * wire::kBlockSize + inBlock;
  if (offset >= size_) return {true, offset, 0};
  return {true, offset, std::min({wire::kPacketSize, wire::kBlockSize - inBlock, size_ - offset})};
}

void ReceiveWindow::Send(int32_t ahead, const char* label) {
  toSend_[toSendCount_++] = {.number = static_cast<uint16_t>(static_cast<int64_t>(acked_) + ahead), .label = label};
}

void ReceiveWindow::AskAgain(const char* label) {
  Send(kGroup, label);
  Acknowledgement& request = toSend_[toSendCount_ - 1];
  for (int k = 1; k <= kGroup; ++k) {
    if (!received_[static_cast<size_t>(k)]) {
      request.missing[request.missingCount++] = static_cast<uint16_t>(acked_ + static_cast<uint32_t>(k));
    }
  }
  askedAgain_ = true;
}

void ReceiveWindow::FinishGroup() {
  Send(kGroup, "print_file4");
  acked_ += kGroup;
  std::copy_n(received_.begin() + 1 + kGroup, kGroup, received_.begin() + 1);
  std::fill_n(received_.begin() + 1 + kGroup, kGroup, false);
  askedAgain_ = false;
}

std::span<const Acknowledgement> ReceiveWindow::Accept(uint16_t number, uint32_t written) {
  toSendCount_ = 0;
  const int32_t distance = Distance(number);
  if (distance == 0 || distance == -kGroup) {
    Send(distance, "print_file1");
  } else if (distance >= 1 && distance <= kLookAhead) {
    bool& isReceived = received_[static_cast<size_t>(distance)];
    if (!isReceived) total_ += written;
    isReceived = true;
    if (IsComplete()) {
      Send(kGroup, "print_file2");
      if (received_[kGroup + 1]) Send(kLookAhead, "print_file3");
    } else if (received_[1] && received_[2] && received_[3]) {
      FinishGroup();
    } else if (distance == kGroup) {
      AskAgain("print_file5");
    } else if (distance > kGroup && !askedAgain_) {
      AskAgain("print_file6");
    }
  }
  return std::span(toSend_).first(toSendCount_);
}

}  // namespace media_adapter
