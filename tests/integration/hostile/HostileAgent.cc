#include "HostileAgent.h"

#include <cstring>

namespace oxa::test {

namespace {

constexpr char kPortName[] = "OxaAgentInterface";
// A delegate travels last in its request: int32 id, int32 sequence number, bool once.
constexpr size_t kDelegateSize = 9;

// Methods whose request ends with a delegate.
bool carriesDelegate(int method) {
  switch (method) {
    case 2:   // RegisterService
    case 5:   // RegisterServiceStateChangedEvent
    case 7:   // SendCommand
    case 8:   // RegisterCommandReceivedEvent
    case 10:  // RegisterDeviceFoundEvent
    case 12:  // RegisterDeviceLostEvent
    case 14:  // RegisterContextChangedEvent
      return true;
    default:
      return false;
  }
}

int32_t int32At(const Body &body, size_t offset) {
  int32_t value = 0;
  std::memcpy(&value, body.data() + offset, sizeof value);
  return value;
}

Body readBody(rpc_port_parcel_h parcel) {
  Body body;
  char byte = 0;
  while (rpc_port_parcel_read_byte(parcel, &byte) == 0) {
    body.push_back(static_cast<uint8_t>(byte));
  }
  return body;
}

}  // namespace

HostileAgent::HostileAgent(Script script) : script_(std::move(script)) {
  listenResult_ = rpc_port_stub_create(&stub_, kPortName);
  if (listenResult_ == 0) {
    rpc_port_stub_add_connected_event_cb(stub_, OnConnected, this);
    rpc_port_stub_add_received_event_cb(stub_, OnReceived, this);
    listenResult_ = rpc_port_stub_listen(stub_);
  }
}

HostileAgent::~HostileAgent() {
  if (stub_ != nullptr) {
    rpc_port_stub_destroy(stub_);
  }
}

int HostileAgent::seqOf(int delegateId) const {
  const std::vector<int> seqs = seqsOf(delegateId);
  return seqs.empty() ? -1 : seqs.back();
}

std::vector<int> HostileAgent::seqsOf(int delegateId) const {
  const auto found = delegateSeqs_.find(delegateId);
  return found == delegateSeqs_.end() ? std::vector<int>{} : found->second;
}

HostileAgent::Answer HostileAgent::defaultAnswer(const Request &request) {
  switch (request.method) {
    case kRegisterService:
      return {};
    case kGetFoundDeviceList:
      return {{Wire::reply().int32(0).int32(0).body()}, {}};
    case kGetAdvRawData:
      return {{Wire::reply().int32(0).int32(0).body()}, {}};
    default:
      return {{Wire::reply().int32(0).body()}, {}};
  }
}

void HostileAgent::OnConnected(const char * /*sender*/, const char * /*instance*/, void *data) {
  ++static_cast<HostileAgent *>(data)->connections_;
}

int HostileAgent::OnReceived(const char * /*sender*/, const char *instance, rpc_port_h port,
                             void *data) {
  return static_cast<HostileAgent *>(data)->answer(instance, port);
}

int HostileAgent::answer(const char *instance, rpc_port_h port) {
  rpc_port_parcel_h parcel = nullptr;
  if (rpc_port_parcel_create_from_port(&parcel, port) != 0) {
    return -1;
  }
  const Body body = readBody(parcel);
  rpc_port_parcel_destroy(parcel);
  if (body.size() < sizeof(int32_t)) {
    return -1;
  }
  Request request;
  request.method = int32At(body, 0);
  request.number = ++requestsSeen_[request.method];
  if (carriesDelegate(request.method) && body.size() >= sizeof(int32_t) + kDelegateSize) {
    const size_t at = body.size() - kDelegateSize;
    delegateSeqs_[int32At(body, at)].push_back(int32At(body, at + sizeof(int32_t)));
  }
  const Answer answer = script_(*this, request);
  send(answer.replies, port);
  rpc_port_h callbackPort = nullptr;
  if (!answer.events.empty() &&
      rpc_port_stub_get_port(stub_, RPC_PORT_PORT_CALLBACK, instance, &callbackPort) == 0) {
    send(answer.events, callbackPort);
  }
  return 0;
}

void HostileAgent::send(const std::vector<Body> &bodies, rpc_port_h port) {
  for (const Body &body : bodies) {
    rpc_port_parcel_h parcel = parcelOf(body);
    rpc_port_parcel_send(parcel, port);
    rpc_port_parcel_destroy(parcel);
  }
}

}  // namespace oxa::test
