// The update in which a session changes its store, and who is told of what has been written.
#ifndef TOOLS_VQREG_STORE_STOREUPDATE_H
#define TOOLS_VQREG_STORE_STOREUPDATE_H

#include <cstdint>
#include <optional>

#include "tools/vqreg/base/FileIdentity.h"
#include "tools/vqreg/store/OpenStore.h"

namespace vqreg {

class StoreUpdate {
public:
    explicit StoreUpdate(OpenStore& store) : m_store(store) {}
    // Announces the changes, if any and wanted. An update that has not ended is given up: the file
    // stays as it was, and the store stays locked until the process ends, which must be soon.
    ~StoreUpdate();
    StoreUpdate(const StoreUpdate&) = delete;
    StoreUpdate& operator=(const StoreUpdate&) = delete;

    // One update for several changes: nothing is written before the last end(), which throws
    // eWriteFailed.
    void begin();
    void beginChange();  // of something
    void end();
    void endReading();  // throws nothing
    bool isOpen() const { return m_depth > 0; }

    void announce();  // now
    // Makes all processes read the file again, this one included.
    void reload();

private:
    // What tells whether an update has been written: the library renews the stamp with every
    // attempt, and every new file is another one.
    struct Trace {
        std::optional<std::uint64_t> stamp;
        std::optional<FileIdentity> file;

        // An attempt was made since, but the file is still the same one.
        bool isFailedSince(const Trace& earlier) const {
            return stamp && earlier.stamp && *stamp != *earlier.stamp && file &&
                   file == earlier.file;
        }
    };

    Trace trace() const;
    void checkWritten() const;

    OpenStore& m_store;
    int m_depth = 0;
    bool m_isPending = false;  // the update has changes
    bool m_isChanged = false;  // the file has changed, and nobody has been told
    Trace m_before;            // the update
};

// Keeps what several calls read together: an update without changes writes nothing.
class Reading {
public:
    explicit Reading(StoreUpdate& update) : m_update(update) { m_update.begin(); }
    ~Reading() { m_update.endReading(); }
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;

private:
    StoreUpdate& m_update;
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_STORE_STOREUPDATE_H
