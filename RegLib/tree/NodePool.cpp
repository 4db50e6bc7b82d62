#include "RegLib/tree/NodePool.h"

#include <new>

namespace VQRegLib {

CKeyOrValue& CNodePool::take() {
    NodeNumber number = m_firstFree;
    if (number != 0) {
        m_firstFree = (*this)[number].m_parent;
    } else {
        if (m_last == CKeyOrValue::kNameApart) {
            throw std::bad_alloc();
        }
        number = m_last + 1;
        if (number / kBlock >= m_blocks.size()) {
            m_blocks.push_back(std::make_unique<CKeyOrValue[]>(kBlock));
        }
        m_last = number;
    }
    ++m_size;
    CKeyOrValue& node = (*this)[number];
    node = CKeyOrValue{};
    node.m_number = number;
    return node;
}

void CNodePool::give(CKeyOrValue& node) {
    const NodeNumber number = node.m_number;
    node = CKeyOrValue{};
    node.m_parent = m_firstFree;
    m_firstFree = number;
    --m_size;
}

}  // namespace VQRegLib
