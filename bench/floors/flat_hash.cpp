// F0, the floor of a query: a session lock of one word with its owner, one load of the shared stamp,
// one flat hash table of folded names, values decoded once. Nothing here has an order or a text: it
// cannot be faster, and a store cannot be this little.
#include <bit>
#include <cstring>
#include <deque>
#include <mutex>

#include "floors/SessionLock.h"
#include "support/Contest.h"

namespace {

using bench::Data;
using bench::Type;

constexpr std::uint64_t kOnes = 0x0101010101010101u;
constexpr std::uint64_t kHighs = kOnes * 0x80;

// Up to 32 letters, in lower case.
struct Folded {
    std::uint64_t words[4] = {};

    bool operator==(const Folded& other) const {
        std::uint64_t difference = 0;
        for (int i = 0; i < 4; ++i) {
            difference |= words[i] ^ other.words[i];
        }
        return difference == 0;
    }
};

// Eight letters at once: A to Z get the bit that makes them small.
std::uint64_t foldEight(std::uint64_t letters) {
    const std::uint64_t low = letters & ~kHighs;
    const std::uint64_t fromA = low + kOnes * (0x80 - 'A');
    const std::uint64_t aboveZ = low + kOnes * (0x7F - 'Z');
    const std::uint64_t upper = fromA & ~aboveZ & ~letters & kHighs;
    return letters | (upper >> 2);
}

// The next letters of a text, zeros behind its end; never from a page that the text does not reach.
std::uint64_t loadEight(const char* text) {
    std::uint64_t letters = 0;
    if ((reinterpret_cast<std::uintptr_t>(text) & 4095) <= 4096 - sizeof letters) {
        std::memcpy(&letters, text, sizeof letters);
        const std::uint64_t ends = (letters - kOnes) & ~letters & kHighs;
        // All below the lowest bit that is set, which is that of the first zero.
        return ends == 0 ? letters : letters & ((ends ^ (ends - 1)) >> 8);
    }
    std::memcpy(&letters, text, strnlen(text, sizeof letters));
    return letters;
}

Folded fold(const char* name) {
    Folded folded;
    for (std::size_t i = 0; i < 4; ++i) {
        const std::uint64_t letters = loadEight(name + 8 * i);
        folded.words[i] = foldEight(letters);
        if (letters >> 56 == 0) {
            return folded;
        }
    }
    bench::require(name[32] == 0, "a name is too long");
    return folded;
}

struct alignas(64) Slot {
    Folded name;
    std::uint32_t key = 0;
    Type type = Type::eNone;
    std::uint32_t size = 0;
    std::array<char, 8> data = {};      // of a number, or of few bytes
    const std::string* text = nullptr;  // anything longer
};
static_assert(sizeof(Slot) == 64, "a cache line");

class FlatHash {
public:
    static void make(const Data&, const std::string&) {}

    FlatHash(const Data& data, const std::string& directory)
        : m_stamp(directory), m_slots(std::bit_ceil(data.values() * 3 / 2 + 48)) {
        for (std::size_t value = 0; value < data.values(); ++value) {
            add(value);
        }
    }

    void openKeys() {}

    std::uint32_t query(std::size_t value) {
        std::uint32_t number = 0;
        copy(value, &number, sizeof number);
        return number;
    }

    std::size_t copy(std::size_t value, void* buffer, std::size_t room) {
        return copy(Data::keyOf(value), Data::nameOf(value), buffer, room);
    }

private:
    __attribute__((noinline)) std::size_t copy(std::size_t key, const char* name, void* buffer,
                                               std::size_t room) {
        const std::lock_guard guard(m_lock);
        bench::require(m_stamp.isMine(), "the floor cannot read changes");
        const Slot& slot = find(static_cast<std::uint32_t>(key), fold(name));
        bench::require(slot.type != Type::eNone && slot.size <= room, "no such value");
        if (slot.type == Type::eNumber) {
            std::memcpy(buffer, slot.data.data(), sizeof(std::uint32_t));
        } else {
            std::memcpy(buffer, slot.text ? slot.text->data() : slot.data.data(), slot.size);
        }
        return slot.size;
    }

    // The slot of the value, or the free one where it would be.
    Slot& find(std::uint32_t key, const Folded& name) {
        // Four products that do not wait for each other.
        const auto& words = name.words;
        std::uint64_t hash = (words[0] ^ key) * 0x9E3779B97F4A7C15u +
                             words[1] * 0xD6E8FEB86659FD93u + words[2] * 0xA0761D6478BD642Fu +
                             words[3] * 0xE7037ED1A0B428DBu;
        hash ^= hash >> 32;
        hash *= 0x8EBC6AF09C88C6E3u;
        hash ^= hash >> 29;
        for (std::size_t at = hash;; ++at) {
            Slot& slot = m_slots[at & (m_slots.size() - 1)];
            const bool same = slot.key == key && slot.name == name;
            if (same || slot.type == Type::eNone) {
                return slot;
            }
        }
    }

    void add(std::size_t value) {
        const std::string content = bench::contentOf(value);
        const Folded name = fold(Data::nameOf(value));
        Slot& slot = find(static_cast<std::uint32_t>(Data::keyOf(value)), name);
        slot.name = name;
        slot.key = static_cast<std::uint32_t>(Data::keyOf(value));
        slot.type = Data::fieldOf(value).type;
        slot.size = static_cast<std::uint32_t>(content.size());
        if (content.size() <= slot.data.size()) {
            std::memcpy(slot.data.data(), content.data(), content.size());
        } else {
            slot.text = &m_texts.emplace_back(content);
        }
    }

    bench::SessionLock m_lock;
    bench::Stamp m_stamp;
    std::vector<Slot> m_slots;
    std::deque<std::string> m_texts;
};

}  // namespace

int main(int count, char** arguments) {
    return bench::contend<FlatHash>(count, arguments);
}
