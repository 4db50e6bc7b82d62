// The public types that need no store.
#include <gtest/gtest.h>

#include <memory>
#include <type_traits>

#include "VQRegLib.h"

using VQRegLib::CRegistryChangeHandler;
using VQRegLib::CRegKey;
using VQRegLib::CRegLib;

namespace {

class Handler : public CRegistryChangeHandler {
public:
    Handler(int& calls, int& deaths) : m_calls(calls), m_deaths(deaths) {}
    ~Handler() override { ++m_deaths; }
    void OnRegistryChange() override { ++m_calls; }

private:
    int& m_calls;
    int& m_deaths;
};

}  // namespace

TEST(EmptyKey, HasNoNamesAndNoId) {
    const CRegKey key;
    EXPECT_EQ(key.GetKeyName(), nullptr);
    EXPECT_EQ(key.GetKeyFullName(), nullptr);
    EXPECT_EQ(key.GetKeyHandleID(), 0u);
}

TEST(EmptyKey, IsOnePointerWithAVirtualDestructor) {
    EXPECT_TRUE(std::has_virtual_destructor_v<CRegKey>);
    EXPECT_TRUE(std::has_virtual_destructor_v<CRegLib>);
    EXPECT_FALSE(std::is_copy_constructible_v<CRegKey>);
    EXPECT_FALSE(std::is_copy_assignable_v<CRegKey>);
    EXPECT_EQ(sizeof(CRegKey), 2 * sizeof(void*));
}

TEST(ChangeHandler, IsCalledAndDestroyedThroughItsBase) {
    int calls = 0;
    int deaths = 0;
    std::unique_ptr<CRegistryChangeHandler> handler = std::make_unique<Handler>(calls, deaths);
    handler->OnRegistryChange();
    EXPECT_EQ(calls, 1);
    handler.reset();
    EXPECT_EQ(deaths, 1);
    EXPECT_TRUE(std::is_abstract_v<CRegistryChangeHandler>);
    EXPECT_EQ(sizeof(CRegistryChangeHandler), sizeof(void*));
}
