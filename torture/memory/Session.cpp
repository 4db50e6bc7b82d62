// Operations of VQRegLib.h without memory.
#include <algorithm>
#include <atomic>
#include <thread>

#include "memory/Allocations.h"
#include "memory/Subject.h"
#include "support/Torture.h"
#include "support/Wait.h"

namespace vqtorture {

using namespace VQRegLib;

namespace {

// Once there is memory, a handler is called again; only where there was none for its thread it is not.
void requireHandlers(Scene& scene, bool isNewStore) {
    vqtest::Handler second;
    scene.session->SetRegistryChangeHandler(&second);
    settle();
    require(vqtest::countThreads("RegChgNotif") == 1, "there is no notifier");
    if (isNewStore || vqtest::countThreads("FileWatch") == 1) {
        vqtest::moveFileTime(scene.path);
        require(scene.session->SendRegistryChangeNotification() == REGLIB_OK, "it cannot notify");
        require(second.waitCalls(1), "a handler is not called");
    }
    scene.session->ClrRegistryChangeHandler(&second);
}

class SessionSubject : public Subject {
public:
    SessionSubject(const Operation& operation, const std::string& path)
        : m_operation(operation), m_scene(path, operation.root) {}

    void prepare() override {
        if (m_operation.use == SessionUse::eUses) {
            m_scene.open();
        }
        if (m_operation.prepare) {
            m_operation.prepare(m_scene);
        }
    }

    int act() override {
        try {
            return m_operation.act(m_scene);
        } catch (const VQException& exception) {
            const Plenty plenty;
            require(m_operation.mayThrow, "it throws VQException");
            require(exception.m_lCode == REGLIB_E_FAIL,
                    "it throws " + std::to_string(exception.m_lCode));
            m_hasThrown = true;
            return REGLIB_E_FAIL;
        }
    }

    void comeOn(Outcome& /*outcome*/) override {
        if (m_hasThrown) {
            m_scene.session.reset();  // nobody else can enter it
        }
        const bool isNewStore = !m_scene.session;
        vqtorture::comeOn(m_scene);
        if (m_operation.hasThreads) {
            requireHandlers(m_scene, isNewStore);
        }
    }

private:
    const Operation& m_operation;
    Scene m_scene;
    bool m_hasThrown = false;
};

// All threads but the calling one wait for something.
bool areOthersAsleep() {
    const std::vector<vqtest::ThreadInfo> all = vqtest::threads();
    return std::count_if(all.begin(), all.end(),
                         [](const vqtest::ThreadInfo& thread) { return thread.state != 'S'; }) <= 1;
}

}  // namespace

void check(bool holds, const char* what) {
    if (!holds) {
        const Plenty plenty;
        throw Violation(what);
    }
}

void settle() {
    const Plenty plenty;
    int looks = 0;
    require(vqtest::waitUntil([&] {
                looks = areOthersAsleep() ? looks + 1 : 0;
                return looks == 3;
            }),
            "the threads do not come to rest");
}

void requireEntrance(const std::function<int()>& call, int expected) {
    struct Answer {
        std::atomic<bool> isThere{false};
        int code = 0;
    };
    const auto answer = std::make_shared<Answer>();
    std::thread other([answer, call] {
        answer->code = call();
        answer->isThere = true;
    });
    if (!vqtest::waitUntil([&] { return answer->isThere.load(); })) {
        other.detach();
        throw Violation("another thread does not get in");
    }
    other.join();
    require(answer->code == expected, "another thread gets " + std::to_string(answer->code));
}

void requireWritten(const Operation& operation, const std::string& path) {
    const std::string text = vqtest::readFile(path);
    const bool isWritten =
        text == operation.after || text == withNumber(operation.after, "B", kWitnesses);
    require(isWritten, "the same again and an update have written\n" + text);
}

std::vector<Tried> ofSessions(const std::vector<Operation>& operations) {
    std::vector<Tried> all;
    for (const Operation& each : operations) {
        all.push_back({each, [](const Operation& operation, const std::string& path) {
                           return std::make_unique<SessionSubject>(operation, path);
                       }});
    }
    return all;
}

}  // namespace vqtorture
