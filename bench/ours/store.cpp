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
        : m_data(data),
          m_store(directory + "/ours.cfg"),
          m_numbers(data, bench::Type::eNumber),
          m_texts(data, bench::Type::eText) {}

    void openKeys() {
        for (std::size_t key = 0; key < m_data.keys(); ++key) {
            m_keys.push_back(m_store.key(m_data.keyPath(key)));
        }
    }

    double special(const std::string& workload, long count) {
        std::size_t sum = 0;
        double each = -1;
        if (workload == "number") {
            each = bench::timed(count, [&] { sum += *get<std::uint32_t>(m_numbers.next()) + 1; });
        } else if (workload == "string") {
            each = bench::timed(count, [&] { sum += get<std::string>(m_texts.next())->size(); });
        }
        bench::require(each < 0 || sum > 0, "the answers are empty");
        return each;
    }

private:
    template <typename T>
    std::optional<T> get(std::size_t value) {
        return m_keys[Data::keyOf(value)].get<T>(Data::nameOf(value));
    }

    const Data& m_data;
    vqreg::Store m_store;
    std::vector<vqreg::Key> m_keys;
    bench::Draw m_numbers;
    bench::Draw m_texts;
};

}  // namespace

int main(int count, char** arguments) {
    return bench::contend<ThroughStore>(count, arguments);
}
