/* Connects, registers a service of type 1 and prints each device that discovery finds. */
#include <glib.h>
#include <oxa.h>
#include <stdio.h>
#include <stdlib.h>

static oxa_service_h service;

static void on_found(oxa_device_h device, void *user_data) {
  char *name = NULL;
  char *address = NULL;
  (void)user_data;
  /* The device is borrowed for the call; the strings are ours to free. */
  if (oxa_device_get_name(device, &name) == OXA_ERROR_NONE &&
      oxa_device_get_address(device, &address) == OXA_ERROR_NONE) {
    printf("found %s at %s\n", name, address);
  }
  free(name);
  free(address);
}

static void on_registered(oxa_service_h registered, oxa_error_e result, void *user_data) {
  (void)user_data;
  if (result == OXA_ERROR_NONE) {
    oxa_start_discovery(registered);
  }
}

static void on_initialized(oxa_error_e result, void *loop) {
  if (result != OXA_ERROR_NONE) { /* refused, or the agent went away */
    g_main_loop_quit(loop);
    return;
  }
  oxa_service_create(OXA_SERVICE_TYPE_1, &service);
  oxa_set_device_found_cb(service, on_found, NULL);
  oxa_service_register(service, on_registered, NULL);
}

int main(void) {
  GMainLoop *loop = g_main_loop_new(NULL, FALSE);
  if (oxa_initialize(on_initialized, loop) != OXA_ERROR_NONE) {
    return 1;
  }
  g_main_loop_run(loop);
  oxa_service_destroy(service); /* unregisters it from the agent first */
  oxa_deinitialize();
  g_main_loop_unref(loop);
  return 0;
}
