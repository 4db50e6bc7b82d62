#include "tools/vqreg/store/KeyReader.h"

#include <utility>

#include "tools/vqreg/base/FileText.h"
#include "tools/vqreg/terminal/Listing.h"
#include "tools/vqreg/text/ConfigText.h"

namespace vqreg {

std::optional<Key> KeyReader::read(bool isSlowPoll) {
    const std::optional<FileIdentity> identity = FileIdentity::of(m_file);
    if (isSlowPoll && identity && identity == m_identity) {
        return std::nullopt;
    }
    m_identity = identity;
    std::optional<std::string> text = textOfFile(m_file);
    if (!text && !(isSlowPoll && m_wasMissing)) {
        m_wasMissing = true;
        return std::nullopt;
    }
    m_wasMissing = !text;
    if (!text) {
        text = std::string();
    }
    if (m_text == text) {
        return std::nullopt;
    }
    m_text = std::move(text);
    const ConfigText parsed = parseConfigText(*m_text);
    if (!parsed.isReadable()) {
        printFindings(m_file, parsed.findings);
        return std::nullopt;
    }
    const Key* const key = findKey(parsed.top, m_path);
    return key ? *key : Key();
}

}  // namespace vqreg
