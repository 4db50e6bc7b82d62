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
    return m_mapChildren.emplace_hint(before, foldedName, std::move(child))->second.get();
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

void CRegLibImplFile::orphanHandles(const CKeyOrValue& node) {
    if (node.m_ulKeyHandleID != 0) {
        m_handles.orphan(&node);
    }
    for (const auto& child : node.m_mapChildren) {
        orphanHandles(*child.second);
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

bool hasHandles(const CKeyOrValue& node) {
    if (node.m_ulKeyHandleID != 0) {
        return true;
    }
    for (const auto& child : node.m_mapChildren) {
        if (hasHandles(*child.second)) {
            return true;
        }
    }
    return false;
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
