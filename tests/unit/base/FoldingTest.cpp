#include "RegLib/base/Folding.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "RegLib/base/HashedName.h"
#include "portable/Portable.h"

using namespace VQRegLib;

namespace {

std::string foldedByBytes(std::string_view text) {
    std::string folded;
    for (const char byte : text) {
        folded += CPortable::foldedChar(byte);
    }
    return folded;
}

// Both words may have some bytes of the text.
std::string foldedByWords(std::string_view text) {
    std::string all;
    do {
        const std::size_t size = std::min(text.size(), kTwoWords);
        const CTwoWords words = folded(loadTwoWords(text.data(), size));
        std::string piece(kTwoWords, '\0');
        if (size >= 8) {
            std::memcpy(piece.data() + size - 8, &words.last, 8);
        } else {
            EXPECT_EQ(words.last, 0u);
        }
        std::memcpy(piece.data(), &words.first, 8);
        EXPECT_EQ(piece.substr(size), std::string(kTwoWords - size, '\0'));
        all += piece.substr(0, size);
        text.remove_prefix(size);
    } while (!text.empty());
    return all;
}

int sign(int number) {
    return number < 0 ? -1 : number > 0 ? 1 : 0;
}

// Texts that begin alike, with bytes around the letters and above 127.
class RandomTexts {
public:
    std::string operator()(std::size_t size) {
        static constexpr std::string_view kBytes("@AZ[`az{Mm\0\x7F\x80\xC1\xDA\xE1\xFF", 17);
        std::string text = std::string(size, 'p');
        for (std::size_t left = below(3); left > 0 && size > 0; --left) {
            text[below(size)] = kBytes[below(kBytes.size())];
        }
        return text;
    }
    std::size_t below(std::size_t limit) { return m_random() % limit; }

private:
    std::mt19937 m_random{7};
};

// The end of a page, behind which nothing may be read.
class PageEnd {
public:
    PageEnd() {
        void* const pages =
            mmap(nullptr, 2 * m_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        m_pages = pages != MAP_FAILED ? static_cast<char*>(pages) : nullptr;
        if (!m_pages || mprotect(m_pages + m_size, m_size, PROT_NONE) != 0) {
            ADD_FAILURE() << "no pages";
        }
    }
    ~PageEnd() { munmap(m_pages, 2 * m_size); }
    PageEnd(const PageEnd&) = delete;
    PageEnd& operator=(const PageEnd&) = delete;

    std::string_view put(const std::string& text) {
        char* const at = m_pages + m_size - text.size();
        text.copy(at, text.size());
        return {at, text.size()};
    }

private:
    const std::size_t m_size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    char* m_pages = nullptr;
};

// A heap block of exactly this size, whose borders a sanitizer watches.
class Exactly {
public:
    explicit Exactly(const std::string& text)
        : m_memory(std::make_unique<char[]>(text.size())), m_size(text.size()) {
        text.copy(m_memory.get(), m_size);
    }
    std::string_view view() const { return {m_memory.get(), m_size}; }

private:
    std::unique_ptr<char[]> m_memory;
    std::size_t m_size;
};

}  // namespace

TEST(Folding, MakesOfEachByteWhatTheRuleForOneByteMakes) {
    for (unsigned byte = 0; byte < 256; ++byte) {
        for (std::size_t size = 1; size <= 17; ++size) {
            for (std::size_t at = 0; at < size; ++at) {
                for (const char around : {'\0', 'Z', '\xFF'}) {
                    std::string text(size, around);
                    text[at] = static_cast<char>(byte);
                    ASSERT_EQ(foldedByWords(text), foldedByBytes(text)) << byte << " " << size;
                }
            }
        }
    }
}

TEST(Folding, OrdersAsTheFoldedTextsAreOrdered) {
    RandomTexts random;
    for (int round = 0; round < 50000; ++round) {
        const std::string one = random(random.below(20));
        const std::string two = random(random.below(2) == 0 ? one.size() : random.below(20));
        const int expected = sign(foldedByBytes(one).compare(foldedByBytes(two)));
        ASSERT_EQ(sign(compareFolded(one, two)), expected) << one << " " << two;
        ASSERT_EQ(isSameName(one, two), expected == 0) << one << " " << two;
    }
}

TEST(Folding, PutsAShorterNameBeforeThoseThatBeginWithIt) {
    const std::string longest(40, 'N');
    for (std::size_t size = 0; size < longest.size(); ++size) {
        ASSERT_LT(compareFolded(longest.substr(0, size), std::string(40, 'n')), 0) << size;
        ASSERT_GT(compareFolded(longest, std::string(size, 'n')), 0) << size;
        ASSERT_LT(compareFolded(longest.substr(0, size), longest.substr(0, size) + '\0'), 0);
        ASSERT_FALSE(isSameName(longest.substr(0, size), std::string(40, 'n')));
    }
    EXPECT_EQ(compareFolded(std::string_view(), std::string_view()), 0);
    EXPECT_TRUE(isSameName(std::string_view(), std::string_view()));
}

TEST(Folding, TellsNamesApartThatDifferInOneByte) {
    for (std::size_t size = 1; size <= 33; ++size) {
        for (std::size_t at = 0; at < size; ++at) {
            std::string other(size, 'N');
            other[at] = 'm';
            EXPECT_TRUE(isSameName(std::string(size, 'N'), std::string(size, 'n')));
            EXPECT_FALSE(isSameName(std::string(size, 'n'), other)) << size << " " << at;
        }
    }
}

TEST(Folding, HashesAllSpellingsAlike) {
    RandomTexts random;
    for (unsigned round = 0; round < 2000; ++round) {
        const std::string name = random(round % 300);
        const std::uint64_t hash = CHashedName(name).hash();
        ASSERT_EQ(CHashedName(foldedByBytes(name)).hash(), hash);
        ASSERT_EQ(CHashedName(name).hash(), hash);
        ASSERT_EQ(CHashedName(foldedByBytes(name)).hash(), hash);
        if (!name.empty()) {
            ASSERT_NE(CHashedName(name.substr(1)).hash(), hash) << "a prefix in a chain of bytes";
        }
    }
}

TEST(Folding, HashesEachByteOfAName) {
    for (std::size_t size = 1; size <= 33; ++size) {
        for (std::size_t at = 0; at < size; ++at) {
            std::string other(size, 'n');
            other[at] = 'm';
            ASSERT_NE(CHashedName(other).hash(), CHashedName(std::string(size, 'n')).hash());
        }
    }
}

TEST(Folding, ReadsNoByteBehindAText) {
    PageEnd page;
    PageEnd another;
    for (std::size_t size = 0; size <= 40; ++size) {
        const std::string text(size, 'T');
        const std::string_view end = page.put(text);
        const std::string_view other = another.put(foldedByBytes(text));
        EXPECT_EQ(foldedByWords(end), foldedByBytes(text));
        EXPECT_EQ(compareFolded(end, other), 0);
        EXPECT_TRUE(isSameName(end, other));
        EXPECT_EQ(CHashedName(end).hash(), CHashedName(other).hash());
    }
}

TEST(Folding, ReadsNoByteAroundATextInTheHeap) {
    for (std::size_t size = 0; size <= 40; ++size) {
        const Exactly text(std::string(size, 'T'));
        const Exactly other(std::string(size, 't'));
        const Exactly longer(std::string(size + 3, 't'));
        EXPECT_EQ(foldedByWords(text.view()), other.view());
        EXPECT_EQ(compareFolded(text.view(), other.view()), 0);
        EXPECT_LT(compareFolded(text.view(), longer.view()), 0);
        EXPECT_TRUE(isSameName(text.view(), other.view()));
        EXPECT_EQ(CHashedName(text.view()).hash(), CHashedName(other.view()).hash());
    }
}
