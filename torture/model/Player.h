// Takes steps with the library or with its model, which have the same interface, and writes down
// everything that the caller of the library can see.
#ifndef VQTORTURE_MODEL_PLAYER_H
#define VQTORTURE_MODEL_PLAYER_H

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "VQRegLib.h"
#include "model/Step.h"

namespace vqtorture::model {

using DataType = VQRegLib::CRegLib::eDataType;

/// What was seen at one step, as texts that can be compared and read.
using Seen = vqtest::Fields;

/// The sizes of the buffers that are given to queries; the first one is a null buffer of 64 bytes.
constexpr std::array<unsigned long, 10> kBufferSizes = {64, 0, 1, 2, 3, 4, 5, 16, 64, 4096};

/// The indices that enumerations are asked for, one after the other: in order, backwards, past the end,
/// twice the same.
constexpr std::array<std::array<int, 6>, 6> kIndexOrders = {{{0, 1, 2, 3, 4, 5},
                                                             {5, 4, 3, 2, 1, 0},
                                                             {2, 2, 0, 3, 1, 1000},
                                                             {-1, 1, 0, 1, 2, 3},
                                                             {3, 0, 4, 1, 5, 2},
                                                             {0, 0, 2147483647, 1, 3, 2}}};

constexpr int kNoStore = -1;

/// More than any table of the library begins with.
constexpr int kCrowd = 80;

/// One process. `Api` has the types `Session`, `Key` and `Update`, which look like CRegLib, CRegKey and
/// CRegUpdate, and change handlers (`Handler`); it opens a session (`open`), catches what a dump prints
/// (`dumpOf`), and tries which handlers of a store are called (`lookWhoIsTold`).
template <typename Api>
class Player {
public:
    using Session = typename Api::Session;
    using Key = typename Api::Key;
    using Update = typename Api::Update;
    using Handler = typename Api::Handler;

    explicit Player(Api& api) : m_api(api) {
        for (auto& handle : m_handles) {
            handle = std::make_unique<Key>();
        }
    }

    ~Player() {
        for (const auto& session : m_sessions) {
            while (session && session->VQRegEndUpdate() >= 0) {
            }
        }
        for (Key* key : m_vect) {
            delete key;
        }
    }

    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    /// The number of the store that a session has been opened on, or kNoStore.
    int storeOf(int session) const { return m_stores.at(static_cast<std::size_t>(session)); }

    /// Takes a step that does not concern the files.
    Seen play(const Step& step) {
        m_seen.clear();
        auto& session = m_sessions.at(static_cast<std::size_t>(step.session));
        if (step.verb == Verb::eOpenSession) {
            open(step, session);
        } else if (step.verb == Verb::eDrop) {
            const auto number = static_cast<std::size_t>(step.key % kHandles);
            m_handles.at(number) = std::make_unique<Key>();
        } else if (step.verb == Verb::eLook) {
            look(session.get(), step);
        } else if (session == nullptr) {
            m_seen.push_back("no session");
        } else if (step.verb == Verb::eCloseSession) {
            close(step, session);
        } else {
            playIn(*session, step);
        }
        return m_seen;
    }

private:
    void open(const Step& step, std::unique_ptr<Session>& session) {
        const StoreName& name = kStoreNames.at(static_cast<std::size_t>(step.number));
        close(step, session);
        int result = 77;
        session = m_api.open(name.file, name.root, &result);
        m_stores.at(static_cast<std::size_t>(step.session)) = step.number;
        m_seen.push_back("result " + std::to_string(result));
        see(session->RootKey());
    }

    // A session outlives its CRegUpdate objects.
    void close(const Step& step, std::unique_ptr<Session>& session) {
        auto& scopes = m_scopes.at(static_cast<std::size_t>(step.session));
        while (!scopes.empty()) {
            scopes.pop_back();
        }
        session.reset();
        m_stores.at(static_cast<std::size_t>(step.session)) = kNoStore;
    }

    void playIn(Session& session, const Step& step) {
        switch (step.verb) {
            case Verb::eParse: {
                std::vector<std::string> names = {"before"};
                code(session.ParseKeyPath(step.text.c_str(), names));
                m_seen.insert(m_seen.end(), names.begin(), names.end());
                break;
            }
            case Verb::eDump:
                m_seen.push_back(m_api.dumpOf(session));
                break;
            case Verb::eBegin:
                code(session.VQRegBeginUpdate());
                break;
            case Verb::eEnd:
                code(session.VQRegEndUpdate());
                break;
            case Verb::eReload:
                code(session.VQRegReload());
                break;
            case Verb::eBeginScope:
            case Verb::eEndScope:
            case Verb::eDropScope:
                playScope(session, step);
                break;
            case Verb::eRegister:
            case Verb::eUnregister:
            case Verb::eNotify:
            case Verb::eWatch:
                playHandler(session, step);
                break;
            case Verb::eCreateKey:
                createKey(session, step);
                break;
            case Verb::eCreateVect:
                createVect(session, step);
                break;
            case Verb::eDestroyVect:
                code(session.VQRegDestroyKeyVect(m_vect));
                m_seen.push_back("left " + std::to_string(m_vect.size()));
                break;
            default:
                playOnKey(session, step);
        }
    }

    void playScope(Session& session, const Step& step) {
        auto& scopes = m_scopes.at(static_cast<std::size_t>(step.session));
        if (step.verb == Verb::eBeginScope) {
            scopes.push_back(std::make_unique<Update>(session));
            code(scopes.back()->result());
            return;
        }
        if (scopes.empty()) {
            m_seen.push_back("no scope");
            return;
        }
        const auto place = static_cast<std::size_t>(step.number) % scopes.size();
        if (step.verb == Verb::eEndScope) {
            code(scopes[place]->end());
            code(scopes[place]->result());
        } else {
            scopes.erase(scopes.begin() + static_cast<std::ptrdiff_t>(place));
        }
    }

    void playHandler(Session& session, const Step& step) {
        const auto number = static_cast<std::size_t>(step.number);
        Handler* const handler = number < kChangeHandlers ? &m_changeHandlers[number] : nullptr;
        if (step.verb == Verb::eRegister) {
            session.SetRegistryChangeHandler(handler);
        } else if (step.verb == Verb::eUnregister) {
            session.ClrRegistryChangeHandler(handler);
        } else if (step.verb == Verb::eNotify) {
            code(session.SendRegistryChangeNotification());
        } else {
            const auto store = static_cast<std::size_t>(storeOf(step.session));
            const Seen told =
                m_api.lookWhoIsTold(session, kStoreNames.at(store).file, m_changeHandlers);
            m_seen.insert(m_seen.end(), told.begin(), told.end());
        }
    }

    void playOnKey(Session& session, const Step& step) {
        Key* key = keyOf(&session, step.key);
        if (key == nullptr) {
            m_seen.push_back("no key");
            return;
        }
        const char* name = step.text.c_str();
        switch (step.verb) {
            case Verb::eDeleteKey:
                code(session.VQRegDeleteKey(*key, name));
                break;
            case Verb::eDeleteValue:
                code(session.VQRegDeleteValue(*key, name));
                break;
            case Verb::eSetString:
                code(session.VQRegSetValue(*key, name, step.data.c_str()));
                break;
            case Verb::eSetDword:
                code(session.VQRegSetValue(*key, name, static_cast<unsigned long>(step.number)));
                break;
            case Verb::eSetBinary:
                code(session.VQRegSetValue(*key, name,
                                           reinterpret_cast<const unsigned char*>(step.data.data()),
                                           step.data.size()));
                break;
            case Verb::eQueryType: {
                DataType type = static_cast<DataType>(99);
                code(session.VQRegQueryValueType(*key, name, type));
                see(type);
                break;
            }
            case Verb::eQuery:
                query(session, *key, step);
                break;
            case Verb::eEnumKeys:
            case Verb::eEnumValues:
                enumerate(session, *key, step);
                break;
            case Verb::eCrowd:
                crowd(session, *key, step);
                break;
            default:
                break;
        }
        see(key);
    }

    void createKey(Session& session, const Step& step) {
        Key& key = *m_handles.at(static_cast<std::size_t>(step.key % kHandles));
        Key* parent = keyOf(&session, step.parent);
        code(session.VQRegCreateKey(parent, step.text.c_str(), key, step.flag ? 1 : 0));
        see(&key);
    }

    void createVect(Session& session, const Step& step) {
        std::vector<Key*> keys = m_vect;
        Key* parent = keyOf(&session, step.parent);
        code(session.VQRegCreateKeyVect(parent, step.text.c_str(), keys, m_vectNames,
                                        step.flag ? 2 : 0));
        if (keys != m_vect) {
            for (Key* key : m_vect) {
                delete key;
            }
            m_vect = keys;
        }
        for (Key* key : m_vect) {
            see(key);
        }
        m_seen.insert(m_seen.end(), m_vectNames.begin(), m_vectNames.end());
    }

    void query(Session& session, Key& key, const Step& step) {
        const auto number = static_cast<std::size_t>(step.number) % kBufferSizes.size();
        unsigned long size = kBufferSizes.at(number);
        // One byte more than the library is told: what it writes there is seen as well.
        std::string buffer(size + 2, '\xCD');
        auto* data = reinterpret_cast<unsigned char*>(buffer.data());
        DataType type = static_cast<DataType>(99);
        code(session.VQRegQueryValue(key, step.text.c_str(), type, number == 0 ? nullptr : data,
                                     &size));
        see(type);
        buffer.erase(buffer.find_last_not_of('\xCD') + 1);
        m_seen.push_back("size " + std::to_string(size) + " " + vqtest::toHex(buffer));
    }

    void enumerate(Session& session, Key& key, const Step& step) {
        const auto order = static_cast<std::size_t>(step.number) % kIndexOrders.size();
        for (const int index : kIndexOrders.at(order)) {
            std::string name = "unchanged";
            DataType type = static_cast<DataType>(99);
            if (step.verb == Verb::eEnumKeys) {
                code(session.VQRegEnumKeys(key, index, name));
            } else {
                code(session.VQRegEnumValues(key, index, name, type));
            }
            see(type);
            m_seen.push_back(name);
        }
    }

    // One after the other, so that tables grow and what has gone is cleared away.
    void crowd(Session& session, Key& key, const Step& step) {
        for (int i = 0; i < kCrowd; ++i) {
            const std::string name = "m" + std::to_string(i);
            Key made;
            switch (step.number % 4) {
                case 0:
                    code(session.VQRegCreateKey(&key, name.c_str(), made, 1));
                    break;
                case 1:
                    code(session.VQRegCreateKey(&key, name.c_str(), made, 1));
                    code(session.VQRegDeleteKey(key, name.c_str()));
                    break;
                case 2:
                    code(session.VQRegSetValue(key, name.c_str(),
                                               static_cast<unsigned long>(step.number + i)));
                    break;
                default:
                    code(session.VQRegDeleteValue(key, name.c_str()));
            }
        }
    }

    void look(Session* session, const Step& step) { see(keyOf(session, step.key)); }

    Key* keyOf(Session* session, int number) {
        if (number == kNoKey) {
            return nullptr;
        }
        if (number == 0) {
            return session != nullptr ? session->RootKey() : nullptr;
        }
        if (number >= kFirstOfVect) {
            const auto place = static_cast<std::size_t>(number - kFirstOfVect);
            if (place < m_vect.size()) {
                return m_vect[place];
            }
        }
        return m_handles.at(static_cast<std::size_t>(number % kHandles)).get();
    }

    void code(int result) { m_seen.push_back("code " + vqtest::codeToText(result)); }

    void see(DataType type) { m_seen.push_back("type " + std::to_string(static_cast<int>(type))); }

    void see(const Key* key) {
        if (key == nullptr) {
            m_seen.push_back("null");
            return;
        }
        const char* name = key->GetKeyName();
        const char* fullName = key->GetKeyFullName();
        m_seen.push_back("id " + std::to_string(key->GetKeyHandleID()) + " name " +
                         (name == nullptr ? "(null)" : name) + " full name " +
                         (fullName == nullptr ? "(null)" : fullName));
    }

    Api& m_api;
    std::array<Handler, kChangeHandlers> m_changeHandlers;
    std::array<std::unique_ptr<Session>, kSessions> m_sessions;
    std::array<int, kSessions> m_stores = {kNoStore, kNoStore, kNoStore};
    std::array<std::vector<std::unique_ptr<Update>>, kSessions> m_scopes;
    std::array<std::unique_ptr<Key>, static_cast<std::size_t>(kHandles)> m_handles;
    std::vector<Key*> m_vect;
    std::vector<std::string> m_vectNames;
    Seen m_seen;
};

}  // namespace vqtorture::model

#endif  // VQTORTURE_MODEL_PLAYER_H
