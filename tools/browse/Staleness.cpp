// The part of the edits that finds out what others have changed since.
#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "tools/browse/Edits.h"
#include "tools/vqreg/text/DataText.h"
#include "tools/vqreg/text/Shown.h"

namespace vqreg {

namespace {

using eKind = Change::eKind;

// The first one in words, and how many there are besides.
class Differences {
public:
    // With so much more below it.
    void add(const std::string& what, std::size_t below = 0) {
        m_more += below + (m_first ? 1 : 0);
        if (!m_first) {
            m_first = what;
        }
    }
    std::optional<std::string> text() const {
        return m_more == 0 ? m_first : fmt::format("{}, and {} more", *m_first, m_more);
    }

private:
    std::optional<std::string> m_first;
    std::size_t m_more = 0;
};

// How the store is before an edit, at the places that the edit is about: by folded names, and the whole
// of what is below a key that is to go.
class Before {
public:
    // Deletions are made first, so that what is created at the same place was there.
    explicit Before(const Edit& edit) {
        for (const bool deletes : {true, false}) {
            for (const Change& change : edit.changes) {
                if ((change.kind == eKind::eDeleted) == deletes) {
                    add(change);
                }
            }
        }
    }

    std::optional<std::string> differences(const Key& root) const {
        Differences found;
        for (const auto& [path, place] : m_keys) {
            find(root, path, place, found);
        }
        return found.text();
    }

private:
    struct Expected {
        std::string name;  // as it is spelled
        std::optional<Value> value;
    };
    struct Place {
        bool isKey = false;  // the edit is about the key itself, not only about values of it
        bool isThere = false;
        std::map<std::string, Expected> values;
    };
    // What differs only in case is one place.
    struct Less {
        bool operator()(const Path& left, const Path& right) const {
            return std::lexicographical_compare(
                left.begin(), left.end(), right.begin(), right.end(),
                [](const auto& one, const auto& other) { return folded(one) < folded(other); });
        }
    };

    void find(const Key& root, const Path& path, const Place& place, Differences& found) const {
        if (const auto missing = missingHome(root, path, place)) {
            found.add(*missing);
            return;
        }
        const Key* const key = findKey(root, path);
        if (place.isKey && place.isThere != (key != nullptr)) {
            found.add(fmt::format("{} {}", nameOfKey(path), key ? "is there already" : "is gone"));
            return;
        }
        for (const auto& [name, value] : place.values) {
            if (const auto difference = differenceOf(path, key, name, value)) {
                found.add(*difference);
            }
        }
        if (place.isKey && place.isThere) {
            findUnknown(path, *key, place, found);
        }
    }

    // What is created needs a key that is there, or is created with it.
    std::optional<std::string> missingHome(const Key& root, const Path& path,
                                           const Place& place) const {
        if (place.isKey && (place.isThere || path.empty())) {
            return std::nullopt;
        }
        const Path home = place.isKey ? Path(path.begin(), path.end() - 1) : path;
        const auto made = m_keys.find(home);
        const bool isMade = made != m_keys.end() && made->second.isKey;
        return isMade || findKey(root, home) ? std::nullopt
                                             : std::optional(nameOfKey(home) + " is gone");
    }

    void add(const Change& change) {
        Place& place = m_keys[change.path];
        if (!change.isOfKey()) {
            place.values.try_emplace(folded(change.value().name),
                                     Expected{change.value().name, change.before});
        } else if (!place.isKey) {
            place.isKey = true;
            place.isThere = change.kind == eKind::eDeleted;
        }
    }

    static std::optional<std::string> differenceOf(const Path& path, const Key* key,
                                                   const std::string& name,
                                                   const Expected& expected) {
        const std::string what = nameOfValue(path, expected.name);
        if (key && key->keys.contains(name)) {
            return what + " is a sub key now";
        }
        const auto found = key ? key->values.find(name) : std::map<std::string, Value>::iterator();
        const bool isThere = key && found != key->values.end();
        if (!isThere) {
            return expected.value ? std::optional(what + " is gone") : std::nullopt;
        }
        const Value& now = found->second;
        if (expected.value && now.sameData(*expected.value)) {
            return std::nullopt;
        }
        return fmt::format("{} is {} {} now", what, typeName(now.type), shown(dataText(now)));
    }

    void findUnknown(const Path& path, const Key& key, const Place& place,
                     Differences& found) const {
        for (const auto& [name, value] : key.values) {
            if (!place.values.contains(name)) {
                found.add(nameOfValue(path, value.name) + " is there now");
            }
        }
        for (const auto& each : key.keys) {
            const Path below = joined(path, {each.second.name});
            const auto known = m_keys.find(below);
            if (known == m_keys.end() || !known->second.isKey) {
                const Count count = countBelow(each.second);
                found.add(nameOfKey(below) + " is there now", count.keys + count.values);
            }
        }
    }

    std::map<Path, Place, Less> m_keys;
};

}  // namespace

std::optional<std::string> staleness(const Key& root, const Edit& edit) {
    return Before(edit).differences(root);
}

}  // namespace vqreg
