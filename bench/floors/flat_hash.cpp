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

// Up to 32 letters, in lower case.
struct Folded {
    std::uint64_t words[4] = {};
};

// Eight letters at once: A to Z get the bit that makes them small.
std::uint64_t foldEight(std::uint64_t letters) {
    constexpr std::uint64_t kOnes = 0x0101010101010101u;
    const std::uint64_t low = letters & (kOnes * 0x7F);
    const std::uint64_t fromA = low + kOnes * (0x80 - 'A');
    const std::uint64_t aboveZ = low + kOnes * (0x7F - 'Z');
    const std::uint64_t upper = fromA & ~aboveZ & ~letters & (kOnes * 0x80);
    return letters | (upper >> 2);
}

Folded fold(const char* name) {
    Folded folded;
    const std::size_t length = std::strlen(name);
    bench::require(length <= sizeof folded, "a name is too long");
    std::memcpy(folded.words, name, length);
    for (std::uint64_t& word : folded.words) {
        word = foldEight(word);
    }
    return folded;
}

struct alignas(64) Slot {
    Folded name;
    std::uint32_t key = 0;
    Type type = Type::eNone;
    std::uint32_t size = 0;
    std::array<unsigned char, 8> data = {};  // of a number, or of few bytes
    const std::string* text = nullptr;       // anything longer
};
static_assert(sizeof(Slot) == 64, "a cache line");

class FlatHash {
public:
    static void make(const Data&, const std::string&) {}

    FlatHash(const Data& data, const std::string& directory)
        : m_stamp(directory), m_slots(std::bit_ceil(data.values() * 3 / 2)) {
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
        std::memcpy(buffer,
                    slot.text ? static_cast<const void*>(slot.text->data()) : slot.data.data(),
                    slot.size);
        return slot.size;
    }

    // The slot of the value, or the free one where it would be.
    Slot& find(std::uint32_t key, const Folded& name) {
        std::uint64_t hash = key * 0x9E3779B97F4A7C15u;
        for (const std::uint64_t word : name.words) {
            hash = (hash ^ word) * 0xD6E8FEB86659FD93u;
            hash ^= hash >> 32;
        }
        for (std::size_t at = hash;; ++at) {
            Slot& slot = m_slots[at & (m_slots.size() - 1)];
            const bool same = slot.key == key && std::memcmp(&slot.name, &name, sizeof name) == 0;
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
