#include "tools/vqreg/terminal/Output.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tools/vqreg/base/ExitCode.h"

namespace vqreg {

namespace {

constexpr std::size_t kLargestBuffer = 64UL * 1024;

const char* colorOf(eStyle style) {
    switch (style) {
        case eStyle::eKey:
            return "\x1b[1;34m";
        case eStyle::eName:
            return "\x1b[1m";
        case eStyle::eType:
            return "\x1b[36m";
        case eStyle::eAdded:
            return "\x1b[32m";
        case eStyle::eRemoved:
            return "\x1b[31m";
        case eStyle::eChanged:
            return "\x1b[33m";
        case eStyle::eFault:
            return "\x1b[1;31m";
        case eStyle::ePlain:
            break;
    }
    return "";
}

}  // namespace

Output& Output::standard() {
    static Output output;
    return output;
}

bool Output::isTerminal() {
    return isatty(STDOUT_FILENO) == 1;
}

void Output::setColor(eColor color) {
    const char* const noColor = std::getenv("NO_COLOR");
    const bool automatic = isTerminal() && !(noColor && *noColor);
    m_colored = color == eColor::eAlways || (color == eColor::eAuto && automatic);
}

std::string Output::styled(eStyle style, std::string_view text) const {
    if (!m_colored || style == eStyle::ePlain) {
        return std::string(text);
    }
    return fmt::format("{}{}\x1b[0m", colorOf(style), text);
}

void Output::write(std::string_view bytes) {
    m_buffer += bytes;
    if (m_buffer.size() >= kLargestBuffer) {
        flush();
    }
}

void Output::line(std::string_view text, char end) {
    m_buffer += text;
    m_buffer += end;
    write({});
}

void Output::json(const Json& value, int indent) {
    line(value.dump(indent, ' ', false, Json::error_handler_t::replace));
}

void Output::flush() {
    const std::string bytes = std::move(m_buffer);
    m_buffer.clear();
    for (std::size_t at = 0; at < bytes.size();) {
        const ssize_t written = ::write(STDOUT_FILENO, bytes.data() + at, bytes.size() - at);
        if (written >= 0) {
            at += static_cast<std::size_t>(written);
        } else if (errno == EPIPE) {
            throw ClosedPipe{};
        } else if (errno != EINTR) {
            throw CommandError(eExit::eWriteFailed,
                               fmt::format("standard output: {}", std::strerror(errno)));
        }
    }
}

void note(std::string_view text) {
    const std::string line = fmt::format("vqreg: {}\n", text);
    // One call, so that lines of several threads and processes stay whole. Where standard error
    // cannot be written nobody can be told.
    [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace vqreg
