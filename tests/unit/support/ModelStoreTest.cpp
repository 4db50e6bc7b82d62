#include "support/ModelStore.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "VQRegLib.h"

using namespace VQRegLib;
using testing::ElementsAre;
using testing::Pair;
using vqtest::ModelStore;
using vqtest::Value;

TEST(ModelStore, StartsWithTheRootKey) {
    EXPECT_EQ(ModelStore().text(), "[Velquist]\n");
    EXPECT_EQ(ModelStore("A\\B").text(), "[A]\n[A/B]\n");
}

TEST(ModelStore, PrintsValuesBeforeKeysInFoldedOrder) {
    ModelStore store;
    EXPECT_EQ(store.create("b/C"), REGLIB_OK);
    EXPECT_EQ(store.create("A"), REGLIB_OK);
    EXPECT_EQ(store.create("_"), REGLIB_OK);
    EXPECT_EQ(store.set(".", "z", 0xABCu), REGLIB_OK);
    EXPECT_EQ(store.set(".", "Y", "te xt"), REGLIB_OK);
    EXPECT_EQ(store.setBinary("B/c", "x", std::string("\0\xfe", 2)), REGLIB_OK);
    EXPECT_EQ(store.text(),
              "[Velquist]\n"
              "\"Y\"=string:te xt\n"
              "\"z\"=dword:00000ABC\n"
              "[Velquist/_]\n"
              "[Velquist/A]\n"
              "[Velquist/b]\n"
              "[Velquist/b/C]\n"
              "\"x\"=binary:00FE\n");
}

TEST(ModelStore, KeepsSpellingsAsTheFileDoes) {
    ModelStore store;
    store.set(".", "Name", 1u);
    store.set(".", "NAME", "t");
    EXPECT_EQ(store.text(), "[Velquist]\n\"NAME\"=string:t\n");
    EXPECT_THAT(store.enumValues(".").names, ElementsAre(Pair("Name", CRegLib::eString)));
    store.set(".", "name", 2u);
    EXPECT_EQ(store.text(), "[Velquist]\n\"Name\"=dword:00000002\n");
    store.setBinary(".", "nAME", "");
    EXPECT_EQ(store.text(), "[Velquist]\n\"nAME\"=binary:\n");
    store.reread();
    EXPECT_THAT(store.enumValues(".").names, ElementsAre(Pair("nAME", CRegLib::eBinary)));
    store.create("Key");
    store.create("KEY/Sub");
    EXPECT_THAT(store.enumKeys(".").names, ElementsAre("Key"));
}

TEST(ModelStore, ReturnsValuesAsTheLibraryHandsThemOut) {
    ModelStore store;
    store.set(".", "n", 7u);
    store.set(".", "t", "x");
    store.setBinary(".", "b", "\x01\x02");
    EXPECT_EQ(store.get(".", "N").dword(), 7u);
    EXPECT_EQ(store.get(".", "T").text(), "x");
    EXPECT_EQ(store.get(".", "B"), Value::ofBinary("\x01\x02"));
    EXPECT_EQ(store.get(".", "t").bytes, std::string("x\0", 2));
    EXPECT_THROW(store.get(".", "t").dword(), std::logic_error);
    EXPECT_THROW(store.get(".", "n").text(), std::logic_error);
}

TEST(ModelStore, KeepsKeysAndValuesApart) {
    ModelStore store;
    store.create("key");
    store.set(".", "value", 1u);
    EXPECT_EQ(store.set(".", "KEY", 1u), REGLIB_E_NOT_A_VALUE);
    EXPECT_EQ(store.get(".", "Key").code, REGLIB_E_NOT_A_VALUE);
    EXPECT_EQ(store.deleteValue(".", "Key"), REGLIB_E_NOT_A_VALUE);
    EXPECT_EQ(store.create("Value/x"), REGLIB_E_NOT_A_KEY);
    EXPECT_EQ(store.open("Value"), REGLIB_E_NOT_A_KEY);
    EXPECT_EQ(store.deleteKey("Value"), REGLIB_E_NOT_A_KEY);
}

TEST(ModelStore, ReportsWhatIsMissing) {
    ModelStore store;
    EXPECT_EQ(store.open("a"), REGLIB_E_KEY_NOT_FOUND);
    EXPECT_EQ(store.deleteKey("a"), REGLIB_E_KEY_NOT_FOUND);
    EXPECT_EQ(store.set("a", "v", 1u), REGLIB_E_KEY_NOT_FOUND);
    EXPECT_EQ(store.enumKeys("a").code, REGLIB_E_KEY_NOT_FOUND);
    EXPECT_EQ(store.get(".", "v"), Value::failure(REGLIB_E_NOT_FOUND));
    EXPECT_EQ(store.deleteValue(".", "v"), REGLIB_E_NOT_FOUND);
}

TEST(ModelStore, AValueFurtherOnWinsOverAKeyThatIsMissing) {
    ModelStore store;
    store.set(".", "v", 1u);
    EXPECT_EQ(store.open("missing/v"), REGLIB_E_NOT_A_KEY);
    EXPECT_EQ(store.open("missing/w"), REGLIB_E_KEY_NOT_FOUND);
    EXPECT_EQ(store.create("missing/v"), REGLIB_OK);
}

TEST(ModelStore, DeletesEmptyKeysOnly) {
    ModelStore store;
    store.create("a/b");
    store.set("a/b", "v", 1u);
    EXPECT_EQ(store.deleteKey("a"), REGLIB_E_KEY_NOT_EMPTY);
    EXPECT_EQ(store.deleteKey("A/B"), REGLIB_E_KEY_NOT_EMPTY);
    EXPECT_EQ(store.deleteValue("a\\b", "V"), REGLIB_OK);
    EXPECT_EQ(store.deleteKey("A/B"), REGLIB_OK);
    EXPECT_EQ(store.deleteKey("a"), REGLIB_OK);
    EXPECT_EQ(store.text(), "[Velquist]\n");
}

TEST(ModelStore, EmptyNamesCount) {
    ModelStore store;
    store.create("a/");
    EXPECT_EQ(store.text(), "[Velquist]\n[Velquist/a]\n[Velquist/a/]\n");
    EXPECT_EQ(store.deleteKey("a"), REGLIB_E_KEY_NOT_EMPTY);
    EXPECT_EQ(store.deleteKey("a/"), REGLIB_OK);
}

TEST(ModelStore, HoldsSeveralTopLevelKeys) {
    ModelStore store;
    store.create("x");
    store.useRoot("Another/Root");
    store.set(".", "v", 1u);
    EXPECT_EQ(store.text(),
              "[Another]\n[Another/Root]\n\"v\"=dword:00000001\n[Velquist]\n[Velquist/x]\n");
}
