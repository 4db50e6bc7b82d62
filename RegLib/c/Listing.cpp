// Names are taken by their places, one call each. The session lock keeps the threads of this process from
// changing what stands where between two calls. Other processes can only add: what stood at a place then
// stands at the next, and would come twice. The order tells: a name that is not behind the one before it has
// been there already, and is left out.
#include "RegLib/c/Listing.h"

#include <cstring>
#include <new>

#include "RegLib/base/Folding.h"
#include "RegLib/c/CStore.h"
#include "RegLib/c/Guarded.h"
#include "RegLib/c/ReadValue.h"
#include "RegLib/session/SessionLock.h"
#include "RegLib/store/RegLibAccess.h"
#include "RegLib/store/Store.h"

namespace VQRegLib {

namespace {

int nameAt(CRegLib& session, CRegKey& key, eListed what, int index, std::string& name) {
    CRegLib::eDataType type = CRegLib::eNone;
    return what == eListed::eKeys ? session.VQRegEnumKeys(key, index, name)
                                  : session.VQRegEnumValues(key, index, name, type);
}

}  // namespace

int listNames(CRegLib& session, CRegKey& key, eListed what, std::vector<std::string>& names) {
    const CSessionGuard guard(*CRegLibAccess::store(session), __LINE__);
    if (!guard.isEntered()) {
        return REGLIB_E_FAIL;
    }
    names.clear();
    std::string name;
    for (int index = 0;; ++index) {
        const int result = nameAt(session, key, what, index, name);
        if (result < 0) {
            return result == REGLIB_E_NO_MORE_ITEMS ? REGLIB_OK : result;
        }
        if (names.empty() || compareFolded(names.back(), name) < 0) {
            names.push_back(name);
        }
    }
}

}  // namespace VQRegLib

using namespace VQRegLib;

namespace {

// A key that is named by its path, or open: what both kinds of calls have in common.
class CAtPath {
public:
    CAtPath(vqreg_store* store, const char* path) : m_store(store), m_path(path) {}

    bool isGiven() const { return m_store != nullptr; }
    CRegLib& session() const { return m_store->m_store->session(); }
    template <typename Use>
    [[nodiscard]] int use(Use&& use) const {
        return m_store->m_store->withKey(m_path, false, use);
    }

private:
    vqreg_store* m_store;
    const char* m_path;
};

class CAtKey {
public:
    explicit CAtKey(vqreg_key* key) : m_key(key) {}

    bool isGiven() const { return m_key != nullptr; }
    CRegLib& session() const { return m_key->m_store->session(); }
    template <typename Use>
    [[nodiscard]] int use(Use&& use) const {
        return m_key->use(use);
    }

private:
    vqreg_key* m_key;
};

template <typename Place>
int listAt(const Place& place, eListed what, std::vector<std::string>& names) {
    return place.use([&](CRegKey& key) { return listNames(place.session(), key, what, names); });
}

// One piece of memory: the pointers, and the names behind them.
char** packed(const std::vector<std::string>& names) {
    std::size_t size = (names.size() + 1) * sizeof(char*);
    for (const std::string& name : names) {
        size += name.size() + 1;
    }
    auto* const list = static_cast<char**>(::operator new(size));
    char* text = reinterpret_cast<char*>(list + names.size() + 1);
    char** at = list;
    for (const std::string& name : names) {
        *at++ = text;
        std::memcpy(text, name.c_str(), name.size() + 1);
        text += name.size() + 1;
    }
    *at = nullptr;
    return list;
}

int giveList(vqreg_store* store, const char* path, eListed what, char*** list, size_t* count) {
    if (!list) {
        return VQREG_E_FAIL;
    }
    *list = nullptr;
    if (!store) {
        return VQREG_E_FAIL;
    }
    return guardedForC([&] {
        std::vector<std::string> names;
        const int result = listAt(CAtPath(store, path), what, names);
        if (result >= 0) {
            *list = packed(names);
            if (count) {
                *count = names.size();
            }
        }
        return result;
    });
}

}  // namespace

namespace {

template <typename Place>
int visitKeys(const Place& place, vqreg_key_visitor visitor, void* context) {
    if (!place.isGiven() || !visitor) {
        return VQREG_E_FAIL;
    }
    return guardedForC([&] {
        std::vector<std::string> names;
        int result = listAt(place, eListed::eKeys, names);
        for (std::size_t i = 0; result == VQREG_OK && i < names.size(); ++i) {
            result = visitor(context, names[i].c_str());
        }
        return result;
    });
}

template <typename Place>
int visitValues(const Place& place, vqreg_value_visitor visitor, void* context) {
    if (!place.isGiven() || !visitor) {
        return VQREG_E_FAIL;
    }
    return guardedForC([&] {
        std::vector<std::string> names;
        int result = listAt(place, eListed::eValues, names);
        CReadValue value;
        for (std::size_t i = 0; result == VQREG_OK && i < names.size(); ++i) {
            const char* const name = names[i].c_str();
            result =
                place.use([&](CRegKey& key) { return value.read(place.session(), key, name); });
            if (result == VQREG_OK) {
                result = visitor(context, name, static_cast<vqreg_type>(value.type()),
                                 value.data().data(), value.data().size());
            } else if (result == VQREG_E_NOT_FOUND || result == VQREG_E_NOT_A_VALUE) {
                result = VQREG_OK;  // gone since
            }
        }
        return result;
    });
}

}  // namespace

int vqreg_visit_keys(vqreg_store* store, const char* path, vqreg_key_visitor visitor,
                     void* context) {
    return visitKeys(CAtPath(store, path), visitor, context);
}

int vqreg_visit_values(vqreg_store* store, const char* path, vqreg_value_visitor visitor,
                       void* context) {
    return visitValues(CAtPath(store, path), visitor, context);
}

int vqreg_key_visit_keys(vqreg_key* key, vqreg_key_visitor visitor, void* context) {
    return visitKeys(CAtKey(key), visitor, context);
}

int vqreg_key_visit_values(vqreg_key* key, vqreg_value_visitor visitor, void* context) {
    return visitValues(CAtKey(key), visitor, context);
}

int vqreg_list_keys(vqreg_store* store, const char* path, char*** names, size_t* count) {
    return giveList(store, path, eListed::eKeys, names, count);
}

int vqreg_list_values(vqreg_store* store, const char* path, char*** names, size_t* count) {
    return giveList(store, path, eListed::eValues, names, count);
}

void vqreg_free(void* list) {
    ::operator delete(list);
}
