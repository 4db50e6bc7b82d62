// What the file store writes to the trace log.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <string>
#include <vector>

#include "portable/ObjectName.h"
#include "support/FileOpsFake.h"
#include "support/MappingChild.h"
#include "support/StoreFixture.h"
#include "support/TraceLog.h"

using namespace vqtest;
using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

class StoreTrace : public testing::Test {
protected:
    StoreTrace() {
        CRegLibTrace::m_lFakeMutex = 0;
        CRegLibTrace::createInstance();
        setLevel(1);
        lines();
    }

    void setLevel(int level) { CRegLibTrace::m_lLogLevel = level; }

    std::unique_ptr<CRegLibImplFile> open() const {
        return std::make_unique<CRegLibImplFile>(file.path().c_str(), nullptr,
                                                 CRegLib::eLocationDefault, nullptr);
    }

    // The lines since the last call, with "PATH" for the store's path and "+" for what makes a
    // temporary name unique.
    std::vector<std::string> lines() {
        std::vector<std::string> all = log.texts(TraceLog::Addresses::eReplace);
        std::vector<std::string> fresh(all.begin() + static_cast<std::ptrdiff_t>(m_seen),
                                       all.end());
        m_seen = all.size();
        for (std::string& line : fresh) {
            const std::size_t at = line.find(file.path());
            if (at != std::string::npos) {
                line.replace(at, file.path().size(), "PATH");
                const std::size_t end = line.find('"', at);
                if (end != std::string::npos && end == at + 4 + 36) {
                    line.replace(at + 4, 36, "+");
                }
            }
        }
        return fresh;
    }

    // The configuration is read before the trace object exists.
    TraceLog log{1};
    TempStore file;

private:
    std::size_t m_seen = 0;
};

const char kFind[] = "CRegLibImplFile::VQRegFindKey (0x@) SubKeyName ";

}  // namespace

TEST_F(StoreTrace, FollowsTheConstructionAndTheDestruction) {
    file.write("[Velquist]\n\"a\"=string:100%\n");
    setLevel(4 | 8 | 16);
    open();
    EXPECT_THAT(
        lines(),
        ElementsAre("CRegLibImpl::CRegLibImpl (0x@) - PATH, (null)",
                    "CRegLibImplFile::CRegLibImplFile (0x@), name \"PATH\", root \"(null)\"",
                    "CRegKeyImpl::CRegKeyImpl 0x@", "CRegKeyImplFile::CRegKeyImplFile 0x@",
                    std::string(kFind) + "\"Velquist\"", ">>>CRegLibImplFile::ImportConfig",
                    "CRegLibImplFile::FileOpen (0x@) \"PATH\"", "import line \"[Velquist]\"",
                    "import line \"\"a\"=string:100%\"", "<<<CRegLibImplFile::ImportConfig",
                    "CRegKeyImpl::CRegKeyImpl 0x@", "CRegKeyImplFile::CRegKeyImplFile 0x@",
                    "<<<" + std::string(kFind) + "\"Velquist\", exists 1",
                    "CRegKeyImplFile::~CRegKeyImplFile 0x@", "CRegKeyImpl::~CRegKeyImpl 0x@",
                    ">>>CRegLibImplFile::ImportConfig", "<<<CRegLibImplFile::CRegLibImplFile (0x@)",
                    "CRegLibImplFile::~CRegLibImplFile (0x@)",
                    "CRegKeyImplFile::~CRegKeyImplFile 0x@", "CRegKeyImpl::~CRegKeyImpl 0x@",
                    "<<<CRegLibImplFile::~CRegLibImplFile (0x@)",
                    "CRegLibImpl::~CRegLibImpl (0x@)"));
}

TEST_F(StoreTrace, FollowsAWrite) {
    const auto store = open();
    lines();
    setLevel(8);
    setText(*store, *store->RootKey(), "a", "x");
    EXPECT_THAT(lines(),
                ElementsAre(">>>CRegLibImplFile::ImportConfig", ">>>CRegLibImplFile::ExportConfig",
                            "CRegLibImplFile::FileOpen (0x@) \"PATH+\"",
                            "<<<CRegLibImplFile::ExportConfig"));
}

TEST_F(StoreTrace, FollowsTheCreationOfAPath) {
    const auto store = open();
    lines();
    setLevel(8);
    CRegKey key;
    createKey(*store, "a\\b", key);
    EXPECT_THAT(
        lines(),
        ElementsAre(std::string(kFind) + "\"a\\b\"", ">>>CRegLibImplFile::ImportConfig",
                    "CRegKeyImpl::CRegKeyImpl 0x@", "CRegKeyImplFile::CRegKeyImplFile 0x@",
                    "CRegKeyImpl::CRegKeyImpl 0x@", "CRegKeyImplFile::CRegKeyImplFile 0x@",
                    ">>>CRegLibImplFile::ExportConfig", "CRegLibImplFile::FileOpen (0x@) \"PATH+\"",
                    "<<<CRegLibImplFile::ExportConfig",
                    "<<<" + std::string(kFind) + "\"a\\b\", exists 0"));
}

TEST_F(StoreTrace, ShowsThatANumberIsLookedUpAmongTheValues) {
    const auto store = open();
    for (const char* name : {"a", "b", "c"}) {
        setNumber(*store, *store->RootKey(), name, 1);
    }
    lines();
    setLevel(8);
    const std::string importCheck = ">>>CRegLibImplFile::ImportConfig";
    setNumber(*store, *store->RootKey(), "B", 1);
    EXPECT_THAT(lines(), ElementsAreArray(std::vector<std::string>(3, importCheck)));
    setNumber(*store, *store->RootKey(), "new", 1);
    auto texts = lines();
    EXPECT_EQ(std::count(texts.begin(), texts.end(), importCheck), 1);
    setText(*store, *store->RootKey(), "c", "x");
    texts = lines();
    EXPECT_EQ(std::count(texts.begin(), texts.end(), importCheck), 1);
    EXPECT_EQ(file.read(),
              "[Velquist]\n\"a\"=dword:00000001\n\"b\"=dword:00000001\n\"c\"=string:x\n"
              "\"new\"=dword:00000001\n");
}

TEST_F(StoreTrace, ShowsTheLinesOfTheFileAtTheirOwnLevelOnly) {
    const auto store = open();
    lines();
    file.write("[Velquist]\r\n\"a\"=string:x\r\nbad\rrest\n");
    CFileStoreProbe(*store).moveStamp();
    setLevel(16);
    get(*store, *store->RootKey(), "a");
    EXPECT_THAT(lines(), ElementsAre("import line \"[Velquist]\"", "import line \"\"a\"=string:x\"",
                                     "import line \"bad\"",
                                     "(Error) CRegLibImplFile::ImportConfig (0x@), import failed "
                                     "0xC1250FB2"));
    setLevel(4 | 8);
    get(*store, *store->RootKey(), "a");
    EXPECT_THAT(lines(), Not(Contains(StartsWith("import line"))));
}

TEST_F(StoreTrace, IsSilentAtTheLevelOfChanges) {
    const auto store = open();
    lines();
    setText(*store, *store->RootKey(), "a", "x");
    CRegKey key;
    createKey(*store, "k", key);
    store->VQRegDeleteKey(*store->RootKey(), "k");
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(StoreTrace, TellsOfAFileThatIsMissing) {
    open();
    EXPECT_THAT(lines(), ElementsAre("(Error) CRegLibImplFile::FileOpen (0x@) \"PATH\" failed, "
                                     "errno 2"));
}

TEST_F(StoreTrace, TellsOfAnExportThatFailed) {
    const auto store = open();
    lines();
    FileOpsFake files;
    files.fail(FileCall::eCreateForWriting, EACCES);
    setText(*store, *store->RootKey(), "a", "x");
    EXPECT_THAT(lines(),
                ElementsAre("(Error) CRegLibImplFile::FileOpen (0x@) \"PATH+\" failed, errno 13",
                            "(Error) CRegLibImplFile::ExportConfig (0x@), export failed "
                            "0xC1250FB5"));
}

TEST_F(StoreTrace, TellsOfAnImportThatCouldNotOpenItsFileOnce) {
    const auto store = open();
    lines();
    FileOpsFake files;
    files.fail(FileCall::eOpenForReading, EIO);
    CFileStoreProbe(*store).moveStamp();
    get(*store, *store->RootKey(), "a");
    EXPECT_THAT(lines(), ElementsAre("(Error) CRegLibImplFile::FileOpen (0x@) \"PATH\" failed, "
                                     "errno 5"));
}

TEST_F(StoreTrace, TellsOfAReadError) {
    const auto store = open();
    lines();
    FileOpsFake files;
    files.fail(FileCall::eRead, EIO);
    CFileStoreProbe(*store).moveStamp();
    get(*store, *store->RootKey(), "a");
    EXPECT_THAT(lines(),
                ElementsAre("(Error) CRegLibImplFile:fgets_ (0x@), fgets failed, errno 5"));
}

TEST_F(StoreTrace, TellsOfAWriteErrorOncePerBlock) {
    const auto store = open();
    lines();
    const std::string error = "(Error) CRegLibImplFile:fputs_ (0x@), fputs failed, errno 28";
    const std::string outcome =
        "(Error) CRegLibImplFile::ExportConfig (0x@), export failed 0xC1250FB5";
    FileOpsFake files;
    files.fail(FileCall::eWrite, ENOSPC);
    setText(*store, *store->RootKey(), "a", "x");
    setText(*store, *store->RootKey(), "b", "y");
    EXPECT_THAT(lines(), ElementsAre(error, outcome, error, outcome));
    setText(*store, *store->RootKey(), "c", std::string(600UL * 1024, 'x').c_str());
    const auto texts = lines();
    EXPECT_EQ(texts.size(), static_cast<std::size_t>(files.count(FileCall::eWrite)) - 2 + 1);
    EXPECT_THAT(texts, Contains(error));
    EXPECT_EQ(texts.back(), outcome);
}

TEST_F(StoreTrace, TellsWithFlowWhySystemObjectsCouldNotBeMade) {
    const std::string prefix = "(Error) CRegLibImplFile::CRegLibImplFile (0x@), ";
    for (const std::string kind : {"CPLock", "CPBlock"}) {
        const std::string object = VQRegLib::objectPath(kind, file.path());
        ASSERT_EQ(::mkdir(object.c_str(), 0777), 0);
        const std::string what = kind == "CPLock" ? "mutex" : "shared memory";
        setLevel(8);
        EXPECT_THROW(open(), VQException);
        EXPECT_THAT(lines(), Contains(StartsWith(prefix + what + " failed, errno ")));
        setLevel(31 - 8);
        EXPECT_THROW(open(), VQException);
        EXPECT_THAT(lines(), Not(Contains(HasSubstr("failed, errno"))));
        ASSERT_EQ(::rmdir(object.c_str()), 0);
    }
}

TEST_F(StoreTrace, NamesTheObjectThatIsRefusedAndItsUser) {
    constexpr uid_t kUser = 65534;
    for (const std::string kind : {"CPLock", "CPBlock"}) {
        const std::string object = VQRegLib::objectPath(kind, file.path());
        ASSERT_EQ(::mkdir(object.c_str(), 0777), 0);
        const bool isGiven = ::chown(object.c_str(), kUser, kUser) == 0;
        const std::string user = std::to_string(isGiven ? kUser : ::geteuid());
        setLevel(1);
        EXPECT_THROW(open(), VQException);
        EXPECT_THAT(lines(), ElementsAre("(Error) CRegLibImplFile::Lock (0x@), \"" + object +
                                         "\" cannot be used, errno " + std::to_string(EISDIR) +
                                         ", it is of user " + user));
        ASSERT_EQ(::rmdir(object.c_str()), 0);
    }
}

// Once in a minute: whoever asks again and again does not fill the disk.
TEST_F(StoreTrace, NamesTheRefusedLockOfAStoreInUseOnce) {
    const auto store = open();
    const std::string lock = VQRegLib::objectPath("CPLock", file.path());
    ASSERT_EQ(::unlink(lock.c_str()), 0);
    ASSERT_EQ(::mkdir(lock.c_str(), 0777), 0);
    EXPECT_EQ(setText(*store, *store->RootKey(), "a", "x"), REGLIB_E_FILE_OPEN);
    EXPECT_THAT(lines(), Contains("(Error) CRegLibImplFile::Lock (0x@), \"" + lock +
                                  "\" cannot be used, errno " + std::to_string(EISDIR) +
                                  ", it is of user " + std::to_string(::geteuid())));
    EXPECT_EQ(setText(*store, *store->RootKey(), "a", "x"), REGLIB_E_FILE_OPEN);
    EXPECT_THAT(lines(), Not(Contains(HasSubstr("cannot be used"))));
    ASSERT_EQ(::rmdir(lock.c_str()), 0);
    EXPECT_EQ(setText(*store, *store->RootKey(), "a", "x"), REGLIB_OK);
}

// Each of them would lose what the other one changes.
TEST_F(StoreTrace, TellsWhoHasTheLockOfAnOlderLibrary) {
    open();
    lines();
    const std::string older = VQRegLib::objectPath("CPMutex", file.directory() + "/./store.cfg");
    ASSERT_TRUE(older.ends_with(encodedPath(file.path()))) << older;
    std::ofstream(older) << std::string(80, '\0');
    open();
    EXPECT_THAT(lines(), IsEmpty()) << "nobody has it in use";
    {
        const MappingChild program(older);
        open();
        EXPECT_THAT(lines(),
                    ElementsAre("(Error) CRegLibImplFile::CRegLibImplFile (0x@), process " +
                                std::to_string(program.pid()) +
                                " has an older version of the library, which does not "
                                "respect this one's lock: restart it"));
    }
    open();
    EXPECT_THAT(lines(), IsEmpty());
}
