#include "tools/browse/Edits.h"

#include <fmt/format.h>

#include <utility>

#include "tools/vqreg/text/Rules.h"

namespace vqreg {

namespace {

using eKind = Change::eKind;

Path withLast(Path path, const std::string& name) {
    path.back() = name;
    return path;
}

// The key itself and all that is below it.
std::vector<Change> allOf(const Path& path, const Key& key, eKind kind) {
    const Key nothing;
    std::vector<Change> changes =
        kind == eKind::eCreated ? difference(nothing, key, path) : difference(key, nothing, path);
    changes.insert(changes.begin(), {kind, path, {}, {}});
    return changes;
}

// In a tree in memory; keys above that are missing are made.
void makeSo(Key& root, const Change& change) {
    Key* key = &root;
    const std::size_t levels = change.path.size() - (change.isOfKey() ? 1 : 0);
    for (std::size_t level = 0; level < levels; ++level) {
        Key& below = key->keys[folded(change.path[level])];
        if (below.name.empty()) {
            below.name = change.path[level];
        }
        key = &below;
    }
    const bool isGone = change.kind == eKind::eDeleted;
    if (!change.isOfKey()) {
        const std::string name = folded(change.value().name);
        isGone ? static_cast<void>(key->values.erase(name))
               : static_cast<void>(key->values.insert_or_assign(name, *change.after));
    } else if (isGone) {
        key->keys.erase(folded(change.path.back()));
    } else {
        key->keys[folded(change.path.back())].name = change.path.back();
    }
}

std::optional<std::string> takenName(const Key& root, const Path& path, const std::string& name) {
    const Key* const key = findKey(root, path);
    const auto found = key ? key->keys.find(folded(name)) : std::map<std::string, Key>::iterator();
    if (key && found != key->keys.end()) {
        return nameOfKey(joined(path, {found->second.name})) + " exists already";
    }
    const auto value =
        key ? key->values.find(folded(name)) : std::map<std::string, Value>::iterator();
    if (key && value != key->values.end()) {
        return nameOfValue(path, value->second.name) + " exists already";
    }
    return std::nullopt;
}

std::optional<std::string> brokenRule(const std::string& rootName, const Change& change) {
    const auto broken = brokenRuleOfKeyPath(rootName, change.path);
    return broken || change.isOfKey() ? broken : brokenRuleOfValue(*change.after);
}

}  // namespace

Edit setValue(const Path& path, const std::optional<Value>& before, const Value& after) {
    const bool isNew = !before;
    return {fmt::format("{} {}", isNew ? "add" : "set", nameOfValue(path, after.name)),
            {{isNew ? eKind::eCreated : eKind::eChanged, path, before, after}}};
}

Edit deleteValue(const Path& path, const Value& value) {
    return {"delete " + nameOfValue(path, value.name), {{eKind::eDeleted, path, value, {}}}};
}

Edit renameValue(const Path& path, const Value& value, const std::string& name) {
    Value renamed = value;
    renamed.name = name;
    return {"rename " + nameOfValue(path, value.name),
            {{eKind::eDeleted, path, value, {}}, {eKind::eCreated, path, {}, renamed}}};
}

Edit createKey(const Path& path) {
    return {"add " + nameOfKey(path), {{eKind::eCreated, path, {}, {}}}};
}

Edit deleteKey(const Path& path, const Key& key) {
    return {"delete " + nameOfKey(path), allOf(path, key, eKind::eDeleted)};
}

Edit renameKey(const Path& path, const Key& key, const std::string& name) {
    Edit edit{"rename " + nameOfKey(path), allOf(path, key, eKind::eDeleted)};
    const std::vector<Change> created = allOf(withLast(path, name), key, eKind::eCreated);
    edit.changes.insert(edit.changes.end(), created.begin(), created.end());
    return edit;
}

Edit undoing(const Edit& edit) {
    Edit undo{"undo: " + edit.what, edit.changes};
    for (Change& change : undo.changes) {
        std::swap(change.before, change.after);
        change.kind = change.kind == eKind::eCreated   ? eKind::eDeleted
                      : change.kind == eKind::eDeleted ? eKind::eCreated
                                                       : eKind::eChanged;
    }
    return undo;
}

std::optional<Edit> rebased(const Edit& edit, const Key& root) {
    Edit result{edit.what, {}};
    Key wanted = root;
    for (const bool deletes : {true, false}) {
        for (const Change& change : edit.changes) {
            if ((change.kind == eKind::eDeleted) == deletes) {
                makeSo(wanted, change);
            }
        }
    }
    result.changes = difference(root, wanted);
    return result.changes.empty() ? std::nullopt : std::optional(std::move(result));
}

std::optional<std::string> refusal(const std::string& rootName, const Key& root, const Edit& edit) {
    for (const Change& change : edit.changes) {
        if (change.kind == eKind::eDeleted) {
            continue;
        }
        if (const auto broken = brokenRule(rootName, change)) {
            return broken;
        }
    }
    // The first that is created is the name that was typed; what only changes its spelling stays.
    for (const Change& change : edit.changes) {
        if (change.kind == eKind::eCreated) {
            const bool isKey = change.isOfKey();
            const Path above =
                isKey ? Path(change.path.begin(), change.path.end() - 1) : change.path;
            const std::string& name = isKey ? change.path.back() : change.value().name;
            const Change& first = edit.changes.front();
            const std::string old = first.kind != eKind::eDeleted ? std::string()
                                    : first.isOfKey()             ? first.path.back()
                                                                  : first.value().name;
            const bool isRespelled = first.kind == eKind::eDeleted && folded(old) == folded(name);
            return isRespelled ? std::nullopt : takenName(root, above, name);
        }
    }
    return std::nullopt;
}

std::string countText(const Count& count) {
    return fmt::format("{} {} and {} {}", count.keys, count.keys == 1 ? "key" : "keys",
                       count.values, count.values == 1 ? "value" : "values");
}

}  // namespace vqreg
