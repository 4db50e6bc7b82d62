// Watches of VQRegStore.h; and what must hold after any call of it.
#include "memory/CallTexts.h"
#include "memory/StoreScene.h"
#include "support/Wait.h"

namespace vqtorture {

namespace {

std::string withNumber2() {
    std::string text = kStart;
    return text.replace(text.find("00000001"), 8, "00000002");
}

void watchAChange(StoreScene& scene) {
    scene.changes.emplace(*scene.store, "");
    scene.store->root().set("Number", 2);
}

// Whatever else has changed meanwhile is told, too.
void addChanges(std::vector<StoreCall>& all) {
    addBoth(all, "Changes", kStart, [](StoreScene& scene, auto&... error) {
        scene.changes.emplace(*scene.store, "Key", error...);
    });
    const std::size_t first = all.size();
    addBoth(
        all, "Changes::next", withNumber2(),
        [](StoreScene& scene, auto&... error) {
            while (const std::optional<vqreg::Change> change = scene.changes->next(error...)) {
                scene.told += change->name == "Number" ? 1 : 0;
            }
            check(!isDone(error...) || scene.told == 1, "a change is not told once");
        },
        watchAChange);
    for (std::size_t i = first; i < all.size(); ++i) {
        all[i].isChangedBefore = true;
    }
}

void noteIn(StoreScene& scene, const vqreg::Change& change) {
    scene.told += change.name == "Number" ? 1 : 0;
    scene.toldAtLast += change.name == "A" ? 1 : 0;
}

// A thread that there is no memory for is told by the system's code.
int beginWatch(StoreScene& scene) {
    if (scene.watch) {
        return VQREG_OK;
    }
    const auto begin = [](StoreScene& in) {
        const auto note = [&in](const vqreg::Change& change) { noteIn(in, change); };
        try {
            in.watch.emplace(*in.store, "", note);
        } catch (const vqreg::Error&) {
            throw;
        } catch (const std::system_error&) {
            throw std::bad_alloc();
        }
    };
    return codeOfThrowing(scene, begin, VQREG_OK);
}

void watchOnAThread(StoreScene& scene) {
    require(beginWatch(scene) == VQREG_OK, "there is no watch");
    settle();
}

int endWatch(StoreScene& scene) {
    scene.watch.reset();
    return VQREG_OK;
}

int change(StoreScene& scene) {
    const auto set = [](StoreScene& in) { in.store->root().set("Number", 2); };
    return codeOfThrowing(scene, set, VQREG_OK);
}

class StoreSubject : public Subject {
public:
    StoreSubject(const Operation& operation, const StoreCall& call, const std::string& path)
        : m_operation(operation), m_call(call), m_scene(path, call.root) {}

    void prepare() override {
        if (m_call.use == SessionUse::eUses) {
            m_scene.store.emplace(m_scene.path);
        }
        if (m_call.prepare) {
            m_call.prepare(m_scene);
        }
    }

    int act() override { return m_call.act(m_scene); }

    // The same call succeeds. What it had done in memory alone an update writes, which may be empty.
    void comeOn(Outcome& outcome) override {
        enter();
        const int again = m_call.act(m_scene);
        require(again == VQREG_OK, "the same again ends with " + std::to_string(again));
        m_scene.store->exclusively([] {});
        requireWritten(m_operation, m_scene.path);
        m_scene.store->root().set("A", kOwn);
        if (m_scene.watch) {
            require(vqtest::waitUntil([this] { return m_scene.toldAtLast == 1; }),
                    "a change is not told");
            require(m_scene.told == (m_call.after == kStart ? 0 : 1), "a change is not told once");
        }
        outcome.code = VQREG_OK;
    }

private:
    void enter() {
        if (!m_scene.isOpen()) {
            m_scene.store.emplace(m_scene.path, m_scene.root);
        }
        requireEntrance(
            [&store = *m_scene.store] {
                std::error_code error;
                (void)store.root(error).get<int>("Nothing", error);
                return error.value();
            },
            VQREG_OK);
    }

    const Operation& m_operation;
    const StoreCall m_call;
    StoreScene m_scene;
};

std::vector<Tried> allOf(const std::vector<StoreCall>& calls) {
    std::vector<Tried> all;
    for (const StoreCall& each : calls) {
        all.push_back(triedOf<StoreSubject>(each));
        all.back().operation.hasThreads = each.hasThreads;
    }
    return all;
}

}  // namespace

std::vector<StoreCall> watchCalls() {
    std::vector<StoreCall> all = {
        {"Watch", kStart, beginWatch},
        {"a change that a Watch tells", withNumber2(), change, watchOnAThread},
        {"the end of a Watch", kStart, endWatch, watchOnAThread}};
    for (StoreCall& each : all) {
        each.hasThreads = true;
    }
    return all;
}

std::vector<Tried> ofStores() {
    std::vector<StoreCall> all = storeCalls();
    for (const auto& list : {keyCalls(), updateCalls()}) {
        all.insert(all.end(), list.begin(), list.end());
    }
    addChanges(all);
    return allOf(all);
}

std::vector<Tried> ofWatches() {
    return allOf(watchCalls());
}

}  // namespace vqtorture
