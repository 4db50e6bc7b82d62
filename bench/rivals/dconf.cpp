// dconf, the store behind GSettings: readers map a file and look at a byte that tells of changes;
// whoever changes something asks a service on the session's bus, which writes the whole file.
// scripts/bench runs everything in a session of its own.
#include <dconf/dconf.h>

#include <cstdlib>
#include <cstring>

#include "support/Contest.h"

namespace {

using bench::Data;

class Dconf {
public:
    static void make(const Data& data, const std::string& directory) {
        // A base of its own, whose name is that of the directory's size.
        bench::writeFile(profileIn(directory),
                         "user-db:bench" + std::to_string(data.values()) + "\n");
        const Dconf store(data, directory);
        DConfChangeset* const changes = dconf_changeset_new();
        for (std::size_t value = 0; value < data.values(); ++value) {
            dconf_changeset_set(changes, pathOf(data, value).c_str(), contentOf(value));
        }
        const bool good =
            dconf_client_change_sync(store.m_client, changes, nullptr, nullptr, nullptr);
        dconf_changeset_unref(changes);
        bench::require(good, "the service does not answer");
    }

    Dconf(const Data& data, const std::string& directory) : m_data(data) {
        setenv("DCONF_PROFILE", profileIn(directory).c_str(), 1);
        m_client = dconf_client_new();
    }
    ~Dconf() { g_object_unref(m_client); }
    Dconf(const Dconf&) = delete;
    Dconf& operator=(const Dconf&) = delete;

    void openKeys() {
        for (std::size_t value = 0; value < m_data.values(); ++value) {
            m_paths.push_back(pathOf(m_data, value));
        }
    }

    std::uint32_t first() {
        return number(pathOf(m_data, m_data.keys() / 2 * bench::kValuesPerKey + 1));
    }

    std::uint32_t query(std::size_t value) { return number(m_paths[value]); }

    std::size_t copy(std::size_t value, void* buffer, std::size_t room) {
        GVariant* const content = read(m_paths[value]);
        const std::size_t size = g_variant_get_size(content);
        bench::require(size <= room, "a value is too large");
        g_variant_store(content, buffer);
        g_variant_unref(content);
        return size;
    }

    void set(std::size_t value, std::uint32_t number) {
        bench::require(
            dconf_client_write_sync(m_client, m_paths[value].c_str(), g_variant_new_uint32(number),
                                    nullptr, nullptr, nullptr),
            "the service does not answer");
    }

private:
    static std::string profileIn(const std::string& directory) { return directory + "/profile"; }
    static std::string pathOf(const Data& data, std::size_t value) {
        return "/velquist/" + data.keyPath(Data::keyOf(value)) + "/" + Data::nameOf(value);
    }

    static GVariant* contentOf(std::size_t value) {
        const bench::Field& field = Data::fieldOf(value);
        switch (field.type) {
            case bench::Type::eNumber:
                return g_variant_new_uint32(Data::numberOf(value));
            case bench::Type::eText:
                return g_variant_new_string(field.content);
            default:
                return g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, field.content,
                                                 std::strlen(field.content), 1);
        }
    }

    GVariant* read(const std::string& path) const {
        GVariant* const content = dconf_client_read(m_client, path.c_str());
        bench::require(content != nullptr, "no such value");
        return content;
    }

    std::uint32_t number(const std::string& path) const {
        GVariant* const content = read(path);
        const std::uint32_t number = g_variant_get_uint32(content);
        g_variant_unref(content);
        return number;
    }

    const Data& m_data;
    DConfClient* m_client = nullptr;
    std::vector<std::string> m_paths;
};

}  // namespace

int main(int count, char** arguments) {
    return bench::contend<Dconf>(count, arguments);
}
