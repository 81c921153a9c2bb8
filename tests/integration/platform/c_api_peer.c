/* A stub or a proxy written only against the platform's C interface, each running its own
 * GMainLoop. The stub greets every proxy with an event and answers one request; the proxy sends
 * that request, checks reply and event, and leaves. Exit status 0 means every check held.
 *
 *   c_api_peer stub              (prints "ready" once listening; exits after its proxy leaves)
 *   c_api_peer proxy <stub-appid>
 */
#include <capi-base-common.h>
#include <dlog.h>
#include <glib.h>
#include <rpc-port.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define PORT_NAME "CPeerPort"
#define TAG "CPEER"
#define TIMEOUT_SECONDS 15

typedef struct {
  GMainLoop *loop;
  rpc_port_stub_h stub;
  rpc_port_proxy_h proxy;
  rpc_port_h main_port;
  int requests_served;
  int got_reply;
  int got_event;
  int failed;
} peer_t;

static void finish(peer_t *peer, int failed) {
  peer->failed |= failed;
  g_main_loop_quit(peer->loop);
}

static gboolean on_timeout(gpointer data) {
  dlog_print(DLOG_ERROR, TAG, "timed out");
  finish(data, 1);
  return G_SOURCE_REMOVE;
}

/* Sends a parcel of (number, text) on `port`. */
static int send_pair(rpc_port_h port, int number, const char *text) {
  rpc_port_parcel_h parcel = NULL;
  if (rpc_port_parcel_create(&parcel) != 0) {
    return -1;
  }
  rpc_port_parcel_write_int32(parcel, number);
  rpc_port_parcel_write_string(parcel, text);
  const int result = rpc_port_parcel_send(parcel, port);
  rpc_port_parcel_destroy(parcel);
  return result;
}

/* Reads a parcel of (number, text) from `port`; the caller frees *text. */
static int read_pair(rpc_port_h port, int *number, char **text) {
  rpc_port_parcel_h parcel = NULL;
  int result = rpc_port_parcel_create_from_port(&parcel, port);
  if (result != 0) {
    return result;
  }
  result = rpc_port_parcel_read_int32(parcel, number);
  if (result == 0) {
    result = rpc_port_parcel_read_string(parcel, text);
  }
  rpc_port_parcel_destroy(parcel);
  return result;
}

static void stub_connected(const char *sender, const char *instance, void *data) {
  peer_t *peer = data;
  rpc_port_h callback = NULL;
  dlog_print(DLOG_INFO, TAG, "connected %s", sender);
  if (rpc_port_stub_get_port(peer->stub, RPC_PORT_PORT_CALLBACK, instance, &callback) != 0 ||
      send_pair(callback, 7, "welcome") != 0) {
    finish(peer, 1);
  }
}

static int stub_received(const char *sender, const char *instance, rpc_port_h port, void *data) {
  peer_t *peer = data;
  int number = 0;
  char *text = NULL;
  char reply[64];
  (void)sender;
  (void)instance;
  if (read_pair(port, &number, &text) != 0) {
    free(text);
    return -1;
  }
  dlog_print(DLOG_INFO, TAG, "request %d %s", number, text);
  snprintf(reply, sizeof reply, "pong:%s", text);
  free(text);
  peer->requests_served++;
  return send_pair(port, number + 1, reply);
}

static void stub_disconnected(const char *sender, const char *instance, void *data) {
  (void)instance;
  dlog_print(DLOG_INFO, TAG, "disconnected %s", sender);
  finish(data, 0);
}

static int run_stub(peer_t *peer) {
  if (rpc_port_stub_create(&peer->stub, PORT_NAME) != 0) {
    return 2;
  }
  rpc_port_stub_add_connected_event_cb(peer->stub, stub_connected, peer);
  rpc_port_stub_add_received_event_cb(peer->stub, stub_received, peer);
  rpc_port_stub_add_disconnected_event_cb(peer->stub, stub_disconnected, peer);
  if (rpc_port_stub_listen(peer->stub) != 0) {
    return 3;
  }
  printf("ready\n");
  fflush(stdout);
  g_main_loop_run(peer->loop);
  rpc_port_stub_destroy(peer->stub);
  return peer->failed || peer->requests_served != 1 ? 4 : 0;
}

static void proxy_maybe_done(peer_t *peer) {
  if (peer->got_reply && peer->got_event) {
    finish(peer, 0);
  }
}

static void proxy_connected(const char *receiver, const char *port_name, rpc_port_h port,
                            void *data) {
  peer_t *peer = data;
  int number = 0;
  char *text = NULL;
  dlog_print(DLOG_INFO, TAG, "connected to %s/%s", receiver, port_name);
  peer->main_port = port;
  if (send_pair(port, 41, "ping") != 0 || read_pair(port, &number, &text) != 0) {
    free(text);
    finish(peer, 1);
    return;
  }
  dlog_print(DLOG_INFO, TAG, "reply %d %s", number, text);
  peer->got_reply = number == 42 && strcmp(text, "pong:ping") == 0;
  free(text);
  if (!peer->got_reply) {
    finish(peer, 1);
  }
  proxy_maybe_done(peer);
}

static void proxy_received(const char *receiver, const char *port_name, void *data) {
  peer_t *peer = data;
  rpc_port_h callback = NULL;
  int number = 0;
  char *text = NULL;
  (void)receiver;
  (void)port_name;
  if (rpc_port_proxy_get_port(peer->proxy, RPC_PORT_PORT_CALLBACK, &callback) != 0 ||
      read_pair(callback, &number, &text) != 0) {
    free(text);
    finish(peer, 1);
    return;
  }
  dlog_print(DLOG_INFO, TAG, "event %d %s", number, text);
  peer->got_event = number == 7 && strcmp(text, "welcome") == 0;
  free(text);
  if (!peer->got_event) {
    finish(peer, 1);
  }
  proxy_maybe_done(peer);
}

static void proxy_rejected(const char *receiver, const char *port_name, void *data) {
  dlog_print(DLOG_ERROR, TAG, "rejected by %s/%s: %d", receiver, port_name, get_last_result());
  finish(data, 1);
}

static void proxy_disconnected(const char *receiver, const char *port_name, void *data) {
  dlog_print(DLOG_ERROR, TAG, "disconnected from %s/%s", receiver, port_name);
  finish(data, 1);
}

static int run_proxy(peer_t *peer, const char *stub_appid) {
  if (rpc_port_proxy_create(&peer->proxy) != 0) {
    return 2;
  }
  rpc_port_proxy_add_connected_event_cb(peer->proxy, proxy_connected, peer);
  rpc_port_proxy_add_received_event_cb(peer->proxy, proxy_received, peer);
  rpc_port_proxy_add_rejected_event_cb(peer->proxy, proxy_rejected, peer);
  rpc_port_proxy_add_disconnected_event_cb(peer->proxy, proxy_disconnected, peer);
  if (rpc_port_proxy_connect(peer->proxy, stub_appid, PORT_NAME) != 0) {
    return 3;
  }
  g_main_loop_run(peer->loop);
  rpc_port_proxy_destroy(peer->proxy);
  return peer->failed ? 4 : 0;
}

int main(int argc, char **argv) {
  peer_t peer;
  int status = 1;
  memset(&peer, 0, sizeof peer);
  peer.loop = g_main_loop_new(NULL, FALSE);
  g_timeout_add_seconds(TIMEOUT_SECONDS, on_timeout, &peer);
  if (argc == 2 && strcmp(argv[1], "stub") == 0) {
    status = run_stub(&peer);
  } else if (argc == 3 && strcmp(argv[1], "proxy") == 0) {
    status = run_proxy(&peer, argv[2]);
  } else {
    fprintf(stderr, "usage: %s stub | proxy <stub-appid>\n", argv[0]);
  }
  g_main_loop_unref(peer.loop);
  return status;
}
