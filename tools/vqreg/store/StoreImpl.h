// The inside of a StoreSession.
#ifndef TOOLS_VQREG_STORE_STOREIMPL_H
#define TOOLS_VQREG_STORE_STOREIMPL_H

#include <sys/types.h>
#include <time.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/vqreg/store/OpenToAll.h"
#include "tools/vqreg/store/StoreSession.h"

namespace vqreg {

struct StoreSession::Impl {
    const OpenToAll openToAll;  // the first, so that it is the last to go
    StoreOptions options;
    std::string file;
    std::string root;
    std::unique_ptr<VQRegLib::CRegLib> session;
    VQRegLib::CRegKey top;  // an empty handle: the top of the file
    int depth = 0;
    bool isPending = false;  // the update has changes
    bool isChanged = false;  // the file has changed, and nobody has been told

    // What tells whether an update has been written: the library renews the stamp with every
    // attempt, and every new file is another one. (The time is for numbers that are used again.)
    struct Trace {
        std::optional<std::uint64_t> stamp;
        dev_t device = 0;
        ino_t inode = 0;
        timespec modified = {};

        // An attempt was made since, but the file is still the same one.
        bool isFailedSince(const Trace& earlier) const {
            return inode != 0 && stamp && earlier.stamp && *stamp != *earlier.stamp &&
                   device == earlier.device && inode == earlier.inode &&
                   modified.tv_sec == earlier.modified.tv_sec &&
                   modified.tv_nsec == earlier.modified.tv_nsec;
        }
    };
    Trace before;  // of the update

    Trace trace() const;
    void checkWritten(const Trace& earlier) const;
    void open();
    void checkNotLost() const;
    void begin();
    void beginChange();  // of something
    void end();

    // Throws for a code that is a failure.
    void check(int code) const;

    // What the lengths of key lines are counted from.
    std::string ruleRoot() const { return options.wholeFile ? std::string() : root; }

    VQRegLib::CRegKey& start() { return options.wholeFile ? top : *session->RootKey(); }
    VQRegLib::CRegKey* walk(const Path& path, VQRegLib::CRegKey& key, bool create);
    VQRegLib::CRegKey* step(VQRegLib::CRegKey& from, const Path& path, std::size_t at,
                            VQRegLib::CRegKey& key, bool create);

    std::optional<Key> load(const Path& path, int depthLeft, const std::function<void()>& done);
    std::vector<Value> valueNames(VQRegLib::CRegKey& key);
    std::vector<std::string> keyNames(VQRegLib::CRegKey& key);
    int query(VQRegLib::CRegKey& key, Value& value);
    void read(VQRegLib::CRegKey& key, const Path& path, Key& into, int depthLeft,
              const std::function<void()>& done);
    void write(VQRegLib::CRegKey& key, const Path& path, const Value& value);
    void removeBelow(VQRegLib::CRegKey& key, const Path& path);
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_STORE_STOREIMPL_H
