#include "ends/CancelledOperations.h"

#include <cstdio>
#include <string>
#include <vector>

#include "support/Handlers.h"
#include "support/Sessions.h"
#include "support/Torture.h"
#include "vqreg.h"

namespace vqtorture {

namespace {

using VQRegLib::REGLIB_OK;
using vqtest::CRegLib;

int setOnce(Stores& stores) {
    return vqtest::setNumber(*stores.session, "A", 2);
}

int updateOnce(Stores& stores) {
    VQRegLib::CRegUpdate update(*stores.session);
    for (const char* name : {"A", "B", "C"}) {
        if (vqtest::setNumber(*stores.session, name, 2) != REGLIB_OK) {
            return -1;
        }
    }
    return update.end();
}

int openOnce(Stores& stores) {
    const auto opened = vqtest::openSession(stores.file.path(), "Opened");
    return opened->RootKey() ? vqtest::setNumber(*stores.session, "A", 2) : -1;
}

int openNewOnce(Stores& stores) {
    const std::string path = stores.file.directory() + "/new.cfg";
    const auto opened = vqtest::openSession(path);
    return opened->RootKey() ? vqtest::setNumber(*stores.session, "A", 2) : -1;
}

int registerOnce(Stores& stores) {
    vqtest::Handler handler;
    stores.session->SetRegistryChangeHandler(&handler);
    const int sent = stores.session->SendRegistryChangeNotification();
    stores.session->ClrRegistryChangeHandler(&handler);
    return sent == REGLIB_OK ? vqtest::setNumber(*stores.session, "A", 2) : sent;
}

int deleteOnce(Stores& stores) {
    CRegLib& session = *stores.session;
    vqtest::CRegKey key;
    const bool isDone = session.VQRegCreateKey(nullptr, "Sub/Deep", key, 1) == REGLIB_OK &&
                        session.VQRegDeleteValue(*session.RootKey(), "A") == REGLIB_OK &&
                        session.VQRegDeleteKey(*session.RootKey(), "Sub/Deep") == REGLIB_OK &&
                        session.VQRegDeleteKey(*session.RootKey(), "Sub") == REGLIB_OK;
    return isDone ? vqtest::setNumber(session, "A", 2) : -1;
}

int openManyOnce(Stores& stores) {
    std::vector<vqtest::CRegKey*> keys;
    std::vector<std::string> names;
    const bool isDone = stores.session->VQRegCreateKeyVect(nullptr, "Some/Keys/More", keys, names,
                                                           1) == REGLIB_OK &&
                        keys.size() == 3 && stores.session->VQRegDestroyKeyVect(keys) == REGLIB_OK;
    return isDone ? vqtest::setNumber(*stores.session, "A", 2) : -1;
}

int reloadOnce(Stores& stores) {
    const int reloaded = stores.session->VQRegReload();
    return reloaded == REGLIB_OK ? vqtest::setNumber(*stores.session, "A", 2) : reloaded;
}

int beginAndEndOnce(Stores& stores) {
    const bool isDone = stores.session->VQRegBeginUpdate() == REGLIB_OK &&
                        vqtest::setNumber(*stores.session, "A", 2) == REGLIB_OK;
    return isDone ? stores.session->VQRegEndUpdate() : -1;
}

int dumpOnce(Stores& stores) {
    stores.session->dump();
    return vqtest::setNumber(*stores.session, "A", 2);
}

int watchOnce(Stores& stores) {
    const std::string path = stores.file.path();
    vqreg_store* const store = vqreg_open(path.c_str(), nullptr, nullptr);
    vqreg_watch* const watch = vqreg_watch_open(store, "", nullptr);
    const int result = vqtest::setNumber(*stores.session, "A", 2);
    const vqreg_change* change = nullptr;
    const bool isTold =
        vqreg_watch_next(watch, &change) == 1 && vqreg_why(path.c_str(), nullptr, 0) == 0;
    vqreg_watch_close(watch);
    vqreg_close(store);
    return isTold ? result : -1;
}

// After a change by somebody else.
int queryOnce(Stores& stores) {
    return vqtest::numberOf(*stores.session, "A") == 2 ? REGLIB_OK : -1;
}

// The file is missing, so that it is made again.
int queryOfMissingOnce(Stores& stores) {
    return vqtest::numberOf(*stores.session, "A") == 1 ? REGLIB_OK : -1;
}

void nothing(Stores&) {}

// As another process does it, whose tree has the number of this one's key, too.
void changeByOther(Stores& stores) {
    CRegLib& other = *stores.other;
    vqtest::CRegKey top;
    vqtest::CRegKey key;
    require(other.VQRegCreateKey(&top, "Velquist", key, 0) == REGLIB_OK &&
                other.VQRegSetValue(key, "A", 2ul) == REGLIB_OK,
            "the other store is refused a change");
}

void removeFile(Stores& stores) {
    std::remove(stores.file.path().c_str());
    require(stores.other->VQRegReload() == REGLIB_OK, "the stamp is not renewed");
}

void silence(Stores&) {
    require(std::freopen("/dev/null", "w", stdout) != nullptr, "the output cannot be thrown away");
}

constexpr CancelledOperation kOperations[] = {
    {"set", setOnce, 2, nothing},
    {"update", updateOnce, 2, nothing},
    {"open", openOnce, 2, nothing},
    {"open of nothing", openNewOnce, 2, nothing},
    {"register", registerOnce, 2, nothing},
    {"deletions", deleteOnce, 2, nothing},
    {"keys of a path", openManyOnce, 2, nothing},
    {"reload", reloadOnce, 2, nothing},
    {"begin and end", beginAndEndOnce, 2, nothing},
    {"dump", dumpOnce, 2, silence},
    {"watch", watchOnce, 2, nothing},
    {"query", queryOnce, 2, changeByOther},
    {"query of a missing file", queryOfMissingOnce, 1, removeFile}};

}  // namespace

Stores::Stores(const vqtest::TempStore& place)
    : session(vqtest::openSession(place.path())),
      other(vqtest::openSession(place.path(), "Other")),
      file(place) {
    require(session->RootKey() && other->RootKey(), "a session has no store");
    require(vqtest::setNumber(*session, "A", 1) == REGLIB_OK, "a set is refused");
    require(vqtest::setNumber(*other, "A", 1) == REGLIB_OK, "a set is refused");
}

std::span<const CancelledOperation> cancelledOperations() {
    return kOperations;
}

}  // namespace vqtorture
