#include "RegLib/base/FoldedName.h"

#include <algorithm>

#include "portable/Portable.h"

namespace VQRegLib {

CFoldedName::CFoldedName(std::string_view name) {
    char* folded = m_inline;
    if (name.size() > sizeof m_inline) {
        m_long.resize(name.size());
        folded = m_long.data();
    }
    std::transform(name.begin(), name.end(), folded, CPortable::foldedChar);
    m_view = std::string_view(folded, name.size());
}

}  // namespace VQRegLib
