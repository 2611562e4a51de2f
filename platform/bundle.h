/**
 * Bundles: the key/value payload of a platform event.
 *
 * A look-up fails both when the key is missing and when its value has another
 * type. The bundle owns the values.
 */
#ifndef KORVANE_PLATFORM_BUNDLE_H_
#define KORVANE_PLATFORM_BUNDLE_H_

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A key/value container. */
typedef struct bundle_s *bundle_h;

/** Gets the string under key. @return 0, or a platform error number when there is none. */
int bundle_get_str(bundle_h bundle, const char *key, char **text);

/** Gets the string array under key, or null when there is none; count receives its length. */
const char **bundle_get_str_array(bundle_h bundle, const char *key, int *count);

/**
 * Gets the byte value under key: its first byte and its length in bytes.
 *
 * @return 0, or a platform error number when there is none
 */
int bundle_get_byte(bundle_h bundle, const char *key, void **bytes, size_t *size);

#ifdef __cplusplus
}
#endif

#endif /* KORVANE_PLATFORM_BUNDLE_H_ */
