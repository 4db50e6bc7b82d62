// Stores and keys through the C interface, and what is in a key.
#include <malloc.h>
#include <sys/stat.h>

#include "c/CStoreFixture.h"

using CKeys = vqtest::CStoreTest;

namespace {

std::vector<std::string> taken(char** names, size_t count) {
    std::vector<std::string> list(names, names + count);
    EXPECT_EQ(names[count], nullptr);
    vqreg_free(names);
    return list;
}

}  // namespace

TEST_F(CKeys, AreOpenedMadeAndDeleted) {
    vqreg_key* key = nullptr;
    EXPECT_EQ(vqreg_open_key(store, "A/B", 0, &key), VQREG_E_KEY_NOT_FOUND);
    EXPECT_EQ(key, nullptr);
    ASSERT_EQ(vqreg_open_key(store, "A/B", 1, &key), VQREG_OK);
    EXPECT_EQ(vqreg_key_set_dword(key, "V", 5), VQREG_OK);
    std::uint32_t number = 0;
    EXPECT_EQ(vqreg_key_get_dword(key, "v", &number), VQREG_OK);
    EXPECT_EQ(number, 5u);
    EXPECT_EQ(vqreg_delete_key(store, "A/B"), VQREG_E_KEY_NOT_EMPTY);
    EXPECT_EQ(vqreg_key_delete_value(key, "V"), VQREG_OK);
    EXPECT_EQ(vqreg_delete_key(store, "A/B"), VQREG_OK);
    EXPECT_EQ(vqreg_key_get_dword(key, "V", &number), VQREG_E_INVALID_HANDLE);
    vqreg_close_key(key);
    EXPECT_EQ(vqreg_delete_key(store, "A/B"), VQREG_E_KEY_NOT_FOUND);
    EXPECT_EQ(vqreg_delete_key(store, "/"), VQREG_E_FAIL) << "the root key stays";
}

TEST_F(CKeys, AnOpenOneHasAllThatAPathHas) {
    vqreg_key* key = nullptr;
    ASSERT_EQ(vqreg_open_key(store, "", 0, &key), VQREG_OK);
    ASSERT_EQ(vqreg_key_set_string(key, "T", "text"), VQREG_OK);
    ASSERT_EQ(vqreg_key_set_binary(key, "B", "\1\2", 2), VQREG_OK);
    EXPECT_EQ(vqreg_key_set_string(key, "T", "a\nb"), VQREG_E_NOT_STORABLE);
    char text[8];
    size_t size = sizeof text;
    EXPECT_EQ(vqreg_key_get_string(key, "T", text, &size), VQREG_OK);
    EXPECT_STREQ(text, "text");
    size = sizeof text;
    EXPECT_EQ(vqreg_key_get_binary(key, "B", text, &size), VQREG_OK);
    EXPECT_EQ(size, 2u);
    vqreg_type type = VQREG_NONE;
    size = sizeof text;
    EXPECT_EQ(vqreg_key_get(key, "B", &type, text, &size), VQREG_OK);
    EXPECT_EQ(type, VQREG_BINARY);
    vqreg_close_key(key);
}

// The handle that belongs to the path is of the key before.
TEST_F(CKeys, APathMeansTheKeyThatIsThereNow) {
    ASSERT_EQ(vqreg_set_dword(store, "A/B", "V", 1), VQREG_OK);
    ASSERT_EQ(vqreg_delete_value(store, "A/B", "V"), VQREG_OK);
    ASSERT_EQ(vqreg_delete_key(store, "A/B"), VQREG_OK);
    std::uint32_t number = 0;
    EXPECT_EQ(vqreg_get_dword(store, "A/B", "V", &number), VQREG_E_KEY_NOT_FOUND);
    ASSERT_EQ(vqreg_create_key(store, "A/B"), VQREG_OK);
    ASSERT_EQ(vqreg_delete_key(store, "A/B"), VQREG_OK);
    ASSERT_EQ(vqreg_create_key(store, "A/B"), VQREG_OK);
    EXPECT_NE(file.read().find("[Velquist/A/B]"), std::string::npos);
    ASSERT_EQ(vqreg_set_dword(store, "A/B", "V", 2), VQREG_OK);
    EXPECT_EQ(this->number("A/B", "V"), 2u);
}

// Which forgets the handle that belongs to the path; this one still has its own.
TEST_F(CKeys, APathMeansTheKeyThatIsThereNowWhoeverHasDeletedTheOneBefore) {
    vqreg_store* const other = open();
    ASSERT_NE(other, nullptr);
    const auto remake = [&](const char* name, std::uint32_t to) {
        ASSERT_EQ(vqreg_has_key(store, "K"), VQREG_OK) << name;
        ASSERT_EQ(vqreg_delete_value(other, "K", name), VQREG_OK) << name;
        ASSERT_EQ(vqreg_delete_key(other, "K"), VQREG_OK) << name;
        ASSERT_EQ(vqreg_set_dword(other, "K", "V", to), VQREG_OK) << name;
    };
    ASSERT_EQ(vqreg_set_dword(store, "K", "V", 1), VQREG_OK);
    remake("V", 2);
    EXPECT_EQ(number("K", "V"), 2u);
    remake("V", 3);
    EXPECT_EQ(vqreg_set_dword(store, "K", "V", 4), VQREG_OK);
    EXPECT_EQ(number("K", "V"), 4u);
    remake("V", 5);
    char** names = nullptr;
    size_t count = 0;
    ASSERT_EQ(vqreg_list_values(store, "K", &names, &count), VQREG_OK);
    EXPECT_EQ(taken(names, count), std::vector<std::string>{"V"});
    remake("V", 6);
    EXPECT_EQ(vqreg_delete_value(store, "K", "V"), VQREG_OK);
    EXPECT_EQ(vqreg_delete_key(other, "K"), VQREG_OK);
    EXPECT_EQ(vqreg_delete_value(store, "K", "V"), VQREG_E_KEY_NOT_FOUND);
    EXPECT_EQ(vqreg_has_key(store, "K"), VQREG_E_KEY_NOT_FOUND);
    vqreg_close(other);
}

TEST_F(CKeys, AreNotWhereAValueIs) {
    ASSERT_EQ(vqreg_set_dword(store, "", "V", 1), VQREG_OK);
    EXPECT_EQ(vqreg_create_key(store, "V"), VQREG_E_NOT_A_KEY);
    EXPECT_EQ(vqreg_set_dword(store, "V/Sub", "W", 1), VQREG_E_NOT_A_KEY);
    ASSERT_EQ(vqreg_create_key(store, "K"), VQREG_OK);
    std::uint32_t number = 0;
    EXPECT_EQ(vqreg_get_dword(store, "", "K", &number), VQREG_E_NOT_A_VALUE);
}

TEST_F(CKeys, ListTheirSubKeysAndValuesInOrder) {
    for (const char* const name : {"b", "A", "c"}) {
        ASSERT_EQ(vqreg_set_dword(store, "K", name, 1), VQREG_OK);
        ASSERT_EQ(vqreg_create_key(store, (std::string("L/") + name).c_str()), VQREG_OK);
    }
    char** names = nullptr;
    size_t count = 0;
    ASSERT_EQ(vqreg_list_values(store, "K", &names, &count), VQREG_OK);
    EXPECT_EQ(taken(names, count), (std::vector<std::string>{"A", "b", "c"}));
    ASSERT_EQ(vqreg_list_keys(store, "L", &names, &count), VQREG_OK);
    EXPECT_EQ(taken(names, count), (std::vector<std::string>{"A", "b", "c"}));
    ASSERT_EQ(vqreg_list_keys(store, "K", &names, nullptr), VQREG_OK);
    EXPECT_EQ(taken(names, 0), std::vector<std::string>{});
    EXPECT_EQ(vqreg_list_keys(store, "Missing", &names, &count), VQREG_E_KEY_NOT_FOUND);
    EXPECT_EQ(names, nullptr);
    vqreg_free(nullptr);
}

TEST_F(CKeys, ShowAVisitorWhatIsInThem) {
    ASSERT_EQ(vqreg_set_dword(store, "K", "N", 7), VQREG_OK);
    ASSERT_EQ(vqreg_set_string(store, "K", "T", "text"), VQREG_OK);
    ASSERT_EQ(vqreg_create_key(store, "K/Sub"), VQREG_OK);
    std::string seen;
    const auto onValue = [](void* context, const char* name, vqreg_type type, const void* data,
                            size_t size) {
        *static_cast<std::string*>(context) +=
            std::string(name) + ':' + std::to_string(type) + ':' + std::to_string(size) + ' ';
        return type == VQREG_STRING ? std::strcmp(static_cast<const char*>(data), "text") : 0;
    };
    EXPECT_EQ(vqreg_visit_values(store, "K", onValue, &seen), VQREG_OK);
    EXPECT_EQ(seen, "N:2:4 T:3:5 ");
    const auto onKey = [](void* context, const char* name) {
        *static_cast<std::string*>(context) += name;
        return 17;
    };
    EXPECT_EQ(vqreg_visit_keys(store, "K", onKey, &seen), 17) << "what the visitor returns";
    EXPECT_EQ(seen, "N:2:4 T:3:5 Sub");
}

TEST_F(CKeys, AVisitorMayChangeTheStore) {
    for (const char* const name : {"a", "b", "c"}) {
        ASSERT_EQ(vqreg_set_dword(store, "K", name, 1), VQREG_OK);
    }
    const auto onValue = [](void* context, const char*, vqreg_type, const void*, size_t) {
        const auto opened = static_cast<vqreg_store*>(context);
        const int result = vqreg_delete_value(opened, "K", "b");
        return result == VQREG_OK || result == VQREG_E_NOT_FOUND ? VQREG_OK : result;
    };
    EXPECT_EQ(vqreg_visit_values(store, "K", onValue, store), VQREG_OK);
    EXPECT_EQ(number("K", "b"), std::nullopt);
}

TEST_F(CKeys, AndWatchesKeepTheirStoreOpen) {
    vqreg_key* key = nullptr;
    vqreg_store* const other = open();
    ASSERT_EQ(vqreg_open_key(other, "K", 1, &key), VQREG_OK);
    vqreg_close(other);
    EXPECT_EQ(vqreg_key_set_dword(key, "V", 9), VQREG_OK);
    vqreg_close_key(key);
    EXPECT_EQ(number("K", "V"), 9u);
}

namespace {

// Deletes what stands behind the value that it is shown first, and gives another's name to a key.
struct CReplacing {
    vqreg_store* store;
    std::string seen;

    static int onValue(void* context, const char* name, vqreg_type /*type*/, const void* /*data*/,
                       size_t /*size*/) {
        auto& of = *static_cast<CReplacing*>(context);
        of.seen += name;
        if (of.seen.size() > 1) {
            return VQREG_OK;
        }
        EXPECT_EQ(vqreg_delete_value(of.store, "K", "b"), VQREG_OK);
        EXPECT_EQ(vqreg_delete_value(of.store, "K", "c"), VQREG_OK);
        EXPECT_EQ(vqreg_create_key(of.store, "K/c"), VQREG_OK);
        return VQREG_OK;
    }
};

// Takes the key away in which the value is that it is shown.
int deleteAll(void* context, const char* /*name*/, vqreg_type /*type*/, const void* /*data*/,
              size_t /*size*/) {
    auto* const store = static_cast<vqreg_store*>(context);
    EXPECT_EQ(vqreg_delete_value(store, "K", "a"), VQREG_OK);
    EXPECT_EQ(vqreg_delete_value(store, "K", "b"), VQREG_OK);
    EXPECT_EQ(vqreg_delete_key(store, "K"), VQREG_OK);
    return VQREG_OK;
}

}  // namespace

TEST_F(CKeys, AVisitorIsNotShownWhatIsNoValueAnyMore) {
    for (const bool isOpen : {false, true}) {
        (void)vqreg_delete_key(store, "K/c");
        for (const char* const name : {"a", "b", "c", "d"}) {
            ASSERT_EQ(vqreg_set_dword(store, "K", name, 1), VQREG_OK);
        }
        vqreg_key* key = nullptr;
        ASSERT_EQ(vqreg_open_key(store, "K", 0, &key), VQREG_OK);
        CReplacing visitor{store, ""};
        EXPECT_EQ(isOpen ? vqreg_key_visit_values(key, CReplacing::onValue, &visitor)
                         : vqreg_visit_values(store, "K", CReplacing::onValue, &visitor),
                  VQREG_OK);
        EXPECT_EQ(visitor.seen, "ad");
        vqreg_close_key(key);
    }
}

TEST_F(CKeys, AVisitEndsWithTheKeyThatItIsIn) {
    for (const bool isOpen : {false, true}) {
        ASSERT_EQ(vqreg_set_dword(store, "K", "a", 1), VQREG_OK);
        ASSERT_EQ(vqreg_set_dword(store, "K", "b", 1), VQREG_OK);
        vqreg_key* key = nullptr;
        ASSERT_EQ(vqreg_open_key(store, "K", 0, &key), VQREG_OK);
        if (isOpen) {
            EXPECT_EQ(vqreg_key_visit_values(key, deleteAll, store), VQREG_E_INVALID_HANDLE);
        } else {
            EXPECT_EQ(vqreg_visit_values(store, "K", deleteAll, store), VQREG_E_KEY_NOT_FOUND);
        }
        vqreg_close_key(key);
    }
}

TEST_F(CKeys, AStoreKnowsItsFile) {
    EXPECT_STREQ(vqreg_file(store), file.path().c_str());
    const std::string link = file.directory() + "/link.cfg";
    ASSERT_EQ(::symlink(file.path().c_str(), link.c_str()), 0);
    vqreg_store* const linked = vqreg_open(link.c_str(), nullptr, nullptr);
    ASSERT_NE(linked, nullptr);
    EXPECT_STREQ(vqreg_file(linked), file.path().c_str());
    vqreg_close(linked);
    vqreg_close(nullptr);
    EXPECT_EQ(vqreg_file(nullptr), nullptr);
}

TEST_F(CKeys, OfAnotherRootKeyAreOtherKeys) {
    int result = 1;
    vqreg_store* const other = vqreg_open(file.path().c_str(), "Other", &result);
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(result, VQREG_OK);
    EXPECT_EQ(vqreg_set_dword(other, "K", "V", 1), VQREG_OK);
    EXPECT_EQ(number("K", "V"), std::nullopt);
    EXPECT_NE(file.read().find("[Other/K]"), std::string::npos);
    vqreg_close(other);
}

namespace {

int addName(void* context, const char* name) {
    *static_cast<std::string*>(context) += std::string(name) + ' ';
    return 0;
}

int addValueName(void* context, const char* name, vqreg_type, const void*, size_t) {
    return addName(context, name);
}

}  // namespace

TEST_F(CKeys, AnOpenOneIsVisited) {
    ASSERT_EQ(vqreg_set_dword(store, "K/A", "V", 1), VQREG_OK);
    ASSERT_EQ(vqreg_set_dword(store, "K", "B", 1), VQREG_OK);
    ASSERT_EQ(vqreg_set_dword(store, "K", "C", 1), VQREG_OK);
    vqreg_key* key = nullptr;
    ASSERT_EQ(vqreg_open_key(store, "K", 0, &key), VQREG_OK);
    std::string names;
    EXPECT_EQ(vqreg_key_visit_keys(key, addName, &names), VQREG_OK);
    EXPECT_EQ(vqreg_key_visit_values(key, addValueName, &names), VQREG_OK);
    EXPECT_EQ(names, "A B C ");
    EXPECT_EQ(vqreg_visit_keys(store, "", addName, &names), VQREG_OK);
    EXPECT_EQ(names, "A B C K ") << "as by the path";
    EXPECT_EQ(vqreg_key_visit_keys(nullptr, addName, &names), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_key_visit_values(key, nullptr, &names), VQREG_E_FAIL);
    vqreg_close_key(key);
}

TEST_F(CKeys, TheVisitOfAnOpenOneEndsWhenTheVisitorSaysSo) {
    ASSERT_EQ(vqreg_create_key(store, "A"), VQREG_OK);
    ASSERT_EQ(vqreg_create_key(store, "B"), VQREG_OK);
    ASSERT_EQ(vqreg_set_dword(store, "", "C", 1), VQREG_OK);
    ASSERT_EQ(vqreg_set_dword(store, "", "D", 1), VQREG_OK);
    vqreg_key* key = nullptr;
    ASSERT_EQ(vqreg_open_key(store, "", 0, &key), VQREG_OK);
    const auto onKey = [](void* context, const char* name) { return addName(context, name) + 17; };
    const auto onValue = [](void* context, const char* name, vqreg_type, const void*, size_t) {
        return addName(context, name) - 17;
    };
    std::string names;
    EXPECT_EQ(vqreg_key_visit_keys(key, onKey, &names), 17);
    EXPECT_EQ(vqreg_key_visit_values(key, onValue, &names), -17);
    EXPECT_EQ(names, "A C ");
    vqreg_close_key(key);
}

TEST_F(CKeys, ThatAreMissingAreNotVisited) {
    std::string names;
    EXPECT_EQ(vqreg_visit_keys(store, "K", addName, &names), VQREG_E_KEY_NOT_FOUND);
    EXPECT_EQ(vqreg_visit_values(store, "K", addValueName, &names), VQREG_E_KEY_NOT_FOUND);
    ASSERT_EQ(vqreg_set_dword(store, "K/L", "V", 1), VQREG_OK);
    vqreg_key* key = nullptr;
    ASSERT_EQ(vqreg_open_key(store, "K/L", 0, &key), VQREG_OK);
    ASSERT_EQ(vqreg_delete_value(store, "K/L", "V"), VQREG_OK);
    ASSERT_EQ(vqreg_delete_key(store, "K/L"), VQREG_OK);
    EXPECT_EQ(vqreg_key_visit_keys(key, addName, &names), VQREG_E_INVALID_HANDLE);
    EXPECT_EQ(vqreg_key_visit_values(key, addValueName, &names), VQREG_E_INVALID_HANDLE);
    EXPECT_EQ(names, "");
    vqreg_close_key(key);
}

TEST_F(CKeys, NeedTheirArguments) {
    ASSERT_EQ(vqreg_create_key(store, "K"), VQREG_OK);
    std::string names;
    EXPECT_EQ(vqreg_visit_keys(nullptr, "", addName, &names), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_visit_keys(store, "", nullptr, &names), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_visit_values(nullptr, "", addValueName, &names), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_visit_values(store, "", nullptr, &names), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_key_visit_values(nullptr, addValueName, &names), VQREG_E_FAIL);
    EXPECT_EQ(names, "");
    char* text = nullptr;
    char** list = &text;
    size_t count = 7;
    EXPECT_EQ(vqreg_list_keys(nullptr, "", &list, &count), VQREG_E_FAIL);
    EXPECT_EQ(list, nullptr) << "to be freed in any case";
    EXPECT_EQ(count, 7u);
    EXPECT_EQ(vqreg_list_values(store, "", nullptr, &count), VQREG_E_FAIL);
    auto* key = reinterpret_cast<vqreg_key*>(&text);
    EXPECT_EQ(vqreg_open_key(nullptr, "K", 0, &key), VQREG_E_FAIL);
    EXPECT_EQ(key, nullptr) << "to be closed in any case";
    EXPECT_EQ(vqreg_open_key(store, "K", 0, nullptr), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_delete_key(nullptr, "K"), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_begin_update(nullptr), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_end_update(nullptr), VQREG_E_FAIL);
    EXPECT_EQ(vqreg_has_key(store, "K"), VQREG_OK);
}

// The look at a key asks for a value without a name.
TEST_F(CKeys, AreThereWhateverHasNoNameInThem) {
    file.write("[Velquist]\n[Velquist/A]\n\"\"=dword:00000001\n[Velquist/B]\n[Velquist/B//C]\n");
    ASSERT_EQ(vqreg_reload(store), VQREG_OK);
    EXPECT_EQ(vqreg_has_key(store, "A"), VQREG_OK);
    EXPECT_EQ(vqreg_has_key(store, "B"), VQREG_OK);
}

TEST_F(CKeys, OfAMalformedFileAreNotSaidToBeThere) {
    ASSERT_EQ(vqreg_create_key(store, "K"), VQREG_OK);
    const std::string text = file.read();
    file.write(text + "nonsense\n");
    ASSERT_EQ(vqreg_reload(store), VQREG_OK);
    EXPECT_EQ(vqreg_has_key(store, "K"), VQREG_E_BAD_FORMAT);
    EXPECT_EQ(vqreg_create_key(store, "K"), VQREG_E_BAD_FORMAT);
    file.write(text);
    EXPECT_EQ(vqreg_has_key(store, "K"), VQREG_OK);
}

TEST_F(CKeys, AreThereOrNot) {
    ASSERT_EQ(vqreg_set_dword(store, "K/A", "V", 1), VQREG_OK);
    EXPECT_EQ(vqreg_has_key(store, "k\\a"), VQREG_OK);
    EXPECT_EQ(vqreg_has_key(store, nullptr), VQREG_OK);
    EXPECT_EQ(vqreg_has_key(store, "K/B"), VQREG_E_KEY_NOT_FOUND);
    EXPECT_EQ(vqreg_has_key(store, "K/A/V"), VQREG_E_NOT_A_KEY);
    EXPECT_EQ(vqreg_has_key(nullptr, "K"), VQREG_E_FAIL);
    EXPECT_STREQ(vqreg_version(), VQREG_VERSION);
}

TEST_F(CKeys, OfPathsThatWereDeletedAreNotKept) {
    const std::string longName(500, 'x');
    const auto makeAndDelete = [&](int from) {
        for (int i = from; i < from + 200; ++i) {
            const std::string name = longName + std::to_string(i);
            ASSERT_EQ(vqreg_set_dword(store, name.c_str(), "V", 1), VQREG_OK);
            ASSERT_EQ(vqreg_delete_value(store, name.c_str(), "V"), VQREG_OK);
            ASSERT_EQ(vqreg_delete_key(store, name.c_str()), VQREG_OK);
        }
    };
    makeAndDelete(0);
    const std::size_t before = ::mallinfo2().uordblks;
    makeAndDelete(200);  // the library itself keeps something of each
    EXPECT_LT(::mallinfo2().uordblks, before + 250'000);
}

// Programs ask for optional settings all their life.
TEST_F(CKeys, AskingForOnesThatAreMissingTakesNoMemory) {
    ASSERT_EQ(vqreg_set_dword(store, "Network/Ports", "V", 1), VQREG_OK);
    const auto ask = [this](int times) {
        for (int i = 0; i < times; ++i) {
            std::uint32_t found = 0;
            EXPECT_EQ(vqreg_get_dword(store, "Network/Missing", "V", &found),
                      VQREG_E_KEY_NOT_FOUND);
            vqreg_key* key = nullptr;
            EXPECT_EQ(vqreg_open_key(store, "Network/Ports", 0, &key), VQREG_OK);
            vqreg_close_key(key);
            EXPECT_EQ(vqreg_delete_key(store, "Network/Missing"), VQREG_E_KEY_NOT_FOUND);
        }
    };
    ask(100);
    const std::size_t before = ::mallinfo2().uordblks;
    ask(2000);
    EXPECT_LT(::mallinfo2().uordblks, before + 20'000);
}
