// Sessions, and numbers below their root keys.
#ifndef VQTEST_SESSIONS_H
#define VQTEST_SESSIONS_H

#include <cstdint>
#include <memory>
#include <string>

#include "VQRegLib.h"

namespace vqtest {

using VQRegLib::CRegKey;
using VQRegLib::CRegLib;

inline std::unique_ptr<CRegLib> openSession(const std::string& path, const char* root = nullptr) {
    return std::make_unique<CRegLib>(path.c_str(), root, CRegLib::eLocationDefault, nullptr);
}

inline int setNumber(CRegLib& session, const char* name, unsigned long number) {
    return session.VQRegSetValue(*session.RootKey(), name, number);
}

/// The number of a value of the root key, or -1.
inline long numberOf(CRegLib& session, const char* name) {
    CRegLib::eDataType type = CRegLib::eNone;
    std::uint32_t number = 0;
    unsigned long size = sizeof number;
    const int code = session.VQRegQueryValue(*session.RootKey(), name, type,
                                             reinterpret_cast<unsigned char*>(&number), &size);
    return code == VQRegLib::REGLIB_OK ? static_cast<long>(number) : -1;
}

}  // namespace vqtest

#endif  // VQTEST_SESSIONS_H
