#include "tools/vqreg/text/ConfigReader.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "RegLib/text/LineFormat.h"

namespace vqreg {

namespace {

// The name of the library's own invisible key; a key of that name gets no line when it is written.
constexpr std::string_view kTreeRootName = "<root>";

std::string onLine(std::size_t line) {
    return "on line " + std::to_string(line);
}

std::string bracketed(const std::vector<std::string_view>& names, std::size_t count) {
    std::string path;
    for (std::size_t i = 0; i < count; ++i) {
        path += i == 0 ? "" : "/";
        path += names[i];
    }
    return "[" + path + "]";
}

}  // namespace

ConfigReader::ConfigReader() = default;

void ConfigReader::read(std::string_view text) {
    PieceReader reader(text);
    for (Piece piece; reader.next(piece);) {
        readPiece(piece);
    }
    std::stable_sort(m_findings.begin(), m_findings.end(), [](const auto& a, const auto& b) {
        return std::tie(a.line, a.column) < std::tie(b.line, b.column);
    });
}

void ConfigReader::readPiece(const Piece& piece) {
    const bool isWholeLine = piece.offset == 0 && piece.isLast;
    if (!isWholeLine ||
        (piece.bytes.size() == VQRegLib::kLongestPiece && piece.bytes.back() != '\n')) {
        noteLongLine(piece);
    }
    eCut cut = eCut::eNone;
    const std::string_view line = cutPiece(piece.bytes, cut);
    noteCut(piece, cut, line.size());
    readLine(piece, line);
}

void ConfigReader::readLine(const Piece& piece, std::string_view line) {
    if (line.starts_with('[')) {
        readKeyLine(piece, line);
    } else {
        readValueLineOf(piece, line);
    }
}

void ConfigReader::readKeyLine(const Piece& piece, std::string_view line) {
    m_current = nullptr;
    m_isInvisible = false;
    std::string_view path;
    if (VQRegLib::parseKeyLine(line, path) < 0) {
        m_state = eState::eAfterBadKey;
        lose(piece);
        error(piece, {line.size(), "the key line has no \"]\"", "write [PATH]"});
        return;
    }
    const std::size_t close = path.size() + 1;
    const std::vector<std::string_view> names = namesOfKeyLine(path);
    if (names.empty()) {
        m_state = eState::eAfterNoKey;
        warning(piece, {0, "\"[]\" names no key", "remove the line"});
        return;
    }
    if (close + 1 < line.size()) {
        warning(piece,
                {close + 1, "text stands after the \"]\" and would be written again", "remove it"});
    }
    if (path.ends_with('/') && !names.back().empty()) {
        warning(piece, {close - 1, "the \"/\" before the \"]\" adds no key", "remove it"});
    }
    m_state = eState::eInKey;
    judgeNames(piece, names);
    walkPath(piece, line, names);
}

void ConfigReader::judgeNames(const Piece& piece, const std::vector<std::string_view>& names) {
    const std::string rename = "choose another name";
    std::size_t at = 1;
    for (const std::string_view name : names) {
        if (name.empty()) {
            warning(piece, {at, "a key has an empty name", "remove a \"/\", or name the key"});
        } else if (name == kTreeRootName) {
            warning(piece,
                    {at, "a key named <root> gets no line when the file is written", rename});
        } else if (const std::size_t slash = name.find('\\'); slash != std::string_view::npos) {
            warning(piece,
                    {at + slash, "no program can open a key with \"\\\" in its name", rename});
        }
        at += name.size() + 1;
    }
}

void ConfigReader::walkPath(const Piece& piece, std::string_view line,
                            const std::vector<std::string_view>& names) {
    Node* node = &m_top;
    std::size_t at = 1;
    std::vector<std::string> missing;
    for (std::size_t i = 0; i < names.size(); at += names[i].size() + 1, ++i) {
        const auto [entry, isNew] = node->children.try_emplace(folded(std::string(names[i])));
        Node& child = entry->second;
        if (isNew) {
            child.name = names[i];
            child.text = line;
            child.line = piece.line;
            if (i + 1 < names.size() && !names[i].empty()) {
                missing.push_back(bracketed(names, i + 1));
            }
        } else if (!child.isKey && !m_isInvisible) {
            m_isInvisible = true;
            warning(piece, {at,
                            shown(child.name) + " is a value " + onLine(child.line) +
                                ": nothing finds what is below it, and it is not written again",
                            "give the key or the value another name"});
        } else if (child.name != names[i] && !m_isInvisible) {
            warning(piece, {at,
                            shown(names[i]) + " is the key " + shown(child.name) + " " +
                                onLine(child.line) + ": case makes no difference",
                            "write " + shown(child.name) + ", or choose another name"});
        }
        node = &child;
    }
    m_current = node;
    if (!missing.empty() && !m_isInvisible) {
        std::string list = missing.front();
        for (std::size_t i = 1; i < missing.size(); ++i) {
            list += (i + 1 == missing.size() ? " and " : ", ") + missing[i];
        }
        const bool isOne = missing.size() == 1;
        warning(piece,
                {0,
                 list + (isOne ? " has no line" : " have no lines") +
                     " before this one, which will be written for " + (isOne ? "it" : "them") +
                     " too: values would move",
                 "write " + list + " before this line"},
                Finding::eKind::eMissingParent);
    }
}

void ConfigReader::readValueLineOf(const Piece& piece, std::string_view line) {
    ValueLine parts;
    if (const auto fault = readValueLine(line, parts)) {
        if (!line.empty()) {
            lose(piece);
        }
        error(piece, *fault);
        return;
    }
    if (m_state != eState::eInKey) {
        lose(piece);
    }
    if (m_state == eState::eBeforeKeys) {
        error(piece, {0, "a value stands before the first key", "write a key line above it"});
        m_state = eState::eAfterBadKey;  // once is enough for all values here
    } else if (m_state == eState::eAfterNoKey) {
        error(piece,
              {0, "a value stands after \"[]\", which names no key", "write a key line above it"});
        m_state = eState::eAfterBadKey;
    } else if (m_state == eState::eInKey) {
        storeValue(piece, line, parts);
    }
    for (const Fault& oddity : oddities(parts)) {
        warning(piece, oddity);
    }
}

void ConfigReader::storeValue(const Piece& piece, std::string_view line, const ValueLine& parts) {
    const auto [entry, isNew] = m_current->children.try_emplace(folded(std::string(parts.name)));
    Node& node = entry->second;
    if (!isNew) {
        if (!m_isInvisible) {
            judgeReplaced(piece, parts, node);
        }
        node = Node();
    }
    node.isKey = false;
    node.name = parts.name;
    node.text = line;
    node.line = piece.line;
    node.value = valueOf(parts);
}

void ConfigReader::judgeReplaced(const Piece& piece, const ValueLine& parts, const Node& old) {
    const std::size_t at = parts.nameAt;
    const std::string remove = "remove one of the two lines, or choose another name";
    if (old.isKey) {
        warning(piece, {at,
                        "the value displaces the key " + shown(old.name) + " " + onLine(old.line) +
                            " with everything below it",
                        "give the key or the value another name"});
    } else if (old.name != parts.name) {
        warning(piece, {at,
                        "the value replaces " + shown(old.name) + " " + onLine(old.line) +
                            ": case makes no difference",
                        remove});
    } else {
        warning(piece, {at, "the value replaces the one " + onLine(old.line), remove});
    }
}

void ConfigReader::noteCut(const Piece& piece, eCut cut, std::size_t size) {
    if (cut == eCut::eNul) {
        warning(piece, {size, "a NUL ends the line here: the rest of it is ignored", "remove it"},
                Finding::eKind::eTruncated);
    } else if (cut == eCut::eCarriageReturn) {
        warning(piece,
                {size, "a carriage return ends the line here: the rest of it is ignored",
                 "remove it, or make it a line end"},
                Finding::eKind::eTruncated);
    } else if (cut == eCut::eLineEnd && !m_hasCarriageReturns) {
        m_hasCarriageReturns = true;
        warning(piece, {size, "lines end in CR LF, and the next change writes LF",
                        "save the file with LF"});
    }
}

// A long line counts as an error when one of its pieces is; the pieces themselves are not reported.
void ConfigReader::noteLongLine(const Piece& piece) {
    if (piece.offset > 0 || m_longLine == piece.line) {
        return;
    }
    m_longLine = piece.line;
    m_longFinding = m_findings.size();
    const bool isCut = !piece.isLast;
    add(piece,
        {VQRegLib::kLongestPiece - (isCut ? 0 : 1),
         isCut ? "the line is too long: it is cut here, and the rest is read as a line of its own"
               : "the line is too long: with a line end it would be cut after its last byte",
         "keep lines within 2047 bytes"},
        false);
}

void ConfigReader::error(const Piece& piece, const Fault& fault) {
    if (!m_hasError) {
        m_hasError = true;
        m_readTop = modelOf(m_top);
    }
    // What is wrong with a long key line is that it is long: its "]" may stand behind the cut.
    if (piece.offset > 0 || (m_longLine == piece.line && piece.bytes.starts_with('['))) {
        m_findings[m_longFinding].isError = true;
    } else {
        add(piece, fault, true);
    }
}

void ConfigReader::warning(const Piece& piece, const Fault& fault, Finding::eKind kind) {
    if (piece.offset == 0) {
        add(piece, fault, false, kind);
    }
}

void ConfigReader::add(const Piece& piece, const Fault& fault, bool isError, Finding::eKind kind) {
    m_findings.push_back(
        {piece.line, piece.offset + fault.at + 1, isError, fault.what, fault.mend, kind});
}

void ConfigReader::lose(const Piece& piece) {
    if (m_lostLines.empty() || m_lostLines.back() != piece.line) {
        m_lostLines.push_back(piece.line);
    }
}

Key ConfigReader::takeTop() {
    return m_hasError ? std::move(m_readTop) : modelOf(m_top);
}

Key ConfigReader::modelOf(const Node& node) {
    Key key;
    key.name = node.name;
    for (const auto& [name, child] : node.children) {
        if (child.isKey) {
            key.keys.emplace_hint(key.keys.end(), name, modelOf(child));
        } else {
            key.values.emplace_hint(key.values.end(), name, child.value);
        }
    }
    return key;
}

std::string ConfigReader::nextText() const {
    std::string text;
    print(m_top, text);
    return text;
}

void ConfigReader::print(const Node& node, std::string& text) {
    for (const auto& entry : node.children) {
        if (!entry.second.isKey) {
            text += entry.second.text + "\n";
        }
    }
    for (const auto& entry : node.children) {
        if (entry.second.isKey) {
            if (entry.second.name != kTreeRootName) {
                text += entry.second.text + "\n";
            }
            print(entry.second, text);
        }
    }
}

}  // namespace vqreg
