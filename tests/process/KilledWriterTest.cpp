// A process that is killed while it changes a store, wherever that is, leaves one complete text to
// everybody, and no lock.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <random>
#include <string>

#include "VQRegLib.h"
#include "support/Sight.h"
#include "support/SteppedChild.h"
#include "support/TempStore.h"

using namespace VQRegLib;
using vqtest::Sight;
using vqtest::SteppedChild;
using vqtest::SteppedChildGuard;
using vqtest::TempStore;
using vqtest::Witnesses;

namespace {

constexpr unsigned kLookSeconds = 25;
constexpr int kStopsOfAProgram = 8;  // a program is started after one of so many deaths
constexpr auto kWholeBudget = std::chrono::seconds(20);

// Which of the stops are tried: all of them, and where that takes long, fewer and fewer.
class Stops {
public:
    int next() {
        const auto spent = std::chrono::steady_clock::now() - m_start;
        return m_stop += 1 + static_cast<int>(spent / kWholeBudget);
    }

private:
    const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    int m_stop = 0;
};

bool isTextOneOf(const TempStore& store, const Sight& one, const Sight& other) {
    const std::string text = store.read();
    return text == one.text() || text == other.text();
}

class KilledWriter : public testing::Test {
protected:
    void SetUp() override {
        if (!SteppedChild::isPermitted()) {
            GTEST_SKIP() << "a process may not trace its child here";
        }
        vqtest::writeStore(store, now);
        witnesses.emplace(store.path());
    }

    // Everybody sees one and the same, and that is in the file.
    void expectOneSight(int stop, const Sight& after, bool isAcknowledged) {
        std::optional<Sight> first;
        witnesses->look(stop % kStopsOfAProgram == 0, [&](const char* who, const Sight& sight) {
            ASSERT_TRUE(sight == after || (sight == now && !isAcknowledged)) << who << " " << sight;
            ASSERT_TRUE(!first || *first == sight) << who << " sees " << sight;
            first = sight;
        });
        ASSERT_TRUE(first);
        now = *first;
        EXPECT_EQ(store.read(), now.text());
    }

    // Others change the store as if nothing had been.
    void expectOthersWrite() {
        ASSERT_TRUE(store.isUnlocked());
        ASSERT_EQ(witnesses->agent().set(".", "A", static_cast<std::uint32_t>(++now.a)), REGLIB_OK);
        ASSERT_EQ(store.read(), now.text());
        ASSERT_EQ(vqtest::lookThrough(witnesses->session()), now);
        ASSERT_EQ(vqtest::setNumber(witnesses->session(), "B", static_cast<unsigned long>(++now.b)),
                  REGLIB_OK);
        ASSERT_EQ(vqtest::lookThrough(witnesses->agent()), now);
    }

    // One child begins a change from `now` to `after` and is killed where `stop` leaves it. False when
    // it has come to its end.
    template <typename Change, typename Step>
    bool killOne(int round, const Sight& after, Change change, Step step) {
        vqtest::Common<std::atomic<bool>> isAcknowledged;
        SteppedChild child([&](auto begin) {
            CRegLib& session = vqtest::sessionOfChild(store.path());
            begin();
            *isAcknowledged = change(session, after) >= 0;
            return 0;
        });
        const bool isAlive = step(child);
        child.kill();
        EXPECT_TRUE(isTextOneOf(store, now, after)) << store.read();
        const SteppedChildGuard guard(child, kLookSeconds);
        expectOneSight(round, after, *isAcknowledged);
        EXPECT_FALSE(guard.isTooLate());
        expectOthersWrite();
        EXPECT_FALSE(guard.isTooLate());
        return isAlive;
    }

    // `change` makes the second sight of the first.
    template <typename After, typename Change>
    void killEverywhere(After afterOf, Change change) {
        Stops stops;
        int stop = 0;
        bool isAlive = true;
        while (isAlive && !HasFailure()) {
            stop = stops.next();
            SCOPED_TRACE("killed at stop " + std::to_string(stop));
            isAlive = killOne(stop, afterOf(now), change,
                              [&](SteppedChild& child) { return child.step(stop); });
        }
        EXPECT_GT(stop, 20) << "the change was not stepped through";
    }

    TempStore store;
    Sight now{1, 1, false};
    std::optional<Witnesses> witnesses;
};

int setA(CRegLib& session, const Sight& after) {
    return vqtest::setNumber(session, "A", static_cast<unsigned long>(after.a));
}

int setBoth(CRegLib& session, const Sight& after) {
    CRegUpdate update(session);
    const int first = setA(session, after);
    const int second = vqtest::setNumber(session, "B", static_cast<unsigned long>(after.b));
    return first < 0 || second < 0 ? -1 : update.end();
}

Sight withNextA(const Sight& now) {
    return {now.a + 1, now.b, now.isNewThere};
}

Sight withNextOfBoth(const Sight& now) {
    return {now.a + 1, now.b + 1, now.isNewThere};
}

}  // namespace

TEST_F(KilledWriter, AnywhereInASetLeavesOneTextAndNoLock) {
    killEverywhere(withNextA, setA);
}

TEST_F(KilledWriter, AnywhereInAnUpdateLeavesAllOrNothingOfIt) {
    killEverywhere(withNextOfBoth, setBoth);
}

TEST_F(KilledWriter, BetweenAnyTwoInstructionsLeavesOneText) {
    constexpr int kRounds = 60;
    constexpr int kMostInstructions = 1000;
    std::minstd_rand random(1);
    const auto end = std::chrono::steady_clock::now() + kWholeBudget;
    int deaths = 0;
    for (int round = 1; round <= kRounds && !HasFailure() && std::chrono::steady_clock::now() < end;
         ++round) {
        const int stops = 1 + static_cast<int>(random() % 80);
        const int instructions = static_cast<int>(random() % kMostInstructions);
        SCOPED_TRACE("killed " + std::to_string(instructions) + " instructions after stop " +
                     std::to_string(stops));
        deaths += killOne(round, withNextOfBoth(now), setBoth, [&](SteppedChild& child) {
            return child.step(stops) && child.stepInstructions(instructions);
        });
    }
    EXPECT_GT(deaths, 0);
}

// A process that opens a store is killed at `stop`. What is there afterwards is `sight`, or what the
// next process makes where there was no file.
class KilledOpener : public testing::Test {
protected:
    void SetUp() override {
        if (!SteppedChild::isPermitted()) {
            GTEST_SKIP() << "a process may not trace its child here";
        }
    }

    static bool killOpener(const TempStore& store, int stop) {
        SteppedChild child([&](auto begin) {
            begin();
            return vqtest::openSession(store.path()).release()->RootKey() ? 0 : 1;
        });
        const bool isAlive = child.step(stop);
        const int status = child.kill();
        EXPECT_TRUE(isAlive || status == 0) << status;
        return isAlive;
    }

    // Whoever comes next opens and changes the store, and the one after him sees it.
    static void expectOpens(const TempStore& store, const std::string& text) {
        vqtest::Agent next(VQREG_AGENT_PATH);
        ASSERT_EQ(next.open(store.path()), REGLIB_OK);
        ASSERT_EQ(store.read(), text);
        ASSERT_TRUE(store.isUnlocked());
        ASSERT_EQ(next.set(".", "A", 5u), REGLIB_OK);
        ASSERT_EQ(vqtest::numberOf(*vqtest::openSession(store.path()), "A"), 5);
    }

    // Of a new store each time, made by `prepare`.
    template <typename Prepare>
    static void killEverywhere(const std::string& text, Prepare prepare) {
        Stops stops;
        int stop = 0;
        bool isAlive = true;
        while (isAlive && !HasFailure()) {
            stop = stops.next();
            SCOPED_TRACE("killed at stop " + std::to_string(stop));
            const TempStore store;
            prepare(store);
            isAlive = killOpener(store, stop);
            expectOpens(store, text);
        }
        EXPECT_GT(stop, 20) << "the opening was not stepped through";
    }
};

TEST_F(KilledOpener, OfAMissingStoreLeavesOneThatOpens) {
    killEverywhere("[Velquist]\n", [](const TempStore&) {});
}

TEST_F(KilledOpener, OfAStoreThatNobodyHasOpenLeavesItsTextAlone) {
    constexpr Sight kSight{1, 1, false};
    killEverywhere(kSight.text(),
                   [&](const TempStore& store) { vqtest::writeStore(store, kSight); });
}
