// Single values with a fallback, as most programs want to read them.
#ifndef EXAMPLES_VALUES_H
#define EXAMPLES_VALUES_H

#include <VQRegLib.h>

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

namespace example {

using VQRegLib::CRegKey;
using VQRegLib::CRegLib;

// The data of a value of one type; nothing when there is no such value or it has another type.
inline std::optional<std::vector<unsigned char>> data(CRegLib& session, CRegKey& key,
                                                      const char* name, CRegLib::eDataType wanted) {
    std::vector<unsigned char> buffer(64);
    for (;;) {
        CRegLib::eDataType type = CRegLib::eNone;
        unsigned long size = buffer.size();
        const int result = session.VQRegQueryValue(key, name, type, buffer.data(), &size);
        if (result == VQRegLib::REGLIB_E_BUFFER_TOO_SMALL && size > buffer.size()) {
            buffer.resize(size);  // and once more: the value may grow again meanwhile
            continue;
        }
        if (result < 0 || type != wanted) {
            return std::nullopt;
        }
        buffer.resize(size);
        return buffer;
    }
}

inline bool isMissing(CRegLib& session, CRegKey& key, const char* name) {
    CRegLib::eDataType type = CRegLib::eNone;
    return session.VQRegQueryValueType(key, name, type) == VQRegLib::REGLIB_E_NOT_FOUND;
}

// The fallback stands for a value that is missing. Nothing is returned for one of another type, or
// when the store cannot be read: whoever took that for a missing value would lose a setting.
inline std::optional<std::uint32_t> number(CRegLib& session, CRegKey& key, const char* name,
                                           std::uint32_t fallback) {
    const auto bytes = data(session, key, name, CRegLib::eDword);
    std::uint32_t value = fallback;
    if (bytes && bytes->size() == sizeof value) {
        std::memcpy(&value, bytes->data(), sizeof value);
        return value;
    }
    return isMissing(session, key, name) ? std::optional(value) : std::nullopt;
}

inline std::optional<std::string> text(CRegLib& session, CRegKey& key, const char* name,
                                       const std::string& fallback) {
    if (const auto bytes = data(session, key, name, CRegLib::eString)) {
        return std::string(reinterpret_cast<const char*>(bytes->data()));
    }
    return isMissing(session, key, name) ? std::optional(fallback) : std::nullopt;
}

// The store's path as the command lines of the examples have it: "-" is the default store.
inline const char* storePath(const char* argument) {
    return std::strcmp(argument, "-") == 0 ? nullptr : argument;
}

}  // namespace example

#endif  // EXAMPLES_VALUES_H
