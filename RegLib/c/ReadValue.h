// The data of a value, whatever its size.
#ifndef REGLIB_C_READVALUE_H
#define REGLIB_C_READVALUE_H

#include <string_view>
#include <vector>

#include "VQRegLib.h"

namespace VQRegLib {

// Reads into a buffer of its own first: a caller's gets nothing before type and size are known to be
// right. A line of the file fits; what this process has set may be longer.
class CReadValue {
public:
    [[nodiscard]] int read(CRegLib& session, CRegKey& key, const char* name);

    CRegLib::eDataType type() const { return m_type; }
    std::string_view data() const {
        const unsigned char* const bytes = m_more.empty() ? m_buffer : m_more.data();
        return {reinterpret_cast<const char*>(bytes), m_size};
    }

private:
    CRegLib::eDataType m_type = CRegLib::eNone;
    unsigned long m_size = 0;
    unsigned char m_buffer[2048];
    std::vector<unsigned char> m_more;
};

}  // namespace VQRegLib

#endif  // REGLIB_C_READVALUE_H
