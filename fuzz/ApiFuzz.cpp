// Sequences of calls of the library, in one store or in two on one file: whatever names and data are, every
// call answers with one of its codes, sizes are those that are told, and what a call has set is what it and
// the other store read, where the format can hold it. With one store and plain names every answer is that
// of the plain store of the tests, and so is the file.
//
// The input is a byte that says how many stores there are, and then calls: a byte for the call and the store,
// one for the key, one for the name, and data of the length that the next byte tells. Names are from short
// lists: a fuzzer finds few new ones that matter.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "RegLib/trace/Trace.h"
#include "VQRegLib.h"
#include "fuzz/Support.h"
#include "support/ModelStore.h"
#include "support/TempStore.h"

namespace {

using namespace VQRegLib;
using vqfuzz::require;
using vqtest::ModelStore;
using vqtest::Value;

constexpr std::size_t kPlain = 8;  // of each list
constexpr std::array<const char*, 20> kPaths = {
    ".",  "a",   "A/b", "a/b/c", "b",  "b/v",  "c/d",    "long name", "",    "a/",
    "/a", "a//", "\\b", "a\\b",  "]x", "a]/b", "<root>", "x\ny",      "a\r", "b/<root>/c"};
constexpr std::array<const char*, 20> kNames = {
    "v",    "V",   "w",          "b",  "c",   "text",   "number", "a name",   "",  "\"",
    "x\"y", "a:b", "\"=string:", "\n", "a\r", "<root>", "[a]",    "v\n[a]\n", "é", "="};

bool isCode(int code) {
    return code == REGLIB_OK || (code >= REGLIB_E_FAIL && code <= REGLIB_E_NOT_INITIALIZED);
}

// Whether a name or a text of a value stays what it is in a line.
bool isKept(std::string_view text, std::string_view marks) {
    return text.find_first_of(marks) == std::string_view::npos && text.size() < 900;
}

class Calls {
public:
    Calls(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {
        const unsigned char way = byte();
        m_isPlain = way % 2 == 0;
        m_sessions[0] =
            std::make_unique<CRegLib>(file().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
        m_stores = way / 2 % 2 == 0 ? 1 : 2;
        if (m_stores == 2) {
            m_sessions[1] = std::make_unique<CRegLib>(file().c_str(), "Velquist/a",
                                                      CRegLib::eLocationDefault, nullptr);
        }
    }

    void run() {
        while (m_size > 0) {
            one();
        }
        end();
    }

    static const std::string& file() {
        static const vqtest::TempStore store("/dev/shm");
        static const std::string path = store.path();
        return path;
    }

private:
    unsigned char byte() {
        if (m_size == 0) {
            return 0;
        }
        --m_size;
        return *m_data++;
    }

    std::string data() {
        const std::size_t size = std::min<std::size_t>(byte(), m_size);
        std::string text(reinterpret_cast<const char*>(m_data), size);
        m_data += size;
        m_size -= size;
        return text;
    }

    template <std::size_t Size>
    const char* oneOf(const std::array<const char*, Size>& list) {
        return list[byte() % (m_isPlain ? kPlain : Size)];
    }

    // The plain store speaks for a single one only, in which nothing was done that the format cannot hold.
    bool isModelled() const { return m_isPlain && m_stores == 1; }

    void expect(int code, int expected) {
        require(isCode(code), "a call answers with one of its codes");
        if (isModelled() && code != expected) {
            std::fprintf(stderr, "%s of %s: 0x%08X, not 0x%08X\n", m_name.c_str(), m_path.c_str(),
                         static_cast<unsigned>(code), static_cast<unsigned>(expected));
            require(false, "and with that of the plain store");
        }
    }

    int open(CRegLib& session, const std::string& path, CRegKey& key, int create) {
        if (path == ".") {
            const bool isFirst = &session == m_sessions[0].get();
            CRegKey top;  // an empty handle stands for it
            return session.VQRegCreateKey(&top, isFirst ? "Velquist" : "Velquist/a", key, create);
        }
        return session.VQRegCreateKey(session.RootKey(), path.c_str(), key, create);
    }

    void one();
    void set(CRegLib& session, CRegKey& key);
    void get(CRegLib& session, CRegKey& key);
    void enumerate(CRegLib& session, CRegKey& key);
    void remove(CRegLib& session, CRegKey& key);
    void readBack(CRegLib& session, CRegKey& key, CRegLib::eDataType type,
                  const std::string& bytes);
    void reload(CRegLib& session);
    void toggleUpdate(std::size_t number);
    void end();

    const std::uint8_t* m_data;
    std::size_t m_size;
    bool m_isPlain = false;
    bool m_hasDeleted = false;
    std::size_t m_stores = 1;
    std::array<std::unique_ptr<CRegLib>, 2> m_sessions;
    std::array<int, 2> m_updates = {};
    ModelStore m_model;
    std::string m_path;
    std::string m_name;
};

Value query(CRegLib& session, CRegKey& key, const std::string& name) {
    CRegLib::eDataType type = CRegLib::eNone;
    unsigned long size = 0;
    int code = session.VQRegQueryValue(key, name.c_str(), type, nullptr, &size);
    require(isCode(code), "a query answers with one of its codes");
    if (code < 0 && code != REGLIB_E_BUFFER_TOO_SMALL) {
        return Value::failure(code);
    }
    const unsigned long wanted = size;
    const auto buffer = std::make_unique<unsigned char[]>(wanted);
    code = session.VQRegQueryValue(key, name.c_str(), type, buffer.get(), &size);
    require(code == REGLIB_OK && size == wanted, "the size that was told is enough");
    return {code, type, std::string(reinterpret_cast<const char*>(buffer.get()), size)};
}

void Calls::one() {
    const unsigned char call = byte();
    const std::size_t number = call / 16 % m_stores;
    CRegLib& session = *m_sessions[number];
    m_path = oneOf(kPaths);
    m_name = oneOf(kNames);
    CRegKey key;
    const bool isCreating = call % 16 < 5;
    const int opened = open(session, m_path, key, isCreating ? 1 : 0);
    expect(opened,
           isModelled() ? isCreating ? m_model.create(m_path) : m_model.open(m_path) : opened);
    if (isModelled() && opened < 0) {
        return;  // the key may stand for a level above, which the plain store knows nothing of
    }
    switch (call % 16) {
        case 0:
            break;
        case 1:
        case 2:
        case 3:
        case 4:
        case 5:
            set(session, key);
            break;
        case 6:
            enumerate(session, key);
            break;
        case 7:
        case 8:
            remove(session, key);
            break;
        case 9:
            toggleUpdate(number);
            break;
        case 10:
            reload(session);
            break;
        default:
            get(session, key);
    }
}

void Calls::set(CRegLib& session, CRegKey& key) {
    const unsigned char kind = byte() % 3;
    const std::string bytes = data();
    const std::string text = bytes.substr(0, bytes.find('\0'));
    std::uint32_t number = 0;
    std::memcpy(&number, bytes.data(), std::min(bytes.size(), sizeof number));
    int code = REGLIB_OK;
    int expected = REGLIB_OK;
    if (kind == 0) {
        code = session.VQRegSetValue(key, m_name.c_str(), static_cast<unsigned long>(number));
        expected = !isModelled() ? code : m_model.set(m_path, m_name, number);
    } else if (kind == 1) {
        m_isPlain = m_isPlain && isKept(text, "\r\n");
        code = session.VQRegSetValue(key, m_name.c_str(), text.c_str());
        expected = !isModelled() ? code : m_model.set(m_path, m_name, text);
    } else {
        code = session.VQRegSetValue(key, m_name.c_str(),
                                     reinterpret_cast<const unsigned char*>(bytes.data()),
                                     bytes.size());
        expected = !isModelled() ? code : m_model.setBinary(m_path, m_name, bytes);
    }
    expect(code, expected);
    if (code >= 0 && isKept(m_name, "\":\r\n") && (kind != 1 || isKept(text, "\r\n"))) {
        const std::string ofNumber(reinterpret_cast<const char*>(&number), sizeof number);
        readBack(session, key,
                 kind == 0   ? CRegLib::eDword
                 : kind == 1 ? CRegLib::eString
                             : CRegLib::eBinary,
                 kind == 0   ? ofNumber
                 : kind == 1 ? text + '\0'
                             : bytes);
    }
}

// In the store that has set it whatever else was done; in the other one where all was plain, no update holds
// it back, and nothing was deleted: who still has in memory what another one has deleted writes nothing when
// it sets the same (docs/sharing.md).
void Calls::readBack(CRegLib& session, CRegKey& key, CRegLib::eDataType type,
                     const std::string& bytes) {
    const Value own = query(session, key, m_name);
    require(own.code == REGLIB_OK && own.type == type && own.bytes == bytes, "a set can be read");
    if (m_stores == 1 || !m_isPlain || m_hasDeleted || m_updates[0] + m_updates[1] > 0) {
        return;
    }
    CRegLib& other = &session == m_sessions[0].get() ? *m_sessions[1] : *m_sessions[0];
    CRegKey same;
    std::string path = key.GetKeyFullName();
    path = path.substr(1, path.rfind(']') - 1);
    CRegKey top;
    require(other.VQRegCreateKey(&top, path.c_str(), same, 0) == REGLIB_OK,
            "the other store has the key");
    const Value read = query(other, same, m_name);
    require(read.type == type && read.bytes == bytes, "the other store reads what was set");
}

void Calls::get(CRegLib& session, CRegKey& key) {
    const Value value = query(session, key, m_name);
    if (isModelled()) {
        const Value expected = m_model.get(m_path, m_name);
        require(value.code == expected.code && value.bytes == expected.bytes,
                "a query as modelled");
    }
    CRegLib::eDataType type = CRegLib::eNone;
    const int code = session.VQRegQueryValueType(key, m_name.c_str(), type);
    require(code == value.code, "the type of a value is there when the value is");
}

void Calls::enumerate(CRegLib& session, CRegKey& key) {
    std::string name;
    CRegLib::eDataType type = CRegLib::eNone;
    int index = static_cast<signed char>(byte());
    require(isCode(session.VQRegEnumKeys(key, index, name)), "an enumeration answers with a code");
    require(isCode(session.VQRegEnumValues(key, index, name, type)), "of values as well");
    for (index = 0; session.VQRegEnumValues(key, index, name, type) >= 0; ++index) {
        const Value value = query(session, key, name);
        require(value.code == REGLIB_OK && value.type == type, "what is enumerated is there");
    }
}

void Calls::remove(CRegLib& session, CRegKey& key) {
    m_hasDeleted = true;
    if (byte() % 2 == 0) {
        const int code = session.VQRegDeleteValue(key, m_name.c_str());
        expect(code, isModelled() ? m_model.deleteValue(m_path, m_name) : code);
        return;
    }
    if (m_path != "." && session.RootKey()) {
        const int code = session.VQRegDeleteKey(*session.RootKey(), m_path.c_str());
        expect(code, isModelled() ? m_model.deleteKey(m_path) : code);
    }
}

// The next call sees the store as the file shows it.
void Calls::reload(CRegLib& session) {
    const int code = session.VQRegReload();
    require(isCode(code), "a reload answers with one of its codes");
    if (code >= 0) {
        m_model.reread();
    }
}

void Calls::toggleUpdate(std::size_t number) {
    CRegLib& session = *m_sessions[number];
    int& depth = m_updates[number];
    if (depth > 0 && byte() % 4 != 0) {
        require(isCode(session.VQRegEndUpdate()), "the end of an update answers with a code");
        --depth;
        return;
    }
    const int code = session.VQRegBeginUpdate();
    require(isCode(code), "the beginning of an update answers with a code");
    depth += code >= 0 ? 1 : 0;
}

void Calls::end() {
    for (std::size_t number = 0; number < m_stores; ++number) {
        while (m_updates[number] > 0) {
            require(isCode(m_sessions[number]->VQRegEndUpdate()), "an update ends");
            --m_updates[number];
        }
    }
    if (isModelled()) {
        require(vqtest::readFile(file()) == m_model.text(), "the file is that of the plain store");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    CRegLibTrace::m_lFakeMutex = 1;  // no log, and no default store that it reads its level from
    ::unlink(Calls::file().c_str());
    ::unlink((Calls::file() + ".bak").c_str());
    Calls(data, std::min<std::size_t>(size, 2000)).run();
    return 0;
}

#ifndef VQREG_LIBFUZZER

int main(int argc, char** argv) {
    return vqfuzz::runThroughFiles(argc, argv, LLVMFuzzerTestOneInput);
}

#endif
