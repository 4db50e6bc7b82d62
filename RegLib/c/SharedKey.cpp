#include "RegLib/c/SharedKey.h"

#include "RegLib/base/CritSecGuard.h"

namespace VQRegLib {

std::shared_ptr<CSharedKey> CKeysByPath::find(std::string_view path) const {
    const CCritSecGuard guard(m_critSec, __LINE__);
    const auto found = m_keys.find(path);
    return found != m_keys.end() ? found->second : nullptr;
}

std::shared_ptr<CSharedKey> CKeysByPath::add(std::string_view path,
                                             const std::shared_ptr<CSharedKey>& key) {
    const CCritSecGuard guard(m_critSec, __LINE__);
    return m_keys.emplace(path, key).first->second;
}

void CKeysByPath::drop(std::string_view path, const std::shared_ptr<CSharedKey>& key) {
    const CCritSecGuard guard(m_critSec, __LINE__);
    const auto found = m_keys.find(path);
    if (found != m_keys.end() && found->second == key) {
        m_keys.erase(found);  // not the last reference: the caller has one
    }
}

void CKeysByPath::drop(std::string_view path) {
    if (const std::shared_ptr<CSharedKey> key = find(path)) {
        drop(path, key);
    }
}

}  // namespace VQRegLib
