// What the C interface says without memory for a sentence.
#include <gtest/gtest.h>
#include <vqreg.h>

#include <string>

#include "support/FailingAllocation.h"
#include "support/TempStore.h"

namespace {

std::size_t whyNotStorable(const std::string& path, const char* name, char* text, size_t room) {
    return vqreg_why_not_storable(nullptr, path.c_str(), name, VQREG_BINARY, nullptr, 0, text,
                                  room);
}

}  // namespace

// Who asks goes by whether there is a sentence, and would write what nobody can read.
TEST(CSentenceWithoutMemory, OfWhatCannotBeStoredIsThereAllTheSame) {
    const std::string path(40, 'p');
    bool hasFailed = true;
    long n = 0;
    for (; hasFailed; ++n) {
        char text[200] = "";
        std::size_t ofName = 0;
        std::size_t ofPath = 0;
        {
            vqtest::FailingAllocation one(n);
            ofName = whyNotStorable(path, "two\nlines", text, sizeof text);
            ofPath = whyNotStorable("two\nlines", nullptr, nullptr, 0);
            hasFailed = one.hasFailed();
        }
        EXPECT_EQ(ofName, std::string(text).size()) << n;
        EXPECT_GT(ofName, 0u) << n;
        EXPECT_GT(ofPath, 0u) << n;
    }
    EXPECT_GT(n, 1) << "nothing is allocated here";
}

TEST(CSentenceWithoutMemory, IsNotMadeOfWhatCanBeStored) {
    const vqtest::TempStore file;
    vqreg_store* const store =
        vqreg_open(file.path().c_str(), "a root key with a long name", nullptr);
    ASSERT_NE(store, nullptr);
    {
        vqtest::FailingAllocation first(0);
        EXPECT_EQ(vqreg_why_not_storable(store, "Key", "a name that is long", VQREG_BINARY, nullptr,
                                         0, nullptr, 0),
                  0u);
        EXPECT_FALSE(first.hasFailed());
    }
    vqreg_close(store);
}
