#include "RegLib/base/HashedName.h"

namespace VQRegLib {

const char CHashedName::m_anchor = 0;

}  // namespace VQRegLib
