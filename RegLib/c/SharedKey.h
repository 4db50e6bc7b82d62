// A key handle that several threads use, and the handles that belong to paths.
#ifndef REGLIB_C_SHAREDKEY_H
#define REGLIB_C_SHAREDKEY_H

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "VQRegLib.h"
#include "portable/CritSec.h"
#include "portable/ThreadAnnotations.h"

namespace VQRegLib {

// A handle that is filled once. It leaves its store under the store's lock, as others may be inside.
class CSharedKey {
public:
    explicit CSharedKey(CRegLib& session) : m_session(session) {
        m_key.reserve(1);
        m_key.push_back(new CRegKey);
    }
    ~CSharedKey() { (void)m_session.VQRegDestroyKeyVect(m_key); }
    CSharedKey(const CSharedKey&) = delete;
    CSharedKey& operator=(const CSharedKey&) = delete;

    CRegKey& get() const { return *m_key.front(); }

private:
    CRegLib& m_session;
    std::vector<CRegKey*> m_key;
};

// Each opening of a path leaves a record for its inner names until the store is closed, and takes several
// times as long as the query for which it is done: so a path is opened once. A handle stays good until its
// key is deleted, which its next use tells.
class CKeysByPath {
public:
    std::shared_ptr<CSharedKey> find(std::string_view path) const;

    // The first one stays when two threads have opened the same path. The other goes with its caller's: a
    // handle takes the session lock when it goes, whose holder may be waiting for m_critSec.
    std::shared_ptr<CSharedKey> add(std::string_view path, const std::shared_ptr<CSharedKey>& key);

    // Unless another one has taken its place.
    void drop(std::string_view path, const std::shared_ptr<CSharedKey>& key);

    // Whatever the path has. To be called when its key has gone.
    void drop(std::string_view path);

private:
    struct CHash : std::hash<std::string_view> {
        using is_transparent = void;
    };
    mutable CPCritSec m_critSec{"", 1};
    std::unordered_map<std::string, std::shared_ptr<CSharedKey>, CHash, std::equal_to<>> m_keys
        GUARDED_BY(m_critSec);
};

}  // namespace VQRegLib

#endif  // REGLIB_C_SHAREDKEY_H
