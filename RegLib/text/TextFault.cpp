#include "RegLib/text/TextFault.h"

#include "RegLib/text/LineFormat.h"
#include "RegLib/text/LineSplitter.h"

namespace VQRegLib {

namespace {

const char* textOf(eLineFault fault) {
    switch (fault) {
        case eLineFault::eNoQuote:
            return "neither a key nor a value begins here";
        case eLineFault::eNotClosed:
            return "the name has no second quote";
        case eLineFault::eNoEquals:
            return "no \"=\" follows the name";
        case eLineFault::eNoColon:
            return "no \":\" follows the type";
        case eLineFault::eNoType:
            return "the type is none of binary, dword and string";
        default:
            return nullptr;
    }
}

// Where the first thing is missing, or wrong.
std::size_t placeOf(eLineFault fault, std::string_view line, const CValueLine& parts) {
    const auto offset = [&](std::string_view part) {
        return static_cast<std::size_t>(part.data() - line.data());
    };
    switch (fault) {
        case eLineFault::eNoQuote:
            return 0;
        case eLineFault::eNoEquals:
            return offset(parts.name) + parts.name.size() + 1;
        case eLineFault::eNoType:
            return offset(parts.typeWord);
        default:
            return line.size();
    }
}

class CFaultFinder {
public:
    std::optional<CTextFault> find(std::string_view text) {
        for (std::string_view piece; takePiece(text, true, piece);) {
            const std::string_view line = lineOfPiece(piece);
            std::size_t column = 0;
            if (const char* const what =
                    line.starts_with('[') ? keyLine(line, column) : valueLine(line, column)) {
                return CTextFault{m_line, m_column + column + 1, what};
            }
            goOn(piece);
        }
        return std::nullopt;
    }

private:
    const char* keyLine(std::string_view line, std::size_t& column) {
        std::string_view path;
        if (parseKeyLine(line, path) < 0) {
            column = line.size();
            return "the key line has no \"]\"";
        }
        std::string_view name;
        m_isInKey = nextKeyLineName(path, name);
        return nullptr;
    }

    const char* valueLine(std::string_view line, std::size_t& column) const {
        if (line.empty()) {
            return "the line is empty";
        }
        CValueLine parts;
        const eLineFault fault = splitValueLine(line, parts);
        if (fault != eLineFault::eNone) {
            column = placeOf(fault, line, parts);
            return textOf(fault);
        }
        return m_isInKey ? nullptr : "the value stands below no key";
    }

    void goOn(std::string_view piece) {
        if (piece.ends_with('\n')) {
            ++m_line;
            m_column = 0;
        } else {
            m_column += piece.size();
        }
    }

    std::size_t m_line = 1;
    std::size_t m_column = 0;  // at which the piece begins
    bool m_isInKey = false;
};

}  // namespace

std::optional<CTextFault> firstFault(std::string_view text) {
    return CFaultFinder().find(text);
}

}  // namespace VQRegLib
