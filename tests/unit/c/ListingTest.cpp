// Lists of names into which another process puts one between two of the library's looks.
#include "RegLib/c/Listing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "RegLib/instance/Directory.h"
#include "portable/FileOps.h"
#include "support/StoreFixture.h"

using namespace vqtest;
using testing::ElementsAre;

namespace {

// Does something once, when a file has been read.
class CAfterReading : public CFileOps {
public:
    explicit CAfterReading(std::function<void()> then) : m_then(std::move(then)) {
        CFileOps::replace(this);
    }
    ~CAfterReading() override { CFileOps::replace(nullptr); }

    int close(VQRegLib::COpenFile file) override {
        const int result = CFileOps::close(std::move(file));
        if (m_then) {
            std::exchange(m_then, nullptr)();
        }
        return result;
    }

private:
    std::function<void()> m_then;
};

class Listing : public testing::Test {
protected:
    ~Listing() override { get_reglibImplDirectory()->releaseRegLibImpl(m_store); }

    /// As another process writes, of which this one hears at its next look.
    void writeElsewhere(const std::string& text) const {
        file.write(text);
        CFileStoreProbe(*m_store).moveStamp();
    }

    /// Lists when the second text takes the first one's place after the first look.
    int listWhile(eListed what, const std::string& first, const std::string& second) {
        writeElsewhere(first);
        bool hasChanged = false;
        const CAfterReading files([&] {
            writeElsewhere(second);
            hasChanged = true;
        });
        const int result = listNames(m_session, *m_session.RootKey(), what, m_names);
        EXPECT_TRUE(hasChanged);
        return result;
    }

    std::vector<std::string> listedWhile(eListed what, const std::string& first,
                                         const std::string& second) {
        EXPECT_EQ(listWhile(what, first, second), REGLIB_OK);
        return m_names;
    }

    const TempStore file;

private:
    std::vector<std::string> m_names = {"of another list"};
    CRegLib m_session{file.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr};
    CRegLibImplFile* const m_store =
        static_cast<CRegLibImplFile*>(get_reglibImplDirectory()->acquireRegLibImpl(
            file.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr));
};

}  // namespace

// What stood at the first place stands at the second one now.
TEST_F(Listing, NamesAValueOnceBeforeWhichAnotherOneComes) {
    const std::string some = "\"b\"=dword:00000001\n\"c\"=dword:00000001\n";
    EXPECT_THAT(listedWhile(eListed::eValues, "[Velquist]\n" + some,
                            "[Velquist]\n\"A\"=dword:00000001\n" + some),
                ElementsAre("b", "c"));
}

TEST_F(Listing, NamesAKeyOnceBeforeWhichAnotherOneComes) {
    const std::string some = "[Velquist/b]\n[Velquist/c]\n";
    EXPECT_THAT(
        listedWhile(eListed::eKeys, "[Velquist]\n" + some, "[Velquist]\n[Velquist/A]\n" + some),
        ElementsAre("b", "c"));
}

TEST_F(Listing, OfAFileThatIsMalformedMeanwhileSaysSo) {
    const std::string some = "[Velquist]\n\"b\"=dword:00000001\n";
    EXPECT_EQ(listWhile(eListed::eValues, some, some + "nonsense\n"), REGLIB_E_BAD_FORMAT);
}

TEST_F(Listing, NamesWhatComesBehind) {
    const std::string some = "[Velquist]\n\"b\"=dword:00000001\n";
    EXPECT_THAT(listedWhile(eListed::eValues, some, some + "\"C\"=dword:00000001\n"),
                ElementsAre("b", "C"));
}
