#include "tools/vqreg/text/JsonValue.h"

#include "RegLib/text/LineFormat.h"
#include "tools/vqreg/text/DataText.h"
#include "tools/vqreg/text/JsonData.h"
#include "tools/vqreg/text/Shown.h"

namespace vqreg {

using VQRegLib::CRegLib;

std::optional<Fault> JsonValue::give(Value& value) const {
    const std::string which = "the value " + shown(name);
    value.name = name;
    if (!type) {
        return Fault{nameAt, which + " has no \"type\"", kShape};
    }
    value.type = VQRegLib::typeOfWord(*type);
    if (value.type == CRegLib::eNone) {
        return Fault{nameAt, which + " has the unknown type " + shown(*type),
                     "write string, dword or binary"};
    }
    if (value.type != CRegLib::eDword) {
        return giveBytes(value);
    }
    if (!number) {
        return Fault{nameAt, which + " has no number", kShape};
    }
    value.number = *number;
    return std::nullopt;
}

std::optional<Fault> JsonValue::giveBytes(Value& value) const {
    const std::string which = "the value " + shown(name);
    if (!text) {
        return Fault{nameAt, which + " has no text", kShape};
    }
    const auto bytes = value.type == CRegLib::eString ? textFromJson(*text) : parseHex(*text);
    if (!bytes) {
        return Fault{nameAt, which + " has data that are no pairs of hexadecimal digits",
                     "write two digits for each byte"};
    }
    value.bytes = *bytes;
    return std::nullopt;
}

}  // namespace vqreg
