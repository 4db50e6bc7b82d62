// What programs in C see when the file cannot be written, and of what others do to it.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "c/CStoreFixture.h"
#include "support/ForkedChild.h"

namespace {

class CFailures : public vqtest::CStoreTest {
protected:
    // Nobody can write in a directory that is a file for a while.
    void takeDirectoryAway() { std::filesystem::rename(file.directory(), away()); }
    void bringDirectoryBack() { std::filesystem::rename(away(), file.directory()); }
    std::string away() const { return file.directory() + ".away"; }
};

}  // namespace

TEST_F(CFailures, AMissingDirectoryIsAFileThatCannotBeWritten) {
    ASSERT_EQ(vqreg_set_dword(store, "K", "Before", 1), VQREG_OK);
    takeDirectoryAway();
    EXPECT_EQ(vqreg_set_dword(store, "K", "V", 1), VQREG_E_FILE_OPEN);
    EXPECT_EQ(vqreg_create_key(store, "New/Key"), VQREG_E_FILE_OPEN);
    EXPECT_EQ(vqreg_begin_update(store), VQREG_OK);
    EXPECT_EQ(vqreg_set_dword(store, "K", "V", 2), VQREG_OK);
    EXPECT_EQ(vqreg_end_update(store), VQREG_E_FILE_OPEN);
    bringDirectoryBack();
}

TEST_F(CFailures, AMissingDirectoryIsToldToWhoDeletesSomething) {
    ASSERT_EQ(vqreg_set_dword(store, "K", "V", 1), VQREG_OK);
    ASSERT_EQ(vqreg_set_dword(store, "K", "W", 1), VQREG_OK);
    ASSERT_EQ(vqreg_create_key(store, "Empty"), VQREG_OK);
    vqreg_key* key = nullptr;
    ASSERT_EQ(vqreg_open_key(store, "K", 0, &key), VQREG_OK);
    takeDirectoryAway();
    EXPECT_EQ(vqreg_delete_value(store, "K", "V"), VQREG_E_FILE_OPEN);
    EXPECT_EQ(vqreg_delete_value(store, "K", "None"), VQREG_E_NOT_FOUND);
    EXPECT_EQ(vqreg_key_delete_value(key, "W"), VQREG_E_FILE_OPEN);
    EXPECT_EQ(vqreg_delete_key(store, "Empty"), VQREG_E_FILE_OPEN);
    EXPECT_EQ(vqreg_delete_key(store, "None"), VQREG_E_KEY_NOT_FOUND);
    bringDirectoryBack();
    vqreg_close_key(key);
}

TEST_F(CFailures, ARootKeyThatOthersHaveMadeAValueIsToldByEveryCall) {
    vqreg_store* const below = vqreg_open(file.path().c_str(), "A/B", nullptr);
    ASSERT_NE(below, nullptr);
    EXPECT_EQ(vqreg_create_key(below, "K"), VQREG_OK);
    vqreg_store* const above = vqreg_open(file.path().c_str(), "A", nullptr);
    ASSERT_NE(above, nullptr);
    EXPECT_EQ(vqreg_delete_key(above, "B/K"), VQREG_OK);
    EXPECT_EQ(vqreg_delete_key(above, "B"), VQREG_OK);
    EXPECT_EQ(vqreg_set_dword(above, "", "B", 1), VQREG_OK);
    EXPECT_EQ(vqreg_set_dword(below, "", "V", 1), VQREG_E_INVALID_HANDLE);
    EXPECT_EQ(vqreg_set_dword(below, "K", "V", 1), VQREG_E_INVALID_HANDLE);
    EXPECT_EQ(vqreg_has_key(below, "K"), VQREG_E_INVALID_HANDLE);
    EXPECT_EQ(vqreg_create_key(below, "New"), VQREG_E_INVALID_HANDLE);
    EXPECT_EQ(vqreg_delete_key(below, "K"), VQREG_E_INVALID_HANDLE);
    EXPECT_EQ(vqreg_delete_key(below, "None"), VQREG_E_INVALID_HANDLE);
    EXPECT_EQ(vqreg_delete_value(below, "K", "V"), VQREG_E_INVALID_HANDLE);
    vqreg_key* key = nullptr;
    EXPECT_EQ(vqreg_open_key(below, "K", 0, &key), VQREG_E_INVALID_HANDLE);
    EXPECT_EQ(key, nullptr);
    EXPECT_EQ(vqreg_open_key(below, "New", 1, &key), VQREG_E_INVALID_HANDLE);
    EXPECT_EQ(key, nullptr);
    EXPECT_EQ(file.read(), "[A]\n\"B\"=dword:00000001\n[Velquist]\n");
    vqreg_close(above);
    vqreg_close(below);
}

// The end of the update would write over it.
TEST_F(CFailures, AKeyIsNotMadeInAnUpdateOfTheFileThroughAnotherStore) {
    vqreg_store* const other = vqreg_open(file.path().c_str(), "Other", nullptr);
    ASSERT_NE(other, nullptr);
    const std::string before = file.read();
    ASSERT_EQ(vqreg_begin_update(other), VQREG_OK);
    EXPECT_EQ(vqreg_create_key(store, "New/Key"), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_set_dword(store, "New/Key", "V", 1), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_has_key(store, "New"), VQREG_E_KEY_NOT_FOUND);
    EXPECT_EQ(vqreg_end_update(other), VQREG_OK);
    EXPECT_EQ(file.read(), before);
    EXPECT_EQ(vqreg_create_key(store, "New/Key"), VQREG_OK);
    vqreg_close(other);
}

TEST_F(CFailures, AnUpdateThatIsTriedAgainIsWritten) {
    ASSERT_EQ(vqreg_set_dword(store, "K", "V", 1), VQREG_OK);
    takeDirectoryAway();
    const auto update = [this] {
        EXPECT_EQ(vqreg_begin_update(store), VQREG_OK);
        EXPECT_EQ(vqreg_set_dword(store, "K", "V", 2), VQREG_OK);
        return vqreg_end_update(store);
    };
    EXPECT_EQ(update(), VQREG_E_FILE_OPEN);
    EXPECT_EQ(update(), VQREG_E_FILE_OPEN) << "nothing is new, and nothing has been written";
    bringDirectoryBack();
    EXPECT_EQ(update(), VQREG_OK);
    EXPECT_EQ(file.read(), "[Velquist]\n[Velquist/K]\n\"V\"=dword:00000002\n");
}

TEST_F(CFailures, AnEmptyUpdateWritesWhatWaits) {
    ASSERT_EQ(vqreg_set_dword(store, "K", "V", 1), VQREG_OK);
    takeDirectoryAway();
    EXPECT_EQ(vqreg_set_dword(store, "K", "V", 2), VQREG_E_FILE_OPEN);
    bringDirectoryBack();
    EXPECT_EQ(vqreg_begin_update(store), VQREG_OK);
    EXPECT_EQ(vqreg_end_update(store), VQREG_OK);
    EXPECT_EQ(file.read(), "[Velquist]\n[Velquist/K]\n\"V\"=dword:00000002\n");
}

TEST_F(CFailures, AnUpdateThatIsNotEndedIsNotWritten) {
    const std::string before = file.read();
    ASSERT_EQ(vqreg_begin_update(store), VQREG_OK);
    ASSERT_EQ(vqreg_set_dword(store, "K", "V", 2), VQREG_OK);
    vqreg_close(store);
    EXPECT_EQ(file.read(), before);
    store = open();
    EXPECT_EQ(number("K", "V"), std::nullopt);
}

TEST_F(CFailures, ARootKeyThatTheFileCannotHoldIsRefused) {
    const std::string before = file.read();
    const std::string tooLong(2046, 'x');
    for (const char* root : {"", "A\nB", "A\rB", "<root>", "a]b", "A/", tooLong.c_str()}) {
        int result = VQREG_OK;
        EXPECT_EQ(vqreg_open(file.path().c_str(), root, &result), nullptr) << root;
        EXPECT_EQ(result, VQREG_E_NOT_STORABLE) << root;
    }
    EXPECT_EQ(file.read(), before);
    vqreg_store* const below = vqreg_open(file.path().c_str(), "A/B", nullptr);
    ASSERT_NE(below, nullptr);
    EXPECT_EQ(vqreg_set_dword(below, "", "V", 1), VQREG_OK);
    EXPECT_EQ(file.read(), "[A]\n[A/B]\n\"V\"=dword:00000001\n" + before);
    vqreg_close(below);
}

TEST_F(CFailures, AKeyThatOthersMakeAValueIsOutOfReach) {
    ASSERT_EQ(vqreg_set_dword(store, "Net/Sub", "V", 1), VQREG_OK);
    vqreg_key* key = nullptr;
    ASSERT_EQ(vqreg_open_key(store, "Net/Sub", 0, &key), VQREG_OK);
    std::ofstream(file.path()) << "[Velquist]\n\"Net\"=dword:00000005\n";
    ASSERT_EQ(vqreg_reload(store), VQREG_OK);
    std::uint32_t found = 0;
    EXPECT_EQ(vqreg_get_dword(store, "Net/Sub", "V", &found), VQREG_E_NOT_A_KEY);
    EXPECT_EQ(vqreg_set_dword(store, "Net/Sub", "V", 7), VQREG_E_NOT_A_KEY);
    EXPECT_EQ(vqreg_create_key(store, "Net"), VQREG_E_NOT_A_KEY);
    EXPECT_EQ(vqreg_has_key(store, "Net/Sub"), VQREG_E_NOT_A_KEY);
    EXPECT_EQ(vqreg_key_get_dword(key, "V", &found), VQREG_E_INVALID_HANDLE);
    EXPECT_EQ(vqreg_key_set_dword(key, "V", 7), VQREG_E_INVALID_HANDLE);
    vqreg_close_key(key);
    EXPECT_EQ(number("", "Net"), 5u);
}

// The memory still has its value.
TEST_F(CFailures, ReadingAKeyThatIsOutOfReachGivesNothing) {
    ASSERT_EQ(vqreg_set_string(store, "Net", "V", "text"), VQREG_OK);
    vqreg_key* key = nullptr;
    ASSERT_EQ(vqreg_open_key(store, "Net", 0, &key), VQREG_OK);
    std::ofstream(file.path()) << "[Velquist]\n\"Net\"=dword:00000005\n";
    ASSERT_EQ(vqreg_reload(store), VQREG_OK);
    char room[16] = "before";
    size_t size = sizeof room;
    vqreg_type type = VQREG_STRING;
    EXPECT_EQ(vqreg_key_get_string(key, "V", room, &size), VQREG_E_INVALID_HANDLE);
    EXPECT_EQ(vqreg_key_get(key, "V", &type, room, &size), VQREG_E_INVALID_HANDLE);
    EXPECT_STREQ(room, "before");
    EXPECT_EQ(size, sizeof room);
    EXPECT_EQ(type, VQREG_NONE);
    vqreg_close_key(key);
}

TEST_F(CFailures, AnEditedFileIsReadAgainAfterAReload) {
    ASSERT_EQ(vqreg_set_dword(store, "K", "V", 1), VQREG_OK);
    std::ofstream(file.path()) << "[Velquist]\n[Velquist/K]\n\"V\"=dword:00000009\n";
    EXPECT_EQ(number("K", "V"), 1u);
    EXPECT_EQ(vqreg_reload(store), VQREG_OK);
    EXPECT_EQ(number("K", "V"), 9u);
    EXPECT_EQ(vqreg_reload(nullptr), VQREG_E_FAIL);
}

TEST_F(CFailures, AChildOfForkMayUseTheStoreOfItsParent) {
    ASSERT_EQ(vqreg_set_dword(store, "K", "V", 1), VQREG_OK);
    vqtest::ForkedChild child([this] {
        const bool isRead = number("K", "V") == 1u;
        return isRead && vqreg_set_dword(store, "K", "Child", 2) == VQREG_OK ? 0 : 1;
    });
    EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(number("K", "Child"), 2u);
    EXPECT_EQ(vqreg_notify(store), VQREG_OK);
    EXPECT_EQ(vqreg_notify(nullptr), VQREG_E_FAIL);
}
