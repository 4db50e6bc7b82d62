// The public types that need no store.
#include <cstdio>

#include "VQRegLib.h"

namespace VQRegLib {

CRegistryChangeHandler::CRegistryChangeHandler() = default;

CRegistryChangeHandler::~CRegistryChangeHandler() = default;

}  // namespace VQRegLib

VQException::VQException(long code, const char* file, long line)
    : m_lCode(static_cast<std::int32_t>(code)), m_szText{} {
    if (file) {
        constexpr std::size_t kLimit = 270;
        // Longer names are cut on purpose; the result says by how much and is of no interest.
        (void)std::snprintf(m_szText, kLimit, "%s.%d", file, static_cast<int>(line));
    }
}

VQException::~VQException() = default;
