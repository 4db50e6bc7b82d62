// Opens a store that another process has filled, prints a part of its tree, changes a value and
// adds one of bytes.
//
//   retune STORE|- TREE
#include <VQRegLib.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

using VQRegLib::CRegKey;
using VQRegLib::CRegLib;

constexpr int kShownPerKey = 4;

void showValue(CRegLib& session, CRegKey& key, const std::string& name, int indent) {
    CRegLib::eDataType type = CRegLib::eNone;
    unsigned char data[4096];
    unsigned long size = sizeof data;
    if (session.VQRegQueryValue(key, name.c_str(), type, data, &size) < 0) {
        return;
    }
    if (type == CRegLib::eDword) {
        std::uint32_t number = 0;
        std::memcpy(&number, data, sizeof number);
        std::printf("%*s%s = %u\n", indent, "", name.c_str(), number);
    } else if (type == CRegLib::eString) {
        std::printf("%*s%s = \"%.40s\"\n", indent, "", name.c_str(),
                    reinterpret_cast<const char*>(data));
    }
}

void show(CRegLib& session, CRegKey& key, int indent) {
    std::printf("%*s%s\n", indent, "", key.GetKeyFullName());
    std::string name;
    CRegLib::eDataType type = CRegLib::eNone;
    for (int i = 0; i < kShownPerKey && session.VQRegEnumValues(key, i, name, type) >= 0; ++i) {
        showValue(session, key, name, indent + 3);
    }
    for (int i = 0; i < kShownPerKey && session.VQRegEnumKeys(key, i, name) >= 0; ++i) {
        CRegKey child;
        if (session.VQRegCreateKey(&key, name.c_str(), child, 0) >= 0) {
            show(session, child, indent + 3);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: retune STORE|- TREE\n");
        return 2;
    }
    const char* const store = std::strcmp(argv[1], "-") == 0 ? nullptr : argv[1];
    CRegLib session(store, nullptr, CRegLib::eLocationDefault, nullptr);
    CRegKey kernel;
    if (session.VQRegCreateKey(nullptr, (std::string(argv[2]) + "/kernel").c_str(), kernel, 0) <
        0) {
        std::fprintf(stderr, "retune: the store has no kernel settings\n");
        return 1;
    }
    std::printf("Process %d sees, among others:\n", getpid());
    show(session, kernel, 3);
    const unsigned char fingerprint[] = {0xCA, 0xFE, 0x00, 0x2A};
    if (session.VQRegSetValue(kernel, "hostname", "changed.example") < 0 ||
        session.VQRegSetValue(kernel, "fingerprint", fingerprint, sizeof fingerprint) < 0) {
        return 1;
    }
    std::printf("Process %d set hostname and fingerprint, and announces it.\n", getpid());
    std::fflush(stdout);
    session.SendRegistryChangeNotification();
    return 0;
}
