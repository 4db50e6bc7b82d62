// The file store's value operations.
//
// The three setters are one piece of code with three kinds of data. What they share: nothing is linked
// into the tree before its line is complete, and a line that says the same already is no change, takes no
// lock and writes nothing. What they do not share is the spelling of the name, and that is kept: a number
// keeps the spelling with which the value was created, a text or bytes bring the caller's.
#include "RegLib/base/Guarded.h"
#include "RegLib/base/HashedName.h"
#include "RegLib/file/Operation.h"
#include "RegLib/text/LineFormat.h"
#include "RegLib/text/ValueData.h"
#include "RegLib/trace/Trace.h"

namespace VQRegLib {

namespace {

using CKeyOrValue = CRegLibImplFile::CKeyOrValue;

// The data of a value: whether a line says them already, and the line that does. Numbers keep the
// stored spelling of the name in the line; texts and bytes take the caller's. Files in the field
// depend on both.
struct CDword {
    static constexpr CRegLib::eDataType kType = CRegLib::eDword;
    static constexpr bool kKeepsSpelling = true;
    std::uint32_t number;

    bool isIn(CTree& tree, CKeyOrValue& value, const char* /*name*/) const {
        return tree.isLineOf(value, number);
    }
    std::string line(std::string_view name) const { return composeDwordLine(name, number); }
    bool putInPlace(CTree& tree, CKeyOrValue& value) const {
        return tree.setNumberInPlace(value, number);
    }
};

struct CText {
    static constexpr CRegLib::eDataType kType = CRegLib::eString;
    static constexpr bool kKeepsSpelling = false;
    std::string_view text;

    bool isIn(CTree&, CKeyOrValue& value, const char* name) const {
        return isStringLine(value.line(), name, text);
    }
    std::string line(std::string_view name) const { return composeStringLine(name, text); }
    static bool putInPlace(CTree&, CKeyOrValue&) { return false; }
};

struct CBytes {
    static constexpr CRegLib::eDataType kType = CRegLib::eBinary;
    static constexpr bool kKeepsSpelling = false;
    const unsigned char* data;
    std::size_t size;

    bool isIn(CTree&, CKeyOrValue& value, const char* name) const {
        return isBinaryLine(value.line(), name, data, size);
    }
    std::string line(std::string_view name) const { return composeBinaryLine(name, data, size); }
    static bool putInPlace(CTree&, CKeyOrValue&) { return false; }
};

}  // namespace

template <typename Data>
int CRegLibImplFile::setValue(CRegKey& key, const char* name, const Data& data, int* changed) {
    int stored = 0;
    const int result = guarded([&] {
        COperation operation(*this);
        return operation.change([&] { return changeValue(operation, key, name, data, stored); });
    });
    if (changed) {
        *changed = stored;
    }
    return result;
}

// Most sets find that there is nothing to change, and go no further than this.
template <typename Data>
int CRegLibImplFile::changeValue(COperation& operation, CRegKey& key, const char* name,
                                 const Data& data, int& changed) {
    const int opened = operation.findValue(key, name);
    if (opened < 0) {
        return opened;
    }
    CKeyOrValue* const old = operation.value();
    const bool isSame = old && old->m_eDataType == Data::kType && data.isIn(*m_tree, *old, name);
    if (!isSame && !operation.isLocked()) {
        return COperation::kNeedsLock;
    }
    const bool isCounted = old && Data::kKeepsSpelling && traceFor(eTraceFlow);
    if (isSame && !isCounted) {
        return refuseDuringOthersUpdate();
    }
    std::string spelling;
    if (isCounted) {
        spelling = countedSpelling(key, name);
        // The counting brings imports, which may have replaced the node.
        const int again = operation.findValue(key, name);
        if (again < 0) {
            return again;
        }
    }
    return isSame ? refuseDuringOthersUpdate() : putValue(operation, name, data, spelling, changed);
}

// The line is complete before anything is linked: a new node without one would break the file for
// everybody. A spelling that was counted is kept; without one, that of the node.
template <typename Data>
int CRegLibImplFile::putValue(COperation& operation, const char* name, const Data& data,
                              const std::string& spelling, int& changed) {
    CKeyOrValue* const value = operation.value();
    if (!value) {
        m_tree->addValue(*operation.key(), name, Data::kType, data.line(name));
    } else if (!spelling.empty() || !data.putInPlace(*m_tree, *value)) {
        const std::string_view kept = spelling.empty() ? m_tree->nameOf(*value) : spelling;
        const bool keepsSpelling = Data::kKeepsSpelling;
        m_tree->setValue(*value, Data::kType, data.line(keepsSpelling ? kept : name));
    }
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

int CRegLibImplFile::VQRegSetValue(CRegKey& key, const char* valueName, unsigned long value,
                                   int* changed) {
    return setValue(key, valueName, CDword{static_cast<std::uint32_t>(value)}, changed);
}

int CRegLibImplFile::VQRegSetValue(CRegKey& key, const char* valueName, const char* value,
                                   int* changed) {
    return setValue(key, valueName, CText{value}, changed);
}

int CRegLibImplFile::VQRegSetValue(CRegKey& key, const char* valueName, const unsigned char* data,
                                   unsigned long size, int* changed) {
    return setValue(key, valueName, CBytes{data, size}, changed);
}

int CRegLibImplFile::VQRegQueryValue(CRegKey& key, const char* valueName, CRegLib::eDataType& type,
                                     unsigned char* buffer, unsigned long* size) {
    type = CRegLib::eNone;
    int result = REGLIB_OK;
    try {
        CLookUp found(*this, eUnwinding::eKeepLock);
        result = found.findExistingValue(key, valueName);
        if (result >= 0) {
            CKeyOrValue& value = *found.value();
            type = value.type();
            const auto room = [&] { return CDataBuffer{buffer, buffer ? *size : 0, size}; };
            if (type == CRegLib::eDword) {
                result = giveNumber(m_tree->dwordOf(value), room());
            } else {
                std::string_view data;
                result = m_tree->dataOf(value, data);
                result = result < 0 ? result : giveDataText(data, type, room());
            }
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
        CLookUp found(*this);
        const int result = found.findExistingValue(key, valueName);
        if (result >= 0) {
            type = found.value()->type();
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
            m_tree->remove(*operation.value());
            freeGoneNodes();
            return commitChange();
        });
    });
}

int CRegLibImplFile::VQRegEnumValues(CRegKey& key, int index, std::string& name,
                                     CRegLib::eDataType& type) {
    return guarded([&] {
        CLookUp found(*this);
        if (index == 0) {
            expectValuesOf(key);
        }
        const int result = found.findKey(key);
        if (result < 0) {
            return result;
        }
        const CKeyOrValue* const child = m_tree->childOfKind(*found.key(), false, index);
        if (!child) {
            return REGLIB_E_NO_MORE_ITEMS;
        }
        name = m_tree->nameOf(*child);
        type = child->type();
        return REGLIB_OK;
    });
}

}  // namespace VQRegLib
