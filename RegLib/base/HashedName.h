// Names as they are looked for.
#ifndef REGLIB_BASE_HASHEDNAME_H
#define REGLIB_BASE_HASHEDNAME_H

#include <cstdint>
#include <string>
#include <string_view>

#include "RegLib/base/Folding.h"

namespace VQRegLib {

// A name, as somebody wrote it, and a hash that all its spellings have. The text is the caller's: this is
// for arguments.
class CHashedName {
public:
    CHashedName(std::string_view name) : m_text(name), m_hash(hashOf(name)) {}
    CHashedName(const std::string& name) : CHashedName(std::string_view(name)) {}
    CHashedName(const char* name) : CHashedName(std::string_view(name)) {}

    std::string_view text() const { return m_text; }

    // Differs from one process to another: what users put into a file cannot be made to collide.
    std::uint64_t hash() const { return m_hash; }

private:
    static constexpr std::uint64_t kFactor =
        0x9E3779B97F4A7C15;  // odd, and its bits look like chance

    // Where the library lies in memory is drawn anew for each process.
    static const char m_anchor;

    static std::uint64_t hashOf(std::string_view name) {
        std::uint64_t hash = (reinterpret_cast<std::uintptr_t>(&m_anchor) + name.size()) * kFactor;
        forEachFoldedWord(name, [&](std::uint64_t word) {
            hash = (hash ^ word) * kFactor;
            hash ^= hash >> 29;
        });
        return hash;
    }

    std::string_view m_text;
    std::uint64_t m_hash;
};

}  // namespace VQRegLib

#endif  // REGLIB_BASE_HASHEDNAME_H
