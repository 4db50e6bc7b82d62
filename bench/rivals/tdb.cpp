// TDB: one hash of all records, locked by the kernel for each access, no flush. It has no order, so
// nothing is enumerated.
#include <fcntl.h>
#include <sys/types.h>

#include <cstring>

extern "C" {
#include <tdb.h>
}

#include "support/Contest.h"

namespace {

using bench::Data;

// The number of the library's key and the folded name, composed in place.
class RecordKey {
public:
    RecordKey(std::size_t key, const char* name) {
        const auto number = static_cast<std::uint32_t>(key);
        std::memcpy(m_bytes, &number, sizeof number);
        m_length = sizeof number;
        for (; *name != 0; ++name) {
            m_bytes[m_length++] =
                static_cast<unsigned char>(*name >= 'A' && *name <= 'Z' ? *name + 32 : *name);
        }
    }
    TDB_DATA get() { return {m_bytes, m_length}; }

private:
    unsigned char m_bytes[64];
    std::size_t m_length;
};

class Tdb {
public:
    static void make(const Data& data, const std::string& directory) {
        Tdb store(data, directory);
        for (std::size_t value = 0; value < data.values(); ++value) {
            const std::string content = bench::contentOf(value);
            store.put(value, content.data(), content.size());
        }
    }

    Tdb(const Data& data, const std::string& directory)
        : m_data(data),
          // As many chains as records, so that it is as fast as it can be.
          m_base(tdb_open((directory + "/records.tdb").c_str(), static_cast<int>(data.values()),
                          TDB_NOSYNC, O_RDWR | O_CREAT, 0600)) {
        bench::require(m_base != nullptr, "the base cannot be opened");
    }
    ~Tdb() { tdb_close(m_base); }
    Tdb(const Tdb&) = delete;
    Tdb& operator=(const Tdb&) = delete;

    void openKeys() {}

    std::uint32_t first() { return query(m_data.keys() / 2 * bench::kValuesPerKey + 1); }

    std::uint32_t query(std::size_t value) {
        std::uint32_t number = 0;
        copy(value, &number, sizeof number);
        return number;
    }

    // Straight out of the base, without the copy that tdb_fetch allocates.
    std::size_t copy(std::size_t value, void* buffer, std::size_t room) {
        struct Target {
            void* buffer;
            std::size_t room;
            std::size_t size;
        } target = {buffer, room, 0};
        const auto take = [](TDB_DATA, TDB_DATA data, void* context) {
            auto* const to = static_cast<Target*>(context);
            to->size = data.dsize;
            if (data.dsize > to->room) {
                return -1;
            }
            std::memcpy(to->buffer, data.dptr, data.dsize);
            return 0;
        };
        RecordKey record(Data::keyOf(value), Data::nameOf(value));
        bench::require(tdb_parse_record(m_base, record.get(), take, &target) == 0, "no such value");
        return target.size;
    }

    void set(std::size_t value, std::uint32_t number) { put(value, &number, sizeof number); }

private:
    void put(std::size_t value, const void* data, std::size_t size) {
        RecordKey record(Data::keyOf(value), Data::nameOf(value));
        const TDB_DATA content = {static_cast<unsigned char*>(const_cast<void*>(data)), size};
        bench::require(tdb_store(m_base, record.get(), content, TDB_REPLACE) == 0, "not stored");
    }

    const Data& m_data;
    tdb_context* m_base;
};

}  // namespace

int main(int count, char** arguments) {
    return bench::contend<Tdb>(count, arguments);
}
