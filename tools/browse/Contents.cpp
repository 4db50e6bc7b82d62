#include "tools/browse/Contents.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>

namespace vqreg {

std::vector<Change> Contents::replace(Key root, const std::vector<Change>& own) {
    std::vector<Change> others = difference(m_tree.top(), root);
    m_marks.remove(takeOwn(others, own));
    const Path here = path();
    const std::size_t row = m_values.chosen();
    const std::string name = row < m_list.size() ? m_list[row]->name : std::string();
    m_tree.setTop(std::move(root));
    m_marks.add(others);
    m_keys.choose(m_tree.rowOf(here));
    list();
    if (path().size() == here.size()) {
        chooseValue(name, row);
    }
    m_isInValues = m_isInValues && !m_list.empty();
    return others;
}

const Value* Contents::value() const {
    return m_isInValues && m_values.chosen() < m_list.size() ? m_list[m_values.chosen()] : nullptr;
}

Place Contents::place() const {
    const Value* const at = value();
    return {path(), at ? std::optional(at->name) : std::nullopt};
}

void Contents::list() {
    m_list.clear();
    std::transform(key().values.begin(), key().values.end(), std::back_inserter(m_list),
                   [](const auto& each) { return &each.second; });
    m_values.move(0, m_list.size());
}

void Contents::chooseKey(std::size_t row) {
    if (row != m_keys.chosen()) {
        m_keys.choose(row);
        m_values.choose(0);
    }
    list();
}

void Contents::chooseValue(const std::string& name, std::size_t otherwise) {
    const auto found = std::lower_bound(
        m_list.begin(), m_list.end(), folded(name),
        [](const Value* each, const std::string& wanted) { return folded(each->name) < wanted; });
    const bool isThere = found != m_list.end() && folded((*found)->name) == folded(name);
    m_values.choose(isThere ? static_cast<std::size_t>(found - m_list.begin()) : otherwise);
    m_values.move(0, m_list.size());
}

void Contents::go(const Place& place) {
    chooseKey(m_tree.reveal(place.path));
    m_isInValues = place.value.has_value() && !m_list.empty();
    if (place.value) {
        chooseValue(*place.value, 0);
    }
}

void Contents::move(long rows) {
    if (m_isInValues) {
        m_values.move(rows, m_list.size());
        return;
    }
    Pane moved = m_keys;
    moved.move(rows, m_tree.rows().size());
    chooseKey(moved.chosen());
}

void Contents::moveToEnd(bool last) {
    constexpr long kFar = std::numeric_limits<int>::max();
    move(last ? kFar : -kFar);
}

void Contents::openKey() {
    m_tree.open(m_keys.chosen());
    list();
}

void Contents::closeKey() {
    m_tree.close(m_keys.chosen());
    list();
}

void Contents::goUp() {
    chooseKey(m_tree.rows()[m_keys.chosen()].parent);
}

void Contents::scroll(std::size_t height) {
    m_keys.scroll(height, m_tree.rows().size());
    m_values.scroll(height, m_list.size());
}

}  // namespace vqreg
