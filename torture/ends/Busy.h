// Threads that use stores all the time.
#ifndef VQTORTURE_ENDS_BUSY_H
#define VQTORTURE_ENDS_BUSY_H

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/Handlers.h"
#include "support/Sessions.h"

namespace vqtorture {

/// Until it is destroyed: one thread that sets, one that queries, one that registers and clears handlers,
/// each on a store of its own below the directory, and if wanted one that opens and closes sessions.
class BusyThreads {
public:
    BusyThreads(const std::string& directory, bool alsoOpening) {
        start(directory + "/sets.cfg", [this](vqtest::CRegLib& session) {
            count(vqtest::setNumber(session, "Number", ++m_number) == VQRegLib::REGLIB_OK);
        });
        start(directory + "/queries.cfg", [this](vqtest::CRegLib& session) {
            count(vqtest::numberOf(session, "Number") == 1);
        });
        start(directory + "/handlers.cfg", [this](vqtest::CRegLib& session) {
            vqtest::Handler handler;
            session.SetRegistryChangeHandler(&handler);
            count(session.SendRegistryChangeNotification() == VQRegLib::REGLIB_OK);
            session.ClrRegistryChangeHandler(&handler);
        });
        if (alsoOpening) {
            const std::string path = directory + "/openings.cfg";
            start(path, [this, path](vqtest::CRegLib&) {
                count(vqtest::openSession(path, "Opened")->RootKey() != nullptr);
            });
        }
    }
    ~BusyThreads() {
        m_isDone = true;
        for (std::thread& thread : m_threads) {
            thread.join();
        }
    }
    BusyThreads(const BusyThreads&) = delete;
    BusyThreads& operator=(const BusyThreads&) = delete;

    long turns() const { return m_turns; }
    int failures() const { return m_failures; }

private:
    void start(const std::string& path, const std::function<void(vqtest::CRegLib&)>& turn) {
        m_sessions.push_back(vqtest::openSession(path));
        vqtest::CRegLib& session = *m_sessions.back();
        count(session.RootKey() != nullptr && vqtest::setNumber(session, "Number", 1) >= 0);
        m_threads.emplace_back([this, &session, turn] {
            while (!m_isDone) {
                turn(session);
                ++m_turns;
            }
        });
    }

    void count(bool holds) { m_failures += holds ? 0 : 1; }

    std::atomic<bool> m_isDone{false};
    std::atomic<long> m_turns{0};
    std::atomic<int> m_failures{0};
    std::atomic<unsigned long> m_number{1};
    std::vector<std::unique_ptr<vqtest::CRegLib>> m_sessions;
    std::vector<std::thread> m_threads;
};

}  // namespace vqtorture

#endif  // VQTORTURE_ENDS_BUSY_H
