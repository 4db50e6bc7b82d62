// Most keys have ten children: one array, an insertion moves a few bytes. Some have a hundred thousand,
// and there an array would move 200 KB for each new name, which makes a file in no order quadratic. From
// 2048 on it becomes a list of arrays that are split in the middle when they are full: the nth child is
// found by counting over fifty to a hundred arrays, a name by halves within one.
#include "RegLib/tree/Siblings.h"

#include <algorithm>
#include <numeric>

namespace VQRegLib {

namespace {

std::vector<NodeNumber>::iterator placeIn(std::vector<NodeNumber>& block, std::size_t offset) {
    return block.begin() + static_cast<std::ptrdiff_t>(offset);
}

}  // namespace

// The place of an index that is one too many is behind the last one of all.
CSiblings::CPlace CSiblings::placeOf(std::size_t index) const {
    std::size_t block = 0;
    while (block + 1 < m_many->blocks.size() && index >= m_many->blocks[block].size()) {
        index -= m_many->blocks[block].size();
        ++block;
    }
    return {block, index};
}

// By two thirds, to 6, 10, 16 and so on: these fill what an allocator gives, and tens of thousands of
// keys with ten values each have no room for more.
void CSiblings::growFew() {
    m_few.reserve(std::max<std::size_t>(6, m_few.size() + m_few.size() * 2 / 3));
}

void CSiblings::insertIntoFew(std::size_t index, NodeNumber node) {
    if (m_few.size() == m_few.capacity()) {
        growFew();
    }
    m_few.insert(placeIn(m_few, index), node);
}

// The first ones get as much as they need: that is mostly all there will be.
bool CSiblings::makeRoom(std::size_t more) {
    const std::size_t size = m_few.size() + more;
    if (m_many || size > kLongest) {
        return false;
    }
    if (size > m_few.capacity()) {
        m_few.reserve(std::max(size, m_few.size() + m_few.size() * 2 / 3));
    }
    return true;
}

void CSiblings::appendRun(NodeNumber first, std::size_t count) {
    const std::size_t size = m_few.size();
    m_few.resize(size + count);
    std::iota(placeIn(m_few, size), m_few.end(), first);
}

void CSiblings::becomeMany() {
    auto many = std::make_unique<CMany>();
    many->blocks.reserve(4);
    many->size = m_few.size();
    many->blocks.push_back(std::move(m_few));
    m_few = Block();
    m_many = std::move(many);
}

void CSiblings::split(std::size_t number) {
    std::vector<Block>& blocks = m_many->blocks;
    if (blocks.size() == blocks.capacity()) {
        blocks.reserve(2 * blocks.size());
    }
    Block upper;
    upper.reserve(kLongest);
    Block& lower = blocks[number];
    const auto half = placeIn(lower, lower.size() / 2);
    upper.assign(half, lower.end());
    lower.erase(half, lower.end());
    blocks.insert(blocks.begin() + static_cast<std::ptrdiff_t>(number) + 1, std::move(upper));
}

void CSiblings::insert(std::size_t index, NodeNumber node) {
    if (!m_many) {
        if (m_few.size() < kLongest) {
            insertIntoFew(index, node);
            return;
        }
        becomeMany();
    }
    CPlace place = placeOf(index);
    if (m_many->blocks[place.block].size() >= kLongest) {
        split(place.block);
        place = placeOf(index);
    }
    Block& block = m_many->blocks[place.block];
    block.insert(placeIn(block, place.offset), node);
    ++m_many->size;
}

void CSiblings::erase(std::size_t index) {
    if (!m_many) {
        m_few.erase(placeIn(m_few, index));
        return;
    }
    const CPlace place = placeOf(index);
    Block& block = m_many->blocks[place.block];
    block.erase(placeIn(block, place.offset));
    --m_many->size;
    if (block.empty()) {
        m_many->blocks.erase(m_many->blocks.begin() + static_cast<std::ptrdiff_t>(place.block));
    }
    if (m_many->blocks.empty()) {
        m_many.reset();
    }
}

void CSiblings::replace(std::size_t index, NodeNumber node) {
    if (!m_many) {
        m_few[index] = node;
    } else {
        const CPlace place = placeOf(index);
        m_many->blocks[place.block][place.offset] = node;
    }
}

}  // namespace VQRegLib
