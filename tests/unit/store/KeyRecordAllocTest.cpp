// Texts that cannot be copied.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "support/FailingCopies.h"
#include "support/StoreFixture.h"
#include "support/TraceLog.h"

using namespace vqtest;
using testing::Contains;

namespace {

template <typename Action>
std::string thrownBy(Action&& action) {
    try {
        action();
    } catch (const VQException& exception) {
        EXPECT_EQ(exception.m_lCode, REGLIB_E_FAIL);
        return exception.m_szText;
    }
    return "nothing";
}

// A record that tells when it goes.
class CountedRecord : public CRegKeyImplFile {
public:
    CountedRecord(int references, int& destroyed) : m_destroyed(destroyed) {
        m_lRefCount.store(references);
    }
    ~CountedRecord() override { ++m_destroyed; }

private:
    int& m_destroyed;
};

class NoCopies : public StoreTest {
protected:
    std::unique_ptr<CRegLibImplFile> store = open();
};

}  // namespace

TEST_F(NoCopies, FillingARecordThrowsAtTheFullName) {
    CRegKeyImplFile record;
    record.SetKeyInfo(store.get(), "[old]", "old", 5);
    const CopiesLeft none(0);
    EXPECT_EQ(thrownBy([&] { record.SetKeyInfo(store.get(), "[a]", "a", 7); }), "RegLib.1972");
    EXPECT_EQ(record.m_pRegLibImpl, store.get());
    EXPECT_EQ(record.m_pszFullName, nullptr);
    EXPECT_STREQ(record.m_pszKeyName, "old");
    EXPECT_EQ(record.m_ulHandleId, 5u);
}

TEST_F(NoCopies, FillingARecordThrowsAtTheKeyName) {
    CRegKeyImplFile record;
    const CopiesLeft one(1);
    EXPECT_EQ(thrownBy([&] { record.SetKeyInfo(store.get(), "[a]", "a", 7); }), "RegLib.1978");
    EXPECT_STREQ(record.m_pszFullName, "[a]");
    EXPECT_EQ(record.m_pszKeyName, nullptr);
    EXPECT_EQ(record.m_ulHandleId, 0u);
}

TEST_F(NoCopies, ClearingARecordThrowsAtTheFullName) {
    CRegKeyImplFile record;
    record.SetKeyInfo(store.get(), "[a]", "a", 7);
    const CopiesLeft none(0);
    EXPECT_EQ(thrownBy([&] { record.ClearKeyInfo(); }), "RegLib.1991");
    EXPECT_EQ(record.m_pRegLibImpl, nullptr);
    EXPECT_EQ(record.m_pszFullName, nullptr);
    EXPECT_STREQ(record.m_pszKeyName, "a");
    EXPECT_EQ(record.m_ulHandleId, 7u);
}

TEST_F(NoCopies, ClearingARecordThrowsAtTheKeyName) {
    CRegKeyImplFile record;
    record.SetKeyInfo(store.get(), "[a]", "a", 7);
    const CopiesLeft one(1);
    EXPECT_EQ(thrownBy([&] { record.ClearKeyInfo(); }), "RegLib.1997");
    EXPECT_STREQ(record.m_pszFullName, "");
    EXPECT_EQ(record.m_pszKeyName, nullptr);
}

TEST_F(NoCopies, AnIdThatIsNotGivenIsNotToldAndLeadsToNoNode) {
    CRegKeyImplFile record;
    std::uint32_t id = 77;
    int node = 0;
    const CopiesLeft none(0);
    EXPECT_EQ(thrownBy([&] { store->CRegLibImpl::setKeyInfo(&record, "[a]", "a", &node, &id); }),
              "RegLib.1972");
    EXPECT_EQ(id, 77u);
    EXPECT_EQ(store->m_handles.recordOf(store->m_handles.nextId()), &record);
    EXPECT_EQ(store->m_handles.nodeOf(store->m_handles.nextId()), nullptr);
    store->m_handles.retirePending(&record);
}

TEST_F(NoCopies, ARecordOfTheTableAloneGoesWithTheRegistrationThatTakesItsId) {
    int node = 0;
    int destroyed = 0;
    auto* const ofTheTable = new CountedRecord(-1, destroyed);
    CountedRecord ofAHandle(0, destroyed);
    const auto failToRegister = [&](CRegKeyImpl& record) {
        const CopiesLeft none(0);
        EXPECT_EQ(
            thrownBy([&] { store->CRegLibImpl::setKeyInfo(&record, "[a]", "a", &node, nullptr); }),
            "RegLib.1972");
    };
    failToRegister(*ofTheTable);
    failToRegister(*ofTheTable);
    EXPECT_EQ(destroyed, 0) << "it takes its own place";
    failToRegister(ofAHandle);
    EXPECT_EQ(destroyed, 1);
    CRegKeyImplFile other;
    store->CRegLibImpl::setKeyInfo(&other, "[a]", "a", &node, nullptr);
    EXPECT_EQ(destroyed, 1) << "a handle still has it";
    store->m_handles.retire(other.m_ulHandleId);
}

TEST_F(NoCopies, OpeningAKeyThrowsAndTheNextTimeWorks) {
    CRegKey key;
    for (int copies = 0; copies < 2; ++copies) {
        const CopiesLeft few(copies);
        EXPECT_EQ(thrownBy([&] { createKey(*store, "a", key); }),
                  copies == 0 ? "RegLib.1972" : "RegLib.1978");
    }
    EXPECT_FALSE(CFileStoreProbe(*store).isLocked());
    EXPECT_EQ(key.GetKeyName(), nullptr);
    // The registration that failed keeps its entries and its id until the next one takes them over.
    EXPECT_EQ(store->m_handles.nextId(), 2u);
    EXPECT_EQ(store->m_handles.size(), 2u);
    ASSERT_EQ(createKey(*store, "a", key), REGLIB_OK);
    EXPECT_EQ(key.GetKeyHandleID(), 2u);
    EXPECT_EQ(store->m_handles.size(), 2u);
    EXPECT_EQ(store->m_handles.recordOf(2), CRegKeyAccess::record(key));
}

TEST_F(NoCopies, FillingAHandleAgainThrowsWhileTheOldRecordIsCleared) {
    CRegKey key;
    ASSERT_EQ(createKey(*store, "a", key), REGLIB_OK);
    {
        const CopiesLeft forTheNewRecord(2);
        EXPECT_EQ(thrownBy([&] { openKey(*store, "a", key); }), "RegLib.1991");
    }
    EXPECT_EQ(store->m_handles.recordOf(2), nullptr);
    ASSERT_EQ(openKey(*store, "a", key), REGLIB_OK);
    EXPECT_STREQ(key.GetKeyFullName(), "[Velquist/a]");
}

TEST_F(NoCopies, AKeyThatWasMadeBeforeTheThrowIsWrittenWithTheNextChange) {
    CRegKey key;
    const std::string before = file.read();
    {
        const CopiesLeft none(0);
        EXPECT_EQ(thrownBy([&] { createKey(*store, "a", key); }), "RegLib.1972");
    }
    EXPECT_EQ(file.read(), before);
    ASSERT_EQ(setText(*store, *store->RootKey(), "v", "x"), REGLIB_OK);
    EXPECT_EQ(file.read(), "[Velquist]\n\"v\"=string:x\n[Velquist/a]\n");
}

TEST_F(NoCopies, APathThatIsMadeHalfWayIsNotWrittenAndTheHandleKeepsTheLastKeyReached) {
    CRegKey key;
    const std::string before = file.read();
    {
        const CopiesLeft forTheFirstLevel(2);
        EXPECT_EQ(thrownBy([&] { createKey(*store, "a/b/c", key); }), "RegLib.1972");
    }
    EXPECT_EQ(file.read(), before);
    EXPECT_STREQ(key.GetKeyFullName(), "[Velquist/a]");
    EXPECT_EQ(CRegKeyAccess::record(key)->m_lRefCount.load(), 0);
    const CFileStoreProbe probe(*store);
    EXPECT_NE(probe.node({"velquist", "a", "b"}), nullptr);
    EXPECT_EQ(probe.node({"velquist", "a", "b", "c"}), nullptr);
    ASSERT_EQ(createKey(*store, "a/b/c", key), REGLIB_OK);
    EXPECT_EQ(file.read(), "[Velquist]\n[Velquist/a]\n[Velquist/a/b]\n[Velquist/a/b/c]\n");
}

TEST_F(NoCopies, ANameIsLeftAsItIsWhenItCannotBeFolded) {
    const CopiesLeft none(0);
    EXPECT_EQ(store->tolower("ABC"), "ABC");
    EXPECT_EQ(store->tolower(std::string("A\0B", 3)), std::string("A\0B", 3));
}

TEST_F(NoCopies, AStoreCanBeDestroyedWithHandlesOpen) {
    CRegKey key;
    ASSERT_EQ(createKey(*store, "a/b", key), REGLIB_OK);
    {
        const CopiesLeft none(0);
        store.reset();
    }
    EXPECT_EQ(key.GetKeyName() ? std::string(key.GetKeyName()) : "", "b");
    EXPECT_EQ(CRegKeyAccess::record(key)->m_pRegLibImpl, nullptr);
    EXPECT_EQ(key.GetKeyHandleID(), 0u);
}

TEST(NoCopiesTrace, DestroyingAHandleSaysSoInTheLogAndDoesNotThrow) {
    const TraceLog log(1);
    CRegLibTrace::m_lFakeMutex = 0;
    const TempStore file;
    CRegLibImplFile store(file.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    auto key = std::make_unique<CRegKey>();
    ASSERT_EQ(createKey(store, "a", *key), REGLIB_OK);
    {
        const CopiesLeft none(0);
        key.reset();
    }
    EXPECT_THAT(log.texts(TraceLog::Addresses::eReplace),
                Contains("(Error) CRegKey::~CRegKey (0x@), exception RegLib.1991"));
    EXPECT_EQ(store.m_handles.size(), 1u);
}
