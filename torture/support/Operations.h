// Every public operation as a piece that can be run while something fails below it, with the text that
// the file has before and the text that it has when the operation has succeeded.
#ifndef VQTORTURE_OPERATIONS_H
#define VQTORTURE_OPERATIONS_H

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VQRegLib.h"
#include "support/Handlers.h"

namespace vqtorture {

/// What an operation works on. The destructor takes the handles and the session back.
struct Scene {
    explicit Scene(std::string file, const char* rootKey = nullptr);
    ~Scene();
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;

    void open();
    bool hasStore() const { return session && session->RootKey() != nullptr; }
    VQRegLib::CRegKey& rootKey() { return *session->RootKey(); }

    const std::string path;
    const char* const root;
    std::optional<VQRegLib::CRegLib> session;
    VQRegLib::CRegKey key;
    std::vector<VQRegLib::CRegKey*> keys;
    std::vector<std::string> names;
    std::string name;
    vqtest::Handler handler;
    std::shared_ptr<void> more;  ///< what else the operation needs
};

/// What an operation does with the session.
enum class SessionUse {
    eUses,    ///< finds it open
    eOpens,   ///< finds a file, and opens it
    eCreates  ///< finds nothing, and opens it
};

struct Operation {
    std::string name;
    std::string before;  ///< the text of the file before `prepare`
    std::string found;   ///< and after it
    std::string after;   ///< of the file when the operation has succeeded
    SessionUse use = SessionUse::eUses;
    const char* root = nullptr;
    std::vector<std::string> between = {};  ///< of the file on the way, or where it went no further
    /// What the file may hold at last when the operation has failed after the tree was changed, and
    /// another process has changed the file since: of two values that of the file wins.
    std::string merged = {};
    bool mayThrow =
        false;  ///< VQException, without memory; the session cannot be used any more then
    bool deletes = false;                      ///< what it deletes other processes may write again
    bool hasThreads = false;                   ///< it takes a tenth of a second and more
    std::function<void(Scene&)> prepare = {};  ///< what is done while everything works
    std::function<int(Scene&)> act = {};
    // When everything works again, before comeOn() and after it. They throw when something is missing.
    std::function<void(Scene&)> healed = {};
    std::function<void(Scene&)> finish = {};
};

/// Those that change something, and those that read a change.
std::vector<Operation> changingOperations();

/// Those that look at what is there already.
std::vector<Operation> lookingOperations();

/// Those with threads: registration, notification, their ends.
std::vector<Operation> watchingOperations();

/// A text with a further number at its root key, whose name sorts before all others there.
std::string withNumber(const std::string& text, const char* name, unsigned number,
                       const std::string& keyLine = "[Velquist]\n");

}  // namespace vqtorture

#endif  // VQTORTURE_OPERATIONS_H
