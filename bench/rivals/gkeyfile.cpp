// GKeyFile: a look at the file before each query, which reads it again when it has changed; a set
// saves the whole file. Nothing keeps two writers apart.
#include <glib.h>
#include <sys/stat.h>

#include <cstring>

#include "support/Contest.h"

namespace {

using bench::Data;

class KeyFile {
public:
    static void make(const Data& data, const std::string& directory) {
        KeyFile store;
        for (std::size_t value = 0; value < data.values(); ++value) {
            const std::string group = groupOf(data, Data::keyOf(value));
            const bench::Field& field = Data::fieldOf(value);
            if (field.type == bench::Type::eNumber) {
                g_key_file_set_uint64(store.m_file, group.c_str(), field.name,
                                      Data::numberOf(value));
            } else if (field.type == bench::Type::eText) {
                g_key_file_set_string(store.m_file, group.c_str(), field.name, field.content);
            } else {
                gchar* const text = g_base64_encode(reinterpret_cast<const guchar*>(field.content),
                                                    std::strlen(field.content));
                g_key_file_set_string(store.m_file, group.c_str(), field.name, text);
                g_free(text);
            }
        }
        store.m_path = pathIn(directory);
        store.save();
    }

    KeyFile(const Data& data, const std::string& directory)
        : m_data(&data), m_path(pathIn(directory)) {}
    ~KeyFile() { g_key_file_free(m_file); }
    KeyFile(const KeyFile&) = delete;
    KeyFile& operator=(const KeyFile&) = delete;

    void openKeys() {
        for (std::size_t key = 0; key < m_data->keys(); ++key) {
            m_groups.push_back(groupOf(*m_data, key));
        }
    }

    std::uint32_t first() {
        refresh();
        const std::string group = groupOf(*m_data, m_data->keys() / 2);
        return static_cast<std::uint32_t>(
            g_key_file_get_uint64(m_file, group.c_str(), "Port", nullptr));
    }

    std::uint32_t query(std::size_t value) {
        refresh();
        GError* error = nullptr;
        const guint64 number = g_key_file_get_uint64(m_file, m_groups[Data::keyOf(value)].c_str(),
                                                     Data::nameOf(value), &error);
        bench::require(error == nullptr, "no such number");
        return static_cast<std::uint32_t>(number);
    }

    std::size_t copy(std::size_t value, void* buffer, std::size_t room) {
        refresh();
        gchar* text = g_key_file_get_string(m_file, m_groups[Data::keyOf(value)].c_str(),
                                            Data::nameOf(value), nullptr);
        bench::require(text != nullptr, "no such text");
        gsize size = std::strlen(text) + 1;
        if (Data::fieldOf(value).type == bench::Type::eBytes) {
            g_base64_decode_inplace(text, &size);
        }
        bench::require(size <= room, "a value is too large");
        std::memcpy(buffer, text, size);
        g_free(text);
        return size;
    }

    void set(std::size_t value, std::uint32_t number) {
        if (query(value) != number) {
            g_key_file_set_uint64(m_file, m_groups[Data::keyOf(value)].c_str(), Data::nameOf(value),
                                  number);
            save();
            look(m_seen);
        }
    }

    std::size_t enumerate(std::size_t key) {
        refresh();
        gsize count = 0;
        gchar** const names = g_key_file_get_keys(m_file, m_groups[key].c_str(), &count, nullptr);
        bench::require(names != nullptr, "no such key");
        for (gsize i = 0; i < count; ++i) {
            m_name = names[i];
        }
        g_strfreev(names);
        return count;
    }

private:
    KeyFile() = default;

    static std::string pathIn(const std::string& directory) { return directory + "/store.ini"; }
    static std::string groupOf(const Data& data, std::size_t key) {
        return std::string(bench::kTop) + "/" + data.keyPath(key);
    }

    void look(struct stat& status) const {
        bench::require(stat(m_path.c_str(), &status) == 0, "no file");
    }

    void refresh() {
        struct stat status = {};
        look(status);
        const bool same = status.st_ino == m_seen.st_ino &&
                          status.st_mtim.tv_sec == m_seen.st_mtim.tv_sec &&
                          status.st_mtim.tv_nsec == m_seen.st_mtim.tv_nsec;
        if (!same) {
            bench::require(
                g_key_file_load_from_file(m_file, m_path.c_str(), G_KEY_FILE_NONE, nullptr),
                "the file cannot be read");
            m_seen = status;
        }
    }

    void save() {
        bench::require(g_key_file_save_to_file(m_file, m_path.c_str(), nullptr), "not saved");
    }

    const Data* m_data = nullptr;
    std::string m_path;
    GKeyFile* m_file = g_key_file_new();
    struct stat m_seen = {};
    std::vector<std::string> m_groups;
    std::string m_name;
};

}  // namespace

int main(int count, char** arguments) {
    return bench::contend<KeyFile>(count, arguments);
}
