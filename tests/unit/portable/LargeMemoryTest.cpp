#include "portable/LargeMemory.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <new>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

using VQRegLib::CLargeMemory;

namespace {

constexpr std::size_t kLarge = CLargeMemory::kLargePage;

// What the kernel says in one of its lines on the mapping in which an address lies; empty when it lies in
// none.
std::string lineOfMapping(const char* at, const std::string& name) {
    std::ifstream mappings("/proc/self/smaps");
    const auto wanted = reinterpret_cast<std::uintptr_t>(at);
    bool isIt = false;
    for (std::string line; std::getline(mappings, line);) {
        std::uintptr_t begin = 0;
        std::uintptr_t end = 0;
        char dash = 0;
        if (std::istringstream(line) >> std::hex >> begin >> dash >> end && dash == '-') {
            isIt = begin <= wanted && wanted < end;
        } else if (isIt && line.starts_with(name + ':')) {
            return line + ' ';
        }
    }
    return {};
}

std::string flagsOfMapping(const char* at) {
    return lineOfMapping(at, "VmFlags");
}

void fill(const CLargeMemory& memory, char with) {
    std::fill_n(memory.get(), memory.size(), with);
}

bool isAll(const CLargeMemory& memory, char expected) {
    return std::all_of(memory.get(), memory.get() + memory.size(),
                       [&](char byte) { return byte == expected; });
}

}  // namespace

TEST(LargeMemory, IsWholeWhateverItsSize) {
    for (const std::size_t size : {std::size_t{1}, std::size_t{4095}, std::size_t{200001},
                                   kLarge - 1, kLarge, kLarge + 1, 2 * kLarge + 4097}) {
        const CLargeMemory memory(size);
        ASSERT_EQ(memory.size(), size);
        fill(memory, 'x');
        EXPECT_TRUE(isAll(memory, 'x')) << size;
    }
}

TEST(LargeMemory, IsZeroesWhereTheyAreAskedFor) {
    for (const std::size_t size : {std::size_t{100}, std::size_t{70000}, kLarge + 100}) {
        fill(CLargeMemory(size), 'x');
        EXPECT_TRUE(isAll(CLargeMemory(size, CLargeMemory::eZeroes), '\0')) << size;
    }
}

TEST(LargeMemory, IsAMappingOfItsOwnFrom128KilobytesOn) {
    const CLargeMemory memory(128UL * 1024);
    const auto pageSize = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory.get()) % pageSize, 0u);
}

// Of what it takes to lie in large pages, it gives back what is around.
TEST(LargeMemory, TakesNoMoreAddressesThanItNeeds) {
    const auto pages = [] {
        std::size_t all = 0;
        std::ifstream("/proc/self/statm") >> all;
        return all;
    };
    const auto pageSize = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    const std::size_t before = pages();
    const CLargeMemory memory(3 * kLarge);
    EXPECT_LT(pages() - before, (3 * kLarge + kLarge / 4) / pageSize);
}

TEST(LargeMemory, LiesInLargePagesAsFarAsItFillsThem) {
    if (!std::ifstream("/sys/kernel/mm/transparent_hugepage/enabled")) {
        GTEST_SKIP() << "the system has no large pages";
    }
    const CLargeMemory memory(2 * kLarge + 4096);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory.get()) % kLarge, 0u);
    EXPECT_NE(flagsOfMapping(memory.get()).find(" hg "), std::string::npos)
        << flagsOfMapping(memory.get());
    EXPECT_EQ(flagsOfMapping(memory.get() + 2 * kLarge).find(" hg "), std::string::npos);
}

TEST(LargeMemory, HasItsPagesBeforeTheyAreTouched) {
    char* const page = static_cast<char*>(std::aligned_alloc(4096, 4096));
    const bool isKnown = ::madvise(page, 4096, MADV_POPULATE_WRITE) == 0;
    std::free(page);
    if (!isKnown) {
        GTEST_SKIP() << "the system gives pages at their first touch only";
    }
    const CLargeMemory memory(kLarge - 4096);
    std::vector<unsigned char> isThere(memory.size() / 4096);
    ASSERT_EQ(::mincore(memory.get(), memory.size(), isThere.data()), 0);
    EXPECT_EQ(
        std::count_if(isThere.begin(), isThere.end(), [](unsigned char in) { return in & 1; }),
        static_cast<std::ptrdiff_t>(isThere.size()));
}

TEST(LargeMemory, GoesBackToTheSystem) {
    const char* at = nullptr;
    {
        const CLargeMemory memory(kLarge + 1);
        at = memory.get();
        fill(memory, 'x');
        ASSERT_NE(flagsOfMapping(at), "");
    }
    EXPECT_EQ(flagsOfMapping(at), "");
}

TEST(LargeMemory, MovesWithItsContent) {
    CLargeMemory one(kLarge + 1);
    fill(one, 'x');
    const char* const at = one.get();
    CLargeMemory other(std::move(one));
    EXPECT_EQ(other.get(), at);
    one = CLargeMemory(3);
    one = std::move(other);
    EXPECT_EQ(one.get(), at);
    EXPECT_TRUE(isAll(one, 'x'));
}

TEST(LargeMemory, FailsWhereThereIsNotSoMuch) {
    EXPECT_THROW(CLargeMemory(std::numeric_limits<std::size_t>::max() - 100), std::bad_alloc);
    if constexpr (sizeof(std::size_t) > 4) {  // half of fewer addresses may well be free
        EXPECT_THROW(CLargeMemory(std::numeric_limits<std::size_t>::max() / 2), std::bad_alloc);
    }
}
