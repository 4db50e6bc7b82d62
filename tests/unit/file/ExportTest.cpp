// Writing the tree to the file, and printing it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "support/FileOpsFake.h"
#include "support/ModelStore.h"
#include "support/StoreFixture.h"

using namespace vqtest;
using testing::ElementsAre;

namespace {

class Export : public StoreTest {
protected:
    std::unique_ptr<CRegLibImplFile> store = open();
    CFileStoreProbe probe{*store};
    CRegKey& root = *store->RootKey();
};

class Dump : public Export {
protected:
    std::string dumped() {
        testing::internal::CaptureStdout();
        store->dump();
        return testing::internal::GetCapturedStdout();
    }
};

}  // namespace

TEST_F(Export, WritesValuesBeforeSubKeysInTheOrderOfTheirFoldedNames) {
    CRegKey key;
    for (const char* path : {"b", "_x", "B2", "a/Z", "a/y"}) {
        createKey(*store, path, key);
    }
    for (const char* name : {"c", "Ab", "_", "10", "9", "aa", "AB", "\xC3\xA4", ""}) {
        setText(*store, root, name, "x");
    }
    openKey(*store, "a", key);
    setNumber(*store, key, "n", 1);
    EXPECT_EQ(file.read(),
              "[Velquist]\n"
              "\"\"=string:x\n\"10\"=string:x\n\"9\"=string:x\n\"_\"=string:x\n\"aa\"=string:x\n"
              "\"AB\"=string:x\n\"c\"=string:x\n\"\xC3\xA4\"=string:x\n"
              "[Velquist/_x]\n[Velquist/a]\n\"n\"=dword:00000001\n"
              "[Velquist/a/y]\n[Velquist/a/Z]\n[Velquist/b]\n[Velquist/B2]\n");
}

TEST_F(Export, WritesWhatTheModelSays) {
    ModelStore model;
    CRegKey key;
    for (int i = 0; i < 40; ++i) {
        const std::string path = "k" + std::to_string(i * 7 % 11) + "/K" + std::to_string(i % 3);
        const std::string name = (i % 2 ? "v" : "V") + std::to_string(i * 5 % 13);
        ASSERT_EQ(createKey(*store, path.c_str(), key), model.create(path));
        if (i % 3 == 0) {
            setText(*store, key, name.c_str(), path.c_str());
            model.set(path, name, path);
        } else if (i % 3 == 1) {
            setNumber(*store, key, name.c_str(), static_cast<unsigned long>(i));
            model.set(path, name, static_cast<std::uint32_t>(i));
        } else {
            setBytes(*store, key, name.c_str(), name);
            model.setBinary(path, name, name);
        }
        ASSERT_EQ(file.read(), model.text());
    }
}

TEST_F(Export, WritesNoLineForAKeyNamedLikeTheTopOfTheTree) {
    CRegKey key;
    createKey(*store, "<root>/sub", key);
    EXPECT_STREQ(key.GetKeyFullName(), "[Velquist/sub]");
    EXPECT_EQ(file.read(), "[Velquist]\n[Velquist/sub]\n");
    createKey(*store, "<Root>/sub", key);
    EXPECT_STREQ(key.GetKeyFullName(), "[Velquist/sub]") << "found whatever the case";
}

TEST_F(Export, WritesALineForAKeyNamedAlmostLikeTheTopOfTheTree) {
    CRegKey key;
    createKey(*store, "<ROOT>/sub", key);
    createKey(*store, "<root", key);
    EXPECT_EQ(file.read(),
              "[Velquist]\n[Velquist/<root]\n[Velquist/<ROOT>]\n[Velquist/<ROOT>/sub]\n");
}

TEST_F(Export, WritesALargeTreeInFewBlocks) {
    const std::string text(1500, 'x');
    std::string expected = "[Velquist]\n";
    for (int i = 100; i < 500; ++i) {
        const std::string name = "v" + std::to_string(i);
        probe.tree().addValue(*probe.node({"velquist"}), name, CRegLib::eString,
                              "\"" + name + "\"=string:" + text);
        expected += "\"" + name + "\"=string:" + text + "\n";
    }
    const FileOpsFake files;
    store->Lock();
    EXPECT_EQ(store->ExportConfig(), REGLIB_OK);
    store->Unlock();
    EXPECT_EQ(file.read(), expected);
    EXPECT_LE(files.count(FileCall::eWrite), 4);
}

TEST_F(Export, RenewsBothStamps) {
    const std::uint64_t before = probe.sharedStamp();
    setText(*store, root, "a", "x");
    EXPECT_GT(probe.sharedStamp(), before);
    EXPECT_EQ(probe.localStamp(), probe.sharedStamp());
}

TEST_F(Export, RenewsTheStampWhateverTheClockDoes) {
    constexpr std::uint64_t kLast = ~std::uint64_t{0} - 1;  // stamps are even
    probe.setSharedStamp(probe.localStamp() = kLast - 2);
    setText(*store, root, "a", "x");
    EXPECT_EQ(probe.sharedStamp(), kLast);
    setText(*store, root, "a", "y");
    EXPECT_NE(probe.sharedStamp(), 0u);  // that of a store that has not read its file
    EXPECT_LT(probe.sharedStamp(), kLast);
    EXPECT_EQ(probe.localStamp(), probe.sharedStamp());
}

TEST_F(Export, ThatCannotOpenItsFileLeavesEverythingButTheTree) {
    setText(*store, root, "a", "x");
    const std::uint64_t stamp = probe.sharedStamp();
    const std::string text = file.read();
    const std::string backup = file.readBackup();
    FileOpsFake files;
    for (const int error : {EACCES, ENOSPC, EROFS}) {
        files.fail(FileCall::eCreateForWriting, error);
        int changed = 7;
        EXPECT_EQ(setNumber(*store, root, "b", static_cast<unsigned long>(error), &changed),
                  REGLIB_E_FILE_OPEN);
        EXPECT_EQ(changed, 1);
        EXPECT_EQ(get(*store, root, "b"), Value::ofDword(static_cast<std::uint32_t>(error)));
    }
    files.fail(FileCall::eCreateForWriting, ENOENT);
    EXPECT_EQ(setNumber(*store, root, "b", 1), REGLIB_E_NOT_FOUND);
    EXPECT_EQ(file.read(), text);
    EXPECT_EQ(file.readBackup(), backup);
    EXPECT_EQ(probe.sharedStamp(), stamp);
    EXPECT_EQ(probe.localStamp(), stamp);
    EXPECT_THAT(file.files(), ElementsAre("store.cfg", "store.cfg.bak"));
    EXPECT_FALSE(probe.isLocked());
    files.heal();
    EXPECT_EQ(setText(*store, root, "c", "y"), REGLIB_OK);
    EXPECT_EQ(file.read(), "[Velquist]\n\"a\"=string:x\n\"b\"=dword:00000001\n\"c\"=string:y\n");
}

TEST_F(Export, LeavesNoTemporaryFileWhenThereIsNoMemory) {
    const std::string text = file.read();
    FileOpsFake files;
    files.throwNoMemory(FileCall::eWrite);
    EXPECT_EQ(setText(*store, root, "a", "x"), REGLIB_E_FAIL);
    EXPECT_THAT(file.files(), ElementsAre("store.cfg", "store.cfg.bak"));
    EXPECT_EQ(file.read(), text);
    EXPECT_FALSE(probe.isFileOpen());
    EXPECT_FALSE(probe.isLocked());
    files.heal();
    EXPECT_EQ(setText(*store, root, "b", "y"), REGLIB_OK);
    EXPECT_EQ(file.read(), "[Velquist]\n\"a\"=string:x\n\"b\"=string:y\n");
}

TEST_F(Dump, ShowsTheTreeOfANewStore) {
    EXPECT_EQ(dumped(),
              "--dump keys/values\n"
              "  name <root>, iskey 1, fullname , value <key>\n"
              "    name Velquist, iskey 1, fullname [Velquist], value <key>\n");
}

TEST_F(Dump, ShowsValuesAndSubKeysInOneOrder) {
    CRegKey key;
    createKey(*store, "b", key);
    setText(*store, key, "t", "x%sy");
    setText(*store, root, "C", "z");
    setNumber(*store, root, "a", 255);
    EXPECT_EQ(dumped(),
              "--dump keys/values\n"
              "  name <root>, iskey 1, fullname , value <key>\n"
              "    name Velquist, iskey 1, fullname [Velquist], value <key>\n"
              "      name a, iskey 0, fullname , value \"a\"=dword:000000FF\n"
              "      name b, iskey 1, fullname [Velquist/b], value <key>\n"
              "        name t, iskey 0, fullname , value \"t\"=string:x%sy\n"
              "      name C, iskey 0, fullname , value \"C\"=string:z\n");
}

TEST_F(Dump, ShowsNothingBelowAValue) {
    file.write("[Velquist]\n\"v\"=string:x\n[Velquist/v]\n\"inner\"=string:y\n[Velquist/v/k]\n");
    probe.moveStamp();
    get(*store, root, "v");
    ASSERT_NE(probe.node({"velquist", "v", "inner"}), nullptr);
    EXPECT_EQ(dumped(),
              "--dump keys/values\n"
              "  name <root>, iskey 1, fullname , value <key>\n"
              "    name Velquist, iskey 1, fullname [Velquist], value <key>\n"
              "      name v, iskey 0, fullname , value \"v\"=string:x\n");
}

TEST_F(Dump, ShowsTheTreeAsItIsInMemory) {
    file.write("[Velquist]\n\"new\"=string:x\n");
    probe.moveStamp();
    EXPECT_THAT(dumped(), testing::Not(testing::HasSubstr("new")));
    EXPECT_FALSE(probe.isLocked());
}

TEST_F(Dump, IndentsBy63BlanksAtMost) {
    std::string path = "k";
    for (int depth = 0; depth < 33; ++depth) {
        path += "/k";
    }
    CRegKey key;
    ASSERT_EQ(createKey(*store, path.c_str(), key), REGLIB_OK);
    const std::string text = dumped();
    std::size_t start = 0;
    std::vector<std::size_t> indents;
    for (std::size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
        indents.push_back(text.find_first_not_of(' ', start) - start);
    }
    ASSERT_EQ(indents.size(), 1u + 1 + 1 + 34);
    for (std::size_t depth = 0; depth <= 35; ++depth) {
        EXPECT_EQ(indents[depth + 1], 2 + std::min<std::size_t>(2 * depth, 63)) << depth;
    }
}
