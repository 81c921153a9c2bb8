#ifndef OXA_H
#define OXA_H

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
  OXA_ERROR_NONE = 0,
  OXA_ERROR_IO_ERROR = -5,
  OXA_ERROR_OUT_OF_MEMORY = -12,
  OXA_ERROR_PERMISSION_DENIED = -13,
  OXA_ERROR_INVALID_PARAMETER = -22,
  OXA_ERROR_INVALID_OPERATION = -38,
  OXA_ERROR_NO_DATA = -61,
  OXA_ERROR_NOT_SUPPORTED = -1073741822,
  OXA_ERROR_INTERNAL_ERROR = -1073741825,
  OXA_ERROR_LOWER_VERSION = -1073741826,
  OXA_ERROR_NO_DEVICE = -1073741827
} oxa_error_e;

typedef enum {
  OXA_SERVICE_TYPE_1 = 1,
  OXA_SERVICE_TYPE_3 = 3,
  OXA_SERVICE_TYPE_6 = 6
} oxa_service_type_e;

typedef enum {
  OXA_CONTEXT_TYPE_1 = 1,
  OXA_CONTEXT_TYPE_2 = 2,
  OXA_CONTEXT_TYPE_3 = 3,
  OXA_CONTEXT_TYPE_6 = 6
} oxa_context_type_e;

typedef enum {
  OXA_DEVICE_TYPE_1 = 1,
  OXA_DEVICE_TYPE_2 = 2,
  OXA_DEVICE_TYPE_3 = 3,
  OXA_DEVICE_TYPE_4 = 4,
  OXA_DEVICE_TYPE_5 = 5,
  OXA_DEVICE_TYPE_UNKNOWN = 99
} oxa_device_type_e;

typedef enum {
  OXA_COMMAND_TYPE_1 = 1,
  OXA_COMMAND_TYPE_2 = 2,
  OXA_COMMAND_TYPE_3 = 3
} oxa_command_type_e;

typedef struct oxa_service_s *oxa_service_h;
typedef struct oxa_device_s *oxa_device_h;
typedef struct oxa_command_s *oxa_command_h;
typedef struct oxa_simple_message_s *oxa_simple_message_h;

typedef void (*oxa_initialized_cb)(oxa_error_e result, void *user_data);
typedef void (*oxa_service_registered_cb)(oxa_service_h service, oxa_error_e result,
                                          void *user_data);
typedef void (*oxa_service_state_changed_cb)(oxa_service_h service, int state, void *user_data);
typedef bool (*oxa_found_device_cb)(oxa_device_h device, void *user_data);
typedef void (*oxa_device_found_cb)(oxa_device_h device, void *user_data);
typedef void (*oxa_device_lost_cb)(oxa_device_h device, void *user_data);
typedef void (*oxa_context_changed_cb)(oxa_device_h device, void *user_data);
typedef void (*oxa_command_received_cb)(oxa_command_h command, void *user_data);
typedef void (*oxa_simple_message_received_cb)(const char *address, const unsigned char *data,
                                               int data_len, void *user_data);
typedef void (*oxa_command_sent_cb)(oxa_command_h command, oxa_error_e result, void *user_data);
typedef void (*oxa_simple_message_sent_cb)(oxa_simple_message_h message, oxa_error_e result,
                                           void *user_data);

int oxa_initialize(oxa_initialized_cb callback, void *user_data);
int oxa_deinitialize(void);

int oxa_service_create(oxa_service_type_e type, oxa_service_h *service);
int oxa_service_destroy(oxa_service_h service);
int oxa_service_register(oxa_service_h service, oxa_service_registered_cb callback,
                         void *user_data);
int oxa_service_unregister(oxa_service_h service);
int oxa_service_get_state(oxa_service_h service, int *state);
int oxa_service_set_app_id(oxa_service_h service, int app_id);
int oxa_service_set_state_changed_cb(oxa_service_h service, oxa_service_state_changed_cb callback,
                                     void *user_data);
int oxa_service_unset_state_changed_cb(oxa_service_h service);

int oxa_start_discovery(oxa_service_h service);
int oxa_stop_discovery(oxa_service_h service);
int oxa_foreach_found_device(oxa_service_h service, oxa_found_device_cb callback,
                             void *user_data);
int oxa_get_my_device(oxa_service_h service, const char *address, oxa_device_h *device);
int oxa_update_context(oxa_service_h service, oxa_context_type_e context_type,
                       const unsigned char *data, int size);

int oxa_device_clone(oxa_device_h source, oxa_device_h *target);
int oxa_device_destroy(oxa_device_h device);
int oxa_device_get_type(oxa_device_h device, oxa_device_type_e *type);
int oxa_device_get_name(oxa_device_h device, char **name);
int oxa_device_get_address(oxa_device_h device, char **address);
int oxa_device_get_raw_context(oxa_device_h device, unsigned char **value, int *len);
int oxa_device_get_context(oxa_device_h device, oxa_service_type_e service_type,
                           oxa_context_type_e context_type, unsigned char **value, int *len);

int oxa_command_create(const char *address, int type, int id, const unsigned char *payload,
                       int payload_len, oxa_command_h *command);
int oxa_command_destroy(oxa_command_h command);
int oxa_command_get_id(oxa_command_h command, int *id);
int oxa_command_get_type(oxa_command_h command, oxa_command_type_e *type);
int oxa_command_get_payload(oxa_command_h command, unsigned char **payload, int *payload_len);
int oxa_command_get_address(oxa_command_h command, char **address);
int oxa_send_command(oxa_service_h service, oxa_command_h command, oxa_command_sent_cb callback,
                     void *user_data);

int oxa_simple_message_create(const char *address, const unsigned char *data, int data_len,
                              oxa_simple_message_h *message);
int oxa_simple_message_destroy(oxa_simple_message_h message);
int oxa_send_simple_message(oxa_service_h service, oxa_simple_message_h message,
                            oxa_simple_message_sent_cb callback, void *user_data);

int oxa_set_device_found_cb(oxa_service_h service, oxa_device_found_cb callback, void *user_data);
int oxa_unset_device_found_cb(oxa_service_h service);
int oxa_set_device_lost_cb(oxa_service_h service, oxa_device_lost_cb callback, void *user_data);
int oxa_unset_device_lost_cb(oxa_service_h service);
int oxa_set_context_changed_cb(oxa_service_h service, oxa_context_changed_cb callback,
                               void *user_data);
int oxa_unset_context_changed_cb(oxa_service_h service);
int oxa_set_command_received_cb(oxa_service_h service, oxa_command_received_cb callback,
                                void *user_data);
int oxa_unset_command_received_cb(oxa_service_h service);
int oxa_set_simple_message_received_cb(oxa_service_h service,
                                       oxa_simple_message_received_cb callback, void *user_data);
int oxa_unset_simple_message_received_cb(oxa_service_h service);

#ifdef __cplusplus
}
#endif

#endif /* OXA_H */
