#include "RegLib/trace/Echo.h"

#include <cstdio>
#include <cstring>

namespace VQRegLib {

namespace {

constexpr int kArguments = 8;

// True for a conversion that reads one integer or pointer argument, or none, and writes nothing but
// text; moves behind it.
bool isHarmlessConversion(const char*& at, int& arguments) {
    ++at;  // the "%"
    if (*at == '%') {
        ++at;
        return true;
    }
    at += std::strspn(at, "-+ #0");
    const std::size_t width = std::strspn(at, "0123456789");
    if (width > 3) {
        return false;
    }
    at += width;
    if (*at == '.') {
        const std::size_t precision = std::strspn(at + 1, "0123456789");
        if (precision > 3) {
            return false;
        }
        at += 1 + precision;
    }
    if (*at == '\0' || !std::strchr("diouxXcsp", *at)) {
        return false;
    }
    ++at;
    return ++arguments <= kArguments;
}

bool isHarmlessFormat(const char* line) {
    int arguments = 0;
    for (const char* at = line; (at = std::strchr(at, '%')) != nullptr;) {
        if (!isHarmlessConversion(at, arguments)) {
            return false;
        }
    }
    return true;
}

}  // namespace

void echoTraceLine(const char* line) {
    if (isHarmlessFormat(line)) {
        const char* const none = nullptr;
        std::printf(line, none, none, none, none, none, none, none, none);
    } else {
        std::fputs(line, stdout);
    }
}

}  // namespace VQRegLib
