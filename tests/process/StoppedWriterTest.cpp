// A process that is stopped while it changes a store, wherever that is, holds up nobody who reads.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
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

constexpr unsigned kLookSeconds = 25;  // for all looks at one stop; an order to an agent has 20
constexpr int kStopsOfAProgram = 8;    // a program is started at one of so many
constexpr Sight kBefore{1, 1, false};

class StoppedWriter : public testing::Test {
protected:
    void SetUp() override {
        if (!SteppedChild::isPermitted()) {
            GTEST_SKIP() << "a process may not trace its child here";
        }
        vqtest::writeStore(store, kBefore);
        witnesses.emplace(store.path());
    }

    // Each look finds all of the change or nothing, and what once was seen is seen by all from then on.
    void lookAtStop(int stop, const Sight& after) {
        witnesses->look(stop % kStopsOfAProgram == 0, [&](const char* who, const Sight& sight) {
            ASSERT_TRUE(sight == after || (sight == kBefore && !isSeen))
                << who << " at stop " << stop << " sees " << sight
                << (isSeen ? " after another one saw the change" : "");
            isSeen = isSeen || sight == after;
        });
    }

    // `change` is what the child does to the store.
    template <typename Change>
    void stopEverywhere(const Sight& after, Change change) {
        SteppedChild child([&](auto begin) {
            CRegLib& session = vqtest::sessionOfChild(store.path());
            begin();
            return change(session) >= 0 ? 0 : 1;
        });
        int stops = 0;
        while (child.step() && !HasFatalFailure()) {
            const SteppedChildGuard guard(child, kLookSeconds);
            lookAtStop(++stops, after);
            ASSERT_FALSE(guard.isTooLate()) << "somebody waited for the writer at stop " << stops;
        }
        ASSERT_EQ(child.status(), 0);
        EXPECT_GT(stops, 20) << "the change was not stepped through";
        lookAtStop(0, after);
        EXPECT_TRUE(isSeen);
        EXPECT_EQ(store.read(), after.text());
    }

    // Leaves the mark of a writer that has died before it touched the store's file.
    void killBeforeReplacement() {
        SteppedChild child([&](auto begin) {
            CRegLib& session = vqtest::sessionOfChild(store.path());
            begin();
            return vqtest::setNumber(session, "A", 9) >= 0 ? 0 : 1;
        });
        std::uint64_t number = 0;
        std::uint64_t argument = 0;
        while (child.step() && !(child.isEntering(number, argument) && isRename(number))) {
        }
        ASSERT_EQ(child.kill(), -SIGKILL) << "no file was renamed";
        ASSERT_EQ(store.read(), kBefore.text());
    }

    static bool isRename(std::uint64_t number) {
#ifdef SYS_rename
        return number == SYS_rename || number == SYS_renameat2;
#else
        return number == SYS_renameat || number == SYS_renameat2;
#endif
    }

    TempStore store;
    std::optional<Witnesses> witnesses;
    bool isSeen = false;  // the change, by any process
};

}  // namespace

TEST_F(StoppedWriter, AnywhereInASetHoldsUpNoReader) {
    stopEverywhere({2, 1, false},
                   [](CRegLib& session) { return vqtest::setNumber(session, "A", 2); });
}

TEST_F(StoppedWriter, AnywhereInAnUpdateHoldsUpNoReaderAndShowsNoHalf) {
    stopEverywhere({2, 2, false}, [](CRegLib& session) {
        CRegUpdate update(session);
        const int first = vqtest::setNumber(session, "A", 2);
        const int second = vqtest::setNumber(session, "B", 2);
        return first < 0 || second < 0 ? -1 : update.end();
    });
}

TEST_F(StoppedWriter, AfterTheDeathOfAnotherHoldsUpNoReader) {
    killBeforeReplacement();
    lookAtStop(0, kBefore);
    isSeen = false;
    stopEverywhere({2, 1, false},
                   [](CRegLib& session) { return vqtest::setNumber(session, "A", 2); });
}

TEST_F(StoppedWriter, AnywhereInAKeysCreationHoldsUpNoReader) {
    stopEverywhere({1, 1, true}, [](CRegLib& session) {
        CRegKey key;
        return session.VQRegCreateKey(nullptr, "New", key, 1);
    });
}

TEST_F(StoppedWriter, AnywhereInTheOpeningOfASessionHoldsUpNoReader) {
    stopEverywhere(kBefore, [this](CRegLib&) {
        return vqtest::openSession(store.path(), "vElquist").release()->RootKey() ? 0 : -1;
    });
}

TEST_F(StoppedWriter, AnywhereInAnOpeningThatAddsTheRootKeyHoldsUpNoReader) {
    Sight after = kBefore;
    after.isNewThere = true;
    stopEverywhere(after, [this](CRegLib&) {
        return vqtest::openSession(store.path(), "Velquist/New").release()->RootKey() ? 0 : -1;
    });
}

namespace {

// Children that open one store each, the first of all processes to do so; each is stopped at another
// place. They inherit the trace options, which else each would read from one store of the machine.
class StoppedOpeners {
public:
    StoppedOpeners() {
        bool isLast = false;
        for (int stops = 1; !isLast && stops < kMostStops; ++stops) {
            m_stores.emplace_back();
            vqtest::writeStore(m_stores.back(), kBefore);
            const std::string path = m_stores.back().path();
            m_children.emplace_back([&](auto begin) {
                begin();
                return vqtest::openSession(path).release()->RootKey() ? 0 : 1;
            });
            isLast = !m_children.back().step(stops);
        }
    }

    std::deque<TempStore>& stores() { return m_stores; }
    std::deque<SteppedChild>& children() { return m_children; }

private:
    static constexpr int kMostStops = 400;  // many more than an opening makes

    const TempStore m_ownStore;
    const std::unique_ptr<CRegLib> m_own = vqtest::openSession(m_ownStore.path());
    std::deque<TempStore> m_stores;
    std::deque<SteppedChild> m_children;
};

}  // namespace

// What all processes share has to be made by one of them. Others wait for it, but not for ever.
TEST(StoppedFirstOpener, KeepsNobodyWaitingForEver) {
    if (!SteppedChild::isPermitted()) {
        GTEST_SKIP() << "a process may not trace its child here";
    }
    StoppedOpeners openers;
    EXPECT_GT(openers.children().size(), 20u);
    EXPECT_EQ(openers.children().back().status(), 0);
    std::deque<vqtest::ForkedChild> others;
    const pid_t parent = getpid();
    for (const TempStore& store : openers.stores()) {
        others.emplace_back([&] {
            vqtest::endWithParent(parent, 40);
            const auto session = vqtest::openSession(store.path());
            return !session->RootKey() || vqtest::lookThrough(*session) == kBefore ? 0 : 1;
        });
    }
    for (std::size_t i = 0; i < others.size(); ++i) {
        EXPECT_EQ(others[i].wait(), 0) << "stop " << i + 1;
    }
    for (std::size_t i = 0; i < others.size(); ++i) {
        openers.children()[i].kill();
        EXPECT_EQ(vqtest::lookFromChild(openers.stores()[i].path()), kBefore) << "stop " << i + 1;
        EXPECT_EQ(openers.stores()[i].read(), kBefore.text());
    }
}
