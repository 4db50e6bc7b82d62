// SQLite: write-ahead log, no flush, one table whose key is the number of the library's key and the
// name, prepared statements.
#include <sqlite3.h>

#include <cstring>

#include "support/Contest.h"

namespace {

using bench::Data;

class Sqlite {
public:
    static void make(const Data& data, const std::string& directory) {
        Sqlite store(data, directory, true);
        store.run("BEGIN");
        for (std::size_t value = 0; value < data.values(); ++value) {
            const std::string content = bench::contentOf(value);
            store.put(value, content.data(), content.size());
        }
        store.run("COMMIT");
    }

    Sqlite(const Data& data, const std::string& directory) : Sqlite(data, directory, false) {}
    ~Sqlite() {
        for (sqlite3_stmt* statement : {m_find, m_put, m_list}) {
            sqlite3_finalize(statement);
        }
        sqlite3_close(m_base);
    }
    Sqlite(const Sqlite&) = delete;
    Sqlite& operator=(const Sqlite&) = delete;

    void openKeys() {}

    std::uint32_t first() { return query(m_data.keys() / 2 * bench::kValuesPerKey + 1); }

    std::uint32_t query(std::size_t value) {
        std::uint32_t number = 0;
        copy(value, &number, sizeof number);
        return number;
    }

    std::size_t copy(std::size_t value, void* buffer, std::size_t room) {
        bind(m_find, value);
        check(sqlite3_step(m_find) == SQLITE_ROW);
        const auto size = static_cast<std::size_t>(sqlite3_column_bytes(m_find, 0));
        bench::require(size <= room, "a value is too large");
        std::memcpy(buffer, sqlite3_column_blob(m_find, 0), size);
        check(sqlite3_reset(m_find) == SQLITE_OK);
        return size;
    }

    void set(std::size_t value, std::uint32_t number) { put(value, &number, sizeof number); }

    std::size_t enumerate(std::size_t key) {
        check(sqlite3_bind_int64(m_list, 1, static_cast<sqlite3_int64>(key)) == SQLITE_OK);
        std::size_t count = 0;
        for (; sqlite3_step(m_list) == SQLITE_ROW; ++count) {
            m_name = reinterpret_cast<const char*>(sqlite3_column_text(m_list, 0));
        }
        check(sqlite3_reset(m_list) == SQLITE_OK);
        return count;
    }

private:
    Sqlite(const Data& data, const std::string& directory, bool make) : m_data(data) {
        check(sqlite3_open((directory + "/sqlite.db").c_str(), &m_base) == SQLITE_OK);
        check(sqlite3_busy_timeout(m_base, 10'000) == SQLITE_OK);
        run("PRAGMA journal_mode=WAL");
        run("PRAGMA synchronous=OFF");
        if (make) {
            run("CREATE TABLE records(key INTEGER, name TEXT COLLATE NOCASE, data BLOB, "
                "PRIMARY KEY(key, name)) WITHOUT ROWID");
        }
        m_find = prepared("SELECT data FROM records WHERE key=?1 AND name=?2");
        m_put = prepared("INSERT OR REPLACE INTO records VALUES(?1, ?2, ?3)");
        m_list = prepared("SELECT name FROM records WHERE key=?1 ORDER BY name");
    }

    void check(bool good) const {
        if (!good) [[unlikely]] {
            throw std::runtime_error(sqlite3_errmsg(m_base));
        }
    }

    void run(const char* statement) {
        check(sqlite3_exec(m_base, statement, nullptr, nullptr, nullptr) == SQLITE_OK);
    }

    sqlite3_stmt* prepared(const char* text) {
        sqlite3_stmt* statement = nullptr;
        check(sqlite3_prepare_v3(m_base, text, -1, SQLITE_PREPARE_PERSISTENT, &statement,
                                 nullptr) == SQLITE_OK);
        return statement;
    }

    void bind(sqlite3_stmt* statement, std::size_t value) {
        const auto key = static_cast<sqlite3_int64>(Data::keyOf(value));
        check(sqlite3_bind_int64(statement, 1, key) == SQLITE_OK);
        check(sqlite3_bind_text(statement, 2, Data::nameOf(value), -1, SQLITE_STATIC) == SQLITE_OK);
    }

    void put(std::size_t value, const void* data, std::size_t size) {
        bind(m_put, value);
        check(sqlite3_bind_blob(m_put, 3, data, static_cast<int>(size), SQLITE_STATIC) ==
              SQLITE_OK);
        check(sqlite3_step(m_put) == SQLITE_DONE);
        check(sqlite3_reset(m_put) == SQLITE_OK);
    }

    const Data& m_data;
    sqlite3* m_base = nullptr;
    sqlite3_stmt* m_find = nullptr;
    sqlite3_stmt* m_put = nullptr;
    sqlite3_stmt* m_list = nullptr;
    std::string m_name;
};

}  // namespace

int main(int count, char** arguments) {
    return bench::contend<Sqlite>(count, arguments);
}
