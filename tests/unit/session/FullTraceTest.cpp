// Every trace line of one life of a store, in its order, at each level.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "VQRegLib.h"
#include "support/TempStore.h"
#include "support/TraceLog.h"

using namespace VQRegLib;
using testing::ElementsAreArray;
using vqtest::TempStore;
using vqtest::TraceLog;

namespace {

// "@" stands for an address, "%" for the directory of the store and "#" for the unique part of a
// temporary file's name.
struct Line {
    int bit;  // 0: an error, written at every level
    const char* text;
};

constexpr Line kOpen[] = {
    {8, "CRegLibImpl::CRegLibImplDirectory::acquireRegLibImpl (0x@) - name %/store.cfg, key Root"},
    {4, "CRegLibImpl::CRegLibImpl (0x@) - %/store.cfg, Root"},
    {8, "CRegLibImplFile::CRegLibImplFile (0x@), name \"%/store.cfg\", root \"Root\""},
    {8, "CRegKeyImpl::CRegKeyImpl 0x@"},
    {8, "CRegKeyImplFile::CRegKeyImplFile 0x@"},
    {8, "CRegLibImplFile::VQRegFindKey (0x@) SubKeyName \"Root\""},
    {8, ">>>CRegLibImplFile::ImportConfig"},
    {8, "CRegLibImplFile::FileOpen (0x@) \"%/store.cfg\""},
    {16, "import line \"[Root]\""},
    {16, "import line \"\"A\"=string:x\""},
    {8, "<<<CRegLibImplFile::ImportConfig"},
    {8, "CRegKeyImpl::CRegKeyImpl 0x@"},
    {8, "CRegKeyImplFile::CRegKeyImplFile 0x@"},
    {8, "<<<CRegLibImplFile::VQRegFindKey (0x@) SubKeyName \"Root\", exists 1"},
    {8, "CRegKeyImplFile::~CRegKeyImplFile 0x@"},
    {8, "CRegKeyImpl::~CRegKeyImpl 0x@"},
    {8, ">>>CRegLibImplFile::ImportConfig"},
    {8, "<<<CRegLibImplFile::CRegLibImplFile (0x@)"},
};

constexpr Line kJoin[] = {
    {8, "CRegLibImpl::CRegLibImplDirectory::acquireRegLibImpl (0x@) - name %/store.cfg, key Root"},
};

constexpr Line kCreate[] = {
    {8, "CRegLib::VQRegCreateKey (0x@), SubKeyName \"Net/Eth\""},
    {8, "CRegLibImplFile::VQRegFindKey (0x@) SubKeyName \"Net/Eth\""},
    {8, ">>>CRegLibImplFile::ImportConfig"},
    {8, "CRegKeyImpl::CRegKeyImpl 0x@"},
    {8, "CRegKeyImplFile::CRegKeyImplFile 0x@"},
    {8, "CRegKeyImpl::CRegKeyImpl 0x@"},
    {8, "CRegKeyImplFile::CRegKeyImplFile 0x@"},
    {8, ">>>CRegLibImplFile::ExportConfig"},
    {8, "CRegLibImplFile::FileOpen (0x@) \"%/store.cfg#\""},
    {8, "<<<CRegLibImplFile::ExportConfig"},
    {8, "<<<CRegLibImplFile::VQRegFindKey (0x@) SubKeyName \"Net/Eth\", exists 0"},
    {1, "CRegLibImpl::VQRegCreateKey (0x@), creating new key [Root/Net/Eth]/Net/Eth"},
};

constexpr Line kSetString[] = {
    {8, "CRegLib::VQRegSetValue (0x@), ValueName \"Text\""},
    {8, ">>>CRegLibImplFile::ImportConfig"},
    {8, ">>>CRegLibImplFile::ExportConfig"},
    {8, "CRegLibImplFile::FileOpen (0x@) \"%/store.cfg#\""},
    {8, "<<<CRegLibImplFile::ExportConfig"},
    {1, "CRegLibImpl::VQRegSetValue (0x@), setting value [Root]/Text to y"},
};

constexpr Line kSetNewNumber[] = {
    {8, "CRegLib::VQRegSetValue (0x@), ValueName \"Num\""},
    {8, ">>>CRegLibImplFile::ImportConfig"},
    {8, ">>>CRegLibImplFile::ExportConfig"},
    {8, "CRegLibImplFile::FileOpen (0x@) \"%/store.cfg#\""},
    {8, "<<<CRegLibImplFile::ExportConfig"},
    {1, "CRegLibImpl::VQRegSetValue (0x@), setting value [Root]/Num to 0x@"},
};

// The values are A, Num and Text: the second one is the one looked for.
constexpr Line kSetKnownNumber[] = {
    {8, "CRegLib::VQRegSetValue (0x@), ValueName \"NUM\""},
    {8, ">>>CRegLibImplFile::ImportConfig"},
    {8, ">>>CRegLibImplFile::ImportConfig"},
    {8, ">>>CRegLibImplFile::ImportConfig"},
    {8, ">>>CRegLibImplFile::ExportConfig"},
    {8, "CRegLibImplFile::FileOpen (0x@) \"%/store.cfg#\""},
    {8, "<<<CRegLibImplFile::ExportConfig"},
    {1, "CRegLibImpl::VQRegSetValue (0x@), setting value [Root]/NUM to 0x@"},
};

constexpr Line kSetBinary[] = {
    {8, "CRegLib::VQRegSetValue (0x@), ValueName \"Bin\""},
    {8, ">>>CRegLibImplFile::ImportConfig"},
    {8, ">>>CRegLibImplFile::ExportConfig"},
    {8, "CRegLibImplFile::FileOpen (0x@) \"%/store.cfg#\""},
    {8, "<<<CRegLibImplFile::ExportConfig"},
    {1, "CRegLibImpl::VQRegSetValue (0x@), setting binary value [Root]/Bin"},
};

constexpr Line kSetTheSame[] = {
    {8, "CRegLib::VQRegSetValue (0x@), ValueName \"Text\""},
    {8, ">>>CRegLibImplFile::ImportConfig"},
};

constexpr Line kQuery[] = {
    {8, "CRegLib::VQRegQueryValue (0x@), ValueName \"Text\""},
    {8, ">>>CRegLibImplFile::ImportConfig"},
};

constexpr Line kQueryType[] = {
    {8, "CRegLib::VQRegQueryValueType (0x@), ValueName \"Text\""},
    {8, ">>>CRegLibImplFile::ImportConfig"},
};

constexpr Line kEnumerate[] = {
    {8, ">>>CRegLibImplFile::ImportConfig"},
};

constexpr Line kDeleteValue[] = {
    {8, "CRegLib::VQRegDeleteValue (0x@), ValueName \"Num\""},
    {8, ">>>CRegLibImplFile::ImportConfig"},
    {8, ">>>CRegLibImplFile::ExportConfig"},
    {8, "CRegLibImplFile::FileOpen (0x@) \"%/store.cfg#\""},
    {8, "<<<CRegLibImplFile::ExportConfig"},
    {1, "CRegLibImpl::VQRegDeleteValue (0x@), deleting value [Root]/Num"},
};

constexpr Line kDeleteKey[] = {
    {8, "CRegLib::VQRegDeleteKey (0x@), SubKeyName \"Eth\""},
    {8, "CRegLibImplFile::VQRegFindKey (0x@) SubKeyName \"Eth\""},
    {8, ">>>CRegLibImplFile::ImportConfig"},
    {8, "CRegKeyImpl::CRegKeyImpl 0x@"},
    {8, "CRegKeyImplFile::CRegKeyImplFile 0x@"},
    {8, "<<<CRegLibImplFile::VQRegFindKey (0x@) SubKeyName \"Eth\", exists 1"},
    {8, ">>>CRegLibImplFile::ImportConfig"},
    {8, ">>>CRegLibImplFile::ExportConfig"},
    {8, "CRegLibImplFile::FileOpen (0x@) \"%/store.cfg#\""},
    {8, "<<<CRegLibImplFile::ExportConfig"},
    {8, "CRegKeyImplFile::~CRegKeyImplFile 0x@"},
    {8, "CRegKeyImpl::~CRegKeyImpl 0x@"},
    {1, "CRegLibImpl::VQRegDeleteKey (0x@), deleting key [Root/Net]/Eth"},
};

constexpr Line kReleaseKey[] = {
    {8, "CRegKeyImplFile::~CRegKeyImplFile 0x@"},
    {8, "CRegKeyImpl::~CRegKeyImpl 0x@"},
};

constexpr Line kFailToOpen[] = {
    {8, "CRegLibImpl::CRegLibImplDirectory::acquireRegLibImpl (0x@) - name %/bad.cfg, key (null)"},
    {4, "CRegLibImpl::CRegLibImpl (0x@) - %/bad.cfg, (null)"},
    {8, "CRegLibImplFile::CRegLibImplFile (0x@), name \"%/bad.cfg\", root \"(null)\""},
    {8, "CRegKeyImpl::CRegKeyImpl 0x@"},
    {8, "CRegKeyImplFile::CRegKeyImplFile 0x@"},
    {8, "CRegLibImplFile::VQRegFindKey (0x@) SubKeyName \"Velquist\""},
    {8, ">>>CRegLibImplFile::ImportConfig"},
    {8, "CRegLibImplFile::FileOpen (0x@) \"%/bad.cfg\""},
    {16, "import line \"[Velquist]\""},
    {16, "import line \"bad\""},
    {0, "(Error) CRegLibImplFile::ImportConfig (0x@), import failed 0xC1250FB2"},
    {8, "<<<CRegLibImplFile::ImportConfig"},
    {8, "<<<CRegLibImplFile::VQRegFindKey (0x@) SubKeyName \"Velquist\", exists 1"},
    {8, "CRegKeyImplFile::~CRegKeyImplFile 0x@"},
    {8, "CRegKeyImpl::~CRegKeyImpl 0x@"},
    {4, "CRegLibImpl::~CRegLibImpl (0x@)"},
};

// The destructor of the root key comes first; there is no other key.
constexpr Line kClose[] = {
    {8, "CRegLibImplFile::~CRegLibImplFile (0x@)"},
    {8, "CRegKeyImplFile::~CRegKeyImplFile 0x@"},
    {8, "CRegKeyImpl::~CRegKeyImpl 0x@"},
    {8, "<<<CRegLibImplFile::~CRegLibImplFile (0x@)"},
    {4, "CRegLibImpl::~CRegLibImpl (0x@)"},
};

class FullTrace : public testing::TestWithParam<int> {
protected:
    FullTrace() : log(static_cast<std::uint32_t>(GetParam())) {
        // Makes the trace object, so that the store of the test is traced from its beginning.
        m_first = std::make_unique<CRegLib>(nullptr, nullptr, CRegLib::eLocationDefault, nullptr);
        store.write("[Root]\n\"A\"=string:x\n");
        m_seen = log.texts().size();
    }

    std::unique_ptr<CRegLib> open(const std::string& name, const char* root) {
        return std::make_unique<CRegLib>((store.directory() + name).c_str(), root,
                                         CRegLib::eLocationDefault, nullptr);
    }

    // Compares the lines since the last call with those of the level.
    template <std::size_t kCount>
    void expectLines(const char* what, const Line (&lines)[kCount]) {
        std::vector<std::string> expected;
        for (const Line& line : lines) {
            if (line.bit == 0 || (line.bit & GetParam()) != 0) {
                expected.emplace_back(line.text);
            }
        }
        std::vector<std::string> found = log.texts(TraceLog::Addresses::eReplace);
        const std::size_t count = found.size();
        found.erase(found.begin(), found.begin() + static_cast<std::ptrdiff_t>(m_seen));
        m_seen = count;
        for (std::string& line : found) {
            normalise(line);
        }
        EXPECT_THAT(found, ElementsAreArray(expected)) << what;
    }

    void skipLines() { m_seen = log.texts().size(); }

    TraceLog log;
    TempStore store;

private:
    void normalise(std::string& line) const {
        for (std::size_t at = 0; (at = line.find(store.directory(), at)) != std::string::npos;) {
            line.replace(at, store.directory().size(), "%");
        }
        static const std::string kFile = "\"%/store.cfg";
        const std::size_t unique = line.find(kFile) + kFile.size();
        const std::size_t end = line.find('"', unique);
        if (line.find(kFile) != std::string::npos && end != std::string::npos && end != unique) {
            line.replace(unique, end - unique, "#");
        }
    }

    std::unique_ptr<CRegLib> m_first;
    std::size_t m_seen = 0;
};

}  // namespace

TEST_P(FullTrace, TheLifeOfAStore) {
    auto session = open("/store.cfg", "Root");
    expectLines("open", kOpen);
    auto second = open("/store.cfg", "Root");
    expectLines("join", kJoin);
    second.reset();
    session.reset();
    expectLines("close", kClose);
}

TEST_P(FullTrace, Keys) {
    const auto session = open("/store.cfg", "Root");
    skipLines();
    {
        CRegKey key;
        ASSERT_EQ(session->VQRegCreateKey(nullptr, "Net/Eth", key, 1), REGLIB_OK);
        expectLines("create", kCreate);
    }
    expectLines("release", kReleaseKey);
    CRegKey net;
    ASSERT_EQ(session->VQRegCreateKey(nullptr, "Net", net, 0), REGLIB_OK);
    skipLines();
    ASSERT_EQ(session->VQRegDeleteKey(net, "Eth"), REGLIB_OK);
    expectLines("delete", kDeleteKey);
}

TEST_P(FullTrace, Values) {
    const auto session = open("/store.cfg", "Root");
    CRegKey& root = *session->RootKey();
    skipLines();
    ASSERT_EQ(session->VQRegSetValue(root, "Text", "y"), REGLIB_OK);
    expectLines("set a text", kSetString);
    ASSERT_EQ(session->VQRegSetValue(root, "Text", "y"), REGLIB_OK);
    expectLines("set the same", kSetTheSame);
    ASSERT_EQ(session->VQRegSetValue(root, "Num", 1ul), REGLIB_OK);
    expectLines("set a new number", kSetNewNumber);
    ASSERT_EQ(session->VQRegSetValue(root, "NUM", 2ul), REGLIB_OK);
    expectLines("set a known number", kSetKnownNumber);
    ASSERT_EQ(session->VQRegSetValue(root, "Bin", reinterpret_cast<const unsigned char*>("\1"), 1),
              REGLIB_OK);
    expectLines("set bytes", kSetBinary);
    ASSERT_EQ(session->VQRegDeleteValue(root, "Num"), REGLIB_OK);
    expectLines("delete", kDeleteValue);
}

TEST_P(FullTrace, Reading) {
    store.write("[Root]\n\"Text\"=string:x\n");
    const auto session = open("/store.cfg", "Root");
    CRegKey& root = *session->RootKey();
    CRegLib::eDataType type = CRegLib::eNone;
    unsigned char data[4];
    unsigned long size = sizeof data;
    std::string name;
    skipLines();
    ASSERT_EQ(session->VQRegQueryValue(root, "Text", type, data, &size), REGLIB_OK);
    expectLines("query", kQuery);
    ASSERT_EQ(session->VQRegQueryValueType(root, "Text", type), REGLIB_OK);
    expectLines("query the type", kQueryType);
    ASSERT_EQ(session->VQRegEnumValues(root, 0, name, type), REGLIB_OK);
    expectLines("enumerate values", kEnumerate);
    ASSERT_EQ(session->VQRegEnumKeys(root, 0, name), REGLIB_E_NO_MORE_ITEMS);
    expectLines("enumerate keys", kEnumerate);
}

TEST_P(FullTrace, AFailureToOpen) {
    std::ofstream(store.directory() + "/bad.cfg") << "[Velquist]\nbad\n";
    EXPECT_EQ(open("/bad.cfg", nullptr)->RootKey(), nullptr);
    expectLines("failed open", kFailToOpen);
}

INSTANTIATE_TEST_SUITE_P(Levels, FullTrace, testing::Values(1, 2, 4, 8, 16, 5, 31, 0x40000001));
