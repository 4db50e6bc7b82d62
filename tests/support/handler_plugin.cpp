// A module of a program that does not know the library: watches a store for a while.
#include "VQRegLib.h"
#include "support/Handlers.h"

extern "C" __attribute__((visibility("default"))) int watchOnce(const char* path);

// 0 when a handler has been called after a change. Leaves no session.
extern "C" int watchOnce(const char* path) {
    VQRegLib::CRegLib session(path, nullptr, VQRegLib::CRegLib::eLocationDefault, nullptr);
    vqtest::Handler handler;
    session.SetRegistryChangeHandler(&handler);
    if (!vqtest::waitWatchers(1)) {
        return 1;
    }
    vqtest::moveFileTime(path);
    session.SendRegistryChangeNotification();
    const bool isCalled = handler.waitCalls(1);
    session.ClrRegistryChangeHandler(&handler);
    return isCalled ? 0 : 2;
}
