// Values through VQRegStore.h: what C++ types become in the file, and back.
#include <array>
#include <limits>
#include <string_view>

#include "store/CxxStoreFixture.h"

namespace {

enum class Level { eLow, eHigh };
enum class Mode : unsigned char { eOff = 1, eOn = 2, eAuto = 3 };

}  // namespace

template <>
struct vqreg::EnumTraits<Level> {
    static constexpr EnumName<Level> names[] = {{Level::eLow, "low"}, {Level::eHigh, "high"}};
};

template <>
struct vqreg::EnumTraits<Mode> {
    static constexpr Mode first = Mode::eOff;
    static constexpr Mode last = Mode::eAuto;
};

namespace {

class StoreValues : public vqtest::CxxStoreTest {
protected:
    // What a line says behind the name of the value.
    void put(const std::string& data) {
        file.write("[Velquist]\n[Velquist/K]\n\"V\"=" + data + "\n");
        store.reload();
    }

    vqreg::Store store = open();
    vqreg::Key key = store.create("K");
};

}  // namespace

TEST_F(StoreValues, AreLinesOfTheThreeTypes) {
    const unsigned char mac[] = {0x00, 0x10, 0xFF};
    key.set("Flag", true);
    key.set("Http", 8080);
    key.set("Mac", mac);
    key.set("Host", "web.example");
    EXPECT_EQ(file.read(),
              "[Velquist]\n[Velquist/K]\n\"Flag\"=dword:00000001\n\"Host\"=string:web.example\n"
              "\"Http\"=dword:00001F90\n\"Mac\"=binary:0010FF\n");
}

TEST_F(StoreValues, ComeBackAsTheTypeThatIsAskedFor) {
    key.set("Number", 200);
    EXPECT_EQ(key.get<int>("Number"), 200);
    EXPECT_EQ(key.get<unsigned char>("number"), 200);
    EXPECT_EQ(key.get<std::int64_t>("NUMBER"), 200);
    key.set("Flag", true);
    EXPECT_EQ(key.get<bool>("Flag"), true);
    key.set("Flag", false);
    EXPECT_EQ(key.get<bool>("Flag"), false);
    const std::string name = "Text";
    key.set(name, name);
    EXPECT_EQ(key.get<std::string>(name), "Text");
    const vqreg::Bytes bytes = {std::byte{0}, std::byte{255}};
    key.set("Bytes", bytes);
    EXPECT_EQ(key.get<vqreg::Bytes>("Bytes"), bytes);
    EXPECT_EQ(key.get<std::vector<unsigned char>>("Bytes"), (std::vector<unsigned char>{0, 255}));
}

TEST_F(StoreValues, OfEveryKindOfTextAndRangeAreTaken) {
    key.set("V", std::string_view("long text").substr(0, 4));
    EXPECT_EQ(key.get<std::string>("V"), "long");
    char array[] = "array";
    key.set("V", array);
    EXPECT_EQ(key.get<std::string>("V"), "array");
    key.set("V", "");
    EXPECT_EQ(key.get<std::string>("V"), "");
    key.set("V", std::array<std::byte, 2>{std::byte{1}, std::byte{2}});
    EXPECT_EQ(key.get<vqreg::Bytes>("V")->size(), 2u);
    key.set("V", vqreg::Bytes());
    EXPECT_EQ(key.get<vqreg::Bytes>("V"), vqreg::Bytes());
}

TEST_F(StoreValues, ThatAreNotThereAreNothingAndTheFallback) {
    EXPECT_EQ(key.get<int>("None"), std::nullopt);
    EXPECT_EQ(key.get<std::string>("None"), std::nullopt);
    EXPECT_FALSE(key.value("None"));
    EXPECT_EQ(key.get_or("None", 80u), 80u);
    EXPECT_EQ(key.get_or("None", true), true);
    EXPECT_EQ(key.get_or("None", "localhost"), std::string("localhost"));
    EXPECT_EQ(key.get_or("None", std::string_view("view")), std::string("view"));
    EXPECT_EQ(key.get_or("None", Level::eHigh), Level::eHigh);
    key.set("There", 81);
    key.set("Text", "web");
    EXPECT_EQ(key.get_or("There", 80u), 81u);
    EXPECT_EQ(key.get_or("Text", "localhost"), "web");
    static_assert(std::is_same_v<decltype(key.get_or("Text", "localhost")), std::string>);
}

TEST_F(StoreValues, OfAnotherTypeAreFailures) {
    key.set("Text", "four");
    key.set("Number", 7);
    key.set("Bytes", std::array<unsigned char, 4>{1, 2, 3, 4});
    EXPECT_EQ(thrown([&] { key.get<int>("Text"); }), vqreg::errc::bad_type);
    EXPECT_EQ(thrown([&] { key.get<int>("Bytes"); }), vqreg::errc::bad_type);
    EXPECT_EQ(thrown([&] { key.get<std::string>("Number"); }), vqreg::errc::bad_type);
    EXPECT_EQ(thrown([&] { key.get<vqreg::Bytes>("Text"); }), vqreg::errc::bad_type);
    EXPECT_EQ(thrown([&] { key.get_or("Text", 80); }), vqreg::errc::bad_type);
    EXPECT_EQ(textOf([&] { key.get<int>("Text"); }), "K \"Text\": the value has another type");
    store.create("K/Sub");
    EXPECT_EQ(thrown([&] { key.get<int>("Sub"); }), vqreg::errc::not_a_value);
    EXPECT_EQ(thrown([&] { key.set("Sub", 1); }), vqreg::errc::not_a_value);
}

TEST_F(StoreValues, OutsideOfTheRangeAreFailuresOnTheWayOut) {
    put("dword:FFFFFFFF");
    EXPECT_EQ(key.get<std::uint32_t>("V"), 0xFFFFFFFFu);
    EXPECT_EQ(key.get<std::int64_t>("V"), 0xFFFFFFFF);
    EXPECT_EQ(thrown([&] { key.get<int>("V"); }), vqreg::errc::out_of_range);
    put("dword:00000100");
    EXPECT_EQ(key.get<std::int16_t>("V"), 256);
    EXPECT_EQ(thrown([&] { key.get<std::uint8_t>("V"); }), vqreg::errc::out_of_range);
    put("dword:00000002");
    EXPECT_EQ(thrown([&] { key.get<bool>("V"); }), vqreg::errc::out_of_range);
}

TEST_F(StoreValues, OutsideOfTheRangeAreFailuresOnTheWayIn) {
    const std::string before = file.read();
    EXPECT_EQ(thrown([&] { key.set("V", -1); }), vqreg::errc::out_of_range);
    EXPECT_EQ(thrown([&] { key.set("V", std::int64_t{1} << 32); }), vqreg::errc::out_of_range);
    EXPECT_EQ(thrown([&] { key.set("V", ~std::uint64_t{0}); }), vqreg::errc::out_of_range);
    EXPECT_EQ(file.read(), before);
    key.set("V", std::int64_t{0xFFFFFFFF});
    EXPECT_EQ(key.get<unsigned>("V"), 0xFFFFFFFFu);
    EXPECT_TRUE(make_error_code(vqreg::errc::out_of_range) == std::errc::result_out_of_range);
}

TEST_F(StoreValues, OfEnumerationsAreTextsOrNumbers) {
    key.set("Level", Level::eHigh);
    key.set("Mode", Mode::eAuto);
    EXPECT_NE(file.read().find("\"Level\"=string:high\n\"Mode\"=dword:00000003\n"),
              std::string::npos);
    EXPECT_EQ(key.get<Level>("Level"), Level::eHigh);
    EXPECT_EQ(key.get<Mode>("Mode"), Mode::eAuto);
    EXPECT_EQ(key.get_or("None", Mode::eOff), Mode::eOff);
    put("string:middle");
    EXPECT_EQ(thrown([&] { key.get<Level>("V"); }), vqreg::errc::out_of_range);
    for (const char* const number : {"dword:00000000", "dword:00000004", "dword:00000101"}) {
        put(number);
        EXPECT_EQ(thrown([&] { key.get<Mode>("V"); }), vqreg::errc::out_of_range) << number;
    }
    EXPECT_EQ(thrown([&] { key.set("V", static_cast<Mode>(9)); }), vqreg::errc::out_of_range);
    EXPECT_EQ(thrown([&] { key.set("V", static_cast<Level>(9)); }), vqreg::errc::out_of_range);
}

// Longer than any line of the file, and than any buffer that a query begins with.
TEST_F(StoreValues, OfAnyLengthComeBackWhole) {
    for (const std::size_t length : {1u, 255u, 2030u}) {
        const std::string text(length, 'x');
        key.set("V", text);
        EXPECT_EQ(key.get<std::string>("V"), text);
    }
    VQRegLib::CRegLib session(file.path().c_str(), nullptr, VQRegLib::CRegLib::eLocationDefault,
                              nullptr);
    VQRegLib::CRegKey plain;
    ASSERT_EQ(session.VQRegCreateKey(nullptr, "K", plain, 0), 0);
    const std::string text(5000, 'y');
    session.VQRegSetValue(plain, "Long", text.c_str());
    EXPECT_EQ(key.get<std::string>("Long"), text);
    EXPECT_EQ(key.value("Long")->as<std::string>(), text);
    EXPECT_EQ(thrown([&] { key.get<vqreg::Bytes>("Long"); }), vqreg::errc::bad_type);
}

TEST_F(StoreValues, ThatTheFileCannotGiveBackAreRefused) {
    const std::string before = file.read();
    EXPECT_EQ(thrown([&] { key.set("V", "two\nlines"); }), vqreg::errc::not_storable);
    EXPECT_EQ(thrown([&] { key.set("V", std::string("a\0b", 3)); }), vqreg::errc::not_storable);
    EXPECT_EQ(thrown([&] { key.set("V", std::string(2100, 'x')); }), vqreg::errc::not_storable);
    EXPECT_EQ(thrown([&] { key.set("V", std::vector<std::byte>(1100)); }),
              vqreg::errc::not_storable);
    EXPECT_EQ(thrown([&] { key.set("a:b", 1); }), vqreg::errc::not_storable);
    EXPECT_EQ(thrown([&] { key.set(std::string("a\0b", 3), 1); }), vqreg::errc::not_storable);
    EXPECT_EQ(thrown([&] { key.get<int>(std::string("a\0b", 3)); }), vqreg::errc::not_storable);
    EXPECT_EQ(textOf([&] { key.set("V", "a\rb"); }),
              "K \"V\": the file cannot give back such a name or such data: a text must not hold a "
              "carriage return: byte 2");
    EXPECT_EQ(file.read(), before);
    const char* const null = nullptr;
    EXPECT_EQ(thrown([&] { key.set("V", null); }), vqreg::errc::fail);
    EXPECT_EQ(thrown([&] { key.set(null, 1); }), vqreg::errc::fail);
    EXPECT_EQ(thrown([&] { key.get<int>(null); }), vqreg::errc::fail);
}

TEST_F(StoreValues, AreDeletedOnce) {
    key.set("V", 1);
    EXPECT_TRUE(key.erase("v"));
    EXPECT_FALSE(key.erase("V"));
    EXPECT_EQ(key.get<int>("V"), std::nullopt);
    store.create("K/Sub");
    EXPECT_EQ(thrown([&] { key.erase("Sub"); }), vqreg::errc::not_a_value);
}

TEST_F(StoreValues, AreAllThereInTheirOrder) {
    key.set("b", 7);
    key.set("A", "text");
    key.set("c", std::array<std::byte, 1>{std::byte{9}});
    std::vector<vqreg::Value> values = key.values();
    EXPECT_EQ(namesOf(values), (vqtest::Texts{"A", "b", "c"}));
    EXPECT_EQ(values[0].type(), vqreg::Type::string);
    EXPECT_EQ(values[0].as<std::string>(), "text");
    EXPECT_EQ(values[1].type(), vqreg::Type::dword);
    EXPECT_EQ(values[1].as<unsigned>(), 7u);
    EXPECT_EQ(values[2].type(), vqreg::Type::binary);
    EXPECT_EQ(values[2].as<vqreg::Bytes>(), vqreg::Bytes{std::byte{9}});
    EXPECT_EQ(thrown([&] { (void)values[0].as<int>(); }), vqreg::errc::bad_type);
    EXPECT_EQ(textOf([&] { (void)values[0].as<int>(); }), "\"A\": the value has another type");
    std::error_code error;
    EXPECT_EQ(values[1].as<std::string>(error), std::nullopt);
    EXPECT_EQ(error, vqreg::errc::bad_type);
    EXPECT_EQ(values[1].as<bool>(error), std::nullopt);
    EXPECT_EQ(error, vqreg::errc::out_of_range);
    EXPECT_EQ(values[1].as<int>(error), 7);
    EXPECT_FALSE(error);
    EXPECT_TRUE(values[1].has_same_data(*key.value("B")));
    EXPECT_FALSE(values[1].has_same_data(values[0]));
    key.set("b", 8);
    EXPECT_EQ(values[1].as<unsigned>(), 7u) << "a value belongs to itself";
    EXPECT_EQ(store.create("Empty").values().size(), 0u);
}

// A loop may change what it walks over.
TEST_F(StoreValues, MayBeDeletedWhileTheyAreWalked) {
    key.set("A", 1);
    key.set("B", 2);
    for (const vqreg::Value& value : key.values()) {
        key.erase(value.name());
    }
    EXPECT_EQ(key.values().size(), 0u);
}

// As getenv() gives it.
TEST_F(StoreValues, HaveNoNullAsTheirFallback) {
    const char* const none = nullptr;
    EXPECT_EQ(thrown([&] { key.get_or("None", none); }), vqreg::errc::fail);
    std::error_code error;
    EXPECT_EQ(key.get_or("None", none, error), "");
    EXPECT_EQ(error, vqreg::errc::fail);
    key.set("Number", 1);
    EXPECT_EQ(key.get_or("Number", none, error), "");
    EXPECT_EQ(error, vqreg::errc::bad_type) << "what came first is told";
    key.set("Text", "there");
    EXPECT_EQ(key.get_or("Text", none), "there") << "where it is not needed nothing is wrong";
    EXPECT_EQ(key.get_or("Text", none, error), "there");
    EXPECT_FALSE(error);
}
