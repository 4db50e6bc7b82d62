#include "tools/vqreg/store/StoreFollower.h"

#include <cerrno>

#include "tools/vqreg/base/FileText.h"
#include "tools/vqreg/store/PlaceFault.h"

namespace vqreg {

// What is there and cannot be read is as it was: what it says is not known. The library follows no link
// there either.
bool StoreFollower::isReadable(bool isThere) {
    m_trouble.clear();
    const auto fault = isThere ? fileFault(m_file) : std::nullopt;
    if (!fault) {
        return true;
    }
    const std::string prefix = m_file + ": ";
    m_trouble = fault->what();
    m_trouble.erase(0, m_trouble.starts_with(prefix) ? prefix.size() : 0);
    m_trouble.insert(0, m_trouble.starts_with("is ") ? "the file " : "");
    return false;
}

std::optional<ConfigText> StoreFollower::read(bool isSlowPoll) {
    const std::optional<FileIdentity> identity = FileIdentity::of(m_file);
    const bool isThere = identity || errno != ENOENT;
    if (isSlowPoll && identity && identity == m_identity) {
        return std::nullopt;
    }
    m_identity.reset();  // one that could not be read is looked at again
    if (!isReadable(isThere)) {
        return std::nullopt;
    }
    std::optional<std::string> text = textOfFile(m_file, eLinks::eRefuse);
    if (!text && !(isSlowPoll && m_wasMissing)) {
        m_wasMissing = true;
        return std::nullopt;
    }
    m_wasMissing = !text;
    if (text) {
        m_identity = identity;
    } else {
        text = std::string();
    }
    if (m_text == text) {
        return std::nullopt;
    }
    m_text = std::move(text);
    return parseConfigText(*m_text);
}

std::string StoreFollower::trouble() const {
    if (!m_trouble.empty() || !isLost()) {
        return m_trouble;
    }
    return m_wasMissing ? "the file is missing" : "the file is empty";
}

}  // namespace vqreg
