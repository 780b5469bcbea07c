// One run of the tool with the library: the interface, one search, the device chosen from it, its password and the
// current folder. Commands reach the library through here only. Every method that returns an Answer needs a chosen
// device (Prepare), blocks until the request has ended, and copies what the library returns.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "api/media_adapter.h"
#include "cli/console/output.h"
#include "cli/device/device_path.h"
#include "cli/device/passwords.h"

namespace media_adapter::cli {

// The global options.
struct SessionOptions {
  std::string interfaceAddress;      // or the name of an interface; empty: any
  std::vector<std::string> devices;  // names, indices, hardware or IPv4 addresses; none: the only one
  bool isAll = false;                // all that answer
  Passwords passwords;
  bool isPasswordFixed = false;  // --password-file or --no-password: never ask
  bool isPasswordAsked = false;  // --ask-password: ask before the first request
  uint32_t tag = 0;
};

// The interface that the library is bound to and what it found there, for as long as the process lives: the library's
// device indices mean its last search.
struct KeptSearch {
  std::optional<std::string> wanted;  // the interface's address as it was asked for; none: not bound yet
  std::string bound;                  // the address in use: one that the search itself has chosen may differ
  std::string tried;                  // the interfaces of the search
  bool isDone = false;
  std::vector<DeviceEntry> devices;
};

struct Listing {
  Answer answer;
  bool isFile = false;  // the path names a file; `answer` is then not ok
  std::vector<ListingEntry> entries;
};

// True for a failure that lies with the device or the way to it: what else is asked of it would fail as well, perhaps
// after a long wait.
bool IsOfDevice(const Answer& answer);

class Session {
 public:
  // kept: the search of a process that runs several commands one after another, which this one starts from. One that
  // no longer holds - the device is not in it, or does not answer - is done anew, once.
  explicit Session(const Output& output, KeptSearch* kept = nullptr)
      : output_(output), isOld_(kept != nullptr), search_(kept != nullptr ? *kept : own_) {}
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Takes the options and binds the library to the interface. Before anything else.
  Answer Open(SessionOptions options);

  // The same only if the search that is kept is the one that is meant: nothing is sent or bound.
  bool OpenAsKept(SessionOptions options);
  // The address that was asked for; "" for any.
  const std::string& Interface() const { return options_.interfaceAddress; }

  // Searches for devices, which takes six seconds, and keeps the result. When nothing answers and no interface was
  // named, each of the machine's own is tried.
  void Search();
  // What to say when nothing answered.
  std::string DescribeSilence() const;
  const std::vector<DeviceEntry>& Devices() const { return search_.devices; }
  // The search's result no longer holds: the next request searches again and finds the chosen device by its hardware
  // address.
  void ForgetSearch();

  // Means another device from now on.
  void SelectDevice(std::string selector);
  // Several devices are meant. Choose makes one of them the device to work on.
  bool HasSeveral() const { return options_.isAll || options_.devices.size() > 1; }
  // Searches as needed. An exit code: a failure, which has been printed, when one of them did not answer.
  int FindSeveral(std::vector<DeviceEntry>& devices);
  void Choose(const DeviceEntry& device);
  void ForgetChoice();
  // Makes a device ready for requests: searches and asks for the password as needed. An exit code; a failure has been
  // printed.
  int Prepare();
  // The same by what is known already: it neither searches nor asks nor prints. False when that is not enough.
  bool PrepareQuietly();
  // The chosen device, null before Prepare.
  const DeviceEntry* Device() const;
  // Its name with its addresses, for questions and messages.
  std::string DescribeDevice() const;

  // The absolute path for bytes of the volume (TypedPath) that are taken from the current folder.
  std::string Resolve(std::string_view bytes) const { return ResolveDevicePath(folder, bytes); }
  std::string folder{kRootPath};

  // Fills the library's image of the settings with one byte. Sends nothing.
  void FillImage(uint8_t filler);
  Answer GetConfiguration(std::span<const uint16_t> elements, ConfigurationData& image);
  Answer SetConfiguration(std::span<const uint16_t> elements, const ConfigurationData& image);
  Answer SetIpConfiguration(const IpConfiguration& configuration);
  // counters: the library's own, which go on counting.
  Answer SetTest(const TestParameters& parameters, const TestData*& counters);
  Answer Connect();
  Answer Disconnect();
  Listing List(const std::string& path);
  // The same without a question: a device that refuses the password known gives nothing.
  Listing ListQuietly(const std::string& path);
  // The file arrives in localFolder under the path's last component. Progress() goes from 0 to 100 meanwhile.
  Answer ReadFile(const std::string& path, const std::string& localFolder);
  uint32_t* Progress() { return &progress_; }
  Answer WriteFile(const std::string& localPath, const std::string& folderPath);
  Answer Remove(const std::string& path);
  Answer MakeFolder(const std::string& path);
  Answer Format();

 private:
  template <typename Call>
  Answer Run(const Call& call);
  bool TakeKept();
  void WaitForRunningRequest() const;
  bool AskPasswordAgain(int attempt);
  std::vector<size_t> Matches() const;
  void Choose(size_t index);
  bool FindAgain();
  int ReportNoSingleDevice(const std::string& selector, std::span<const size_t> matches) const;
  void SearchOnce();

  SessionOptions options_;
  const Output& output_;
  bool isOld_;  // the search was done before this session
  KeptSearch own_;
  KeptSearch& search_;
  std::optional<uint32_t> index_;                    // of the chosen device in the search
  std::optional<std::array<uint8_t, 6>> chosenMac_;  // kept from the first choice on
  alignas(uint32_t) uint32_t progress_ = 0;
};

}  // namespace media_adapter::cli
