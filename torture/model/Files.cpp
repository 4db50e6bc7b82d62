#include "model/Files.h"

#include "model/Lines.h"

namespace vqtorture::model {

namespace {

bool isText(const std::optional<std::string>& text) {
    return text && !text->empty();
}

}  // namespace

// Every line that is not a key line is a value line, also a malformed one.
bool hasValue(const std::string& text) {
    for (const std::string& line : linesOf(text)) {
        if (!isKeyLine(line)) {
            return true;
        }
    }
    return false;
}

bool File::isLost() const {
    return !isText(text) && isText(backup);
}

// The old text becomes the backup. A backup that holds a text is not given up for a file that is missing
// or empty, nor for what the opening of stores and keys has made of such a file.
void File::replace(const std::string& newText, bool foundLost) {
    const bool isNothing = foundLost && text && !hasValue(*text);
    const bool isBackupKept = isLost() || (isNothing && backup && hasValue(*backup));
    if (!isBackupKept) {
        backup = text;
    }
    text = newText;
    ++stamp;
}

File& Files::of(const std::string& name) {
    return m_files.at(name.find("b.cfg") == std::string::npos ? 0 : 1);
}

void Files::take(const Step& step) {
    File& file = m_files.at(static_cast<std::size_t>(step.key));
    switch (step.verb) {
        case Verb::eHideDirectory:
            m_isHidden = true;
            break;
        case Verb::eShowDirectory:
            m_isHidden = false;
            break;
        case Verb::eWriteFile:
            file.text = step.data;
            break;
        case Verb::eAppendFile:
            file.text = file.text.value_or("") + step.data;
            break;
        case Verb::eEditFile:
            file.text = edited(file.text.value_or(""), step);
            break;
        case Verb::eCutFile:
            if (file.text) {
                file.text->resize(file.text->size() * static_cast<std::size_t>(step.number) / 100);
            }
            break;
        case Verb::eRemoveFile:
            file.text.reset();
            break;
        case Verb::eWriteBackup:
            file.backup = step.data;
            break;
        case Verb::eRemoveBackup:
            file.backup.reset();
            break;
        default:
            break;
    }
}

std::map<std::string, std::string> Files::content() const {
    std::map<std::string, std::string> content;
    for (std::size_t i = 0; i < m_files.size(); ++i) {
        if (m_files[i].text) {
            content[kFileNames[i]] = *m_files[i].text;
        }
        if (m_files[i].backup) {
            content[kFileNames[i] + std::string(".bak")] = *m_files[i].backup;
        }
    }
    return content;
}

}  // namespace vqtorture::model
