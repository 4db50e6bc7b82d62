// The children of one kind of a node, in order.
#ifndef REGLIB_TREE_SIBLINGS_H
#define REGLIB_TREE_SIBLINGS_H

#include <algorithm>
#include <cstddef>
#include <memory>
#include <vector>

#include "RegLib/tree/KeyOrValue.h"

namespace VQRegLib {

// Node numbers in the order of the nodes' names, which only the tree knows. One array; when it gets
// long, a list of arrays, so that an addition in the middle of a hundred thousand moves a few
// kilobytes.
class CSiblings {
public:
    std::size_t size() const { return m_many ? m_many->size : m_few.size(); }
    bool empty() const { return size() == 0; }
    NodeNumber back() const { return m_many ? m_many->blocks.back().back() : m_few.back(); }

    NodeNumber at(std::size_t index) const {
        if (!m_many) {
            return m_few[index];
        }
        const CPlace place = placeOf(index);
        return m_many->blocks[place.block][place.offset];
    }

    // How many stand before the first one for which `isBefore` is false.
    template <typename IsBefore>
    std::size_t countBefore(IsBefore&& isBefore) const {
        const auto within = [&](const Block& block) {
            return static_cast<std::size_t>(
                std::partition_point(block.begin(), block.end(), isBefore) - block.begin());
        };
        if (!m_many) {
            return within(m_few);
        }
        std::size_t before = 0;
        for (const Block& block : m_many->blocks) {
            if (!isBefore(block.back())) {
                return before + within(block);
            }
            before += block.size();
        }
        return before;
    }

    void insert(std::size_t index, NodeNumber node);  // std::bad_alloc: nothing has changed
    void append(NodeNumber node) {
        if (!m_many && m_few.size() < m_few.capacity() && m_few.size() < kLongest) {
            m_few.push_back(node);
        } else {
            insert(size(), node);
        }
    }

    // For numbers that follow one another, to be appended together: how many of them there may be, and
    // memory for so many. False when they are too many.
    std::size_t roomForRun() const { return m_many ? 0 : kLongest - m_few.size(); }
    [[nodiscard]] bool makeRoom(std::size_t more);
    void appendRun(NodeNumber first, std::size_t count);  // there is room for them
    void erase(std::size_t index);
    void replace(std::size_t index, NodeNumber node);

private:
    using Block = std::vector<NodeNumber>;
    struct CPlace {
        std::size_t block;
        std::size_t offset;
    };
    struct CMany {
        std::vector<Block> blocks;  // none of them empty
        std::size_t size = 0;
    };
    static constexpr std::size_t kLongest = 2048;

    CPlace placeOf(std::size_t index) const;
    void growFew();
    void insertIntoFew(std::size_t index, NodeNumber node);
    void becomeMany();
    void split(std::size_t block);

    Block m_few;
    std::unique_ptr<CMany> m_many;  // instead of them
};

}  // namespace VQRegLib

#endif  // REGLIB_TREE_SIBLINGS_H
