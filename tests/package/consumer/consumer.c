/* Builds a command and reads it back through the installed library; needs no agent. */
#include <oxa.h>
#include <stdio.h>
#include <stdlib.h>

int main(void) {
  static const unsigned char payload[] = {1, 2, 3};
  oxa_command_h command = NULL;
  unsigned char *copy = NULL;
  int length = 0;
  char *address = NULL;
  int status = EXIT_FAILURE;

  if (oxa_command_create("02:00:00:00:00:01", OXA_COMMAND_TYPE_2, 7, payload, (int)sizeof(payload),
                         &command) != OXA_ERROR_NONE) {
    return EXIT_FAILURE;
  }
  if (oxa_command_get_payload(command, &copy, &length) == OXA_ERROR_NONE &&
      oxa_command_get_address(command, &address) == OXA_ERROR_NONE && length > 0) {
    printf("command to %s: %d bytes, last %d\n", address, length, copy[length - 1]);
    status = EXIT_SUCCESS;
  }
  free(copy);
  free(address);
  oxa_command_destroy(command);
  return status;
}
