// A reading that an error cut short: the file may hold more than the tree.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "support/FileOpsFake.h"
#include "support/StoreFixture.h"

using namespace vqtest;
using testing::ElementsAre;

namespace {

constexpr char kText[] =
    "[Velquist]\n\"a\"=string:x\n\"b\"=string:y\n[Velquist/k]\n\"c\"=string:z\n";
constexpr std::size_t kBeforeB = 30;

class ReadError : public StoreTest {
protected:
    ReadError() { file.write(kText); }

    // In a store that has read the file before.
    void breakReading(CRegLibImplFile& store, FileOpsFake& files) {
        file.write("[Velquist]\n\"a\"=string:new\n\"b\"=string:new\n");
        CFileStoreProbe(store).moveStamp();
        files.breakReadingAfter(kBeforeB, EIO);
    }
};

}  // namespace

TEST_F(ReadError, DoesNotMakeAnOpeningStoreWriteWhatItHasRead) {
    FileOpsFake files;
    files.fail(FileCall::eRead, EIO);
    EXPECT_THROW(open(), VQException);
    EXPECT_EQ(file.read(), kText);
    EXPECT_FALSE(file.backupExists());
    files.heal();
    const auto store = open();
    EXPECT_THAT(keyNames(*store, *store->RootKey()), ElementsAre("k"));
    EXPECT_EQ(file.read(), kText);
}

TEST_F(ReadError, IsNoFailureOfWhoReads) {
    FileOpsFake files;
    files.breakReadingAfter(kBeforeB, EIO);
    const auto store = open();
    EXPECT_EQ(get(*store, *store->RootKey(), "a"), Value::ofText("x"));
    EXPECT_EQ(get(*store, *store->RootKey(), "b"), Value::failure(REGLIB_E_NOT_FOUND));
    EXPECT_EQ(file.read(), kText);
}

TEST_F(ReadError, EveryOperationReadsAgainUntilAWholeReadingSucceeds) {
    const auto store = open();
    CRegKey& root = *store->RootKey();
    FileOpsFake files;
    breakReading(*store, files);
    EXPECT_EQ(get(*store, root, "b"), Value::ofText("y"));
    EXPECT_EQ(get(*store, root, "b"), Value::ofText("y"));
    EXPECT_EQ(files.count(FileCall::eOpenForReading), 2);
    files.heal();
    EXPECT_EQ(get(*store, root, "b"), Value::ofText("new"));
    EXPECT_EQ(get(*store, root, "b"), Value::ofText("new"));
    EXPECT_EQ(files.count(FileCall::eOpenForReading), 3);
}

// A disk that fails may take its time to say so.
TEST_F(ReadError, EndsAComparisonWithoutASecondReading) {
    const auto store = open();
    CFileStoreProbe(*store).moveStamp();
    FileOpsFake files;
    files.breakReadingAfter(kBeforeB, EIO);
    EXPECT_EQ(get(*store, *store->RootKey(), "b"), Value::ofText("y"));
    EXPECT_EQ(files.count(FileCall::eRead), 1);
}

TEST_F(ReadError, NothingIsWrittenUntilAWholeReadingSucceeds) {
    const auto store = open();
    CRegKey& root = *store->RootKey();
    CRegKey key;
    FileOpsFake files;
    breakReading(*store, files);
    const std::string text = file.read();
    EXPECT_EQ(setText(*store, root, "d", "1"), REGLIB_E_FILE_OPEN);
    EXPECT_EQ(createKey(*store, "new", key), REGLIB_E_FILE_OPEN);
    EXPECT_EQ(store->VQRegDeleteValue(root, "a"), REGLIB_E_FILE_OPEN);
    EXPECT_EQ(store->VQRegBeginUpdate(), REGLIB_E_FILE_OPEN);
    EXPECT_EQ(store->VQRegEndUpdate(), REGLIB_E_FAIL);
    EXPECT_EQ(files.count(FileCall::eCreateForWriting), 0);
    EXPECT_EQ(file.read(), text);
    files.heal();
    EXPECT_EQ(setText(*store, root, "e", "2"), REGLIB_OK);
    EXPECT_EQ(get(*store, root, "a"), Value::ofText("new"));
    EXPECT_EQ(get(*store, root, "d"), Value::ofText("1")) << "what could not be written";
}

TEST_F(ReadError, AFileThatIsGoneAfterwardsIsNotMadeFromHalfATree) {
    const auto store = open();
    FileOpsFake files;
    breakReading(*store, files);
    get(*store, *store->RootKey(), "a");
    ASSERT_EQ(std::remove(file.path().c_str()), 0);
    EXPECT_EQ(get(*store, *store->RootKey(), "a"), Value::ofText("new"));
    EXPECT_FALSE(file.exists());
}
