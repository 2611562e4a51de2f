/** Installed packages and the metadata of applications. */
#ifndef KORVANE_PLATFORM_PACKAGE_H_
#define KORVANE_PLATFORM_PACKAGE_H_

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

/** One installed package. */
typedef struct package_info_s *package_info_h;
/** One application. */
typedef struct app_info_s *app_info_h;

/** Called for each package; the handle is valid during the call only and is not released. */
typedef bool (*package_manager_package_info_cb)(package_info_h package, void *user_data);
/** Called for each metadata entry; either text may be null. */
typedef bool (*app_info_metadata_cb)(const char *key, const char *value, void *user_data);

/**
 * Looks up an installed package.
 *
 * @return 0; 0xFEEB0071 (as an int) when no such package is installed; another
 *         non-zero value on other failures
 */
int package_info_create(const char *package_id, package_info_h *package);

/** Releases a handle made by package_info_create. */
int package_info_destroy(package_info_h package);

/** Gets the package's ID as heap text that the caller releases with free. */
int package_info_get_package(package_info_h package, char **id);

/** Gets the package's version as heap text that the caller releases with free. */
int package_info_get_version(package_info_h package, char **version);

/** Calls back once for each installed package, until the callback returns false. */
int package_manager_foreach_package_info(package_manager_package_info_cb callback, void *user_data);

/** Looks up an application; fails when the ID is no application. */
int app_info_create(const char *app_id, app_info_h *app);

/** Releases a handle made by app_info_create. */
int app_info_destroy(app_info_h app);

/** Calls back once for each metadata entry, until the callback returns false. */
int app_info_foreach_metadata(app_info_h app, app_info_metadata_cb callback, void *user_data);

#ifdef __cplusplus
}
#endif

#endif /* KORVANE_PLATFORM_PACKAGE_H_ */
