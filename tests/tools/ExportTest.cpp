// vqreg export.
#include <gtest/gtest.h>

#include "support/TempStore.h"
#include "tools/VqregProcess.h"

using vqtest::CommandResult;
using vqtest::runVqreg;
using vqtest::TempStore;

namespace {

const std::string kText =
    "[Velquist]\n"
    "\"Version\"=string:4.2\n"
    "[Velquist/Network]\n"
    "\"Port\"=dword:00001F90\n"
    "[Velquist/Network/Dns]\n"
    "\"Mac\"=binary:0010\n";

}  // namespace

TEST(ExportTest, PrintsTheWholeRootKey) {
    TempStore store;
    store.write(kText);
    EXPECT_EQ((CommandResult{0, kText, ""}), runVqreg({"--file", store.path(), "export"}));
}

TEST(ExportTest, BeginsWithTheKey) {
    TempStore store;
    store.write(kText);
    EXPECT_EQ((CommandResult{0,
                             "[Velquist/Network/Dns]\n"
                             "\"Mac\"=binary:0010\n",
                             ""}),
              runVqreg({"--file", store.path(), "export", "Network/Dns"}));
}

TEST(ExportTest, PrintsJson) {
    TempStore store;
    store.write(kText);
    EXPECT_EQ((CommandResult{0,
                             "{\n"
                             "  \"name\": \"Dns\",\n"
                             "  \"key\": \"Network/Dns\",\n"
                             "  \"values\": {\n"
                             "    \"Mac\": {\"type\":\"binary\",\"value\":\"0010\"}\n"
                             "  },\n"
                             "  \"keys\": {}\n"
                             "}\n",
                             ""}),
              runVqreg({"--file", store.path(), "export", "--json", "Network/Dns"}));
}

TEST(ExportTest, SaysThatAKeyIsMissing) {
    TempStore store;
    store.write(kText);
    EXPECT_EQ((CommandResult{1, "", "vqreg: the key \"Nothing\" does not exist\n"}),
              runVqreg({"--file", store.path(), "export", "Nothing"}));
}

TEST(ExportTest, WarnsOfWhatCannotBeReadBack) {
    TempStore store;
    store.write("[Velquist]\n\"a:b\"=string:x\n");
    const CommandResult result = runVqreg({"--file", store.path(), "export"});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ(
        "vqreg: warning: a value name must not hold a colon: \"a:b\", byte 2, in the key "
        "\"/\"\n",
        result.err);
}

TEST(ExportTest, UsesAnotherRootKey) {
    TempStore store;
    store.write("[A]\n[A/B]\n\"x\"=string:y\n");
    EXPECT_EQ((CommandResult{0, "[A]\n[A/B]\n\"x\"=string:y\n", ""}),
              runVqreg({"--file", store.path(), "--root", "A/B", "export"}));
}

TEST(ExportTest, IsQuietOnAClosedPipe) {
    TempStore store;
    std::string text = "[Velquist]\n";
    for (int i = 0; i < 5000; ++i) {
        text += "\"name" + std::to_string(i) + "\"=string:" + std::string(100, 'x') + "\n";
    }
    store.write(text);
    vqtest::VqregProcess process({"--file", store.path(), "export"});
    process.closeOutput();
    EXPECT_EQ((CommandResult{0, "", ""}), process.finish());
}
