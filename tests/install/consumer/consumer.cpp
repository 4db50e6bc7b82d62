// consumer FILE
//
// Uses every part of the installed interface once. Prints the standard that it was compiled for.
#include <VQRegLib.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

class Handler : public VQRegLib::CRegistryChangeHandler {
public:
    void OnRegistryChange() override {}
};

bool check(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "consumer: %s failed\n", what);
    }
    return condition;
}

bool useValues(VQRegLib::CRegLib& session, VQRegLib::CRegKey& key) {
    using VQRegLib::CRegLib;
    const unsigned char bytes[] = {1, 2, 3};
    unsigned char data[16];
    unsigned long size = sizeof data;
    std::string name;
    CRegLib::eDataType type = CRegLib::eNone;
    VQRegLib::CRegUpdate update(session);
    return check(session.VQRegSetValue(key, "Number", 31ul) == VQRegLib::REGLIB_OK, "number") &&
           check(session.VQRegSetValue(key, "Text", "abc") == 0, "text") &&
           check(session.VQRegSetValue(key, "Bytes", bytes, sizeof bytes) == 0, "bytes") &&
           check(session.VQRegQueryValue(key, "Text", type, data, &size) == 0 && size == 4 &&
                     type == CRegLib::eString && std::memcmp(data, "abc", 4) == 0,
                 "query") &&
           check(session.VQRegQueryValueType(key, "Number", type) == 0 && type == CRegLib::eDword,
                 "type") &&
           check(session.VQRegEnumValues(key, 0, name, type) == 0 && name == "Bytes", "values") &&
           check(session.VQRegDeleteValue(key, "none") == VQRegLib::REGLIB_E_NOT_FOUND, "delete") &&
           check(update.end() == VQRegLib::REGLIB_OK, "update");
}

bool useKeys(VQRegLib::CRegLib& session) {
    std::vector<VQRegLib::CRegKey*> keys;
    std::vector<std::string> names;
    std::string name;
    VQRegLib::CRegKey& root = *session.RootKey();
    return check(session.VQRegCreateKeyVect(&root, "a/b", keys, names, 1) == 0 && keys.size() == 2,
                 "keys") &&
           check(session.VQRegDestroyKeyVect(keys) == 0 && keys.empty(), "freeing keys") &&
           check(session.ParseKeyPath("x/y", names) == 0 && names.size() == 4, "path") &&
           check(session.VQRegEnumKeys(root, 0, name) == 0 && name == "a", "sub keys") &&
           check(session.VQRegDeleteKey(root, "a/b") == 0, "delete key");
}

}  // namespace

int main(int argc, char** argv) {
    using namespace VQRegLib;
    if (argc != 2) {
        return 2;
    }
    Handler handler;
    int result = -1;
    CRegLib session(argv[1], nullptr, CRegLib::eLocationDefault, &result);
    if (!check(result == REGLIB_OK && session.RootKey() != nullptr, "session")) {
        return 1;
    }
    session.SetRegistryChangeHandler(&handler);
    session.ClrRegistryChangeHandler(&handler);
    CRegKey key;
    if (!check(session.VQRegCreateKey(nullptr, "Sub", key, 1) == 0, "key") ||
        !check(std::string(key.GetKeyFullName()) == "[Velquist/Sub]", "full name") ||
        !check(key.GetKeyHandleID() > 1, "id") || !useValues(session, key) || !useKeys(session)) {
        return 1;
    }
    const VQException exception(REGLIB_E_FAIL, "consumer", 1);
    if (!check(std::strcmp(exception.m_szText, "consumer.1") == 0, "exception")) {
        return 1;
    }
    session.dump();
    std::printf("%ld\n", static_cast<long>(__cplusplus));
    return 0;
}
