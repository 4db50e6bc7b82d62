// Which file a session without a file name uses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "VQRegLib.h"
#include "support/TempStore.h"
#include "support/TraceLog.h"

namespace fs = std::filesystem;

using namespace VQRegLib;
using testing::HasSubstr;
using vqtest::readFile;
using vqtest::TraceLog;

namespace {

constexpr char kPreferred[] = "/velquist/etc/Velquist.cfg";
constexpr char kUsual[] = "/etc/Velquist.cfg";
constexpr char kLogging[] = "[Velquist/Logging]\n\"RegLibLogging\"=dword:00000001\n";

}  // namespace

TEST(DefaultPath, IsInEtc) {
    const CRegLib session(nullptr, nullptr, CRegLib::eLocationDefault, nullptr);
    EXPECT_NE(session.RootKey(), nullptr);
    EXPECT_EQ(readFile(kUsual), std::string("[Velquist]\n") + kLogging);
    EXPECT_FALSE(fs::exists("/velquist"));
}

TEST(DefaultPath, ItsDirectoryMustBeThere) {
    fs::create_directory("/velquist");
    const CRegLib session(nullptr, nullptr, CRegLib::eLocationDefault, nullptr);
    EXPECT_NE(session.RootKey(), nullptr);
    EXPECT_TRUE(fs::exists(kUsual));
    EXPECT_TRUE(fs::is_empty("/velquist"));
}

TEST(DefaultPath, IsInThePreferredDirectoryWhereThereIsOne) {
    fs::create_directories("/velquist/etc");
    const CRegLib session(nullptr, nullptr, CRegLib::eLocationDefault, nullptr);
    EXPECT_NE(session.RootKey(), nullptr);
    EXPECT_EQ(readFile(kPreferred), std::string("[Velquist]\n") + kLogging);
    EXPECT_FALSE(fs::exists(kUsual));
}

TEST(DefaultPath, APlainFileInItsPlaceIsTakenForTheDirectory) {
    fs::create_directories(TraceLog::directory());
    fs::create_directory("/velquist");
    std::ofstream("/velquist/etc") << "plain";
    const CRegLib session(nullptr, nullptr, CRegLib::eLocationDefault, nullptr);
    EXPECT_EQ(session.RootKey(), nullptr);
    EXPECT_FALSE(fs::exists(kUsual));
    EXPECT_EQ(readFile("/velquist/etc"), "plain");
    EXPECT_THAT(vqtest::withoutAddresses(readFile(TraceLog::path())),
                HasSubstr("(Error) CRegLibImplFile::FileOpen (0x@) "
                          "\"/velquist/etc/Velquist.cfg\" failed, errno 20\n"));
}

TEST(DefaultPath, IsChosenByEachStoreAnew) {
    const CRegLib before(nullptr, nullptr, CRegLib::eLocationDefault, nullptr);
    fs::create_directories("/velquist/etc");
    const CRegLib joined(nullptr, nullptr, CRegLib::eLocationDefault, nullptr);
    EXPECT_EQ(joined.RootKey(), before.RootKey());
    EXPECT_FALSE(fs::exists(kPreferred));
    const CRegLib other(nullptr, "Site", CRegLib::eLocationDefault, nullptr);
    EXPECT_EQ(readFile(kPreferred), "[Site]\n");
}
