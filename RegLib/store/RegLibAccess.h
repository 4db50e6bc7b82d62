// The one way for the library into a session.
#ifndef REGLIB_STORE_REGLIBACCESS_H
#define REGLIB_STORE_REGLIBACCESS_H

#include "VQRegLib.h"

namespace VQRegLib {

class CRegLibAccess {
public:
    // The session's store; null when it has none.
    static CRegLibImpl* store(const CRegLib& session) { return session.m_pImpl; }
};

}  // namespace VQRegLib

#endif  // REGLIB_STORE_REGLIBACCESS_H
