// A process may run for years: what it reads and writes again and again takes no more memory each time.
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>

#include "unit/tree/TreeFixture.h"

using namespace VQRegLib;
using namespace vqtest;

namespace {

constexpr int kTimes = 100'000;
constexpr std::size_t kLittle = 1024UL * 1024;

// Zeroes without end, as a sparse file has them.
class Endless : public CTextSource {
public:
    std::size_t read(char* to, std::size_t size) override {
        std::fill_n(to, size, '\0');
        m_read += size;
        return size;
    }
    int error() const override { return 0; }
    void rewind() override { m_read = 0; }
    std::size_t size() const override { return std::numeric_limits<std::size_t>::max() / 2; }

    std::size_t readSize() const { return m_read; }

private:
    std::size_t m_read = 0;
};

class Waste : public TreeFixture {
protected:
    Waste() : m_before(::mallinfo2().uordblks) {}
    std::size_t grownBy() const {
        const std::size_t now = ::mallinfo2().uordblks;
        return now > m_before ? now - m_before : 0;
    }

private:
    const std::size_t m_before;
};

}  // namespace

TEST_F(Waste, AReaderOfLinesThatChangeTheirLengthDoesNotGrow) {
    const std::string on = "[a]\n\"state\"=string:on\n\"other\"=string:x\n";
    const std::string off = "[a]\n\"state\"=string:off for now\n\"other\"=string:x\n";
    for (int round = 0; round < kTimes; ++round) {
        ASSERT_EQ(merge(round % 2 == 0 ? on : off).code, REGLIB_E_END_OF_FILE);
    }
    EXPECT_LT(grownBy(), kLittle);
    EXPECT_EQ(textOf(tree), "[a]\n\"other\"=string:x\n\"state\"=string:off for now\n");
}

TEST_F(Waste, SetsThatNobodyWritesDoNotGrow) {
    Node& state = value(key("a"), "state", "on");
    for (int round = 0; round < kTimes; ++round) {
        set(state, "state", round % 2 == 0 ? "off for now" : "on");
    }
    EXPECT_LT(grownBy(), kLittle);
    EXPECT_EQ(textOf(tree), "[a]\n\"state\"=string:on\n");
}

TEST_F(Waste, AFileThatIsNoTextIsNotReadToItsEnd) {
    Endless source;
    EXPECT_EQ(mergeText(tree, source).code, REGLIB_E_BAD_FORMAT);
    EXPECT_LE(source.readSize(), 32UL * 1024 * 1024);
}

TEST_F(Waste, ATextOfManyBlocksIsReadAsOne) {
    const std::string line(2000, 'x');
    std::string text = "[a]\n";
    for (int number = 10'000; text.size() < 36UL * 1024 * 1024; ++number) {
        text += "\"v" + std::to_string(number) + "\"=string:" + line + "\n";
    }
    ASSERT_EQ(merge(text).code, REGLIB_E_END_OF_FILE);
    EXPECT_EQ(textOf(tree), text);
    TextOf again(text);
    EXPECT_EQ(mergeText(tree, again).code, REGLIB_E_END_OF_FILE);
    EXPECT_EQ(again.rewinds(), 0);
}
