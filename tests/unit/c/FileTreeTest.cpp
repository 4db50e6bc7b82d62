// Trees that are what a file says: files that cannot be read, and paths that no key has.
#include "RegLib/c/FileTree.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <string>

#include "VQRegLib.h"
#include "support/FileOpsFake.h"
#include "support/TempStore.h"

using namespace VQRegLib;
using vqtest::FileCall;

namespace {

class FileTree : public testing::Test {
protected:
    FileTree() { file.write("[Velquist]\n\"V\"=dword:00000001\n[Velquist/Key]\n"); }

    /// The result of a reading that fails, which gives no tree.
    int read() const {
        std::unique_ptr<CTree> tree;
        const int result = readTree(file.path(), tree);
        EXPECT_EQ(tree != nullptr, result == REGLIB_OK);
        return result;
    }

    const vqtest::TempStore file;
};

}  // namespace

TEST_F(FileTree, OfAFileThatCannotBeOpenedSaysWhy) {
    EXPECT_EQ(read(), REGLIB_OK);
    vqtest::FileOpsFake files;
    files.fail(FileCall::eOpenForReading, EACCES);
    EXPECT_EQ(read(), REGLIB_E_FILE_OPEN);
    files.fail(FileCall::eOpenForReading, ENOENT);
    EXPECT_EQ(read(), REGLIB_E_NOT_FOUND);
    files.fail(FileCall::eOpenForReading, ENOMEM);
    EXPECT_EQ(read(), REGLIB_E_FAIL);
}

// What would be missing in it would be taken for deleted.
TEST_F(FileTree, IsNotMadeOfHalfAFile) {
    vqtest::FileOpsFake files;
    for (const auto& [error, result] :
         {std::pair(EIO, REGLIB_E_FILE_OPEN), std::pair(ENOMEM, REGLIB_E_FAIL)}) {
        files.breakReadingAfter(std::string("[Velquist]\n").size(), error);
        EXPECT_EQ(read(), result) << error;
    }
    files.heal();
    EXPECT_EQ(read(), REGLIB_OK);
}

TEST_F(FileTree, ATextIsNoHalfOneEither) {
    std::string text;
    EXPECT_TRUE(readText(file.path(), text));
    EXPECT_EQ(text, file.read());
    vqtest::FileOpsFake files;
    files.breakReadingAfter(5, EIO);
    EXPECT_FALSE(readText(file.path(), text));
    files.fail(FileCall::eOpenForReading, EACCES);
    EXPECT_FALSE(readText(file.path(), text));
}

TEST_F(FileTree, HasNoKeyWhereAValueIs) {
    std::unique_ptr<CTree> tree;
    ASSERT_EQ(readTree(file.path(), tree), REGLIB_OK);
    const CKeyOrValue* const key = findKey(*tree, "velquist/KEY");
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(tree->nameOf(*key), "Key");
    EXPECT_EQ(findKey(*tree, "Velquist/V"), nullptr);
    EXPECT_EQ(findKey(*tree, "Velquist/V/Key"), nullptr);
    EXPECT_EQ(findKey(*tree, "Velquist/Other"), nullptr);
}
