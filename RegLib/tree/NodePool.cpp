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
            addBlock();
        }
        m_last = number;
    }
    ++m_size;
    auto* const node = new (&(*this)[number]) CKeyOrValue;
    node->m_number = number;
    return *node;
}

CNodePool::CFresh CNodePool::fresh() const {
    const NodeNumber number = m_last + 1;
    if (number == 0 || m_firstFree != 0 || number / kBlock >= m_blocks.size()) {
        return {};
    }
    return {&(*this)[number], number, kBlock - number % kBlock};
}

void CNodePool::addBlock() {
    if (m_unused == 0) {
        m_memory.emplace_back(kBlockSize);
        m_unused = kBlockSize;
    }
    const CLargeMemory& memory = m_memory.back();
    m_blocks.push_back(reinterpret_cast<CKeyOrValue*>(memory.get() + memory.size() - m_unused));
    m_unused -= kBlockSize;
}

std::size_t CNodePool::room() const {
    const std::size_t nodes = m_blocks.size() * kBlock + m_unused / sizeof(CKeyOrValue);
    return nodes > 0 ? nodes - 1 - m_size : 0;
}

// What is left of the memory before becomes blocks first: its pages are there, used or not.
void CNodePool::expect(std::size_t more) {
    if (more <= room()) {
        return;
    }
    while (m_unused > 0) {
        addBlock();
    }
    m_memory.emplace_back((more - room() + kBlock) / kBlock * kBlockSize);
    m_unused = m_memory.back().size();
}

void CNodePool::give(CKeyOrValue& node) {
    const NodeNumber number = node.m_number;
    node = CKeyOrValue{};
    node.m_parent = m_firstFree;
    m_firstFree = number;
    --m_size;
}

}  // namespace VQRegLib
