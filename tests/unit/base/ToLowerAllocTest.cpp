// Folding names, also without memory. In an executable of its own, because it replaces strdup.
#include <gtest/gtest.h>

#include <string>

#include "RegLib/file/FileStore.h"
#include "support/FailingCopies.h"
#include "support/TempStore.h"

namespace {

class ToLower : public testing::Test {
protected:
    std::string lower(const std::string& text) { return m_library.tolower(text); }

    vqtest::TempStore m_store;
    VQRegLib::CRegLibImplFile m_library{m_store.path().c_str(), nullptr,
                                        VQRegLib::CRegLib::eLocationDefault, nullptr};
};

}  // namespace

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
    {
        const vqtest::CopiesLeft none(0);
        EXPECT_EQ(lower("NetWork"), "NetWork");
        EXPECT_EQ(lower(std::string("A\0B", 3)), std::string("A\0B", 3));
    }
    EXPECT_EQ(lower("NetWork"), "network");
}
