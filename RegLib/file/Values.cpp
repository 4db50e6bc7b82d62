// The file store's value operations.
#include <cstring>

#include "RegLib/base/FoldedName.h"
#include "RegLib/base/Guarded.h"
#include "RegLib/file/LineFormat.h"
#include "RegLib/file/Node.h"
#include "RegLib/file/Operation.h"
#include "RegLib/trace/Trace.h"

namespace VQRegLib {

// `compose` makes the line from the operation, which knows the value if there is one already.
template <typename Compose>
int CRegLibImplFile::setValue(CRegKey& key, const char* name, CRegLib::eDataType type,
                              Compose&& compose, int* changed) {
    int stored = 0;
    const int result = guarded([&] {
        COperation operation(*this);
        const int opened = operation.findValue(key, name);
        if (opened < 0) {
            return opened;
        }
        std::string line = compose(operation);
        if (traceFor(eTraceFlow)) {
            // The counting in storedSpelling brings imports, which may have replaced the node.
            const int again = operation.findValue(key, name);
            if (again < 0) {
                return again;
            }
        }
        return storeLine(operation.key(), operation.value(), name, operation.foldedName(), type,
                         std::move(line), stored);
    });
    if (changed) {
        *changed = stored;
    }
    return result;
}

// The line is complete before anything is linked: a new node without one would break the file for
// everybody.
int CRegLibImplFile::storeLine(CKeyOrValue* key, CKeyOrValue* value, const char* name,
                               const CFoldedName& folded, CRegLib::eDataType type,
                               std::string&& line, int& changed) {
    if (isUpdatedElsewhere()) {
        return REGLIB_E_FAIL;
    }
    if (value && value->m_strValue == line && value->m_eDataType == type) {
        return REGLIB_OK;
    }
    if (!value) {
        m_pPositions->forget();
        value = key->addChild(key->m_mapChildren.lower_bound(folded.view()), folded.view(),
                              std::make_unique<CKeyOrValue>(0, name));
    }
    value->m_strValue = std::move(line);
    value->m_eDataType = type;
    changed = 1;
    return commitChange();
}

// The spelling under which an existing value was created. The number setter has always found it by
// counting through the values, each of which brings an import check; whoever follows the call flow
// in the trace log sees them. Nobody else needs to wait for it: the node knows its name.
std::string CRegLibImplFile::storedSpelling(CRegKey& key, const char* name,
                                            const CKeyOrValue& value) {
    if (!traceFor(eTraceFlow)) {
        return value.m_strName;
    }
    const std::string wanted = tolower(name);
    std::string candidate = name;
    CRegLib::eDataType type = CRegLib::eNone;
    for (int index = 0; VQRegEnumValues(key, index, candidate, type) >= 0; ++index) {
        if (tolower(candidate) == wanted) {
            break;
        }
    }
    return candidate;
}

// Numbers keep the stored spelling of the name in the line; texts and bytes take the caller's.
// Files in the field depend on both.
int CRegLibImplFile::VQRegSetValue(CRegKey& key, const char* valueName, unsigned long value,
                                   int* changed) {
    const auto compose = [&](const COperation& operation) {
        const auto number = static_cast<std::uint32_t>(value);
        return operation.value()
                   ? composeDwordLine(storedSpelling(key, valueName, *operation.value()), number)
                   : composeDwordLine(valueName, number);
    };
    return setValue(key, valueName, CRegLib::eDword, compose, changed);
}

int CRegLibImplFile::VQRegSetValue(CRegKey& key, const char* valueName, const char* value,
                                   int* changed) {
    const auto compose = [&](const COperation&) { return composeStringLine(valueName, value); };
    return setValue(key, valueName, CRegLib::eString, compose, changed);
}

int CRegLibImplFile::VQRegSetValue(CRegKey& key, const char* valueName, const unsigned char* data,
                                   unsigned long size, int* changed) {
    const auto compose = [&](const COperation&) {
        return composeBinaryLine(valueName, data, size);
    };
    return setValue(key, valueName, CRegLib::eBinary, compose, changed);
}

namespace {

// The caller's buffer with its protocol: capacity in, size of the data out.
struct CBuffer {
    unsigned char* data;
    unsigned long capacity;
    unsigned long* size;

    int needs(unsigned long wanted) const {
        *size = wanted;
        return capacity < wanted ? REGLIB_E_BUFFER_TOO_SMALL : REGLIB_OK;
    }
};

int giveDword(std::string_view text, const CBuffer& buffer) {
    const std::uint32_t number = scanHex(text, 8);
    const int result = buffer.needs(sizeof number);
    if (result >= 0 && buffer.data) {
        std::memcpy(buffer.data, &number, sizeof number);
    }
    return result;
}

int giveString(std::string_view text, const CBuffer& buffer) {
    const int result = buffer.needs(text.size() + 1);
    if (result >= 0 && buffer.data) {
        text.copy(reinterpret_cast<char*>(buffer.data), text.size());
        buffer.data[text.size()] = '\0';
    }
    return result;
}

// The last digit of an odd number of them counts as a byte where the buffer has room, but not in
// the size.
int giveBinary(std::string_view text, const CBuffer& buffer) {
    const int result = buffer.needs(text.size() / 2);
    if (result >= 0) {
        for (unsigned long i = 0; i < buffer.capacity && 2 * i < text.size(); ++i) {
            buffer.data[i] = static_cast<unsigned char>(scanHex(text.substr(2 * i), 2));
        }
    }
    return result;
}

int giveData(std::string_view line, CRegLib::eDataType type, const CBuffer& buffer) {
    std::string_view text;
    const int result = dataOfLine(line, text);
    if (result < 0) {
        return result;
    }
    switch (type) {
        case CRegLib::eDword:
            return giveDword(text, buffer);
        case CRegLib::eString:
            return giveString(text, buffer);
        case CRegLib::eBinary:
            return giveBinary(text, buffer);
        default:
            *buffer.size = 0;
            return REGLIB_E_BAD_TYPE;
    }
}

}  // namespace

int CRegLibImplFile::VQRegQueryValue(CRegKey& key, const char* valueName, CRegLib::eDataType& type,
                                     unsigned char* buffer, unsigned long* size) {
    type = CRegLib::eNone;
    int result = REGLIB_OK;
    try {
        COperation operation(*this, eUnwinding::eKeepLock);
        result = operation.findExistingValue(key, valueName);
        if (result >= 0) {
            type = operation.value()->m_eDataType;
            result =
                giveData(operation.value()->m_strValue, type, {buffer, buffer ? *size : 0, size});
        }
    } catch (...) {
        // The answer is what was known by then, and the lock stays taken until this thread ends or
        // destroys the store: nobody shall write over what the exception left behind.
    }
    return result;
}

int CRegLibImplFile::VQRegQueryValueType(CRegKey& key, const char* valueName,
                                         CRegLib::eDataType& type) {
    type = CRegLib::eNone;
    return guarded([&] {
        COperation operation(*this);
        const int result = operation.findExistingValue(key, valueName);
        if (result >= 0) {
            type = operation.value()->m_eDataType;
        }
        return result;
    });
}

int CRegLibImplFile::VQRegDeleteValue(CRegKey& key, const char* valueName) {
    return guarded([&] {
        COperation operation(*this);
        const int result = operation.findExistingValue(key, valueName);
        if (result < 0) {
            return result;
        }
        if (isUpdatedElsewhere()) {
            return REGLIB_E_FAIL;
        }
        makeRoomForDisplaced();
        auto& siblings = operation.key()->m_mapChildren;
        const auto at = siblings.find(operation.foldedName().view());
        std::unique_ptr<CKeyOrValue> owned = std::move(at->second);
        siblings.erase(at);
        discard(std::move(owned));
        return commitChange();
    });
}

int CRegLibImplFile::VQRegEnumValues(CRegKey& key, int index, std::string& name,
                                     CRegLib::eDataType& type) {
    return guarded([&] {
        COperation operation(*this);
        const int result = operation.findKey(key);
        if (result < 0) {
            return result;
        }
        const CKeyOrValue* const child = m_pPositions->find(*operation.key(), 0, index);
        if (!child) {
            return REGLIB_E_NO_MORE_ITEMS;
        }
        name = child->m_strName;
        type = child->m_eDataType;
        return REGLIB_OK;
    });
}

}  // namespace VQRegLib
