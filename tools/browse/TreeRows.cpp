#include "tools/browse/TreeRows.h"

#include <algorithm>
#include <utility>

namespace vqreg {

void TreeRows::setTop(Key top) {
    m_top = std::move(top);
    build();
}

void TreeRows::build() {
    m_rows.assign(1, {&m_top, 0, 0, true});
    addBelow(0, m_open);
}

void TreeRows::addBelow(std::size_t row, const Open& open) {
    for (const auto& [name, key] : m_rows[row].key->keys) {
        const auto found = open.keys.find(name);
        const bool isOpen = found != open.keys.end();
        m_rows.push_back({&key, row, m_rows[row].depth + 1, isOpen});
        if (isOpen) {
            addBelow(m_rows.size() - 1, found->second);
        }
    }
}

Path TreeRows::pathOf(std::size_t row) const {
    Path path;
    for (; row != 0; row = m_rows[row].parent) {
        path.push_back(m_rows[row].key->name);
    }
    std::reverse(path.begin(), path.end());
    return path;
}

std::size_t TreeRows::rowOf(const Path& path) const {
    std::size_t row = 0;
    std::size_t known = 0;  // names of the path that lead to the row
    for (std::size_t at = 1; at < m_rows.size() && known < path.size(); ++at) {
        if (m_rows[at].parent == row && folded(m_rows[at].key->name) == folded(path[known])) {
            row = at;
            ++known;
        }
    }
    return row;
}

TreeRows::Open* TreeRows::openAt(const Path& path) {
    Open* open = &m_open;
    for (const std::string& name : path) {
        open = &open->keys[folded(name)];
    }
    return open;
}

std::size_t TreeRows::reveal(const Path& path) {
    if (!path.empty()) {
        openAt(Path(path.begin(), path.end() - 1));
        build();
    }
    return rowOf(path);
}

void TreeRows::open(std::size_t row) {
    openAt(pathOf(row));
    build();
}

void TreeRows::close(std::size_t row) {
    Path path = pathOf(row);
    if (path.empty()) {
        return;
    }
    const std::string name = folded(path.back());
    path.pop_back();
    openAt(path)->keys.erase(name);
    build();
}

}  // namespace vqreg
