// What the agent, its clients and its workers say to each other: messages of one kind, a short text and descriptors,
// over local sockets that keep message boundaries. Both ends of a connection belong to this user, which each checks.
#pragma once

#include <sys/types.h>

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cli/posix/descriptor.h"

namespace media_adapter::cli {

enum class MessageKind : char {
  // A client's first; the text is its Identity().
  Run = 'R',        // with descriptors, see cli/posix/handed_run.h
  RunNow = 'N',     // the same, refused unless a worker is idle
  Status = 'T',     // answered by Status and a text
  Stop = 'S',       // answered by the end of the connection, when the agent has ended
  Interrupt = 'I',  // while the command runs: a signal, one byte
  // To a client.
  Refused = 'V',  // nothing was done
  Searching = 'F',
  Busy = 'B',
  Started = 'G',
  Ended = 'X',   // an exit code
  Killed = 'K',  // the number of a signal
  // From a worker: Ended, with the interface of its search behind the code where one is kept, and
  Ready = 'Y',  // after its search; its Identity()
};

struct Message {
  MessageKind kind;
  std::string text;
  std::vector<Descriptor> files;
};

bool Send(int socket, MessageKind kind, std::string_view text = {}, std::span<const int> files = {});
// None at the end of the connection, and when what came is no message.
std::optional<Message> Receive(int socket);

// What a client and the agent must have in common to work together: this very program and library, as files, and what a
// path or an address means to them. Told by a process of itself.
std::string Identity();

// The agent's socket, bound or connected to. Not open when there is none, and when it is not this user's.
Descriptor Connect();
Descriptor Listen();
Descriptor Accept(int listener);
void RemoveSocket();
// Held for as long as the agent lives; not open while another one holds it.
Descriptor TakeAgentLock();
// The process at the other end.
pid_t PeerProcess(int socket);

}  // namespace media_adapter::cli
