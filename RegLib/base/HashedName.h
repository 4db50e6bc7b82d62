// Names as they are looked for.
#ifndef REGLIB_BASE_HASHEDNAME_H
#define REGLIB_BASE_HASHEDNAME_H

#include <bit>
#include <cstdint>
#include <string>
#include <string_view>

#include "RegLib/base/Folding.h"

namespace VQRegLib {

// The halves of the product, one over the other.
inline std::uint64_t foldedProduct(std::uint64_t one, std::uint64_t other) {
#ifdef __SIZEOF_INT128__
    __extension__ using CProduct = unsigned __int128;
    const CProduct product = CProduct{one} * other;
    return static_cast<std::uint64_t>(product >> 64) ^ static_cast<std::uint64_t>(product);
#else
    // By its four parts: nobody compares it with that of another kind of machine.
    const std::uint64_t low = one & 0xFFFFFFFF;
    const std::uint64_t otherLow = other & 0xFFFFFFFF;
    return (low * otherLow ^ (one >> 32) * (other >> 32)) +
           std::rotl(low * (other >> 32) ^ (one >> 32) * otherLow, 32);
#endif
}

// A name, as somebody wrote it, and a hash that all its spellings have. The text is the caller's: this is
// for arguments.
class CHashedName {
public:
    [[gnu::always_inline]] CHashedName(std::string_view name)
        : m_text(name), m_hash((origin() + name.size()) * kFactor) {
        if (name.size() > kTwoWords) [[unlikely]] {
            m_hash = hashBeforeEnd(name, m_hash);
            name.remove_prefix(sizeBeforeEnd(name));
        }
        m_end = loadTwoWords(name.data(), name.size());
        m_hash = withWords(m_hash, m_end);
    }
    CHashedName(const std::string& name) : CHashedName(std::string_view(name)) {}
    CHashedName(const char* name) : CHashedName(std::string_view(name)) {}

    std::string_view text() const { return m_text; }

    // Differs from one process to another: what users put into a file cannot be made to collide.
    std::uint64_t hash() const { return m_hash; }

    // Whether the other name is this one once both are folded.
    bool isSame(std::string_view other) const {
        return (m_text.size() <= kTwoWords && isEqual(other)) || isSameName(m_text, other);
    }

    // The same of a short name without folding: most names are asked for as they were created.
    bool isEqual(std::string_view other) const {
        if (m_text.size() != other.size()) {
            return false;
        }
        const CTwoWords words = loadTwoWords(other.data(), other.size());
        return ((words.first ^ m_end.first) | (words.last ^ m_end.last)) == 0;
    }

private:
    // Odd, and their bits look like chance.
    static constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15;
    static constexpr std::uint64_t kSecret = 0xD6E8FEB86659FD93;

    // Where the library lies in memory is drawn anew for each process.
    static const char m_anchor;
    static std::uint64_t origin() { return reinterpret_cast<std::uintptr_t>(&m_anchor); }

    // A product of two factors of which neither is known outside: no pair of words makes up for what
    // another pair has changed.
    static std::uint64_t withWords(std::uint64_t hash, const CTwoWords& words) {
        const CTwoWords small = folded(words);
        return foldedProduct(small.first ^ kSecret ^ origin(), small.last ^ hash);
    }

    // Of a long name: all before its last words. A function of its arguments alone, so that short names
    // need not be in memory as objects.
    static std::size_t sizeBeforeEnd(std::string_view name) {
        return (name.size() - 1) / kTwoWords * kTwoWords;
    }
    static std::uint64_t hashBeforeEnd(std::string_view name, std::uint64_t hash);

    std::string_view m_text;
    CTwoWords m_end;  // of the text, or all of it
    std::uint64_t m_hash;
};

}  // namespace VQRegLib

#endif  // REGLIB_BASE_HASHEDNAME_H
