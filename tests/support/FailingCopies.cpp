#include "support/FailingCopies.h"

namespace {

constexpr int kUnlimited = -1;
int g_copiesLeft = kUnlimited;

}  // namespace

namespace vqtest {

CopiesLeft::CopiesLeft(int count) {
    g_copiesLeft = count;
}

CopiesLeft::~CopiesLeft() {
    g_copiesLeft = kUnlimited;
}

}  // namespace vqtest

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker gives them
extern "C" {
char* __real_strdup(const char* text);
char* __wrap_strdup(const char* text);

char* __wrap_strdup(const char* text) {
    if (g_copiesLeft == 0) {
        return nullptr;
    }
    g_copiesLeft -= g_copiesLeft > 0 ? 1 : 0;
    return __real_strdup(text);
}
}
// NOLINTEND(bugprone-reserved-identifier)
