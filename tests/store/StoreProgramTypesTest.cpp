// Types and values that a program makes itself, through VQRegStore.h.
#include <string_view>

#include "store/CxxStoreFixture.h"

// A program with functions of the names that the header has for its own.
namespace program {

enum class Colour { eRed, eBlue };
enum class Shape { eRound };
constexpr int kWrong = -1;

inline int decode(const unsigned char*, std::size_t, std::optional<Colour>&) {
    return kWrong;
}
inline int decodeNumber(std::uint32_t, std::optional<Colour>&) {
    return kWrong;
}
inline int encodeNumber(Colour, vqreg::detail::Encoded&) {
    return kWrong;
}
inline int decode(const unsigned char*, std::size_t, std::optional<Shape>&) {
    return kWrong;
}
inline int decodeEnumName(std::string_view, std::optional<Shape>&) {
    return kWrong;
}
inline int encodeEnumName(Shape, vqreg::detail::Encoded&) {
    return kWrong;
}

}  // namespace program

template <>
struct vqreg::EnumTraits<program::Colour> {
    static constexpr program::Colour first = program::Colour::eRed;
    static constexpr program::Colour last = program::Colour::eBlue;
};

template <>
struct vqreg::EnumTraits<program::Shape> {
    static constexpr EnumName<program::Shape> names[] = {{program::Shape::eRound, "round"}};
};

using StoreProgramTypes = vqtest::CxxStoreTest;

TEST_F(StoreProgramTypes, AreNotReadByFunctionsOfTheProgram) {
    const vqreg::Store store = open();
    vqreg::Key key = store.create("K");
    key.set("Colour", program::Colour::eBlue);
    EXPECT_EQ(key.get<program::Colour>("Colour"), program::Colour::eBlue);
    key.set("Shape", program::Shape::eRound);
    EXPECT_EQ(key.get<program::Shape>("Shape"), program::Shape::eRound);
    EXPECT_EQ(key.value("Shape")->as<program::Shape>(), program::Shape::eRound);
}

TEST_F(StoreProgramTypes, OfValuesThatWereMadeBadlyAreNone) {
    using vqreg::Type;
    using vqreg::Value;
    const auto badType = vqreg::errc::bad_type;
    EXPECT_EQ(thrown([] { Value("N", Type::string, "", 0).as<std::string>(); }), badType);
    EXPECT_EQ(thrown([] { Value("N", Type::string, "ab", 2).as<std::string>(); }), badType);
    EXPECT_EQ(thrown([] { Value("N", Type::dword, "abc", 3).as<unsigned>(); }), badType);
    EXPECT_EQ(Value("N", Type::string, "ab", 3).as<std::string>(), "ab");
    EXPECT_EQ(Value("N", Type::binary, nullptr, 0).as<vqreg::Bytes>(), vqreg::Bytes());
}
