// Calls of vqreg.h that read.
#include <cstdint>
#include <cstring>
#include <fstream>

#include "memory/CScene.h"
#include "memory/CallTexts.h"

namespace vqtorture {

namespace {

constexpr std::uint32_t kUntouched = 77;
constexpr char kUntouchedText[] = "untouched";

/// What a call gives out, in memory of its own. On failure it must be as it was.
struct Given {
    std::uint32_t number = kUntouched;
    char text[64] = "untouched";
    size_t size = sizeof text;
    vqreg_type type = VQREG_NONE;

    int number3(int code) const {
        check(number == (code == VQREG_OK ? 3 : kUntouched), "the number is another one");
        return code;
    }
    int bytes(int code) const {
        const bool isRight = code == VQREG_OK ? size == 2 && std::memcmp(text, "\x01\x02", 2) == 0
                                              : std::strcmp(text, kUntouchedText) == 0;
        check(isRight, "the bytes are others");
        return code;
    }
    int belowRoot(int code) const {
        const char* const expected = code == VQREG_OK ? "below the root key" : kUntouchedText;
        check(std::strcmp(text, expected) == 0, "the text is another one");
        return code;
    }
    int ofType(vqreg_type expected, int code) const {
        check(code != VQREG_OK || type == expected, "the type is another one");
        return code;
    }
};

// The names that a visitor was told, each with a blank behind it.
struct Seen {
    char names[64] = "";

    void add(const char* name) {
        std::strncat(names, name, sizeof names - std::strlen(names) - 1);
        std::strncat(names, " ", sizeof names - std::strlen(names) - 1);
    }
    int all(const char* expected, int code) const {
        check(code != VQREG_OK || std::strcmp(names, expected) == 0, "the names are others");
        return code;
    }
};

int seeKey(void* context, const char* name) {
    static_cast<Seen*>(context)->add(name);
    return 0;
}

int seeValue(void* context, const char* name, vqreg_type type, const void* data, size_t size) {
    const bool isWhole = type != VQREG_NONE && data && size != 0;
    static_cast<Seen*>(context)->add(isWhole ? name : "without data");
    return 0;
}

// Takes the list.
int listed(char** names, size_t count, const char* expected, int code) {
    Seen seen;
    check((names == nullptr) == (code != VQREG_OK), "a list and a failure");
    for (size_t i = 0; names && i < count; ++i) {
        seen.add(names[i]);
    }
    check(!names || !names[count], "a list without an end");
    vqreg_free(names);
    return seen.all(expected, code);
}

constexpr char kKeys[] = "Empty Key ";
constexpr char kValues[] = "Bytes Deep Text ";

void openKey(CScene& scene) {
    require(vqreg_open_key(scene.store, "Key", 0, &scene.key) == VQREG_OK, "there is no key");
}

void remember(CScene& scene) {
    require(vqreg_has_key(scene.store, "Key") == VQREG_OK, "there is no key");
}

int getNumber(CScene& scene) {
    Given given;
    return given.number3(vqreg_get_dword(scene.store, "Key", "Deep", &given.number));
}

int getBytes(CScene& scene) {
    Given given;
    return given.bytes(vqreg_get_binary(scene.store, "Key", "Bytes", given.text, &given.size));
}

int getAny(CScene& scene) {
    Given given;
    const int code = vqreg_get(scene.store, "Key", "Text", &given.type, given.text, &given.size);
    return given.ofType(VQREG_STRING, given.belowRoot(code));
}

int askForSize(CScene& scene) {
    Given given;
    const int code = vqreg_get_string(scene.store, "Key", "Text", nullptr, &given.size);
    check(code != VQREG_OK || given.size == 19, "the size is another one");
    return code;
}

// The next call reads the file.
void edit(CScene& scene) {
    std::ofstream(scene.path, std::ios::binary | std::ios::trunc) << kStart;
    require(vqreg_reload(scene.store) == VQREG_OK, "cannot reload");
}

std::vector<CCall> byPath() {
    return {{"vqreg_get_dword", kStart, getNumber},
            {"vqreg_get_dword of a key that was used before", kStart, getNumber, remember},
            {"vqreg_get_dword after an edit", kStart, getNumber, edit},
            {"vqreg_get_string", kStart,
             [](CScene& scene) {
                 Given given;
                 return given.belowRoot(
                     vqreg_get_string(scene.store, "Key", "Text", given.text, &given.size));
             }},
            {"vqreg_get_string of a size", kStart, askForSize},
            {"vqreg_get_binary", kStart, getBytes},
            {"vqreg_get", kStart, getAny},
            {"vqreg_get of nothing", kStart,
             [](CScene& scene) {
                 Given given;
                 return endsWith(
                     VQREG_E_NOT_FOUND,
                     vqreg_get(scene.store, "Key", "None", &given.type, given.text, &given.size));
             }},
            {"vqreg_has_key", kStart,
             [](CScene& scene) { return vqreg_has_key(scene.store, "Key/Sub"); }},
            {"vqreg_has_key of none", kStart,
             [](CScene& scene) {
                 return endsWith(VQREG_E_KEY_NOT_FOUND, vqreg_has_key(scene.store, "Key/None"));
             }},
            {"vqreg_visit_keys", kStart,
             [](CScene& scene) {
                 Seen seen;
                 return seen.all(kKeys, vqreg_visit_keys(scene.store, nullptr, seeKey, &seen));
             }},
            {"vqreg_visit_values", kStart,
             [](CScene& scene) {
                 Seen seen;
                 return seen.all(kValues, vqreg_visit_values(scene.store, "Key", seeValue, &seen));
             }},
            {"vqreg_list_keys", kStart,
             [](CScene& scene) {
                 char** names = nullptr;
                 size_t count = 0;
                 const int code = vqreg_list_keys(scene.store, nullptr, &names, &count);
                 return listed(names, count, kKeys, code);
             }},
            {"vqreg_list_values", kStart, [](CScene& scene) {
                 char** names = nullptr;
                 size_t count = 0;
                 const int code = vqreg_list_values(scene.store, "Key", &names, &count);
                 return listed(names, count, kValues, code);
             }}};
}

std::vector<CCall> byKey() {
    return {
        {"vqreg_key_get_dword", kStart,
         [](CScene& scene) {
             Given given;
             return given.number3(vqreg_key_get_dword(scene.key, "Deep", &given.number));
         },
         openKey},
        {"vqreg_key_get_string", kStart,
         [](CScene& scene) {
             Given given;
             return given.belowRoot(
                 vqreg_key_get_string(scene.key, "Text", given.text, &given.size));
         },
         openKey},
        {"vqreg_key_get_binary", kStart,
         [](CScene& scene) {
             Given given;
             return given.bytes(vqreg_key_get_binary(scene.key, "Bytes", given.text, &given.size));
         },
         openKey},
        {"vqreg_key_get", kStart,
         [](CScene& scene) {
             Given given;
             const int code =
                 vqreg_key_get(scene.key, "Bytes", &given.type, given.text, &given.size);
             return given.ofType(VQREG_BINARY, given.bytes(code));
         },
         openKey},
        {"vqreg_key_visit_keys", kStart,
         [](CScene& scene) {
             Seen seen;
             return seen.all("Sub ", vqreg_key_visit_keys(scene.key, seeKey, &seen));
         },
         openKey},
        {"vqreg_key_visit_values", kStart,
         [](CScene& scene) {
             Seen seen;
             return seen.all(kValues, vqreg_key_visit_values(scene.key, seeValue, &seen));
         },
         openKey}};
}

}  // namespace

std::vector<CCall> readingCCalls() {
    std::vector<CCall> all = byPath();
    for (const CCall& each : byKey()) {
        all.push_back(each);
    }
    return all;
}

}  // namespace vqtorture
