// Paths with too many slashes, and paths that lead to nothing, through VQRegStore.h.
#include <malloc.h>

#include "store/CxxStoreFixture.h"

namespace {

class StorePaths : public vqtest::CxxStoreTest {
protected:
    vqreg::Store store = open();
};

const auto kNotStorable = vqreg::errc::not_storable;

}  // namespace

// One "/" in front is allowed; the second one would be that of a name without letters.
TEST_F(StorePaths, WithTwoSlashesInFrontAreNotMade) {
    const std::string before = file.read();
    EXPECT_EQ(thrown([&] { store.create("//x"); }), kNotStorable);
    EXPECT_EQ(thrown([&] { store.create("//"); }), kNotStorable);
    EXPECT_EQ(thrown([&] { store.root().create("//y"); }), kNotStorable);
    EXPECT_EQ(thrown([&] { store.create("K").create("//y"); }), kNotStorable);
    EXPECT_TRUE(store.remove("K"));
    EXPECT_EQ(textOf([&] { store.create("//x"); }),
              "/x: the file cannot give back such a name or such data: a key name must not be "
              "empty");
    EXPECT_EQ(file.read(), before);
}

TEST_F(StorePaths, WithTwoSlashesInFrontAreOtherPathsThanWithOne) {
    store.create("x").set("V", 1);
    const auto missing = vqreg::errc::key_not_found;
    EXPECT_EQ(thrown([&] { store.key("//x"); }), missing);
    EXPECT_EQ(thrown([&] { store.key("//"); }), missing);
    EXPECT_EQ(thrown([&] { store.root().key("//x"); }), missing);
    EXPECT_FALSE(store.root().find("//x"));
    store.create("y");
    EXPECT_FALSE(store.remove("//y"));
    EXPECT_TRUE(store.find("y"));
    EXPECT_EQ(store.root().key("/x").get<int>("V"), 1) << "one is allowed there, too";
}

TEST_F(StorePaths, WithTwoSlashesInFrontAreRefusedByUpdates) {
    store.create("x");
    vqreg::Update update(store);
    EXPECT_EQ(thrown([&] { update.set("//z", "V", 1); }), kNotStorable);
    EXPECT_EQ(thrown([&] { update.create("//"); }), kNotStorable);
    update.remove("//x");
    update.erase("//x", "V");
    update.commit();
    EXPECT_TRUE(store.find("x"));
}

// A file may hold such keys all the same.
TEST_F(StorePaths, OfKeysWithoutANameAreOpenedWhereTheyExist) {
    file.write("[Velquist]\n[Velquist//x]\n\"V\"=dword:00000007\n");
    store.reload();
    EXPECT_EQ(store.key("//x").get<int>("V"), 7);
    vqreg::Update update(store);
    update.set("//x", "V", 8);
    update.commit();
    EXPECT_EQ(store.create("//x").get<int>("V"), 8);
}

TEST_F(StorePaths, ThatLeadNowhereAreNotKept) {
    const std::string longName(500, 'x');
    const auto ask = [&](int from) {
        for (int i = from; i < from + 1000; ++i) {
            EXPECT_FALSE(store.find(longName + std::to_string(i)));
        }
    };
    ask(0);
    const std::size_t before = ::mallinfo2().uordblks;
    ask(1000);
    EXPECT_LT(::mallinfo2().uordblks, before + 100000);
}

TEST_F(StorePaths, OfKeysThatWereDeletedAreNotKept) {
    const std::string longName(500, 'x');
    const auto makeAndDelete = [&](int from) {
        for (int i = from; i < from + 200; ++i) {
            const std::string name = longName + std::to_string(i);
            store.create(name);
            EXPECT_TRUE(store.remove(name));
        }
    };
    makeAndDelete(0);
    const std::size_t before = ::mallinfo2().uordblks;
    makeAndDelete(200);  // the library itself keeps something of each
    EXPECT_LT(::mallinfo2().uordblks, before + 200000);
}
