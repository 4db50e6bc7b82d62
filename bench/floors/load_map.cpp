// F3, the floor of a first query: read the file, make one map node with two strings of each line.
#include <map>

#include "floors/FileSteps.h"
#include "support/Contest.h"

namespace {

using bench::Data;

class LoadedMap {
public:
    static void make(const Data& data, const std::string& directory) {
        bench::writeFile(bench::floorPath(directory), bench::configText(data));
    }

    LoadedMap(const Data& data, const std::string& directory) : m_data(data) {
        std::string text;
        bench::readWhole(bench::floorPath(directory), text);
        std::size_t end = 0;
        for (std::size_t begin = 0; begin < text.size(); begin = end + 1) {
            end = text.find('\n', begin);
            bench::require(end != std::string::npos, "a line without an end");
            addLine(std::string_view(text).substr(begin, end - begin));
        }
    }

    void openKeys() {}

    std::uint32_t first() {
        const std::string path = std::string(bench::kTop) + "/" + m_data.keyPath(m_data.keys() / 2);
        const std::string& data = m_keys.at(path).values.at("Port");
        return static_cast<std::uint32_t>(std::stoul(data.substr(data.find(':') + 1), nullptr, 16));
    }

private:
    struct Key {
        std::string line;
        std::map<std::string, std::string> values;
    };

    // The lines are in order: each node belongs behind the last one.
    void addLine(std::string_view line) {
        if (line.front() == '[') {
            const std::string_view path = line.substr(1, line.size() - 2);
            m_last = &m_keys.emplace_hint(m_keys.end(), path, Key{std::string(line), {}})->second;
        } else {
            const std::size_t quote = line.find('"', 1);
            m_last->values.emplace_hint(m_last->values.end(), line.substr(1, quote - 1),
                                        line.substr(quote + 2));
        }
    }

    const Data& m_data;
    std::map<std::string, Key> m_keys;
    Key* m_last = nullptr;
};

}  // namespace

int main(int count, char** arguments) {
    return bench::contend<LoadedMap>(count, arguments);
}
