// The form in which names are compared.
#ifndef REGLIB_BASE_FOLDEDNAME_H
#define REGLIB_BASE_FOLDEDNAME_H

#include <cstdint>
#include <string>
#include <string_view>

#include "RegLib/base/Folding.h"

namespace VQRegLib {

// A name in lower case, and a hash of that. Names of usual length take no allocation: look-ups make
// one of these each.
class CFoldedName {
public:
    explicit CFoldedName(std::string_view name);
    CFoldedName(const CFoldedName&) = delete;
    CFoldedName& operator=(const CFoldedName&) = delete;

    std::string_view view() const { return m_view; }

    // Differs from one process to another: what users put into a file cannot be made to collide.
    std::uint64_t hash() const { return m_hash; }
    static std::uint64_t hashOf(std::string_view name) {
        std::uint64_t hash = hashAtFirst(name);
        forEachFoldedWord(name, [&](std::uint64_t word, std::size_t) { addToHash(hash, word); });
        return hash;
    }

private:
    static constexpr std::uint64_t kFactor =
        0x9E3779B97F4A7C15;  // odd, and its bits look like chance

    // Where the library lies in memory is drawn anew for each process.
    static const char m_anchor;

    static std::uint64_t hashAtFirst(std::string_view name) {
        return (reinterpret_cast<std::uintptr_t>(&m_anchor) + name.size()) * kFactor;
    }
    static void addToHash(std::uint64_t& hash, std::uint64_t word) {
        hash = (hash ^ word) * kFactor;
        hash ^= hash >> 29;
    }

    char m_inline[256 + 8];  // folding writes eight bytes at a time
    std::string m_long;
    std::string_view m_view;
    std::uint64_t m_hash;
};

}  // namespace VQRegLib

#endif  // REGLIB_BASE_FOLDEDNAME_H
