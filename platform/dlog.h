/** The platform's log. */
#ifndef KORVANE_PLATFORM_DLOG_H_
#define KORVANE_PLATFORM_DLOG_H_

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Writes one message to the platform log.
 *
 * @param priority 3 debug, 4 info, 6 error
 * @param tag      the name that the message is filed under; not kept
 * @param format   a printf format; %m is the text of errno as the caller left it
 * @return 0, or a platform error number
 */
int dlog_print(int priority, const char *tag, const char *format, ...)
#ifdef __GNUC__
    __attribute__((format(printf, 3, 4)))
#endif
    ;

#ifdef __cplusplus
}
#endif

#endif /* KORVANE_PLATFORM_DLOG_H_ */
