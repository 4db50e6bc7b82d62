// A store where other machines may have its file, too: their programs share neither the lock nor the
// stamp with those of this one. Both the library and the command say so.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <nlohmann/json.hpp>

#include "support/TraceLog.h"
#include "tools/VqregStore.h"

using testing::HasSubstr;
using testing::Not;
using vqtest::Arguments;
using vqtest::CommandResult;
using vqtest::TraceLog;

namespace {

class NetworkDisk : public vqtest::VqregStore {
protected:
    CommandResult runThere(Arguments arguments) const {
        arguments.insert(arguments.begin(), {"--file", file.path()});
        const char* const given = std::getenv("ASAN_OPTIONS");
        return vqtest::runVqreg(
            arguments, {},
            {{"LD_PRELOAD", VQREG_NETWORK_DISK},
             {"ASAN_OPTIONS", std::string(given ? given : "") + ":verify_asan_link_order=0"}});
    }

    std::vector<std::string> linesAboutTheFile(const TraceLog& log) const {
        std::vector<std::string> found;
        for (const std::string& text : log.texts(TraceLog::Addresses::eReplace)) {
            if (text.find("\"" + file.path() + "\" is on ") != std::string::npos) {
                found.push_back(text);
            }
        }
        return found;
    }
};

}  // namespace

TEST_F(NetworkDisk, InfoNamesIt) {
    make({"set", "/", "V", "1"});
    EXPECT_THAT(runThere({"info"}).out,
                HasSubstr("\nfile system    nfs: lock and change stamp are this machine's alone, "
                          "other machines must not use the store\n"));
    EXPECT_EQ(nlohmann::json::parse(runThere({"info", "--json"}).out)["networkFileSystem"], "nfs");
    EXPECT_THAT(run({"info"}).out, Not(HasSubstr("file system")));
    EXPECT_TRUE(nlohmann::json::parse(run({"info", "--json"}).out)["networkFileSystem"].is_null());
}

TEST_F(NetworkDisk, AnErrorLineOfTheLibraryNamesItWhenTheStoreIsOpened) {
    if (!vqtest::inPrivateRoot()) {
        GTEST_SKIP() << "the log has its place in the file system's root";
    }
    const TraceLog log(1);
    EXPECT_EQ(run({"set", "/", "V", "1"}).status, 0);
    EXPECT_TRUE(linesAboutTheFile(log).empty());
    EXPECT_EQ(runThere({"set", "/", "V", "2"}).status, 0);
    EXPECT_THAT(
        linesAboutTheFile(log),
        testing::ElementsAre("(Error) CRegLibImplFile::CRegLibImplFile, \"" + file.path() +
                             "\" is on nfs: lock and change stamp are this machine's alone, other "
                             "machines must not use the store"));
}
