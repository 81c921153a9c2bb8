#ifndef RPC_PORT_PARCEL_H
#define RPC_PORT_PARCEL_H

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A port: the main (request/reply) or the callback (event) end of a connection. */
typedef void *rpc_port_h;

typedef struct rpc_port_parcel_s *rpc_port_parcel_h;

int rpc_port_parcel_create(rpc_port_parcel_h *h);
/* Blocks until one whole parcel has been read from the port. */
int rpc_port_parcel_create_from_port(rpc_port_parcel_h *h, rpc_port_h port);
int rpc_port_parcel_send(rpc_port_parcel_h h, rpc_port_h port);
int rpc_port_parcel_destroy(rpc_port_parcel_h h);

int rpc_port_parcel_write_byte(rpc_port_parcel_h h, char b);
int rpc_port_parcel_write_int16(rpc_port_parcel_h h, short i);
int rpc_port_parcel_write_int32(rpc_port_parcel_h h, int i);
int rpc_port_parcel_write_int64(rpc_port_parcel_h h, long long i);
int rpc_port_parcel_write_float(rpc_port_parcel_h h, float f);
int rpc_port_parcel_write_double(rpc_port_parcel_h h, double d);
int rpc_port_parcel_write_string(rpc_port_parcel_h h, const char *str);
int rpc_port_parcel_write_bool(rpc_port_parcel_h h, bool b);
int rpc_port_parcel_write_array_count(rpc_port_parcel_h h, int count);

int rpc_port_parcel_read_byte(rpc_port_parcel_h h, char *b);
int rpc_port_parcel_read_int16(rpc_port_parcel_h h, short *i);
int rpc_port_parcel_read_int32(rpc_port_parcel_h h, int *i);
int rpc_port_parcel_read_int64(rpc_port_parcel_h h, long long *i);
int rpc_port_parcel_read_float(rpc_port_parcel_h h, float *f);
int rpc_port_parcel_read_double(rpc_port_parcel_h h, double *d);
/* The caller frees *str with free(). */
int rpc_port_parcel_read_string(rpc_port_parcel_h h, char **str);
int rpc_port_parcel_read_bool(rpc_port_parcel_h h, bool *b);
int rpc_port_parcel_read_array_count(rpc_port_parcel_h h, int *count);

#ifdef __cplusplus
}
#endif

#endif /* RPC_PORT_PARCEL_H */
