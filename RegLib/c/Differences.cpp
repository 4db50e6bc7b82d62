// Both trees have the children of a key in the same order, so one walk along both lists tells what is in
// one of them only. A value whose line is the same is the same; lines that differ may still say the same,
// since a name can be spelled in another way and a number with fewer digits.
#include "RegLib/c/Differences.h"

#include "RegLib/text/ValueData.h"

namespace VQRegLib {

namespace {

CValueState stateOf(const CKeyOrValue* value) {
    CValueState state;
    if (!value) {
        return state;
    }
    state.type = value->type();
    unsigned long size = 0;
    (void)giveData(value->line(), state.type, {nullptr, 0, &size});  // asks for the size
    state.data.resize(size);
    if (giveData(value->line(), state.type,
                 {reinterpret_cast<unsigned char*>(state.data.data()), size, &size}) < 0) {
        state.data.clear();  // of a line that only a hand could have written
    }
    return state;
}

class CWalk {
public:
    CWalk(const CTree* before, const CTree* after, std::deque<CDifference>& differences)
        : m_before(before), m_after(after), m_differences(differences) {}

    void keys(const CKeyOrValue* before, const CKeyOrValue* after, const std::string& path) {
        if (after && !before) {
            addKey(path, true);
        }
        pairs(before, after, false,
              [&](const CKeyOrValue* one, const CKeyOrValue* other) { values(one, other, path); });
        pairs(before, after, true, [&](const CKeyOrValue* one, const CKeyOrValue* other) {
            const std::string_view name = other ? m_after->nameOf(*other) : m_before->nameOf(*one);
            keys(one, other, path.empty() ? std::string(name) : path + '/' + std::string(name));
        });
        if (before && !after) {
            addKey(path, false);
        }
    }

private:
    void addKey(const std::string& path, bool isPresent) {
        CDifference& added = m_differences.emplace_back();
        added.path = path;
        added.isOfKey = true;
        added.isPresent = isPresent;
    }

    void values(const CKeyOrValue* before, const CKeyOrValue* after, const std::string& path) {
        if (before && after && before->line() == after->line()) {
            return;
        }
        CDifference difference;
        difference.before = stateOf(before);
        difference.after = stateOf(after);
        if (difference.before == difference.after) {
            return;
        }
        difference.path = path;
        difference.name = after ? m_after->nameOf(*after) : m_before->nameOf(*before);
        difference.isPresent = after != nullptr;
        m_differences.push_back(std::move(difference));
    }

    // Calls `use` with the children of each name, null where a tree has none.
    template <typename Use>
    void pairs(const CKeyOrValue* before, const CKeyOrValue* after, bool isKey, Use&& use) {
        int oldIndex = 0;
        int newIndex = 0;
        for (;;) {
            const CKeyOrValue* one =
                before ? m_before->childOfKind(*before, isKey, oldIndex) : nullptr;
            const CKeyOrValue* other =
                after ? m_after->childOfKind(*after, isKey, newIndex) : nullptr;
            if (!one && !other) {
                return;
            }
            const int order = !one ? 1
                              : !other
                                  ? -1
                                  : compareFolded(m_before->nameOf(*one), m_after->nameOf(*other));
            one = order <= 0 ? one : nullptr;
            other = order >= 0 ? other : nullptr;
            oldIndex += one != nullptr;
            newIndex += other != nullptr;
            use(one, other);
        }
    }

    const CTree* const m_before;
    const CTree* const m_after;
    std::deque<CDifference>& m_differences;
};

}  // namespace

void findDifferences(const CPlaceInTree& before, const CPlaceInTree& after, const std::string& path,
                     std::deque<CDifference>& differences) {
    CWalk(before.tree, after.tree, differences).keys(before.key, after.key, path);
}

}  // namespace VQRegLib
