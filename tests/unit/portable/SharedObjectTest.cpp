#include "portable/SharedObject.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

#include "support/TempStore.h"

namespace fs = std::filesystem;
using VQRegLib::CSharedObject;

namespace {

constexpr const char* kName = "SharedObjectTest";
const std::string kObject = std::string("/dev/shm/") + kName;
int g_initialised = 0;

int initialise(void* address) {
    ++g_initialised;
    EXPECT_FALSE(fs::exists(kObject)) << "it must not be seen unfinished";
    EXPECT_EQ(std::memcmp(address, "\0\0\0\0", 4), 0);
    std::memcpy(address, "done", 4);
    return 0;
}

int failToInitialise(void*) {
    return EAGAIN;
}

}  // namespace

TEST(SharedObject, IsFilledBeforeItGetsItsName) {
    CSharedObject first;
    ASSERT_EQ(first.open(kName, 4, initialise), 0);
    EXPECT_TRUE(first.isCreator());
    EXPECT_EQ(std::memcmp(first.address(), "done", 4), 0);
    CSharedObject second;
    ASSERT_EQ(second.open(kName, 4, initialise), 0);
    EXPECT_FALSE(second.isCreator());
    EXPECT_EQ(std::memcmp(second.address(), "done", 4), 0);
    EXPECT_EQ(g_initialised, 1);
}

TEST(SharedObject, IsNotMadeWhenItCannotBeFilled) {
    CSharedObject object;
    EXPECT_EQ(object.open(kName, 4, failToInitialise), EAGAIN);
    EXPECT_EQ(object.address(), nullptr);
    EXPECT_FALSE(object.isCreator());
    EXPECT_FALSE(fs::exists(kObject));
}

TEST(SharedObject, CanBeOfferedAgainAfterItsFileIsGone) {
    {
        CSharedObject object;
        ASSERT_EQ(object.open(kName, 4, nullptr), 0);
        std::memcpy(object.address(), "used", 4);
    }
    ASSERT_TRUE(fs::remove(kObject));
    CSharedObject object;
    ASSERT_EQ(object.open(kName, 4, nullptr), 0);
    EXPECT_TRUE(object.isCreator());
    EXPECT_EQ(std::memcmp(object.address(), "\0\0\0\0", 4), 0);
}

TEST(SharedObject, StaysMappedWhenItIsLeaked) {
    void* address = nullptr;
    {
        CSharedObject object;
        ASSERT_EQ(object.open(kName, 4, nullptr), 0);
        address = object.address();
        object.leak();
        EXPECT_EQ(object.address(), nullptr);
    }
    std::memcpy(address, "kept", 4);
    EXPECT_EQ(vqtest::readFile(kObject), "kept");
}
