/*
 * A complete client of the OXA agent, to copy from.
 *
 * It connects to the agent, registers a service, starts discovery and prints every device the
 * agent knows (name, address, type, raw advertised data), sends a simple message and a command
 * to a peer as soon as the peer is among the devices found, prints their outcomes and anything
 * received meanwhile, cleans up and exits: 0 when everything went through, 1 otherwise. It gives
 * up after ten seconds.
 *
 * The library delivers its events on the GLib main context that is current when
 * oxa_initialize() is called, so the program calls it from the thread that then runs a
 * GMainLoop on that context, and makes every other call from that thread too.
 *
 * Build:  cc -std=c99 oxa_example.c $(pkg-config --cflags --libs oxa glib-2.0)
 * Usage:  oxa_example [PEER_ADDRESS]      (default 02:00:00:00:00:01)
 */
#include <glib.h>
#include <oxa.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define DEFAULT_PEER "02:00:00:00:00:01"
/* Six bytes as two hexadecimal digits each, separated by colons. */
#define PEER_ADDRESS_LENGTH 17
#define TIMEOUT_SECONDS 10
/* How long to listen for incoming traffic once both sends are answered. */
#define LINGER_MILLISECONDS 500

typedef struct {
  GMainLoop *loop;
  const char *peer;
  oxa_service_h service;
  oxa_command_h command;
  oxa_simple_message_h message;
  bool connected;
  bool discovering;
  bool sent;
  int outcomes_awaited;
  bool failed;
} example_t;

static void print_bytes(const unsigned char *bytes, int length) {
  int i;
  if (length == 0) {
    printf("none");
  }
  for (i = 0; i < length; i++) {
    printf("%s%02x", i > 0 ? " " : "", bytes[i]);
  }
}

static void finish(example_t *example, bool failed) {
  example->failed = example->failed || failed;
  g_main_loop_quit(example->loop);
}

/* Prints a device; the handle may be borrowed, so everything is read here. */
static void print_device(const char *what, oxa_device_h device) {
  char *name = NULL;
  char *address = NULL;
  oxa_device_type_e type = OXA_DEVICE_TYPE_UNKNOWN;
  unsigned char *raw = NULL;
  int raw_length = 0;
  int result;

  oxa_device_get_name(device, &name);
  oxa_device_get_address(device, &address);
  oxa_device_get_type(device, &type);
  printf("%s: name=%s address=%s type=%d raw=", what, name ? name : "?", address ? address : "?",
         (int)type);
  result = oxa_device_get_raw_context(device, &raw, &raw_length);
  if (result == OXA_ERROR_NONE) {
    print_bytes(raw, raw_length);
  } else {
    printf("error %d", result);
  }
  printf("\n");
  free(raw);
  free(address);
  free(name);
}

static bool is_peer(const example_t *example, oxa_device_h device) {
  char *address = NULL;
  bool peer = oxa_device_get_address(device, &address) == OXA_ERROR_NONE &&
              strcmp(address, example->peer) == 0;
  free(address);
  return peer;
}

static bool send_both(example_t *example);

/* The peer may show up later (another application starting, say): send once it is found. */
static void send_when_peer(example_t *example, oxa_device_h device) {
  if (example->discovering && !example->sent && is_peer(example, device) && !send_both(example)) {
    finish(example, true);
  }
}

static bool on_found_device(oxa_device_h device, void *user_data) {
  print_device("known device", device);
  send_when_peer(user_data, device);
  return true;
}

static void on_device_found(oxa_device_h device, void *user_data) {
  print_device("found device", device);
  send_when_peer(user_data, device);
}

static void on_command_received(oxa_command_h command, void *user_data) {
  char *address = NULL;
  int id = 0;
  oxa_command_type_e type = OXA_COMMAND_TYPE_1;
  unsigned char *payload = NULL;
  int payload_length = 0;
  (void)user_data;

  oxa_command_get_address(command, &address);
  oxa_command_get_id(command, &id);
  oxa_command_get_type(command, &type);
  oxa_command_get_payload(command, &payload, &payload_length);
  printf("received command from %s: type=%d id=%d payload=", address ? address : "?", (int)type,
         id);
  print_bytes(payload, payload_length);
  printf("\n");
  free(payload);
  free(address);
}

static void on_message_received(const char *address, const unsigned char *data, int length,
                                void *user_data) {
  (void)user_data;
  printf("received message from %s: ", address);
  print_bytes(data, length);
  printf("\n");
}

static gboolean on_linger_over(gpointer user_data) {
  finish(user_data, false);
  return G_SOURCE_REMOVE;
}

/* Both sends report here; once both are answered, listen a little longer, then stop. */
static void outcome_arrived(example_t *example, const char *what, oxa_error_e result) {
  printf("%s sent: result=%d\n", what, (int)result);
  if (result != OXA_ERROR_NONE) {
    example->failed = true;
  }
  if (--example->outcomes_awaited == 0) {
    g_timeout_add(LINGER_MILLISECONDS, on_linger_over, example);
  }
}

static void on_message_sent(oxa_simple_message_h message, oxa_error_e result, void *user_data) {
  (void)message;
  outcome_arrived(user_data, "simple message", result);
}

static void on_command_sent(oxa_command_h command, oxa_error_e result, void *user_data) {
  (void)command;
  outcome_arrived(user_data, "command", result);
}

static bool send_both(example_t *example) {
  static const unsigned char text[] = "hello";
  static const unsigned char payload[] = {0x01, 0x02, 0x03};
  int result;

  if (oxa_simple_message_create(example->peer, text, (int)sizeof(text) - 1, &example->message) !=
          OXA_ERROR_NONE ||
      oxa_command_create(example->peer, OXA_COMMAND_TYPE_1, 1, payload, (int)sizeof(payload),
                         &example->command) != OXA_ERROR_NONE) {
    fprintf(stderr, "invalid peer address '%s' (17 characters expected)\n", example->peer);
    return false;
  }
  example->sent = true;
  result = oxa_send_simple_message(example->service, example->message, on_message_sent, example);
  if (result != OXA_ERROR_NONE) {
    fprintf(stderr, "sending the simple message failed: %d\n", result);
    return false;
  }
  example->outcomes_awaited++;
  result = oxa_send_command(example->service, example->command, on_command_sent, example);
  if (result != OXA_ERROR_NONE) {
    fprintf(stderr, "sending the command failed: %d\n", result);
    return false;
  }
  example->outcomes_awaited++;
  return true;
}

static void on_registered(oxa_service_h service, oxa_error_e result, void *user_data) {
  example_t *example = user_data;
  (void)service;
  if (result != OXA_ERROR_NONE) {
    fprintf(stderr, "registering the service failed: %d\n", (int)result);
    finish(example, true);
    return;
  }
  printf("service registered\n");
  result = oxa_start_discovery(example->service);
  if (result != OXA_ERROR_NONE) {
    fprintf(stderr, "starting discovery failed: %d\n", (int)result);
    finish(example, true);
    return;
  }
  example->discovering = true;
  result = oxa_foreach_found_device(example->service, on_found_device, example);
  if (result != OXA_ERROR_NONE) {
    fprintf(stderr, "listing the found devices failed: %d\n", (int)result);
  }
  if (!example->sent) {
    printf("waiting for %s to be found\n", example->peer);
  }
}

/*
 * Simple messages travel as commands: with both subscriptions set, each incoming command also
 * reaches the message callback (its payload unwrapped), and each message the command callback.
 */
static bool start_service(example_t *example) {
  int result = oxa_service_create(OXA_SERVICE_TYPE_1, &example->service);
  if (result == OXA_ERROR_NONE) {
    result = oxa_set_device_found_cb(example->service, on_device_found, example);
  }
  if (result == OXA_ERROR_NONE) {
    result = oxa_set_command_received_cb(example->service, on_command_received, example);
  }
  if (result == OXA_ERROR_NONE) {
    result = oxa_set_simple_message_received_cb(example->service, on_message_received, example);
  }
  if (result == OXA_ERROR_NONE) {
    result = oxa_service_register(example->service, on_registered, example);
  }
  if (result != OXA_ERROR_NONE) {
    fprintf(stderr, "setting up the service failed: %d\n", result);
    return false;
  }
  return true;
}

/* Reports the connection, and later its loss. */
static void on_initialized(oxa_error_e result, void *user_data) {
  example_t *example = user_data;
  if (result != OXA_ERROR_NONE) {
    fprintf(stderr, "%s: %d\n", example->connected ? "connection lost" : "cannot connect",
            (int)result);
    example->connected = false;
    finish(example, true);
    return;
  }
  printf("connected to the agent\n");
  example->connected = true;
  if (!start_service(example)) {
    finish(example, true);
  }
}

static gboolean on_timeout(gpointer user_data) {
  fprintf(stderr, "timed out after %d seconds\n", TIMEOUT_SECONDS);
  finish(user_data, true);
  return G_SOURCE_REMOVE;
}

/* Ends every subscription and gives back everything the example owns. */
static void clean_up(example_t *example) {
  if (example->service != NULL && example->connected) {
    if (example->discovering) {
      oxa_stop_discovery(example->service);
    }
    oxa_unset_device_found_cb(example->service);
    /* Also ends the simple messages: they travel as commands. */
    oxa_unset_command_received_cb(example->service);
  }
  if (example->service != NULL) {
    oxa_service_destroy(example->service);
  }
  if (example->command != NULL) {
    oxa_command_destroy(example->command);
  }
  if (example->message != NULL) {
    oxa_simple_message_destroy(example->message);
  }
  oxa_deinitialize();
}

int main(int argc, char **argv) {
  example_t example;
  guint timeout;
  int result;

  memset(&example, 0, sizeof(example));
  example.peer = argc > 1 ? argv[1] : DEFAULT_PEER;
  if (strlen(example.peer) != PEER_ADDRESS_LENGTH) {
    fprintf(stderr, "usage: %s [PEER_ADDRESS]  (like %s)\n", argv[0], DEFAULT_PEER);
    return EXIT_FAILURE;
  }
  example.loop = g_main_loop_new(NULL, FALSE);

  result = oxa_initialize(on_initialized, &example);
  if (result != OXA_ERROR_NONE) {
    fprintf(stderr, "cannot start connecting: %d\n", result);
    g_main_loop_unref(example.loop);
    return EXIT_FAILURE;
  }
  timeout = g_timeout_add_seconds(TIMEOUT_SECONDS, on_timeout, &example);
  g_main_loop_run(example.loop);
  if (g_main_context_find_source_by_id(NULL, timeout) != NULL) {
    g_source_remove(timeout);
  }

  clean_up(&example);
  g_main_loop_unref(example.loop);
  printf("%s\n", example.failed ? "failed" : "done");
  return example.failed ? EXIT_FAILURE : EXIT_SUCCESS;
}
