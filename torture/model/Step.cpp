#include "model/Step.h"

#include <ostream>

namespace vqtorture::model {

namespace {

constexpr std::array<const char*, kVerbs> kVerbNames = {
    "open session", "close session", "create key", "delete key",  "set string",   "set dword",
    "set binary",   "delete value",  "query type", "query",       "enum keys",    "enum values",
    "look at",      "drop",          "parse",      "create vect", "destroy vect", "dump",
    "begin",        "end",           "reload",     "crowd",       "begin scope",  "end scope",
    "drop scope",   "register",      "unregister", "notify",      "watch",        "write file",
    "append to",    "edit",          "cut",        "remove file", "write backup", "remove backup",
    "hide files",   "show files"};

// Texts of a page would hide what matters.
constexpr std::size_t kShown = 300;

std::string quoted(const std::string& text) {
    std::string shown = "\"";
    for (const char byte : text.substr(0, kShown)) {
        const auto value = static_cast<unsigned char>(byte);
        if (value < 0x20 || value == 0x7F || byte == '\\') {
            shown += "\\x" + vqtest::toHex({&byte, 1});
        } else {
            shown += byte;
        }
    }
    shown += text.size() > kShown ? "\"..." : "\"";
    return shown;
}

}  // namespace

bool concernsFiles(const Step& step) {
    return step.verb >= Verb::eWriteFile;
}

std::string edited(const std::string& text, const Step& step) {
    std::size_t at = 0;
    for (int i = 0; i < step.number && text.find('\n', at) != std::string::npos; ++i) {
        at = text.find('\n', at) + 1;
    }
    std::string result = text;
    if (!step.data.empty()) {
        return result.insert(at, step.data + "\n");
    }
    const std::size_t end = text.find('\n', at);
    return result.erase(at, end == std::string::npos ? end : end + 1 - at);
}

bool isForbiddenInUpdate(const Step& step) {
    switch (step.verb) {
        case Verb::eOpenSession:
        case Verb::eCloseSession:
        case Verb::eRegister:
        case Verb::eUnregister:
        case Verb::eWatch:
            return true;
        default:
            return false;
    }
}

bool onlyReads(const Step& step) {
    switch (step.verb) {
        case Verb::eCreateKey:
        case Verb::eCreateVect:
            return !step.flag;
        case Verb::eCloseSession:
        case Verb::eDrop:
        case Verb::eDestroyVect:
        case Verb::eEnd:
        case Verb::eEndScope:
        case Verb::eDropScope:
        case Verb::eRegister:
        case Verb::eUnregister:
        case Verb::eNotify:
        case Verb::eWatch:
        case Verb::eQueryType:
        case Verb::eQuery:
        case Verb::eEnumKeys:
        case Verb::eEnumValues:
        case Verb::eLook:
        case Verb::eParse:
        case Verb::eDump:
            return true;
        default:
            return false;
    }
}

vqtest::Fields toFields(const Step& step) {
    return {std::to_string(static_cast<int>(step.verb)),
            std::to_string(step.process),
            std::to_string(step.session),
            std::to_string(step.key),
            std::to_string(step.parent),
            std::to_string(step.number),
            std::to_string(static_cast<int>(step.flag)),
            vqtest::toHex(step.text),
            vqtest::toHex(step.data)};
}

Step fromFields(const vqtest::Fields& fields) {
    Step step;
    step.verb = static_cast<Verb>(std::stoi(fields.at(0)));
    step.process = std::stoi(fields.at(1));
    step.session = std::stoi(fields.at(2));
    step.key = std::stoi(fields.at(3));
    step.parent = std::stoi(fields.at(4));
    step.number = std::stoi(fields.at(5));
    step.flag = std::stoi(fields.at(6)) != 0;
    step.text = vqtest::fromHex(fields.at(7));
    step.data = vqtest::fromHex(fields.at(8));
    return step;
}

std::ostream& operator<<(std::ostream& out, const Step& step) {
    const auto verb = static_cast<std::size_t>(step.verb);
    out << "\n  ";
    if (concernsFiles(step)) {
        return out << kVerbNames.at(verb) << " "
                   << kFileNames.at(static_cast<std::size_t>(step.key)) << " " << step.number << " "
                   << quoted(step.data);
    }
    return out << "process " << step.process << " session " << step.session << " "
               << kVerbNames.at(verb) << " key " << step.key << " parent " << step.parent
               << " number " << step.number << (step.flag ? " +" : " -") << " " << quoted(step.text)
               << " " << quoted(step.data);
}

}  // namespace vqtorture::model
