// What is told, through VQRegStore.h, when a key or the file's directory is gone.
#include "store/CxxStoreFixture.h"

namespace {

class StoreLoss : public vqtest::CxxStoreTest {
protected:
    // Another process makes a value of a key at the top that this one has open.
    void makeAValueOf(const std::string& name) {
        vqtest::ForkedChild other([&] {
            const vqreg::Store own = open();
            if (std::optional<vqreg::Key> sub = own.find(name + "/Sub")) {
                sub->erase("Old");
            }
            own.remove(name + "/Sub");
            own.remove(name);
            own.root().set(name, "a value now");
            return 0;
        });
        EXPECT_EQ(other.wait(), 0);
    }

    vqreg::Store store = open();
    vqreg::Key key = store.create("K");
};

const auto kGone = vqreg::errc::invalid_handle;
const auto kFileOpen = vqreg::errc::file_open;

}  // namespace

TEST_F(StoreLoss, OfAKeyThatOthersHaveMadeAValueIsToldToWhoChangesIt) {
    vqreg::Key sub = store.create("A/Sub");
    sub.set("Old", 1);
    makeAValueOf("A");
    EXPECT_EQ(thrown([&] { sub.set("V", 1); }), kGone) << "a key above it";
    EXPECT_EQ(thrown([&] { sub.erase("V"); }), kGone);
    EXPECT_EQ(thrown([&] { sub.values(); }), kGone);
    EXPECT_EQ(thrown([&] { sub.key_names(); }), kGone);
    EXPECT_EQ(sub.get<int>("Old"), 1) << "the memory has it";
    EXPECT_EQ(thrown([&] { store.key("A/Sub"); }), vqreg::errc::not_a_key);
    makeAValueOf("K");
    std::error_code error;
    key.set("V", 1, error);
    EXPECT_EQ(error, kGone) << "the key itself";
    EXPECT_EQ(file.read().find("[Velquist/K]"), std::string::npos);
}

TEST_F(StoreLoss, OfAKeyThatOthersHaveMadeAValueIsToldToAnUpdate) {
    vqreg::Key sub = store.create("A/Sub");
    vqreg::Update update(store);
    update.set(key, "V", 1);
    update.set(sub, "V", 1);
    makeAValueOf("A");
    const std::string before = file.read();
    EXPECT_EQ(thrown([&] { update.commit(); }), kGone);
    EXPECT_EQ(file.read(), before);
    EXPECT_FALSE(update.empty());
    update.clear();
    update.set("A", "V", 1);
    EXPECT_EQ(thrown([&] { update.commit(); }), vqreg::errc::not_a_key);
}

TEST_F(StoreLoss, OfTheRootKeyIsToldByEveryOperation) {
    const vqreg::Store below(file.path(), "A/B");
    below.create("K");
    vqtest::ForkedChild other([&] {
        const vqreg::Store above(file.path(), "A");
        above.remove("B/K");
        above.remove("B");
        above.root().set("B", 1);
        return 0;
    });
    EXPECT_EQ(other.wait(), 0);
    EXPECT_EQ(thrown([&] { below.key("K"); }), kGone);
    EXPECT_EQ(thrown([&] { below.create("New"); }), kGone);
    EXPECT_EQ(thrown([&] { below.remove("K"); }), kGone);
    EXPECT_EQ(thrown([&] { below.root(); }), kGone);
    vqreg::Update update(below);
    update.set("K", "V", 1);
    EXPECT_EQ(thrown([&] { update.commit(); }), kGone);
}

TEST_F(StoreLoss, OfAKeyThatThisProcessHasDeletedIsToldByEveryOperation) {
    store.create("K");
    ASSERT_TRUE(store.remove("K"));
    EXPECT_EQ(thrown([&] { key.get<int>("V"); }), kGone);
    EXPECT_EQ(thrown([&] { key.value("V"); }), kGone);
    EXPECT_EQ(thrown([&] { key.values(); }), kGone);
    EXPECT_EQ(thrown([&] { key.set("V", 1); }), kGone);
    EXPECT_EQ(thrown([&] { key.erase("V"); }), kGone);
    EXPECT_EQ(thrown([&] { key.key("Sub"); }), kGone);
    EXPECT_EQ(thrown([&] { key.find("Sub"); }), kGone);
    EXPECT_EQ(thrown([&] { key.create("Sub"); }), kGone);
    EXPECT_EQ(thrown([&] { key.keys(); }), kGone);
    EXPECT_EQ(thrown([&] { key.key_names(); }), kGone);
    EXPECT_FALSE(store.find("K"));
    std::error_code error;
    EXPECT_FALSE(key.find("Sub", error));
    EXPECT_EQ(error, kGone);
    error.clear();
    EXPECT_FALSE(key.create("Sub", error));
    EXPECT_EQ(error, kGone);
    store.create("K/Sub");
    EXPECT_EQ(thrown([&] { key.key("Sub"); }), kGone) << "that one is another key";
}

TEST_F(StoreLoss, OfTheDirectoryIsAFileThatCannotBeWritten) {
    key.set("V", 1);
    key.set("Old", 1);
    takeDirectoryAway();
    EXPECT_EQ(thrown([&] { key.set("V", 2); }), kFileOpen);
    EXPECT_EQ(thrown([&] { key.erase("Old"); }), kFileOpen);
    std::error_code error;
    key.set("W", 3, error);
    EXPECT_EQ(error, kFileOpen);
    EXPECT_FALSE(key.erase("V", error));
    EXPECT_EQ(error, kFileOpen);
    EXPECT_FALSE(key.erase("None", error));
    EXPECT_FALSE(error) << "there is no such value to delete";
    EXPECT_EQ(thrown([&] { store.create("New"); }), kFileOpen);
    EXPECT_EQ(thrown([&] { store.exclusively([&] { key.set("V", 4); }); }), kFileOpen);
    bringDirectoryBack();
    store.exclusively([] {});
    EXPECT_EQ(file.read(),
              "[Velquist]\n[Velquist/K]\n\"V\"=dword:00000004\n\"W\"=dword:00000003\n"
              "[Velquist/New]\n");
}

TEST_F(StoreLoss, OfTheDirectoryIsToldToWhoDeletesAKey) {
    store.create("Empty");
    takeDirectoryAway();
    EXPECT_EQ(thrown([&] { store.remove("Empty"); }), kFileOpen);
    EXPECT_FALSE(store.remove("Missing"));
    bringDirectoryBack();
    store.exclusively([] {});
    EXPECT_EQ(file.read(), "[Velquist]\n[Velquist/K]\n");
}

TEST_F(StoreLoss, OfTheDirectoryLeavesAnUpdateToBeTriedAgain) {
    key.set("Old", 1);
    vqreg::Update update(store);
    update.set(key, "V", 1);
    update.erase(key, "Old");
    takeDirectoryAway();
    EXPECT_EQ(thrown([&] { update.commit(); }), kFileOpen);
    EXPECT_FALSE(update.empty());
    EXPECT_EQ(key.get<int>("Old"), 1);
    bringDirectoryBack();
    update.commit();
    EXPECT_EQ(file.read(), "[Velquist]\n[Velquist/K]\n\"V\"=dword:00000001\n");
}

// As a change that is not there to be made any more.
TEST_F(StoreLoss, OfTheDirectoryMakesTheSameChangeAgainASuccessThatWritesNothing) {
    key.set("V", 1);
    const std::string before = file.read();
    takeDirectoryAway();
    EXPECT_EQ(thrown([&] { key.set("V", 2); }), kFileOpen);
    EXPECT_NO_THROW(key.set("V", 2));
    bringDirectoryBack();
    EXPECT_NO_THROW(key.set("V", 2));
    EXPECT_EQ(file.read(), before);
    store.exclusively([] {});
    EXPECT_EQ(file.read(), "[Velquist]\n[Velquist/K]\n\"V\"=dword:00000002\n");
}
