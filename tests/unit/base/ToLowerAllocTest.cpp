// Folding names, also without memory. In an executable of its own, because it replaces strdup.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "RegLib/file/FileStore.h"
#include "support/TempStore.h"

namespace {

bool g_isMemoryShort = false;

class ToLower : public testing::Test {
protected:
    ~ToLower() override { g_isMemoryShort = false; }
    std::string lower(const std::string& text) { return m_library.tolower(text); }

    vqtest::TempStore m_store;
    VQRegLib::CRegLibImplFile m_library{m_store.path().c_str(), nullptr,
                                        VQRegLib::CRegLib::eLocationDefault, nullptr};
};

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker gives them
extern "C" char* __real_strdup(const char* text);
extern "C" char* __wrap_strdup(const char* text);

extern "C" char* __wrap_strdup(const char* text) {
    return g_isMemoryShort ? nullptr : __real_strdup(text);
}
// NOLINTEND(bugprone-reserved-identifier)

TEST_F(ToLower, FoldsTheLettersOfAsciiOnly) {
    EXPECT_EQ(lower("NetWork 42 @[`{"), "network 42 @[`{");
    EXPECT_EQ(lower("\xC3\x84\xC4\xDC"), "\xC3\x84\xC4\xDC");
    EXPECT_EQ(lower(""), "");
}

TEST_F(ToLower, StopsAtTheFirstNul) {
    EXPECT_EQ(lower(std::string("AB\0CD", 5)), "ab");
    EXPECT_EQ(lower(std::string("\0AB", 3)), "");
}

TEST_F(ToLower, HasNoLimit) {
    EXPECT_EQ(lower(std::string(100000, 'X')), std::string(100000, 'x'));
}

TEST_F(ToLower, ReturnsTheTextUnchangedWithoutMemory) {
    g_isMemoryShort = true;
    const std::string text = lower("NetWork");
    const std::string withNul = lower(std::string("A\0B", 3));
    g_isMemoryShort = false;
    EXPECT_EQ(text, "NetWork");
    EXPECT_EQ(withNul, std::string("A\0B", 3));
    EXPECT_EQ(lower("NetWork"), "network");
}
