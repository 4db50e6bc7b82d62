// The nodes of the tree: keys and values.
#ifndef REGLIB_TREE_KEYORVALUE_H
#define REGLIB_TREE_KEYORVALUE_H

#include <cstdint>
#include <string_view>

#include "VQRegLib.h"

namespace VQRegLib {

// The invisible node above the top-level keys.
constexpr char kTreeRootName[] = "<root>";

// Nodes know each other by numbers, which take half the room of pointers; 0 is none. A node stays
// where it is in memory for as long as it lives.
using NodeNumber = std::uint32_t;

// A hundred thousand of these are with their lines the largest part of a large store: forty bytes each,
// no more.
class CKeyOrValue {
public:
    // A key's or a value's line in the file, without its end; the tree root has none. It lies in the
    // text that the tree keeps.
    std::string_view line() const { return {m_line, m_lineSize}; }
    bool isKey() const { return m_iIsKey != 0; }
    CRegLib::eDataType type() const { return static_cast<CRegLib::eDataType>(m_eDataType); }

    const char* m_line = "";
    std::uint32_t m_lineSize = 0;

    // Where in the line the name stands, as it was created; kNameApart where it stands elsewhere.
    std::uint32_t m_nameAt = kNameApart;
    std::uint32_t m_nameSize = 0;
    static constexpr std::uint32_t kNameApart = 0xFFFFFFFF;

    NodeNumber m_number = 0;
    NodeNumber m_parent = 0;       // 0 for the tree root only
    std::uint32_t m_children = 0;  // its lists, 0 while there was never a child
    union {
        std::uint32_t m_ulKeyHandleID = 0;  // of a key: the last one registered for it
        std::uint32_t m_dword;              // of a value that has been decoded
        std::uint32_t m_dataAt;             // the same, where its type is another one
    };
    std::int8_t m_iIsKey = 0;  // 1 for a key, 0 for a value
    std::uint8_t m_eDataType = CRegLib::eNone;

    enum eDecoding : std::uint8_t {
        eNotDecoded,
        eDecoded,    // m_dword is the value's number, or m_dataAt where in its line the data begin
        eAsComposed  // and its line is as one is composed for that number
    };
    eDecoding m_decoding = eNotDecoded;

    enum eState : std::uint8_t {
        eInTree,
        eDisplaced,  // a value has its name now, and handles go on working with it
        eGone        // deleted, and kept for handles that may still refer to it
    };
    eState m_state = eInTree;
};
static_assert(sizeof(void*) > 4 ? sizeof(CKeyOrValue) == 40 : true);

}  // namespace VQRegLib

#endif  // REGLIB_TREE_KEYORVALUE_H
