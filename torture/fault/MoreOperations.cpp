#include "fault/MoreOperations.h"

#include <unistd.h>

#include <filesystem>
#include <set>

#include "fault/Clock.h"
#include "support/Torture.h"
#include "vqreg.h"

namespace vqtorture {

namespace {

const std::string kBefore = "[Velquist]\n\"Number\"=dword:00000001\n";
const std::string kChanged = "[Velquist]\n\"Number\"=dword:00000002\n";

int setNumber(Scene& scene) {
    return scene.session->VQRegSetValue(scene.rootKey(), "Number", 2ul);
}

// A store of the C interface, a watch of it, and the values that it has told of.
struct Watched {
    explicit Watched(const std::string& path) : store(vqreg_open(path.c_str(), nullptr, nullptr)) {
        require(store != nullptr, "the store cannot be opened through the C interface");
    }
    ~Watched() {
        vqreg_watch_close(watch);
        vqreg_close(store);
    }
    Watched(const Watched&) = delete;
    Watched& operator=(const Watched&) = delete;

    int open() {
        int result = VQREG_OK;
        watch = vqreg_watch_open(store, nullptr, &result);
        require((watch != nullptr) == (result == VQREG_OK), "the result is not that of the watch");
        return result;
    }

    // What vqreg_watch_next() says after the last change.
    int collect() {
        const vqreg_change* change = nullptr;
        int result = 1;
        while ((result = vqreg_watch_next(watch, &change)) > 0) {
            told.insert(change->name ? change->name : "");
        }
        return result;
    }

    void requireTold(const char* name) const {
        require(told.count(name) != 0, std::string("the watch has not told of ") + name);
    }

    vqreg_store* store;
    vqreg_watch* watch = nullptr;
    std::set<std::string> told;
};

Watched& watchedOf(Scene& scene) {
    return *static_cast<Watched*>(scene.more.get());
}

void collectUntilTold(Scene& scene, const char* name) {
    Watched& watched = watchedOf(scene);
    require(watched.collect() == VQREG_OK, "the watch does not work");
    watched.requireTold(name);
}

void openStore(Scene& scene) {
    scene.more = std::make_shared<Watched>(scene.path);
}

Operation aWatch() {
    Operation made{"a watch", kBefore, kBefore, kBefore};
    made.prepare = openStore;
    made.act = [](Scene& scene) { return watchedOf(scene).open(); };
    made.finish = [](Scene& scene) {
        Watched& watched = watchedOf(scene);
        const bool isNew = !watched.watch;
        require(!isNew || watched.open() == VQREG_OK, "a watch cannot be opened");
        if (!isNew) {
            collectUntilTold(scene, "A");
        }
    };
    return made;
}

Operation aLookForChanges() {
    Operation made{"a look for changes", kBefore, kChanged, kChanged};
    made.prepare = [](Scene& scene) {
        openStore(scene);
        require(watchedOf(scene).open() == VQREG_OK && setNumber(scene) == VQREG_OK,
                "there is nothing to look for");
    };
    made.act = [](Scene& scene) { return watchedOf(scene).collect(); };
    made.healed = [](Scene& scene) { collectUntilTold(scene, "Number"); };
    made.finish = [](Scene& scene) { collectUntilTold(scene, "A"); };
    return made;
}

Operation aReason() {
    Operation made{"why a store cannot be used", kBefore, kBefore, kBefore};
    made.act = [](Scene& scene) {
        (void)vqreg_why(scene.path.c_str(), nullptr, 0);
        return VQREG_OK;
    };
    made.finish = [](Scene& scene) {
        require(vqreg_why(scene.path.c_str(), nullptr, 0) == 0, "something stands in the way");
    };
    return made;
}

}  // namespace

std::vector<Operation> operationsOfC() {
    return {aWatch(), aLookForChanges(), aReason()};
}

// One file is one lock, also when its name cannot be made out at once.
Operation openingByRelativePath() {
    Operation made{"an opening by a relative path", kBefore, kBefore, kBefore, SessionUse::eOpens};
    made.prepare = [](Scene& scene) {
        const std::filesystem::path path(scene.path);
        require(::chdir(path.parent_path().c_str()) == 0, "the directory cannot be entered");
    };
    made.act = [](Scene& scene) {
        scene.session.emplace(std::filesystem::path(scene.path).filename().c_str(), nullptr,
                              VQRegLib::CRegLib::eLocationDefault, nullptr);
        return scene.hasStore() ? VQREG_OK : VQREG_E_FILE_OPEN;
    };
    return made;
}

Operation changeOfTomorrow() {
    Operation made{"a change after midnight", kBefore, kBefore, kChanged};
    made.prepare = [](Scene&) { passMidnight(); };
    made.act = setNumber;
    return made;
}

}  // namespace vqtorture
