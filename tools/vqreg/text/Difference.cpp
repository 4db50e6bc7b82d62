#include "tools/vqreg/text/Difference.h"

#include <algorithm>

#include "tools/vqreg/text/ConfigText.h"
#include "tools/vqreg/text/JsonData.h"
#include "tools/vqreg/text/Path.h"
#include "tools/vqreg/text/Shown.h"

namespace vqreg {

using VQRegLib::CRegLib;

namespace {

// Walks over two maps of one order at the same time; either side may be null.
template <typename Map, typename Visit>
void walkBoth(const Map& before, const Map& after, Visit visit) {
    auto left = before.begin();
    auto right = after.begin();
    while (left != before.end() || right != after.end()) {
        const bool hasLeft =
            right == after.end() || (left != before.end() && left->first <= right->first);
        const bool hasRight =
            left == before.end() || (right != after.end() && right->first <= left->first);
        visit(hasLeft ? &left->second : nullptr, hasRight ? &right->second : nullptr);
        left = hasLeft ? std::next(left) : left;
        right = hasRight ? std::next(right) : right;
    }
}

void compare(const Key& before, const Key& after, Path& path, std::vector<Change>& changes) {
    walkBoth(before.values, after.values, [&](const Value* left, const Value* right) {
        if (left && right && left->sameData(*right)) {
            return;
        }
        Change change{Change::eKind::eChanged, path, {}, {}};
        if (left) {
            change.before = *left;
        }
        if (right) {
            change.after = *right;
        }
        change.kind = !left    ? Change::eKind::eCreated
                      : !right ? Change::eKind::eDeleted
                               : Change::eKind::eChanged;
        changes.push_back(std::move(change));
    });
    static const Key kNothing;
    walkBoth(before.keys, after.keys, [&](const Key* left, const Key* right) {
        path.push_back(left ? left->name : right->name);
        if (!left) {
            changes.push_back({Change::eKind::eCreated, path, {}, {}});
        } else if (!right) {
            changes.push_back({Change::eKind::eDeleted, path, {}, {}});
        }
        compare(left ? *left : kNothing, right ? *right : kNothing, path, changes);
        path.pop_back();
    });
}

// As in the file, but on one line whatever it holds.
std::string dataOf(const Value& value) {
    Value nameless = value;
    nameless.name.clear();
    return printable(std::string_view(lineOf(nameless)).substr(3));  // behind "\"\"="
}

void findConflicts(const Key& base, const Key& addition, Path& path,
                   std::vector<std::string>& conflicts) {
    const auto report = [&](const std::string& name) {
        conflicts.push_back("[" + printable(plainPath(path)) + "] \"" + printable(name) + "\"");
    };
    for (const auto& [name, value] : addition.values) {
        if (base.keys.contains(name)) {
            report(value.name);
        }
    }
    for (const auto& [name, key] : addition.keys) {
        if (base.values.contains(name)) {
            report(key.name);
        }
        const auto known = base.keys.find(name);
        if (known != base.keys.end()) {
            path.push_back(known->second.name);
            findConflicts(known->second, key, path, conflicts);
            path.pop_back();
        }
    }
}

}  // namespace

std::vector<Change> difference(const Key& before, const Key& after, const Path& path) {
    std::vector<Change> changes;
    Path walked = path;
    compare(before, after, walked, changes);
    return changes;
}

std::string lineOf(const Change& change, const Path& above) {
    const char sign = change.kind == Change::eKind::eCreated   ? '+'
                      : change.kind == Change::eKind::eDeleted ? '-'
                                                               : '~';
    const Path path = joined(above, change.path);
    std::string line = std::string(1, sign) + " [" + printable(plainPath(path)) + "]";
    if (change.isOfKey()) {
        return line;
    }
    line += " \"" + printable(change.value().name) + "\"=";
    if (change.before && change.after) {
        return line + dataOf(*change.before) + " -> " + dataOf(*change.after);
    }
    return line + dataOf(change.value());
}

Path belowRoot(const Path& path, const Path& root) {
    const std::size_t above =
        isSameOrBelow(path, root) ? root.size() : std::min<std::size_t>(1, path.size());
    return {path.begin() + static_cast<std::ptrdiff_t>(above), path.end()};
}

nlohmann::ordered_json jsonOfPlace(const Change& change, const Path& root) {
    nlohmann::ordered_json json;
    if (!isSameOrBelow(change.path, root)) {
        json["root"] = textForJson(change.path.empty() ? "" : change.path.front());
    }
    json["key"] = textForJson(plainPath(belowRoot(change.path, root)));
    if (!change.isOfKey()) {
        json["name"] = textForJson(change.value().name);
    }
    return json;
}

nlohmann::ordered_json jsonOf(const Change& change, const Path& root) {
    nlohmann::ordered_json json;
    json["event"] = change.kind == Change::eKind::eCreated   ? "created"
                    : change.kind == Change::eKind::eDeleted ? "deleted"
                                                             : "changed";
    json.update(jsonOfPlace(change, root));
    if (change.before) {
        json["old"] = jsonOf(*change.before);
    }
    if (change.after) {
        json["new"] = jsonOf(*change.after);
    }
    return json;
}

Key merged(Key base, const Key& addition) {
    for (const auto& [name, value] : addition.values) {
        base.keys.erase(name);
        base.values[name] = value;
    }
    for (const auto& [name, key] : addition.keys) {
        base.values.erase(name);
        const auto known = base.keys.find(name);
        if (known == base.keys.end()) {
            base.keys.emplace(name, key);
        } else {
            known->second = merged(std::move(known->second), key);
        }
    }
    return base;
}

std::vector<std::string> kindConflicts(const Key& base, const Key& addition, const Path& path) {
    std::vector<std::string> conflicts;
    Path walked = path;
    findConflicts(base, addition, walked, conflicts);
    return conflicts;
}

}  // namespace vqreg
