#include "portable/LargeMemory.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>

namespace VQRegLib {

namespace {

// From here on a block is a mapping of its own.
constexpr bool isMapped(std::size_t size) {
    return size >= 128UL * 1024;
}

void unmap(char* at, std::size_t size) {
    if (size > 0) {
        ::munmap(at, size);
    }
}

char* map(std::size_t size) {
    void* const place =
        ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (place == MAP_FAILED) {
        throw std::bad_alloc();
    }
    return static_cast<char*>(place);
}

// At the beginning of a large page: mapped with one more, of which what lies around is given back.
char* mapAligned(std::size_t size) {
    constexpr std::size_t kPage = CLargeMemory::kLargePage;
    const std::size_t room = size + kPage;
    if (room < size) {
        throw std::bad_alloc();
    }
    char* const mapped = map(room);
    const std::size_t before = -reinterpret_cast<std::uintptr_t>(mapped) % kPage;
    const auto usualPage = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    const std::size_t end = before + (size + usualPage - 1) / usualPage * usualPage;
    unmap(mapped, before);
    unmap(mapped + end, room - end);
    ::madvise(mapped + before, size / kPage * kPage, MADV_HUGEPAGE);
    return mapped + before;
}

// What the advice is for is gained in time only: it does not matter when it is not taken.
char* mapWithPages(std::size_t size) {
    const int error = errno;
    char* const memory = size < CLargeMemory::kLargePage ? map(size) : mapAligned(size);
    ::madvise(memory, size, MADV_POPULATE_WRITE);
    errno = error;
    return memory;
}

}  // namespace

CLargeMemory::CLargeMemory(std::size_t size, eContent content)
    : m_memory(isMapped(size) ? mapWithPages(size) : static_cast<char*>(::operator new(size))),
      m_size(size) {
    if (content == eZeroes && !isMapped(size)) {
        std::memset(m_memory, 0, size);
    }
}

CLargeMemory::~CLargeMemory() {
    if (isMapped(m_size)) {
        unmap(m_memory, m_size);
    } else {
        ::operator delete(m_memory);
    }
}

}  // namespace VQRegLib
