// Lines of the file that put a value in the place of a key, or the other way round.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/StoreFixture.h"

using namespace vqtest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Displacement : public StoreTest {
protected:
    int import(const std::string& text) {
        file.write(text);
        probe.moveStamp();
        store->Lock();
        const int result = store->ImportConfig();
        store->Unlock();
        return result;
    }

    std::unique_ptr<CRegLibImplFile> store = open();
    CFileStoreProbe probe{*store};
    CRegKey& root = *store->RootKey();
};

}  // namespace

TEST_F(Displacement, AValueReplacesTheSubKeyOfItsName) {
    CRegKey key;
    createKey(*store, "Net/Deep", key);
    EXPECT_EQ(import("[Velquist]\n\"NET\"=string:x\n"), REGLIB_OK);
    EXPECT_THAT(keyNames(*store, root), IsEmpty());
    EXPECT_THAT(valueNames(*store, root), ElementsAre("NET"));
    EXPECT_EQ(get(*store, root, "net"), Value::ofText("x"));
    CRegKey again;
    EXPECT_EQ(openKey(*store, "net", again), REGLIB_E_NOT_A_KEY);
}

TEST_F(Displacement, HandlesOnADisplacedKeyGoOnWorking) {
    CRegKey net;
    CRegKey deep;
    createKey(*store, "Net", net);
    createKey(*store, "Net/Deep", deep);
    setText(*store, net, "a", "1");
    EXPECT_EQ(import("[Velquist]\n\"Net\"=string:x\n"), REGLIB_OK);
    EXPECT_EQ(probe.displaced(), 1u);
    EXPECT_EQ(get(*store, net, "a"), Value::ofText("1"));
    EXPECT_EQ(setText(*store, net, "b", "2"), REGLIB_OK);
    EXPECT_EQ(get(*store, net, "b"), Value::ofText("2"));
    EXPECT_THAT(keyNames(*store, net), ElementsAre("Deep"));
    CRegKey deeper;
    EXPECT_EQ(createKey(*store, "x", deeper, &deep), REGLIB_OK);
    EXPECT_STREQ(deeper.GetKeyFullName(), "[Velquist/Net/Deep/x]");
    EXPECT_EQ(file.read(), "[Velquist]\n\"Net\"=string:x\n");
}

TEST_F(Displacement, ADisplacedKeyCanBeDeletedThroughItsHandles) {
    CRegKey net;
    CRegKey deep;
    createKey(*store, "Net", net);
    createKey(*store, "Net/Deep", deep);
    import("[Velquist]\n\"Net\"=string:x\n");
    EXPECT_EQ(store->VQRegDeleteKey(net, "Deep"), REGLIB_OK);
    EXPECT_THAT(keyNames(*store, net), IsEmpty());
    std::string name;
    EXPECT_EQ(store->VQRegEnumKeys(deep, 0, name), REGLIB_E_INVALID_HANDLE);
}

TEST_F(Displacement, AKeyWithoutHandlesIsFreed) {
    file.write("[Velquist]\n[Velquist/Net]\n\"a\"=string:1\n[Velquist/Net/Deep]\n");
    probe.moveStamp();
    ASSERT_EQ(get(*store, root, "none").code, REGLIB_E_NOT_FOUND);
    EXPECT_EQ(import("[Velquist]\n\"Net\"=string:x\n"), REGLIB_OK);
    EXPECT_EQ(probe.displaced(), 0u);
    EXPECT_THAT(valueNames(*store, root), ElementsAre("Net"));
}

TEST_F(Displacement, AKeyWhoseParentGoesAwayStaysUsable) {
    CRegKey parent;
    CRegKey child;
    createKey(*store, "p", parent);
    createKey(*store, "p/c", child);
    import("[Velquist/p]\n\"c\"=string:x\n");
    ASSERT_EQ(store->VQRegDeleteValue(parent, "c"), REGLIB_OK);
    ASSERT_EQ(store->VQRegDeleteKey(root, "p"), REGLIB_OK);
    CRegKey deeper;
    EXPECT_EQ(createKey(*store, "x", deeper, &child), REGLIB_OK);
    EXPECT_STREQ(deeper.GetKeyFullName(), "[Velquist/p/c/x]");
    std::string name;
    EXPECT_EQ(store->VQRegEnumKeys(parent, 0, name), REGLIB_E_INVALID_HANDLE);
    EXPECT_EQ(file.read(), "[Velquist]\n");
}

TEST_F(Displacement, AKeyLineThatNamesAValueMakesItTheCurrentKey) {
    EXPECT_EQ(import("[Velquist]\n\"v\"=string:x\n[Velquist/V]\n\"inner\"=dword:00000001\n"),
              REGLIB_OK);
    const auto* const value = probe.node({"velquist", "v"});
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(value->m_iIsKey, 0);
    EXPECT_EQ(value->line(), "\"v\"=string:x");
    const auto* const inner = probe.node({"velquist", "v", "inner"});
    ASSERT_NE(inner, nullptr);
    EXPECT_EQ(probe.tree().parentOf(*inner), value);
    EXPECT_EQ(get(*store, root, "v"), Value::ofText("x"));
}

TEST_F(Displacement, KeysBelowAValueAreMadeToo) {
    EXPECT_EQ(import("[Velquist]\n\"v\"=string:x\n[Velquist/v/k]\n\"a\"=string:y\n"), REGLIB_OK);
    EXPECT_NE(probe.node({"velquist", "v", "k", "a"}), nullptr);
    CRegKey key;
    EXPECT_EQ(openKey(*store, "v/k", key), REGLIB_E_NOT_A_KEY);
}

TEST_F(Displacement, WhatIsBelowAValueIsNotWritten) {
    import("[Velquist]\n\"v\"=string:x\n[Velquist/v]\n\"inner\"=dword:00000001\n");
    setText(*store, root, "w", "y");
    EXPECT_EQ(file.read(), "[Velquist]\n\"v\"=string:x\n\"w\"=string:y\n");
}

TEST_F(Displacement, DeletingAValueFreesWhatIsBelowIt) {
    import("[Velquist]\n\"v\"=string:x\n[Velquist/v/k/l]\n\"inner\"=dword:00000001\n");
    EXPECT_EQ(store->VQRegDeleteValue(root, "v"), REGLIB_OK);
    EXPECT_EQ(probe.node({"velquist", "v"}), nullptr);
    EXPECT_EQ(file.read(), "[Velquist]\n");
}

TEST_F(Displacement, AValueThatIsReadAgainLosesWhatWasBelowIt) {
    const std::string text = "[Velquist]\n\"v\"=string:x\n";
    import(text + "[Velquist/v]\n\"inner\"=dword:00000001\n");
    EXPECT_EQ(import(text), REGLIB_OK);
    EXPECT_NE(probe.node({"velquist", "v"}), nullptr);
    EXPECT_EQ(probe.node({"velquist", "v", "inner"}), nullptr);
}

TEST_F(Displacement, ValuesThatAreReadAgainKeepTheirNodes) {
    import("[Velquist]\n\"a\"=string:1\n\"b\"=string:2\n");
    const auto* const before = probe.node({"velquist", "a"});
    EXPECT_EQ(import("[Velquist]\n\"a\"=dword:00000007\n\"b\"=string:2\n"), REGLIB_OK);
    EXPECT_EQ(probe.node({"velquist", "a"}), before);
    EXPECT_EQ(get(*store, root, "a"), Value::ofDword(7));
    EXPECT_EQ(probe.displaced(), 0u);
    EXPECT_EQ(probe.childrenOf(*probe.node({"velquist"})), 2u);
}

TEST_F(Displacement, AHandleOnAValueIsNotAKey) {
    import("[Velquist]\n\"v\"=string:x\n");
    CRegKey key;
    CRegKeyAccess::put(key, new CRegKeyImplFile);
    CRegKeyAccess::record(key)->m_lRefCount = 1;
    store->CRegLibImpl::setKeyInfo(&key, "", "v", probe.node({"velquist", "v"}), nullptr);
    std::string name;
    CRegLib::eDataType type = CRegLib::eString;
    EXPECT_EQ(store->VQRegEnumKeys(key, 0, name), REGLIB_E_NOT_A_KEY);
    EXPECT_EQ(store->VQRegEnumValues(key, 0, name, type), REGLIB_E_NOT_A_KEY);
    EXPECT_EQ(get(*store, key, "a"), Value::failure(REGLIB_E_NOT_A_KEY));
    EXPECT_EQ(store->VQRegQueryValueType(key, "a", type), REGLIB_E_NOT_A_KEY);
    EXPECT_EQ(type, CRegLib::eNone);
    EXPECT_EQ(setText(*store, key, "a", "x"), REGLIB_E_NOT_A_KEY);
    EXPECT_EQ(setNumber(*store, key, "a", 1), REGLIB_E_NOT_A_KEY);
    EXPECT_EQ(setBytes(*store, key, "a", "x"), REGLIB_E_NOT_A_KEY);
    EXPECT_EQ(store->VQRegDeleteValue(key, "a"), REGLIB_E_NOT_A_KEY);
}
