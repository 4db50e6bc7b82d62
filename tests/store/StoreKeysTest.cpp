// Keys through VQRegStore.h.
#include "store/CxxStoreFixture.h"

namespace {

class StoreKeys : public vqtest::CxxStoreTest {
protected:
    vqreg::Store store = open();
};

}  // namespace

TEST_F(StoreKeys, AreOpenedAndMade) {
    EXPECT_EQ(thrown([&] { store.key("A/B"); }), vqreg::errc::key_not_found);
    EXPECT_EQ(textOf([&] { store.key("A/B"); }), "A/B: there is no key of that name");
    EXPECT_FALSE(store.find("A/B"));
    vqreg::Key made = store.create("A/B");
    EXPECT_EQ(made.path(), "A/B");
    EXPECT_EQ(made.name(), "B");
    made.set("V", 5);
    EXPECT_EQ(store.key("a/b").get<int>("V"), 5);
    EXPECT_EQ(store.key("A\\B").get<int>("V"), 5);
    EXPECT_EQ(store.find("A/B")->get<int>("V"), 5);
    EXPECT_NE(file.read().find("[Velquist/A/B]"), std::string::npos);
}

TEST_F(StoreKeys, AreFoundBelowOthers) {
    vqreg::Key network = store.create("Network");
    vqreg::Key ports = network.create("Ports");
    ports.set("Http", 80);
    EXPECT_EQ(ports.path(), "Network/Ports");
    EXPECT_EQ(store.key("Network/Ports").get<int>("Http"), 80);
    EXPECT_EQ(network.key("Ports").get<int>("Http"), 80);
    EXPECT_FALSE(network.find("Missing"));
    EXPECT_EQ(thrown([&] { network.key("Missing"); }), vqreg::errc::key_not_found);
}

TEST_F(StoreKeys, TheRootKeyHasNoPath) {
    vqreg::Key root = store.root();
    root.set("V", 1);
    EXPECT_EQ(root.path(), "");
    EXPECT_EQ(store.key("/").get<int>("V"), 1);
    EXPECT_EQ(store.key("").get<int>("V"), 1);
    EXPECT_EQ(root.create("Sub").path(), "Sub");
    EXPECT_EQ(store.create("/Other").path(), "Other");
    EXPECT_EQ(root.key("").get<int>("V"), 1);
    EXPECT_EQ(thrown([&] { store.remove("/"); }), vqreg::errc::fail) << "the root key stays";
}

TEST_F(StoreKeys, AreDeletedWhenTheyAreEmpty) {
    vqreg::Key key = store.create("A/B");
    key.set("V", 1);
    EXPECT_EQ(thrown([&] { store.remove("A/B"); }), vqreg::errc::key_not_empty);
    key.erase("V");
    EXPECT_TRUE(store.remove("A/B"));
    EXPECT_FALSE(store.remove("A/B"));
    EXPECT_EQ(thrown([&] { key.get<int>("V"); }), vqreg::errc::invalid_handle);
    EXPECT_EQ(thrown([&] { key.set("V", 1); }), vqreg::errc::invalid_handle);
    EXPECT_EQ(thrown([&] { store.key("A/B"); }), vqreg::errc::key_not_found);
    store.create("A/B").set("V", 2);
    EXPECT_EQ(store.key("A/B").get<int>("V"), 2);
    EXPECT_EQ(thrown([&] { key.get<int>("V"); }), vqreg::errc::invalid_handle);
}

TEST_F(StoreKeys, AreNotWhereAValueIs) {
    store.root().set("V", 1);
    EXPECT_EQ(thrown([&] { store.create("V"); }), vqreg::errc::not_a_key);
    EXPECT_EQ(thrown([&] { store.key("V/Sub"); }), vqreg::errc::not_a_key);
    EXPECT_EQ(thrown([&] { store.find("V"); }), vqreg::errc::not_a_key);
    EXPECT_EQ(thrown([&] { store.remove("V"); }), vqreg::errc::not_a_key);
}

TEST_F(StoreKeys, ThatTheFileCannotGiveBackAreRefused) {
    const std::string before = file.read();
    EXPECT_EQ(thrown([&] { store.create("a]"); }), vqreg::errc::not_storable);
    EXPECT_EQ(thrown([&] { store.create("A//B"); }), vqreg::errc::not_storable);
    EXPECT_EQ(thrown([&] { store.create("<root>"); }), vqreg::errc::not_storable);
    EXPECT_EQ(thrown([&] { store.create(std::string("a\0b", 3)); }), vqreg::errc::not_storable);
    EXPECT_EQ(thrown([&] { store.root().create(std::string("a\0b", 3)); }),
              vqreg::errc::not_storable);
    EXPECT_EQ(thrown([&] { store.remove(std::string("a\0b", 3)); }), vqreg::errc::not_storable);
    EXPECT_EQ(
        textOf([&] { store.create("A\nB"); }),
        "A\nB: the file cannot give back such a name or such data: a key name must not hold a "
        "line feed: byte 2");
    EXPECT_EQ(file.read(), before);
}

TEST_F(StoreKeys, ListTheirSubKeys) {
    for (const char* const name : {"K/b", "K/A/Deep", "K/c"}) {
        store.create(name);
    }
    vqreg::Key key = store.key("K");
    EXPECT_EQ(key.key_names(), (vqtest::Texts{"A", "b", "c"}));
    vqtest::Texts paths;
    for (vqreg::Key& sub : key.keys()) {
        sub.set("V", 1);
        paths.push_back(sub.path());
    }
    EXPECT_EQ(paths, (vqtest::Texts{"K/A", "K/b", "K/c"}));
    EXPECT_EQ(store.root().keys().front().path(), "K");
    EXPECT_EQ(store.key("K/b").keys().size(), 0u);
    EXPECT_EQ(store.key("K/b").get<int>("V"), 1);
}

TEST_F(StoreKeys, AreMovedAndNotCopied) {
    static_assert(!std::is_copy_constructible_v<vqreg::Key>);
    static_assert(!std::is_copy_constructible_v<vqreg::Store>);
    static_assert(!std::is_copy_constructible_v<vqreg::Update>);
    static_assert(!std::is_copy_constructible_v<vqreg::Watch>);
    static_assert(std::is_nothrow_move_constructible_v<vqreg::Key>);
    static_assert(std::is_nothrow_move_constructible_v<vqreg::Store>);
    static_assert(std::is_nothrow_move_constructible_v<vqreg::Watch>);
    vqreg::Key key = store.create("A");
    vqreg::Key other = std::move(key);
    other.set("V", 1);
    EXPECT_EQ(thrown([&] { key.set("V", 1); }), vqreg::errc::invalid_handle);
    EXPECT_EQ(thrown([&] { key.keys(); }), vqreg::errc::invalid_handle);
    EXPECT_EQ(thrown([&] { key.values(); }), vqreg::errc::invalid_handle);
    EXPECT_EQ(thrown([&] { key.create("B"); }), vqreg::errc::invalid_handle);
    EXPECT_FALSE(key);
    EXPECT_EQ(key.path(), "");
    key = store.create("B");
    key = std::move(other);
    EXPECT_EQ(key.get<int>("V"), 1);
}

// The last of the objects closes it.
TEST_F(StoreKeys, KeepTheirStoreOpen) {
    const auto makeKey = [this] { return vqreg::Store(file.path(), "Other").create("K"); };
    vqreg::Key key = makeKey();
    key.set("V", 9);
    EXPECT_EQ(key.create("Sub").path(), "K/Sub");
    EXPECT_NE(file.read().find("[Other/K]\n\"V\"=dword:00000009\n"), std::string::npos);
    // The key that is given a new value has the last hold on its store.
    key = store.create("K");
    EXPECT_EQ(key.get<int>("V"), std::nullopt);
}

TEST_F(StoreKeys, WorkInTheChildOfAFork) {
    vqreg::Key key = store.create("K");
    key.set("V", 1);
    vqtest::ForkedChild child([&] {
        const bool isThere = key.get<int>("V") == 1;
        key.set("V", 2);
        store.create("Child").set("W", 3);
        return isThere ? 0 : 1;
    });
    EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(key.get<int>("V"), 2);
    EXPECT_EQ(store.key("Child").get<int>("W"), 3);
}

TEST_F(StoreKeys, OpenAPathAgainWithoutAnotherHandle) {
    store.create("A/B/C");
    VQRegLib::CRegKey before;
    VQRegLib::CRegLib session(file.path().c_str(), nullptr, VQRegLib::CRegLib::eLocationDefault,
                              nullptr);
    ASSERT_EQ(session.VQRegCreateKey(nullptr, "A", before, 0), 0);
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(store.key("A/B/C").values().size(), 0u);
    }
    VQRegLib::CRegKey after;
    ASSERT_EQ(session.VQRegCreateKey(nullptr, "A", after, 0), 0);
    // Of the names A, B and C once at most: that of values() is vqreg.h's.
    EXPECT_LE(after.GetKeyHandleID() - before.GetKeyHandleID(), 4u);
}
