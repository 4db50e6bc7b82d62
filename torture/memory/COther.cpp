// Calls of vqreg.h on whole stores, of its sentences, and of watches; and what must hold after any of them.
#include <poll.h>

#include <cstring>

#include "memory/CScene.h"
#include "memory/CallTexts.h"
#include "memory/Subject.h"

namespace vqtorture {

namespace {

// "There is no store" has no other reason here.
int openStore(CScene& scene) {
    const int code = scene.open();
    check((scene.store != nullptr) == (code == VQREG_OK), "a store and a failure");
    return code == VQREG_E_NOT_INITIALIZED ? VQREG_E_FAIL : code;
}

int openRefused(CScene& scene) {
    int code = VQREG_OK;
    check(!vqreg_open(scene.path.c_str(), "two\nlines", &code), "a store without a name");
    return endsWith(VQREG_E_NOT_STORABLE, code);
}

int closeStore(CScene& scene) {
    scene.close();
    return VQREG_OK;
}

void openAll(CScene& scene) {
    require(vqreg_open_key(scene.store, "Key", 0, &scene.key) == VQREG_OK, "there is no key");
    scene.watch = vqreg_watch_open(scene.store, "Key", nullptr);
    require(scene.watch != nullptr, "there is no watch");
}

// Says less without memory.
int why(CScene& /*scene*/) {
    char text[64] = "";
    const size_t length = vqreg_why("/no/such/directory/store.cfg", text, sizeof text);
    check((length == 0) == (*text == '\0'), "a sentence without a length");
    return length == 0 ? VQREG_E_FAIL : VQREG_OK;
}

int which(CScene& scene) {
    char path[300] = "";
    const size_t length = vqreg_which(scene.path.c_str(), path, sizeof path);
    check(length == 0 || scene.path == path, "another path");
    return length == 0 ? VQREG_E_FAIL : VQREG_OK;
}

// Who asks goes by whether there is a sentence.
int whyNotStorable(CScene& scene) {
    char text[300] = "";
    check(vqreg_why_not_storable(scene.store, "Key", "two\nlines", VQREG_BINARY, nullptr, 0, text,
                                 sizeof text) != 0,
          "a name that cannot be stored is taken for one that can");
    check(vqreg_why_not_storable(scene.store, "Key", "a name that is good", VQREG_BINARY, nullptr,
                                 0, text, sizeof text) == 0,
          "a name that can be stored is taken for one that cannot");
    return VQREG_OK;
}

int openWatch(CScene& scene) {
    vqreg_watch_close(scene.watch);
    int code = VQREG_OK;
    scene.watch = vqreg_watch_open(scene.store, "Key", &code);
    check((scene.watch != nullptr) == (code == VQREG_OK), "a watch and a failure");
    return code;
}

void watchAChange(CScene& scene) {
    scene.watch = vqreg_watch_open(scene.store, nullptr, nullptr);
    require(scene.watch && vqreg_set_dword(scene.store, nullptr, "Number", 2) == VQREG_OK,
            "there is no change to watch");
}

bool isReadable(const vqreg_watch* watch) {
    pollfd source{vqreg_watch_fd(watch), POLLIN, 0};
    return ::poll(&source, 1, 0) == 1;
}

// Whatever else has changed meanwhile is told, too.
int takeChanges(CScene& scene) {
    const vqreg_change* change = nullptr;
    int code = VQREG_OK;
    while ((code = vqreg_watch_next(scene.watch, &change)) == 1) {
        scene.told += change->name && std::strcmp(change->name, "Number") == 0 ? 1 : 0;
    }
    check(code < 0 || scene.told == 1, "a change is not told once");
    check(code == VQREG_OK || isReadable(scene.watch), "nothing says that a change is left");
    return code;
}

CCall opening(const char* name, const std::string& after, SessionUse use,
              const char* root = nullptr) {
    CCall made{name, after, openStore};
    made.use = use;
    made.root = root;
    return made;
}

CCall watching() {
    CCall made{"vqreg_watch_next", kStart, takeChanges, watchAChange};
    made.after.replace(made.after.find("00000001"), 8, "00000002");
    made.isChangedBefore = true;
    return made;
}

class CSubject : public Subject {
public:
    CSubject(const Operation& operation, const CCall& call, const std::string& path)
        : m_operation(operation), m_call(call), m_scene(path, call.root) {}

    void prepare() override {
        require(m_call.use != SessionUse::eUses || m_scene.open() == VQREG_OK, "there is no store");
        if (m_call.prepare) {
            m_call.prepare(m_scene);
        }
    }

    int act() override { return m_call.act(m_scene); }

    // The same call succeeds. What it had done in memory alone an update writes, which may be empty.
    void comeOn(Outcome& outcome) override {
        enter();
        const int again = m_call.act(m_scene);
        require(again == VQREG_OK || again == m_call.done,
                "the same again ends with " + std::to_string(again));
        enter();
        require(vqreg_begin_update(m_scene.store) == VQREG_OK &&
                    vqreg_end_update(m_scene.store) == VQREG_OK,
                "there can be no update");
        requireWritten(m_operation, m_scene.path);
        require(vqreg_set_dword(m_scene.store, nullptr, "A", kOwn) == VQREG_OK,
                "the next change fails");
        outcome.code = VQREG_OK;
    }

private:
    void enter() {
        require(m_scene.open() == VQREG_OK, "the store cannot be opened when everything works");
        requireEntrance(
            [store = m_scene.store] {
                std::uint32_t number = 0;
                return vqreg_get_dword(store, nullptr, "Nothing", &number);
            },
            VQREG_E_NOT_FOUND);
    }

    const Operation& m_operation;
    const CCall m_call;
    CScene m_scene;
};

}  // namespace

std::vector<CCall> otherCCalls() {
    return {opening("vqreg_open for the first time", "[Velquist]\n", SessionUse::eCreates),
            opening("vqreg_open", kStart, SessionUse::eOpens),
            opening("vqreg_open with another root", "[Other]\n[Other/Site]\n" + kStart,
                    SessionUse::eOpens, "Other/Site"),
            {"vqreg_open with a root that cannot be", kStart, openRefused},
            {"vqreg_close", kStart, closeStore, openAll},
            {"vqreg_reload", kStart, [](CScene& scene) { return vqreg_reload(scene.store); }},
            {"vqreg_notify", kStart, [](CScene& scene) { return vqreg_notify(scene.store); }},
            {"vqreg_why", kStart, why},
            {"vqreg_which", kStart, which},
            {"vqreg_why_not_storable", kStart, whyNotStorable},
            {"vqreg_watch_open", kStart, openWatch},
            watching()};
}

std::vector<Tried> ofC() {
    std::vector<Tried> all;
    for (const auto& list : {readingCCalls(), changingCCalls(), otherCCalls()}) {
        for (const CCall& each : list) {
            all.push_back(triedOf<CSubject>(each));
        }
    }
    return all;
}

}  // namespace vqtorture
