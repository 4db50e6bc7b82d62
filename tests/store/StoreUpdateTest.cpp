// Updates of VQRegStore.h: all of their changes or none, in one write.
#include <atomic>

#include "store/CxxStoreFixture.h"
#include "support/TinyFileSystem.h"

namespace {

class StoreUpdate : public vqtest::CxxStoreTest {
protected:
    vqreg::Store store = open();
    vqreg::Key key = store.create("K");
};

}  // namespace

TEST_F(StoreUpdate, WithoutCommitChangesNothing) {
    const std::string before = file.read();
    {
        vqreg::Update update(store);
        update.set(key, "V", 1);
        update.create("New");
        EXPECT_FALSE(update.empty());
        EXPECT_EQ(key.get<int>("V"), std::nullopt);
    }
    EXPECT_EQ(file.read(), before);
    EXPECT_EQ(key.get<int>("V"), std::nullopt);
}

TEST_F(StoreUpdate, IsOneWrite) {
    key.set("Old", 1);
    const std::string before = file.read();
    const ino_t inode = file.inode();
    vqreg::Update update(store);
    update.set(key, "V", 1);
    update.set("Network/Ports", "Http", 80);
    update.erase(key, "Old");
    update.erase("Nowhere", "None");
    update.create("New");
    update.commit();
    EXPECT_NE(file.inode(), inode);
    EXPECT_EQ(file.readBackup(), before) << "the backup is the text before the one write";
    EXPECT_EQ(file.read(),
              "[Velquist]\n[Velquist/K]\n\"V\"=dword:00000001\n[Velquist/Network]\n"
              "[Velquist/Network/Ports]\n\"Http\"=dword:00000050\n[Velquist/New]\n");
    EXPECT_TRUE(update.empty());
    const ino_t written = file.inode();
    update.commit();
    EXPECT_EQ(file.inode(), written) << "nothing is collected";
}

TEST_F(StoreUpdate, MakesItsChangesInTheirOrder) {
    store.create("A/B").set("V", 1);
    vqreg::Update update(store);
    update.erase("A/B", "V");
    update.remove("A/B");
    update.set("A", "B", "a value now");
    update.set(key, "N", 1);
    update.set(key, "N", 2);
    update.commit();
    EXPECT_EQ(store.key("A").get<std::string>("B"), "a value now");
    EXPECT_EQ(key.get<int>("N"), 2);
}

TEST_F(StoreUpdate, RefusesAtOnceWhatCannotBe) {
    vqreg::Update update(store);
    EXPECT_EQ(thrown([&] { update.set(key, "V", "a\nb"); }), vqreg::errc::not_storable);
    EXPECT_EQ(thrown([&] { update.set(key, "a:b", 1); }), vqreg::errc::not_storable);
    EXPECT_EQ(thrown([&] { update.set(key, "V", -1); }), vqreg::errc::out_of_range);
    EXPECT_EQ(thrown([&] { update.set("a//b", "V", 1); }), vqreg::errc::not_storable);
    EXPECT_EQ(thrown([&] { update.create("a]"); }), vqreg::errc::not_storable);
    EXPECT_EQ(thrown([&] { update.set(key, nullptr, 1); }), vqreg::errc::fail);
    EXPECT_EQ(thrown([&] { update.erase(key, std::string("a\0b", 3)); }),
              vqreg::errc::not_storable);
    EXPECT_EQ(thrown([&] { update.set(vqreg::Key(), "V", 1); }), vqreg::errc::invalid_handle);
    const vqreg::Store other(file.path(), "Other");
    EXPECT_EQ(thrown([&] { update.set(other.create("K"), "V", 1); }), vqreg::errc::invalid_handle);
    EXPECT_TRUE(update.empty());
}

TEST_F(StoreUpdate, CollectsAndRefusesWithoutAnExceptionToo) {
    std::error_code error = vqreg::errc::fail;
    vqreg::Update update(store, error);
    EXPECT_FALSE(error);
    update.set(key, "V", "a\nb", error);
    EXPECT_EQ(error, vqreg::errc::not_storable);
    update.set("a]", "V", 1, error);
    EXPECT_EQ(error, vqreg::errc::not_storable);
    update.create("a]", error);
    EXPECT_EQ(error, vqreg::errc::not_storable);
    update.erase(vqreg::Key(), "V", error);
    EXPECT_EQ(error, vqreg::errc::invalid_handle);
    EXPECT_TRUE(update.empty());
    update.set(key, "V", 1, error);
    EXPECT_FALSE(error);
    update.set("A", "V", 2, error);
    update.erase("A", "None", error);
    update.create("B", error);
    update.remove("C", error);
    EXPECT_FALSE(error);
    update.commit(error);
    EXPECT_FALSE(error);
    EXPECT_EQ(file.read(),
              "[Velquist]\n[Velquist/A]\n\"V\"=dword:00000002\n[Velquist/B]\n[Velquist/K]\n"
              "\"V\"=dword:00000001\n");
}

// Neither the file nor its backup, which has the text before the last change.
TEST_F(StoreUpdate, ThatIsNotPossibleWritesNothing) {
    key.set("V", 1);
    store.create("K/Sub");
    store.create("Full/Sub");
    const ino_t inode = file.inode();
    const auto fails = [&](auto collect) {
        vqreg::Update update(store);
        update.set(key, "V", 2);
        update.set("Made", "V", 2);
        collect(update);
        return thrown([&] { update.commit(); });
    };
    const auto notAValue = vqreg::errc::not_a_value;
    EXPECT_EQ(fails([&](vqreg::Update& update) { update.set(key, "Sub", 1); }), notAValue);
    EXPECT_EQ(fails([&](vqreg::Update& update) { update.erase(key, "Sub"); }), notAValue);
    EXPECT_EQ(fails([&](vqreg::Update& update) { update.create("K/V/W"); }),
              vqreg::errc::not_a_key);
    EXPECT_EQ(fails([&](vqreg::Update& update) { update.set("K/V", "W", 1); }),
              vqreg::errc::not_a_key);
    EXPECT_EQ(fails([&](vqreg::Update& update) { update.remove("Full"); }),
              vqreg::errc::key_not_empty);
    EXPECT_EQ(fails([&](vqreg::Update& update) { update.remove("K/V"); }), vqreg::errc::not_a_key);
    EXPECT_EQ(fails([&](vqreg::Update& update) { update.remove(""); }), vqreg::errc::key_not_empty);
    EXPECT_EQ(key.get<int>("V"), 1);
    EXPECT_EQ(file.inode(), inode);
}

TEST_F(StoreUpdate, ThatIsNotPossibleForWhatItHasMadeItselfWritesTheTextThatIsThere) {
    const std::string before = file.read();
    const ino_t inode = file.inode();
    vqreg::Update update(store);
    update.set("Made", "V", 2);
    update.remove("Made");
    EXPECT_EQ(thrown([&] { update.commit(); }), vqreg::errc::key_not_empty);
    EXPECT_EQ(file.read(), before);
    EXPECT_NE(file.inode(), inode);
}

TEST_F(StoreUpdate, ThatFailsInTheMiddleTakesBackWhatItHasDone) {
    key.set("Text", "before");
    key.set("Gone", 7);
    key.set("Bytes", vqreg::Bytes{std::byte{1}});
    store.create("K/Sub");
    store.create("Empty");
    const std::string before = file.read();
    vqreg::Update update(store);
    update.set(key, "Text", 5);
    update.set(key, "New", "new");
    update.erase(key, "Gone");
    update.erase(key, "Bytes");
    update.remove("Empty");
    update.set("Made/On/The/Way", "V", 1);
    update.set(key, "Sub", 1);  // a key's name
    EXPECT_EQ(thrown([&] { update.commit(); }), vqreg::errc::not_a_value);
    EXPECT_EQ(textOf([&] { update.commit(); }), "K \"Sub\": the name is a key's, not a value's");
    EXPECT_EQ(file.read(), before);
    key.set("Next", 1);
    key.erase("Next");
    EXPECT_EQ(file.read(), before) << "nor does the memory have more";
    EXPECT_FALSE(update.empty());
}

TEST_F(StoreUpdate, TakesBackValuesOfAKeyThatItHasDeleted) {
    vqreg::Key sub = store.create("A/Sub");
    sub.set("V", 1);
    const std::string before = file.read();
    vqreg::Update update(store);
    update.erase(sub, "V");
    update.remove("A/Sub");
    update.remove("A");
    update.remove("K/Missing");
    update.set("A/Sub/Deeper", "W", 2);
    update.remove("A");  // not empty
    std::error_code error;
    update.commit(error);
    EXPECT_EQ(error, vqreg::errc::key_not_empty);
    EXPECT_EQ(file.read(), before);
    EXPECT_EQ(store.key("A/Sub").get<int>("V"), 1);
}

TEST_F(StoreUpdate, ThatCannotBeWrittenIsTakenBackAndCanBeTriedAgain) {
    vqtest::TempStore place;
    const vqtest::TinyFileSystem disk(place.directory(), "size=64k");
    const vqreg::Store small(place.path());
    vqreg::Key kept = small.create("K");
    kept.set("V", 1);
    const std::string before = place.read();
    disk.fill();
    vqreg::Update update(small);
    update.set(kept, "V", 2);
    update.set("K", "W", 3);
    EXPECT_EQ(thrown([&] { update.commit(); }), vqreg::errc::file_open);
    EXPECT_EQ(kept.get<int>("V"), 1);
    EXPECT_EQ(kept.get<int>("W"), std::nullopt);
    ASSERT_EQ(::unlink((place.directory() + "/filling").c_str()), 0);
    EXPECT_EQ(place.read(), before);
    update.commit();
    EXPECT_NE(place.read().find("\"V\"=dword:00000002\n\"W\"=dword:00000003\n"), std::string::npos);
}

TEST_F(StoreUpdate, OfAKeyThatIsGoneFails) {
    vqreg::Key gone = store.create("Gone");
    vqreg::Update update(store);
    update.set(key, "V", 1);
    update.set(gone, "V", 1);
    store.remove("Gone");
    EXPECT_EQ(thrown([&] { update.commit(); }), vqreg::errc::invalid_handle);
    EXPECT_EQ(key.get<int>("V"), std::nullopt);
    update.clear();
    update.set("Gone", "V", 1);
    update.commit();
    EXPECT_EQ(store.key("Gone").get<int>("V"), 1);
}

TEST_F(StoreUpdate, OnAMalformedFileFailsAndChangesNothing) {
    vqreg::Update update(store);
    update.set(key, "V", 1);
    file.write("[Velquist]\nnonsense\n");
    store.reload();
    EXPECT_EQ(textOf([&] { update.commit(); }), "the store's file is malformed: " + file.path() +
                                                    ":2:1: neither a key nor a value begins here");
    EXPECT_EQ(file.read(), "[Velquist]\nnonsense\n");
    EXPECT_NO_THROW(vqreg::Update(store).commit()) << "there is nothing to do";
    file.write("[Velquist]\n");
    store.reload();
    update.commit();
    EXPECT_NE(file.read().find("\"V\"=dword:00000001\n"), std::string::npos);
}

TEST_F(StoreUpdate, IsMovedWithWhatItHasCollected) {
    vqreg::Update update(store);
    update.set(key, "V", 1);
    vqreg::Update other = std::move(update);
    other.commit();
    EXPECT_EQ(key.get<int>("V"), 1);
}

// What other processes see is the state before or the one after.
TEST_F(StoreUpdate, IsSeenWholeByOtherProcesses) {
    vqtest::Common<std::atomic<bool>> isOver;
    key.set("A", 0);
    key.set("B", 0);
    vqtest::ForkedChild reader([&] {
        const vqreg::Store own = open();
        const vqreg::Key seen = own.key("K");
        while (!*isOver) {
            const std::vector<vqreg::Value> values = own.exclusively([&] { return seen.values(); });
            if (values.size() != 2 || !values[0].has_same_data(values[1])) {
                return 1;
            }
        }
        return 0;
    });
    for (int i = 1; i <= 200; ++i) {
        vqreg::Update update(store);
        update.set(key, "A", i);
        update.set(key, "B", i);
        update.commit();
    }
    *isOver = true;
    EXPECT_EQ(reader.wait(), 0);
}
