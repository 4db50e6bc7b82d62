#include "RegLib/text/NotificationName.h"

#include <cstdio>

namespace VQRegLib {

std::string notificationSemaphoreName(long pid) {
    char digits[15];
    // At least four digits; far from the limit.
    (void)std::snprintf(digits, sizeof digits, "%04d", static_cast<int>(pid));
    return std::string(kNotificationPrefix) + digits;
}

}  // namespace VQRegLib
