#include "RegLib/base/HashedName.h"

namespace VQRegLib {

const char CHashedName::m_anchor = 0;

std::size_t CHashedName::addAllButTheEnd() {
    std::size_t at = 0;
    for (; m_text.size() - at > kTwoWords; at += kTwoWords) {
        add(loadTwoWords(m_text.data() + at, kTwoWords));
    }
    return at;
}

}  // namespace VQRegLib
