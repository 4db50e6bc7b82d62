#include "model/Watching.h"

#include <chrono>
#include <numeric>

#include "support/Handlers.h"
#include "support/Wait.h"

namespace vqtorture::model {

namespace {

using Calls = CountingHandler::Calls;

constexpr int kTimes = 6;
constexpr std::chrono::seconds kPatience{10};

// One may be under way when the witness comes, and another one when it is asked.
constexpr int kLooksBeside = 2;

int callsOf(const Calls& calls, std::thread::id thread) {
    const auto found = calls.find(thread);
    return found == calls.end() ? 0 : found->second;
}

int sumOf(const Calls& calls) {
    return std::accumulate(calls.begin(), calls.end(), 0,
                           [](int sum, const auto& one) { return sum + one.second; });
}

// A store that has had no handler before has its first look at any moment from now on, and tells of what
// comes after it: so the time is moved until it has been told of often enough.
void announce(VQRegLib::CRegLib& session, const std::string& path, const CountingHandler& witness) {
    bool isTold = true;
    for (int times = 1; times <= kTimes && isTold; ++times) {
        isTold = vqtest::waitUntil(
            [&] {
                vqtest::moveFileTime(path);
                session.SendRegistryChangeNotification();
                return sumOf(witness.calls()) >= times;
            },
            kPatience);
    }
}

const char* describe(int calls, int looks) {
    if (calls == 0) {
        return "not told";
    }
    return calls <= looks + kLooksBeside ? "told" : "told more often than there were changes";
}

}  // namespace

void CountingHandler::OnRegistryChange() {
    const std::lock_guard lock(m_mutex);
    ++m_calls[std::this_thread::get_id()];
}

Calls CountingHandler::calls() const {
    const std::lock_guard lock(m_mutex);
    return m_calls;
}

vqtest::Fields lookWhoIsTold(VQRegLib::CRegLib& session, const std::string& path,
                             const std::array<CountingHandler, kChangeHandlers>& handlers) {
    CountingHandler witness;
    session.SetRegistryChangeHandler(&witness);
    std::array<Calls, kChangeHandlers> before;
    for (std::size_t i = 0; i < handlers.size(); ++i) {
        before[i] = handlers[i].calls();
    }
    announce(session, path, witness);
    std::array<Calls, kChangeHandlers> after;
    for (std::size_t i = 0; i < handlers.size(); ++i) {
        after[i] = handlers[i].calls();
    }
    const Calls looks = witness.calls();
    session.ClrRegistryChangeHandler(&witness);
    if (looks.size() != 1) {
        return {"told by " + std::to_string(looks.size()) + " threads"};
    }
    const auto& [thread, count] = *looks.begin();
    vqtest::Fields seen;
    for (std::size_t i = 0; i < handlers.size(); ++i) {
        seen.emplace_back(describe(callsOf(after[i], thread) - callsOf(before[i], thread), count));
    }
    return seen;
}

}  // namespace vqtorture::model
