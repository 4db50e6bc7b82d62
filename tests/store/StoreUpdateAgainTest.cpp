// Updates of VQRegStore.h that are given other updates, keys of other objects, and second chances.
#include "store/CxxStoreFixture.h"

namespace {

class StoreUpdateAgain : public vqtest::CxxStoreTest {
protected:
    vqreg::Store store = open();
    vqreg::Key key = store.create("K");
};

}  // namespace

TEST_F(StoreUpdateAgain, KeepsTheStoresOfItsKeysOpen) {
    vqreg::Update update(store);
    {
        const vqreg::Store other = open();
        update.set(other.create("Other"), "V", 1);
        update.erase(other.root(), "None");
    }
    update.commit();
    EXPECT_EQ(store.key("Other").get<int>("V"), 1);
    {
        const vqreg::Store other = open();
        update.set(other.create("Other"), "V", 2);
    }
    update.clear();
    EXPECT_EQ(store.key("Other").get<int>("V"), 1);
}

TEST_F(StoreUpdateAgain, ForgetsWhatItHadWhenItIsGivenAnotherOne) {
    vqreg::Update update(store);
    update.set(key, "Forgotten", 1);
    vqreg::Update other(store);
    other.set(key, "V", 1);
    update = std::move(other);
    EXPECT_TRUE(other.empty());
    std::error_code error;
    other.commit(error);
    EXPECT_EQ(key.get<int>("Forgotten"), std::nullopt);
    update.commit();
    EXPECT_EQ(key.get<int>("V"), 1);
    EXPECT_EQ(key.get<int>("Forgotten"), std::nullopt);
    vqreg::Update& same = update;
    update.set(key, "V", 2);
    update = std::move(same);
    update.commit();
    EXPECT_EQ(key.get<int>("V"), 2);
}

TEST_F(StoreUpdateAgain, CanBeCommittedThoughItDeletesAKeyThatItWasGiven) {
    store.create("K/Sub");
    vqreg::Key old = store.create("Old");
    old.set("N", 1);
    const std::string before = file.read();
    vqreg::Update update(store);
    update.erase(old, "N");
    update.remove("Old");
    update.set(key, "Sub", 1);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(thrown([&] { update.commit(); }), vqreg::errc::not_a_value);
        EXPECT_EQ(file.read(), before);
    }
    ASSERT_TRUE(store.remove("K/Sub"));
    update.commit();
    EXPECT_EQ(file.read(), "[Velquist]\n[Velquist/K]\n\"Sub\"=dword:00000001\n");
}

TEST_F(StoreUpdateAgain, CanBeCommittedWhenTheFileCanBeWrittenAgain) {
    vqreg::Key old = store.create("Old");
    old.set("N", 1);
    vqreg::Update update(store);
    update.erase(old, "N");
    update.remove("Old");
    takeDirectoryAway();
    EXPECT_EQ(thrown([&] { update.commit(); }), vqreg::errc::file_open);
    EXPECT_EQ(thrown([&] { update.commit(); }), vqreg::errc::file_open);
    bringDirectoryBack();
    update.commit();
    EXPECT_EQ(file.read(), "[Velquist]\n[Velquist/K]\n");
}
