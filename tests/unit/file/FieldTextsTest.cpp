// Files as they are found in the field, each with one trouble: what is understood, and what is written
// back. Beside each "trouble.cfg" of tests/data stands "trouble.golden", what this test makes of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "support/StoreFixture.h"
#include "support/Wire.h"

using namespace vqtest;
namespace fs = std::filesystem;

namespace {

std::vector<std::string> troubles() {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(VQREG_TEST_DATA)) {
        if (entry.path().extension() == ".cfg") {
            names.push_back(entry.path().stem().string());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string dataFile(const std::string& trouble, const char* ending) {
    return std::string(VQREG_TEST_DATA) + "/" + trouble + ending;
}

std::string dumpOf(CRegLibImplFile& store) {
    testing::internal::CaptureStdout();
    store.dump();
    return testing::internal::GetCapturedStdout();
}

std::string shown(const Value& value) {
    switch (value.type) {
        case CRegLib::eDword:
            return "dword " + std::to_string(value.dword());
        case CRegLib::eString:
            return "string " + value.text();
        default:
            return "binary " + toHex(value.bytes);
    }
}

// Every value that callers reach, as they get it.
std::string valuesBelow(CRegLibImplFile& store, CRegKey& key) {
    std::string all;
    for (const std::string& name : valueNames(store, key)) {
        all += std::string(key.GetKeyFullName()) + " \"" + name + "\" is " +
               shown(get(store, key, name.c_str())) + "\n";
    }
    for (const std::string& name : keyNames(store, key)) {
        CRegKey below;
        if (openKey(store, name.c_str(), below, &key) == REGLIB_OK) {
            all += valuesBelow(store, below);
        }
    }
    return all;
}

class FieldTexts : public StoreTest, public testing::WithParamInterface<std::string> {
protected:
    // Of a file that can be opened: also what is written when a value is added.
    static std::string understanding(CRegLibImplFile& store, const TempStore& file) {
        CRegKey& root = *store.RootKey();
        std::string all = "opened\n" + dumpOf(store) + valuesBelow(store, root);
        EXPECT_EQ(setNumber(store, root, "Added", 1), REGLIB_OK);
        return all + "written\n" + file.read();
    }

    // Of one that cannot: what a store that was open before has read of it.
    std::string refusal(CRegLibImplFile& before, int code) const {
        const std::string text = file.read();
        CFileStoreProbe(before).moveStamp();
        EXPECT_EQ(setNumber(before, *before.RootKey(), "Added", 1), code);
        EXPECT_EQ(file.read(), text) << "the file is left as it is";
        return "refused " + codeToText(code) + "\n" + dumpOf(before);
    }
};

std::string testName(const testing::TestParamInfo<std::string>& info) {
    std::string name = info.param;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

}  // namespace

TEST_P(FieldTexts, AreUnderstoodAndWrittenBackAsEver) {
    file.write("[Velquist]\n");
    const auto before = open();
    file.write(readFile(dataFile(GetParam(), ".cfg")));
    std::string actual;
    try {
        const auto store = open();
        actual = understanding(*store, file);
    } catch (const VQException& exception) {
        actual = refusal(*before, exception.m_lCode);
    }
    EXPECT_EQ(actual, readFile(dataFile(GetParam(), ".golden")));
}

INSTANTIATE_TEST_SUITE_P(Trouble, FieldTexts, testing::ValuesIn(troubles()), testName);

TEST(FieldTextFiles, HaveTheirGoldenFilesAndNoOthers) {
    std::vector<std::string> all;
    for (const auto& entry : fs::directory_iterator(VQREG_TEST_DATA)) {
        all.push_back(entry.path().filename().string());
    }
    std::vector<std::string> expected;
    for (const std::string& trouble : troubles()) {
        expected.push_back(trouble + ".cfg");
        expected.push_back(trouble + ".golden");
    }
    EXPECT_GT(expected.size(), 50u);
    EXPECT_THAT(all, testing::UnorderedElementsAreArray(expected));
}
