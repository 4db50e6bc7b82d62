// Result codes, exceptions and what turns a shortage of memory into a code.
#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <set>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "RegLib/base/Guarded.h"
#include "RegLib/base/ThrowPoint.h"
#include "VQRegLib.h"

using VQRegLib::CRegLib;
using VQRegLib::eThrowPoint;
using VQRegLib::guarded;
using VQRegLib::throwAt;

namespace {

VQException thrownAt(eThrowPoint point) {
    try {
        throwAt(point);
    } catch (const VQException& exception) {
        return exception;
    }
}

}  // namespace

TEST(ResultCodes, EveryFailureIsNegativeAndInTheBlock) {
    const std::set<int> failures = {
        VQRegLib::REGLIB_E_FAIL,          VQRegLib::REGLIB_E_NOT_FOUND,
        VQRegLib::REGLIB_E_NOT_A_KEY,     VQRegLib::REGLIB_E_NOT_A_VALUE,
        VQRegLib::REGLIB_E_NO_MORE_ITEMS, VQRegLib::REGLIB_E_KEY_NOT_FOUND,
        VQRegLib::REGLIB_E_BAD_TYPE,      VQRegLib::REGLIB_E_BUFFER_TOO_SMALL,
        VQRegLib::REGLIB_E_BAD_FORMAT,    VQRegLib::REGLIB_E_INVALID_HANDLE,
        VQRegLib::REGLIB_E_KEY_NOT_EMPTY, VQRegLib::REGLIB_E_FILE_OPEN,
        VQRegLib::REGLIB_E_END_OF_FILE,   VQRegLib::REGLIB_E_NOT_INITIALIZED,
    };
    EXPECT_EQ(failures.size(), 14u);
    for (const int code : failures) {
        EXPECT_LT(code, 0);
        EXPECT_GE(static_cast<unsigned>(code), 0xC1250FA0u);
        EXPECT_LE(static_cast<unsigned>(code), 0xC1250FB7u);
    }
    EXPECT_EQ(VQRegLib::REGLIB_OK, 0);
}

TEST(ResultCodes, HaveTheirNumbers) {
    const auto number = [](int code) { return static_cast<unsigned>(code); };
    EXPECT_EQ(number(VQRegLib::REGLIB_E_FAIL), 0xC1250FA0u);
    EXPECT_EQ(number(VQRegLib::REGLIB_E_NOT_FOUND), 0xC1250FA2u);
    EXPECT_EQ(number(VQRegLib::REGLIB_E_NOT_A_KEY), 0xC1250FA3u);
    EXPECT_EQ(number(VQRegLib::REGLIB_E_NOT_A_VALUE), 0xC1250FA4u);
    EXPECT_EQ(number(VQRegLib::REGLIB_E_NO_MORE_ITEMS), 0xC1250FA5u);
    EXPECT_EQ(number(VQRegLib::REGLIB_E_KEY_NOT_FOUND), 0xC1250FA8u);
    EXPECT_EQ(number(VQRegLib::REGLIB_E_BAD_TYPE), 0xC1250FB0u);
    EXPECT_EQ(number(VQRegLib::REGLIB_E_BUFFER_TOO_SMALL), 0xC1250FB1u);
    EXPECT_EQ(number(VQRegLib::REGLIB_E_BAD_FORMAT), 0xC1250FB2u);
    EXPECT_EQ(number(VQRegLib::REGLIB_E_INVALID_HANDLE), 0xC1250FB3u);
    EXPECT_EQ(number(VQRegLib::REGLIB_E_KEY_NOT_EMPTY), 0xC1250FB4u);
    EXPECT_EQ(number(VQRegLib::REGLIB_E_FILE_OPEN), 0xC1250FB5u);
    EXPECT_EQ(number(VQRegLib::REGLIB_E_END_OF_FILE), 0xC1250FB6u);
    EXPECT_EQ(number(VQRegLib::REGLIB_E_NOT_INITIALIZED), 0xC1250FB7u);
}

TEST(DataTypes, HaveTheirNumbers) {
    EXPECT_EQ(CRegLib::eNone, 0);
    EXPECT_EQ(CRegLib::eBinary, 1);
    EXPECT_EQ(CRegLib::eDword, 2);
    EXPECT_EQ(CRegLib::eString, 3);
    EXPECT_EQ(CRegLib::eLocationDefault, 0);
    EXPECT_EQ(sizeof(CRegLib::eDataType), 4u);
    EXPECT_EQ(sizeof(CRegLib::LOCATION), 4u);
}

TEST(Exception, SaysWhereItWasThrown) {
    const VQException exception(VQRegLib::REGLIB_E_FAIL, "RegLib", 1972);
    EXPECT_EQ(exception.m_lCode, VQRegLib::REGLIB_E_FAIL);
    EXPECT_STREQ(exception.m_szText, "RegLib.1972");
    EXPECT_STREQ(VQException(0, "", -1).m_szText, ".-1");
    EXPECT_STREQ(VQException(0, "a%sb", 1).m_szText, "a%sb.1");
}

TEST(Exception, KeepsTheLowBitsOfItsCode) {
    EXPECT_EQ(VQException(static_cast<long>(0xC1250FA0u), "x", 1).m_lCode, VQRegLib::REGLIB_E_FAIL);
    EXPECT_EQ(VQException(-5, "x", 1).m_lCode, -5);
}

TEST(Exception, HasNoTextWithoutAFile) {
    const VQException exception(VQRegLib::REGLIB_E_FAIL, nullptr, 7);
    EXPECT_STREQ(exception.m_szText, "");
    EXPECT_EQ(exception.m_lCode, VQRegLib::REGLIB_E_FAIL);
}

TEST(Exception, CutsALongTextTo269Characters) {
    EXPECT_EQ(sizeof(VQException::m_szText), 272u);
    const std::string fitting(267, 'f');
    EXPECT_EQ(VQException(0, fitting.c_str(), 1).m_szText, fitting + ".1");
    EXPECT_EQ(VQException(0, fitting.c_str(), 12).m_szText, fitting + ".1");
    for (const std::size_t size : {269u, 270u, 271u, 272u, 1000u}) {
        const std::string file(size, 'f');
        EXPECT_EQ(VQException(0, file.c_str(), 1).m_szText, std::string(269, 'f')) << size;
    }
}

TEST(Exception, IsPolymorphic) {
    EXPECT_TRUE(std::has_virtual_destructor_v<VQException>);
}

TEST(ThrowPoint, NamesTheSourceAndTheLine) {
    EXPECT_STREQ(thrownAt(eThrowPoint::eCopyFileName).m_szText, "RegLib.3243");
    EXPECT_STREQ(thrownAt(eThrowPoint::eSetFullName).m_szText, "RegLib.1972");
    EXPECT_STREQ(thrownAt(eThrowPoint::eSetKeyName).m_szText, "RegLib.1978");
    EXPECT_STREQ(thrownAt(eThrowPoint::eClearFullName).m_szText, "RegLib.1991");
    EXPECT_STREQ(thrownAt(eThrowPoint::eClearKeyName).m_szText, "RegLib.1997");
    EXPECT_STREQ(thrownAt(eThrowPoint::eNewDirectory).m_szText, "RegLib.1826");
    EXPECT_EQ(thrownAt(eThrowPoint::eNewMutex).m_lCode, VQRegLib::REGLIB_E_FAIL);
}

TEST(Guarded, PassesTheResultOn) {
    EXPECT_EQ(guarded([] { return VQRegLib::REGLIB_OK; }), VQRegLib::REGLIB_OK);
    EXPECT_EQ(guarded([] { return VQRegLib::REGLIB_E_BAD_TYPE; }), VQRegLib::REGLIB_E_BAD_TYPE);
}

TEST(Guarded, TurnsAShortageOfMemoryIntoAFailure) {
    EXPECT_EQ(guarded([]() -> int { throw std::bad_alloc(); }), VQRegLib::REGLIB_E_FAIL);
    EXPECT_EQ(guarded([]() -> int { throw std::bad_array_new_length(); }), VQRegLib::REGLIB_E_FAIL);
    EXPECT_EQ(guarded([]() -> int { throw std::length_error(""); }), VQRegLib::REGLIB_E_FAIL);
}

TEST(Guarded, LetsAnExceptionOfTheLibraryPass) {
    EXPECT_THROW(guarded([]() -> int { throwAt(eThrowPoint::eSetKeyName); }), VQException);
    EXPECT_THROW(guarded([]() -> int { throw std::runtime_error(""); }), std::runtime_error);
}
