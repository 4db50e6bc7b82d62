// Calls of VQRegStore.h on whole stores, and updates.
#include "memory/CallTexts.h"
#include "memory/StoreScene.h"

namespace vqtorture {

namespace {

std::string withNumber2() {
    std::string text = kStart;
    return text.replace(text.find("00000001"), 8, "00000002");
}

std::string withoutEmpty() {
    return kRootLines + kKeyLine + kBelow;
}

const std::string kNew = "[Velquist/New]\n";
const std::string kNewPath = kNew + "[Velquist/New/Path]\n";

// "There is no store" has no other reason here.
int openThrowing(StoreScene& scene) {
    const auto open = [](StoreScene& in) {
        if (!in.isOpen()) {
            in.store.emplace(in.path, in.root);
        }
    };
    const int code = codeOfThrowing(scene, open, VQREG_OK);
    return code == VQREG_E_NOT_INITIALIZED ? VQREG_E_FAIL : code;
}

int openTelling(StoreScene& scene) {
    const auto open = [](StoreScene& in, std::error_code& error) {
        error.clear();
        if (!in.isOpen()) {
            in.store.emplace(in.path, in.root, error);
            check(!error == in.isOpen(), "a store and a code");
        }
    };
    const int code = codeOfTelling(scene, open, VQREG_OK);
    return code == VQREG_E_NOT_INITIALIZED ? VQREG_E_FAIL : code;
}

void addOpenings(std::vector<StoreCall>& all) {
    for (const auto& act : {openThrowing, openTelling}) {
        const std::string form = act == openTelling ? " with a code" : "";
        all.push_back({"Store for the first time" + form,
                       "[Velquist]\n",
                       act,
                       nullptr,
                       {},
                       SessionUse::eCreates});
        all.push_back({"Store" + form, kStart, act, nullptr, {}, SessionUse::eOpens});
        all.push_back({"Store with another root" + form,
                       "[Other]\n[Other/Site]\n" + kStart,
                       act,
                       nullptr,
                       {},
                       SessionUse::eOpens,
                       "Other/Site"});
    }
}

// Keys that are missing are made first; the first of them may stay alone.
void addMaking(std::vector<StoreCall>& all) {
    const std::size_t first = all.size();
    addBoth(all, "Store::create", withMore(kNewPath), [](StoreScene& scene, auto&... error) {
        check(scene.store->create("New/Path", error...) || !isDone(error...), "no key");
    });
    for (std::size_t i = first; i < all.size(); ++i) {
        all[i].between = {withMore(kNew)};
    }
}

void addKeysOfStores(std::vector<StoreCall>& all) {
    addBoth(all, "Store::key", kStart, [](StoreScene& scene, auto&... error) {
        check(scene.store->key("Key/Sub", error...) || !isDone(error...), "no key");
    });
    addBoth(all, "Store::find", kStart, [](StoreScene& scene, auto&... error) {
        check(scene.store->find("Key/Sub", error...) || !isDone(error...), "no key");
    });
    addBoth(all, "Store::find of none", kStart, [](StoreScene& scene, auto&... error) {
        check(!scene.store->find("Key/None", error...), "a key");
    });
    addBoth(all, "Store::root", kStart, [](StoreScene& scene, auto&... error) {
        check(scene.store->root(error...) || !isDone(error...), "no key");
    });
    addBoth(all, "Store::remove", withoutEmpty(), [](StoreScene& scene, auto&... error) {
        (void)scene.store->remove("Empty", error...);
    });
    addBoth(
        all, "Store::remove of a key that is not empty", kStart,
        [](StoreScene& scene, auto&... error) { (void)scene.store->remove("Key", error...); },
        nullptr, VQREG_E_KEY_NOT_EMPTY);
}

void addRest(std::vector<StoreCall>& all) {
    addBoth(all, "Store::reload", kStart,
            [](StoreScene& scene, auto&... error) { scene.store->reload(error...); });
    addBoth(all, "Store::notify", kStart,
            [](StoreScene& scene, auto&... error) { scene.store->notify(error...); });
    const auto tell = [](StoreScene& scene) {
        check(scene.store->file() == scene.path, "another file");
        check(scene.store->why().empty(), "a reason without a fault");
        (void)vqreg::Store::why("/no/such/directory/store.cfg");
    };
    all.push_back({"Store::why and Store::file", kStart,
                   [=](StoreScene& scene) { return codeOfThrowing(scene, tell, VQREG_OK); }});
    const auto change = [](StoreScene& scene) {
        scene.store->exclusively([&] { scene.store->root().set("Number", 2); });
    };
    all.push_back({"Store::exclusively", withNumber2(),
                   [=](StoreScene& scene) { return codeOfThrowing(scene, change, VQREG_OK); }});
}

template <typename... Error>
void collect(StoreScene& scene, vqreg::Update& update, Error&... error) {
    const auto whenDone = [&](auto step) {
        if (isDone(error...)) {
            step();
        }
    };
    update.set(scene.key, "Deep", 4, error...);
    whenDone([&] { update.set("New/Path", "V", "in a new key", error...); });
    whenDone([&] { update.erase(scene.key, "Text", error...); });
    whenDone([&] { update.erase("Key", "Bytes", error...); });
    whenDone([&] { update.create("New/Other", error...); });
    whenDone([&] { update.remove("Empty", error...); });
}

const std::string kUpdated = kRootLines + kKeyLine + "\"Deep\"=dword:00000004\n" + kSubLines +
                             kNew + "[Velquist/New/Other]\n[Velquist/New/Path]\n" +
                             "\"V\"=string:in a new key\n";

void openKey(StoreScene& scene) {
    scene.key = scene.store->key("Key");
}

void collectAll(StoreScene& scene) {
    openKey(scene);
    scene.update.emplace(*scene.store);
    collect(scene, *scene.update);
}

}  // namespace

std::vector<StoreCall> storeCalls() {
    std::vector<StoreCall> all;
    addOpenings(all);
    addKeysOfStores(all);
    addMaking(all);
    addRest(all);
    return all;
}

std::vector<StoreCall> updateCalls() {
    std::vector<StoreCall> all;
    addBoth(
        all, "Update", kUpdated,
        [](StoreScene& scene, auto&... error) {
            vqreg::Update update(*scene.store, error...);
            if (isDone(error...)) {
                collect(scene, update, error...);
            }
            if (isDone(error...)) {
                update.commit(error...);
            }
        },
        openKey);
    addBoth(
        all, "Update::commit", kUpdated,
        [](StoreScene& scene, auto&... error) {
            if (scene.update->empty()) {
                collect(scene,
                        *scene.update);  // the witness may have written again what was deleted
            }
            scene.update->commit(error...);
            check(isDone(error...) == scene.update->empty(), "what has failed is not collected");
        },
        collectAll);
    addBoth(
        all, "Update of what cannot be stored", kStart,
        [](StoreScene& scene, auto&... error) {
            vqreg::Update update(*scene.store, error...);
            update.set(scene.key, "two\nlines", 4, error...);
        },
        openKey, VQREG_E_NOT_STORABLE);
    return all;
}

}  // namespace vqtorture
