// The library through VQRegStore.h, for what that costs beside the plain calls.
#include <VQRegStore.h>

#include <vector>

#include "support/Contest.h"

namespace {

using bench::Data;

class ThroughStore {
public:
    static void make(const Data& data, const std::string& directory) {
        bench::writeFile(directory + "/ours.cfg", bench::configText(data));
    }

    ThroughStore(const Data& data, const std::string& directory)
        : m_data(data), m_store(directory + "/ours.cfg"), m_texts(data, bench::Type::eText) {}

    void openKeys() {
        for (std::size_t key = 0; key < m_data.keys(); ++key) {
            m_keys.push_back(m_store.key(m_data.keyPath(key)));
        }
    }

    std::uint32_t query(std::size_t value) {
        return *m_keys[Data::keyOf(value)].get<std::uint32_t>(Data::nameOf(value));
    }

    double special(const std::string& workload, long count) {
        if (workload == "string") {
            std::size_t length = 0;
            const double each =
                bench::timed(count, [&] { length += string(m_texts.next())->size(); });
            bench::require(length > 0, "the texts are empty");
            return each;
        }
        return -1;
    }

private:
    std::optional<std::string> string(std::size_t value) {
        return m_keys[Data::keyOf(value)].get<std::string>(Data::nameOf(value));
    }

    const Data& m_data;
    vqreg::Store m_store;
    std::vector<vqreg::Key> m_keys;
    bench::Draw m_texts;
};

}  // namespace

int main(int count, char** arguments) {
    return bench::contend<ThroughStore>(count, arguments);
}
