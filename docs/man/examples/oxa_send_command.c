#include <oxa.h>
#include <stdio.h>

/* The command stays the application's: destroy it once its outcome has arrived. */
static void on_sent(oxa_command_h command, oxa_error_e result, void *user_data) {
  (void)user_data;
  printf("command delivered: %d\n", (int)result);
  oxa_command_destroy(command);
}

int send_hello(oxa_service_h service, const char *peer_address) {
  static const unsigned char payload[] = {'h', 'i'};
  oxa_command_h command = NULL;
  int result = oxa_command_create(peer_address, OXA_COMMAND_TYPE_1, 1, payload,
                                  (int)sizeof(payload), &command);
  if (result != OXA_ERROR_NONE) {
    return result;
  }
  result = oxa_send_command(service, command, on_sent, NULL);
  if (result != OXA_ERROR_NONE) {
    /* Without an outcome to wait for, the command can go now; after an agent error an outcome
       may still come, so this simple program keeps it. */
    if (result == OXA_ERROR_INVALID_PARAMETER || result == OXA_ERROR_PERMISSION_DENIED) {
      oxa_command_destroy(command);
    }
  }
  return result;
}
