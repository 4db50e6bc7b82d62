// The names in a key, as one list.
#ifndef REGLIB_C_LISTING_H
#define REGLIB_C_LISTING_H

#include <string>
#include <vector>

#include "VQRegLib.h"

namespace VQRegLib {

enum class eListed { eKeys, eValues };

// In order, each once. What others add while they are being taken may be missing.
[[nodiscard]] int listNames(CRegLib& session, CRegKey& key, eListed what,
                            std::vector<std::string>& names);

}  // namespace VQRegLib

#endif  // REGLIB_C_LISTING_H
