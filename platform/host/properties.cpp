#include <cstdio>
#include <cstring>

#include <android-base/properties.h>
#include <cutils/properties.h>

int property_get(const char* key, char* value, const char* default_value) {
    const std::string text = android::base::GetProperty(key, default_value ? default_value : "");
    std::snprintf(value, PROPERTY_VALUE_MAX, "%s", text.c_str());
    return static_cast<int>(std::strlen(value));
}
