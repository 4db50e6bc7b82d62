// Reads the trace level: the one place where the trace log uses the store that it traces.
#include <cstring>

#include "RegLib/trace/Trace.h"
#include "VQRegLib.h"

void CRegLibTrace::readConfiguration() {
    using VQRegLib::CRegLib;
    static constexpr char kValueName[] = "RegLibLogging";
    static constexpr char kLogDirectory[] = "/cf/corvanedata/Logs/";
    try {
        // Constructing its store calls createInstance again, which lets only the first call
        // through.
        CRegLib session(nullptr, "Velquist/Logging", CRegLib::eLocationDefault, nullptr);
        CRegLib::eDataType type = CRegLib::eDword;
        unsigned char data[4] = {};
        unsigned long size = sizeof data;
        VQRegLib::CRegKey none;  // every call fails with it, as it shall without a store
        VQRegLib::CRegKey& root = session.RootKey() ? *session.RootKey() : none;
        if (session.VQRegQueryValue(root, kValueName, type, data, &size) < 0) {
            session.VQRegSetValue(root, kValueName, 1ul);
            m_lLogLevel.store(1);
            setDirectory(kLogDirectory);
            return;
        }
        std::int32_t level = 0;
        std::memcpy(&level, data, sizeof level);
        m_lLogLevel.store(level);
        if (level != 0) {
            setDirectory(kLogDirectory);
        }
    } catch (...) {
        // A program must not fail because its log cannot be configured.
    }
}
