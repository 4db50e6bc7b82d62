#include "support/Results.h"

#include <cstring>
#include <ostream>
#include <stdexcept>

#include "VQRegLib.h"
#include "support/Wire.h"

namespace vqtest {

using VQRegLib::CRegLib;
using VQRegLib::REGLIB_OK;

std::uint32_t Value::dword() const {
    std::uint32_t number = 0;
    if (code != REGLIB_OK || type != CRegLib::eDword || bytes.size() != sizeof number) {
        throw std::logic_error("the value is no number");
    }
    std::memcpy(&number, bytes.data(), sizeof number);
    return number;
}

std::string Value::text() const {
    if (code != REGLIB_OK || type != CRegLib::eString || bytes.empty() || bytes.back() != '\0') {
        throw std::logic_error("the value is no text");
    }
    return bytes.substr(0, bytes.size() - 1);
}

Value Value::ofDword(std::uint32_t number) {
    std::string bytes(sizeof number, '\0');
    std::memcpy(bytes.data(), &number, sizeof number);
    return {REGLIB_OK, CRegLib::eDword, bytes};
}

Value Value::ofText(const std::string& text) {
    return {REGLIB_OK, CRegLib::eString, text + '\0'};
}

Value Value::ofBinary(const std::string& bytes) {
    return {REGLIB_OK, CRegLib::eBinary, bytes};
}

Value Value::failure(int code) {
    return {code, CRegLib::eNone, {}};
}

std::ostream& operator<<(std::ostream& out, const Value& value) {
    return out << codeToText(value.code) << " type " << value.type << " " << toHex(value.bytes);
}

std::ostream& operator<<(std::ostream& out, const KeyNames& keys) {
    out << codeToText(keys.code);
    for (const std::string& name : keys.names) {
        out << " [" << name << "]";
    }
    return out;
}

std::ostream& operator<<(std::ostream& out, const ValueNames& values) {
    out << codeToText(values.code);
    for (const auto& [name, type] : values.names) {
        out << " \"" << name << "\" of type " << type;
    }
    return out;
}

}  // namespace vqtest
