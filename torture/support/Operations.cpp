#include "support/Operations.h"

#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <utility>

namespace vqtorture {

using namespace VQRegLib;

namespace {

constexpr unsigned char kBytes[] = {0xAB, 0xCD, 0xEF};

const std::string kHead = "[Velquist]\n";
const std::string kNumber = "\"Number\"=dword:00000001\n";
const std::string kText = "\"Text\"=string:old\n";
const std::string kEmptyKey = "[Velquist/Empty]\n";
const std::string kKey = "[Velquist/Key]\n\"Bytes\"=binary:0102\n";
const std::string kUsual = kHead + kNumber + kText + kEmptyKey + kKey;

const std::string kNewNumber = "\"Number\"=dword:00000002\n";
const std::string kLongText(700, 't');

// More than one call reads or writes.
std::string manyValues() {
    std::string text = "[Velquist/Many]\n";
    for (int i = 10'000; i < 11'500; ++i) {
        text += "\"Value" + std::to_string(i) + "\"=string:" + std::string(40, 'm') + "\n";
    }
    return text;
}

// Writes what another program would, and lets everybody know.
void editFile(Scene& scene, const std::string& text) {
    std::ofstream(scene.path, std::ios::binary | std::ios::trunc) << text;
    if (scene.session->VQRegReload() != REGLIB_OK) {
        throw std::logic_error("cannot reload");
    }
}

void openHandle(Scene& scene) {
    if (scene.session->VQRegCreateKey(nullptr, "Key", scene.key, 0) != REGLIB_OK) {
        throw std::logic_error("there is no key");
    }
}

int setNumber(Scene& scene) {
    return scene.session->VQRegSetValue(scene.rootKey(), "Number", 2ul);
}

int setBytes(Scene& scene) {
    return scene.session->VQRegSetValue(scene.key, "More", kBytes, sizeof kBytes);
}

int createKeys(Scene& scene) {
    return scene.session->VQRegCreateKey(nullptr, "New/Path", scene.key, 1);
}

// The result does not tell whether there are keys.
int createVector(Scene& scene) {
    const int code =
        scene.session->VQRegCreateKeyVect(nullptr, "New/Path", scene.keys, scene.names, 1);
    return scene.keys.size() == 2 ? code : REGLIB_E_FAIL;
}

int queryNumber(Scene& scene) {
    CRegLib::eDataType type = CRegLib::eNone;
    unsigned char buffer[16];
    unsigned long size = sizeof buffer;
    return scene.session->VQRegQueryValue(scene.rootKey(), "Number", type, buffer, &size);
}

int queryText(Scene& scene) {
    CRegLib::eDataType type = CRegLib::eNone;
    unsigned char buffer[16];
    unsigned long size = sizeof buffer;
    return scene.session->VQRegQueryValue(scene.rootKey(), "Text", type, buffer, &size);
}

int queryBytes(Scene& scene) {
    CRegLib::eDataType type = CRegLib::eNone;
    unsigned long size = 0;
    const int code = scene.session->VQRegQueryValue(scene.key, "Bytes", type, nullptr, &size);
    return code == REGLIB_E_BUFFER_TOO_SMALL ? REGLIB_OK : code;
}

int queryType(Scene& scene) {
    CRegLib::eDataType type = CRegLib::eNone;
    return scene.session->VQRegQueryValueType(scene.rootKey(), "Number", type);
}

int enumerateValues(Scene& scene) {
    CRegLib::eDataType type = CRegLib::eNone;
    return scene.session->VQRegEnumValues(scene.rootKey(), 0, scene.name, type);
}

int enumerateKeys(Scene& scene) {
    return scene.session->VQRegEnumKeys(scene.rootKey(), 1, scene.name);
}

int openKey(Scene& scene) {
    return scene.session->VQRegCreateKey(nullptr, "Key", scene.key, 0);
}

// Begins it, changes three things as far as that is possible, and ends it.
int update(Scene& scene) {
    int result = scene.session->VQRegBeginUpdate();
    if (result < 0) {
        return result;
    }
    result = setNumber(scene);
    if (result >= 0) {
        result = scene.session->VQRegSetValue(scene.rootKey(), "Text", "new");
    }
    if (result >= 0) {
        result = scene.session->VQRegSetValue(scene.rootKey(), "Changed", "in an update");
    }
    const int ended = scene.session->VQRegEndUpdate();
    return ended < 0 ? ended : result;
}

int openSession(Scene& scene) {
    scene.open();
    return scene.hasStore() ? REGLIB_OK : REGLIB_E_FILE_OPEN;
}

int closeSession(Scene& scene) {
    scene.session.reset();
    return REGLIB_OK;
}

const std::string kChanged = "\"Changed\"=string:in an update\n";
const std::string kUpdated =
    kHead + kChanged + kNewNumber + "\"Text\"=string:new\n" + kEmptyKey + kKey;
const std::string kEdited = kHead + "\"Number\"=dword:00000009\n" + kText + "[Velquist/Edited]\n" +
                            kEmptyKey + kKey + "\"New\"=string:" + kLongText + "\n";

Operation operation(const char* name, std::string after, int (*act)(Scene&),
                    void (*prepare)(Scene&) = nullptr) {
    Operation made{name, kUsual, kUsual, std::move(after)};
    made.act = act;
    if (prepare) {
        made.prepare = prepare;
    }
    return made;
}

// Fills a handle.
Operation throwing(Operation made) {
    made.mayThrow = true;
    return made;
}

Operation opening(const char* name, const std::string& before, std::string after, SessionUse use,
                  const char* root = nullptr) {
    Operation made{name, before, before, std::move(after), use, root};
    made.act = openSession;
    return made;
}

// The same after another program has changed the file, which is read on the way.
Operation afterAnEdit(const char* name, std::string after, int (*act)(Scene&)) {
    Operation made =
        operation(name, std::move(after), act, [](Scene& scene) { editFile(scene, kEdited); });
    made.found = kEdited;
    return made;
}

// The same in a store of many values.
Operation inALargeStore(const char* name, std::string after, int (*act)(Scene&),
                        void (*prepare)(Scene&) = nullptr) {
    Operation made = operation(name, after + manyValues(), act, prepare);
    made.before += manyValues();
    made.found = prepare ? made.after : made.before;
    return made;
}

Operation wholeUpdate() {
    Operation made = operation("an update", kUpdated, update);
    made.between = {kHead + kNewNumber + kText + kEmptyKey + kKey,
                    kHead + kNewNumber + "\"Text\"=string:new\n" + kEmptyKey + kKey};
    made.merged = kHead + kChanged + kNumber + kText + kEmptyKey + kKey;
    return made;
}

std::vector<Operation> deletions() {
    std::vector<Operation> all = {
        operation(
            "the deletion of a value", kHead + kNumber + kEmptyKey + kKey,
            [](Scene& scene) { return scene.session->VQRegDeleteValue(scene.rootKey(), "Text"); }),
        operation("the deletion of a key", kHead + kNumber + kText + kKey, [](Scene& scene) {
            return scene.session->VQRegDeleteKey(scene.rootKey(), "Empty");
        })};
    for (Operation& each : all) {
        each.deletes = true;
        each.mayThrow = each.name == "the deletion of a key";
    }
    return all;
}

// The first of the two may be there without the other one: each key of a vector is written by itself, and
// where a path comes to no more than its first key, that stays in memory.
Operation newKeys(const char* name, int (*act)(Scene&)) {
    Operation made = operation(name, kUsual + "[Velquist/New]\n[Velquist/New/Path]\n", act);
    made.mayThrow = true;
    made.between = {kUsual + "[Velquist/New]\n"};
    return made;
}

std::vector<Operation> openings() {
    return {opening("the first opening", "", kHead, SessionUse::eCreates),
            opening("an opening", kUsual, kUsual, SessionUse::eOpens),
            opening("an opening with another root", kUsual, "[Other]\n[Other/Site]\n" + kUsual,
                    SessionUse::eOpens, "Other/Site"),
            operation("a closing", kUsual, closeSession)};
}

}  // namespace

Scene::Scene(std::string file, const char* rootKey) : path(std::move(file)), root(rootKey) {}

Scene::~Scene() {
    for (CRegKey* const each : keys) {
        delete each;
    }
    session.reset();  // before the handler
}

void Scene::open() {
    session.emplace(path.c_str(), root, CRegLib::eLocationDefault, nullptr);
}

std::vector<Operation> changingOperations() {
    const std::string changed = kHead + kNewNumber + kText + kEmptyKey + kKey;
    std::vector<Operation> all = openings();
    for (const Operation& each : deletions()) {
        all.push_back(each);
    }
    const std::vector<Operation> others = {
        operation("a number", changed, setNumber),
        operation(
            "a text", kHead + kNumber + "\"Text\"=string:" + kLongText + "\n" + kEmptyKey + kKey,
            [](Scene& scene) {
                return scene.session->VQRegSetValue(scene.rootKey(), "Text", kLongText.c_str());
            }),
        operation("new bytes", kUsual + "\"More\"=binary:ABCDEF\n", setBytes, openHandle),
        newKeys("new keys", createKeys),
        newKeys("a vector of new keys", createVector),
        wholeUpdate(),
        operation("a reload", kUsual, [](Scene& scene) { return scene.session->VQRegReload(); }),
        afterAnEdit("a query after an edit", kEdited, queryNumber),
        afterAnEdit("an enumeration after an edit", kEdited, enumerateValues),
        throwing(afterAnEdit("a key after an edit", kEdited, openKey)),
        afterAnEdit("a number after an edit",
                    kHead + kNewNumber + kEdited.substr(kHead.size() + kNumber.size()), setNumber),
        inALargeStore("a number in a large store", changed, setNumber),
        inALargeStore("a query after an edit of a large store", kEdited, queryNumber,
                      [](Scene& scene) { editFile(scene, kEdited + manyValues()); })};
    all.insert(all.end(), others.begin(), others.end());
    return all;
}

std::vector<Operation> lookingOperations() {
    return {operation("a query of a number", kUsual, queryNumber),
            operation("a query of a text", kUsual, queryText),
            operation("a query of bytes", kUsual, queryBytes, openHandle),
            operation("a query of a type", kUsual, queryType),
            operation("an enumeration of values", kUsual, enumerateValues),
            operation("an enumeration of keys", kUsual, enumerateKeys),
            throwing(operation("an existing key", kUsual, openKey)),
            operation("a set of the same", kUsual,
                      [](Scene& scene) {
                          return scene.session->VQRegSetValue(scene.rootKey(), "Text", "old");
                      }),
            throwing(operation("a vector of keys", kUsual,
                               [](Scene& scene) {
                                   return scene.session->VQRegCreateKeyVect(
                                       nullptr, "Key", scene.keys, scene.names, 0);
                               })),
            operation(
                "the end of a vector", kUsual,
                [](Scene& scene) { return scene.session->VQRegDestroyKeyVect(scene.keys); },
                [](Scene& scene) {
                    (void)scene.session->VQRegCreateKeyVect(nullptr, "Key", scene.keys, scene.names,
                                                            0);
                }),
            operation("a path", kUsual,
                      [](Scene& scene) {
                          return scene.session->ParseKeyPath("some/path/of/names", scene.names);
                      }),
            operation("a dump", kUsual, [](Scene& scene) {
                scene.session->dump();
                return REGLIB_OK;
            })};
}

namespace {

int watch(Scene& scene) {
    scene.session->SetRegistryChangeHandler(&scene.handler);
    return REGLIB_OK;
}

void watchAndWait(Scene& scene) {
    watch(scene);
    if (!vqtest::waitWatchers(1)) {
        throw std::logic_error("no watcher");
    }
}

}  // namespace

std::vector<Operation> watchingOperations() {
    std::vector<Operation> all = {
        throwing(operation("a registration", kUsual, watch)),
        throwing(operation("another registration", kUsual, watch, watchAndWait)),
        operation(
            "the end of a registration", kUsual,
            [](Scene& scene) {
                scene.session->ClrRegistryChangeHandler(&scene.handler);
                return REGLIB_OK;
            },
            watchAndWait),
        operation(
            "a notification", kUsual,
            [](Scene& scene) { return scene.session->SendRegistryChangeNotification(); },
            [](Scene& scene) {
                watchAndWait(scene);
                vqtest::moveFileTime(scene.path);
            }),
        operation("a closing with a handler", kUsual, closeSession, watchAndWait)};
    for (Operation& each : all) {
        each.hasThreads = true;
    }
    return all;
}

std::string withNumber(const std::string& text, const char* name, unsigned number,
                       const std::string& keyLine) {
    char line[64];
    std::snprintf(line, sizeof line, "\"%s\"=dword:%08X\n", name, number);
    const std::size_t at = text.find(keyLine);
    return at == std::string::npos ? text + keyLine + line
                                   : std::string(text).insert(at + keyLine.size(), line);
}

}  // namespace vqtorture
