// The command's way to a store: every call of the library is here, and every failure of one becomes
// a CommandError that says what is wrong and which exit code that is.
#ifndef TOOLS_VQREG_STORE_STORESESSION_H
#define TOOLS_VQREG_STORE_STORESESSION_H

#include <VQRegLib.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/vqreg/text/Model.h"

namespace vqreg {

struct StoreOptions {
    std::optional<std::string> file;  // none: the default store
    std::optional<std::string> root;  // none: "Velquist"
    double timeoutSeconds = 30;       // for the lock
    bool notify = true;               // announce changes
    bool create = false;              // make the file and the root key when they are missing
    bool wholeFile = false;           // paths begin at the top of the file, not at the root key
};

// The name of the root key, which may be a path.
std::string rootName(const StoreOptions& options);

// The absolute path that these options give, and the one of the file that the library uses for it:
// they differ where the given one is a symbolic link. Throws for a link that is not to be followed.
std::string givenFile(const StoreOptions& options);
std::string storeFile(const StoreOptions& options);

// Paths below the root key have "/" between names; "/" and "." are the root key itself; one leading
// "/" is allowed. The empty vector is the root key.
std::vector<std::string> splitPath(const std::string& path);
std::string joinPath(const std::vector<std::string>& names);
// As in JSON: the root key is "", and no path has a "/" in front.
std::string plainPath(const std::vector<std::string>& names);

// Whether the path leads to that key or below it, whatever the spelling.
bool isSameOrBelow(const std::vector<std::string>& path, const std::vector<std::string>& top);

// A path as it may be copied from a listing: without the "/" at its end, where only the key without
// it exists.
std::vector<std::string> tidiedPath(
    const std::vector<std::string>& path,
    const std::function<bool(const std::vector<std::string>&)>& isThere);

// Whether it comes from a text without a letter, which names no key.
bool isNothing(const std::vector<std::string>& path);

// For messages: 'the key "a/b"', or "the root key".
std::string nameOfKey(const std::vector<std::string>& path);

class StoreSession {
public:
    // Opens the store. Throws eUnavailable, naming the file, its directory or their permissions,
    // eMalformed with line and column, or eNegative when the file has no root key and is not to get
    // one. A lock that is not obtained in time ends the process with eLocked.
    explicit StoreSession(const StoreOptions& options);
    // Announces the changes, if any and wanted. An update that has not ended is given up: the file
    // stays as it was, and the store stays locked until the process ends, which must be soon.
    ~StoreSession();
    StoreSession(const StoreSession&) = delete;
    StoreSession& operator=(const StoreSession&) = delete;

    // A key with everything below it, or down to `depth` levels of sub keys (1 or more), the last of
    // which have their names only; none when it is missing. Throws eWrongKind when a name of the
    // path is a value's.
    // `done` is called for each key and value below it that has been read.
    std::optional<Key> load(const std::vector<std::string>& path, int depth = -1,
                            const std::function<void()>& done = {});
    // Its name is the one that was asked for, whatever its spelling in the store.
    std::optional<Value> value(const std::vector<std::string>& path, const std::string& name);
    bool hasKey(const std::vector<std::string>& path);
    // See tidiedPath. All members understand such a path.
    std::vector<std::string> tidied(const std::vector<std::string>& path);

    // One update for several changes: nothing is written before end(), which throws eWriteFailed.
    // Without one, each change is written by itself. Nests.
    void begin();
    void end();

    // The rules of Rules.h are checked first; a broken one is eWrongKind and nothing is changed.
    void createKey(const std::vector<std::string>& path);
    // Creates the key too when it is missing. @return whether it was
    bool set(const std::vector<std::string>& path, const Value& value);
    bool removeValue(const std::vector<std::string>& path, const std::string& name);
    // With everything below it; of the root key only what is below it.
    bool removeKey(const std::vector<std::string>& path);
    void announce();  // now
    // Makes all processes read the file again, this one included: it was changed by other means.
    void reload();

    VQRegLib::CRegLib& session();

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_STORE_STORESESSION_H
