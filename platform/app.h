/**
 * The calling application.
 *
 * Every text is heap memory that the caller releases with free.
 */
#ifndef KORVANE_PLATFORM_APP_H_
#define KORVANE_PLATFORM_APP_H_

#ifdef __cplusplus
extern "C" {
#endif

/** Gets the calling application's ID. @return 0, or a platform error number. */
int app_get_id(char **id);

/** Gets the calling application's version text. @return 0, or a platform error number. */
int app_get_version(char **version);

/** Gets the calling application's resource directory, ending in "res/"; null on failure. */
char *app_get_resource_path(void);

#ifdef __cplusplus
}
#endif

#endif /* KORVANE_PLATFORM_APP_H_ */
