// Values with a type: texts, numbers, truth values.
#include "configfile.h"

#include <strings.h>

#include <cstdlib>
#include <initializer_list>

#include "qoros.h"
#include "secret.h"

namespace {

// Texts of numbers and truth values are cut to this, terminator included.
constexpr unsigned int typedValueSize = 256;

// As atol does, but defined for numbers that do not fit.
long toNumber(const char* value) {
    return std::strtol(value, nullptr, 10);
}

signed char toTruth(const char* value, signed char defaultValue) {
    if (toNumber(value) == 1 || strcasecmp(value, "On") == 0 || strcasecmp(value, "Yes") == 0) {
        return 1;
    }
    for (const char* word : {"0", "Off", "No"}) {
        if (strcasecmp(value, word) == 0) {
            return 0;
        }
    }
    return defaultValue;
}

// Stores the default, and over it what `convert` makes of the value, where there is one.
template <typename Type, typename Convert>
signed char readAs(const ConfigFile& config, const char* group, const char* name, Type* out,
                   Type defaultValue, Convert convert) {
    if (out == nullptr) {
        return 0;
    }
    *out = defaultValue;
    secret::Text<typedValueSize> value;
    if (config.ReadStr(group, name, value.chars, typedValueSize) == 0) {
        return 0;
    }
    *out = convert(value.chars);
    return 1;
}

} // namespace

signed char ConfigFile::ReadStrDef(const char* group, const char* name, char* out,
                                   unsigned int size, const char* defaultValue) const {
    if (group == nullptr || name == nullptr || out == nullptr || defaultValue == nullptr) {
        return 0;
    }
    strcpy_qor(out, size, defaultValue);
    return readValue(group, name, out, size);
}

signed char ConfigFile::ReadStr(const char* group, const char* name, char* out,
                                unsigned int size) const {
    return ReadStrDef(group, name, out, size, "");
}

signed char ConfigFile::ReadIntDef(const char* group, const char* name, unsigned int* out,
                                   unsigned int defaultValue) const {
    return readAs(*this, group, name, out, defaultValue, [](const char* value) {
        return static_cast<unsigned int>(static_cast<unsigned long>(toNumber(value)));
    });
}

signed char ConfigFile::ReadInt(const char* group, const char* name, unsigned int* out) const {
    return ReadIntDef(group, name, out, 0);
}

signed char ConfigFile::ReadBoolDef(const char* group, const char* name, signed char* out,
                                    signed char defaultValue) const {
    return readAs(*this, group, name, out, defaultValue,
                  [defaultValue](const char* value) { return toTruth(value, defaultValue); });
}

signed char ConfigFile::ReadBool(const char* group, const char* name, signed char* out) const {
    return ReadBoolDef(group, name, out, 0);
}

signed char ConfigFile::WriteInt(const char* group, const char* name, unsigned int value) {
    secret::Text<sizeof "-2147483648"> digits;
    sprintf_qor(digits.chars, sizeof digits.chars, "%d", static_cast<int>(value));
    return WriteStr(group, name, digits.chars);
}

signed char ConfigFile::WriteBool(const char* group, const char* name, signed char value) {
    return WriteStr(group, name, value != 0 ? "On" : "Off");
}

signed char ConfigFileReadStrDef(const char* file, const char* group, const char* name, char* out,
                                 unsigned int size, const char* defaultValue) {
    if (file == nullptr || group == nullptr || name == nullptr || out == nullptr ||
        defaultValue == nullptr) {
        return 0;
    }
    ConfigFile config;
    if (config.OpenFile(file) == 0) {
        strcpy_qor(out, size, defaultValue);
        return 0;
    }
    return config.ReadStrDef(group, name, out, size, defaultValue);
}
