// Standard output: text for people, JSON for programs. Nothing but data goes there; notes and
// messages go to standard error.
#ifndef TOOLS_VQREG_TERMINAL_OUTPUT_H
#define TOOLS_VQREG_TERMINAL_OUTPUT_H

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace vqreg {

using Json = nlohmann::ordered_json;

enum class eColor { eAuto, eAlways, eNever };
enum class eStyle { ePlain, eKey, eName, eType, eAdded, eRemoved, eChanged, eFault };

// Thrown when nobody reads standard output any more; main ends quietly with 0.
struct ClosedPipe {};

// Buffers standard output. Everything that a command prints goes through the one object.
class Output {
public:
    static Output& standard();

    // --color; "auto" is colour on a terminal unless NO_COLOR is set to something.
    void setColor(eColor color);
    bool isColored() const { return m_colored; }
    static bool isTerminal();  // standard output

    // The text in the colour of its style, or as it is.
    std::string styled(eStyle style, std::string_view text) const;

    void write(std::string_view bytes);                 // as they are
    void line(std::string_view text, char end = '\n');  // -0 passes '\0'
    void json(const Json& value,
              int indent = 2);  // -1: on one line; texts that are not UTF-8 suffer
    void flush();  // throws ClosedPipe; CommandError eWriteFailed for every other failure

private:
    std::string m_buffer;
    bool m_colored = false;
};

// "vqreg: " and the text on standard error.
void note(std::string_view text);

}  // namespace vqreg

#endif  // TOOLS_VQREG_TERMINAL_OUTPUT_H
