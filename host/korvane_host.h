/**
 * @file korvane_host.h
 * The main loop of the workstation platform.
 *
 * Port events and application events are delivered from inside the loop, one
 * at a time, on the thread that runs or steps it.
 */
#ifndef KORVANE_HOST_H_
#define KORVANE_HOST_H_

#ifdef __cplusplus
extern "C" {
#endif

/** Delivers events until korvane_host_main_loop_quit(). @return 0, or a negated errno value */
int korvane_host_main_loop_run(void);

/** Makes the running loop return, or the next one at once. Any thread; signal handlers too. */
void korvane_host_main_loop_quit(void);

/**
 * Waits for one event and delivers it.
 *
 * @param timeout_ms the longest wait in milliseconds; -1 for no limit
 * @return 1 when something was delivered, 0 when the time was up, or a negated errno value
 */
int korvane_host_main_loop_step(int timeout_ms);

/**
 * Calls a function once from inside the loop, after a delay. Functions with the same delay are
 * called in the order of these calls. With a delay of 0 it posts work into the loop: the function
 * is never called from inside this call. May be called from any thread.
 *
 * @param delay_ms the delay in milliseconds, 0 or more
 * @param task the function; it is not called when the process ends before
 * @param user_data the argument of the function
 * @return 0, or a negated errno value: -EINVAL for a null function or a negative delay; after an
 *         error the function is not called
 */
int korvane_host_main_loop_call_after(int delay_ms, void (*task)(void *user_data), void *user_data);

/**
 * The descriptor to watch in an event loop of one's own: readable while a step
 * would deliver something. Owned by the platform. @return a descriptor, or a negated errno value
 */
int korvane_host_main_loop_fd(void);

#ifdef __cplusplus
}
#endif

#endif /* KORVANE_HOST_H_ */
