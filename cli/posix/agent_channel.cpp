#include "cli/posix/agent_channel.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "api/media_adapter.h"
#include "cli/posix/runtime_folder.h"

namespace media_adapter::cli {
namespace {

constexpr size_t kMaxText = 1024;
constexpr size_t kMaxFiles = 8;

union AncillaryData {
  cmsghdr header;
  std::array<char, CMSG_SPACE(sizeof(int) * kMaxFiles)> bytes;
};

std::string FileIdentity(const char* path) {
  struct stat status {};
  if (stat(path, &status) != 0) return "?";
  return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino) + ":" +
         std::to_string(status.st_mtim.tv_sec) + "." + std::to_string(status.st_mtim.tv_nsec);
}

std::string LinkText(const char* path) {
  std::array<char, 64> text = {};
  const ssize_t length = readlink(path, text.data(), text.size());
  return {text.data(), static_cast<size_t>(std::max<ssize_t>(length, 0))};
}

// False when the folder is none to trust or the path too long for an address.
bool SocketAddress(sockaddr_un& address) {
  const std::string folder = RuntimeFolder();
  const std::string path = folder + "/agent.socket";
  address = {.sun_family = AF_UNIX, .sun_path = {}};
  if (folder.empty() || path.size() >= sizeof address.sun_path) return false;
  path.copy(address.sun_path, path.size());
  return true;
}

Descriptor MakeSocket() { return Descriptor(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)); }

ucred Peer(int socket) {
  ucred peer = {.pid = 0, .uid = static_cast<uid_t>(-1), .gid = 0};
  socklen_t size = sizeof peer;
  getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size);
  return peer;
}

}  // namespace

bool Send(int socket, MessageKind kind, std::string_view text, std::span<const int> files) {
  if (text.size() > kMaxText || files.size() > kMaxFiles) return false;
  std::string bytes(1, static_cast<char>(kind));
  bytes += text;
  iovec part = {bytes.data(), bytes.size()};
  AncillaryData ancillary{};
  msghdr message = {};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  if (!files.empty()) {
    message.msg_control = ancillary.bytes.data();
    message.msg_controllen = CMSG_SPACE(files.size_bytes());
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    *header = {.cmsg_len = CMSG_LEN(files.size_bytes()), .cmsg_level = SOL_SOCKET, .cmsg_type = SCM_RIGHTS};
    std::memcpy(CMSG_DATA(header), files.data(), files.size_bytes());
  }
  ssize_t sent = -1;
  do sent = sendmsg(socket, &message, MSG_NOSIGNAL);
  while (sent < 0 && errno == EINTR);
  return sent >= 0;
}

std::optional<Message> Receive(int socket) {
  std::array<char, kMaxText + 1> bytes = {};
  iovec part = {bytes.data(), bytes.size()};
  AncillaryData ancillary{};
  msghdr message = {};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = ancillary.bytes.data();
  message.msg_controllen = ancillary.bytes.size();
  ssize_t length = -1;
  do length = recvmsg(socket, &message, MSG_CMSG_CLOEXEC);
  while (length < 0 && errno == EINTR);
  std::vector<Descriptor> files;
  for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr; header = CMSG_NXTHDR(&message, header)) {
    if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) continue;
    for (size_t i = 0; i < (header->cmsg_len - CMSG_LEN(0)) / sizeof(int); ++i) {
      int number = -1;
      std::memcpy(&number, CMSG_DATA(header) + i * sizeof number, sizeof number);
      files.emplace_back(number);
    }
  }
  if (length <= 0 || (message.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) != 0) return std::nullopt;
  return Message{
      static_cast<MessageKind>(bytes[0]), {bytes.data() + 1, static_cast<size_t>(length) - 1}, std::move(files)};
}

std::string Identity() {
  Dl_info library = {};
  dladdr(reinterpret_cast<const void*>(&API_Search), &library);
  return "media-adapter " MEDIA_ADAPTER_TOOL_VERSION " " + FileIdentity("/proc/self/exe") + " " +
         FileIdentity(library.dli_fname != nullptr ? library.dli_fname : "") + " " + FileIdentity("/") + " " +
         LinkText("/proc/self/ns/net") + " " + LinkText("/proc/self/ns/mnt");
}

Descriptor Connect() {
  sockaddr_un address{};
  if (!SocketAddress(address)) return Descriptor();
  Descriptor socket = MakeSocket();
  if (connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return Descriptor();
  return Peer(socket.Get()).uid == getuid() ? std::move(socket) : Descriptor();
}

Descriptor Listen() {
  sockaddr_un address{};
  if (!SocketAddress(address)) return Descriptor();
  unlink(address.sun_path);  // left by one that was killed: the lock is ours
  Descriptor socket = MakeSocket();
  if (bind(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return Descriptor();
  return listen(socket.Get(), SOMAXCONN) == 0 ? std::move(socket) : Descriptor();
}

Descriptor Accept(int listener) {
  Descriptor socket(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
  return socket.IsOpen() && Peer(socket.Get()).uid == getuid() ? std::move(socket) : Descriptor();
}

void RemoveSocket() {
  sockaddr_un address{};
  if (SocketAddress(address)) unlink(address.sun_path);
}

Descriptor TakeAgentLock() {
  const std::string folder = RuntimeFolder();
  if (folder.empty()) return Descriptor();
  Descriptor file(open((folder + "/agent.lock").c_str(), O_RDONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  return file.IsOpen() && flock(file.Get(), LOCK_EX | LOCK_NB) == 0 ? std::move(file) : Descriptor();
}

pid_t PeerProcess(int socket) { return Peer(socket).pid; }

}  // namespace media_adapter::cli
