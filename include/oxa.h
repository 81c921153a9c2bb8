/**
 * @file oxa.h
 * @brief Client library of the OXA multi-device agent.
 *
 * An application uses this library to take part in a multi-device service run by the OXA
 * agent, a system daemon: it connects to the agent, registers a service, discovers nearby
 * devices, reads and publishes context data, sends commands and short messages to peer devices
 * and is told of events. Every operation is a request to the agent; every event comes from it.
 *
 * @par Threads and the main loop
 * The library delivers all of its events (the outcome of oxa_initialize(), registration
 * results, state changes, devices found and lost, context changes, commands and messages
 * received, the outcome of each send) on the GLib main context that is the thread-default
 * context of the thread calling oxa_initialize() (the global default context unless that thread
 * pushed one of its own). Every asynchronous callback therefore runs on the thread that runs
 * that context, typically the application's GMainLoop, and only while the loop runs; callbacks
 * of one connection never run at the same time as each other. Two exceptions run on the calling
 * thread instead: oxa_foreach_found_device() calls its callback before it returns, and when a
 * request gives up on the agent at its call deadline (see "Requests") the loss of the connection
 * is reported to the oxa_initialize() callback on the thread of that request, before it returns.
 *
 * Every function may be called from any thread, also while the loop thread is delivering events,
 * and from inside any callback, including one that removes or replaces what called it (for
 * example oxa_initialize() again after oxa_deinitialize()). Requests from several threads are
 * sent one at a time: a thread waits while another one's request is waiting for its reply. No
 * callback is ever called while the library holds a lock, so a callback may wait for another
 * thread that calls the library.
 *
 * What the application must still not do: destroy a handle (oxa_service_destroy(),
 * oxa_command_destroy(), oxa_simple_message_destroy(), oxa_device_destroy()) while another of its
 * threads still uses that handle, or use a handle after destroying it. A command or simple
 * message that was sent stays in use until its sent callback has run. An answer to
 * oxa_service_register() that arrives after oxa_service_destroy() has returned is dropped; if
 * the service is destroyed on another thread while that answer is being delivered, its callback
 * may still run once with the handle, which it must then not use.
 *
 * @par Requests
 * Functions that talk to the agent block until the agent has replied (oxa_service_register()
 * only until its request is sent). Besides their own argument errors they return:
 * - ::OXA_ERROR_INTERNAL_ERROR when the library is not connected to the agent (oxa_initialize()
 *   has not reported success yet, the connection was lost, or oxa_deinitialize() was called), or
 *   when the agent's reply did not arrive;
 * - ::OXA_ERROR_PERMISSION_DENIED or ::OXA_ERROR_IO_ERROR when the transport failed that way;
 * - otherwise the agent's own result code, unchanged (::OXA_ERROR_NONE on success).
 * These are called "request errors" below.
 *
 * Every request has a call deadline: 10 s from the moment it starts waiting for its reply, or
 * the number of milliseconds in the environment variable OXA_CALL_TIMEOUT_MS (read once, at the
 * first request). Other parcels that the agent sends meanwhile do not extend it. A request that
 * reaches its deadline returns ::OXA_ERROR_INTERNAL_ERROR, as for a reply that did not arrive,
 * and the library gives up that connection: no later request uses it (so none can take the late
 * reply for its own), and the oxa_initialize() callback gets ::OXA_ERROR_INTERNAL_ERROR once,
 * as for any lost connection. Call oxa_initialize() to connect again. A single read of the
 * transport is bounded by the platform's own read timeout, which also ends the request (and, on
 * the host platform, the connection); the deadline is checked each time a parcel arrives.
 *
 * @par Ownership
 * - Handles returned through an output parameter belong to the application, which releases them
 *   with the matching destroy function.
 * - Handles and buffers passed to an event callback are borrowed for the duration of the call:
 *   the library frees them when the callback returns. Copy what you need to keep
 *   (oxa_device_clone() for a device).
 * - The handle passed to a sent callback (::oxa_command_sent_cb, ::oxa_simple_message_sent_cb)
 *   is the application's own handle that was sent. The library keeps only a pointer to it, so
 *   the application must keep it alive until that callback has run, and destroys it afterwards.
 * - Strings and byte buffers returned by getters are fresh copies from the C allocator
 *   (malloc() or strdup()); the application releases them with free().
 * - User data pointers are passed back untouched and never freed.
 *
 * @par Logging
 * Every function logs its steps to the platform log under the tag "OXA_API".
 */
#ifndef OXA_H
#define OXA_H

#include <stdbool.h> /* NOLINT(modernize-deprecated-headers): this is a C header */

#ifdef __cplusplus
extern "C" {
#endif

/* C declarations, also for C++ callers. NOLINTBEGIN(modernize-use-using) */

/** Result codes. Every function returns one of these as an int. */
typedef enum {
  OXA_ERROR_NONE = 0,                     /**< Success. */
  OXA_ERROR_IO_ERROR = -5,                /**< The transport to the agent failed. */
  OXA_ERROR_OUT_OF_MEMORY = -12,          /**< An allocation failed. */
  OXA_ERROR_PERMISSION_DENIED = -13,      /**< The agent refused this client. */
  OXA_ERROR_INVALID_PARAMETER = -22,      /**< A missing or invalid argument. */
  OXA_ERROR_INVALID_OPERATION = -38,      /**< The operation makes no sense here. */
  OXA_ERROR_NO_DATA = -61,                /**< No data. */
  OXA_ERROR_NOT_SUPPORTED = -1073741822,  /**< Not supported for this service type. */
  OXA_ERROR_INTERNAL_ERROR = -1073741825, /**< Not connected, or the agent did not answer. */
  OXA_ERROR_LOWER_VERSION = -1073741826,  /**< The agent is too old. */
  OXA_ERROR_NO_DEVICE = -1073741827       /**< No such device. */
} oxa_error_e;

/** Service types; the agent knows exactly these three. */
typedef enum {
  OXA_SERVICE_TYPE_1 = 1,
  OXA_SERVICE_TYPE_3 = 3,
  OXA_SERVICE_TYPE_6 = 6 /**< The only type that takes an application id. */
} oxa_service_type_e;

/** Kinds of context data a device publishes. */
typedef enum {
  OXA_CONTEXT_TYPE_1 = 1,
  OXA_CONTEXT_TYPE_2 = 2,
  OXA_CONTEXT_TYPE_3 = 3,
  OXA_CONTEXT_TYPE_6 = 6
} oxa_context_type_e;

/** Device types; any type the agent reports outside 1..5 reads as ::OXA_DEVICE_TYPE_UNKNOWN. */
typedef enum {
  OXA_DEVICE_TYPE_1 = 1,
  OXA_DEVICE_TYPE_2 = 2,
  OXA_DEVICE_TYPE_3 = 3,
  OXA_DEVICE_TYPE_4 = 4,
  OXA_DEVICE_TYPE_5 = 5,
  OXA_DEVICE_TYPE_UNKNOWN = 99
} oxa_device_type_e;

/** Command types. Simple messages travel as commands of type 3 with id 3. */
typedef enum {
  OXA_COMMAND_TYPE_1 = 1,
  OXA_COMMAND_TYPE_2 = 2,
  OXA_COMMAND_TYPE_3 = 3
} oxa_command_type_e;

/** A service of one type that the application registers with the agent. */
typedef struct oxa_service_s *oxa_service_h;
/** A peer device, or the application's own device. */
typedef struct oxa_device_s *oxa_device_h;
/** A typed, numbered command with a byte payload, addressed to a device. */
typedef struct oxa_command_s *oxa_command_h;
/** A short message of bytes addressed to a device. */
typedef struct oxa_simple_message_s *oxa_simple_message_h;

/**
 * @brief Reports the state of the connection started by oxa_initialize().
 *
 * Runs on the main-loop thread (see "Threads and the main loop" above), possibly more than
 * once: ::OXA_ERROR_NONE when the connection is up; ::OXA_ERROR_INTERNAL_ERROR when it is lost
 * later (on the thread of the request that gave up on it, when a call deadline passed); when the
 * agent rejects the connection, ::OXA_ERROR_PERMISSION_DENIED,
 * ::OXA_ERROR_IO_ERROR, ::OXA_ERROR_INVALID_OPERATION or ::OXA_ERROR_NONE as the platform
 * reports them, and ::OXA_ERROR_INTERNAL_ERROR for any other reason (no agent running, ...).
 * @param result    the outcome, as above
 * @param user_data the pointer given to oxa_initialize()
 */
typedef void (*oxa_initialized_cb)(oxa_error_e result, void *user_data);

/**
 * @brief Reports the agent's answer to oxa_service_register(). Runs on the main-loop thread.
 * @param service   the service handle given to oxa_service_register()
 * @param result    the agent's result, ::OXA_ERROR_NONE when the service is registered
 * @param user_data the pointer given to oxa_service_register()
 */
typedef void (*oxa_service_registered_cb)(oxa_service_h service, oxa_error_e result,
                                          void *user_data);

/**
 * @brief Reports a state change of a service. Runs on the main-loop thread.
 * @param service   the service handle given to oxa_service_set_state_changed_cb()
 * @param state     the new state, 0 or 1
 * @param user_data the pointer given to oxa_service_set_state_changed_cb()
 */
typedef void (*oxa_service_state_changed_cb)(oxa_service_h service, int state, void *user_data);

/**
 * @brief Visits one found device in oxa_foreach_found_device(); runs on the calling thread.
 * @param device    a borrowed device, valid only during the call (clone it to keep it)
 * @param user_data the pointer given to oxa_foreach_found_device()
 * @return true to visit the next device, false to stop
 */
typedef bool (*oxa_found_device_cb)(oxa_device_h device, void *user_data);

/**
 * @brief Reports a newly found device. Runs on the main-loop thread.
 * @param device    a borrowed device, freed by the library when the callback returns
 * @param user_data the pointer given to oxa_set_device_found_cb()
 */
typedef void (*oxa_device_found_cb)(oxa_device_h device, void *user_data);

/**
 * @brief Reports a device that is gone. Runs on the main-loop thread.
 * @param device    a borrowed device, freed by the library when the callback returns
 * @param user_data the pointer given to oxa_set_device_lost_cb()
 */
typedef void (*oxa_device_lost_cb)(oxa_device_h device, void *user_data);

/**
 * @brief Reports that a device's context data changed. Runs on the main-loop thread.
 * @param device    a borrowed device, freed by the library when the callback returns; read its
 *                  data with oxa_device_get_context()
 * @param user_data the pointer given to oxa_set_context_changed_cb()
 */
typedef void (*oxa_context_changed_cb)(oxa_device_h device, void *user_data);

/**
 * @brief Delivers a command sent to this application. Runs on the main-loop thread.
 * @param command   a borrowed command, freed by the library when the callback returns; its
 *                  address is the sender's. Do not pass it to oxa_command_destroy().
 * @param user_data the pointer given to oxa_set_command_received_cb()
 */
typedef void (*oxa_command_received_cb)(oxa_command_h command, void *user_data);

/**
 * @brief Delivers a simple message sent to this application. Runs on the main-loop thread.
 *
 * Messages without data, and messages whose sender address is not 17 characters long, are
 * dropped without calling this function.
 * @param address   the sender's address, a NUL-terminated text of 17 characters; borrowed
 * @param data      the message bytes, never NULL; borrowed, freed when the callback returns
 * @param data_len  the number of bytes, at least 1
 * @param user_data the pointer given to oxa_set_simple_message_received_cb()
 */
typedef void (*oxa_simple_message_received_cb)(const char *address, const unsigned char *data,
                                               int data_len, void *user_data);

/**
 * @brief Reports the outcome of oxa_send_command(). Runs on the main-loop thread.
 * @param command   the application's own handle that was sent; the library does not free it
 * @param result    the agent's result for the delivery
 * @param user_data the pointer given to oxa_send_command()
 */
typedef void (*oxa_command_sent_cb)(oxa_command_h command, oxa_error_e result, void *user_data);

/**
 * @brief Reports the outcome of oxa_send_simple_message(). Runs on the main-loop thread.
 * @param message   the application's own handle that was sent; the library does not free it
 * @param result    the agent's result for the delivery
 * @param user_data the pointer given to oxa_send_simple_message()
 */
typedef void (*oxa_simple_message_sent_cb)(oxa_simple_message_h message, oxa_error_e result,
                                           void *user_data);

/**
 * @brief Starts connecting to the agent.
 *
 * Call it from a thread whose thread-default main context is the one on which the library is to
 * deliver its events (see "Threads and the main loop" above); the other functions may be called
 * from any thread. The connection completes asynchronously: @p callback
 * reports it, and later reports its loss, on that loop. May be called again after a failure, a
 * lost connection or oxa_deinitialize(); each such call replaces the previous connection and its
 * pending subscriptions.
 * @param callback  reports the connection state; may be NULL (events are then dropped)
 * @param user_data passed back to @p callback
 * @return ::OXA_ERROR_NONE when the connection has been started, or when the library is
 *         already connected (then @p callback is neither stored nor ever called);
 *         ::OXA_ERROR_PERMISSION_DENIED when the agent may not be reached by this process;
 *         ::OXA_ERROR_IO_ERROR when the connection could not be started.
 */
int oxa_initialize(oxa_initialized_cb callback, void *user_data);

/**
 * @brief Tells the agent that this client leaves, and stops all requests.
 *
 * Subsequent requests fail with ::OXA_ERROR_INTERNAL_ERROR until oxa_initialize() succeeds again.
 * The callback of oxa_initialize() stays in place and reports a later loss of the connection.
 * @return ::OXA_ERROR_NONE, also when the library was not connected;
 *         ::OXA_ERROR_PERMISSION_DENIED or ::OXA_ERROR_IO_ERROR when the transport failed;
 *         ::OXA_ERROR_INTERNAL_ERROR when the agent did not reply.
 */
int oxa_deinitialize(void);

/**
 * @brief Creates a service of the given type. No request is made.
 * @param type    ::OXA_SERVICE_TYPE_1, ::OXA_SERVICE_TYPE_3 or ::OXA_SERVICE_TYPE_6
 * @param service receives the new handle, which the application releases with
 *                oxa_service_destroy(); untouched on failure
 * @return ::OXA_ERROR_NONE;
 *         ::OXA_ERROR_INVALID_PARAMETER when @p service is NULL or @p type is not a service type;
 *         ::OXA_ERROR_OUT_OF_MEMORY.
 */
int oxa_service_create(oxa_service_type_e type, oxa_service_h *service);

/**
 * @brief Destroys a service, unregistering it from the agent first if oxa_service_register()
 *        was called on it (that request's result is ignored).
 *
 * Event subscriptions and the state-changed callback belong to the service type at the agent
 * and are not removed; unset them first, since their callbacks would receive this (then
 * dangling) handle. Do not destroy a service while its registration answer is still pending.
 * @param service the service; invalid afterwards
 * @return ::OXA_ERROR_NONE; ::OXA_ERROR_INVALID_PARAMETER when @p service is NULL.
 */
int oxa_service_destroy(oxa_service_h service);

/**
 * @brief Registers a service with the agent; the answer arrives through @p callback.
 *
 * A later call on the same service replaces the callback, also for an answer still pending.
 * @param service   the service; must stay alive until the answer has arrived
 * @param callback  receives the agent's answer on the main-loop thread; may be NULL
 * @param user_data passed back to @p callback
 * @return ::OXA_ERROR_NONE once the request is sent;
 *         ::OXA_ERROR_INVALID_PARAMETER when @p service is NULL;
 *         ::OXA_ERROR_PERMISSION_DENIED without any request when the agent has denied this client
 *         (oxa_initialize() or oxa_deinitialize() failed with that code);
 *         ::OXA_ERROR_INTERNAL_ERROR when not connected; ::OXA_ERROR_IO_ERROR when sending failed.
 */
int oxa_service_register(oxa_service_h service, oxa_service_registered_cb callback,
                         void *user_data);

/**
 * @brief Unregisters a service from the agent; the registration callback is dropped.
 * @param service the service
 * @return ::OXA_ERROR_NONE; ::OXA_ERROR_INVALID_PARAMETER when @p service is NULL; a request error.
 */
int oxa_service_unregister(oxa_service_h service);

/**
 * @brief Asks the agent for the state of a service.
 * @param service the service
 * @param state   receives the state, 0 or 1; written whenever the arguments are valid
 * @return ::OXA_ERROR_INVALID_PARAMETER when @p service or @p state is NULL; otherwise a request
 *         error, except that ::OXA_ERROR_INTERNAL_ERROR (not connected, no reply) is reported as
 *         ::OXA_ERROR_NONE with state 0.
 */
int oxa_service_get_state(oxa_service_h service, int *state);

/**
 * @brief Sets the application id of a service of type 6. Its low byte travels at the head of
 *        every simple message that the service sends.
 * @param service the service
 * @param app_id  the application id
 * @return ::OXA_ERROR_NONE; ::OXA_ERROR_INVALID_PARAMETER when @p service is NULL;
 *         ::OXA_ERROR_NOT_SUPPORTED, changing nothing, when the service's type is not 6;
 *         a request error (the id is kept by the service even then).
 */
int oxa_service_set_app_id(oxa_service_h service, int app_id);

/**
 * @brief Subscribes to the state changes of the service's type.
 *
 * Each call adds a subscription; destroying the service does not remove it.
 * @param service   the service; passed back to @p callback
 * @param callback  receives each new state on the main-loop thread
 * @param user_data passed back to @p callback
 * @return ::OXA_ERROR_NONE, also when the agent refused the subscription;
 *         ::OXA_ERROR_INVALID_PARAMETER when @p service or @p callback is NULL;
 *         ::OXA_ERROR_INTERNAL_ERROR when not connected or the agent did not reply;
 *         ::OXA_ERROR_PERMISSION_DENIED or ::OXA_ERROR_IO_ERROR when the transport failed.
 */
int oxa_service_set_state_changed_cb(oxa_service_h service, oxa_service_state_changed_cb callback,
                                     void *user_data);

/**
 * @brief Asks the agent to stop reporting state changes of the service's type.
 * @param service the service
 * @return ::OXA_ERROR_NONE; ::OXA_ERROR_INVALID_PARAMETER when @p service is NULL; a request error.
 */
int oxa_service_unset_state_changed_cb(oxa_service_h service);

/**
 * @brief Starts discovering devices for a service; see oxa_set_device_found_cb().
 * @param service the service
 * @return ::OXA_ERROR_NONE; ::OXA_ERROR_INVALID_PARAMETER when @p service is NULL;
 *         ::OXA_ERROR_PERMISSION_DENIED without any request when the agent has denied this
 *         client; a request error.
 */
int oxa_start_discovery(oxa_service_h service);

/**
 * @brief Stops discovering devices for a service.
 * @param service the service
 * @return as oxa_start_discovery().
 */
int oxa_stop_discovery(oxa_service_h service);

/**
 * @brief Calls @p callback synchronously, on the calling thread, for each device the agent has
 *        found for the service, in the agent's order, until it returns false.
 * @param service   the service
 * @param callback  called with a borrowed device that is freed when the callback returns
 * @param user_data passed back to @p callback
 * @return ::OXA_ERROR_NONE (also for an empty list);
 *         ::OXA_ERROR_INVALID_PARAMETER when @p service or @p callback is NULL;
 *         a request error, in which case @p callback is not called.
 */
int oxa_foreach_found_device(oxa_service_h service, oxa_found_device_cb callback, void *user_data);

/**
 * @brief Fetches the application's own device as the agent knows it.
 * @param service the service
 * @param address the address to ask for, a NUL-terminated text; copied
 * @param device  receives a new device that the application releases with
 *                oxa_device_destroy(); untouched on failure
 * @return ::OXA_ERROR_NONE; ::OXA_ERROR_INVALID_PARAMETER when @p service, @p address or
 *         @p device is NULL; a request error.
 */
int oxa_get_my_device(oxa_service_h service, const char *address, oxa_device_h *device);

/**
 * @brief Publishes the application's context data of one type.
 * @param service      the service
 * @param context_type ::OXA_CONTEXT_TYPE_2, ::OXA_CONTEXT_TYPE_3 or ::OXA_CONTEXT_TYPE_6
 * @param data         @p size bytes, copied before the function returns; may be NULL when
 *                     @p size is 0
 * @param size         the number of bytes; must not be negative (a negative size raises a C++
 *                     length error, which a C program cannot catch)
 * @return ::OXA_ERROR_NONE; ::OXA_ERROR_INVALID_PARAMETER when @p service is NULL or
 *         @p context_type is not one of the three above; ::OXA_ERROR_PERMISSION_DENIED without any
 *         request when the agent has denied this client; a request error.
 */
int oxa_update_context(oxa_service_h service, oxa_context_type_e context_type,
                       const unsigned char *data, int size);

/**
 * @brief Copies a device, for instance one borrowed in a callback.
 * @param source the device to copy
 * @param target receives the independent copy, which the application releases with
 *               oxa_device_destroy(); must not be NULL
 * @return ::OXA_ERROR_NONE; ::OXA_ERROR_INVALID_PARAMETER when @p source is NULL;
 *         ::OXA_ERROR_OUT_OF_MEMORY.
 */
int oxa_device_clone(oxa_device_h source, oxa_device_h *target);

/**
 * @brief Destroys a device that the application owns (from oxa_device_clone() or
 *        oxa_get_my_device()); never one borrowed in a callback.
 * @param device the device; invalid afterwards
 * @return ::OXA_ERROR_NONE; ::OXA_ERROR_INVALID_PARAMETER when @p device is NULL.
 */
int oxa_device_destroy(oxa_device_h device);

/**
 * @brief Reads the type of a device.
 * @param device the device
 * @param type   receives ::OXA_DEVICE_TYPE_1 to ::OXA_DEVICE_TYPE_5 or ::OXA_DEVICE_TYPE_UNKNOWN
 * @return ::OXA_ERROR_NONE; ::OXA_ERROR_INVALID_PARAMETER when @p device or @p type is NULL.
 */
int oxa_device_get_type(oxa_device_h device, oxa_device_type_e *type);

/**
 * @brief Reads the name of a device.
 * @param device the device
 * @param name   receives a strdup() copy that the application frees with free(); untouched on
 *               failure
 * @return ::OXA_ERROR_NONE; ::OXA_ERROR_INVALID_PARAMETER when @p device or @p name is NULL;
 *         ::OXA_ERROR_OUT_OF_MEMORY.
 */
int oxa_device_get_name(oxa_device_h device, char **name);

/**
 * @brief Reads the address of a device, the 17-character text form of its six-byte address.
 * @param device  the device
 * @param address receives a strdup() copy that the application frees with free(); must not be
 *                NULL; untouched on failure
 * @return ::OXA_ERROR_NONE; ::OXA_ERROR_INVALID_PARAMETER when @p device is NULL or its address
 *         is not 17 characters long; ::OXA_ERROR_OUT_OF_MEMORY.
 */
int oxa_device_get_address(oxa_device_h device, char **address);

/**
 * @brief Asks the agent for the raw data a device advertises.
 * @param device the device
 * @param value  receives a malloc() buffer of @p len bytes that the application frees with
 *               free(); left untouched when there is no data (@p len 0) or on failure
 * @param len    receives the number of bytes once the agent has answered
 * @return ::OXA_ERROR_NONE (also with no data); ::OXA_ERROR_INVALID_PARAMETER when @p device,
 *         @p value or @p len is NULL; ::OXA_ERROR_OUT_OF_MEMORY; a request error.
 */
int oxa_device_get_raw_context(oxa_device_h device, unsigned char **value, int *len);

/**
 * @brief Asks the agent for a device's context data of one type, as seen by a service type.
 *
 * Allowed pairs: context type 1 or 2 with any service type; context type 3 with service type 1
 * only; context type 6 with service type 6 only.
 * @param device       the device
 * @param service_type ::OXA_SERVICE_TYPE_1, ::OXA_SERVICE_TYPE_3 or ::OXA_SERVICE_TYPE_6
 * @param context_type the kind of context data
 * @param value        receives a malloc() buffer of @p len bytes that the application frees
 *                     with free(); left untouched when there is no data (@p len 0) or on failure
 * @param len          receives the number of bytes once the agent has answered
 * @return ::OXA_ERROR_NONE (also with no data); ::OXA_ERROR_INVALID_PARAMETER when @p device,
 *         @p value or @p len is NULL, or when @p service_type is not a service type;
 *         ::OXA_ERROR_INVALID_OPERATION when the pair is not allowed (checked before the service
 *         type); ::OXA_ERROR_OUT_OF_MEMORY; a request error.
 */
int oxa_device_get_context(oxa_device_h device, oxa_service_type_e service_type,
                           oxa_context_type_e context_type, unsigned char **value, int *len);

/**
 * @brief Creates a command. No request is made.
 * @param address     the destination address, a NUL-terminated text of exactly 17 characters
 *                    (for instance "01:23:45:67:89:AB"; only the length is checked); copied
 * @param type        an ::oxa_command_type_e value, 1 to 3
 * @param id          the command id, chosen by the application
 * @param payload     @p payload_len bytes, copied; may be NULL when @p payload_len is 0
 * @param payload_len the number of bytes; must not be negative (a negative length raises a C++
 *                    length error, which a C program cannot catch)
 * @param command     receives the new handle, which the application releases with
 *                    oxa_command_destroy(); untouched on failure
 * @return ::OXA_ERROR_NONE; ::OXA_ERROR_INVALID_PARAMETER when @p command is NULL, @p type is
 *         out of range, or @p address is NULL or not 17 characters long (checked in this order);
 *         ::OXA_ERROR_OUT_OF_MEMORY.
 */
int oxa_command_create(const char *address, int type, int id, const unsigned char *payload,
                       int payload_len, oxa_command_h *command);

/**
 * @brief Destroys a command that the application created. A command that was sent must stay
 *        alive until its ::oxa_command_sent_cb has run.
 * @param command the command; invalid afterwards
 * @return ::OXA_ERROR_NONE; ::OXA_ERROR_INVALID_PARAMETER when @p command is NULL.
 */
int oxa_command_destroy(oxa_command_h command);

/**
 * @brief Reads the id of a command.
 * @param command the command
 * @param id      receives the id; must not be NULL
 * @return ::OXA_ERROR_NONE; ::OXA_ERROR_INVALID_PARAMETER when @p command is NULL.
 */
int oxa_command_get_id(oxa_command_h command, int *id);

/**
 * @brief Reads the type of a command.
 * @param command the command
 * @param type    receives the type; must not be NULL
 * @return ::OXA_ERROR_NONE; ::OXA_ERROR_INVALID_PARAMETER when @p command is NULL.
 */
int oxa_command_get_type(oxa_command_h command, oxa_command_type_e *type);

/**
 * @brief Reads the payload of a command.
 * @param command     the command
 * @param payload     receives a malloc() copy that the application frees with free(), made
 *                    also for an empty payload; must not be NULL
 * @param payload_len receives the number of bytes; must not be NULL; untouched on failure
 * @return ::OXA_ERROR_NONE; ::OXA_ERROR_INVALID_PARAMETER when @p command is NULL;
 *         ::OXA_ERROR_OUT_OF_MEMORY (then @p payload is set to NULL).
 */
int oxa_command_get_payload(oxa_command_h command, unsigned char **payload, int *payload_len);

/**
 * @brief Reads the address of a command: its destination, or for a received command its sender.
 * @param command the command
 * @param address receives a malloc() copy of the 17-character text that the application frees
 *                with free(); must not be NULL
 * @return ::OXA_ERROR_NONE; ::OXA_ERROR_INVALID_PARAMETER when @p command is NULL;
 *         ::OXA_ERROR_INTERNAL_ERROR when the address is not 17 characters long (possible for a
 *         received command); ::OXA_ERROR_OUT_OF_MEMORY (then @p address is set to NULL).
 */
int oxa_command_get_address(oxa_command_h command, char **address);

/**
 * @brief Sends a command to its destination through a service.
 *
 * The function returns the agent's immediate answer; the outcome of the delivery arrives later
 * through @p callback, with this very @p command handle. Keep @p command alive until then. When
 * the function fails before reaching the agent (::OXA_ERROR_INVALID_PARAMETER,
 * ::OXA_ERROR_PERMISSION_DENIED, ::OXA_ERROR_INTERNAL_ERROR while not connected), no outcome
 * follows.
 * @param service   the service
 * @param command   the command
 * @param callback  receives the outcome on the main-loop thread; may be NULL
 * @param user_data passed back to @p callback
 * @return ::OXA_ERROR_NONE; ::OXA_ERROR_INVALID_PARAMETER when @p service or @p command is NULL;
 *         ::OXA_ERROR_PERMISSION_DENIED without any request when the agent has denied this
 *         client; a request error.
 */
int oxa_send_command(oxa_service_h service, oxa_command_h command, oxa_command_sent_cb callback,
                     void *user_data);

/**
 * @brief Creates a simple message. No request is made.
 * @param address  the destination address, a NUL-terminated text of exactly 17 characters;
 *                 copied
 * @param data     @p data_len bytes, copied; may be NULL when @p data_len is 0
 * @param data_len the number of bytes; must not be negative (a negative length raises a C++
 *                 length error, which a C program cannot catch)
 * @param message  receives the new handle, which the application releases with
 *                 oxa_simple_message_destroy(); untouched on failure
 * @return ::OXA_ERROR_NONE; ::OXA_ERROR_INVALID_PARAMETER when @p message is NULL, or @p address
 *         is NULL or not 17 characters long (checked in this order); ::OXA_ERROR_OUT_OF_MEMORY.
 */
int oxa_simple_message_create(const char *address, const unsigned char *data, int data_len,
                              oxa_simple_message_h *message);

/**
 * @brief Destroys a simple message. A message that was sent must stay alive until its
 *        ::oxa_simple_message_sent_cb has run.
 * @param message the message; invalid afterwards
 * @return ::OXA_ERROR_NONE; ::OXA_ERROR_INVALID_PARAMETER when @p message is NULL.
 */
int oxa_simple_message_destroy(oxa_simple_message_h message);

/**
 * @brief Sends a simple message to its destination through a service.
 *
 * The message travels as a command of type 3 and id 3 whose payload is the low byte of the
 * service's application id (oxa_service_set_app_id()), a 0 byte, and the message data. The
 * function returns the agent's immediate answer; the outcome of the delivery arrives later
 * through @p callback, with this very @p message handle. Keep @p message alive until then.
 * When the function fails before reaching the agent, no outcome follows.
 * @param service   the service
 * @param message   the message
 * @param callback  receives the outcome on the main-loop thread; may be NULL
 * @param user_data passed back to @p callback
 * @return as oxa_send_command(), with @p message in place of the command.
 */
int oxa_send_simple_message(oxa_service_h service, oxa_simple_message_h message,
                            oxa_simple_message_sent_cb callback, void *user_data);

/**
 * @brief Subscribes to the devices that discovery finds for the service's type.
 *
 * This and the other oxa_set_*_cb() functions each add a new subscription at the agent; calling
 * one twice makes two subscriptions, neither replacing the other.
 * @param service   the service
 * @param callback  receives each found device on the main-loop thread; may be NULL (the events
 *                  are then dropped)
 * @param user_data passed back to @p callback
 * @return ::OXA_ERROR_NONE; ::OXA_ERROR_INVALID_PARAMETER when @p service is NULL; a request error.
 */
int oxa_set_device_found_cb(oxa_service_h service, oxa_device_found_cb callback, void *user_data);

/**
 * @brief Asks the agent to stop reporting found devices for the service's type.
 * @param service the service
 * @return ::OXA_ERROR_NONE; ::OXA_ERROR_INVALID_PARAMETER when @p service is NULL; a request error.
 */
int oxa_unset_device_found_cb(oxa_service_h service);

/**
 * @brief Subscribes to the devices that are lost for the service's type.
 * @param service   the service
 * @param callback  receives each lost device on the main-loop thread; may be NULL
 * @param user_data passed back to @p callback
 * @return as oxa_set_device_found_cb().
 */
int oxa_set_device_lost_cb(oxa_service_h service, oxa_device_lost_cb callback, void *user_data);

/**
 * @brief Asks the agent to stop reporting lost devices for the service's type.
 * @param service the service
 * @return as oxa_unset_device_found_cb().
 */
int oxa_unset_device_lost_cb(oxa_service_h service);

/**
 * @brief Subscribes to the context changes of devices for the service's type.
 * @param service   the service
 * @param callback  receives each changed device on the main-loop thread; may be NULL
 * @param user_data passed back to @p callback
 * @return as oxa_set_device_found_cb().
 */
int oxa_set_context_changed_cb(oxa_service_h service, oxa_context_changed_cb callback,
                               void *user_data);

/**
 * @brief Asks the agent to stop reporting context changes for the service's type.
 * @param service the service
 * @return as oxa_unset_device_found_cb().
 */
int oxa_unset_context_changed_cb(oxa_service_h service);

/**
 * @brief Subscribes to the commands sent to the service's type.
 * @param service   the service
 * @param callback  receives each command on the main-loop thread; may be NULL
 * @param user_data passed back to @p callback
 * @return as oxa_set_device_found_cb().
 */
int oxa_set_command_received_cb(oxa_service_h service, oxa_command_received_cb callback,
                                void *user_data);

/**
 * @brief Asks the agent to stop delivering commands to the service's type. Simple messages
 *        travel as commands, so this also ends simple-message delivery.
 * @param service the service
 * @return as oxa_unset_device_found_cb().
 */
int oxa_unset_command_received_cb(oxa_service_h service);

/**
 * @brief Subscribes to the simple messages sent to the service's type.
 *
 * Simple messages travel as commands: this is a command subscription at the agent whose commands
 * are unwrapped into (sender address, data). A command that reaches this subscription is
 * delivered as a message whatever its type.
 * @param service   the service
 * @param callback  receives each message on the main-loop thread; may be NULL
 * @param user_data passed back to @p callback
 * @return as oxa_set_device_found_cb().
 */
int oxa_set_simple_message_received_cb(oxa_service_h service,
                                       oxa_simple_message_received_cb callback, void *user_data);

/**
 * @brief Asks the agent to stop delivering simple messages to the service's type. This is the
 *        agent's command unsubscription, so it also ends command delivery.
 * @param service the service
 * @return as oxa_unset_device_found_cb().
 */
int oxa_unset_simple_message_received_cb(oxa_service_h service);

/* NOLINTEND(modernize-use-using) */

#ifdef __cplusplus
}
#endif

#endif /* OXA_H */
