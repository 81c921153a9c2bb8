#include <oxa.h>
#include <stdio.h>

/* The address and the bytes are borrowed for the call; copy them to keep them. */
static void on_message(const char *address, const unsigned char *data, int length,
                       void *user_data) {
  (void)user_data;
  printf("%d bytes from %s, first 0x%02x\n", length, address, data[0]);
}

int listen_for_messages(oxa_service_h service) {
  return oxa_set_simple_message_received_cb(service, on_message, NULL);
}
