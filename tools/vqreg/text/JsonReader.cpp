#include "tools/vqreg/text/JsonReader.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <iterator>
#include <limits>

#include "RegLib/text/LineFormat.h"
#include "tools/vqreg/text/DataInput.h"
#include "tools/vqreg/text/TextLines.h"

namespace vqreg {

using VQRegLib::CRegLib;
using Json = nlohmann::ordered_json;

namespace {

// A deeper key would not fit into its line, and nothing here may overflow the stack.
constexpr std::size_t kDeepest = 2048;

const std::string kShapeOfValue = "write {\"type\": TYPE, \"value\": DATA}";

// What the outermost object alone has.
bool isOfPlace(const std::string& member) {
    return member == "name" || member == "key" || member == "path";
}

// "key" is plain: "" is the root key, and "." a key of that name.
std::string pathOfKey(const std::string& key) {
    return key.empty() || key == "." ? "/" + key : key;
}

// Of the string whose closing quote is at `close`: the last quote before it that is not escaped.
std::size_t openingQuote(std::string_view text, std::size_t close) {
    std::size_t quote = close;
    for (;;) {
        quote = quote == 0 ? std::string_view::npos : text.rfind('"', quote - 1);
        if (quote == std::string_view::npos || quote == 0) {
            return quote == 0 ? 0 : close;
        }
        std::size_t backslashes = 0;
        while (backslashes < quote && text[quote - 1 - backslashes] == '\\') {
            ++backslashes;
        }
        if (backslashes % 2 == 0) {
            return quote;
        }
    }
}

// The parser reads through this one, so that its place is known.
class Cursor {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    Cursor(const char* at, const char** seen) : m_at(at), m_seen(seen) {}
    reference operator*() const { return *m_at; }
    Cursor& operator++() {
        *m_seen = ++m_at;
        return *this;
    }
    Cursor operator++(int) {
        const Cursor before = *this;
        ++*this;
        return before;
    }
    bool operator==(const Cursor& other) const { return m_at == other.m_at; }
    bool operator!=(const Cursor& other) const { return m_at != other.m_at; }

private:
    const char* m_at;
    const char** m_seen;
};

}  // namespace

JsonText JsonReader::read() {
    const char* const end = m_text.data() + m_text.size();
    const char* ignored = nullptr;
    Json::sax_parse(Cursor(m_text.data(), &m_seen), Cursor(end, &ignored), this);
    return std::move(m_result);
}

bool JsonReader::fail(std::size_t at, const std::string& what, const std::string& mend) {
    const std::string_view before = m_text.substr(0, at);
    const auto line = static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n'));
    const std::size_t feed = before.rfind('\n');
    const std::size_t column = feed == std::string_view::npos ? at : at - feed - 1;
    m_result.findings.push_back({line + 1, column + 1, true, what, mend});
    return false;
}

bool JsonReader::failHere(const std::string& what, const std::string& mend) {
    return fail(tokenStart(), what, mend);
}

// Goes back from the end of the token; after a number or a word the parser has read one more.
std::size_t JsonReader::tokenStart() const {
    auto at = static_cast<std::size_t>(m_seen - m_text.data());
    const auto isWord = [](unsigned char c) {
        return std::isalnum(c) != 0 || c == '+' || c == '-' || c == '.';
    };
    if (at == 0) {
        return 0;
    }
    --at;
    const char last = m_text[at];
    if (last == '"') {
        return openingQuote(m_text, at);
    }
    if (last == '{' || last == '[') {
        return at;
    }
    if (!isWord(static_cast<unsigned char>(last)) && at > 0 &&
        isWord(static_cast<unsigned char>(m_text[at - 1]))) {
        --at;
    }
    while (at > 0 && isWord(static_cast<unsigned char>(m_text[at - 1]))) {
        --at;
    }
    return at;
}

bool JsonReader::wrongKind() {
    if (m_frames.empty()) {
        return failHere("the text is no tree", "write {\"values\": {...}, \"keys\": {...}}");
    }
    switch (m_frames.back().kind) {
        case eFrame::eValues:
            return failHere("the value " + shown(m_member) + " is no object", kShapeOfValue);
        case eFrame::eKeys:
            return failHere("the key " + shown(m_member) + " is no object",
                            "write {\"values\": {...}, \"keys\": {...}}");
        case eFrame::eValue:
            return failHere(shown(m_member) + " of the value " + shown(m_frames.back().name) +
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
    m_frames.back().number = static_cast<std::uint32_t>(value);
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
        (m_member == "type" ? frame.type : frame.text) = value;
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
    Frame value{eFrame::eValue, m_frames.back().key};
    value.name = *textFromJson(m_member);
    value.nameAt = m_memberAt;
    m_frames.push_back(std::move(value));
    return true;
}

bool JsonReader::key(string_t& name) {
    Frame& frame = m_frames.back();
    m_member = name;
    m_memberAt = tokenStart();
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
    const std::string which = "the value " + shown(frame.name);
    Value value;
    value.name = frame.name;
    if (!frame.type) {
        return fail(frame.nameAt, which + " has no \"type\"", kShapeOfValue);
    }
    value.type = VQRegLib::typeOfWord(*frame.type);
    if (value.type == CRegLib::eNone) {
        return fail(frame.nameAt, which + " has the unknown type " + shown(*frame.type),
                    "write string, dword or binary");
    }
    const bool isNumber = value.type == CRegLib::eDword;
    if (isNumber ? !frame.number : !frame.text) {
        return fail(frame.nameAt, which + (isNumber ? " has no number" : " has no text"),
                    kShapeOfValue);
    }
    if (isNumber) {
        value.number = *frame.number;
    } else {
        const auto bytes =
            value.type == CRegLib::eString ? textFromJson(*frame.text) : parseHex(*frame.text);
        if (!bytes) {
            return fail(frame.nameAt, which + " has data that are no pairs of hexadecimal digits",
                        "write two digits for each byte");
        }
        value.bytes = *bytes;
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
