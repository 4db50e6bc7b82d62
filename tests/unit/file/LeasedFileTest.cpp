// A store's file of which its owner has a lease: who reads it waits, and then reads it.
#include <gtest/gtest.h>

#include <memory>

#include "support/Lease.h"
#include "support/StoreFixture.h"
#include "support/Threads.h"

using namespace vqtest;

namespace {

class LeasedFile : public StoreTest {
protected:
    std::unique_ptr<CRegLibImplFile> store = open();
    CFileStoreProbe probe{*store};
    CRegKey& root = *store->RootKey();
};

}  // namespace

TEST_F(LeasedFile, IsReadWhenTheLeaseIsOver) {
    ASSERT_EQ(setText(*store, root, "a", "x"), REGLIB_OK);
    file.write("[Velquist]\n\"a\"=string:y\n");
    Lease lease(file.path());
    SKIP_WITHOUT_LEASE(lease);
    EXPECT_EQ(get(*store, root, "a"), Value::ofText("x")) << "nothing says that it has changed";
    probe.moveStamp();
    Value found;
    {
        const CallElsewhere reading([&] { found = get(*store, root, "a"); });
        EXPECT_TRUE(lease.isAskedFor());
        EXPECT_TRUE(reading.waits());
        lease.letGo();
        EXPECT_TRUE(reading.returns());
    }
    EXPECT_EQ(found, Value::ofText("y"));
}
