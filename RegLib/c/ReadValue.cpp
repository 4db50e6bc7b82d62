#include "RegLib/c/ReadValue.h"

namespace VQRegLib {

// Another process may make the value longer between two queries, again and again; each time is one more
// change of the file. A query without memory succeeds and finds nothing.
int CReadValue::read(CRegLib& session, CRegKey& key, const char* name) {
    m_more.clear();
    m_size = sizeof m_buffer;
    int result = session.VQRegQueryValue(key, name, m_type, m_buffer, &m_size);
    while (result == REGLIB_E_BUFFER_TOO_SMALL) {
        m_more.resize(m_size);
        result = session.VQRegQueryValue(key, name, m_type, m_more.data(), &m_size);
    }
    return result >= 0 && m_type == CRegLib::eNone ? REGLIB_E_FAIL : result;
}

}  // namespace VQRegLib
