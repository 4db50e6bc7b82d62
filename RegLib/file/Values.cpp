// The file store's value operations.
#include "RegLib/base/FoldedName.h"
#include "RegLib/base/Guarded.h"
#include "RegLib/file/Node.h"
#include "RegLib/file/Operation.h"
#include "RegLib/text/LineFormat.h"
#include "RegLib/text/ValueData.h"
#include "RegLib/trace/Trace.h"

namespace VQRegLib {

namespace {

// Where a line takes the name of an existing value from.
enum class eSpelling { eOfNode, eCounted };

}  // namespace

// `compose` makes the line from the operation, which knows the value if there is one already. It is
// called a second time where somebody follows the call flow: then it may count through the values.
template <typename Compose>
int CRegLibImplFile::setValue(CRegKey& key, const char* name, CRegLib::eDataType type,
                              Compose&& compose, int* changed) {
    int stored = 0;
    const int result = guarded([&] {
        COperation operation(*this);
        return operation.change([&] {
            const int opened = operation.findValue(key, name);
            if (opened < 0) {
                return opened;
            }
            const CKeyOrValue* const value = operation.value();
            std::string line = compose(operation, eSpelling::eOfNode);
            const bool isSame = value && value->m_strValue == line && value->m_eDataType == type;
            if (!isSame && !operation.isLocked()) {
                return COperation::kNeedsLock;
            }
            if (traceFor(eTraceFlow)) {
                line = compose(operation, eSpelling::eCounted);
                // The counting brings imports, which may have replaced the node.
                const int again = operation.findValue(key, name);
                if (again < 0) {
                    return again;
                }
            }
            return isSame ? refuseDuringOthersUpdate()
                          : storeLine(operation, name, type, std::move(line), stored);
        });
    });
    if (changed) {
        *changed = stored;
    }
    return result;
}

// The line is complete before anything is linked: a new node without one would break the file for
// everybody.
int CRegLibImplFile::storeLine(const COperation& operation, const char* name,
                               CRegLib::eDataType type, std::string&& line, int& changed) {
    CKeyOrValue* value = operation.value();
    if (!value) {
        m_pPositions->forget();
        CKeyOrValue* const key = operation.key();
        const std::string_view folded = operation.foldedName().view();
        value = key->addChild(key->m_mapChildren.lower_bound(folded), folded,
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
std::string CRegLibImplFile::countedSpelling(CRegKey& key, const char* name) {
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
    const auto compose = [&](const COperation& operation, eSpelling spelling) {
        const auto number = static_cast<std::uint32_t>(value);
        if (!operation.value()) {
            return composeDwordLine(valueName, number);
        }
        return composeDwordLine(spelling == eSpelling::eCounted ? countedSpelling(key, valueName)
                                                                : operation.value()->m_strName,
                                number);
    };
    return setValue(key, valueName, CRegLib::eDword, compose, changed);
}

int CRegLibImplFile::VQRegSetValue(CRegKey& key, const char* valueName, const char* value,
                                   int* changed) {
    const auto compose = [&](const COperation&, eSpelling) {
        return composeStringLine(valueName, value);
    };
    return setValue(key, valueName, CRegLib::eString, compose, changed);
}

int CRegLibImplFile::VQRegSetValue(CRegKey& key, const char* valueName, const unsigned char* data,
                                   unsigned long size, int* changed) {
    const auto compose = [&](const COperation&, eSpelling) {
        return composeBinaryLine(valueName, data, size);
    };
    return setValue(key, valueName, CRegLib::eBinary, compose, changed);
}

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
        return operation.change([&] {
            const int result = operation.findExistingValue(key, valueName);
            if (result < 0) {
                return result;
            }
            if (!operation.isLocked()) {
                return COperation::kNeedsLock;
            }
            makeRoomForDisplaced();
            auto& siblings = operation.key()->m_mapChildren;
            const auto at = siblings.find(operation.foldedName().view());
            std::unique_ptr<CKeyOrValue> owned = std::move(at->second);
            siblings.erase(at);
            discard(std::move(owned));
            return commitChange();
        });
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
