// The store that lives in one text file.
#ifndef REGLIB_FILE_FILESTORE_H
#define REGLIB_FILE_FILESTORE_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "RegLib/file/ConfigFile.h"
#include "RegLib/file/SharedState.h"
#include "RegLib/store/Store.h"
#include "RegLib/trace/Trace.h"
#include "RegLib/tree/Tree.h"

namespace VQRegLib {

class COperation;
struct CMergeResult;

// The name of the top-level key of a store that was opened without one.
extern char g_szRootKeynameFile[9];

// What becomes of the cross-process lock when an exception passes.
enum class eUnwinding { eRelease, eKeepLock };

class CRegLibImplFile : public CRegLibImpl {
public:
    using CKeyOrValue = VQRegLib::CKeyOrValue;

    enum eFileMode : std::int32_t { eRead = 0, eWrite = 1 };

    // Throws VQException when the store cannot be made.
    CRegLibImplFile(const char* name, const char* root, CRegLib::LOCATION location, int* result);
    ~CRegLibImplFile() override;

    void SetRegistryChangeHandler(CRegistryChangeHandler* handler) override;
    void ClrRegistryChangeHandler(CRegistryChangeHandler* handler) override;
    CRegKey* RootKey() const override;
    [[nodiscard]] int VQRegCreateKey(CRegKey* parent, const char* subKey, CRegKey& key, int create,
                                     int* exists) override;
    [[nodiscard]] int VQRegDeleteKey(CRegKey& key, const char* subKey) override;
    [[nodiscard]] int VQRegDeleteValue(CRegKey& key, const char* valueName) override;
    [[nodiscard]] int VQRegSetValue(CRegKey& key, const char* valueName, unsigned long value,
                                    int* changed) override;
    [[nodiscard]] int VQRegSetValue(CRegKey& key, const char* valueName, const char* value,
                                    int* changed) override;
    [[nodiscard]] int VQRegSetValue(CRegKey& key, const char* valueName, const unsigned char* data,
                                    unsigned long size, int* changed) override;
    [[nodiscard]] int VQRegQueryValueType(CRegKey& key, const char* valueName,
                                          CRegLib::eDataType& type) override;
    [[nodiscard]] int VQRegQueryValue(CRegKey& key, const char* valueName, CRegLib::eDataType& type,
                                      unsigned char* buffer, unsigned long* size) override;
    [[nodiscard]] int VQRegEnumKeys(CRegKey& key, int index, std::string& name) override;
    [[nodiscard]] int VQRegEnumValues(CRegKey& key, int index, std::string& name,
                                      CRegLib::eDataType& type) override;
    void dump() override;
    void deleteKeyHandle(unsigned long handleId) override;
    [[nodiscard]] int VQRegBeginUpdate() override;
    [[nodiscard]] int VQRegEndUpdate() override;
    bool isUpdating() const override { return m_updateDepth > 0; }
    [[nodiscard]] int VQRegReload() override;
    bool isUpdatedElsewhere() const override;
    void dropInheritedUpdate() override;
    bool isGone(const CRegKey& key) const override;
    std::uint32_t updateNumber() const override { return isUpdating() ? m_updateNumber : 0; }
    void dropUpdate() override;

    // VQRegCreateKey without taking a reference for the caller.
    [[nodiscard]] int VQRegFindKey(CRegKey* parent, const char* subKey, CRegKey& key, int create,
                                   int* exists);

    // The header that a key called `name` gets below `parent`, which may be null.
    std::string CreateFullName(const CKeyOrValue* parent, const char* name) const {
        return m_tree->fullNameFor(parent, name);
    }

    // The cross-process lock, which who changes something holds; COperation is the way to take it.
    // REGLIB_E_FILE_OPEN when it cannot be had, REGLIB_E_FAIL without memory.
    [[nodiscard]] int Lock();
    [[nodiscard]] int Unlock();

    // Brings the tree up to date with the file. Needs no lock, and takes it where the file is missing or
    // a writer has died. `unwinding` is for that lock.
    [[nodiscard]] int ImportConfig(eUnwinding unwinding = eUnwinding::eRelease) {
        REGLIB_TRACE(eTraceFlow, ">>>CRegLibImplFile::ImportConfig\n");
        return isUpToDate() ? REGLIB_OK : bringUpToDate(unwinding);
    }

    // Writes the tree to the file; with the lock held.
    [[nodiscard]] int ExportConfig();

    // The tree has all changes that were completed by now. In an update nobody else may write,
    // whatever somebody has written over the stamp.
    bool isUpToDate() { return m_isUpdatePending || m_shared.isUpToDate(); }

    // Opens the file for reading, or a new temporary file for writing; `openedName`, when not null,
    // receives the name even on failure. Closing the latter puts it in the file's place, or fails
    // with REGLIB_E_FILE_OPEN when it turns out then that the text is not whole.
    [[nodiscard]] int FileOpen(int mode, std::string* openedName);
    [[nodiscard]] int FileClose(int mode, const std::string& openedName);

    // The node under which a handle is registered; null when it is not.
    CKeyOrValue* nodeOf(const CRegKey& key) const {
        const CRegKeyImpl* const record = CRegKeyAccess::record(key);
        const bool isKnown = record && record->m_pRegLibImpl == this && record->m_node;
        auto* const node = static_cast<CKeyOrValue*>(
            isKnown ? record->m_node : m_handles.nodeOf(CRegKeyAccess::id(key)));
        return node && node->m_state != CKeyOrValue::eGone ? node : nullptr;
    }

    // Somebody is about to look for values of the key.
    void expectValuesOf(const CRegKey& key) {
        if (m_tree->isLarge()) [[unlikely]] {
            expectInLargeTree(key);
        }
    }

private:
    friend class CFileStoreProbe;  // tests look inside

    // Construction.
    void chooseFile(const char* name);
    std::unique_ptr<CRegKey> createRootKey(const char* root);

    friend class CStoreLock;
    friend class CLookUp;
    friend class COperation;
    [[nodiscard]] int takeLock(unsigned long milliseconds);

    [[nodiscard]] int commitChange();
    void forgetUpdate();
    [[nodiscard]] int refuseDuringOthersUpdate() const;
    [[nodiscard]] int readAnew();
    void freeGoneNodes();

    // Import.
    [[nodiscard]] int bringUpToDate(eUnwinding unwinding);
    [[nodiscard]] int importLocked();
    [[nodiscard]] int importWaiting(eUnwinding unwinding);
    [[nodiscard]] int glance(std::uint64_t stamp, eUnwinding unwinding);
    [[nodiscard]] int importOpened(std::uint64_t stamp);
    [[nodiscard]] int readOpened();
    [[nodiscard]] int ImportConfigHelper();
    [[nodiscard]] int noteMerge(const CMergeResult& result);

    // Export.
    [[nodiscard]] int replaceText();
    [[nodiscard]] bool writeText(const std::vector<std::string_view>& pieces,
                                 const std::string& openedName);
    void DumpConfig(unsigned long depth, const CKeyOrValue* node) const;

    // Keys.
    bool lacksKey(const CKeyOrValue& start, std::string_view path) const;
    [[nodiscard]] int openPath(const CRegKey& start, std::string_view path, CRegKey& key,
                               int create, int& exists);
    [[nodiscard]] int walkPath(CKeyOrValue* node, std::string_view path, CRegKey& key, int create,
                               int& exists);
    void issueHandle(CKeyOrValue& node, std::string_view name, CRegKey& key);
    void deleteNode(CKeyOrValue& node);

    // Change handlers.
    CRegWatcherThread* watcherForHandlers();

    // Values.
    template <typename Data>
    [[nodiscard]] int setValue(CRegKey& key, const char* name, const Data& data, int* changed);
    template <typename Data>
    [[nodiscard]] int changeValue(COperation& operation, CRegKey& key, const char* name,
                                  const Data& data, int& changed);
    template <typename Data>
    [[nodiscard]] int putValue(COperation& operation, const char* name, const Data& data,
                               const std::string& spelling, int& changed);
    void expectInLargeTree(const CRegKey& key);
    std::string countedSpelling(CRegKey& key, const char* name);

    std::unique_ptr<CTree> m_tree;
    CConfigFile m_file{this};
    CSharedState m_shared{this, m_file};

    int m_updateDepth = 0;             // updates begun and not ended; with the lock held
    std::uint32_t m_updateNumber = 0;  // of the last outermost one
    bool m_isUpdatePending = false;    // the tree has changes that the end of the update will write
    bool m_isUnwritten = false;        // it has changes that could not be written
    bool m_isTreeAhead = false;     // it has changes of an update that this process must not write
    bool m_isFileMissing = false;   // the last time it was to be read, and could not be made
    bool m_isReadCutShort = false;  // the last reading ended in an error: the tree is not whole
    std::uint64_t m_textSize = 0;   // for which the next FileOpen for writing makes room
};

}  // namespace VQRegLib

#endif  // REGLIB_FILE_FILESTORE_H
