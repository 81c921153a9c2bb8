// A second application for the two-client tests: sends every simple message it receives for
// service type 1 and every command it receives for service type 3 back to its sender, and
// publishes a context for service type 1. Prints "peer: ready" once registered; stops on SIGTERM.
// The two kinds use two services because both subscriptions ride on the same agent event.
#include <glib-unix.h>
#include <glib.h>
#include <oxa.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr char kPeerContext[] = "peer context";

struct Peer {
  GMainLoop *loop = nullptr;
  oxa_service_h messages = nullptr;
  oxa_service_h commands = nullptr;
  int exitCode = EXIT_SUCCESS;
};

void fail(Peer &peer, const char *what, int result) {
  std::printf("peer: %s failed: %d\n", what, result);
  std::fflush(stdout);
  peer.exitCode = EXIT_FAILURE;
  g_main_loop_quit(peer.loop);
}

void onCommandSent(oxa_command_h command, oxa_error_e /*result*/, void * /*peer*/) {
  oxa_command_destroy(command);
}

void onMessageSent(oxa_simple_message_h message, oxa_error_e /*result*/, void * /*peer*/) {
  oxa_simple_message_destroy(message);
}

void onCommand(oxa_command_h received, void *data) {
  auto &peer = *static_cast<Peer *>(data);
  char *address = nullptr;
  oxa_command_type_e type = OXA_COMMAND_TYPE_1;
  int id = 0;
  unsigned char *payload = nullptr;
  int length = 0;
  oxa_command_get_address(received, &address);
  oxa_command_get_type(received, &type);
  oxa_command_get_id(received, &id);
  oxa_command_get_payload(received, &payload, &length);
  oxa_command_h answer = nullptr;
  int result = oxa_command_create(address, type, id, payload, length, &answer);
  if (result == OXA_ERROR_NONE) {
    result = oxa_send_command(peer.commands, answer, &onCommandSent, &peer);
  }
  std::free(address);
  std::free(payload);
  if (result != OXA_ERROR_NONE) {
    fail(peer, "command echo", result);
  }
}

void onMessage(const char *address, const unsigned char *data, int length, void *user) {
  auto &peer = *static_cast<Peer *>(user);
  oxa_simple_message_h answer = nullptr;
  int result = oxa_simple_message_create(address, data, length, &answer);
  if (result == OXA_ERROR_NONE) {
    result = oxa_send_simple_message(peer.messages, answer, &onMessageSent, &peer);
  }
  if (result != OXA_ERROR_NONE) {
    fail(peer, "message echo", result);
  }
}

void onRegistered(oxa_service_h /*service*/, oxa_error_e result, void *data) {
  auto &peer = *static_cast<Peer *>(data);
  if (result != OXA_ERROR_NONE) {
    fail(peer, "register", result);
    return;
  }
  std::printf("peer: ready\n");
  std::fflush(stdout);
}

void setUp(Peer &peer) {
  const auto *context = reinterpret_cast<const unsigned char *>(kPeerContext);
  int result = oxa_service_create(OXA_SERVICE_TYPE_1, &peer.messages);
  if (result == OXA_ERROR_NONE) {
    result = oxa_service_create(OXA_SERVICE_TYPE_3, &peer.commands);
  }
  if (result == OXA_ERROR_NONE) {
    result = oxa_set_simple_message_received_cb(peer.messages, &onMessage, &peer);
  }
  if (result == OXA_ERROR_NONE) {
    result = oxa_set_command_received_cb(peer.commands, &onCommand, &peer);
  }
  if (result == OXA_ERROR_NONE) {
    result = oxa_update_context(peer.messages, OXA_CONTEXT_TYPE_2, context,
                                static_cast<int>(std::strlen(kPeerContext)));
  }
  if (result == OXA_ERROR_NONE) {
    result = oxa_service_register(peer.messages, &onRegistered, &peer);
  }
  if (result != OXA_ERROR_NONE) {
    fail(peer, "set-up", result);
  }
}

void onInitialized(oxa_error_e result, void *data) {
  auto &peer = *static_cast<Peer *>(data);
  if (result != OXA_ERROR_NONE) {
    fail(peer, "initialize", result);
  } else if (peer.messages == nullptr) {
    setUp(peer);
  }
}

gboolean quit(gpointer loop) {
  g_main_loop_quit(static_cast<GMainLoop *>(loop));
  return G_SOURCE_REMOVE;
}

}  // namespace

int main() {
  Peer peer;
  peer.loop = g_main_loop_new(nullptr, FALSE);
  g_unix_signal_add(SIGTERM, quit, peer.loop);
  const int result = oxa_initialize(&onInitialized, &peer);
  if (result != OXA_ERROR_NONE) {
    fail(peer, "initialize", result);
  } else {
    g_main_loop_run(peer.loop);
  }
  oxa_service_destroy(peer.messages);
  oxa_service_destroy(peer.commands);
  oxa_deinitialize();
  g_main_loop_unref(peer.loop);
  return peer.exitCode;
}
