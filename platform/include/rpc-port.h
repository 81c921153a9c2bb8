#ifndef RPC_PORT_H
#define RPC_PORT_H

#include <rpc-port-parcel.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
  RPC_PORT_ERROR_NONE = 0,
  RPC_PORT_ERROR_IO_ERROR = -5,
  RPC_PORT_ERROR_OUT_OF_MEMORY = -12,
  RPC_PORT_ERROR_PERMISSION_DENIED = -13,
  RPC_PORT_ERROR_INVALID_PARAMETER = -22,
} rpc_port_error_e;

typedef struct rpc_port_proxy_s *rpc_port_proxy_h;
typedef struct rpc_port_stub_s *rpc_port_stub_h;

typedef enum { RPC_PORT_PORT_MAIN, RPC_PORT_PORT_CALLBACK } rpc_port_port_type_e;

typedef void (*rpc_port_proxy_connected_event_cb)(const char *receiver, const char *port_name,
                                                  rpc_port_h port, void *user_data);
typedef void (*rpc_port_proxy_disconnected_event_cb)(const char *receiver, const char *port_name,
                                                     void *user_data);
typedef void (*rpc_port_proxy_rejected_event_cb)(const char *receiver, const char *port_name,
                                                 void *user_data);
typedef void (*rpc_port_proxy_received_event_cb)(const char *receiver, const char *port_name,
                                                 void *user_data);

int rpc_port_proxy_create(rpc_port_proxy_h *h);
int rpc_port_proxy_destroy(rpc_port_proxy_h h);
int rpc_port_proxy_connect(rpc_port_proxy_h h, const char *appid, const char *port);
int rpc_port_proxy_connect_sync(rpc_port_proxy_h h, const char *appid, const char *port);
int rpc_port_proxy_add_connected_event_cb(rpc_port_proxy_h h, rpc_port_proxy_connected_event_cb cb,
                                          void *user_data);
int rpc_port_proxy_add_disconnected_event_cb(rpc_port_proxy_h h,
                                             rpc_port_proxy_disconnected_event_cb cb,
                                             void *user_data);
int rpc_port_proxy_add_rejected_event_cb(rpc_port_proxy_h h, rpc_port_proxy_rejected_event_cb cb,
                                         void *user_data);
int rpc_port_proxy_add_received_event_cb(rpc_port_proxy_h h, rpc_port_proxy_received_event_cb cb,
                                         void *user_data);
int rpc_port_proxy_get_port(rpc_port_proxy_h h, rpc_port_port_type_e type, rpc_port_h *port);

typedef void (*rpc_port_stub_connected_event_cb)(const char *sender, const char *instance,
                                                 void *user_data);
typedef void (*rpc_port_stub_disconnected_event_cb)(const char *sender, const char *instance,
                                                    void *user_data);
typedef int (*rpc_port_stub_received_event_cb)(const char *sender, const char *instance,
                                               rpc_port_h port, void *user_data);

int rpc_port_stub_create(rpc_port_stub_h *h, const char *port_name);
int rpc_port_stub_destroy(rpc_port_stub_h h);
int rpc_port_stub_listen(rpc_port_stub_h h);
int rpc_port_stub_add_privilege(rpc_port_stub_h h, const char *privilege);
int rpc_port_stub_add_connected_event_cb(rpc_port_stub_h h, rpc_port_stub_connected_event_cb cb,
                                         void *user_data);
int rpc_port_stub_add_disconnected_event_cb(rpc_port_stub_h h,
                                            rpc_port_stub_disconnected_event_cb cb,
                                            void *user_data);
int rpc_port_stub_add_received_event_cb(rpc_port_stub_h h, rpc_port_stub_received_event_cb cb,
                                        void *user_data);
int rpc_port_stub_get_port(rpc_port_stub_h h, rpc_port_port_type_e type, const char *instance,
                           rpc_port_h *port);

#ifdef __cplusplus
}
#endif

#endif /* RPC_PORT_H */
