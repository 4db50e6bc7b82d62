#include "tools/vqreg/text/JsonData.h"

#include "RegLib/text/LineFormat.h"
#include "tools/vqreg/text/DataText.h"

namespace vqreg {

using VQRegLib::CRegLib;
using Json = nlohmann::ordered_json;

namespace {

constexpr std::string_view kHexPrefix = "hex:/";

}  // namespace

bool isUtf8(std::string_view text) {
    try {
        static_cast<void>(Json(std::string(text)).dump());
        return true;
    } catch (const Json::type_error&) {
        return false;
    }
}

std::string textForJson(std::string_view text) {
    if (isUtf8(text) && !text.starts_with(kHexPrefix)) {
        return std::string(text);
    }
    return std::string(kHexPrefix) + VQRegLib::hexText(text);
}

std::optional<std::string> textFromJson(std::string_view text) {
    if (!text.starts_with(kHexPrefix)) {
        return std::string(text);
    }
    return parseHex(text.substr(kHexPrefix.size()));
}

Json jsonOf(const Value& value) {
    Json json;
    json["type"] = VQRegLib::wordOfType(value.type);
    switch (value.type) {
        case CRegLib::eDword:
            json["value"] = value.number;
            break;
        case CRegLib::eBinary:
            json["value"] = VQRegLib::hexText(value.bytes);
            break;
        default:
            json["value"] = textForJson(value.bytes);
    }
    return json;
}

}  // namespace vqreg
