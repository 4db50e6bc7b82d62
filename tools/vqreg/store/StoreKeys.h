// The keys and values of a store by their paths: the library's calls, one name at a time.
#ifndef TOOLS_VQREG_STORE_STOREKEYS_H
#define TOOLS_VQREG_STORE_STOREKEYS_H

#include <functional>
#include <optional>
#include <string>

#include "tools/vqreg/store/KeyContents.h"
#include "tools/vqreg/store/OpenStore.h"
#include "tools/vqreg/text/Model.h"

namespace vqreg {

// Every failure of a call becomes a CommandError; eWrongKind where a key is in the place of a value,
// or a value in that of a key.
class StoreKeys {
public:
    explicit StoreKeys(OpenStore& store) : m_store(store), m_contents(store) {}

    // Null when the key is missing. Where `key` is not needed, for the root key, it stays empty.
    VQRegLib::CRegKey* find(const Path& path, VQRegLib::CRegKey& key) {
        return walk(path, key, false);
    }
    VQRegLib::CRegKey& make(const Path& path, VQRegLib::CRegKey& key);

    // `done` is called for each key and value that has been read.
    std::optional<Key> load(const Path& path, int depthLeft, const std::function<void()>& done);

    // None when the key or the value is missing.
    std::optional<Value> value(const Path& path, const std::string& name);
    void write(const Path& path, const Value& value);

    // False when there is nothing of that name.
    bool removeValue(const Path& path, const std::string& name);
    // With everything below it; of the root key only what is below it.
    void removeKey(const Path& path);

private:
    VQRegLib::CRegKey* walk(const Path& path, VQRegLib::CRegKey& key, bool create);
    VQRegLib::CRegKey* step(VQRegLib::CRegKey& from, const Path& path, std::size_t at,
                            VQRegLib::CRegKey& key, bool create);
    void read(VQRegLib::CRegKey& key, const Path& path, Key& into, int depthLeft,
              const std::function<void()>& done);
    void removeBelow(VQRegLib::CRegKey& key, const Path& path);

    OpenStore& m_store;
    KeyContents m_contents;
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_STORE_STOREKEYS_H
