// Operations of destructors that run because an exception passes, or because a thread is ended.
#include <pthread.h>

#include <cstdio>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ends/Checks.h"
#include "support/Agent.h"
#include "support/Handlers.h"
#include "support/Sessions.h"
#include "support/TempStore.h"

namespace vqtorture {

namespace {

using VQRegLib::REGLIB_OK;
using vqtest::CRegLib;

constexpr std::uint64_t kNames = 6;
constexpr int kDeepest = 6;

// Does something when its scope is left.
class AtLeaving {
public:
    explicit AtLeaving(std::function<void()> action) : m_action(std::move(action)) {}
    ~AtLeaving() { m_action(); }
    AtLeaving(const AtLeaving&) = delete;
    AtLeaving& operator=(const AtLeaving&) = delete;

private:
    std::function<void()> m_action;
};

struct Thrown : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// One descent into scopes, which are all left at once.
class Descent {
public:
    Descent(Run& run, const vqtest::TempStore& store, CRegLib& session,
            std::map<std::string, long>& numbers)
        : m_run(run), m_store(store), m_session(session), m_numbers(numbers) {}

    // How the innermost scope is left.
    std::function<void()> leave;

    int failures() const { return m_failures; }

    void descend(int depth) {
        if (depth == 0) {
            leave();
        } else if (m_run.below(3) == 0) {
            ++m_updates;
            const AtLeaving out([this] { --m_updates; });
            VQRegLib::CRegUpdate update(m_session);
            expect(update.result() == REGLIB_OK);
            const AtLeaving inside([this] { set(); });
            descend(depth - 1);
        } else {
            vqtest::CRegKey key;
            expect(m_session.VQRegCreateKey(nullptr, "Kept", key, 1) == REGLIB_OK);
            const AtLeaving action(randomAction());
            descend(depth - 1);
        }
    }

private:
    void expect(bool holds) { m_failures += holds ? 0 : 1; }

    std::string randomName() {
        return std::string(1, static_cast<char>('A' + m_run.below(kNames)));
    }

    void set() {
        const std::string name = randomName();
        const long number = static_cast<long>(m_run.below(1'000'000));
        m_run.add("operations");
        expect(vqtest::setNumber(m_session, name.c_str(), static_cast<unsigned long>(number)) ==
               REGLIB_OK);
        m_numbers[name] = number;
    }

    void query() {
        const std::string name = randomName();
        const auto known = m_numbers.find(name);
        m_run.add("operations");
        expect(vqtest::numberOf(m_session, name.c_str()) ==
               (known == m_numbers.end() ? -1 : known->second));
    }

    // It needs the lock, and makes the file again.
    void queryOfMissing() {
        if (m_updates == 0) {
            std::remove(m_store.path().c_str());
            expect(m_session.VQRegReload() == REGLIB_OK);
            query();
            expect(m_store.exists());
        }
    }

    void remove() {
        const std::string name = randomName();
        m_run.add("operations");
        expect((m_session.VQRegDeleteValue(*m_session.RootKey(), name.c_str()) == REGLIB_OK) ==
               (m_numbers.erase(name) == 1));
    }

    // Not in an update.
    void open() {
        if (m_updates == 0) {
            m_run.add("operations");
            const auto other = vqtest::openSession(m_store.path(), "vELQUIST");
            expect(other->RootKey() != nullptr);
        }
    }

    void registration() {
        if (m_updates == 0) {
            m_run.add("operations");
            vqtest::Handler handler;
            m_session.SetRegistryChangeHandler(&handler);
            expect(m_session.SendRegistryChangeNotification() == REGLIB_OK);
            m_session.ClrRegistryChangeHandler(&handler);
        }
    }

    // While the outer one is on its way.
    void throwAndCatch() {
        try {
            const AtLeaving action([this] { set(); });
            throw Thrown("inner");
        } catch (const Thrown&) {
            set();
        }
    }

    std::function<void()> randomAction() {
        using Action = void (Descent::*)();
        constexpr Action kActions[] = {
            &Descent::set,    &Descent::set,  &Descent::query,        &Descent::queryOfMissing,
            &Descent::remove, &Descent::open, &Descent::registration, &Descent::throwAndCatch};
        const Action action = kActions[m_run.below(std::size(kActions))];
        return [this, action] { (this->*action)(); };
    }

    Run& m_run;
    const vqtest::TempStore& m_store;
    CRegLib& m_session;
    std::map<std::string, long>& m_numbers;
    int m_updates = 0;
    int m_failures = 0;
};

void leaveByException(Descent& descent, int depth) {
    descent.leave = [] { throw Thrown("outer"); };
    try {
        descent.descend(depth);
    } catch (const Thrown&) {
        // all scopes are left
    }
}

void leaveByEndOfThread(Descent& descent, int depth, bool isCancelled) {
    descent.leave = [isCancelled] {
        if (isCancelled) {
            pthread_cancel(pthread_self());
            pthread_testcancel();
        }
        pthread_exit(nullptr);
    };
    std::thread([&] { descent.descend(depth); }).join();
}

// By another thread, and by another process: no lock is left, and no update.
void judge(CRegLib& session, vqtest::Agent& agent, std::map<std::string, long>& numbers) {
    const auto number = numbers["A"] + 1;
    int code = REGLIB_OK;
    std::thread([&] {
        code = vqtest::setNumber(session, "A", static_cast<unsigned long>(number));
    }).join();
    require(code == REGLIB_OK, "another thread is refused a set");
    numbers["A"] = number;
    require(session.VQRegEndUpdate() == VQRegLib::REGLIB_E_FAIL, "an update is left");
    require(agent.set(".", "Agent", 1u) == REGLIB_OK, "another process is refused a set");
    for (const auto& [name, known] : numbers) {
        require(agent.get(".", name).dword() == static_cast<std::uint32_t>(known),
                "another process sees another " + name);
    }
}

}  // namespace

void useWhileUnwinding(Run& run) {
    const vqtest::TempStore store(run.directory());
    vqtest::Agent agent(VQREG_AGENT_PATH);
    require(agent.open(store.path()) == REGLIB_OK, "the agent cannot open it");
    const auto session = vqtest::openSession(store.path());
    std::map<std::string, long> numbers;
    for (std::uint64_t i = 0; i < run.count(); ++i) {
        Descent descent(run, store, *session, numbers);
        const int depth = 1 + static_cast<int>(run.below(kDeepest));
        const std::uint64_t way = run.below(4);
        if (way < 2) {
            leaveByException(descent, depth);
        } else {
            leaveByEndOfThread(descent, depth, way == 2);
        }
        run.add("unwindings");
        require(descent.failures() == 0,
                "an operation fails in unwinding " + std::to_string(i + 1));
        judge(*session, agent, numbers);
    }
}

}  // namespace vqtorture
