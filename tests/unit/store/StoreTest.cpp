#include "RegLib/store/Store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "support/StoreFixture.h"
#include "support/TraceLog.h"

using namespace vqtest;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// Opens every key, and names sub keys that nobody asked for.
class OddStore : public CRegLibImpl {
public:
    explicit OddStore(int* result = nullptr)
        : CRegLibImpl("name", "key", CRegLib::eLocationDefault, result) {}
    ~OddStore() override = default;

    void SetRegistryChangeHandler(CRegistryChangeHandler*) override {}
    void ClrRegistryChangeHandler(CRegistryChangeHandler*) override {}
    CRegKey* RootKey() const override { return nullptr; }
    int VQRegCreateKey(CRegKey*, const char*, CRegKey&, int, int*) override { return REGLIB_OK; }
    int VQRegDeleteKey(CRegKey&, const char*) override { return REGLIB_OK; }
    int VQRegDeleteValue(CRegKey&, const char*) override { return REGLIB_OK; }
    int VQRegSetValue(CRegKey&, const char*, unsigned long, int*) override { return REGLIB_OK; }
    int VQRegSetValue(CRegKey&, const char*, const char*, int*) override { return REGLIB_OK; }
    int VQRegSetValue(CRegKey&, const char*, const unsigned char*, unsigned long, int*) override {
        return REGLIB_OK;
    }
    int VQRegQueryValueType(CRegKey&, const char*, CRegLib::eDataType&) override {
        return REGLIB_OK;
    }
    int VQRegQueryValue(CRegKey&, const char*, CRegLib::eDataType&, unsigned char*,
                        unsigned long*) override {
        return REGLIB_OK;
    }
    int VQRegEnumKeys(CRegKey&, int index, std::string& name) override {
        if (index >= static_cast<int>(subKeys.size())) {
            return REGLIB_E_NO_MORE_ITEMS;
        }
        name = subKeys[static_cast<std::size_t>(index)];
        return REGLIB_OK;
    }
    int VQRegEnumValues(CRegKey&, int, std::string&, CRegLib::eDataType&) override {
        return REGLIB_OK;
    }
    void dump() override {}
    void deleteKeyHandle(unsigned long) override {}

    std::vector<std::string> subKeys;
};

// Clears its records at its end, as every store does, and tells of it.
class EndingStore : public OddStore {
public:
    explicit EndingStore(std::vector<std::string>& log) : m_log(log) {}
    ~EndingStore() override { clearAllRecords(true); }

    void deleteKeyHandle(unsigned long handleId) override {
        const bool isListed = m_handles.recordOf(static_cast<std::uint32_t>(handleId)) != nullptr;
        m_log.push_back((isListed ? "listed " : "unlisted ") + std::to_string(handleId));
    }

private:
    std::vector<std::string>& m_log;
};

// Where a virtual function stands in the table of its class: a pointer to it holds the offset of
// its entry, plus one.
template <typename Member>
std::size_t slotOf(Member member) {
    std::size_t word = 0;
    std::memcpy(&word, &member, sizeof word);
    return (word - 1) / sizeof(void*);
}

class BaseStore : public StoreTest {};
class CreateKeyVect : public StoreTest {
protected:
    std::unique_ptr<CRegLibImplFile> store = open();
    std::vector<CRegKey*> keys;
    std::vector<std::string> names;
};

}  // namespace

TEST_F(BaseStore, StartsWithNothing) {
    int result = 77;
    const OddStore store(&result);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(store.m_nResult, 0);
    EXPECT_EQ(store.m_pszFileName, nullptr);
    EXPECT_EQ(store.m_pRootKey, nullptr);
    EXPECT_EQ(store.m_pRootKeyImpl, nullptr);
    EXPECT_EQ(store.m_pWatcherThread, nullptr);
    EXPECT_EQ(store.m_strTuple, "");
    EXPECT_EQ(store.m_handles.nextId(), 1u);
    EXPECT_EQ(store.m_handles.size(), 0u);
}

TEST(StoreWithoutUpdates, RefusesThemAndHasNone) {
    OddStore store;
    EXPECT_EQ(store.VQRegBeginUpdate(), REGLIB_E_FAIL);
    EXPECT_FALSE(store.isUpdating());
    EXPECT_FALSE(store.isUpdatedElsewhere());
    EXPECT_FALSE(store.isGone(CRegKey())) << "only an update can have let go of a key";
    EXPECT_EQ(store.updateNumber(), 0u);
    store.dropInheritedUpdate();
    store.dropUpdate();
    EXPECT_EQ(store.VQRegEndUpdate(), REGLIB_E_FAIL);
    EXPECT_EQ(store.VQRegReload(), REGLIB_E_FAIL);
    EXPECT_EQ(CRegLibImpl::m_openUpdates.load(), 0);
}

TEST_F(BaseStore, HasItsOperationsInTheFixedSlots) {
    using Store = CRegLibImpl;
    using Type = CRegLib::eDataType;
    using Bytes = const unsigned char*;
    EXPECT_EQ(slotOf(&Store::SetRegistryChangeHandler), 2u);
    EXPECT_EQ(slotOf(&Store::ClrRegistryChangeHandler), 3u);
    EXPECT_EQ(slotOf(&Store::RootKey), 4u);
    EXPECT_EQ(slotOf(&Store::VQRegCreateKey), 5u);
    EXPECT_EQ(slotOf(&Store::VQRegDeleteKey), 6u);
    EXPECT_EQ(slotOf(&Store::VQRegDeleteValue), 7u);
    int (Store::*setNumber)(CRegKey&, const char*, unsigned long, int*) = &Store::VQRegSetValue;
    EXPECT_EQ(slotOf(setNumber), 8u);
    int (Store::*setText)(CRegKey&, const char*, const char*, int*) = &Store::VQRegSetValue;
    EXPECT_EQ(slotOf(setText), 9u);
    int (Store::*setBytes)(CRegKey&, const char*, Bytes, unsigned long, int*) =
        &Store::VQRegSetValue;
    EXPECT_EQ(slotOf(setBytes), 10u);
    EXPECT_EQ(slotOf(&Store::VQRegQueryValueType), 11u);
    EXPECT_EQ(slotOf(&Store::VQRegQueryValue), 12u);
    EXPECT_EQ(slotOf(&Store::VQRegEnumKeys), 13u);
    int (Store::*enumValues)(CRegKey&, int, std::string&, Type&) = &Store::VQRegEnumValues;
    EXPECT_EQ(slotOf(enumValues), 14u);
    EXPECT_EQ(slotOf(&Store::dump), 15u);
    void (Store::*infoOfHandle)(CRegKey*, const char*, const char*, void*, std::uint32_t*) =
        &Store::setKeyInfo;
    EXPECT_EQ(slotOf(infoOfHandle), 16u);
    void (Store::*infoOfRecord)(CRegKeyImpl*, const char*, const char*, void*, std::uint32_t*) =
        &Store::setKeyInfo;
    EXPECT_EQ(slotOf(infoOfRecord), 17u);
    EXPECT_EQ(slotOf(&Store::deleteKeyHandle), 18u);
}

TEST_F(BaseStore, KeepsRecordsAndHandlersInTheirSlots) {
    EXPECT_EQ(slotOf(&CRegKeyImpl::SetKeyInfo), 2u);
    EXPECT_EQ(slotOf(&CRegKeyImpl::ClearKeyInfo), 3u);
    EXPECT_EQ(slotOf(&CRegistryChangeHandler::OnRegistryChange), 2u);
}

TEST_F(BaseStore, ItsEndTellsOfEachRecordThatIsLeftBeforeItIsUnregistered) {
    std::vector<std::string> log;
    CRegKeyImplFile records[3];
    int node = 0;
    {
        EndingStore store(log);
        for (CRegKeyImplFile& record : records) {
            store.setKeyInfo(&record, "[a]", "a", &node, nullptr);
        }
        store.clearKeyInfo(&records[1]);
        EXPECT_THAT(log, ElementsAre("listed 2"));
    }
    EXPECT_THAT(log, ElementsAre("listed 2", "listed 1", "listed 3"));
    EXPECT_EQ(records[2].m_pRegLibImpl, nullptr);
}

TEST_F(BaseStore, FoldsAsciiLettersOnly) {
    OddStore store;
    EXPECT_EQ(store.tolower("AbZ-@[`{09"), "abz-@[`{09");
    EXPECT_EQ(store.tolower("\xC3\x84\xC0\xFF"), "\xC3\x84\xC0\xFF");
    EXPECT_EQ(store.tolower(""), "");
}

TEST_F(BaseStore, FoldsOnlyUpToAnEmbeddedNul) {
    OddStore store;
    EXPECT_EQ(store.tolower(std::string("Ab\0CD", 5)), "ab");
    EXPECT_EQ(store.tolower(std::string("\0CD", 3)), "");
}

TEST(BaseStoreTrace, NamesTheArgumentsOfItsConstruction) {
    const TraceLog log(4);
    CRegLibTrace::m_lFakeMutex = 0;
    {
        const OddStore store;
        const TempStore file;
        const CRegLibImplFile other(file.path().c_str(), nullptr, CRegLib::eLocationDefault,
                                    nullptr);
    }
    const auto texts = log.texts(TraceLog::Addresses::eReplace);
    EXPECT_THAT(texts, Contains("CRegLibImpl::CRegLibImpl (0x@) - name, key"));
    EXPECT_THAT(texts, Contains(testing::MatchesRegex(
                           "CRegLibImpl::CRegLibImpl \\(0x@\\) - /tmp/.*, \\(null\\)")));
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "CRegLibImpl::~CRegLibImpl (0x@)"), 2);
}

TEST_F(CreateKeyVect, GivesOneKeyAndTheStoredSpellingForEachName) {
    CRegKey key;
    ASSERT_EQ(createKey(*store, "a/B", key), REGLIB_OK);
    EXPECT_EQ(store->VQRegCreateKeyVect(store->RootKey(), "A/b", keys, names, 1), REGLIB_OK);
    EXPECT_THAT(names, ElementsAre("a", "B"));
    ASSERT_EQ(keys.size(), 2u);
    EXPECT_STREQ(keys[0]->GetKeyName(), "A");
    EXPECT_STREQ(keys[0]->GetKeyFullName(), "[Velquist/a]");
    EXPECT_STREQ(keys[1]->GetKeyFullName(), "[Velquist/a/B]");
    store->VQRegDestroyKeyVect(keys);
}

TEST_F(CreateKeyVect, CreatesWhatIsMissing) {
    EXPECT_EQ(store->VQRegCreateKeyVect(store->RootKey(), "x\\y/z", keys, names, 1), REGLIB_OK);
    EXPECT_THAT(names, ElementsAre("x", "y", "z"));
    ASSERT_EQ(keys.size(), 3u);
    EXPECT_STREQ(keys[2]->GetKeyFullName(), "[Velquist/x/y/z]");
    EXPECT_EQ(file.read(), "[Velquist]\n[Velquist/x]\n[Velquist/x/y]\n[Velquist/x/y/z]\n");
    store->VQRegDestroyKeyVect(keys);
}

TEST_F(CreateKeyVect, KeepsEmptyNames) {
    EXPECT_EQ(store->VQRegCreateKeyVect(store->RootKey(), "a//", keys, names, 1), REGLIB_OK);
    EXPECT_THAT(names, ElementsAre("a", "", ""));
    store->VQRegDestroyKeyVect(keys);
    EXPECT_EQ(store->VQRegCreateKeyVect(store->RootKey(), "", keys, names, 1), REGLIB_OK);
    EXPECT_THAT(names, ElementsAre(""));
    store->VQRegDestroyKeyVect(keys);
}

TEST_F(CreateKeyVect, LeavesTheVectorsAloneWhenALevelIsMissing) {
    CRegKey key;
    ASSERT_EQ(createKey(*store, "a", key), REGLIB_OK);
    CRegKey own;
    keys.push_back(&own);
    names.emplace_back("before");
    const std::size_t registered = store->m_handles.size();
    EXPECT_EQ(store->VQRegCreateKeyVect(store->RootKey(), "a/none", keys, names, 0), REGLIB_OK);
    EXPECT_THAT(keys, ElementsAre(&own));
    EXPECT_THAT(names, ElementsAre("before"));
    EXPECT_EQ(store->m_handles.size(), registered);  // the key of the first level is freed
}

TEST_F(CreateKeyVect, LeavesTheVectorsAloneWhenALevelIsAValue) {
    ASSERT_EQ(setText(*store, *store->RootKey(), "v", "x"), REGLIB_OK);
    EXPECT_EQ(store->VQRegCreateKeyVect(store->RootKey(), "v/k", keys, names, 1), REGLIB_OK);
    EXPECT_THAT(keys, IsEmpty());
    EXPECT_THAT(names, IsEmpty());
}

TEST_F(CreateKeyVect, ReplacesWhatTheVectorsHeld) {
    CRegKey own;
    keys.push_back(&own);
    names.emplace_back("before");
    EXPECT_EQ(store->VQRegCreateKeyVect(store->RootKey(), "a", keys, names, 1), REGLIB_OK);
    EXPECT_THAT(names, ElementsAre("a"));
    ASSERT_EQ(keys.size(), 1u);
    EXPECT_NE(keys[0], &own);
    store->VQRegDestroyKeyVect(keys);
}

TEST_F(CreateKeyVect, TakesTheLastEnumeratedNameWhenNoneMatches) {
    OddStore odd;
    odd.subKeys = {"x", "Y"};
    CRegKey parent;
    EXPECT_EQ(odd.VQRegCreateKeyVect(&parent, "a/y/X", keys, names, 1), REGLIB_OK);
    EXPECT_THAT(names, ElementsAre("Y", "Y", "x"));
    odd.VQRegDestroyKeyVect(keys);
}

TEST_F(CreateKeyVect, KeepsTheRequestedNameWhenThereIsNothingToEnumerate) {
    // The path of a handle that is not registered starts at the top, but has no sub keys to name.
    CRegKey unregistered;
    EXPECT_EQ(store->VQRegCreateKeyVect(&unregistered, "VELQUIST/sub", keys, names, 1), REGLIB_OK);
    EXPECT_THAT(names, ElementsAre("VELQUIST", "sub"));
    ASSERT_EQ(keys.size(), 2u);
    EXPECT_STREQ(keys[1]->GetKeyFullName(), "[Velquist/sub]");
    store->VQRegDestroyKeyVect(keys);
}

TEST_F(CreateKeyVect, DestroyingSkipsNullElements) {
    ASSERT_EQ(store->VQRegCreateKeyVect(store->RootKey(), "a/b", keys, names, 1), REGLIB_OK);
    const std::size_t registered = store->m_handles.size();
    keys.insert(keys.begin(), nullptr);
    keys.push_back(nullptr);
    EXPECT_EQ(store->VQRegDestroyKeyVect(keys), REGLIB_OK);
    EXPECT_THAT(keys, IsEmpty());
    EXPECT_EQ(store->m_handles.size(), registered - 2);
    EXPECT_EQ(store->VQRegDestroyKeyVect(keys), REGLIB_OK);
}

TEST_F(CreateKeyVect, DestroyingKeepsTheRoomOfTheVector) {
    keys.reserve(100);
    keys.push_back(nullptr);
    const std::size_t room = keys.capacity();
    EXPECT_EQ(store->VQRegDestroyKeyVect(keys), REGLIB_OK);
    EXPECT_EQ(keys.capacity(), room);
}
