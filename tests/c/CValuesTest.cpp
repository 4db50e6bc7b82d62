// Values through the C interface.
#include <array>

#include "VQRegLib.h"
#include "c/CStoreFixture.h"

using CValues = vqtest::CStoreTest;

TEST_F(CValues, OfEachTypeComeBackAsTheyWereSet) {
    const unsigned char bytes[] = {0x00, 0x10, 0xFF};
    ASSERT_EQ(vqreg_set_dword(store, "Network/Ports", "Http", 8080), VQREG_OK);
    ASSERT_EQ(vqreg_set_string(store, "Network", "Host", "web.example"), VQREG_OK);
    ASSERT_EQ(vqreg_set_binary(store, "Network", "Mac", bytes, sizeof bytes), VQREG_OK);
    EXPECT_EQ(number("Network/Ports", "Http"), 8080u);
    EXPECT_EQ(number("network\\ports", "HTTP"), 8080u);
    EXPECT_EQ(text("Network", "Host"), "web.example");
    unsigned char read[8] = {};
    size_t size = sizeof read;
    ASSERT_EQ(vqreg_get_binary(store, "Network", "Mac", read, &size), VQREG_OK);
    ASSERT_EQ(size, 3u);
    EXPECT_EQ(std::memcmp(read, bytes, size), 0);
    EXPECT_EQ(file.read(),
              "[Velquist]\n[Velquist/Network]\n\"Host\"=string:web.example\n\"Mac\"=binary:0010FF\n"
              "[Velquist/Network/Ports]\n\"Http\"=dword:00001F90\n");
}

TEST_F(CValues, OfTheRootKeyHaveNoPath) {
    ASSERT_EQ(vqreg_set_dword(store, nullptr, "A", 1), VQREG_OK);
    ASSERT_EQ(vqreg_set_dword(store, "", "B", 2), VQREG_OK);
    ASSERT_EQ(vqreg_set_dword(store, "/", "C", 3), VQREG_OK);
    EXPECT_EQ(number("/", "A"), 1u);
    EXPECT_EQ(number(nullptr, "B"), 2u);
    EXPECT_EQ(number("", "C"), 3u);
    ASSERT_EQ(vqreg_set_dword(store, "/Sub", "D", 4), VQREG_OK);
    EXPECT_EQ(number("Sub", "D"), 4u);
}

TEST_F(CValues, OfAnotherTypeLeaveTheBufferAlone) {
    ASSERT_EQ(vqreg_set_string(store, "", "Text", "ab"), VQREG_OK);
    ASSERT_EQ(vqreg_set_dword(store, "", "Number", 7), VQREG_OK);
    std::uint32_t number = 42;
    EXPECT_EQ(vqreg_get_dword(store, "", "Text", &number), VQREG_E_BAD_TYPE);
    EXPECT_EQ(number, 42u);
    char text[] = "kept";
    size_t size = sizeof text;
    EXPECT_EQ(vqreg_get_string(store, "", "Number", text, &size), VQREG_E_BAD_TYPE);
    EXPECT_EQ(vqreg_get_binary(store, "", "Number", text, &size), VQREG_E_BAD_TYPE);
    EXPECT_STREQ(text, "kept");
    EXPECT_EQ(size, sizeof text);
}

TEST_F(CValues, TellTheSizeThatTheyNeed) {
    ASSERT_EQ(vqreg_set_string(store, "", "Text", "twelve bytes"), VQREG_OK);
    size_t size = 0;
    ASSERT_EQ(vqreg_get_string(store, "", "Text", nullptr, &size), VQREG_OK);
    EXPECT_EQ(size, 13u);
    char text[16] = "kept";
    size = 12;
    EXPECT_EQ(vqreg_get_string(store, "", "Text", text, &size), VQREG_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 13u);
    EXPECT_STREQ(text, "kept");
    EXPECT_EQ(vqreg_get_string(store, "", "Text", text, &size), VQREG_OK);
    EXPECT_STREQ(text, "twelve bytes");
}

TEST_F(CValues, OfAnyTypeComeWithTheirType) {
    ASSERT_EQ(vqreg_set_dword(store, "K", "Number", 7), VQREG_OK);
    ASSERT_EQ(vqreg_set_binary(store, "K", "None", nullptr, 0), VQREG_OK);
    vqreg_type type = VQREG_STRING;
    std::uint32_t number = 0;
    size_t size = sizeof number;
    ASSERT_EQ(vqreg_get(store, "K", "Number", &type, &number, &size), VQREG_OK);
    EXPECT_EQ(type, VQREG_DWORD);
    EXPECT_EQ(number, 7u);
    ASSERT_EQ(vqreg_get(store, "K", "None", &type, nullptr, &size), VQREG_OK);
    EXPECT_EQ(type, VQREG_BINARY);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(vqreg_get(store, "K", "Missing", &type, nullptr, &size), VQREG_E_NOT_FOUND);
    EXPECT_EQ(type, VQREG_NONE);
    char small[2];
    size = sizeof small;
    EXPECT_EQ(vqreg_get(store, "K", "Number", &type, small, &size), VQREG_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(type, VQREG_DWORD) << "told for whoever wants to make a buffer";
}

TEST_F(CValues, WithoutBytesLeaveTheBufferAlone) {
    ASSERT_EQ(vqreg_set_binary(store, "K", "None", nullptr, 0), VQREG_OK);
    char room[] = "kept";
    size_t size = sizeof room;
    EXPECT_EQ(vqreg_get_binary(store, "K", "None", room, &size), VQREG_OK);
    EXPECT_EQ(size, 0u);
    EXPECT_STREQ(room, "kept");
}

// Sessions of C++ take what no file gives back, for as long as the process lives.
TEST_F(CValues, LongerThanALineComeWhole) {
    const std::string longText(5000, 'x');
    VQRegLib::CRegLib session(file.path().c_str(), nullptr, VQRegLib::CRegLib::eLocationDefault,
                              nullptr);
    ASSERT_EQ(session.VQRegSetValue(*session.RootKey(), "Long", longText.c_str()), 0);
    std::string room(longText.size() + 1, '-');
    size_t size = room.size() - 1;
    EXPECT_EQ(vqreg_get_string(store, "", "Long", room.data(), &size), VQREG_E_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, room.size());
    EXPECT_EQ(room, std::string(room.size(), '-'));
    EXPECT_EQ(vqreg_get_string(store, "", "Long", room.data(), &size), VQREG_OK);
    EXPECT_EQ(room.c_str(), longText);
    std::string seen;
    const auto onValue = [](void* context, const char*, vqreg_type, const void* data, size_t) {
        *static_cast<std::string*>(context) = static_cast<const char*>(data);
        return 0;
    };
    EXPECT_EQ(vqreg_visit_values(store, "", onValue, &seen), VQREG_OK);
    EXPECT_EQ(seen, longText);
}

TEST_F(CValues, ThatTheFileCannotGiveBackAreRefusedBeforeAKeyIsMade) {
    const std::string before = file.read();
    EXPECT_EQ(vqreg_set_string(store, "New", "Text", "two\nlines"), VQREG_E_NOT_STORABLE);
    EXPECT_EQ(vqreg_set_string(store, "New", "Text", "a\rb"), VQREG_E_NOT_STORABLE);
    EXPECT_EQ(vqreg_set_dword(store, "New", "a:b", 1), VQREG_E_NOT_STORABLE);
    EXPECT_EQ(vqreg_set_dword(store, "New", "a\"b", 1), VQREG_E_NOT_STORABLE);
    EXPECT_EQ(vqreg_set_dword(store, "New]", "a", 1), VQREG_E_NOT_STORABLE);
    EXPECT_EQ(vqreg_set_dword(store, "<root>", "a", 1), VQREG_E_NOT_STORABLE);
    EXPECT_EQ(vqreg_set_dword(store, "New/", "a", 1), VQREG_E_NOT_STORABLE);
    EXPECT_EQ(vqreg_create_key(store, "A//B"), VQREG_E_NOT_STORABLE);
    const std::string fitting(2047 - std::strlen("\"T\"=string:"), 'x');
    EXPECT_EQ(vqreg_set_string(store, "New", "T", (fitting + 'x').c_str()), VQREG_E_NOT_STORABLE);
    EXPECT_EQ(file.read(), before);
    EXPECT_EQ(vqreg_set_string(store, "New", "T", fitting.c_str()), VQREG_OK);
    EXPECT_EQ(text("New", "T"), fitting);
    vqreg_store* const other = vqreg_open(file.path().c_str(), "New", nullptr);
    ASSERT_NE(other, nullptr) << "the file is as good as before";
    vqreg_close(other);
}

TEST_F(CValues, ADeletedOneIsNotFound) {
    ASSERT_EQ(vqreg_set_dword(store, "K", "A", 1), VQREG_OK);
    EXPECT_EQ(vqreg_delete_value(store, "K", "a"), VQREG_OK);
    EXPECT_EQ(vqreg_delete_value(store, "K", "a"), VQREG_E_NOT_FOUND);
    EXPECT_EQ(vqreg_delete_value(store, "Missing", "a"), VQREG_E_KEY_NOT_FOUND);
    EXPECT_EQ(number("K", "A"), std::nullopt);
}

TEST_F(CValues, NullArgumentsAreRefused) {
    std::uint32_t number = 0;
    EXPECT_EQ(vqreg_get_dword(nullptr, "", "A", &number), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_get_dword(store, "", nullptr, &number), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_get_dword(store, "", "A", nullptr), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_get_string(store, "", "A", nullptr, nullptr), VQREG_E_FAIL);
    size_t size = 0;
    EXPECT_EQ(vqreg_get(store, "", "A", nullptr, nullptr, &size), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_set_string(store, "", "A", nullptr), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_set_binary(store, "", "A", nullptr, 1), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_delete_value(store, "", nullptr), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_key_get_dword(nullptr, "A", &number), VQREG_E_FAIL);
    ASSERT_EQ(vqreg_set_string(store, "", "A", "text"), VQREG_OK);
    vqreg_key* key = nullptr;
    ASSERT_EQ(vqreg_open_key(store, "", 0, &key), VQREG_OK);
    char text[8] = "kept";
    EXPECT_EQ(vqreg_key_get_string(key, "A", text, nullptr), VQREG_E_FAIL);
    EXPECT_STREQ(text, "kept");
    EXPECT_EQ(vqreg_key_get_dword(key, nullptr, &number), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_key_set_string(key, "A", nullptr), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_key_set_dword(nullptr, "A", 1), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_key_delete_value(key, nullptr), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_key_delete_value(nullptr, "A"), VQREG_E_FAIL);
    EXPECT_EQ(this->text("", "A"), "text");
    vqreg_close_key(key);
}

TEST_F(CValues, OfAnUpdateAreWrittenAtItsEnd) {
    const std::string before = file.read();
    ASSERT_EQ(vqreg_begin_update(store), VQREG_OK);
    ASSERT_EQ(vqreg_set_dword(store, "K", "A", 1), VQREG_OK);
    ASSERT_EQ(vqreg_set_dword(store, "K", "B", 2), VQREG_OK);
    EXPECT_EQ(number("K", "A"), 1u);
    EXPECT_EQ(file.read(), before);
    ASSERT_EQ(vqreg_end_update(store), VQREG_OK);
    EXPECT_NE(file.read(), before);
    EXPECT_EQ(vqreg_end_update(store), VQREG_E_FAIL);
}
