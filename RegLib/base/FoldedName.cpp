#include "RegLib/base/FoldedName.h"

#include "RegLib/base/Folding.h"

namespace VQRegLib {

namespace {

constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15;  // odd, and its bits look like chance

// Where the library lies in memory is drawn anew for each process.
const char g_anchor = 0;

std::uint64_t hashAtFirst(std::string_view name) {
    return (reinterpret_cast<std::uintptr_t>(&g_anchor) + name.size()) * kFactor;
}

void addToHash(std::uint64_t& hash, std::uint64_t word) {
    hash = (hash ^ word) * kFactor;
    hash ^= hash >> 29;
}

}  // namespace

CFoldedName::CFoldedName(std::string_view name) : m_hash(hashAtFirst(name)) {
    char* folded = m_inline;
    if (name.size() + sizeof(std::uint64_t) > sizeof m_inline) {
        m_long.resize(name.size() + sizeof(std::uint64_t));
        folded = m_long.data();
    }
    m_view = std::string_view(folded, name.size());
    forEachFoldedWord(name, [&](std::uint64_t word) {
        std::memcpy(folded, &word, sizeof word);
        folded += sizeof word;
        addToHash(m_hash, word);
    });
}

std::uint64_t CFoldedName::hashOf(std::string_view name) {
    std::uint64_t hash = hashAtFirst(name);
    forEachFoldedWord(name, [&](std::uint64_t word) { addToHash(hash, word); });
    return hash;
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
