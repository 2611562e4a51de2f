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
 * The descriptor to watch in an event loop of one's own: readable while a step
 * would deliver something. Owned by the platform. @return a descriptor, or a negated errno value
 */
int korvane_host_main_loop_fd(void);

#ifdef __cplusplus
}
#endif

#endif /* KORVANE_HOST_H_ */
