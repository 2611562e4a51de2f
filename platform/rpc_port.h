/**
 * RPC port, client side: connections to a port of another application, and the
 * parcels that are sent and received over them.
 *
 * Every function returns 0 on success and a non-zero platform error number on
 * failure, and writes its out argument only on success. The events of a proxy
 * are delivered on the thread that runs the application's main loop, one at a
 * time, never from inside another platform call.
 */
#ifndef KORVANE_PLATFORM_RPC_PORT_H_
#define KORVANE_PLATFORM_RPC_PORT_H_

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

/** One client end; made by rpc_port_proxy_create, released by rpc_port_proxy_destroy. */
typedef struct rpc_port_proxy_s *rpc_port_proxy_h;
/** One of the two ports of a connection; owned by its proxy. */
typedef struct rpc_port_s *rpc_port_h;
/** One message; made by the create functions, released by rpc_port_parcel_destroy. */
typedef struct rpc_port_parcel_s *rpc_port_parcel_h;

/** The connection was made. port is the main port, owned by the proxy. */
typedef void (*rpc_port_proxy_connected_event_cb)(const char *endpoint, const char *port_name,
                                                  rpc_port_h port, void *user_data);
/** The connection was lost. */
typedef void (*rpc_port_proxy_disconnected_event_cb)(const char *endpoint, const char *port_name,
                                                     void *user_data);
/** The service refused the connection. */
typedef void (*rpc_port_proxy_rejected_event_cb)(const char *endpoint, const char *port_name,
                                                 void *user_data);
/** A parcel can be read from the callback port. */
typedef void (*rpc_port_proxy_received_event_cb)(const char *endpoint, const char *port_name,
                                                 void *user_data);

/** Makes a new, unconnected proxy. */
int rpc_port_proxy_create(rpc_port_proxy_h *proxy);

/**
 * Ends the connection, if any, and releases the proxy and its ports.
 *
 * No event of this proxy is delivered afterwards, also when the call is made
 * from inside one of its event callbacks or while a connection is being made.
 */
int rpc_port_proxy_destroy(rpc_port_proxy_h proxy);

/** Registers a callback for the connected event. */
int rpc_port_proxy_add_connected_event_cb(rpc_port_proxy_h proxy,
                                          rpc_port_proxy_connected_event_cb cb, void *user_data);
/** Registers a callback for the disconnected event. */
int rpc_port_proxy_add_disconnected_event_cb(rpc_port_proxy_h proxy,
                                             rpc_port_proxy_disconnected_event_cb cb,
                                             void *user_data);
/** Registers a callback for the rejected event. */
int rpc_port_proxy_add_rejected_event_cb(rpc_port_proxy_h proxy,
                                         rpc_port_proxy_rejected_event_cb cb, void *user_data);
/** Registers a callback for parcels that arrive on the callback port. */
int rpc_port_proxy_add_received_event_cb(rpc_port_proxy_h proxy,
                                         rpc_port_proxy_received_event_cb cb, void *user_data);

/**
 * Starts a connection to a port of an application and returns; the outcome is
 * one connected or rejected event.
 *
 * @return 0, or an immediate failure: -22 invalid parameter, -13 permission
 *         denied, -5 I/O error, others possible
 */
int rpc_port_proxy_connect(rpc_port_proxy_h proxy, const char *app_id, const char *port_name);

/** As rpc_port_proxy_connect, but the outcome has been reported when it returns. */
int rpc_port_proxy_connect_sync(rpc_port_proxy_h proxy, const char *app_id, const char *port_name);

/** Gets a port of the connection: type 0 is the main port, 1 the callback port. Owned by the proxy.
 */
int rpc_port_proxy_get_port(rpc_port_proxy_h proxy, int type, rpc_port_h *port);

/** Makes a new, empty parcel. */
int rpc_port_parcel_create(rpc_port_parcel_h *parcel);

/** Waits for the next parcel on the port and reads it. Fails when the port has lost its connection.
 */
int rpc_port_parcel_create_from_port(rpc_port_parcel_h *parcel, rpc_port_h port);

/** Sends a parcel; the caller keeps it. */
int rpc_port_parcel_send(rpc_port_parcel_h parcel, rpc_port_h port);

/** Releases a parcel. */
int rpc_port_parcel_destroy(rpc_port_parcel_h parcel);

/** Appends a signed 32-bit integer. */
int rpc_port_parcel_write_int32(rpc_port_parcel_h parcel, int value);
/** Appends a truth value. */
int rpc_port_parcel_write_bool(rpc_port_parcel_h parcel, bool value);
/** Appends a text up to its NUL. */
int rpc_port_parcel_write_string(rpc_port_parcel_h parcel, const char *text);
/** Appends the element count of the array whose elements are written next. */
int rpc_port_parcel_write_array_count(rpc_port_parcel_h parcel, int count);

/** Reads the next value as a signed 32-bit integer; a failed read leaves the target as it was. */
int rpc_port_parcel_read_int32(rpc_port_parcel_h parcel, int *value);
/** Reads the next value as a truth value; a failed read leaves the target as it was. */
int rpc_port_parcel_read_bool(rpc_port_parcel_h parcel, bool *value);
/** Reads the next value as a text on the heap, which the caller releases with free. */
int rpc_port_parcel_read_string(rpc_port_parcel_h parcel, char **text);
/** Reads the next value as an element count; a failed read leaves the target as it was. */
int rpc_port_parcel_read_array_count(rpc_port_parcel_h parcel, int *count);

#ifdef __cplusplus
}
#endif

#endif /* KORVANE_PLATFORM_RPC_PORT_H_ */
