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

/**
 * Delivers events until korvane_host_main_loop_quit(). Signals do not end it.
 *
 * @return 0, or a negated errno value
 */
int korvane_host_main_loop_run(void);

/**
 * Makes the running korvane_host_main_loop_run() return, or the next one if none is running. Also
 * ends the wait of a korvane_host_main_loop_step(), which then returns 1. May be called from any
 * thread and from signal handlers. Does not affect children made by fork.
 */
void korvane_host_main_loop_quit(void);

/**
 * Waits for one event and delivers it. Signals do not end the wait.
 *
 * @param timeout_ms the longest wait in milliseconds; -1 for no limit
 * @return 1 when an event was served, which may have called a callback, or when
 *         korvane_host_main_loop_quit() was called before or during the step; 0 on timeout; or a
 *         negated errno value
 */
int korvane_host_main_loop_step(int timeout_ms);

/**
 * Calls a function once from inside the loop, after a delay. Functions with the same delay are
 * called in the order in which they were added. A delay of 0 posts work to the loop: the function
 * is never called from inside this call. May be called from any thread.
 *
 * @param delay_ms the delay in milliseconds, 0 or more
 * @param task the function; not called if the process ends first
 * @param user_data the argument of the function
 * @return 0, or a negated errno value: -EINVAL for a null function or a negative delay; after an
 *         error the function is not called
 */
int korvane_host_main_loop_call_after(int delay_ms, void (*task)(void *user_data), void *user_data);

/**
 * A descriptor to watch in the application's own event loop. It is readable while a step would
 * deliver something. The platform owns it.
 *
 * @return the descriptor, or a negated errno value
 */
int korvane_host_main_loop_fd(void);

#ifdef __cplusplus
}
#endif

#endif /* KORVANE_HOST_H_ */
