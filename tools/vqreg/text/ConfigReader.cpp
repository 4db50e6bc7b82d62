#include "tools/vqreg/text/ConfigReader.h"

#include <utility>

#include "RegLib/text/LineFormat.h"
#include "tools/vqreg/text/Path.h"
#include "tools/vqreg/text/Shown.h"

namespace vqreg {

namespace {

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
    m_findings.sort();
}

void ConfigReader::readPiece(const Piece& piece) {
    const bool isWholeLine = piece.offset == 0 && piece.isLast;
    if (!isWholeLine ||
        (piece.bytes.size() == VQRegLib::kLongestPiece && piece.bytes.back() != '\n')) {
        m_findings.noteLongLine(piece);
    }
    eCut cut = eCut::eNone;
    const std::string_view line = cutPiece(piece.bytes, cut);
    m_findings.noteCut(piece, cut, line.size());
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
        m_findings.lose(piece);
        error(piece, {line.size(), "the key line has no \"]\"", "write [PATH]"});
        return;
    }
    const std::size_t close = path.size() + 1;
    const std::vector<std::string_view> names = namesOfKeyLine(path);
    if (names.empty()) {
        m_state = eState::eAfterNoKey;
        m_findings.warning(piece, {0, "\"[]\" names no key", "remove the line"});
        return;
    }
    if (close + 1 < line.size()) {
        m_findings.warning(
            piece,
            {close + 1, "text stands after the \"]\" and would be written again", "remove it"});
    }
    if (path.ends_with('/') && !names.back().empty()) {
        m_findings.warning(piece,
                           {close - 1, "the \"/\" before the \"]\" adds no key", "remove it"});
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
            m_findings.warning(piece,
                               {at, "a key has an empty name", "remove a \"/\", or name the key"});
        } else if (name == kTreeRootName) {
            m_findings.warning(
                piece, {at, "a key named <root> gets no line when the file is written", rename});
        } else if (const std::size_t slash = name.find('\\'); slash != std::string_view::npos) {
            m_findings.warning(
                piece, {at + slash, "no program can open a key with \"\\\" in its name", rename});
        }
        at += name.size() + 1;
    }
}

void ConfigReader::walkPath(const Piece& piece, std::string_view line,
                            const std::vector<std::string_view>& names) {
    LineNode* node = &m_top;
    std::size_t at = 1;
    std::vector<std::string> missing;
    for (std::size_t i = 0; i < names.size(); at += names[i].size() + 1, ++i) {
        const auto [entry, isNew] = node->children.try_emplace(folded(std::string(names[i])));
        LineNode& child = entry->second;
        if (isNew) {
            child.name = names[i];
            child.line = line;
            child.number = piece.line;
            if (i + 1 < names.size() && !names[i].empty()) {
                missing.push_back(bracketed(names, i + 1));
            }
        } else if (!child.isKey && !m_isInvisible) {
            m_isInvisible = true;
            m_findings.warning(piece,
                               {at,
                                shown(child.name) + " is a value " + onLine(child.number) +
                                    ": nothing finds what is below it, and it is not written again",
                                "give the key or the value another name"});
        } else if (child.name != names[i] && !m_isInvisible) {
            m_findings.warning(piece, {at,
                                       shown(names[i]) + " is the key " + shown(child.name) + " " +
                                           onLine(child.number) + ": case makes no difference",
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
        m_findings.warning(piece,
                           {0,
                            list + (isOne ? " has no line" : " have no lines") +
                                " before this one, which will be written for " +
                                (isOne ? "it" : "them") + " too: values would move",
                            "write " + list + " before this line"},
                           Finding::eKind::eMissingParent);
    }
}

void ConfigReader::readValueLineOf(const Piece& piece, std::string_view line) {
    ValueLine parts;
    if (const auto fault = readValueLine(line, parts)) {
        if (!line.empty()) {
            m_findings.lose(piece);
        }
        error(piece, *fault);
        return;
    }
    if (m_state != eState::eInKey) {
        m_findings.lose(piece);
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
        m_findings.warning(piece, oddity);
    }
}

void ConfigReader::storeValue(const Piece& piece, std::string_view line, const ValueLine& parts) {
    const auto [entry, isNew] = m_current->children.try_emplace(folded(std::string(parts.name)));
    LineNode& node = entry->second;
    if (!isNew) {
        if (!m_isInvisible) {
            judgeReplaced(piece, parts, node);
        }
        node = LineNode();
    }
    node.isKey = false;
    node.name = parts.name;
    node.line = line;
    node.number = piece.line;
    node.value = valueOf(parts);
}

void ConfigReader::judgeReplaced(const Piece& piece, const ValueLine& parts, const LineNode& old) {
    const std::size_t at = parts.nameAt;
    const std::string remove = "remove one of the two lines, or choose another name";
    if (old.isKey) {
        m_findings.warning(piece, {at,
                                   "the value displaces the key " + shown(old.name) + " " +
                                       onLine(old.number) + " with everything below it",
                                   "give the key or the value another name"});
    } else if (old.name != parts.name) {
        m_findings.warning(piece, {at,
                                   "the value replaces " + shown(old.name) + " " +
                                       onLine(old.number) + ": case makes no difference",
                                   remove});
    } else {
        m_findings.warning(piece, {at, "the value replaces the one " + onLine(old.number), remove});
    }
}

void ConfigReader::error(const Piece& piece, const Fault& fault) {
    if (!m_hasError) {
        m_hasError = true;
        m_readTop = m_top.model();
    }
    m_findings.error(piece, fault);
}

Key ConfigReader::takeTop() {
    return m_hasError ? std::move(m_readTop) : m_top.model();
}

}  // namespace vqreg
