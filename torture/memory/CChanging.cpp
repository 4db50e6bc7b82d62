// Calls of vqreg.h that change something.
#include "memory/CScene.h"
#include "memory/CallTexts.h"

namespace vqtorture {

namespace {

const unsigned char kNewBytes[] = {0xAB, 0xCD};

std::string withNumber2() {
    return "[Velquist]\n\"Number\"=dword:00000002\n\"Text\"=string:old\n" + kEmptyLine + kKeyLine +
           kBelow;
}

std::string withoutEmpty() {
    return kRootLines + kKeyLine + kBelow;
}

const std::string kNew = "[Velquist/New]\n";
const std::string kNewPath = kNew + "[Velquist/New/Path]\n";

void openKey(CScene& scene) {
    require(vqreg_open_key(scene.store, "Key", 0, &scene.key) == VQREG_OK, "there is no key");
}

int openNewKey(CScene& scene) {
    vqreg_close_key(scene.key);
    const int code = vqreg_open_key(scene.store, "New/Path", 1, &scene.key);
    check((scene.key != nullptr) == (code == VQREG_OK), "a key and a failure");
    return code;
}

int openOldKey(CScene& scene) {
    vqreg_close_key(scene.key);
    const int code = vqreg_open_key(scene.store, "Key/Sub", 0, &scene.key);
    check((scene.key != nullptr) == (code == VQREG_OK), "a key and a failure");
    return code;
}

// Begins one in another, changes three things as far as that is possible, and ends both.
int update(CScene& scene) {
    int result = vqreg_begin_update(scene.store);
    if (result < 0) {
        return result;
    }
    const int inner = vqreg_begin_update(scene.store);
    result = inner < 0 ? inner : vqreg_set_dword(scene.store, "", "Number", 2);
    result = result < 0 ? result : vqreg_set_string(scene.store, "Key", "Text", "new");
    result = result < 0 ? result : vqreg_delete_key(scene.store, "Empty");
    result = result == VQREG_E_KEY_NOT_FOUND ? VQREG_OK : result;  // done before
    const int innerEnd = inner < 0 ? VQREG_OK : vqreg_end_update(scene.store);
    const int end = vqreg_end_update(scene.store);
    return result < 0 ? result : innerEnd < 0 ? innerEnd : end;
}

CCall wholeUpdate() {
    const std::string number = "[Velquist]\n\"Number\"=dword:00000002\n\"Text\"=string:old\n";
    const std::string key = kKeyLine + kBytesLine + kDeepLine + "\"Text\"=string:new\n" + kSubLines;
    CCall made{"an update", number + key, update};
    made.between = {withNumber2(), number + kEmptyLine + key};
    return made;
}

// Keys that are missing are made first; the first of them may stay alone.
CCall makingKeys(const char* name, const std::string& after, int (*act)(CScene&)) {
    CCall made{name, after, act};
    made.between = {withMore(kNew), withMore(kNewPath)};
    return made;
}

std::vector<CCall> settings() {
    return {
        {"vqreg_set_dword", withNumber2(),
         [](CScene& scene) { return vqreg_set_dword(scene.store, "/", "Number", 2); }},
        {"vqreg_set_dword of the same", kStart,
         [](CScene& scene) { return vqreg_set_dword(scene.store, "Key", "Deep", 3); }},
        makingKeys("vqreg_set_dword in new keys", withMore(kNewPath + "\"V\"=dword:00000004\n"),
                   [](CScene& scene) { return vqreg_set_dword(scene.store, "New/Path", "V", 4); }),
        {"vqreg_set_string", withKey(kBytesLine + kDeepLine + "\"Text\"=string:new\n"),
         [](CScene& scene) { return vqreg_set_string(scene.store, "Key", "Text", "new"); }},
        {"vqreg_set_string of what cannot be stored", kStart,
         [](CScene& scene) {
             return endsWith(VQREG_E_NOT_STORABLE,
                             vqreg_set_string(scene.store, "New", "Text", "two\nlines"));
         }},
        {"vqreg_set_binary", withKey("\"Bytes\"=binary:ABCD\n" + kDeepLine + kTextLine),
         [](CScene& scene) {
             return vqreg_set_binary(scene.store, "Key", "Bytes", kNewBytes, sizeof kNewBytes);
         }},
        {"vqreg_key_set_dword", withKey(kBytesLine + "\"Deep\"=dword:00000004\n" + kTextLine),
         [](CScene& scene) { return vqreg_key_set_dword(scene.key, "Deep", 4); }, openKey},
        {"vqreg_key_set_string", withKey(kBytesLine + kDeepLine + "\"Text\"=string:new\n"),
         [](CScene& scene) { return vqreg_key_set_string(scene.key, "Text", "new"); }, openKey},
        {"vqreg_key_set_binary",
         withKey(kBytesLine + kDeepLine + "\"More\"=binary:ABCD\n" + kTextLine),
         [](CScene& scene) {
             return vqreg_key_set_binary(scene.key, "More", kNewBytes, sizeof kNewBytes);
         },
         openKey}};
}

std::vector<CCall> keysAndDeletions() {
    return {{"vqreg_open_key", kStart, openOldKey},
            makingKeys("vqreg_open_key of a new one", withMore(kNewPath), openNewKey),
            makingKeys("vqreg_create_key", withMore(kNewPath),
                       [](CScene& scene) { return vqreg_create_key(scene.store, "New/Path"); }),
            {"vqreg_create_key of one that exists", kStart,
             [](CScene& scene) { return vqreg_create_key(scene.store, "Key/Sub"); }},
            {"vqreg_delete_key", withoutEmpty(),
             [](CScene& scene) { return vqreg_delete_key(scene.store, "Empty"); }, nullptr,
             VQREG_E_KEY_NOT_FOUND},
            {"vqreg_delete_key of one that is not empty", kStart,
             [](CScene& scene) {
                 return endsWith(VQREG_E_KEY_NOT_EMPTY, vqreg_delete_key(scene.store, "Key/Sub"));
             }},
            {"vqreg_delete_value", withKey(kBytesLine + kDeepLine),
             [](CScene& scene) { return vqreg_delete_value(scene.store, "Key", "Text"); }, nullptr,
             VQREG_E_NOT_FOUND},
            {"vqreg_key_delete_value", withKey(kDeepLine + kTextLine),
             [](CScene& scene) { return vqreg_key_delete_value(scene.key, "Bytes"); }, openKey,
             VQREG_E_NOT_FOUND}};
}

}  // namespace

std::vector<CCall> changingCCalls() {
    std::vector<CCall> all = settings();
    for (const CCall& each : keysAndDeletions()) {
        all.push_back(each);
    }
    all.push_back(wholeUpdate());
    return all;
}

}  // namespace vqtorture
