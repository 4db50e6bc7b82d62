#include "tools/vqreg/text/JsonReader.h"

#include <algorithm>
#include <ios>
#include <limits>

#include "tools/vqreg/text/JsonData.h"
#include "tools/vqreg/text/Path.h"
#include "tools/vqreg/text/Shown.h"

namespace vqreg {

using Json = nlohmann::ordered_json;

namespace {

// A deeper key would not fit into its line, and nothing here may overflow the stack.
constexpr std::size_t kDeepest = 2048;

// What the outermost object alone has.
bool isOfPlace(const std::string& member) {
    return member == "name" || member == "key" || member == "path";
}

// "key" is plain: "" is the root key, and "." a key of that name.
std::string pathOfKey(const std::string& key) {
    return key.empty() || key == "." ? "/" + key : key;
}

}  // namespace

JsonText JsonReader::read() {
    Json::sax_parse(m_source, this);
    return std::move(m_result);
}

bool JsonReader::fail(std::size_t at, const std::string& what, const std::string& mend) {
    const std::string_view before = std::string_view(m_text).substr(0, at);
    const auto line = static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n'));
    const std::size_t feed = before.rfind('\n');
    const std::size_t column = feed == std::string_view::npos ? at : at - feed - 1;
    m_result.findings.push_back({line + 1, column + 1, true, what, mend});
    return false;
}

bool JsonReader::failHere(const std::string& what, const std::string& mend) {
    return fail(place(), what, mend);
}

// The last byte that the parser has taken: the end of a token, or for a number what ended it.
std::size_t JsonReader::place() const {
    const std::streamoff at = m_source.rdbuf()->pubseekoff(0, std::ios::cur, std::ios::in);
    return at > 0 ? static_cast<std::size_t>(at) - 1 : 0;
}

bool JsonReader::wrongKind() {
    if (m_frames.empty()) {
        return failHere("the text is no tree", "write {\"values\": {...}, \"keys\": {...}}");
    }
    switch (m_frames.back().kind) {
        case eFrame::eValues:
            return failHere("the value " + shown(m_member) + " is no object", JsonValue::kShape);
        case eFrame::eKeys:
            return failHere("the key " + shown(m_member) + " is no object",
                            "write {\"values\": {...}, \"keys\": {...}}");
        case eFrame::eValue:
            return failHere(shown(m_member) + " of the value " + shown(m_frames.back().value.name) +
                                " has the wrong kind of data",
                            "write a number for a dword, and a text for all else");
        default:
            return failHere(shown(m_member) + " has the wrong kind of data",
                            "write an object for values and keys, and a text for name and path");
    }
}

bool JsonReader::null() {
    return wrongKind();
}

bool JsonReader::boolean(bool /*value*/) {
    return wrongKind();
}

bool JsonReader::number_integer(number_integer_t /*value*/) {
    return failHere("a number is negative", "write a number from 0 to 4294967295");
}

bool JsonReader::number_unsigned(number_unsigned_t value) {
    if (m_frames.empty() || m_frames.back().kind != eFrame::eValue || m_member != "value") {
        return wrongKind();
    }
    if (value > std::numeric_limits<std::uint32_t>::max()) {
        return failHere("a number is too large", "write a number from 0 to 4294967295");
    }
    m_frames.back().value.number = static_cast<std::uint32_t>(value);
    return true;
}

bool JsonReader::number_float(number_float_t /*value*/, const string_t& /*text*/) {
    return failHere("a number is not whole", "write a number from 0 to 4294967295");
}

bool JsonReader::string(string_t& value) {
    if (m_frames.empty()) {
        return wrongKind();
    }
    Frame& frame = m_frames.back();
    if (frame.kind == eFrame::eValue) {
        (m_member == "type" ? frame.value.type : frame.value.text) = value;
        return true;
    }
    if (frame.kind != eFrame::eTree || !isOfPlace(m_member)) {
        return wrongKind();
    }
    const auto text = textFromJson(value);
    if (!text) {
        return failHere("\"hex:/\" is not followed by pairs of hexadecimal digits",
                        "write two digits for each byte");
    }
    if (m_member == "name") {
        frame.key->name = *text;
    } else {
        m_result.path = m_member == "path" ? *text : pathOfKey(*text);
    }
    return true;
}

bool JsonReader::binary(binary_t& /*value*/) {
    return wrongKind();
}

bool JsonReader::start_array(std::size_t /*size*/) {
    return wrongKind();
}

bool JsonReader::end_array() {
    return true;
}

bool JsonReader::start_object(std::size_t /*size*/) {
    if (m_frames.empty()) {
        m_frames.push_back({eFrame::eTree, &m_result.key});
        return true;
    }
    Frame& frame = m_frames.back();
    switch (frame.kind) {
        case eFrame::eTree:
        case eFrame::eKey:
            if (m_member != "values" && m_member != "keys") {
                return wrongKind();
            }
            m_frames.push_back({m_member == "keys" ? eFrame::eKeys : eFrame::eValues, frame.key});
            return true;
        case eFrame::eKeys:
            return startKey();
        case eFrame::eValues:
            return startMember();
        default:
            return wrongKind();
    }
}

bool JsonReader::startKey() {
    Key& parent = *m_frames.back().key;
    const auto name = textFromJson(m_member);
    if (m_frames.size() > kDeepest) {
        return failHere("keys are nested too deeply", "keep paths within 2045 bytes");
    }
    Key& child = parent.keys[folded(*name)];
    child.name = *name;
    m_frames.push_back({eFrame::eKey, &child});
    return true;
}

bool JsonReader::startMember() {
    const JsonValue value{.name = *textFromJson(m_member), .nameAt = m_memberAt};
    m_frames.push_back({eFrame::eValue, m_frames.back().key, {}, value});
    return true;
}

bool JsonReader::key(string_t& name) {
    Frame& frame = m_frames.back();
    m_member = name;
    m_memberAt = place();
    const bool isName = frame.kind == eFrame::eKeys || frame.kind == eFrame::eValues;
    const auto text = isName ? textFromJson(name) : name;
    if (!text) {
        return failHere("\"hex:/\" is not followed by pairs of hexadecimal digits",
                        "write two digits for each byte");
    }
    const bool isKnown = isName || (frame.kind == eFrame::eValue
                                        ? name == "type" || name == "value"
                                        : name == "values" || name == "keys" ||
                                              (frame.kind == eFrame::eTree && isOfPlace(name)));
    if (!isKnown) {
        return failHere("the member " + shown(name) + " is unknown", "remove it");
    }
    const bool isTwice = frame.kind == eFrame::eKeys ? frame.key->keys.contains(folded(*text))
                         : frame.kind == eFrame::eValues
                             ? frame.key->values.contains(folded(*text))
                             : std::ranges::count(frame.members, name) != 0;
    if (isTwice) {
        return failHere("the name " + shown(*text) + " occurs twice; case makes no difference",
                        "remove one of the two");
    }
    if (!isName) {
        frame.members.push_back(name);
    }
    return true;
}

bool JsonReader::end_object() {
    if (m_frames.back().kind == eFrame::eValue && !finishValue()) {
        return false;
    }
    m_frames.pop_back();
    return true;
}

bool JsonReader::finishValue() {
    Frame& frame = m_frames.back();
    Value value;
    if (const auto fault = frame.value.give(value)) {
        return fail(fault->at, fault->what, fault->mend);
    }
    frame.key->values[folded(value.name)] = std::move(value);
    return true;
}

bool JsonReader::parse_error(std::size_t position, const std::string& /*token*/,
                             const nlohmann::detail::exception& error) {
    // "[json.exception.parse_error.101] parse error at line 1, column 2: what is wrong"
    std::string what = error.what();
    const std::size_t start = what.find(": ");
    what = start == std::string::npos ? what : what.substr(start + 2);
    std::replace(what.begin(), what.end(), '\n', ' ');
    return fail(std::min(position == 0 ? 0 : position - 1, m_text.size()),
                "this is no JSON: " + what, "mend the text here or before");
}

}  // namespace vqreg
