// Stores that do not fit into the processor's cache: their values are asked for ahead, at places that may
// no longer be theirs.
#include <gtest/gtest.h>

#include <array>
#include <deque>
#include <map>
#include <random>
#include <string>

#include "support/StoreFixture.h"

using namespace vqtest;

namespace {

// As many as make the index of names a large one.
constexpr std::size_t kKeys = 2000;
constexpr int kValues = 10;

class LargeStore : public StoreTest {
protected:
    LargeStore() {
        std::string text = "[velquist]\n";
        for (std::size_t key = 0; key < kKeys; ++key) {
            text += "[velquist/" + keyName(key) + "]\n";
            for (int value = 0; value < kValues; ++value) {
                const std::string name = valueName(value);
                text += "\"" + name + "\"=string:" + firstText(key, value) + "\n";
                m_expected[key][name] = firstText(key, value);
            }
        }
        file.write(text);
    }

    static std::string keyName(std::size_t key) { return "k" + std::to_string(10'000 + key); }
    static std::string valueName(int value) { return "value" + std::to_string(value); }
    static std::string firstText(std::size_t key, int value) {
        return std::to_string(key) + "." + std::to_string(value);
    }

    void openAll(CRegLibImpl& store, std::deque<CRegKey>& keys) const {
        for (std::size_t key = 0; key < kKeys; ++key) {
            ASSERT_EQ(openKey(store, keyName(key).c_str(), keys.emplace_back()), REGLIB_OK);
        }
    }

    void set(CRegLibImpl& store, std::deque<CRegKey>& keys, std::size_t key,
             const std::string& name, const std::string& text) {
        ASSERT_EQ(setText(store, keys[key], name.c_str(), text.c_str()), REGLIB_OK);
        m_expected[key][name] = text;
    }

    void expectAll(CRegLibImpl& store, std::deque<CRegKey>& keys) {
        for (std::size_t at = 0; at < kKeys; ++at) {
            CRegKey& key = keys[at];
            std::vector<std::string> names;
            for (const auto& [name, text] : m_expected[at]) {
                ASSERT_EQ(get(store, key, name.c_str()), Value::ofText(text)) << at << name;
                names.push_back(name);
            }
            ASSERT_EQ(valueNames(store, key), names) << at;
            ASSERT_EQ(get(store, key, "missing"), Value::failure(REGLIB_E_NOT_FOUND));
        }
    }

    std::mt19937 random{5};
    std::array<std::map<std::string, std::string>, kKeys> m_expected;
};

}  // namespace

TEST_F(LargeStore, GivesItsValuesWhereverTheirLinesHaveGone) {
    const auto store = open();
    const auto other = open();
    ASSERT_TRUE(CFileStoreProbe(*store).tree().isLarge());
    std::deque<CRegKey> keys;
    std::deque<CRegKey> others;
    openAll(*store, keys);
    openAll(*other, others);
    expectAll(*store, keys);
    expectAll(*other, others);
    for (std::size_t round = 0; round < 3; ++round) {
        // More than the text bears before it is made anew, at another place.
        ASSERT_EQ(store->VQRegBeginUpdate(), REGLIB_OK);
        for (int change = 0; change < 3000; ++change) {
            const std::size_t key = random() % kKeys;
            const std::string name = valueName(static_cast<int>(random() % (kValues + 3)));
            set(*store, keys, key, name, std::string(random() % 300, 'x'));
        }
        ASSERT_EQ(store->VQRegEndUpdate(), REGLIB_OK);
        expectAll(*store, keys);
        expectAll(*other, others);
        set(*other, others, round, "value0", "other" + std::to_string(round));
        expectAll(*store, keys);
    }
}

TEST_F(LargeStore, TakesHandlesThatStandForNoKeyOfIt) {
    const auto store = open();
    std::deque<CRegKey> keys;
    openAll(*store, keys);
    CRegKey empty;
    EXPECT_EQ(get(*store, empty, "value0"), Value::failure(REGLIB_E_INVALID_HANDLE));
    std::string name;
    CRegLib::eDataType type = CRegLib::eNone;
    EXPECT_EQ(store->VQRegEnumValues(empty, 0, name, type), REGLIB_E_INVALID_HANDLE);

    // A key that is deleted while a handle has been used on it.
    CRegKey& key = keys[7];
    EXPECT_EQ(get(*store, key, "value0"), Value::ofText(firstText(7, 0)));
    for (int value = 0; value < kValues; ++value) {
        ASSERT_EQ(store->VQRegDeleteValue(key, valueName(value).c_str()), REGLIB_OK);
    }
    ASSERT_EQ(store->VQRegDeleteKey(*store->RootKey(), keyName(7).c_str()), REGLIB_OK);
    EXPECT_EQ(get(*store, key, "value0"), Value::failure(REGLIB_E_INVALID_HANDLE));
    EXPECT_EQ(store->VQRegEnumValues(key, 0, name, type), REGLIB_E_INVALID_HANDLE);

    // One whose store has gone, with all that it had in memory.
    CRegKey orphan;
    {
        const auto other = open();
        ASSERT_EQ(openKey(*other, keyName(8).c_str(), orphan), REGLIB_OK);
        EXPECT_EQ(get(*other, orphan, "value3"), Value::ofText(firstText(8, 3)));
    }
    EXPECT_EQ(get(*store, orphan, "value3"), Value::failure(REGLIB_E_INVALID_HANDLE));
}

// When so many have gone, their nodes are freed, and the handles are told.
TEST_F(LargeStore, TakesHandlesOfKeysThatAreNoLongerInMemory) {
    const auto store = open();
    std::deque<CRegKey> keys;
    std::deque<CRegKey> again;
    openAll(*store, keys);
    openAll(*store, again);
    ASSERT_EQ(store->VQRegBeginUpdate(), REGLIB_OK);
    for (std::size_t at = 0; at < kKeys - 1; ++at) {
        CRegKey& key = keys[at];
        for (int value = 0; value < kValues; ++value) {
            ASSERT_EQ(store->VQRegDeleteValue(key, valueName(value).c_str()), REGLIB_OK);
        }
        ASSERT_EQ(store->VQRegDeleteKey(*store->RootKey(), keyName(at).c_str()), REGLIB_OK);
    }
    ASSERT_EQ(store->VQRegEndUpdate(), REGLIB_OK);
    ASSERT_LT(CFileStoreProbe(*store).tree().size(), kKeys);
    for (std::size_t at = 0; at < kKeys - 1; ++at) {
        EXPECT_EQ(get(*store, again[at], "value0"), Value::failure(REGLIB_E_INVALID_HANDLE));
    }
    EXPECT_EQ(get(*store, again.back(), "value0"), Value::ofText(firstText(kKeys - 1, 0)));
}
