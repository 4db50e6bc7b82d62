/// The data that every contender of a comparison holds: ten numbers a key, keys three levels below
/// the top, about 40 bytes of text a value in the library's file.
#ifndef VQREG_BENCH_DATA_H
#define VQREG_BENCH_DATA_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

namespace bench {

enum class Type : std::uint32_t { eNone, eNumber, eText, eBytes };

struct Field {
    const char* name;
    Type type;
    const char* content;  // of a text, or the bytes
};

constexpr std::size_t kValuesPerKey = 10;
constexpr const char* kTop = "Velquist";

// The values of each key, in the order of the file. Their lines are 40 bytes long on average.
constexpr std::array<Field, kValuesPerKey> kFields = {{
    {"Address", Type::eText, "10.107.20.30/255.255.255.0 via 10.107.20.1"},
    {"BufferSize", Type::eNumber, nullptr},
    {"Description", Type::eText, "uplink of the second measuring cabinet, left of the door"},
    {"Enabled", Type::eNumber, nullptr},
    {"HardwareId", Type::eBytes, "\x01\x10\xA4\xC3\xF2\x0B\x7F\x11"},
    {"Interval", Type::eNumber, nullptr},
    {"MaxConnections", Type::eNumber, nullptr},
    {"Owner", Type::eText, "department of measurement, room 2.144 on duty"},
    {"Port", Type::eNumber, nullptr},
    {"TimeoutSeconds", Type::eNumber, nullptr},
}};

class Data {
public:
    explicit Data(std::size_t values)
        : m_keys((values + kValuesPerKey - 1) / kValuesPerKey), m_branches(1) {
        while (m_branches * m_branches * m_branches < m_keys) {
            ++m_branches;
        }
    }

    std::size_t keys() const { return m_keys; }
    std::size_t values() const { return m_keys * kValuesPerKey; }

    // Below the top-level key; in the order of the file.
    std::string keyPath(std::size_t key) const {
        return groupPath(key) + "/" + numbered("Unit", key % m_branches);
    }
    std::string groupPath(std::size_t key) const {
        const std::size_t part = key / m_branches;
        return numbered("Group", part / m_branches) + "/" + numbered("Part", part % m_branches);
    }
    std::string topPath(std::size_t key) const {
        return numbered("Group", key / m_branches / m_branches);
    }

    static std::size_t keyOf(std::size_t value) { return value / kValuesPerKey; }
    static const Field& fieldOf(std::size_t value) { return kFields[value % kValuesPerKey]; }
    static const char* nameOf(std::size_t value) { return fieldOf(value).name; }
    // What a number is before anybody has set it.
    static std::uint32_t numberOf(std::size_t value) { return static_cast<std::uint32_t>(value); }

private:
    static std::string numbered(const char* word, std::size_t number) {
        char text[32];
        std::snprintf(text, sizeof text, "%s%02zu", word, number);
        return text;
    }

    std::size_t m_keys;
    std::size_t m_branches;  // sub keys of a key, on each of the three levels
};

// Which values of a type a run touches, the same for every contender: drawn before the clock starts.
class Draw {
public:
    Draw(const Data& data, Type type) : m_drawn(kLength) {
        std::mt19937 random(7);
        std::uniform_int_distribution<std::size_t> any(0, data.values() - 1);
        for (std::uint32_t& drawn : m_drawn) {
            do {
                drawn = static_cast<std::uint32_t>(any(random));
            } while (Data::fieldOf(drawn).type != type);
        }
    }
    std::size_t next() { return m_drawn[m_turn++ % kLength]; }

private:
    static constexpr std::size_t kLength = 1 << 17;
    std::vector<std::uint32_t> m_drawn;
    std::size_t m_turn = 0;
};

// What a value is before anybody has set it, as bytes; a text with its end.
inline std::string contentOf(std::size_t value) {
    const Field& field = Data::fieldOf(value);
    if (field.type == Type::eNumber) {
        const std::uint32_t number = Data::numberOf(value);
        return std::string(reinterpret_cast<const char*>(&number), sizeof number);
    }
    const std::string content = field.content;
    return field.type == Type::eText ? content + '\0' : content;
}

}  // namespace bench

#endif  // VQREG_BENCH_DATA_H
