#include "RegLib/file/Node.h"

namespace VQRegLib {

using CKeyOrValue = CRegLibImplFile::CKeyOrValue;

CKeyOrValue::Children::iterator CKeyOrValue::lowerBound(Children::iterator near,
                                                        std::string_view foldedName) {
    const bool belowNear = near == m_mapChildren.end() || foldedName <= near->first;
    const bool aboveLast = near == m_mapChildren.begin() || std::prev(near)->first < foldedName;
    return belowNear && aboveLast ? near : m_mapChildren.lower_bound(foldedName);
}

CKeyOrValue* CKeyOrValue::addChild(Children::iterator before, std::string_view foldedName,
                                   std::unique_ptr<CKeyOrValue> child) {
    child->m_pParent = this;
    const auto place = m_mapChildren.emplace_hint(before, foldedName, std::move(child));
    place->second->m_place = place;
    return place->second.get();
}

CKeyOrValue::~CKeyOrValue() {
    CKeyOrValue* at = this;
    while (at != this || !at->m_mapChildren.empty()) {
        if (!at->m_mapChildren.empty()) {
            at = at->m_mapChildren.begin()->second.get();
        } else {
            at = at->m_pParent;
            at->m_mapChildren.erase(at->m_mapChildren.begin());
        }
    }
}

namespace {

// The first node of a kind from a place among its siblings on.
template <typename IsWanted>
const CKeyOrValue* firstFrom(CKeyOrValue::Children::const_iterator place, const CKeyOrValue& parent,
                             IsWanted isWanted) {
    while (place != parent.m_mapChildren.end() && !isWanted(*place->second)) {
        ++place;
    }
    return place == parent.m_mapChildren.end() ? nullptr : place->second.get();
}

template <typename IsWanted>
const CKeyOrValue* nextInWalk(const CKeyOrValue& top, const CKeyOrValue* at, bool goesBelow,
                              IsWanted isWanted) {
    if (goesBelow) {
        if (const auto* const below = firstFrom(at->m_mapChildren.begin(), *at, isWanted)) {
            return below;
        }
    }
    for (; at != &top; at = at->m_pParent) {
        if (const auto* const beside =
                firstFrom(std::next(at->m_place), *at->m_pParent, isWanted)) {
            return beside;
        }
    }
    return nullptr;
}

bool isKey(const CKeyOrValue& node) {
    return node.m_iIsKey != 0;
}

bool isAny(const CKeyOrValue&) {
    return true;
}

}  // namespace

const CKeyOrValue* CKeyOrValue::nextKey(const CKeyOrValue& top) const {
    return nextInWalk(top, this, true, isKey);
}

const CKeyOrValue* CKeyOrValue::nextShown(const CKeyOrValue& top) const {
    return nextInWalk(top, this, isKey(*this), isAny);
}

const CKeyOrValue* CKeyOrValue::nextOfAll(const CKeyOrValue& top) const {
    return nextInWalk(top, this, true, isAny);
}

std::string CRegLibImplFile::CreateFullName(const CKeyOrValue* parent, const char* name) {
    std::vector<std::string_view> names{name};
    for (const CKeyOrValue* node = parent; node; node = node->m_pParent) {
        names.push_back(node->m_strName);
    }
    std::string result = "[";
    bool first = true;
    for (auto at = names.rbegin(); at != names.rend(); ++at) {
        if (*at == kTreeRootName) {
            continue;  // whoever bears that name, the tree root or a key of a caller
        }
        if (!first) {
            result += '/';
        }
        first = false;
        result += *at;
    }
    result += ']';
    return result;
}

const CKeyOrValue* CTreePositions::find(const CKeyOrValue& node, std::int32_t isKey, int index) {
    if (index < 0) {
        return nullptr;
    }
    Position& position = m_positions[isKey];
    auto at = node.m_mapChildren.begin();
    int count = 0;
    if (position.node == &node && position.index <= index) {
        at = position.at;
        count = position.index;
    }
    for (; at != node.m_mapChildren.end(); ++at) {
        if (at->second->m_iIsKey != isKey) {
            continue;
        }
        if (count == index) {
            position.node = &node;
            position.index = index;
            position.at = at;
            return at->second.get();
        }
        ++count;
    }
    return nullptr;
}

void CRegLibImplFile::orphanHandles(const CKeyOrValue& top) {
    for (const CKeyOrValue* node = &top; node; node = node->nextOfAll(top)) {
        if (node->m_ulKeyHandleID != 0) {
            m_handles.orphan(node);
        }
    }
}

bool CRegLibImplFile::isAboveDisplaced(const CKeyOrValue& node) const {
    for (const auto& displaced : m_displaced) {
        for (const CKeyOrValue* up = displaced->m_pParent; up; up = up->m_pParent) {
            if (up == &node) {
                return true;
            }
        }
    }
    return false;
}

namespace {

bool hasHandles(const CKeyOrValue& top) {
    const CKeyOrValue* node = &top;
    while (node && node->m_ulKeyHandleID == 0) {
        node = node->nextOfAll(top);
    }
    return node != nullptr;
}

}  // namespace

// Called before a node leaves the tree, so that nothing fails half-way.
void CRegLibImplFile::makeRoomForDisplaced() {
    if (m_displaced.size() == m_displaced.capacity()) {
        m_displaced.reserve(2 * m_displaced.size() + 1);
    }
}

void CRegLibImplFile::discard(std::unique_ptr<CKeyOrValue> node) {
    m_pPositions->forget();
    orphanHandles(*node);
    // A displaced key still builds the names of its sub keys from the nodes above it.
    if (isAboveDisplaced(*node)) {
        m_displaced.push_back(std::move(node));
    }
}

void CRegLibImplFile::displace(std::unique_ptr<CKeyOrValue> node) {
    if (hasHandles(*node)) {
        m_displaced.push_back(std::move(node));
    } else {
        discard(std::move(node));
    }
}

}  // namespace VQRegLib
