// Trees as deep as a line of the file allows, on threads with little stack.
#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>
#include <string>

#include "support/StoreFixture.h"

using namespace vqtest;

namespace {

constexpr std::size_t kSmallStack = 128UL * 1024;
constexpr int kLevels = 1000;

void* run(void* work) {
    (*static_cast<std::function<void()>*>(work))();
    return nullptr;
}

void onSmallStack(std::function<void()> work) {
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, kSmallStack), 0);
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &work), 0);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    pthread_attr_destroy(&attributes);
}

std::string deepPath(int levels) {
    std::string path = "k";
    for (int level = 1; level < levels; ++level) {
        path += "/k";
    }
    return path;
}

class DeepTree : public StoreTest {};

}  // namespace

TEST_F(DeepTree, IsReadChangedWrittenDumpedAndFreedWithLittleStack) {
    const std::string path = "Velquist/" + deepPath(kLevels);
    file.write("[" + path + "]\n\"a\"=string:x\n");
    onSmallStack([&] {
        const auto store = open();
        CRegKey key;
        ASSERT_EQ(openKey(*store, deepPath(kLevels).c_str(), key), REGLIB_OK);
        EXPECT_EQ(get(*store, key, "a"), Value::ofText("x"));
        EXPECT_EQ(setText(*store, key, "a", "y"), REGLIB_OK);
        testing::internal::CaptureStdout();
        store->dump();
        EXPECT_NE(testing::internal::GetCapturedStdout().find("\"a\"=string:y"), std::string::npos);
    });
    EXPECT_NE(file.read().find("\"a\"=string:y"), std::string::npos);
}

TEST_F(DeepTree, MayBeDeeperInMemoryThanAnyLine) {
#if defined(__SANITIZE_THREAD__)
    constexpr int kTimes =
        2;  // each key's line is as long as the way to it, and each byte is looked at
#else
    constexpr int kTimes = 5;
#endif
    onSmallStack([&] {
        const auto store = open();
        CRegKey key;
        ASSERT_EQ(createKey(*store, deepPath(kTimes * kLevels).c_str(), key), REGLIB_OK);
        EXPECT_EQ(CFileStoreProbe(*store).childrenOf(CFileStoreProbe(*store).treeRoot()), 1u);
    });
}

// A value line that takes a key's name takes all below it out of the tree.
TEST_F(DeepTree, IsDisplacedAsAWholeWithLittleStack) {
    onSmallStack([&] {
        const auto store = open();
        CRegKey key;
        ASSERT_EQ(createKey(*store, ("d/" + deepPath(kLevels)).c_str(), key), REGLIB_OK);
        file.write("[Velquist]\n\"d\"=string:x\n");
        CFileStoreProbe(*store).moveStamp();
        EXPECT_EQ(get(*store, *store->RootKey(), "d"), Value::ofText("x"));
        EXPECT_EQ(store->VQRegDeleteValue(*store->RootKey(), "d"), REGLIB_OK);
        EXPECT_EQ(setText(*store, key, "a", "y"), REGLIB_OK) << "its handles go on working";
    });
}

// Each refused deletion leaves ids behind. If a deletion looked at all of them, this would take
// minutes.
TEST_F(DeepTree, ADeletionCostsWhatTheKeysOwnHandlesCost) {
    const auto store = open();
    CRegKey& root = *store->RootKey();
    CRegKey key;
    ASSERT_EQ(createKey(*store, "a/b/c", key), REGLIB_OK);
    for (int i = 0; i < 200'000; ++i) {
        ASSERT_EQ(store->VQRegDeleteKey(root, "a/b"), REGLIB_E_KEY_NOT_EMPTY);
    }
    ASSERT_EQ(store->VQRegBeginUpdate(), REGLIB_OK);
    for (int i = 0; i < 5000; ++i) {
        CRegKey passing;
        ASSERT_EQ(createKey(*store, "passing", passing), REGLIB_OK);
        ASSERT_EQ(store->VQRegDeleteKey(root, "passing"), REGLIB_OK);
        EXPECT_EQ(setText(*store, passing, "a", "x"), REGLIB_E_INVALID_HANDLE);
    }
    EXPECT_EQ(store->VQRegEndUpdate(), REGLIB_OK);
}
