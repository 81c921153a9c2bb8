#include "StubServer.h"

#include "ParcelIo.h"

namespace oxa_sim {

namespace {

constexpr char kPortName[] = "OxaAgentInterface";

// A non-zero result from the received callback makes the stub close that client's connection.
constexpr int kDropConnection = -1;

}  // namespace

StubServer::StubServer(Agent &agent, const Options &options, const Trace &trace)
    : agent_(agent), options_(options), trace_(trace) {}

StubServer::~StubServer() {
  for (guint source : delayedSources_) {
    g_source_remove(source);
  }
  if (stub_ != nullptr) {
    rpc_port_stub_destroy(stub_);
  }
}

int StubServer::listen() {
  int result = rpc_port_stub_create(&stub_, kPortName);
  if (result != RPC_PORT_ERROR_NONE) {
    return result;
  }
  if (!options_.privilege.empty()) {
    result = rpc_port_stub_add_privilege(stub_, options_.privilege.c_str());
  }
  if (result == RPC_PORT_ERROR_NONE) {
    rpc_port_stub_add_connected_event_cb(stub_, &StubServer::onConnected, this);
    rpc_port_stub_add_disconnected_event_cb(stub_, &StubServer::onDisconnected, this);
    rpc_port_stub_add_received_event_cb(stub_, &StubServer::onReceived, this);
    result = rpc_port_stub_listen(stub_);
  }
  return result;
}

void StubServer::deliver(const std::vector<Outgoing> &events) {
  for (const Outgoing &outgoing : events) {
    rpc_port_h port = portOf(RPC_PORT_PORT_CALLBACK, outgoing.instance);
    if (port != nullptr) {
      trace_.sent(outgoing.instance, outgoing.event);
      sendParcel(writeEvent(outgoing.event), port);
    }
  }
}

void StubServer::onConnected(const char *sender, const char *instance, void *data) {
  auto *server = static_cast<StubServer *>(data);
  std::vector<Outgoing> events = server->agent_.connect(sender, instance);
  server->trace_.note(instance, "connected");
  server->deliver(events);
}

void StubServer::onDisconnected(const char * /*sender*/, const char *instance, void *data) {
  auto *server = static_cast<StubServer *>(data);
  server->trace_.note(instance, "disconnected");
  server->requestCounts_.erase(instance);
  server->deliver(server->agent_.disconnect(instance));
}

int StubServer::onReceived(const char * /*sender*/, const char *instance, rpc_port_h port,
                           void *data) {
  return static_cast<StubServer *>(data)->receive(instance, port);
}

int StubServer::receive(const std::string &instance, rpc_port_h port) {
  const Parcel parcel = receiveParcel(port);
  const std::optional<Request> request = parcel ? readRequest(parcel.get()) : std::nullopt;
  if (!request) {
    trace_.note(instance, "unreadable request, closing the connection");
    deliver(agent_.disconnect(instance));
    return kDropConnection;
  }
  trace_.received(instance, *request);
  if (options_.delayMs > 0) {
    delay(instance, *request);
  } else {
    answer(instance, *request);
  }
  if (options_.dropAfter > 0 && ++requestCounts_[instance] >= options_.dropAfter) {
    trace_.note(instance, "request limit reached, closing the connection");
    deliver(agent_.disconnect(instance));
    return kDropConnection;
  }
  return RPC_PORT_ERROR_NONE;
}

void StubServer::answer(const std::string &instance, const Request &request) {
  const Outcome outcome = agent_.handle(instance, request);
  if (outcome.reply) {
    rpc_port_h port = portOf(RPC_PORT_PORT_MAIN, instance);
    if (port != nullptr) {
      trace_.replied(instance, *outcome.reply);
      sendParcel(writeReply(*outcome.reply), port);
    }
  }
  deliver(outcome.events);
}

// Timers of equal length fire in the order they were armed, so delayed replies keep their order.
void StubServer::delay(const std::string &instance, const Request &request) {
  auto *delayed = new Delayed{this, instance, request, 0};
  delayed->source = g_timeout_add_full(G_PRIORITY_DEFAULT, static_cast<guint>(options_.delayMs),
                                       &StubServer::onDelayElapsed, delayed,
                                       [](gpointer data) { delete static_cast<Delayed *>(data); });
  delayedSources_.insert(delayed->source);
}

gboolean StubServer::onDelayElapsed(gpointer data) {
  auto *delayed = static_cast<Delayed *>(data);
  delayed->server->delayedSources_.erase(delayed->source);
  delayed->server->answer(delayed->instance, delayed->request);
  return G_SOURCE_REMOVE;
}

rpc_port_h StubServer::portOf(rpc_port_port_type_e type, const std::string &instance) const {
  rpc_port_h port = nullptr;
  if (rpc_port_stub_get_port(stub_, type, instance.c_str(), &port) != RPC_PORT_ERROR_NONE) {
    return nullptr;
  }
  return port;
}

}  // namespace oxa_sim
