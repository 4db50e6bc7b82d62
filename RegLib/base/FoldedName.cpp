#include "RegLib/base/FoldedName.h"

namespace VQRegLib {

const char CFoldedName::m_anchor = 0;

CFoldedName::CFoldedName(std::string_view name) : m_hash(hashAtFirst(name)) {
    char* folded = m_inline;
    if (name.size() + sizeof(std::uint64_t) > sizeof m_inline) {
        m_long.resize(name.size() + sizeof(std::uint64_t));
        folded = m_long.data();
    }
    m_view = std::string_view(folded, name.size());
    forEachFoldedWord(name, [&](std::uint64_t word, std::size_t place) {
        std::memcpy(folded + place, &word, sizeof word);
        addToHash(m_hash, word);
    });
}

int compareFolded(std::string_view name, std::string_view other) {
    const std::size_t common = name.size() < other.size() ? name.size() : other.size();
    std::size_t at = 0;
    while (at + 8 <= common) {
        const std::uint64_t one = foldedWord(loadWord<std::uint64_t>(name.data() + at));
        const std::uint64_t two = foldedWord(loadWord<std::uint64_t>(other.data() + at));
        if (one != two) {
            return __builtin_bswap64(one) < __builtin_bswap64(two) ? -1 : 1;
        }
        at += 8;
    }
    const std::uint64_t one = foldedWord(loadTail(name.data() + at, common - at));
    const std::uint64_t two = foldedWord(loadTail(other.data() + at, common - at));
    if (one != two) {
        return __builtin_bswap64(one) < __builtin_bswap64(two) ? -1 : 1;
    }
    return name.size() == other.size() ? 0 : name.size() < other.size() ? -1 : 1;
}

}  // namespace VQRegLib
