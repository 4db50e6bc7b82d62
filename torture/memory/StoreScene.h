// What calls of VQRegStore.h work on without memory, and their lists.
#ifndef VQTORTURE_MEMORY_STORESCENE_H
#define VQTORTURE_MEMORY_STORESCENE_H

#include <VQRegStore.h>

#include <atomic>
#include <functional>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "memory/Subject.h"
#include "support/Torture.h"

namespace vqtorture {

struct StoreScene {
    StoreScene(std::string file, const char* rootKey) : path(std::move(file)), root(rootKey) {}

    bool isOpen() const { return store && *store; }

    const std::string path;
    const char* const root;
    std::optional<vqreg::Store> store;
    vqreg::Key key;
    std::optional<vqreg::Update> update;
    std::optional<vqreg::Changes> changes;
    std::optional<vqreg::Watch> watch;
    std::atomic<int> told{0};        ///< changes of the number
    std::atomic<int> toldAtLast{0};  ///< and of what is set when everything works again
};

struct StoreCall {
    std::string name;
    std::string after;
    std::function<int(StoreScene&)> act;
    void (*prepare)(StoreScene&) = nullptr;
    std::vector<std::string> between = {};
    SessionUse use = SessionUse::eUses;
    const char* root = nullptr;
    bool isChangedBefore = false;
    bool hasThreads = false;
};

std::vector<StoreCall> storeCalls();
std::vector<StoreCall> keyCalls();
std::vector<StoreCall> updateCalls();
std::vector<StoreCall> watchCalls();

/// Whether a call has succeeded, in either form: it has returned, and told no code.
inline bool isDone() {
    return true;
}
inline bool isDone(const std::error_code& error) {
    return !error;
}

/// What comes of a call that throws: `expected` counts as success.
template <typename Use>
int codeOfThrowing(StoreScene& scene, const Use& use, int expected) {
    try {
        use(scene);
    } catch (const std::bad_alloc&) {
        return VQREG_E_FAIL;
    } catch (const vqreg::Error& error) {
        return error.code().value() == expected ? VQREG_OK : error.code().value();
    } catch (const VQException&) {
        check(false, "it throws VQException");
    }
    check(expected == VQREG_OK, "it succeeds");
    return VQREG_OK;
}

/// And of one that is given a code to tell.
template <typename Use>
int codeOfTelling(StoreScene& scene, const Use& use, int expected) {
    std::error_code error = vqreg::errc::bad_type;
    try {
        use(scene, error);
    } catch (const std::bad_alloc&) {
        return VQREG_E_FAIL;
    } catch (const VQException&) {
        check(false, "it throws VQException");
    } catch (const vqreg::Error&) {
        check(false, "it throws in spite of the code");
    }
    check(!error || error.category() == vqreg::error_category(), "the code is another's");
    check(error || expected == VQREG_OK, "it succeeds");
    return error.value() == expected ? VQREG_OK : error.value();
}

/// A call in both forms: `use` gets a std::error_code in one of them.
template <typename Use>
void addBoth(std::vector<StoreCall>& all, const std::string& name, const std::string& after,
             Use use, void (*prepare)(StoreScene&) = nullptr, int expected = VQREG_OK) {
    all.push_back({name, after,
                   [=](StoreScene& scene) { return codeOfThrowing(scene, use, expected); },
                   prepare});
    all.push_back({name + " with a code", after,
                   [=](StoreScene& scene) { return codeOfTelling(scene, use, expected); },
                   prepare});
}

}  // namespace vqtorture

#endif  // VQTORTURE_MEMORY_STORESCENE_H
