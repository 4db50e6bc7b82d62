// Memory for data that may be much.
#ifndef PORTABLE_LARGEMEMORY_H
#define PORTABLE_LARGEMEMORY_H

#include <cstddef>
#include <utility>

namespace VQRegLib {

// A block that is no longer small is asked of the system whole, with its pages: to be given them one
// after the other, at the first touch of each, takes longer than to fill them. Where the system has
// large pages, each that the block fills is one, because whoever goes through megabytes at random
// otherwise spends most of the time on finding out where the pages are. What is left over lies in usual
// pages, so that nothing is wasted.
class CLargeMemory {
public:
    static constexpr std::size_t kLargePage = 2UL * 1024 * 1024;
    enum eContent { eAny, eZeroes };

    CLargeMemory() = default;

    // Of at least one byte. Throws std::bad_alloc.
    explicit CLargeMemory(std::size_t size, eContent content = eAny);
    ~CLargeMemory();
    CLargeMemory(CLargeMemory&& other) noexcept
        : m_memory(std::exchange(other.m_memory, nullptr)),
          m_size(std::exchange(other.m_size, 0)) {}
    CLargeMemory& operator=(CLargeMemory&& other) noexcept {
        std::swap(m_memory, other.m_memory);
        std::swap(m_size, other.m_size);
        return *this;
    }

    char* get() const { return m_memory; }  // null without any
    std::size_t size() const { return m_size; }

private:
    char* m_memory = nullptr;
    std::size_t m_size = 0;
};

}  // namespace VQRegLib

#endif  // PORTABLE_LARGEMEMORY_H
