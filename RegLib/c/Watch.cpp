// Watches of the C interface.
//
// A watch compares the file with what it last found there. It does not ask the process's tree: that keeps
// what other processes delete, until it is written again or the process ends, and it would need a query for
// each value. The file is read when the kernel says that it has been replaced, whoever did it and whether
// or not he told anybody; so nothing is missed but what was undone before anybody looked.
//
// A file that is missing for a moment, as it is where no file system can replace it in one step, is no
// change, and neither is one that somebody has removed: the next change of any process brings it back whole.
// Where it is missing at the beginning, the first one that is found is what later ones are compared with.
#include <memory>

#include "RegLib/c/CStore.h"
#include "RegLib/c/Differences.h"
#include "RegLib/c/FileTree.h"
#include "RegLib/c/Guarded.h"
#include "RegLib/text/Storable.h"
#include "portable/FileNews.h"
#include "portable/NoCancellation.h"

using namespace VQRegLib;

struct vqreg_watch {
    std::shared_ptr<CStoreOfC> m_store;
    std::string m_path;      // below the root key
    std::string m_fullPath;  // from the top of the file
    CFileNews m_news;
    bool m_isNews = true;  // the file is to be read
    std::unique_ptr<CTree> m_tree;
    std::deque<CDifference> m_differences;
    CDifference m_given;      // the caller has pointers into this one
    vqreg_change m_change{};  // and to this

    CPlaceInTree placeIn(const CTree& tree) const { return {&tree, findKey(tree, m_fullPath)}; }

    // Reads the file, and appends what has changed since the last reading.
    [[nodiscard]] int look() {
        std::unique_ptr<CTree> tree;
        const int result = readTree(m_store->file(), tree);
        if (result == REGLIB_E_NOT_FOUND) {
            m_isNews = false;
            return VQREG_OK;
        }
        if (result < 0) {
            return result;
        }
        std::deque<CDifference> found;
        if (m_tree) {
            findDifferences(placeIn(*m_tree), placeIn(*tree), m_path, found);
        }
        m_differences.swap(found);
        m_tree = std::move(tree);
        m_isNews = false;
        return VQREG_OK;
    }
};

namespace {

int startWatch(vqreg_watch& watch, vqreg_store* store, const char* path) {
    watch.m_store = store->m_store;
    watch.m_path = CStoreOfC::pathOf(path);
    watch.m_fullPath = watch.m_store->rootPath();
    if (!watch.m_path.empty()) {
        if (!isStorablePath(watch.m_fullPath.size() + 2, watch.m_path)) {
            return VQREG_E_NOT_STORABLE;
        }
        watch.m_fullPath += '/' + watch.m_path;
    }
    // First the news, then the look: nothing happens unseen in between.
    if (watch.m_news.open(watch.m_store->file()) != 0) {
        return VQREG_E_FAIL;
    }
    return watch.look();
}

vqreg_data dataOf(const CValueState& state) {
    const bool isThere = state.type != CRegLib::eNone;
    return {static_cast<vqreg_type>(state.type), state.data.size(),
            isThere ? state.data.data() : nullptr};
}

}  // namespace

vqreg_watch* vqreg_watch_open(vqreg_store* store, const char* path, int* result) {
    const CNoCancellation noCancellation;
    vqreg_watch* opened = nullptr;
    const int code = !store ? VQREG_E_FAIL : guardedForC([&] {
        auto watch = std::make_unique<vqreg_watch>();
        const int started = startWatch(*watch, store, path);
        opened = started < 0 ? nullptr : watch.release();
        return started;
    });
    if (result) {
        *result = code;
    }
    return opened;
}

int vqreg_watch_fd(const vqreg_watch* watch) {
    return watch ? watch->m_news.descriptor() : -1;
}

int vqreg_watch_next(vqreg_watch* watch, const vqreg_change** change) {
    if (!watch || !change) {
        return VQREG_E_FAIL;
    }
    *change = nullptr;
    const CNoCancellation noCancellation;
    const int result = guardedForC([&] {
        if (watch->m_differences.empty()) {
            // Before the look: what comes during it is news again.
            watch->m_isNews = watch->m_news.take() || watch->m_isNews;
            if (watch->m_news.isBlind()) {
                return VQREG_E_FILE_OPEN;
            }
            const int looked = watch->m_isNews ? watch->look() : VQREG_OK;
            if (looked < 0 || watch->m_differences.empty()) {
                return looked;
            }
        }
        watch->m_given = std::move(watch->m_differences.front());
        watch->m_differences.pop_front();
        const CDifference& given = watch->m_given;
        watch->m_change = {given.path.c_str(), given.isOfKey ? nullptr : given.name.c_str(),
                           dataOf(given.before), dataOf(given.after), given.isPresent};
        *change = &watch->m_change;
        return 1;
    });
    // Nothing else says when there is memory again.
    if (result == VQREG_E_FAIL) {
        watch->m_news.tellAgain();
    }
    return result;
}

void vqreg_watch_close(vqreg_watch* watch) {
    const CNoCancellation noCancellation;
    delete watch;
}
