// A value as an object in JSON: {"type": TYPE, "value": DATA}.
#ifndef TOOLS_VQREG_TEXT_JSONVALUE_H
#define TOOLS_VQREG_TEXT_JSONVALUE_H

#include <cstdint>
#include <optional>
#include <string>

#include "tools/vqreg/text/Model.h"
#include "tools/vqreg/text/TextLines.h"

namespace vqreg {

// What its members say, as far as they were there.
struct JsonValue {
    std::string name = {};
    std::size_t nameAt = 0;
    std::optional<std::string> type = {};
    std::optional<std::uint32_t> number = {};
    std::optional<std::string> text = {};

    // How it is to be written.
    static constexpr const char* kShape = "write {\"type\": TYPE, \"value\": DATA}";

    // Puts all into the value. Else what is wrong, at the place of the name.
    std::optional<Fault> give(Value& value) const;

private:
    std::optional<Fault> giveBytes(Value& value) const;
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_TEXT_JSONVALUE_H
