#include "tools/browse/Marks.h"

#include <algorithm>
#include <tuple>

namespace vqreg {

namespace {

Path foldedPath(const Path& path) {
    Path result = path;
    std::transform(result.begin(), result.end(), result.begin(), folded);
    return result;
}

// A key has an empty name here, which is not that of a value beside it.
using MarkedPlace = std::tuple<Path, bool, std::string>;

MarkedPlace placeOf(const Change& change) {
    const bool isKey = change.isOfKey();
    return {foldedPath(change.path), isKey, isKey ? std::string() : folded(change.value().name)};
}

bool hasSameEnd(const Change& left, const Change& right) {
    return left.kind == right.kind && left.after.has_value() == right.after.has_value() &&
           (!left.after || left.after->sameData(*right.after));
}

}  // namespace

Marks::KeyMarks& Marks::at(const Path& path) {
    return m_keys[foldedPath(path)];
}

void Marks::add(const std::vector<Change>& changes) {
    for (const Change& change : changes) {
        const bool isDeleted = change.kind == Change::eKind::eDeleted;
        if (!change.isOfKey()) {
            KeyMarks& marks = at(change.path);
            const std::string name = folded(change.value().name);
            if (isDeleted) {
                marks.values.erase(name);
                marks.hasLost = true;
            } else {
                marks.values[name] = change.kind == Change::eKind::eCreated ? '+' : '~';
            }
        } else if (!isDeleted) {
            at(change.path).isCreated = true;
        } else {
            m_keys.erase(foldedPath(change.path));
            if (!change.path.empty()) {
                at(Path(change.path.begin(), change.path.end() - 1)).hasLost = true;
            }
        }
    }
}

void Marks::remove(const std::vector<Change>& own) {
    for (const Change& change : own) {
        const auto found = m_keys.find(foldedPath(change.path));
        if (found == m_keys.end()) {
            continue;
        }
        KeyMarks& marks = found->second;
        if (!change.isOfKey()) {
            marks.values.erase(folded(change.value().name));
        } else if (change.kind == Change::eKind::eDeleted) {
            marks = {};
        }
        if (!marks.isCreated && !marks.hasLost && marks.values.empty()) {
            m_keys.erase(found);
        }
    }
}

char Marks::ofValue(const Path& path, const std::string& name) const {
    const auto key = m_keys.find(foldedPath(path));
    if (key == m_keys.end()) {
        return ' ';
    }
    const auto value = key->second.values.find(folded(name));
    return value == key->second.values.end() ? ' ' : value->second;
}

char Marks::ofKey(const Path& path) const {
    const Path wanted = foldedPath(path);
    const auto found = m_keys.lower_bound(wanted);
    if (found == m_keys.end() || !isSameOrBelow(found->first, wanted)) {
        return ' ';
    }
    const bool isOwn = found->first.size() == wanted.size();
    return isOwn && found->second.isCreated ? '+' : isOwn && found->second.hasLost ? '-' : '~';
}

std::vector<Change> takeOwn(std::vector<Change>& changes, const std::vector<Change>& own) {
    std::map<MarkedPlace, const Change*> places;
    for (const Change& change : own) {
        places[placeOf(change)] =
            &change;  // of a deletion and a creation the latter, which is the end
    }
    if (places.empty()) {
        return {};
    }
    const auto first =
        std::stable_partition(changes.begin(), changes.end(), [&](const Change& change) {
            const auto found = places.find(placeOf(change));
            return found == places.end() || !hasSameEnd(change, *found->second);
        });
    std::vector<Change> taken(first, changes.end());
    changes.erase(first, changes.end());
    return taken;
}

}  // namespace vqreg
