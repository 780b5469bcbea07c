#include "cli/device/session.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <utility>

#include "cli/console/interrupts.h"
#include "cli/console/terminal.h"
#include "cli/console/text.h"
#include "cli/device/device_choice.h"
#include "cli/device/interfaces.h"
#include "protocol/element_table.h"

namespace media_adapter::cli {
namespace {

// The library gives up on a request after 60 seconds; a call that took less has really ended.
constexpr auto kLongCall = std::chrono::seconds(50);

constexpr int kPasswordAttempts = 3;

std::string MessageOf(const char (&field)[MEDIA_ADAPTER_MESSAGE_SIZE]) { return {field, strnlen(field, sizeof field)}; }

}  // namespace

// The library's own statuses up to that of no response are about a path or the volume.
bool IsOfDevice(const Answer& answer) {
  constexpr std::array<uint32_t, 8> kStatuses = {
      MEDIA_ADAPTER_INVALID_PASSWORD,        MEDIA_ADAPTER_NOT_READY,       MEDIA_ADAPTER_NOT_CONNECTED,
      MEDIA_ADAPTER_STORAGE_NOT_ACCESSIBLE,  MEDIA_ADAPTER_TERMINATING,     MEDIA_ADAPTER_NO_RESPONSE,
      MEDIA_ADAPTER_INVALID_PASSWORD_LENGTH, MEDIA_ADAPTER_DEVICE_NOT_FOUND};
  return answer.status && std::ranges::find(kStatuses, *answer.status) != kStatuses.end();
}

// Puts the interface's address in the place of its name. True when the search that is kept is for it.
bool Session::TakeKept() {
  std::string& address = options_.interfaceAddress;
  if (!address.empty()) {
    const std::vector<LocalInterface> interfaces = LocalInterfaces();
    const auto named = std::ranges::find(interfaces, address, &LocalInterface::name);
    if (named != interfaces.end()) address = named->address;
  }
  const bool isKept = search_.wanted == address;
  if (isKept) address = search_.bound;
  return isKept;
}

bool Session::OpenAsKept(SessionOptions options) {
  options_ = std::move(options);
  return TakeKept();
}

Answer Session::Open(SessionOptions options) {
  options_ = std::move(options);
  if (TakeKept()) return {MEDIA_ADAPTER_OK, {}};
  const std::string& address = options_.interfaceAddress;
  // A library that was just loaded is bound to no interface.
  const bool isBound = address.empty() && &search_ == &own_;
  const uint32_t status = isBound ? uint32_t{MEDIA_ADAPTER_OK} : API_SetIpInterface(address.c_str());
  search_ = {};
  switch (status) {
    case MEDIA_ADAPTER_OK:
      search_.wanted = search_.bound = address;
      return {status, {}};
    case MEDIA_ADAPTER_INVALID_INTERFACE_ADDRESS:
      return {status, "neither an IPv4 address nor an interface of this machine"};
    case MEDIA_ADAPTER_SOCKET_FAILED:
      return {status, "no interface of this machine has this address"};
    default:
      return {status, "the library does not answer"};
  }
}

void Session::SearchOnce() {
  output_.Fleeting("searching...");
  const SearchResult* const result = API_Search("");
  output_.Fleeting("");
  const uint32_t count = std::min<uint32_t>(result->deviceCount, MEDIA_ADAPTER_MAX_DEVICES);
  search_.devices.assign(result->devices, result->devices + count);
}

// Without a default route a broadcast has no way out, unless it starts from an interface's own address.
void Session::Search() {
  if (isOld_ && search_.wanted && search_.bound != *search_.wanted) {
    options_.interfaceAddress = search_.bound = *search_.wanted;
    API_SetIpInterface(search_.bound.c_str());
  }
  SearchOnce();
  search_.isDone = true;
  isOld_ = false;
  index_.reset();
  search_.tried = options_.interfaceAddress;
  if (!search_.devices.empty() || !options_.interfaceAddress.empty()) return;
  for (const LocalInterface& interface : LocalInterfaces()) {
    const std::string name = interface.name + " (" + interface.address + ")";
    if (IsInterrupted() || API_SetIpInterface(interface.address.c_str()) != MEDIA_ADAPTER_OK) continue;
    output_.Error("no device answered; searching by interface " + name);
    SearchOnce();
    search_.tried += (search_.tried.empty() ? "" : ", ") + name;
    if (search_.devices.empty()) continue;
    options_.interfaceAddress = search_.bound = interface.address;
    return;
  }
  API_SetIpInterface("");
}

std::string Session::DescribeSilence() const {
  return "no device answered" + (search_.tried.empty() ? "" : " by " + search_.tried) +
         ". Is the device switched on, and in this network? A firewall has to let UDP port 14001 out and the answers "
         "in; --interface names the way out";
}

void Session::ForgetSearch() {
  search_.isDone = false;
  index_.reset();
}

void Session::SelectDevice(std::string selector) {
  options_.devices = {std::move(selector)};
  options_.isAll = false;
  ForgetChoice();
  folder = kRootPath;
}

void Session::Choose(const DeviceEntry& device) {
  index_.reset();
  chosenMac_ = std::to_array(device.macAddress);
}

void Session::Choose(size_t index) {
  index_ = static_cast<uint32_t>(index);
  chosenMac_ = std::to_array(search_.devices[index].macAddress);
}

void Session::ForgetChoice() {
  index_.reset();
  chosenMac_.reset();
}

const DeviceEntry* Session::Device() const { return index_ ? &search_.devices[*index_] : nullptr; }

std::string Session::DescribeDevice() const {
  const DeviceEntry& device = search_.devices[*index_];
  return "\"" + DeviceName(device) + "\" (" + AddressText(device) + ", " + MacText(device) + ")";
}

int Session::ReportNoSingleDevice(const std::string& selector, std::span<const size_t> matches) const {
  const std::string wanted = "device " + Escape(selector);
  if (search_.devices.empty()) return output_.Failed("search", Problem(DescribeSilence()));
  if (matches.empty()) return output_.Failed(wanted, Problem("not found; see \"search\" for the devices that answer"));
  output_.Failed(selector.empty() ? "search" : wanted,
                 Problem(std::to_string(matches.size()) +
                         " devices answer to that; choose one by name, index, MAC or address with --device:"),
                 kUsage);
  for (const size_t i : matches) {
    output_.Error("  " + std::to_string(i) + "  " + DeviceName(search_.devices[i]) + "  " +
                  AddressText(search_.devices[i]) + "  " + MacText(search_.devices[i]));
  }
  return kUsage;
}

int Session::FindSeveral(std::vector<DeviceEntry>& devices) {
  const auto isSingle = [&](const std::string& selector) {
    return MatchingDevices(search_.devices, selector).size() == 1;
  };
  const bool isMissing =
      search_.devices.empty() || (!options_.isAll && !std::ranges::all_of(options_.devices, isSingle));
  if (!search_.isDone || (isOld_ && isMissing)) Search();
  if (search_.devices.empty()) return output_.Failed("search", Problem(DescribeSilence()));
  if (options_.isAll) devices = search_.devices;
  int code = kSuccess;
  for (const std::string& selector : options_.isAll ? std::vector<std::string>() : options_.devices) {
    const std::vector<size_t> matches = MatchingDevices(search_.devices, selector);
    const auto isSame = [&](const DeviceEntry& d) { return IsMacOf(d, MacText(search_.devices[matches.front()])); };
    if (matches.size() != 1) {
      code = ReportNoSingleDevice(selector, matches);
    } else if (std::ranges::none_of(devices, isSame)) {
      devices.push_back(search_.devices[matches.front()]);
    }
  }
  return code;
}

// The devices of the search that may be meant.
std::vector<size_t> Session::Matches() const {
  const std::string selector = options_.devices.empty() ? std::string() : options_.devices.front();
  std::vector<size_t> matches = MatchingDevices(search_.devices, chosenMac_ ? "" : selector);
  if (chosenMac_) {
    std::erase_if(matches, [&](size_t i) { return !std::ranges::equal(search_.devices[i].macAddress, *chosenMac_); });
  }
  return matches;
}

int Session::Prepare() {
  if (index_) return kSuccess;
  if (HasSeveral() && !chosenMac_) {
    return output_.Failed("--device", Problem("this command works on one device; several are given"), kUsage);
  }
  if (options_.isPasswordAsked) {
    const std::optional<std::string> password = AskSecret("Password: ");
    if (!password) return output_.Failed("--ask-password", Problem("there is no terminal to ask at"), kUsage);
    options_.passwords.SetCommon(*password);
    options_.isPasswordAsked = false;
  }
  if (!search_.isDone || (isOld_ && Matches().size() != 1)) Search();
  const std::vector<size_t> matches = Matches();
  if (matches.size() != 1) {
    return ReportNoSingleDevice(options_.devices.empty() ? std::string() : options_.devices.front(), matches);
  }
  Choose(matches.front());
  return kSuccess;
}

bool Session::PrepareQuietly() {
  const std::vector<size_t> matches = Matches();
  if (!index_ && search_.isDone && (!HasSeveral() || chosenMac_) && matches.size() == 1) Choose(matches.front());
  return index_.has_value();
}

// A device that an old search found and that does not answer may have another address by now. True when it has one: at
// that address nothing was asked yet. A device that is gone stays chosen, for messages; the library knows it no more.
bool Session::FindAgain() {
  const DeviceEntry before = *Device();
  Search();
  if (const std::vector<size_t> matches = Matches(); matches.size() == 1) {
    Choose(matches.front());
    return AddressText(*Device()) != AddressText(before);
  }
  search_.devices.push_back(before);
  Choose(search_.devices.size() - 1);
  search_.isDone = false;
  return false;
}

// A device without a password is the usual case, so the empty one is tried first; a person is asked only when the
// device has refused.
bool Session::AskPasswordAgain(int attempt) {
  if (options_.isPasswordFixed || !IsInputTerminal() || attempt >= kPasswordAttempts) return false;
  output_.Fleeting("");
  const std::string name = DeviceName(*Device());
  const auto password = AskSecret((attempt > 0 ? "Wrong password. Password of " : "Password of ") + name + ": ");
  if (password) options_.passwords.Remember(*Device(), *password);
  return password.has_value();
}

// The library's calls give up after 60 seconds with 253 while the request goes on: its worker still writes the local
// file and the progress value, and in the end the true status into the record. The worker takes one request after
// another, so another request that changes nothing - binding to the interface that is bound already - ends only once
// the first one has, and its return makes all that the first one wrote visible here. It may itself give up, and is
// then withdrawn.
void Session::WaitForRunningRequest() const {
  while (API_SetIpInterface(options_.interfaceAddress.c_str()) == MEDIA_ADAPTER_NO_RESPONSE) {
  }
}

// Runs one request on the chosen device. call(password, index) returns the library's record; nothing of the record is
// read before the request has ended.
template <typename Call>
Answer Session::Run(const Call& call) {
  for (int attempt = 0;; ++attempt) {
    const auto start = std::chrono::steady_clock::now();
    const std::string password = options_.passwords.For(*Device());
    const auto* const record = call(password.c_str(), *index_);
    if (std::chrono::steady_clock::now() - start > kLongCall) WaitForRunningRequest();
    Answer answer = {record->status, MessageOf(record->message)};
    if (answer.status == MEDIA_ADAPTER_NO_RESPONSE) {
      const auto tried = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start);
      const std::string asked = DescribeDevice();
      if (isOld_ && FindAgain()) continue;
      answer.detail =
          "asked " + asked + " again and again for " + std::to_string(tried.count()) + " s; is it switched on?";
    }
    if (answer.status != MEDIA_ADAPTER_INVALID_PASSWORD || !AskPasswordAgain(attempt)) return answer;
  }
}

// The library takes the image over before it looks at the elements to send; a list longer than its field is one that it
// refuses without sending anything.
void Session::FillImage(uint8_t filler) {
  ConfigurationData image;
  std::memset(&image, filler, sizeof image);
  constexpr uint16_t kList = MEDIA_ADAPTER_ELEMENT(10, 0);
  SetConfiguration({&kList, 1}, image);
}

Answer Session::GetConfiguration(std::span<const uint16_t> elements, ConfigurationData& image) {
  const ConfigurationResult* result = nullptr;
  Answer answer = Run([&](const char* password, uint32_t index) {
    return result = API_GetConfiguration(elements.data(), static_cast<uint32_t>(elements.size()), options_.tag,
                                         password, index);
  });
  image = result->configuration;
  return answer;
}

Answer Session::SetConfiguration(std::span<const uint16_t> elements, const ConfigurationData& image) {
  Answer answer = Run([&](const char* password, uint32_t index) {
    return API_SetConfiguration(elements.data(), static_cast<uint32_t>(elements.size()), &image, options_.tag, password,
                                index);
  });
  const auto isFound = [](uint16_t id) {
    const ElementRow* const row = FindElement(static_cast<uint8_t>(id >> 8), static_cast<uint8_t>(id));
    return row != nullptr && row->entryOffset != kNoOffset;
  };
  // What a search finds is another by now: for the next session.
  if (answer.IsOk() && std::ranges::any_of(elements, isFound)) search_.wanted.reset();
  return answer;
}

Answer Session::SetIpConfiguration(const IpConfiguration& configuration) {
  return Run([&](const char* password, uint32_t index) {
    return API_SetIPConfiguration(&configuration, options_.tag, password, index);
  });
}

Answer Session::SetTest(const TestParameters& parameters, const TestData*& counters) {
  const TestResult* result = nullptr;
  Answer answer = Run([&](const char* password, uint32_t index) {
    return result = API_SetTest(&parameters, options_.tag, password, index);
  });
  counters = result->testData;
  return answer;
}

Answer Session::Connect() {
  return Run([&](const char* password, uint32_t index) { return API_RFAConnect(options_.tag, password, index); });
}

Answer Session::Disconnect() {
  return Run([&](const char* password, uint32_t index) { return API_RFADisconnect(options_.tag, password, index); });
}

Listing Session::List(const std::string& path) {
  Listing listing;
  const ReadDataResult* result = nullptr;
  // A folder needs no local folder; a file does, and is not read without one.
  listing.answer = Run([&](const char* password, uint32_t index) {
    return result = API_RFAReadData(path.c_str(), nullptr, options_.tag, password, index);
  });
  listing.isFile = listing.answer.status == MEDIA_ADAPTER_INVALID_PATH_LENGTH && path.size() <= MEDIA_ADAPTER_MAX_PATH;
  if (listing.answer.IsOk()) {
    const uint32_t count = std::min<uint32_t>(result->entryCount, MEDIA_ADAPTER_MAX_LISTING);
    listing.entries.assign(result->entries, result->entries + count);
  }
  return listing;
}

Listing Session::ListQuietly(const std::string& path) {
  const bool isFixed = std::exchange(options_.isPasswordFixed, true);
  Listing listing = List(path);
  options_.isPasswordFixed = isFixed;
  return listing;
}

Answer Session::ReadFile(const std::string& path, const std::string& localFolder) {
  return Run([&](const char* password, uint32_t index) {
    // The library removes one separator: this one, and not the end of a folder named "tapes\".
    std::string target = localFolder + static_cast<char>(std::filesystem::path::preferred_separator);
    return API_RFAReadDataExt(path.c_str(), target.data(), options_.tag, password, index, &progress_);
  });
}

Answer Session::WriteFile(const std::string& localPath, const std::string& folderPath) {
  return Run([&](const char* password, uint32_t index) {
    std::string target = folderPath;
    return API_RFAWriteData(localPath.c_str(), target.data(), options_.tag, password, index);
  });
}

Answer Session::Remove(const std::string& path) {
  return Run(
      [&](const char* password, uint32_t index) { return API_RFADelete(path.c_str(), options_.tag, password, index); });
}

Answer Session::MakeFolder(const std::string& path) {
  return Run([&](const char* password, uint32_t index) {
    return API_RFACreateDirectory(path.c_str(), options_.tag, password, index);
  });
}

Answer Session::Format() {
  return Run([&](const char* password, uint32_t index) { return API_RFAFormat(options_.tag, password, index); });
}

}  // namespace media_adapter::cli
