// Construction and destruction of the file store.
//
// The order of construction is seen from outside, in trace lines and in which exception comes when: the
// file's name, the tree, lock and stamp, the root key, the import. The root key is created through the
// usual operation, which reads the file a first time, and makes it where it is missing: a malformed file
// fails there, and the store is not opened; one that becomes malformed between the root key and the last
// import shows at the next operation.
//
// Destruction takes no cross-process lock: there is nothing to be written, and a process must be able to
// end while another one is stopped with the lock in its hands.
#include "RegLib/file/FileStore.h"

#include <cstdlib>
#include <cstring>

#include "RegLib/base/Guarded.h"
#include "RegLib/base/ThrowPoint.h"
#include "RegLib/file/StoreFile.h"
#include "RegLib/trace/Trace.h"
#include "portable/FileSystem.h"
#include "portable/Portable.h"

namespace VQRegLib {

char g_szRootKeynameFile[9] = "Velquist";

namespace {

// Makes an object, or throws from the given place when there is no memory for it.
template <typename Object, typename... Arguments>
std::unique_ptr<Object> makeOrThrow(eThrowPoint point, Arguments&&... arguments) {
    try {
        return std::make_unique<Object>(std::forward<Arguments>(arguments)...);
    } catch (const std::bad_alloc&) {
        throwAt(point);
    }
}

// Asked once, at the first store of the process: another thread may be changing the environment later.
bool areTextsSynced() {
    static const bool isAsked = CPortable::isInEnvironment("VQREG_SYNC", "1");
    return isAsked;
}

}  // namespace

CRegLibImplFile::CRegLibImplFile(const char* name, const char* root, CRegLib::LOCATION location,
                                 int* result)
    : CRegLibImpl(name, root, location, result) {
    REGLIB_TRACE(eTraceFlow,
                 "CRegLibImplFile::CRegLibImplFile (0x%08X), name \"%s\", root \"%s\"\n",
                 traceId(this), traceText(name), traceText(root));
    try {
        chooseFile(name);
        m_tree = makeOrThrow<CTree>(eThrowPoint::eNewRootNode);
        m_shared.open();
        std::unique_ptr<CRegKey> rootKey = createRootKey(root);
        m_pRootKeyImpl = CRegKeyAccess::record(*rootKey);
        m_pRootKey = rootKey.release();
    } catch (...) {
        std::free(m_pszFileName);
        m_pszFileName = nullptr;
        throw;
    }
    (void)guarded([this] { return ImportConfig(); });
    REGLIB_TRACE(eTraceFlow, "<<<CRegLibImplFile::CRegLibImplFile (0x%08X)\n", traceId(this));
}

// A link is followed once, here, and then the store is that of the file behind it: a change would
// otherwise replace the link and leave its file with the old text. An empty path is no store: every
// operation would work in memory, and nothing would ever be written.
void CRegLibImplFile::chooseFile(const char* name) try {
    if (name && !*name) {
        throwAt(eThrowPoint::eCopyFileName);
    }
    const std::string path = storeFile(name);
    m_pszFileName = strdup(path.c_str());
    if (!m_pszFileName) {
        throw std::bad_alloc();
    }
    m_file.setPath(m_pszFileName);
    if (const char* const kind = networkFileSystem(path)) {
        REGLIB_TRACE(
            eTraceAlways,
            "(Error) CRegLibImplFile::CRegLibImplFile, \"%s\" is on %s: lock and change stamp "
            "are this machine's alone, other machines must not use the store\n",
            m_pszFileName, kind);
    }
    m_file.setSynced(areTextsSynced());
} catch (const std::bad_alloc&) {
    if (!name) {
        REGLIB_TRACE(eTraceAlways, "(Error) CRegLibImplFile::CRegLibImplFile, strdup failed\n");
    }
    throwAt(name ? eThrowPoint::eCopyFileName : eThrowPoint::eCopyDefaultFileName);
}

// An empty handle as the parent stands for the tree root.
std::unique_ptr<CRegKey> CRegLibImplFile::createRootKey(const char* root) {
    auto parent = makeOrThrow<CRegKey>(eThrowPoint::eNewParentHandle);
    CRegKeyAccess::put(*parent,
                       makeOrThrow<CRegKeyImplFile>(eThrowPoint::eNewParentHandle).release());
    auto rootKey = makeOrThrow<CRegKey>(eThrowPoint::eNewRootKey);
    int exists = 0;
    const int result = CRegLibImplFile::VQRegCreateKey(
        parent.get(), root ? root : g_szRootKeynameFile, *rootKey, 1, &exists);
    if (result < 0) {
        throwAt(eThrowPoint::eCreateRootKey, result);
    }
    return rootKey;
}

CRegLibImplFile::~CRegLibImplFile() {
    REGLIB_TRACE(eTraceFlow, "CRegLibImplFile::~CRegLibImplFile (0x%08X)\n", traceId(this));
    DeleteRegWatcherThread();
    m_shared.closeStamp();
    delete m_pRootKey;
    m_pRootKey = nullptr;
    m_pRootKeyImpl = nullptr;
    m_openUpdates -= m_updateDepth > 0 ? 1 : 0;  // one that nobody has ended
    m_shared.closeLock();
    std::free(m_pszFileName);
    m_pszFileName = nullptr;
    m_tree.reset();
    clearAllRecords(true);
    REGLIB_TRACE(eTraceFlow, "<<<CRegLibImplFile::~CRegLibImplFile (0x%08X)\n", traceId(this));
}

}  // namespace VQRegLib
