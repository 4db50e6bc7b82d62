// A key that is followed.
#ifndef TOOLS_VQREG_STORE_KEYREADER_H
#define TOOLS_VQREG_STORE_KEYREADER_H

#include <optional>

#include "tools/vqreg/store/StoreFile.h"
#include "tools/vqreg/store/StoreFollower.h"
#include "tools/vqreg/text/Model.h"
#include "tools/vqreg/text/Path.h"

namespace vqreg {

class KeyReader {
public:
    KeyReader(const StoreOptions& options, const Path& path)
        : m_follower(storeFile(options)), m_path(fullPath(options, path)) {}

    // The key as it is now, as StoreFollower reads it. None also while the file is malformed, which is
    // said once.
    std::optional<Key> read(bool isSlowPoll);

    bool isFileLost() const { return m_follower.isLost(); }

private:
    StoreFollower m_follower;
    const Path m_path;
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_STORE_KEYREADER_H
