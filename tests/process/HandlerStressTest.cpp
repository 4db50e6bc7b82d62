// Everything that has to do with handlers at once, from many threads and processes.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "VQRegLib.h"
#include "support/Agent.h"
#include "support/WatchedStore.h"

using namespace VQRegLib;
using vqtest::Agent;
using vqtest::Handler;
using vqtest::moveFileTime;
using vqtest::numberOf;
using vqtest::openSession;
using vqtest::setNumber;
using vqtest::waitUntil;
using vqtest::waitWatchers;

namespace {

class HandlerStress : public vqtest::WatchedStore {
protected:
    void SetUp() override {
        ::alarm(100);  // a deadlock ends the process
        WatchedStore::SetUp();
    }

    void start(int rounds, const std::function<void(int round)>& work) {
        m_threads.emplace_back([rounds, work] {
            for (int round = 0; round < rounds; ++round) {
                work(round);
            }
        });
    }

    void join() {
        for (std::thread& thread : m_threads) {
            thread.join();
        }
        m_threads.clear();
    }

private:
    std::vector<std::thread> m_threads;
};

}  // namespace

TEST_F(HandlerStress, RegisteringSendingSettingAndOpeningAtOnce) {
    std::atomic<int> failures{0};
    std::atomic<int> calls{0};
    const auto expect = [&](bool isTrue) { failures += isTrue ? 0 : 1; };
    Handler steady([&] {
        ++calls;
        expect(numberOf(*session, "Number") >= 0);
        Handler passing;
        session->SetRegistryChangeHandler(&passing);
        session->SendRegistryChangeNotification();
        session->ClrRegistryChangeHandler(&passing);
    });
    watch(steady);
    for (int i = 0; i < 2; ++i) {
        start(300, [&](int) {
            Handler passing([&] { ++calls; });
            session->SetRegistryChangeHandler(&passing);
            session->ClrRegistryChangeHandler(&passing);
            expect(passing.begun() == passing.calls());
        });
        start(150, [&, i](int round) {
            const auto number = static_cast<unsigned long>(round);
            expect(setNumber(*session, i == 0 ? "Number" : "Other", number) == REGLIB_OK);
            moveFileTime(file.path());
        });
        start(150, [&](int) { expect(session->SendRegistryChangeNotification() == REGLIB_OK); });
        start(6, [&, i](int round) {
            const std::string root = "Root" + std::to_string(i);
            auto own = openSession(file.path(), root.c_str());
            Handler passing([&] { ++calls; });
            own->SetRegistryChangeHandler(&passing);
            expect(setNumber(*own, "Number", static_cast<unsigned long>(round)) == REGLIB_OK);
            expect(own->SendRegistryChangeNotification() == REGLIB_OK);
            own.reset();  // ends the watcher
            expect(passing.begun() == passing.calls());
        });
        start(100, [&](int) { expect(openSession(file.path(), "Passing")->RootKey() != nullptr); });
    }
    join();
    EXPECT_EQ(failures, 0);
    const int before = steady.calls();
    announceChange();
    EXPECT_TRUE(steady.waitCalls(before + 1)) << "it still works";
    session->ClrRegistryChangeHandler(&steady);
}

TEST_F(HandlerStress, ProcessesThatWatchAndNotifyEachOther) {
    std::vector<std::unique_ptr<Agent>> agents;
    for (int i = 0; i < 4; ++i) {
        agents.push_back(std::make_unique<Agent>(VQREG_AGENT_PATH));
        ASSERT_EQ(agents.back()->open(file.path()), REGLIB_OK);
        agents.back()->watch();
        ASSERT_TRUE(waitWatchers(1, agents.back()->pid()));
    }
    for (int round = 0; round < 30; ++round) {
        for (const auto& agent : agents) {
            agent->tell({"setd", ".", "Number", std::to_string(round)});
            agent->tell({round % 3 == 0 ? "unwatch" : "watch"});
            agent->tell({"send"});
        }
        moveFileTime(file.path());
        for (const auto& agent : agents) {
            for (int i = 0; i < 3; ++i) {
                ASSERT_EQ(agent->answer().code, REGLIB_OK);
            }
        }
    }
    for (const auto& agent : agents) {
        const std::uint64_t before = agent->changes();
        EXPECT_TRUE(waitUntil([&] {
            announceChange();
            return agent->changes() > before;
        }));
    }
}
