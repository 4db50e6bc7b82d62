// Stores that open and stores that do not, and what is told about it.
#include <cerrno>

#include "store/CxxStoreFixture.h"
#include "support/TinyFileSystem.h"

using StoreOpening = vqtest::CxxStoreTest;

TEST_F(StoreOpening, MakesTheFileThatIsMissing) {
    const vqreg::Store store = open();
    EXPECT_TRUE(store);
    EXPECT_EQ(store.why(), "");
    EXPECT_EQ(store.file(), file.path());
    EXPECT_TRUE(file.exists());
}

TEST_F(StoreOpening, TakesTheDefaultStoreWithoutAName) {
    vqreg::Store store;
    store.root().set("V", 1);
    EXPECT_EQ(store.file(), "/etc/Velquist.cfg");
    vqreg::Store same(nullptr, "Velquist");
    EXPECT_EQ(same.root().get<int>("V"), 1);
}

TEST_F(StoreOpening, TellsWhyThereIsNone) {
    const auto text = [](const std::string& path) { return textOf([&] { vqreg::Store{path}; }); };
    EXPECT_EQ(thrown([] { vqreg::Store("/missing/store.cfg"); }), vqreg::errc::not_initialized);
    EXPECT_EQ(text("/missing/store.cfg"),
              "there is no store: /missing/store.cfg: the directory /missing does not exist");
    EXPECT_EQ(text(""), "there is no store: an empty path is no store");
    file.write("[Velquist]\n\"A\"=dword:1\nnonsense\n");
    EXPECT_EQ(text(file.path()),
              "there is no store: " + file.path() + ":3:1: neither a key nor a value begins here");
    EXPECT_EQ(vqreg::Store::why(file.path()),
              file.path() + ":3:1: neither a key nor a value begins here");
}

TEST_F(StoreOpening, WithoutAnExceptionLeavesAnObjectThatTells) {
    std::error_code error;
    vqreg::Store store("/missing/store.cfg", nullptr, error);
    EXPECT_EQ(error, vqreg::errc::not_initialized);
    EXPECT_EQ(error.message(), "there is no store");
    EXPECT_FALSE(store);
    EXPECT_EQ(store.why(), "/missing/store.cfg: the directory /missing does not exist");
    EXPECT_EQ(store.file(), "/missing/store.cfg");
    error.clear();
    EXPECT_FALSE(store.key("K", error));
    EXPECT_EQ(error, vqreg::errc::not_initialized);
    error.clear();
    EXPECT_FALSE(store.remove("K", error));
    EXPECT_EQ(error, vqreg::errc::not_initialized);
    const auto none = vqreg::errc::not_initialized;
    vqreg::Update update(store, error);
    EXPECT_EQ(error, none);
    update.set("K", "V", 1, error);
    EXPECT_EQ(error, none);
    update.commit();
    store.reload(error);
    EXPECT_EQ(error, none);
    const vqreg::Watch watch(
        store, "K", [](const vqreg::Change&) {}, nullptr, error);
    EXPECT_EQ(error, none);
    EXPECT_EQ(thrown([&] { store.root(); }), none);
    EXPECT_EQ(thrown([&] { store.create("K"); }), none);
    EXPECT_EQ(thrown([&] { store.reload(); }), none);
    EXPECT_EQ(thrown([&] { store.notify(); }), none);
    EXPECT_EQ(thrown([&] { store.exclusively([] {}); }), none);
    EXPECT_EQ(thrown([&] { vqreg::Update{store}; }), none);
    EXPECT_EQ(thrown([&] { vqreg::Changes(store, "K"); }), none);
    store = open();
    EXPECT_TRUE(store);
    vqreg::Store good(file.path(), nullptr, error);
    EXPECT_FALSE(error);
}

TEST_F(StoreOpening, TellsWhatHappensToAnOpenStore) {
    const vqreg::Store store = open();
    vqreg::Key key = store.create("K");
    file.write("[Velquist]\n\"A\" dword:1\n");
    store.reload();
    EXPECT_EQ(thrown([&] { key.get<int>("V"); }), vqreg::errc::bad_format);
    EXPECT_EQ(textOf([&] { key.get<int>("V"); }),
              "K \"V\": the store's file is malformed: " + file.path() +
                  ":2:4: no \"=\" follows the name");
    EXPECT_EQ(store.why(), file.path() + ":2:4: no \"=\" follows the name");
    EXPECT_EQ(thrown([&] { store.key("K"); }), vqreg::errc::bad_format);
    EXPECT_EQ(thrown([&] { key.values(); }), vqreg::errc::bad_format);
    file.write("[Velquist]\n[Velquist/K]\n\"V\"=dword:7\n");
    store.reload();
    EXPECT_EQ(key.get<int>("V"), 7);
    EXPECT_EQ(store.why(), "");
}

TEST_F(StoreOpening, TellsAnotherUserWhatHeMayNot) {
    file.write("[Velquist]\n");
    ASSERT_EQ(::chmod(file.path().c_str(), 0), 0);
    ASSERT_EQ(::chmod(file.directory().c_str(), 0755), 0);
    std::string closed;
    std::string missing;
    if (!vqtest::callAsNobody([&] {
            closed = textOf([&] { vqreg::Store{file.path()}; });
            missing = textOf([&] { vqreg::Store{file.directory() + "/other.cfg"}; });
        })) {
        GTEST_SKIP() << "a process may not become another user here";
    }
    EXPECT_EQ(closed, "there is no store: " + file.path() + ": the file may not be read");
    EXPECT_EQ(missing, "there is no store: " + file.directory() +
                           "/other.cfg: the file does not exist, and the directory " +
                           file.directory() + " may not be written");
}

TEST_F(StoreOpening, ReadsWhatItMayNotWrite) {
    file.write("[Velquist]\n\"V\"=dword:00000005\n");
    ASSERT_EQ(::chmod(file.path().c_str(), 0644), 0);
    ASSERT_EQ(::chmod(file.directory().c_str(), 0755), 0);
    const std::string before = file.read();
    std::optional<int> read;
    vqreg::errc set{};
    vqreg::errc committed{};
    if (!vqtest::callAsNobody([&] {
            const vqreg::Store store = open();
            vqreg::Key root = store.root();
            read = root.get<int>("V");
            set = thrown([&] { root.set("V", 6); });
            vqreg::Update update(store);
            update.set(root, "V", 7);
            committed = thrown([&] { update.commit(); });
        })) {
        GTEST_SKIP() << "a process may not become another user here";
    }
    EXPECT_EQ(read, 5);
    EXPECT_EQ(set, vqreg::errc::file_open);
    EXPECT_EQ(committed, vqreg::errc::file_open);
    EXPECT_EQ(file.read(), before);
}

TEST_F(StoreOpening, TellsThatAFileSystemIsFull) {
    const vqtest::TinyFileSystem disk(file.directory(), "size=64k");
    const vqreg::Store store = open();
    vqreg::Key key = store.create("K");
    key.set("V", 1);
    disk.fill();
    EXPECT_EQ(thrown([&] { key.set("V", 2); }), vqreg::errc::file_open);
    EXPECT_EQ(key.get<int>("V"), 2) << "in this process's memory";
    ASSERT_EQ(::unlink((file.directory() + "/filling").c_str()), 0);
    key.set("W", 3);
    EXPECT_NE(file.read().find("\"V\"=dword:00000002\n\"W\"=dword:00000003\n"), std::string::npos)
        << "it goes out with the next change that succeeds";
}

TEST_F(StoreOpening, ErrorsHaveCodeTextPathAndName) {
    const vqreg::Store store = open();
    vqreg::Key key = store.create("A/B");
    key.set("V", "text");
    try {
        key.get<int>("V");
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::system_error& caught) {
        const auto& error = dynamic_cast<const vqreg::Error&>(caught);
        EXPECT_EQ(error.code(), vqreg::errc::bad_type);
        EXPECT_EQ(error.path(), "A/B");
        EXPECT_EQ(error.name(), "V");
        EXPECT_EQ(error.text(), "A/B \"V\": the value has another type");
        const vqreg::Error copy = error;
        EXPECT_STREQ(copy.what(), "A/B \"V\": the value has another type");
    }
    EXPECT_EQ(vqreg::error_message(vqreg::errc::key_not_found), "there is no key of that name");
    EXPECT_EQ(vqreg::error_message(VQREG_E_BAD_FORMAT), "the store's file is malformed");
    EXPECT_EQ(vqreg::error_message(vqreg::errc::out_of_range), "the value is out of range");
    EXPECT_STREQ(vqreg::error_category().name(), "VQRegLib");
    EXPECT_EQ(std::error_code(vqreg::errc::not_storable), std::errc::invalid_argument);
    EXPECT_NE(std::error_code(vqreg::errc::bad_type), std::errc::invalid_argument);
}

TEST_F(StoreOpening, CodesInsteadOfExceptionsAreClearedBySuccess) {
    const vqreg::Store store = open();
    vqreg::Key key = store.create("K");
    std::error_code error = std::make_error_code(std::errc::io_error);
    key.set("V", "text", error);
    EXPECT_FALSE(error);
    EXPECT_EQ(key.get<int>("V", error), std::nullopt);
    EXPECT_EQ(error, vqreg::errc::bad_type);
    EXPECT_EQ(key.get<int>("None", error), std::nullopt);
    EXPECT_FALSE(error) << "what is not there is no failure";
    EXPECT_EQ(key.get_or("V", 80, error), 80);
    EXPECT_EQ(error, vqreg::errc::bad_type);
    EXPECT_EQ(key.get_or("V", "none", error), "text");
    EXPECT_FALSE(error);
    key.set("V", -1, error);
    EXPECT_EQ(error, vqreg::errc::out_of_range);
    key.set("a\"b", 1, error);
    EXPECT_EQ(error, vqreg::errc::not_storable);
    EXPECT_FALSE(key.erase("None", error));
    EXPECT_FALSE(error);
    EXPECT_TRUE(key.erase("V", error));
    EXPECT_FALSE(store.key("Missing", error));
    EXPECT_EQ(error, vqreg::errc::key_not_found);
    EXPECT_TRUE(store.root(error));
    EXPECT_FALSE(error);
    EXPECT_FALSE(store.find("Missing", error));
    EXPECT_FALSE(error);
    EXPECT_TRUE(store.create("Made", error));
    EXPECT_FALSE(error);
    EXPECT_TRUE(store.remove("Made", error));
    EXPECT_FALSE(store.remove("Made", error));
    EXPECT_FALSE(error);
    EXPECT_FALSE(key.key("Missing", error));
    EXPECT_EQ(error, vqreg::errc::key_not_found);
    EXPECT_FALSE(key.find("Missing", error));
    EXPECT_FALSE(error);
    EXPECT_EQ(key.create("Sub", error).path(), "K/Sub");
    EXPECT_FALSE(error);
    EXPECT_FALSE(key.create("a]", error));
    EXPECT_EQ(error, vqreg::errc::not_storable);
    store.reload(error);
    EXPECT_FALSE(error);
    store.notify(error);
    EXPECT_FALSE(error);
    vqreg::Key empty;
    EXPECT_FALSE(empty.key("K", error));
    EXPECT_EQ(error, vqreg::errc::invalid_handle);
    EXPECT_FALSE(empty.create("K", error));
    EXPECT_EQ(error, vqreg::errc::invalid_handle);
    EXPECT_EQ(empty.values(error).size(), 0u);
    EXPECT_EQ(error, vqreg::errc::invalid_handle);
    EXPECT_EQ(key.values(error).size(), 0u);
    EXPECT_FALSE(error);
}
