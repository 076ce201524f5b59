/// Android's C interface to the system properties, as far as this system uses it. Debian's own header needs bionic.
#pragma once

#define PROPERTY_KEY_MAX 32   ///< bytes of a name with its end, by the classic limit; longer names work
#define PROPERTY_VALUE_MAX 92 ///< bytes of a value with its end

#ifdef __cplusplus
extern "C" {
#endif

/// Copies the value of property `key` into `value`, which has room for PROPERTY_VALUE_MAX bytes; where the property is
/// not set or empty, copies `default_value` (may be null: then `value` becomes empty). Longer texts are cut. Returns
/// the length of what was copied.
int property_get(const char* key, char* value, const char* default_value);

#ifdef __cplusplus
}
#endif
