#include "tools/vqreg/store/StoreFollower.h"

#include "tools/vqreg/base/FileText.h"

namespace vqreg {

std::optional<ConfigText> StoreFollower::read(bool isSlowPoll) {
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
    return parseConfigText(*m_text);
}

}  // namespace vqreg
