// A process that does with the library what a test tells it to.
//
// It reads one order per line from standard input and writes one line per order to the descriptor
// that is there for answers, or to standard output where there is none, so that it can be used by
// hand. Orders and answers are fields between tabs; see Wire.h. An answer begins with the result
// code.
//
//   open FILE ROOT        "-" stands for null; replaces the session; the code is that of a session
//                         without a store when there is no root key
//   close, exit, dump
//   watch, unwatch        registers or removes a change handler
//   changes               COUNT of the handler's calls
//   send                  tells all processes to look for changes
//   create PATH           PATH starts at the root key; "." is the root key
//   openkey PATH
//   delkey PATH
//   setd PATH NAME NUMBER
//   sets PATH NAME TEXT
//   setb PATH NAME HEX
//   get PATH NAME         TYPE HEX
//   type PATH NAME        TYPE
//   delval PATH NAME
//   enumkeys PATH         NAME...
//   enumvals PATH         NAME TYPE NAME TYPE...
//   stress PATH NAME N    FAILURES; sets the value to 1, 2, ... N; the code is the first failure's
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "VQRegLib.h"
#include "support/Wire.h"

namespace {

using VQRegLib::CRegKey;
using VQRegLib::CRegLib;
using vqtest::Fields;

// Long after every deadline of a test: an agent that hangs while its test is gone must end.
constexpr unsigned kLifetimeSeconds = 600;

struct Answer {
    int code = VQRegLib::REGLIB_OK;
    Fields fields = {};
};

class CountingHandler : public VQRegLib::CRegistryChangeHandler {
public:
    void OnRegistryChange() override { ++m_count; }
    std::uint64_t count() const { return m_count; }

private:
    std::atomic<std::uint64_t> m_count{0};
};

// The handler outlives every session, which may call it on a thread of its own.
CountingHandler theHandler;
std::unique_ptr<CRegLib> theSession;

CRegLib& session() {
    if (!theSession) {
        throw std::invalid_argument("no session is open");
    }
    return *theSession;
}

// The key at a path, or the code of the failure to open it.
class OpenedKey {
public:
    explicit OpenedKey(const std::string& path) {
        CRegKey* root = session().RootKey();
        if (path == "." && root != nullptr) {
            m_key = root;
        } else {
            m_code = session().VQRegCreateKey(nullptr, path.c_str(), m_holder, 0);
        }
    }

    int code() const { return m_code; }
    CRegKey& key() { return *m_key; }

private:
    CRegKey m_holder;
    CRegKey* m_key = &m_holder;
    int m_code = VQRegLib::REGLIB_OK;
};

const char* textOrNull(const std::string& field) {
    return field == "-" ? nullptr : field.c_str();
}

std::string typeText(CRegLib::eDataType type) {
    return std::to_string(static_cast<int>(type));
}

Answer openSession(const Fields& order) {
    theSession.reset();
    int result = VQRegLib::REGLIB_E_FAIL;
    theSession = std::make_unique<CRegLib>(textOrNull(order[1]), textOrNull(order[2]),
                                           CRegLib::eLocationDefault, &result);
    if (theSession->RootKey() == nullptr) {
        return {VQRegLib::REGLIB_E_NOT_INITIALIZED};
    }
    return {result};
}

Answer closeSession(const Fields&) {
    theSession.reset();
    return {};
}

Answer dump(const Fields&) {
    session().dump();
    return {};
}

Answer watch(const Fields&) {
    session().SetRegistryChangeHandler(&theHandler);
    return {};
}

Answer unwatch(const Fields&) {
    session().ClrRegistryChangeHandler(&theHandler);
    return {};
}

Answer changes(const Fields&) {
    return {VQRegLib::REGLIB_OK, {std::to_string(theHandler.count())}};
}

Answer send(const Fields&) {
    return {session().SendRegistryChangeNotification()};
}

Answer createKey(const Fields& order) {
    CRegKey key;
    return {session().VQRegCreateKey(nullptr, order[1].c_str(), key, 1)};
}

Answer openKey(const Fields& order) {
    return {OpenedKey(order[1]).code()};
}

Answer deleteKey(const Fields& order) {
    OpenedKey root(".");
    return {session().VQRegDeleteKey(root.key(), order[1].c_str())};
}

Answer onKey(const Fields& order, const std::function<int(CRegKey&, const char*)>& action) {
    OpenedKey opened(order[1]);
    if (opened.code() != VQRegLib::REGLIB_OK) {
        return {opened.code()};
    }
    return {action(opened.key(), order[2].c_str())};
}

Answer setDword(const Fields& order) {
    const unsigned long number = std::stoul(order[3]);
    return onKey(order, [&](CRegKey& key, const char* name) {
        return session().VQRegSetValue(key, name, number);
    });
}

Answer setString(const Fields& order) {
    return onKey(order, [&](CRegKey& key, const char* name) {
        return session().VQRegSetValue(key, name, order[3].c_str());
    });
}

Answer setBinary(const Fields& order) {
    const std::string bytes = vqtest::fromHex(order[3]);
    return onKey(order, [&](CRegKey& key, const char* name) {
        const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
        return session().VQRegSetValue(key, name, data, bytes.size());
    });
}

Answer getValue(const Fields& order) {
    CRegLib::eDataType type = CRegLib::eNone;
    std::vector<unsigned char> buffer(4096);
    Answer answer = onKey(order, [&](CRegKey& key, const char* name) {
        for (;;) {
            unsigned long size = buffer.size();
            const int code = session().VQRegQueryValue(key, name, type, buffer.data(), &size);
            if (code == VQRegLib::REGLIB_OK) {
                buffer.resize(size);
                return code;
            }
            if (code != VQRegLib::REGLIB_E_BUFFER_TOO_SMALL) {
                buffer.clear();
                return code;
            }
            // It may grow again before the next query, hence the loop.
            buffer.resize(size);
        }
    });
    const bool isFilled = answer.code == VQRegLib::REGLIB_OK;
    answer.fields = {
        typeText(type),
        isFilled ? vqtest::toHex({reinterpret_cast<const char*>(buffer.data()), buffer.size()})
                 : std::string()};
    return answer;
}

Answer getType(const Fields& order) {
    CRegLib::eDataType type = CRegLib::eNone;
    Answer answer = onKey(order, [&](CRegKey& key, const char* name) {
        return session().VQRegQueryValueType(key, name, type);
    });
    answer.fields = {typeText(type)};
    return answer;
}

Answer deleteValue(const Fields& order) {
    return onKey(order, [&](CRegKey& key, const char* name) {
        return session().VQRegDeleteValue(key, name);
    });
}

// Asks for one item after the other; the end of the items is the success of the whole.
Answer enumerate(const Fields& order,
                 const std::function<int(CRegKey&, int, Fields& found)>& askForItem) {
    OpenedKey opened(order[1]);
    Answer answer{opened.code()};
    for (int index = 0; answer.code == VQRegLib::REGLIB_OK; ++index) {
        answer.code = askForItem(opened.key(), index, answer.fields);
    }
    if (answer.code == VQRegLib::REGLIB_E_NO_MORE_ITEMS) {
        answer.code = VQRegLib::REGLIB_OK;
    }
    return answer;
}

Answer enumKeys(const Fields& order) {
    return enumerate(order, [](CRegKey& key, int index, Fields& found) {
        std::string name;
        const int code = session().VQRegEnumKeys(key, index, name);
        if (code == VQRegLib::REGLIB_OK) {
            found.push_back(name);
        }
        return code;
    });
}

Answer enumValues(const Fields& order) {
    return enumerate(order, [](CRegKey& key, int index, Fields& found) {
        std::string name;
        CRegLib::eDataType type = CRegLib::eNone;
        const int code = session().VQRegEnumValues(key, index, name, type);
        if (code == VQRegLib::REGLIB_OK) {
            found.push_back(name);
            found.push_back(typeText(type));
        }
        return code;
    });
}

Answer stress(const Fields& order) {
    const unsigned long count = std::stoul(order[3]);
    unsigned long failures = 0;
    Answer answer = onKey(order, [&](CRegKey& key, const char* name) {
        int firstFailure = VQRegLib::REGLIB_OK;
        for (unsigned long number = 1; number <= count; ++number) {
            const int code = session().VQRegSetValue(key, name, number);
            if (code != VQRegLib::REGLIB_OK) {
                ++failures;
                firstFailure = firstFailure == VQRegLib::REGLIB_OK ? code : firstFailure;
            }
        }
        return firstFailure;
    });
    const bool isKeyMissing = answer.code != VQRegLib::REGLIB_OK && failures == 0;
    answer.fields = {std::to_string(isKeyMissing ? count : failures)};
    return answer;
}

struct OrderKind {
    std::size_t arguments;
    Answer (*carryOut)(const Fields& order);
};

const std::map<std::string, OrderKind>& orderKinds() {
    static const std::map<std::string, OrderKind> kinds = {
        {"open", {2, openSession}},   {"close", {0, closeSession}}, {"exit", {0, closeSession}},
        {"dump", {0, dump}},          {"watch", {0, watch}},        {"unwatch", {0, unwatch}},
        {"changes", {0, changes}},    {"create", {1, createKey}},   {"openkey", {1, openKey}},
        {"delkey", {1, deleteKey}},   {"setd", {3, setDword}},      {"sets", {3, setString}},
        {"setb", {3, setBinary}},     {"get", {2, getValue}},       {"type", {2, getType}},
        {"delval", {2, deleteValue}}, {"enumkeys", {1, enumKeys}},  {"enumvals", {1, enumValues}},
        {"stress", {3, stress}},      {"send", {0, send}},
    };
    return kinds;
}

Answer obey(const Fields& order) {
    try {
        const auto kind = orderKinds().find(order.front());
        if (kind == orderKinds().end() || order.size() != kind->second.arguments + 1) {
            throw std::invalid_argument("no such order");
        }
        return kind->second.carryOut(order);
    } catch (const VQException& exception) {
        return {exception.m_lCode, {"VQException", exception.m_szText}};
    } catch (const std::exception& error) {
        return {vqtest::kBadOrder, {error.what(), order.front()}};
    }
}

bool reply(int descriptor, const Answer& answer) {
    // What the library has printed comes first, so that the test has it along with the answer.
    std::cout.flush();
    std::fflush(stdout);
    Fields fields = {vqtest::codeToText(answer.code)};
    fields.insert(fields.end(), answer.fields.begin(), answer.fields.end());
    const std::string line = vqtest::joinFields(fields) + "\n";
    std::size_t written = 0;
    while (written < line.size()) {
        const ssize_t count = ::write(descriptor, line.data() + written, line.size() - written);
        if (count >= 0) {
            written += static_cast<std::size_t>(count);
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

}  // namespace

int main() {
    ::alarm(kLifetimeSeconds);
    const bool hasDescriptor = ::fcntl(vqtest::kAnswerDescriptor, F_SETFD, FD_CLOEXEC) == 0;
    const int descriptor = hasDescriptor ? vqtest::kAnswerDescriptor : STDOUT_FILENO;
    std::string line;
    while (std::getline(std::cin, line)) {
        Fields order;
        try {
            order = vqtest::splitFields(line);
        } catch (const std::invalid_argument&) {
            order = {"(" + line + ")"};
        }
        if (!reply(descriptor, obey(order))) {
            return 1;
        }
        if (order.front() == "exit") {
            return 0;
        }
    }
    theSession.reset();
    return 0;
}
