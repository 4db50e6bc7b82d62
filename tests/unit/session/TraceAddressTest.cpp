// Whose address is in which trace line.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "RegLib/instance/Directory.h"
#include "VQRegLib.h"
#include "support/TempStore.h"
#include "support/TraceLog.h"

using namespace VQRegLib;
using testing::AllOf;
using testing::Each;
using testing::HasSubstr;
using testing::SizeIs;
using vqtest::TempStore;
using vqtest::TraceLog;

namespace {

std::string addressOf(const void* object) {
    char text[16];
    std::snprintf(text, sizeof text, " (0x%08X)",
                  static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(object)));
    return text;
}

std::vector<std::string> linesThatBegin(const TraceLog& log, const std::string& beginning) {
    std::vector<std::string> lines = log.texts();
    std::erase_if(lines, [&](const std::string& line) { return !line.starts_with(beginning); });
    return lines;
}

void useAll(CRegLib& session) {
    CRegKey key;
    CRegLib::eDataType type = CRegLib::eNone;
    unsigned char data[4] = {};
    unsigned long size = sizeof data;
    session.VQRegCreateKey(nullptr, "k", key, 1);
    session.VQRegSetValue(key, "n", 1ul);
    session.VQRegSetValue(key, "t", "x");
    session.VQRegSetValue(key, "b", data, 2);
    session.VQRegQueryValueType(key, "n", type);
    session.VQRegQueryValue(key, "n", type, data, &size);
    session.VQRegDeleteValue(key, "n");
    session.VQRegDeleteKey(*session.RootKey(), "none");
}

}  // namespace

TEST(TraceAddresses, EntriesNameTheSessionAndChangesTheStore) {
    constexpr int kChangesAndFlow = 1 | 8;
    const TraceLog log(kChangesAndFlow);
    const TempStore file;
    const CRegLib first(file.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    CRegLib second(file.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    CRegLibImpl* const store = get_reglibImplDirectory()->acquireRegLibImpl(
        file.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    const std::size_t entriesBefore = linesThatBegin(log, "CRegLib::").size();
    const std::size_t changesBefore = linesThatBegin(log, "CRegLibImpl::VQReg").size();
    useAll(second);
    std::vector<std::string> entries = linesThatBegin(log, "CRegLib::");
    entries.erase(entries.begin(), entries.begin() + static_cast<std::ptrdiff_t>(entriesBefore));
    std::vector<std::string> changes = linesThatBegin(log, "CRegLibImpl::VQReg");
    changes.erase(changes.begin(), changes.begin() + static_cast<std::ptrdiff_t>(changesBefore));
    EXPECT_THAT(entries, AllOf(SizeIs(8), Each(HasSubstr(addressOf(&second)))));
    EXPECT_THAT(changes, AllOf(SizeIs(6), Each(HasSubstr(addressOf(store)))));
    get_reglibImplDirectory()->releaseRegLibImpl(store);
}
