// The command's way to a store: every call of the library is here, and every failure of one becomes
// a CommandError that says what is wrong and which exit code that is.
#ifndef TOOLS_VQREG_STORE_STORESESSION_H
#define TOOLS_VQREG_STORE_STORESESSION_H

#include <VQRegLib.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/vqreg/store/OpenStore.h"
#include "tools/vqreg/store/StoreFile.h"
#include "tools/vqreg/store/StoreKeys.h"
#include "tools/vqreg/store/StoreUpdate.h"
#include "tools/vqreg/text/Difference.h"
#include "tools/vqreg/text/Model.h"

namespace vqreg {

class StoreSession {
public:
    // Opens the store, or throws what OpenStore does. Its end is that of StoreUpdate: changes are
    // announced, and an update that has not ended is given up.
    explicit StoreSession(const StoreOptions& options);
    StoreSession(const StoreSession&) = delete;
    StoreSession& operator=(const StoreSession&) = delete;

    // A key with everything below it, or down to `depth` levels of sub keys (1 or more), the last of
    // which have their names only; none when it is missing. Throws eWrongKind when a name of the
    // path is a value's.
    // `done` is called for each key and value below it that has been read.
    std::optional<Key> load(const Path& path, int depth = -1,
                            const std::function<void()>& done = {});
    // A key with its values, and of its sub keys the names. Throws eNegative when it is missing, and as load.
    Key loadValues(const Path& path);
    // Its name is the one that was asked for, whatever its spelling in the store.
    std::optional<Value> value(const Path& path, const std::string& name);
    bool hasKey(const Path& path);
    // See tidiedPath. All members understand such a path.
    Path tidied(const Path& path);

    // One update for several changes: nothing is written before end(), which throws eWriteFailed.
    // Without one, each change is written by itself. Nests.
    void begin();
    void end();

    // The rules of Rules.h are checked first; a broken one is eWrongKind and nothing is changed.
    void createKey(const Path& path);
    // Creates the key too when it is missing. @return whether it was
    bool set(const Path& path, const Value& value);
    bool removeValue(const Path& path, const std::string& name);
    // With everything below it; of the root key only what is below it.
    bool removeKey(const Path& path);
    // Makes the changes, deletions first; `done` is called after each one.
    void apply(const std::vector<Change>& changes, const std::function<void()>& done = {});

    void announce();  // now
    // Makes all processes read the file again, this one included: it was changed by other means.
    void reload();

    VQRegLib::CRegLib& session() { return m_store.session(); }

private:
    OpenStore m_store;
    StoreKeys m_keys;
    StoreUpdate m_update;
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_STORE_STORESESSION_H
