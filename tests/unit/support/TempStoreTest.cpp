#include "support/TempStore.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <system_error>

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using vqtest::TempStore;

namespace {

void touch(const std::string& path) {
    std::ofstream out(path);
}

}  // namespace

TEST(TempStore, StartsWithAnEmptyDirectoryOfItsOwn) {
    const TempStore first;
    const TempStore second;
    EXPECT_NE(first.directory(), second.directory());
    EXPECT_TRUE(fs::is_directory(first.directory()));
    EXPECT_EQ(first.path().find(first.directory() + "/"), 0u);
    EXPECT_EQ(first.backupPath(), first.path() + ".bak");
    EXPECT_THAT(first.files(), IsEmpty());
    EXPECT_FALSE(first.exists());
    EXPECT_FALSE(first.backupExists());
}

TEST(TempStore, ReadsAndWritesTheFile) {
    const TempStore store;
    EXPECT_THROW(store.read(), std::runtime_error);
    EXPECT_THROW(store.inode(), std::system_error);
    store.write("[Velquist]\n");
    EXPECT_TRUE(store.exists());
    EXPECT_EQ(store.read(), "[Velquist]\n");
    EXPECT_GT(store.mtime(), 0);
    const ino_t inode = store.inode();
    store.write("[V]\n");
    EXPECT_EQ(store.read(), "[V]\n");
    EXPECT_EQ(store.inode(), inode);
    EXPECT_THAT(store.files(), ElementsAre("store.cfg"));
}

TEST(TempStore, ReadsTheBackup) {
    const TempStore store;
    store.write("old");
    fs::rename(store.path(), store.backupPath());
    EXPECT_TRUE(store.backupExists());
    EXPECT_EQ(store.readBackup(), "old");
    EXPECT_THAT(store.files(), ElementsAre("store.cfg.bak"));
}

TEST(TempStore, EncodesPaths) {
    EXPECT_EQ(vqtest::encodedPath("/tmp/50%/x"), "%2Ftmp%2F50%25%2Fx");
}

TEST(TempStore, RemovesWhatBelongsToItAndNothingElse) {
    auto store = std::make_unique<TempStore>();
    const TempStore other;
    const std::string directory = store->directory();
    const std::string mutex = "CPLock." + vqtest::encodedPath(store->path());
    const std::string memory = "CPBlock." + vqtest::encodedPath(store->path());
    const std::string foreign = "CPLock." + vqtest::encodedPath(other.path());
    const std::string unknown = "Other." + vqtest::encodedPath(store->path());
    for (const std::string& name : {mutex, memory, foreign, unknown}) {
        touch("/dev/shm/" + name);
    }
    store->write("x");
    fs::create_directories(directory + "/a/b");
    EXPECT_THAT(store->sharedObjects(), ElementsAre(memory, mutex));

    store.reset();
    EXPECT_FALSE(fs::exists(directory));
    EXPECT_FALSE(fs::exists("/dev/shm/" + mutex));
    EXPECT_FALSE(fs::exists("/dev/shm/" + memory));
    EXPECT_TRUE(fs::exists("/dev/shm/" + foreign));
    EXPECT_TRUE(fs::remove("/dev/shm/" + unknown));
}
