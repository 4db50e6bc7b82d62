// One step of a sequence: what some process does with the library, or what somebody does to the files.
// Every step can be taken in every state, so that a sequence stays one when steps are left out of it.
#ifndef VQTORTURE_MODEL_STEP_H
#define VQTORTURE_MODEL_STEP_H

#include <array>
#include <cstddef>
#include <iosfwd>
#include <string>

#include "support/Wire.h"

namespace vqtorture::model {

enum class Verb {
    eOpenSession,  // `number`: which store
    eCloseSession,
    eCreateKey,  // `flag`: whether missing keys are made
    eDeleteKey,
    eSetString,
    eSetDword,
    eSetBinary,
    eDeleteValue,
    eQueryType,
    eQuery,       // `number`: the size of the buffer
    eEnumKeys,    // `number`: which indices, in which order
    eEnumValues,  // likewise
    eLook,        // at what a handle says of itself
    eDrop,        // destroys a handle and makes an empty one
    eParse,
    eCreateVect,
    eDestroyVect,
    eDump,
    eBegin,
    eEnd,
    eReload,
    eCrowd,       // `number`: what is done with each of many names
    eBeginScope,  // of a CRegUpdate
    eEndScope,    // with its end(); `number`: of which one
    eDropScope,   // destroys one
    eRegister,    // `number`: which change handler, or none
    eUnregister,  // likewise
    eNotify,
    eWatch,  // which change handlers are told that the file has changed
    // What is done to the files. `key`: which file; `data`: what is written; `number`: where it is cut.
    eWriteFile,
    eAppendFile,
    eEditFile,  // a line that is put in, or taken out; `number`: before which line, or which one
    eCutFile,
    eRemoveFile,
    eWriteBackup,
    eRemoveBackup,
    eHideDirectory,
    eShowDirectory,
};

constexpr std::size_t kVerbs = static_cast<std::size_t>(Verb::eShowDirectory) + 1;

/// The ways to name the stores: two files, the first one under two names, with several root keys. Those
/// of one file share nothing else unless file and root key are spelt alike.
struct StoreName {
    const char* file;
    const char* root;
};
constexpr std::array<StoreName, 12> kStoreNames = {{{"a.cfg", nullptr},
                                                    {"b.cfg", nullptr},
                                                    {"a.cfg", "Velquist"},
                                                    {"./a.cfg", nullptr},
                                                    {"a.cfg", "Site"},
                                                    {"a.cfg", "velquist/a"},
                                                    {"a.cfg", "Velquist/a/b"},
                                                    {"b.cfg", "Site\\a"},
                                                    {"a.cfg", "<root>"},
                                                    {"a.cfg", ""},
                                                    {"a.cfg", "Velquist/"},
                                                    {"a.cfg", "]x"}}};

constexpr int kProcesses = 3;
constexpr int kSessions = 3;
constexpr int kHandles = 3;
constexpr std::size_t kChangeHandlers = 2;
constexpr int kFiles = 2;
constexpr std::array<const char*, kFiles> kFileNames = {"a.cfg", "b.cfg"};

/// What a step's `key` and `parent` mean: 0 the root key of the session, 1 to 3 a handle of the process,
/// 4 to 6 a key of the vector (or a handle where the vector is shorter), 7 none.
constexpr int kFirstOfVect = kHandles + 1;
constexpr int kNoKey = kFirstOfVect + 3;

struct Step {
    Verb verb = Verb::eLook;
    int process = 0;
    int session = 0;
    int key = 0;
    int parent = 0;
    int number = 0;
    bool flag = false;
    std::string text = {};  ///< a path, or the name of a value
    std::string data = {};
};

bool concernsFiles(const Step& step);

/// Whether the step opens or closes a session, or registers or removes a change handler, which nobody does
/// in an update.
bool isForbiddenInUpdate(const Step& step);

/// What an eEditFile makes of a text.
std::string edited(const std::string& text, const Step& step);

/// Whether the step cannot change a file that is there, and so waits for nobody who does. Openings of
/// sessions are not among them, though many are so.
bool onlyReads(const Step& step);

vqtest::Fields toFields(const Step& step);
Step fromFields(const vqtest::Fields& fields);

std::ostream& operator<<(std::ostream& out, const Step& step);

}  // namespace vqtorture::model

#endif  // VQTORTURE_MODEL_STEP_H
