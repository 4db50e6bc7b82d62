// A store whose file name cannot be copied.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/FailingCopies.h"
#include "support/StoreFixture.h"
#include "support/TraceLog.h"

using namespace vqtest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string thrownByConstruction(const char* name) {
    const CopiesLeft none(0);
    try {
        const CRegLibImplFile store(name, nullptr, CRegLib::eLocationDefault, nullptr);
    } catch (const VQException& exception) {
        EXPECT_EQ(exception.m_lCode, REGLIB_E_FAIL);
        return exception.m_szText;
    }
    return "nothing";
}

class NoFileName : public StoreTest {};

}  // namespace

TEST_F(NoFileName, ThrowsForAGivenName) {
    EXPECT_EQ(thrownByConstruction(file.path().c_str()), "RegLib.3243");
    EXPECT_THAT(file.files(), IsEmpty());
    EXPECT_THAT(file.sharedObjects(), IsEmpty());
    open();
    EXPECT_EQ(file.read(), "[Velquist]\n");
}

TEST_F(NoFileName, ThrowsForTheDefaultName) {
    EXPECT_EQ(thrownByConstruction(nullptr), "RegLib.3235");
}

TEST(NoFileNameTrace, TellsOfTheDefaultNameOnly) {
    const TraceLog log(1);
    CRegLibTrace::m_lFakeMutex = 0;
    CRegLibTrace::createInstance();
    EXPECT_EQ(thrownByConstruction("/tmp/none.cfg"), "RegLib.3243");
    EXPECT_THAT(log.texts(), IsEmpty());
    EXPECT_EQ(thrownByConstruction(nullptr), "RegLib.3235");
    EXPECT_THAT(log.texts(),
                ElementsAre("(Error) CRegLibImplFile::CRegLibImplFile, strdup failed"));
}
