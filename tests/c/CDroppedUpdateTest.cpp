// Closing a store of the C interface in an update, while the process has the same store open a second time.
#include <filesystem>
#include <thread>
#include <utility>

#include "c/CStoreFixture.h"
#include "support/ForkedChild.h"
#include "support/Threads.h"

namespace {

class CDroppedUpdate : public vqtest::CStoreTest {
protected:
    void SetUp() override {
        CStoreTest::SetUp();
        closed = open();
        ASSERT_NE(closed, nullptr);
    }

    void set(vqreg_store* through, std::uint32_t to) const {
        EXPECT_EQ(vqreg_set_dword(through, "K", "V", to), VQREG_OK);
    }

    // What another process finds.
    std::uint32_t numberElsewhere() const {
        return static_cast<std::uint32_t>(vqtest::ForkedChild([this] {
                                              vqreg_store* const own = open();
                                              std::uint32_t found = 0;
                                              (void)vqreg_get_dword(own, "K", "V", &found);
                                              vqreg_close(own);
                                              return static_cast<int>(found);
                                          }).wait());
    }

    vqreg_store* closed = nullptr;
};

}  // namespace

TEST_F(CDroppedUpdate, IsNotWrittenAndNotRead) {
    set(store, 1);
    const std::string before = file.read();
    ASSERT_EQ(vqreg_begin_update(closed), VQREG_OK);
    ASSERT_EQ(vqreg_begin_update(closed), VQREG_OK);
    set(closed, 2);
    ASSERT_EQ(vqreg_create_key(closed, "New/Key"), VQREG_OK);
    vqreg_key* key = nullptr;
    ASSERT_EQ(vqreg_open_key(closed, "New/Key", 0, &key), VQREG_OK);
    vqreg_close(closed);
    EXPECT_EQ(number("K", "V"), 1u);
    EXPECT_EQ(vqreg_has_key(store, "New"), VQREG_E_KEY_NOT_FOUND);
    std::uint32_t found = 0;
    EXPECT_EQ(vqreg_key_get_dword(key, "V", &found), VQREG_E_INVALID_HANDLE);
    EXPECT_EQ(vqreg_end_update(store), VQREG_E_FAIL) << "there is none";
    EXPECT_EQ(file.read(), before);
    EXPECT_EQ(vqreg_set_dword(store, "K", "W", 3), VQREG_OK);
    EXPECT_EQ(file.read(), before + "\"W\"=dword:00000003\n");
    vqreg_close_key(key);
}

TEST_F(CDroppedUpdate, LetsOthersIn) {
    ASSERT_EQ(vqreg_begin_update(closed), VQREG_OK);
    set(closed, 2);
    vqreg_close(closed);
    vqtest::ForkedChild child(
        [this] { return vqreg_set_dword(store, "K", "W", 1) == VQREG_OK ? 0 : 1; });
    EXPECT_EQ(child.wait(), 0);
    const vqtest::CallElsewhere elsewhere([this] { set(store, 4); });
    EXPECT_TRUE(elsewhere.returns());
    EXPECT_EQ(number("K", "V"), 4u);
    EXPECT_EQ(number("K", "W"), 1u);
}

TEST_F(CDroppedUpdate, GoesOnAsAPartOfOneOfAnotherHandle) {
    ASSERT_EQ(vqreg_begin_update(store), VQREG_OK);
    ASSERT_EQ(vqreg_begin_update(closed), VQREG_OK);
    set(closed, 2);
    vqreg_close(closed);
    EXPECT_EQ(numberElsewhere(), 0u);
    EXPECT_EQ(vqreg_end_update(store), VQREG_OK);
    EXPECT_EQ(numberElsewhere(), 2u);
}

TEST_F(CDroppedUpdate, IsNoneOfAnotherHandle) {
    ASSERT_EQ(vqreg_begin_update(closed), VQREG_OK);
    ASSERT_EQ(vqreg_end_update(store), VQREG_OK) << "not where it was begun";
    ASSERT_EQ(vqreg_begin_update(store), VQREG_OK);
    set(store, 5);
    vqreg_close(closed);
    EXPECT_EQ(vqreg_end_update(store), VQREG_OK);
    EXPECT_EQ(numberElsewhere(), 5u);
}

// Updates end from the innermost one on, through whichever handle; what was begun here counts no more.
TEST_F(CDroppedUpdate, IsNoLaterOneThatEndedThroughTheSameHandle) {
    ASSERT_EQ(vqreg_begin_update(closed), VQREG_OK);
    ASSERT_EQ(vqreg_end_update(store), VQREG_OK);
    ASSERT_EQ(vqreg_begin_update(store), VQREG_OK);
    ASSERT_EQ(vqreg_begin_update(store), VQREG_OK);
    ASSERT_EQ(vqreg_end_update(closed), VQREG_OK) << "an inner one";
    set(store, 6);
    vqreg_close(closed);
    EXPECT_EQ(numberElsewhere(), 0u);
    EXPECT_EQ(vqreg_end_update(store), VQREG_OK);
    EXPECT_EQ(numberElsewhere(), 6u);
}

// It cannot be told from the update's own changes, and is not written later on.
TEST_F(CDroppedUpdate, TakesAlongWhatCouldNotBeWrittenBefore) {
    for (const bool isChanged : {false, true}) {
        set(store, 1);
        const std::string away = file.directory() + ".away";
        std::filesystem::rename(file.directory(), away);
        EXPECT_LT(vqreg_set_dword(store, "K", "V", 7), 0);
        std::filesystem::rename(away, file.directory());
        closed = closed ? closed : open();
        ASSERT_EQ(vqreg_begin_update(closed), VQREG_OK);
        if (isChanged) {
            set(closed, 2);
        }
        vqreg_close(std::exchange(closed, nullptr));
        EXPECT_EQ(number("K", "V"), 1u);
        const auto before = file.inode();
        ASSERT_EQ(vqreg_begin_update(store), VQREG_OK);
        EXPECT_EQ(vqreg_end_update(store), VQREG_OK);
        EXPECT_EQ(file.inode(), before) << "there was nothing to be written";
    }
}
