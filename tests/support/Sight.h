// What processes see of one store that another one changes.
#ifndef VQTEST_SIGHT_H
#define VQTEST_SIGHT_H

#include <cstdio>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>

#include "VQRegLib.h"
#include "support/Agent.h"
#include "support/ChildLife.h"
#include "support/ForkedChild.h"
#include "support/WatchedStore.h"

namespace vqtest {

/// The content of a store with the values A and B, the key Kept, and perhaps the key New.
struct Sight {
    long a = 0;
    long b = 0;
    bool isNewThere = false;

    bool operator==(const Sight&) const = default;

    /// The file with this content.
    std::string text() const {
        char values[80];
        std::snprintf(values, sizeof values, "\"A\"=dword:%08lX\n\"B\"=dword:%08lX\n", a, b);
        return std::string("[Velquist]\n") + values + "[Velquist/Kept]\n" +
               (isNewThere ? "[Velquist/New]\n" : "");
    }
};

inline std::ostream& operator<<(std::ostream& out, const Sight& sight) {
    return out << "A " << sight.a << ", B " << sight.b << (sight.isNewThere ? ", New" : "");
}

namespace sight_detail {

inline void expect(bool holds, const char* what) {
    if (!holds) {
        throw std::runtime_error(what);
    }
}

inline int countValues(CRegLib& session) {
    int count = 0;
    std::string name;
    CRegLib::eDataType type = CRegLib::eNone;
    while (session.VQRegEnumValues(*session.RootKey(), count, name, type) == VQRegLib::REGLIB_OK) {
        ++count;
    }
    return count;
}

inline int countKeys(CRegLib& session) {
    int count = 0;
    std::string name;
    while (session.VQRegEnumKeys(*session.RootKey(), count, name) == VQRegLib::REGLIB_OK) {
        ++count;
    }
    return count;
}

}  // namespace sight_detail

/// Queries, enumerates and opens keys. @throws std::runtime_error when anything is refused or does
/// not fit together
inline Sight lookThrough(CRegLib& session) {
    using sight_detail::expect;
    expect(session.RootKey() != nullptr, "the session has no store");
    Sight sight{numberOf(session, "A"), numberOf(session, "B")};
    expect(sight_detail::countValues(session) == 2, "not all values are there");
    CRegKey kept;
    expect(session.VQRegCreateKey(nullptr, "Kept", kept, 0) == VQRegLib::REGLIB_OK, "no key Kept");
    CRegKey key;
    const int code = session.VQRegCreateKey(nullptr, "New", key, 0);
    sight.isNewThere = code == VQRegLib::REGLIB_OK;
    expect(sight.isNewThere || code == VQRegLib::REGLIB_E_KEY_NOT_FOUND, "the key New is refused");
    expect(sight_detail::countKeys(session) == (sight.isNewThere ? 2 : 1), "a key is missing");
    return sight;
}

/// The same with the session of an agent.
inline Sight lookThrough(Agent& agent) {
    using sight_detail::expect;
    Sight sight{agent.get(".", "A").dword(), agent.get(".", "B").dword()};
    expect(agent.enumValues(".").names.size() == 2, "not all values are there");
    expect(agent.openKey("Kept") == VQRegLib::REGLIB_OK, "no key Kept");
    const int code = agent.openKey("New");
    sight.isNewThere = code == VQRegLib::REGLIB_OK;
    expect(sight.isNewThere || code == VQRegLib::REGLIB_E_KEY_NOT_FOUND, "the key New is refused");
    expect(agent.enumKeys(".").names.size() == (sight.isNewThere ? 2u : 1u), "a key is missing");
    return sight;
}

/// Through a session that is opened for it and closed again. The root key's spelling makes it a store
/// of its own in a process that has one.
inline Sight lookAnew(const std::string& path, const char* root) {
    const auto session = openSession(path, root);
    return lookThrough(*session);
}

/// Of a process that is made for it. @throws std::runtime_error also when that does not end
inline Sight lookFromChild(const std::string& path) {
    Common<Sight> sight;
    const pid_t parent = ::getpid();
    ForkedChild child([&] {
        endWithParent(parent, 20);
        *sight = lookAnew(path, "VELQUIST");
        return 0;
    });
    if (const int status = child.wait()) {
        throw std::runtime_error("a new process ended with " + std::to_string(status));
    }
    return *sight;
}

/// Of a program that is started for it.
inline Sight lookFromProgram(const std::string& path) {
    Agent agent(VQREG_AGENT_PATH);
    sight_detail::expect(agent.open(path) == VQRegLib::REGLIB_OK, "a new program cannot open it");
    return lookThrough(agent);
}

/// The processes that look at a store while another one changes it.
class Witnesses {
public:
    explicit Witnesses(const std::string& path) : m_path(path) {
        // First the agents: they shall not inherit the store.
        sight_detail::expect(m_agent.open(path) == VQRegLib::REGLIB_OK, "the agent cannot open it");
        m_session = openSession(path);
    }

    CRegLib& session() { return *m_session; }
    Agent& agent() { return m_agent; }

    /// What each of them sees, one after the other, is handed to `expect`. Those that have the store
    /// open look once more after those that open it: they could be the last to know.
    template <typename Expect>
    void look(bool alsoProgram, Expect expect) {
        expect("the test's session", lookThrough(*m_session));
        expect("the agent", lookThrough(m_agent));
        expect("a session opened anew", lookAnew(m_path, "velquist"));
        m_reopening.open(m_path);
        expect("the agent that opens anew", lookThrough(m_reopening));
        m_reopening.close();
        expect("a forked child", lookFromChild(m_path));
        if (alsoProgram) {
            expect("a new program", lookFromProgram(m_path));
        }
        expect("the test's session, again,", lookThrough(*m_session));
        expect("the agent, again,", lookThrough(m_agent));
    }

private:
    std::string m_path;
    Agent m_agent{VQREG_AGENT_PATH};
    Agent m_reopening{VQREG_AGENT_PATH};
    std::unique_ptr<CRegLib> m_session;
};

/// A store as the sights describe it, opened by nobody.
inline void writeStore(const TempStore& store, const Sight& sight) {
    store.write(sight.text());
}

/// A child's session. It shall not be closed: what is stepped through is the change alone.
inline CRegLib& sessionOfChild(const std::string& path) {
    return *openSession(path, "vELQUIST").release();
}

}  // namespace vqtest

#endif  // VQTEST_SIGHT_H
