/// The part of Android's C interface to system properties that the library uses. Debian's header needs bionic.
#pragma once

#define PROPERTY_KEY_MAX 32   ///< bytes of a name with its NUL; longer names work
#define PROPERTY_VALUE_MAX 92 ///< bytes of a value with its NUL

#ifdef __cplusplus
extern "C" {
#endif

/// Copies the value of property `key` to `value`, which must have PROPERTY_VALUE_MAX bytes. If the property is not set
/// or empty, copies `default_value` instead; if that is null, `value` becomes empty. Longer texts are cut. Returns the
/// length of the copied text.
int property_get(const char* key, char* value, const char* default_value);

#ifdef __cplusplus
}
#endif
