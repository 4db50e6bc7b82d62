/// @file
/// How the changes of an update are made, all or none; programs have no use for it.
#ifndef VQREGSTORE_APPLIER_H
#define VQREGSTORE_APPLIER_H

#include "VQRegStore/Core.h"

namespace vqreg {
namespace detail {

// The data of a value that is to be set, as a value of its own.
struct Data {
    Data() = default;
    explicit Data(const Encoded& from)
        : type(from.type),
          number(from.number),
          bytes(static_cast<const char*>(from.data), from.size) {}
    explicit Data(const Value& from) : type(from.type()) {
        std::error_code error;
        number = from.as<std::uint32_t>(error).value_or(0);
        bytes = from.as<std::string>(error).value_or(std::string());
        for (const std::byte each : from.as<Bytes>(error).value_or(Bytes())) {
            bytes += static_cast<char>(each);
        }
    }

    Encoded encoded() const {
        Encoded to;
        to.type = type;
        to.number = number;
        to.data = bytes.data();
        to.size = bytes.size();
        return to;
    }

    bool operator==(const Data& other) const {
        return type == other.type &&
               (type == Type::dword ? number == other.number : bytes == other.bytes);
    }

    Type type = Type::none;  // there is no value
    std::uint32_t number = 0;
    std::string bytes;
};

// One change of an update.
struct Step {
    enum class Kind { set, erase, create, remove };
    Kind kind;
    SharedCore core;  // of the key: that of another object for the same store, which must stay open
    SharedKey key;    // of a value; null where its path says which
    std::string path;
    std::string name;
    Data data;
    std::optional<Data> only;  // the data that must be there, or nothing is done
};

using Steps = std::vector<Step>;

// What could not be done.
struct Failure {
    std::string path;
    std::string name;
};

// Makes changes in one update of the library, and takes back what it has done when one of them, or the
// writing of the file, fails. The library has no way back: so each change leaves its opposite here.
class Applier {
public:
    explicit Applier(Core& core) : m_core(core) {}

    // All of them or none; 0, or what has failed and where.
    int run(Steps& steps, Failure& failure) {
        if (steps.empty()) {
            return kOk;
        }
        Scope update(m_core.store());
        if (update.result() < 0) {
            return update.result();
        }
        Steps done;  // backwards: what takes back what has been done
        int result = lookAtAll(steps, failure);
        result = result < 0 ? result : applyAll(steps, done, failure);
        if (result < 0) {
            return result;
        }
        if (update.end() < 0) {
            const Scope again(m_core.store());
            if (again.result() >= 0) {
                takeBack(done, steps);
            }
            return update.result();
        }
        return kOk;
    }

private:
    // What is found not to be possible before anything is changed needs no way back, and the file is not
    // written: taking back ends with a writing of the text that is there. A deletion may make possible what
    // comes behind it, except where a key is gone.
    int lookAtAll(const Steps& steps, Failure& failure) {
        bool isCertain = true;
        for (const Step& step : steps) {
            const int result = lookAt(step);
            if (result < 0 && (isCertain || result == VQREG_E_INVALID_HANDLE)) {
                failure = {step.path, step.name};
                return result;
            }
            isCertain =
                isCertain && step.kind != Step::Kind::erase && step.kind != Step::Kind::remove;
        }
        return kOk;
    }

    int lookAt(const Step& step) {
        SharedKey key = step.key;
        const int result = key ? Core::lookAt(*key) : m_core.open(step.path, false, key);
        if (result < 0 || step.kind == Step::Kind::create) {
            return result == VQREG_E_KEY_NOT_FOUND ? kOk : result;
        }
        return step.kind == Step::Kind::remove ? lookIntoKey(*key) : lookAtValue(*key, step.name);
    }

    int lookIntoKey(const OpenKey& key) {
        std::string name;
        CRegLib::eDataType type = CRegLib::eNone;
        const bool isEmpty = m_core.session().VQRegEnumValues(*key.handle, 0, name, type) ==
                                 VQRegLib::REGLIB_E_NO_MORE_ITEMS &&
                             m_core.session().VQRegEnumKeys(*key.handle, 0, name) ==
                                 VQRegLib::REGLIB_E_NO_MORE_ITEMS;
        return isEmpty ? kOk : VQREG_E_KEY_NOT_EMPTY;
    }

    int lookAtValue(const OpenKey& key, const std::string& name) {
        CRegLib::eDataType type = CRegLib::eNone;
        const int result = m_core.session().VQRegQueryValueType(*key.handle, name.c_str(), type);
        return result == VQREG_E_NOT_FOUND ? kOk : result;
    }

    int applyAll(Steps& steps, Steps& done, Failure& failure) {
        try {
            for (const Step& step : steps) {
                const int result = apply(step, done);
                if (result < 0) {
                    failure = {step.path, step.name};
                    takeBack(done, steps);
                    return result;
                }
            }
        } catch (...) {
            takeBack(done, steps);
            throw;
        }
        return kOk;
    }

    // The last first. What cannot be taken back stays; the rest is.
    void takeBack(const Steps& done, Steps& steps) noexcept {
        for (auto step = done.rbegin(); step != done.rend(); ++step) {
            try {
                Steps unused;
                (void)apply(*step, unused);
            } catch (...) {
                continue;  // without memory
            }
        }
        for (Step& step : steps) {
            try {
                openAgain(step);
            } catch (...) {
                continue;  // the next commit says that the key is gone
            }
        }
    }

    // A key that was deleted and made again needs another handle. All were there at the beginning.
    void openAgain(Step& step) {
        SharedKey key;
        if (step.key && Core::lookAt(*step.key) == VQREG_E_INVALID_HANDLE &&
            m_core.open(step.path, false, key) >= 0) {
            step.key = std::move(key);
        }
    }

    int apply(const Step& step, Steps& done) {
        switch (step.kind) {
            case Step::Kind::create:
                return create(step.path, done);
            case Step::Kind::remove:
                return remove(step, done);
            default:
                return changeValue(step, done);
        }
    }

    int create(const std::string& path, Steps& done) {
        SharedKey key;
        const int result = m_core.open(path, false, key);
        if (result != VQREG_E_KEY_NOT_FOUND) {
            return result;
        }
        noteMissing(path, done);  // of which some may be made where the last one is not
        return m_core.open(path, true, key);
    }

    // How to take back the making of a path: those of its keys that are missing, outermost first.
    void noteMissing(const std::string& path, Steps& done) {
        for (std::size_t end = 0; end != std::string::npos;) {
            end = path.find_first_of("/\\", end + 1);
            SharedKey key;
            std::string part = path.substr(0, end);
            if (m_core.open(part, false, key) == VQREG_E_KEY_NOT_FOUND) {
                done.push_back({Step::Kind::remove, nullptr, nullptr, std::move(part), {}, {}, {}});
            }
        }
    }

    int remove(const Step& step, Steps& done) {
        const int result = m_core.remove(step.path);
        if (result >= 0) {
            done.push_back({Step::Kind::create, nullptr, nullptr, step.path, {}, {}, {}});
        }
        return result == VQREG_E_KEY_NOT_FOUND ? kOk : result;
    }

    int keyOf(const Step& step, Steps& done, SharedKey& key) {
        key = step.key;
        if (key) {
            return kOk;
        }
        const int result = step.kind == Step::Kind::set ? create(step.path, done) : kOk;
        return result < 0 ? result : m_core.open(step.path, false, key);
    }

    int changeValue(const Step& step, Steps& done) {
        SharedKey key;
        int result = keyOf(step, done, key);
        if (result < 0) {
            return result == VQREG_E_KEY_NOT_FOUND ? kOk : result;
        }
        std::optional<Value> before;
        result = queryAny(m_core.session(), *key->handle, step.name.c_str(), before);
        if (result < 0 && result != VQREG_E_NOT_FOUND) {
            return result;
        }
        // By its path: the key may be deleted, and made again.
        Step back{Step::Kind::set, nullptr, nullptr, step.path, step.name, {}, step.data};
        if (before) {
            back.data = Data(*before);
        } else {
            back.kind = Step::Kind::erase;
        }
        if ((step.only && !(*step.only == back.data)) || step.data == back.data) {
            return kOk;
        }
        done.push_back(std::move(back));
        result = put(step, *key);
        if (result < 0) {
            done.pop_back();
        }
        return result;
    }

    // Without the checks of vqreg.h: what is put back may be what the file could not give back.
    int put(const Step& step, const OpenKey& key) {
        CRegLib& session = m_core.session();
        const char* const name = step.name.c_str();
        const Encoded value = step.data.encoded();
        if (step.kind != Step::Kind::set) {
            return session.VQRegDeleteValue(*key.handle, name);
        }
        switch (value.type) {
            case Type::dword:
                return session.VQRegSetValue(*key.handle, name,
                                             static_cast<unsigned long>(value.number));
            case Type::string:
                return session.VQRegSetValue(*key.handle, name,
                                             static_cast<const char*>(value.data));
            default:
                return session.VQRegSetValue(
                    *key.handle, name, static_cast<const unsigned char*>(value.data), value.size);
        }
    }

    Core& m_core;
};

}  // namespace detail
}  // namespace vqreg

#endif  // VQREGSTORE_APPLIER_H
