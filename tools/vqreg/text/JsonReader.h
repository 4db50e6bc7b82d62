// Reads the JSON text of a tree token by token, so that each fault has its place: where the parser is
// when it shows, which is the end of what is wrong.
#ifndef TOOLS_VQREG_TEXT_JSONREADER_H
#define TOOLS_VQREG_TEXT_JSONREADER_H

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "tools/vqreg/text/Findings.h"
#include "tools/vqreg/text/JsonValue.h"
#include "tools/vqreg/text/Model.h"

namespace vqreg {

struct JsonText {
    Key key;
    std::optional<std::string> path;  // as joinPath makes it
    std::vector<Finding> findings;    // at most one, an error
    bool isReadable() const { return findings.empty(); }
};

class JsonReader {
public:
    explicit JsonReader(std::string_view text) : m_text(text), m_source(m_text) {}
    JsonText read();

    // What the parser calls; false ends it.
    using number_integer_t = std::int64_t;
    using number_unsigned_t = std::uint64_t;
    using number_float_t = double;
    using string_t = std::string;
    using binary_t = nlohmann::ordered_json::binary_t;
    bool null();
    bool boolean(bool value);
    bool number_integer(number_integer_t value);
    bool number_unsigned(number_unsigned_t value);
    bool number_float(number_float_t value, const string_t& text);
    bool string(string_t& value);
    bool binary(binary_t& value);
    bool start_object(std::size_t size);
    bool key(string_t& name);
    bool end_object();
    bool start_array(std::size_t size);
    bool end_array();
    bool parse_error(std::size_t position, const std::string& token,
                     const nlohmann::detail::exception& error);

private:
    enum class eFrame { eTree, eKey, eValues, eKeys, eValue };

    // An object that has begun.
    struct Frame {
        eFrame kind;
        Key* key = nullptr;
        std::vector<std::string> members = {};
        JsonValue value = {};
    };

    bool fail(std::size_t at, const std::string& what, const std::string& mend);
    bool failHere(const std::string& what, const std::string& mend);
    bool wrongKind();
    std::size_t place() const;
    bool startMember();
    bool startKey();
    bool finishValue();

    const std::string m_text;
    std::istringstream m_source;  // what the parser reads from
    std::vector<Frame> m_frames;
    std::string m_member;  // the name that was read last
    std::size_t m_memberAt = 0;
    JsonText m_result;
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_TEXT_JSONREADER_H
