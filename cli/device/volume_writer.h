// Every change of a device's volume goes through here. The library rolls nothing back, and a failed request may leave
// an entry whose space counts as free, which the next file would share. So a file is replaced by deleting the old one
// first; what a failed request may have left is deleted before anything else is written; and where that cannot be done
// nothing more is written to that device, and the message says what to do. What a run leaves behind that is killed, the
// next one knows of by a note. A signal lets the running request end.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "cli/console/output.h"
#include "cli/device/device_lock.h"
#include "cli/device/session.h"
#include "cli/device/unfinished.h"

namespace media_adapter::cli {

class VolumeWriter {
 public:
  VolumeWriter(Session& session, const Output& output) : session_(session), output_(output) {}

  // Makes a device ready, as Session::Prepare, and waits until no other run of the tool works on its volume: for each
  // command that copies or changes something. An exit code; a failure has been printed.
  int Begin();
  // Lets other runs go on, unless a failed request has left something that they would run into.
  void End();
  bool doesWait = true;

  // True when the file was left by a request that failed, of this run or an earlier one, or lies in what was, and may
  // be no good.
  bool IsUnfinished(const std::string& path) const;
  // True when a file that is listed may be no more than that. Its bytes come whole or not at all.
  bool IsClearedInPart() const;
  // True when something is left that could not be deleted, so that nothing more is written.
  bool IsBlocked() const;

  // Copies the local file, of `size` bytes, into the folder; its own name has to be `name`.
  Answer Put(const std::string& localPath, uint64_t size, const std::string& folder, const std::string& name);
  Answer Remove(const std::string& path);
  Answer MakeFolder(const std::string& path);
  Answer Format();

 private:
  using Kind = Unfinished::Kind;

  std::string Mac() const;
  int TakeNote();
  void ForgetLeftover();
  Answer Note(const Unfinished& change);
  Answer Settle();
  void DeleteLeftover(const Unfinished& file, Answer& answer);
  std::string DescribeRest(const std::string& path, const Answer& answer);

  Session& session_;
  const Output& output_;
  std::map<std::string, Unfinished> leftovers_;  // by MAC
  std::map<std::string, DeviceLock> locks_;
};

// A device's volume for as long as a command works on it.
class VolumeTurn {
 public:
  explicit VolumeTurn(VolumeWriter& writer) : writer_(writer), code_(writer.Begin()) {}
  ~VolumeTurn() { writer_.End(); }
  VolumeTurn(const VolumeTurn&) = delete;
  VolumeTurn& operator=(const VolumeTurn&) = delete;

  int Code() const { return code_; }

 private:
  VolumeWriter& writer_;
  const int code_;
};

}  // namespace media_adapter::cli
