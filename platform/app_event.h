/**
 * Application events: named broadcasts between applications, with a bundle as payload.
 *
 * Events are delivered on the thread that runs the application's main loop,
 * one at a time, never from inside another platform call.
 */
#ifndef KORVANE_PLATFORM_APP_EVENT_H_
#define KORVANE_PLATFORM_APP_EVENT_H_

#include "bundle.h"

#ifdef __cplusplus
extern "C" {
#endif

/** One subscription; made by event_add_event_handler, released by event_remove_event_handler. */
typedef struct event_handler_s *event_handler_h;

/** Called for each event; name and payload are valid during the call only. */
typedef void (*event_cb)(const char *event_name, bundle_h event_data, void *user_data);

/** Subscribes to one named event. @return 0, or a platform error number. */
int event_add_event_handler(const char *event_name, event_cb callback, void *user_data,
                            event_handler_h *handler);

/** Ends a subscription; allowed from inside the callback. @return 0, or a platform error number. */
int event_remove_event_handler(event_handler_h handler);

/** The text of a platform error number; static, not released, never null. */
const char *get_error_message(int error);

#ifdef __cplusplus
}
#endif

#endif /* KORVANE_PLATFORM_APP_EVENT_H_ */
