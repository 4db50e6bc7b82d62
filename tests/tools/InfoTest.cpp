// vqreg info, where the text of the store is not in its place.
#include <VQRegLib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "support/MappingChild.h"
#include "tools/VqregStore.h"

using vqtest::fails;

class Info : public vqtest::VqregStore {
protected:
    void writeBackup(const std::string& text) const { std::ofstream(file.backupPath()) << text; }

    static std::string hint(const std::string& state) {
        return "the file is " + state +
               " and its backup is not; \"vqreg restore\" brings the text back";
    }
};

namespace {

bool holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

}  // namespace

TEST_F(Info, SaysThatTheFileIsMissingAndItsBackupIsNot) {
    writeBackup("[Velquist]\n");
    const auto text = run({"info"});
    EXPECT_EQ(text.status, 3);
    EXPECT_EQ(text.err, "vqreg: " + file.path() + ": " + hint("missing") + "\n");
    EXPECT_TRUE(holds(text.out, "\nstate          " + hint("missing") + "\nbackup         " +
                                    file.backupPath() + ", 11 bytes"))
        << text.out;
    const auto json = run({"info", "--json"});
    EXPECT_EQ(json.status, 3);
    EXPECT_TRUE(holds(json.out,
                      "\n  \"state\": \"missing\",\n  \"hint\": \"the file is missing "
                      "and its backup is not; \\\"vqreg restore\\\""))
        << json.out;
    EXPECT_TRUE(holds(json.out, "\n  \"owner\": null,\n")) << json.out;
    EXPECT_FALSE(file.exists());
    EXPECT_EQ(run({"restore"}).status, 0);
    EXPECT_EQ(file.read(), "[Velquist]\n");
}

TEST_F(Info, SaysThatTheFileIsEmptyAndItsBackupIsNot) {
    file.write("");
    writeBackup("[Velquist]\n");
    const auto text = run({"info"});
    EXPECT_EQ(text.status, 0);
    EXPECT_EQ(text.err, "");
    EXPECT_TRUE(holds(text.out, "\nstate          " + hint("empty") + "\nowner  ")) << text.out;
    EXPECT_TRUE(holds(text.out, "\nsize           0 bytes\n")) << text.out;
    const auto json = run({"info", "--json"});
    EXPECT_EQ(json.status, 0);
    EXPECT_TRUE(holds(json.out, "\n  \"state\": \"empty\",\n  \"hint\": \"the file is empty and "))
        << json.out;
}

TEST_F(Info, SaysNothingOfTheKindOtherwise) {
    file.write("");
    const auto empty = run({"info", "--json"});
    EXPECT_TRUE(holds(empty.out, "\n  \"state\": \"empty\",\n  \"hint\": null,\n")) << empty.out;
    writeBackup("");
    EXPECT_FALSE(holds(run({"info"}).out, "state")) << "an empty backup is none";
    ASSERT_EQ(0, ::unlink(file.path().c_str()));
    EXPECT_EQ(run({"info"}), fails(3, file.path() + ": the file does not exist"));
    ASSERT_EQ(0, ::unlink(file.backupPath().c_str()));
    ASSERT_EQ(0, ::mkdir(file.backupPath().c_str(), 0777));
    EXPECT_EQ(run({"info"}), fails(3, file.path() + ": the file does not exist"));
    ASSERT_EQ(0, ::rmdir(file.backupPath().c_str()));
    file.write("[Velquist]\n");
    writeBackup("[Velquist]\n");
    const auto present = run({"info", "--json"});
    EXPECT_TRUE(holds(present.out, "\n  \"state\": \"present\",\n  \"hint\": null,\n"))
        << present.out;
    EXPECT_FALSE(holds(run({"info"}).out, "state"));
}

TEST_F(Info, SaysWhatIsInThePlaceOfTheBackup) {
    file.write("[Velquist]\n");
    const std::string start = "\nbackup         " + file.backupPath() + " is ";
    const auto expectTold = [&](const std::string& kind) {
        const std::string out = run({"info"}).out;
        EXPECT_TRUE(holds(out, start + kind + ", not a file\n")) << out;
        EXPECT_EQ(nlohmann::json::parse(run({"info", "--json"}).out)["backup"],
                  nlohmann::json({{"file", file.backupPath()},
                                  {"fault", "is " + kind + ", not a file"},
                                  {"size", nullptr},
                                  {"modified", nullptr}}));
        ASSERT_EQ(0, ::remove(file.backupPath().c_str()));
    };
    ASSERT_EQ(0, ::mkdir(file.backupPath().c_str(), 0777));
    expectTold("a directory");
    ASSERT_EQ(0, ::symlink(file.path().c_str(), file.backupPath().c_str()));
    expectTold("a symbolic link");
    ASSERT_EQ(0, ::mkfifo(file.backupPath().c_str(), 0666));
    expectTold("a special file");
    writeBackup("x");
    EXPECT_TRUE(nlohmann::json::parse(run({"info", "--json"}).out)["backup"]["fault"].is_null());
}

// A number of 64 bits would not survive every reader of JSON.
TEST_F(Info, TheStampIsATextInJson) {
    make({"set", "/", "V", "1"});
    const VQRegLib::CRegLib session(file.path().c_str(), nullptr,
                                    VQRegLib::CRegLib::eLocationDefault, nullptr);
    const std::string out = run({"info", "--json"}).out;
    const std::size_t at = out.find("\"stamp\": \"");
    ASSERT_NE(at, std::string::npos) << out;
    const std::string stamp = out.substr(at + 10, out.find('"', at + 10) - at - 10);
    EXPECT_TRUE(holds(run({"info"}).out, "change stamp   " + stamp + "\n")) << stamp;
}

// Its objects have other names. They stay when nobody uses them any more.
TEST_F(Info, NamesWhoUsesTheStoreThroughAnOlderLibrary) {
    file.write("[Velquist]\n");
    EXPECT_TRUE(nlohmann::json::parse(run({"info", "--json"}).out)["olderLibrary"].empty());
    for (const char* const kind : {"CPMutex", "CPSharedMemory"}) {
        const std::string object =
            std::string("/dev/shm/") + kind + "." + vqtest::encodedPath(file.path());
        std::ofstream(object) << "mapped";
        EXPECT_FALSE(holds(run({"info"}).out, "older library"));
        const vqtest::MappingChild program(object);
        const vqtest::MappingChild elsewhere("/proc/self/exe");
        const std::string out = run({"info"}).out;
        EXPECT_TRUE(holds(out, "\nolder library  in " + std::to_string(program.pid()) +
                                   " (tools): restart, or changes get lost\n"))
            << out;
        EXPECT_EQ(nlohmann::json::parse(run({"info", "--json"}).out)["olderLibrary"],
                  nlohmann::json({{{"pid", program.pid()}, {"program", "tools"}}}));
    }
    EXPECT_FALSE(holds(run({"info"}).out, "older library"));
}
