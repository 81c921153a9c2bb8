#ifndef CAPI_BASE_COMMON_H
#define CAPI_BASE_COMMON_H

#ifdef __cplusplus
extern "C" {
#endif

/* The last error code of the calling thread. */
int get_last_result(void);
void set_last_result(int result);

#ifdef __cplusplus
}
#endif

#endif /* CAPI_BASE_COMMON_H */
