// LMDB: a read transaction a query, no flush to the disk. The key of a record is the number of the
// library's key in big-endian bytes and the folded name; a handle is that number.
#include <lmdb.h>

#include <cstring>
#include <filesystem>

#include "support/Contest.h"

namespace {

using bench::Data;

void check(int result) {
    if (result != MDB_SUCCESS) [[unlikely]] {
        throw std::runtime_error(mdb_strerror(result));
    }
}

// The key of a record, composed in place.
class RecordKey {
public:
    RecordKey(std::size_t key, const char* name) {
        for (int i = 0; i < 4; ++i) {
            m_bytes[i] = static_cast<char>(key >> (24 - 8 * i));
        }
        std::size_t length = 4;
        for (; *name != 0; ++name) {
            m_bytes[length++] =
                *name >= 'A' && *name <= 'Z' ? static_cast<char>(*name + 32) : *name;
        }
        m_value = {length, m_bytes};
    }
    RecordKey(const RecordKey&) = delete;
    RecordKey& operator=(const RecordKey&) = delete;
    MDB_val* get() { return &m_value; }

private:
    char m_bytes[64];
    MDB_val m_value = {};
};

class Lmdb {
public:
    static void make(const Data& data, const std::string& directory) {
        std::filesystem::create_directory(directory + "/lmdb");
        Lmdb store(data, directory);
        MDB_txn* change = nullptr;
        check(mdb_txn_begin(store.m_environment, nullptr, 0, &change));
        for (std::size_t value = 0; value < data.values(); ++value) {
            const std::string content = bench::contentOf(value);
            store.put(change, Data::keyOf(value), Data::nameOf(value), content.data(),
                      content.size());
        }
        check(mdb_txn_commit(change));
        store.pad();
    }

    Lmdb(const Data& data, const std::string& directory) : m_data(data) {
        check(mdb_env_create(&m_environment));
        check(mdb_env_set_mapsize(m_environment, std::size_t{1} << 30));
        check(mdb_env_open(m_environment, (directory + "/lmdb").c_str(), MDB_NOSYNC, 0644));
        MDB_txn* reading = nullptr;
        check(mdb_txn_begin(m_environment, nullptr, 0, &reading));
        check(mdb_dbi_open(reading, nullptr, 0, &m_records));
        check(mdb_txn_commit(reading));
        check(mdb_txn_begin(m_environment, nullptr, MDB_RDONLY, &m_reading));
        check(mdb_cursor_open(m_reading, m_records, &m_cursor));
        mdb_txn_reset(m_reading);
    }
    ~Lmdb() {
        mdb_cursor_close(m_cursor);
        mdb_txn_abort(m_reading);
        mdb_env_close(m_environment);
    }
    Lmdb(const Lmdb&) = delete;
    Lmdb& operator=(const Lmdb&) = delete;

    void openKeys() {}

    std::uint32_t first() { return query(m_data.keys() / 2 * bench::kValuesPerKey + 1); }

    std::uint32_t query(std::size_t value) {
        std::uint32_t number = 0;
        copy(value, &number, sizeof number);
        return number;
    }

    __attribute__((noinline)) std::size_t copy(std::size_t value, void* buffer, std::size_t room) {
        check(mdb_txn_renew(m_reading));
        RecordKey record(Data::keyOf(value), Data::nameOf(value));
        MDB_val data = {};
        check(mdb_get(m_reading, m_records, record.get(), &data));
        bench::require(data.mv_size <= room, "a value is too large");
        std::memcpy(buffer, data.mv_data, data.mv_size);
        mdb_txn_reset(m_reading);
        return data.mv_size;
    }

    void set(std::size_t value, std::uint32_t number) {
        MDB_txn* change = nullptr;
        check(mdb_txn_begin(m_environment, nullptr, 0, &change));
        put(change, Data::keyOf(value), Data::nameOf(value), &number, sizeof number);
        check(mdb_txn_commit(change));
    }

    std::size_t enumerate(std::size_t key) {
        check(mdb_txn_renew(m_reading));
        check(mdb_cursor_renew(m_reading, m_cursor));
        RecordKey from(key, "");
        MDB_val at = *from.get();
        MDB_val data = {};
        std::size_t count = 0;
        int result = mdb_cursor_get(m_cursor, &at, &data, MDB_SET_RANGE);
        while (result == MDB_SUCCESS && std::memcmp(at.mv_data, from.get()->mv_data, 4) == 0) {
            m_name.assign(static_cast<const char*>(at.mv_data) + 4, at.mv_size - 4);
            ++count;
            result = mdb_cursor_get(m_cursor, &at, &data, MDB_NEXT);
        }
        mdb_txn_reset(m_reading);
        return count;
    }

private:
    // Leaves free pages at the end of the file. Where a page of records is the last one, memcmp looks
    // with its wide instructions beyond what is mapped, and a query takes three times as long: by
    // chance, and no fault of LMDB's.
    void pad() {
        const std::vector<char> filling(1 << 16);
        RecordKey record(m_data.keys(), "filling");
        MDB_txn* change = nullptr;
        check(mdb_txn_begin(m_environment, nullptr, 0, &change));
        put(change, m_data.keys(), "filling", filling.data(), filling.size());
        check(mdb_txn_commit(change));
        check(mdb_txn_begin(m_environment, nullptr, 0, &change));
        check(mdb_del(change, m_records, record.get(), nullptr));
        check(mdb_txn_commit(change));
    }

    void put(MDB_txn* change, std::size_t key, const char* name, const void* data,
             std::size_t size) {
        RecordKey record(key, name);
        MDB_val content = {size, const_cast<void*>(data)};
        check(mdb_put(change, m_records, record.get(), &content, 0));
    }

    const Data& m_data;
    MDB_env* m_environment = nullptr;
    MDB_dbi m_records = 0;
    MDB_txn* m_reading = nullptr;
    MDB_cursor* m_cursor = nullptr;
    std::string m_name;
};

}  // namespace

int main(int count, char** arguments) {
    return bench::contend<Lmdb>(count, arguments);
}
