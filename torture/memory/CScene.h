// What calls of vqreg.h work on without memory, and their lists.
#ifndef VQTORTURE_MEMORY_CSCENE_H
#define VQTORTURE_MEMORY_CSCENE_H

#include <vqreg.h>

#include <string>
#include <vector>

#include "memory/Subject.h"
#include "support/Torture.h"

namespace vqtorture {

/// The destructor closes what is open.
struct CScene {
    CScene(std::string file, const char* rootKey) : path(std::move(file)), root(rootKey) {}
    ~CScene() { close(); }
    CScene(const CScene&) = delete;
    CScene& operator=(const CScene&) = delete;

    /// The result; no store where there is one already.
    int open() {
        int result = VQREG_OK;
        if (!store) {
            store = vqreg_open(path.c_str(), root, &result);
        }
        return result;
    }

    /// The store first: what is open of it keeps it.
    void close() {
        vqreg_close(store);
        vqreg_close_key(key);
        vqreg_watch_close(watch);
        store = nullptr;
        key = nullptr;
        watch = nullptr;
    }

    const std::string path;
    const char* const root;
    vqreg_store* store = nullptr;
    vqreg_key* key = nullptr;
    vqreg_watch* watch = nullptr;
    int told = 0;  ///< changes that the watch has told
};

struct CCall {
    const char* name;
    std::string after;  ///< the text of the file when it has succeeded
    int (*act)(CScene&);
    void (*prepare)(CScene&) = nullptr;
    int done = VQREG_OK;  ///< what it returns when it has been done before
    std::vector<std::string> between = {};
    bool isChangedBefore = false;  ///< the text of the file is that already
    SessionUse use = SessionUse::eUses;
    const char* root = nullptr;
};

std::vector<CCall> readingCCalls();
std::vector<CCall> changingCCalls();
std::vector<CCall> otherCCalls();

/// The result of a call that must end with `expected` when it has memory.
inline int endsWith(int expected, int result) {
    check(result != VQREG_OK || expected == VQREG_OK, "it succeeds");
    return result == expected ? VQREG_OK : result;
}

}  // namespace vqtorture

#endif  // VQTORTURE_MEMORY_CSCENE_H
