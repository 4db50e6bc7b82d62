// What reads and writes while nobody else can change the store, through VQRegStore.h.
#include <memory>
#include <stdexcept>

#include "store/CxxStoreFixture.h"

namespace {

class StoreExclusively : public vqtest::CxxStoreTest {
protected:
    vqreg::Store store = open();
    vqreg::Key key = store.create("K");
};

}  // namespace

TEST_F(StoreExclusively, ReadsAndWritesWithoutALoss) {
    constexpr int kTimes = 100;
    const auto count = [this] {
        const vqreg::Store own = open();
        vqreg::Key counter = own.create("K");
        for (int i = 0; i < kTimes; ++i) {
            own.exclusively([&] { counter.set("Count", counter.get_or("Count", 0) + 1); });
        }
        return 0;
    };
    vqtest::ForkedChild one(count);
    vqtest::ForkedChild two(count);
    EXPECT_EQ(one.wait(), 0);
    EXPECT_EQ(two.wait(), 0);
    EXPECT_EQ(key.get<int>("Count"), 2 * kTimes);
    EXPECT_EQ(store.exclusively([&] { return *key.get<int>("Count"); }), 2 * kTimes);
}

// A reference stays one, and what can only be moved is moved.
TEST_F(StoreExclusively, ReturnsWhatItsFunctionReturns) {
    int number = 1;
    const auto reference = [&]() -> int& { return number; };
    static_assert(std::is_same_v<decltype(store.exclusively(reference)), int&>);
    EXPECT_EQ(&store.exclusively(reference), &number);
    const std::string text(100, 'x');
    const auto constant = [&]() -> const std::string& { return text; };
    EXPECT_EQ(&store.exclusively(constant), &text);
    auto pointer = std::make_unique<int>(5);
    EXPECT_EQ(*store.exclusively([&] { return std::move(pointer); }), 5);
    std::string moved(100, 'y');
    const auto rvalue = [&]() -> std::string&& { return std::move(moved); };
    EXPECT_EQ(std::string(store.exclusively(rvalue)), std::string(100, 'y'));
}

TEST_F(StoreExclusively, MayCommitAndThrow) {
    vqreg::Update update(store);
    update.set(key, "V", 1);
    update.set("K", "W", 2);
    const std::string before = file.read();
    EXPECT_THROW(store.exclusively([&] {
        update.commit();
        EXPECT_TRUE(update.empty());
        EXPECT_EQ(file.read(), before) << "one write, at the end";
        throw std::runtime_error("in the middle");
    }),
                 std::runtime_error);
    EXPECT_EQ(key.get<int>("W"), 2);
    EXPECT_NE(file.read(), before) << "what has been done stays";
}
