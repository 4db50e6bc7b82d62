#include "RegLib/base/HashedName.h"

namespace VQRegLib {

const char CHashedName::m_anchor = 0;

std::uint64_t CHashedName::hashBeforeEnd(std::string_view name, std::uint64_t hash) {
    const std::size_t size = sizeBeforeEnd(name);
    for (std::size_t at = 0; at < size; at += kTwoWords) {
        hash = withWords(hash, loadTwoWords(name.data() + at, kTwoWords));
    }
    return hash;
}

}  // namespace VQRegLib
