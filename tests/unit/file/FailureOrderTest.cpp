// What an operation tells when more than one thing is wrong.
#include <gtest/gtest.h>

#include <string>

#include "support/StoreFixture.h"

using namespace vqtest;

namespace {

// A handle that was never filled, on a store whose file has become bad.
class FailureOrder : public StoreTest {
protected:
    FailureOrder() {
        file.write("bad\n");
        probe.moveStamp();
    }

    std::unique_ptr<CRegLibImplFile> store = open();
    CFileStoreProbe probe{*store};
    CRegKey empty;
    int changed = 7;
};

}  // namespace

TEST_F(FailureOrder, TheFileComesBeforeTheHandleWhereSomethingIsChanged) {
    EXPECT_EQ(setText(*store, empty, "v", "x", &changed), REGLIB_E_BAD_FORMAT);
    EXPECT_EQ(changed, 0);
    EXPECT_EQ(setNumber(*store, empty, "v", 1, &changed), REGLIB_E_BAD_FORMAT);
    EXPECT_EQ(setBytes(*store, empty, "v", "x", &changed), REGLIB_E_BAD_FORMAT);
    EXPECT_EQ(store->VQRegDeleteValue(empty, "v"), REGLIB_E_BAD_FORMAT);
    EXPECT_EQ(store->VQRegDeleteKey(empty, "k"), REGLIB_E_BAD_FORMAT);
}

TEST_F(FailureOrder, TheFileComesBeforeTheHandleWhereSomethingIsRead) {
    std::string name = "old";
    CRegLib::eDataType type = CRegLib::eString;
    EXPECT_EQ(get(*store, empty, "v"), Value::failure(REGLIB_E_BAD_FORMAT));
    EXPECT_EQ(store->VQRegQueryValueType(empty, "v", type), REGLIB_E_BAD_FORMAT);
    EXPECT_EQ(store->VQRegEnumKeys(empty, 0, name), REGLIB_E_BAD_FORMAT);
    EXPECT_EQ(store->VQRegEnumValues(empty, 0, name, type), REGLIB_E_BAD_FORMAT);
    EXPECT_EQ(name, "old");
}

TEST_F(FailureOrder, TheHandleIsToldOnceTheFileIsMended) {
    EXPECT_EQ(get(*store, empty, "v"), Value::failure(REGLIB_E_BAD_FORMAT));
    file.write("[Velquist]\n");
    EXPECT_EQ(get(*store, empty, "v"), Value::failure(REGLIB_E_INVALID_HANDLE));
}
