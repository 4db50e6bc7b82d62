// The library itself, through its public header.
#include <VQRegLib.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "support/Contest.h"

namespace {

using bench::Data;
using bench::require;
using VQRegLib::CRegKey;
using VQRegLib::CRegLib;

std::string storePath(const std::string& directory) {
    return directory + "/ours.cfg";
}

// One key with as many values as the store has.
std::string bigStorePath(const std::string& directory) {
    return directory + "/big.cfg";
}

std::string bigName(std::size_t value) {
    char name[64];
    std::snprintf(name, sizeof name, "PositionOfEntry%07zu", value);
    return name;
}

struct Session {
    explicit Session(const std::string& path)
        : session(path.c_str(), nullptr, CRegLib::eLocationDefault, nullptr) {
        require(session.RootKey() != nullptr, "the store cannot be opened");
    }
    CRegLib session;
};

class Ours {
public:
    static void make(const Data& data, const std::string& directory) {
        bench::writeFile(storePath(directory), bench::configText(data));
        std::string text = std::string("[") + bench::kTop + "]\n";
        for (std::size_t value = 0; value < data.values(); ++value) {
            text += bench::numberLine(bigName(value).c_str(), Data::numberOf(value));
        }
        bench::writeFile(bigStorePath(directory), text);
    }

    Ours(const Data& data, const std::string& directory)
        : m_data(data),
          m_directory(directory),
          m_session(storePath(directory).c_str(), nullptr, CRegLib::eLocationDefault, nullptr) {}

    void openKeys() {
        m_keys = std::make_unique<CRegKey[]>(m_data.keys());
        for (std::size_t key = 0; key < m_data.keys(); ++key) {
            check(m_session.VQRegCreateKey(nullptr, m_data.keyPath(key).c_str(), m_keys[key], 0));
        }
    }

    std::uint32_t first() {
        CRegKey key;
        check(m_session.VQRegCreateKey(nullptr, m_data.keyPath(m_data.keys() / 2).c_str(), key, 0));
        return number(key, "Port");
    }

    std::uint32_t query(std::size_t value) {
        return number(m_keys[Data::keyOf(value)], Data::nameOf(value));
    }

    std::size_t copy(std::size_t value, void* buffer, std::size_t room) {
        unsigned long size = room;
        CRegLib::eDataType type = CRegLib::eNone;
        check(m_session.VQRegQueryValue(m_keys[Data::keyOf(value)], Data::nameOf(value), type,
                                        static_cast<unsigned char*>(buffer), &size));
        return size;
    }

    void set(std::size_t value, std::uint32_t number) {
        check(m_session.VQRegSetValue(m_keys[Data::keyOf(value)], Data::nameOf(value),
                                      static_cast<unsigned long>(number)));
    }

    std::size_t enumerate(std::size_t key) { return enumerateAll(m_session, m_keys[key]); }

    double special(const std::string& workload, long count) {
        if (workload.rfind("open", 0) == 0) {
            return openAndClose(std::stoul(workload.substr(4)), count);
        }
        if (workload.rfind("big", 0) == 0) {
            return big(workload, count);
        }
        if (workload == "number" || workload == "string") {
            return byHand(workload, count);
        }
        if (workload == "update") {
            return bench::timed(count, [&] { update(); });
        }
        if (workload == "session") {
            // Another spelling is another store of this process, on the same file.
            const std::string path = storePath(m_directory + "/.");
            return bench::timed(count, [&] { const Session session(path); });
        }
        if (workload == "join") {
            const std::string path = storePath(m_directory);
            return bench::timed(count, [&] { const Session session(path); });
        }
        return -1;
    }

private:
    static void check(int result) { require(result >= 0, "an operation has failed"); }

    std::uint32_t number(CRegKey& key, const char* name) {
        std::uint32_t number = 0;
        unsigned char buffer[sizeof number];
        unsigned long size = sizeof buffer;
        CRegLib::eDataType type = CRegLib::eNone;
        check(m_session.VQRegQueryValue(key, name, type, buffer, &size));
        std::memcpy(&number, buffer, sizeof number);
        return number;
    }

    // What VQRegStore.h does, in a program that does without.
    double byHand(const std::string& workload, long count) {
        // Not before somebody asks: to draw takes longer than to load a small store.
        if (!m_numbers) {
            m_numbers.emplace(m_data, bench::Type::eNumber);
            m_texts.emplace(m_data, bench::Type::eText);
        }
        std::size_t sum = 0;
        const double each =
            workload == "number"
                ? bench::timed(count, [&] { sum += ownNumber(m_numbers->next()) + 1; })
                : bench::timed(count, [&] { sum += ownText(m_texts->next()).size(); });
        require(sum > 0, "the answers are empty");
        return each;
    }

    std::uint32_t ownNumber(std::size_t value) {
        std::uint32_t number = 0;
        unsigned char buffer[sizeof number];
        require(read(value, buffer, sizeof buffer) == CRegLib::eDword, "a number has another type");
        std::memcpy(&number, buffer, sizeof number);
        return number;
    }

    std::string ownText(std::size_t value) {
        unsigned char buffer[256];
        require(read(value, buffer, sizeof buffer) == CRegLib::eString, "a text has another type");
        return reinterpret_cast<const char*>(buffer);
    }

    CRegLib::eDataType read(std::size_t value, unsigned char* buffer, unsigned long size) {
        CRegLib::eDataType type = CRegLib::eNone;
        check(m_session.VQRegQueryValue(m_keys[Data::keyOf(value)], Data::nameOf(value), type,
                                        buffer, &size));
        return type;
    }

    std::size_t enumerateAll(CRegLib& session, CRegKey& key) {
        CRegLib::eDataType type = CRegLib::eNone;
        int index = 0;
        while (session.VQRegEnumValues(key, index, m_name, type) >= 0) {
            ++index;
        }
        return static_cast<std::size_t>(index);
    }

    double openAndClose(std::size_t levels, long count) {
        std::string path = "Level1";
        for (std::size_t level = 2; level <= levels; ++level) {
            path += "/Level" + std::to_string(level);
        }
        {
            CRegKey key;
            check(m_session.VQRegCreateKey(nullptr, path.c_str(), key, 1));
        }
        return bench::timed(count, [&] {
            CRegKey key;
            check(m_session.VQRegCreateKey(nullptr, path.c_str(), key, 0));
        });
    }

    // Every value once, in the order of a draw.
    void update() {
        check(m_session.VQRegBeginUpdate());
        if (m_order.empty()) {
            for (std::size_t value = 0; value < m_data.values(); ++value) {
                m_order.push_back(value);
            }
            std::shuffle(m_order.begin(), m_order.end(), std::mt19937(11));
        }
        ++m_number;
        for (const std::size_t value : m_order) {
            set(value, m_number);
        }
        check(m_session.VQRegEndUpdate());
    }

    double big(const std::string& workload, long count) {
        if (!m_big) {
            m_big = std::make_unique<Session>(bigStorePath(m_directory));
            m_bigDraw = std::make_unique<bench::Draw>(m_data, bench::Type::eNumber);
            for (std::size_t value = 0; value < m_data.values(); ++value) {
                m_bigNames.push_back(bigName(value));
            }
        }
        CRegLib& session = m_big->session;
        CRegKey& key = *session.RootKey();
        if (workload == "bigenumerate") {
            return bench::timed(count, [&] { enumerateAll(session, key); });
        }
        const bool inUpdate = workload == "bigmany";  // without the writing
        require(inUpdate || workload == "bigset", "an unknown workload");
        if (inUpdate) {
            count = std::max(count, 1000L);  // the first ones find nothing in the cache
        }
        check(inUpdate ? session.VQRegBeginUpdate() : 0);
        const double each = bench::timed(count, [&] {
            const std::string& name = m_bigNames[m_bigDraw->next()];
            check(session.VQRegSetValue(key, name.c_str(), static_cast<unsigned long>(++m_number)));
        });
        check(inUpdate ? session.VQRegEndUpdate() : 0);
        return each;
    }

    const Data& m_data;
    std::string m_directory;
    CRegLib m_session;
    std::unique_ptr<CRegKey[]> m_keys;
    std::optional<bench::Draw> m_numbers;
    std::optional<bench::Draw> m_texts;
    std::string m_name;
    std::vector<std::size_t> m_order;
    std::unique_ptr<Session> m_big;
    std::unique_ptr<bench::Draw> m_bigDraw;
    std::vector<std::string> m_bigNames;
    std::uint32_t m_number = static_cast<std::uint32_t>(bench::now() >> 16);
};

}  // namespace

int main(int count, char** arguments) {
    return bench::contend<Ours>(count, arguments);
}
