/**
 * Bundles: the key/value payload of a platform event.
 *
 * A look-up is by type: a missing key and a value of another type are both
 * absent. Values stay owned by the bundle.
 */
#ifndef KORVANE_PLATFORM_BUNDLE_H_
#define KORVANE_PLATFORM_BUNDLE_H_

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A key/value container. */
typedef struct bundle_s *bundle_h;

/** Gets the string under key; 0 and the text when there is one, else a platform error number. */
int bundle_get_str(bundle_h bundle, const char *key, char **text);

/** Gets the string array under key, or null when there is none; count receives its length. */
const char **bundle_get_str_array(bundle_h bundle, const char *key, int *count);

/** Gets the byte value under key; 0, the first byte and the length in bytes when there is one. */
int bundle_get_byte(bundle_h bundle, const char *key, void **bytes, size_t *size);

#ifdef __cplusplus
}
#endif

#endif /* KORVANE_PLATFORM_BUNDLE_H_ */
