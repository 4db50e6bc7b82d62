// Sessions whose store cannot be made.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "VQRegLib.h"
#include "support/TempStore.h"
#include "support/TraceLog.h"

using namespace VQRegLib;
using testing::ElementsAre;
using testing::IsEmpty;
using vqtest::TempStore;
using vqtest::TraceLog;

namespace {

// What every operation answers, in a fixed order.
std::vector<int> answers(CRegLib& session) {
    CRegKey key;
    CRegLib::eDataType type = CRegLib::eNone;
    unsigned char buffer[4] = {};
    unsigned long size = sizeof buffer;
    std::string name;
    std::vector<std::string> names;
    std::vector<CRegKey*> keys;
    return {session.VQRegCreateKey(nullptr, "Sub", key, 1),
            session.VQRegDeleteKey(key, "Sub"),
            session.VQRegDeleteValue(key, "Value"),
            session.VQRegSetValue(key, "Number", 1ul),
            session.VQRegSetValue(key, "Text", "x"),
            session.VQRegSetValue(key, "Bytes", buffer, 1),
            session.VQRegQueryValueType(key, "Type", type),
            session.VQRegQueryValue(key, "Query", type, buffer, &size),
            session.VQRegEnumKeys(key, 0, name),
            session.VQRegEnumValues(key, 0, name, type),
            session.ParseKeyPath("a/b", names),
            session.VQRegCreateKeyVect(nullptr, "a/b", keys, names, 1),
            session.VQRegDestroyKeyVect(keys),
            session.VQRegBeginUpdate(),
            session.VQRegEndUpdate()};
}

void expectNoStore(const std::string& path) {
    int result = -1;
    CRegLib session(path.c_str(), nullptr, CRegLib::eLocationDefault, &result);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(session.RootKey(), nullptr);
    EXPECT_THAT(answers(session), testing::Each(REGLIB_E_NOT_INITIALIZED));
    testing::internal::CaptureStdout();
    session.dump();
    EXPECT_THAT(testing::internal::GetCapturedStdout(), IsEmpty());
    session.SetRegistryChangeHandler(nullptr);
    session.ClrRegistryChangeHandler(nullptr);
}

}  // namespace

TEST(SessionWithoutStore, AMissingDirectoryGivesNone) {
    expectNoStore("/missing/store.cfg");
}

TEST(SessionWithoutStore, ADirectoryAsPathGivesNone) {
    const TempStore store;
    std::filesystem::create_directory(store.path());
    expectNoStore(store.path());
    EXPECT_THAT(store.files(), ElementsAre("store.cfg"));
}

TEST(SessionWithoutStore, AMalformedFileGivesNoneAndIsKept) {
    const TempStore store;
    const std::string text = "[Velquist]\n\"A\"=dword:00000001\nnonsense\n";
    store.write(text);
    expectNoStore(store.path());
    EXPECT_EQ(store.read(), text);
    EXPECT_THAT(store.files(), ElementsAre("store.cfg"));
}

TEST(SessionWithoutStore, AFifoGivesNoneAndDoesNotBlock) {
    const TempStore store;
    ASSERT_EQ(::mkfifo(store.path().c_str(), 0666), 0);
    expectNoStore(store.path());
}

TEST(SessionWithoutStore, AValueAsRootKeyGivesNone) {
    const TempStore store;
    store.write("[Velquist]\n\"A\"=dword:00000001\n");
    CRegLib session(store.path().c_str(), "Velquist/A", CRegLib::eLocationDefault, nullptr);
    EXPECT_EQ(session.RootKey(), nullptr);
    CRegLib other(store.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    EXPECT_NE(other.RootKey(), nullptr);
}

TEST(SessionWithoutStore, StaysWithoutOneWhenTheFileIsMended) {
    const TempStore store;
    store.write("nonsense\n");
    CRegLib broken(store.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    store.write("[Velquist]\n");
    EXPECT_THAT(answers(broken), testing::Each(REGLIB_E_NOT_INITIALIZED));
    CRegLib mended(store.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    EXPECT_NE(mended.RootKey(), nullptr);
}

TEST(SessionWithoutStore, OutputsAreLeftAlone) {
    CRegLib session("/missing/store.cfg", nullptr, CRegLib::eLocationDefault, nullptr);
    CRegKey key;
    CRegLib::eDataType type = CRegLib::eString;
    unsigned char buffer[4] = {1, 2, 3, 4};
    unsigned long size = sizeof buffer;
    std::string name = "old";
    std::vector<std::string> names = {"old"};
    std::vector<CRegKey*> keys = {&key};
    session.VQRegQueryValue(key, "x", type, buffer, &size);
    session.VQRegEnumKeys(key, 0, name);
    session.ParseKeyPath("a/b", names);
    session.VQRegDestroyKeyVect(keys);
    EXPECT_EQ(type, CRegLib::eString);
    EXPECT_THAT(buffer, ElementsAre(1, 2, 3, 4));
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(name, "old");
    EXPECT_THAT(names, ElementsAre("old"));
    EXPECT_THAT(keys, ElementsAre(&key));
}

TEST(SessionWithoutStore, StillWritesItsEntryTrace) {
    const TraceLog log(8);
    CRegLib session("/missing/store.cfg", nullptr, CRegLib::eLocationDefault, nullptr);
    const std::size_t before = log.texts().size();
    answers(session);
    std::vector<std::string> lines = log.texts(TraceLog::Addresses::eReplace);
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(before));
    std::erase_if(lines, [](const std::string& line) { return line.starts_with("CRegKey"); });
    EXPECT_THAT(lines,
                ElementsAre("CRegLib::VQRegCreateKey (0x@), SubKeyName \"Sub\"",
                            "CRegLib::VQRegDeleteKey (0x@), SubKeyName \"Sub\"",
                            "CRegLib::VQRegDeleteValue (0x@), ValueName \"Value\"",
                            "CRegLib::VQRegSetValue (0x@), ValueName \"Number\"",
                            "CRegLib::VQRegSetValue (0x@), ValueName \"Text\"",
                            "CRegLib::VQRegSetValue (0x@), ValueName \"Bytes\"",
                            "CRegLib::VQRegQueryValueType (0x@), ValueName \"Type\"",
                            "CRegLib::VQRegQueryValue (0x@), ValueName \"Query\"",
                            "CRegLib::VQRegBeginUpdate (0x@)", "CRegLib::VQRegEndUpdate (0x@)"));
}
