#include "worker/worker_thread.h"

#include <memory>

#include "api/request_gate.h"
#include "api/request_record.h"
#include "platform/adapters.h"
#include "platform/load_hook.h"
#include "platform/notices.h"
#include "protocol/channel.h"
#include "protocol/exchange.h"
#include "protocol/packet.h"
#include "worker/device_socket_setup.h"
#include "worker/handlers.h"

namespace media_adapter {
namespace {

using platform::Message;
using platform::MessageQueue;

void RunPostedRequest(const std::shared_ptr<void>& posted) {
  RequestRecord& record = *std::static_pointer_cast<RequestRecord>(posted);
  if (!BeginRequest(record)) return;
  HandleRequest(record);
  CompleteRequest(record);
}

// What the first request needs. A box has said why when it fails.
bool OpenSocket(Channel& channel) {
  ResetPackets(platform::FirstAdapterAddress());
  if (platform::StartSockets()) return CreateDeviceSocket(channel.deviceSocket, nullptr, true) == MEDIA_ADAPTER_OK;
  platform::ShowError("Windows sockets initialization failed.");
  return false;
}

}  // namespace

void PostRequest(std::shared_ptr<RequestRecord> record) {
  if (HasChannel()) WorkerChannel().queue.PostRequest(std::move(record));
}

void WorkerMain() {
  Channel& channel = WorkerChannel();
  const bool hasSocket = OpenSocket(channel);
  platform::AllowUnloading([] { return WorkerChannel().queue.IsQuitting(); });
  if (!hasSocket) return channel.deviceSocket.Close();
  channel.queue.Watch(&channel.deviceSocket);
  SetWorkerReady(true);
  for (;;) {
    Message message;  // a record lives no longer than its request
    if (channel.queue.Take(message, MessageQueue::Accept::Everything) != MessageQueue::Taken::Message) break;
    if (message.kind == Message::Kind::Request) {
      RunPostedRequest(message.request);
    } else {
      HandleMessage(message);
    }
  }
  channel.deviceSocket.Close();
}

}  // namespace media_adapter
