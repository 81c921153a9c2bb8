#include <oxa.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>

/* Called before oxa_foreach_found_device() returns; the device is borrowed for the call. */
static bool print_device(oxa_device_h device, void *user_data) {
  int *count = user_data;
  char *name = NULL;
  if (oxa_device_get_name(device, &name) == OXA_ERROR_NONE) {
    printf("%d: %s\n", ++*count, name);
  }
  free(name);
  return true; /* false stops the walk */
}

int print_found_devices(oxa_service_h service) {
  int count = 0;
  return oxa_foreach_found_device(service, print_device, &count);
}
