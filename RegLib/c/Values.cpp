// Values of the C interface. Each operation is there twice, for a path and for an open key; both come down
// to one function of a session and a key.
#include <cstring>

#include "RegLib/c/CStore.h"
#include "RegLib/c/Guarded.h"
#include "RegLib/c/ReadValue.h"
#include "RegLib/text/Storable.h"

using namespace VQRegLib;

namespace {

// Reads. A key that has gone meanwhile is read again, so nothing is given before it is known to be there.
struct CRead {
    static constexpr bool kChanges = false;
    const char* name;
    CReadValue& value;

    bool isGiven() const { return name != nullptr; }

    int operator()(CRegLib& session, CRegKey& key) const { return value.read(session, key, name); }
};

struct CGet {
    const char* name;
    vqreg_type* type;  // for any type; null where it must be `wanted`
    vqreg_type wanted;
    void* buffer;
    size_t* size;

    // By the protocol of sizes, in which null asks for the size. Once: what the caller gave as the room is the
    // size of the data afterwards.
    int give(const CReadValue& value) const {
        if (type) {
            *type = static_cast<vqreg_type>(value.type());
        } else if (value.type() != static_cast<CRegLib::eDataType>(wanted)) {
            return VQREG_E_BAD_TYPE;
        }
        const std::string_view data = value.data();
        const std::size_t room = buffer ? *size : data.size();
        *size = data.size();
        if (room < data.size()) {
            return VQREG_E_BUFFER_TOO_SMALL;
        }
        if (buffer && !data.empty()) {
            std::memcpy(buffer, data.data(), data.size());
        }
        return VQREG_OK;
    }
};

struct CSet {
    static constexpr bool kChanges = true;
    const char* name;
    CRegLib::eDataType type;
    const void* data;
    size_t size;

    bool isGiven() const { return name && (data || size == 0); }

    int operator()(CRegLib& session, CRegKey& key) const {
        const std::string_view bytes(static_cast<const char*>(data), size);
        if (!isStorableValue(name, type, bytes)) {
            return VQREG_E_NOT_STORABLE;
        }
        return ofChange(set(session, key));
    }

private:
    int set(CRegLib& session, CRegKey& key) const {
        switch (type) {
            case CRegLib::eDword: {
                std::uint32_t number = 0;
                std::memcpy(&number, data, sizeof number);
                return session.VQRegSetValue(key, name, static_cast<unsigned long>(number));
            }
            case CRegLib::eString:
                return session.VQRegSetValue(key, name, static_cast<const char*>(data));
            default:
                return session.VQRegSetValue(key, name, static_cast<const unsigned char*>(data),
                                             size);
        }
    }
};

struct CDelete {
    static constexpr bool kChanges = true;
    const char* name;

    bool isGiven() const { return name != nullptr; }

    // Asks first: a value that was there and is "not found" could not be taken out of the file.
    int operator()(CRegLib& session, CRegKey& key) const {
        CRegLib::eDataType type = CRegLib::eNone;
        const int found = session.VQRegQueryValueType(key, name, type);
        return found < 0 ? found : ofChange(session.VQRegDeleteValue(key, name));
    }
};

// What is set must be good before keys are made for it.
bool isWorthAKey(const CSet& set) {
    return isStorableValue(set.name, set.type, {static_cast<const char*>(set.data), set.size});
}
template <typename Operation>
bool isWorthAKey(const Operation&) {
    return true;
}

template <typename Operation, typename Call>
int callFor(CStoreOfC& store, Call&& call) {
    if constexpr (Operation::kChanges) {
        return store.undisturbed(call);
    } else {
        return call();
    }
}

template <typename Operation>
int atPath(vqreg_store* store, const char* path, const Operation& operation) {
    if (!store || !operation.isGiven()) {
        return VQREG_E_FAIL;
    }
    constexpr bool kCreates = std::is_same_v<Operation, CSet>;
    return guardedForC([&] {
        if (!isWorthAKey(operation)) {
            return VQREG_E_NOT_STORABLE;
        }
        CStoreOfC& of = *store->m_store;
        return callFor<Operation>(of, [&] {
            return of.withKey(path, kCreates,
                              [&](CRegKey& key) { return operation(of.session(), key); });
        });
    });
}

template <typename Operation>
int atKey(vqreg_key* key, const Operation& operation) {
    if (!key || !operation.isGiven()) {
        return VQREG_E_FAIL;
    }
    return guardedForC([&] {
        CStoreOfC& of = *key->m_store;
        return callFor<Operation>(of, [&] {
            return key->use([&](CRegKey& handle) { return operation(of.session(), handle); });
        });
    });
}

CSet setDword(const char* name, const std::uint32_t& number) {
    return {name, CRegLib::eDword, &number, sizeof number};
}
CSet setString(const char* name, const char* text) {
    // A null text is no empty one.
    return {text ? name : nullptr, CRegLib::eString, text, text ? std::strlen(text) : 0};
}
CSet setBinary(const char* name, const void* bytes, size_t size) {
    return {name, CRegLib::eBinary, bytes, size};
}

int getAt(vqreg_store* store, const char* path, const CGet& get) {
    CReadValue value;
    const int result = get.size ? atPath(store, path, CRead{get.name, value}) : VQREG_E_FAIL;
    return result < 0 ? result : get.give(value);
}

int getAt(vqreg_key* key, const CGet& get) {
    CReadValue value;
    const int result = get.size ? atKey(key, CRead{get.name, value}) : VQREG_E_FAIL;
    return result < 0 ? result : get.give(value);
}

// A number has one size, which its caller does not say.
template <typename Get>
int getDword(uint32_t* number, Get&& get) {
    size_t size = sizeof *number;
    return number ? get(&size) : VQREG_E_FAIL;
}

// The type is told also when the buffer is too small.
template <typename Get>
int getAny(vqreg_type* type, Get&& get) {
    if (!type) {
        return VQREG_E_FAIL;
    }
    *type = VQREG_NONE;
    return get();
}

}  // namespace

int vqreg_get_dword(vqreg_store* store, const char* path, const char* name, uint32_t* number) {
    return getDword(number, [&](size_t* size) {
        return getAt(store, path, CGet{name, nullptr, VQREG_DWORD, number, size});
    });
}

int vqreg_get_string(vqreg_store* store, const char* path, const char* name, char* text,
                     size_t* size) {
    return getAt(store, path, CGet{name, nullptr, VQREG_STRING, text, size});
}

int vqreg_get_binary(vqreg_store* store, const char* path, const char* name, void* bytes,
                     size_t* size) {
    return getAt(store, path, CGet{name, nullptr, VQREG_BINARY, bytes, size});
}

int vqreg_get(vqreg_store* store, const char* path, const char* name, vqreg_type* type, void* data,
              size_t* size) {
    return getAny(type, [&] {
        return getAt(store, path, CGet{name, type, VQREG_NONE, data, size});
    });
}

int vqreg_set_dword(vqreg_store* store, const char* path, const char* name, uint32_t number) {
    return atPath(store, path, setDword(name, number));
}

int vqreg_set_string(vqreg_store* store, const char* path, const char* name, const char* text) {
    return atPath(store, path, setString(name, text));
}

int vqreg_set_binary(vqreg_store* store, const char* path, const char* name, const void* bytes,
                     size_t size) {
    return atPath(store, path, setBinary(name, bytes, size));
}

int vqreg_delete_value(vqreg_store* store, const char* path, const char* name) {
    return atPath(store, path, CDelete{name});
}

int vqreg_key_get_dword(vqreg_key* key, const char* name, uint32_t* number) {
    return getDword(number, [&](size_t* size) {
        return getAt(key, CGet{name, nullptr, VQREG_DWORD, number, size});
    });
}

int vqreg_key_get_string(vqreg_key* key, const char* name, char* text, size_t* size) {
    return getAt(key, CGet{name, nullptr, VQREG_STRING, text, size});
}

int vqreg_key_get_binary(vqreg_key* key, const char* name, void* bytes, size_t* size) {
    return getAt(key, CGet{name, nullptr, VQREG_BINARY, bytes, size});
}

int vqreg_key_get(vqreg_key* key, const char* name, vqreg_type* type, void* data, size_t* size) {
    return getAny(type, [&] { return getAt(key, CGet{name, type, VQREG_NONE, data, size}); });
}

int vqreg_key_set_dword(vqreg_key* key, const char* name, uint32_t number) {
    return atKey(key, setDword(name, number));
}

int vqreg_key_set_string(vqreg_key* key, const char* name, const char* text) {
    return atKey(key, setString(name, text));
}

int vqreg_key_set_binary(vqreg_key* key, const char* name, const void* bytes, size_t size) {
    return atKey(key, setBinary(name, bytes, size));
}

int vqreg_key_delete_value(vqreg_key* key, const char* name) {
    return atKey(key, CDelete{name});
}
