#include <oxa.h>
#include <stdio.h>
#include <stdlib.h>

void print_context(oxa_device_h device) {
  unsigned char *value = NULL;
  int length = 0;
  int i;
  int result =
      oxa_device_get_context(device, OXA_SERVICE_TYPE_1, OXA_CONTEXT_TYPE_2, &value, &length);
  if (result != OXA_ERROR_NONE) {
    fprintf(stderr, "no context: %d\n", result);
    return;
  }
  /* length 0: the device has no such data, and value stays NULL. */
  for (i = 0; i < length; i++) {
    printf("%02x", value[i]);
  }
  printf("\n");
  free(value);
}
