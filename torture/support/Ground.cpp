#include "support/Ground.h"

#include <algorithm>
#include <filesystem>
#include <thread>

#include "support/Torture.h"

namespace vqtorture {

using namespace VQRegLib;

namespace {

bool isPublished(int code) {
    return code == REGLIB_OK || code == REGLIB_E_FAIL || code == REGLIB_E_FILE_OPEN;
}

std::string shortened(const std::string& text) {
    return text.size() > 300 ? text.substr(0, 300) + "..." : text;
}

const char* keyLineOf(const Operation& operation) {
    return operation.root ? "[Other/Site]\n" : "[Velquist]\n";
}

}  // namespace

Ground::Ground(const std::string& below, const Operation& operation, vqtest::Agent& witness)
    : m_operation(operation), m_witness(witness), m_store(below) {
    if (operation.use == SessionUse::eCreates) {
        return;
    }
    m_store.write(operation.before);
    if (!operation.root) {
        require(m_witness.open(path()) == REGLIB_OK, "the witness cannot open the store");
        m_isWitnessOpen = true;
        requireWitness(false);
    }
}

Ground::~Ground() {
    try {
        if (m_isWitnessOpen) {
            m_witness.close();
        }
    } catch (const std::exception&) {
        // It has ended, of which somebody else has told.
    }
}

// A text that one of the steps of the operation makes.
std::vector<std::string> Ground::writtenTexts() const {
    std::vector<std::string> texts = {m_operation.after};
    texts.insert(texts.end(), m_operation.between.begin(), m_operation.between.end());
    return texts;
}

// Or that was there before.
std::vector<std::string> Ground::passedTexts() const {
    std::vector<std::string> texts = writtenTexts();
    texts.push_back(m_operation.found);
    if (m_operation.use == SessionUse::eCreates) {
        texts.push_back("");
    }
    return texts;
}

bool Ground::isWhole(const std::string& file, const std::vector<std::string>& texts) const {
    return std::filesystem::exists(file) &&
           std::find(texts.begin(), texts.end(), vqtest::readFile(file)) != texts.end();
}

void Ground::requireText(const std::vector<std::string>& texts, const std::string& what) const {
    require(isWhole(path(), texts),
            what + ": the file holds\n" +
                (m_store.exists() ? shortened(m_store.read()) : "nothing, it is missing"));
}

void Ground::requireNoTemporaries() const {
    for (const std::string& file : m_store.files()) {
        require(file == "store.cfg" || file == "store.cfg.bak",
                "a temporary file is left: " + file);
    }
}

void Ground::requireWitness(bool changes) {
    if (!m_isWitnessOpen) {
        return;
    }
    const vqtest::Value got = m_witness.get(".", "Number");
    require(got.code == REGLIB_OK,
            "another process reads a number with " + std::to_string(got.code));
    if (changes) {
        require(m_witness.set(".", "B", kWitnesses) == REGLIB_OK,
                "another process cannot change it");
        m_hasWitnessChanged = true;
    }
}

void Ground::judge(const Outcome& outcome, bool changes) {
    require(isPublished(outcome.code), "the result is " + std::to_string(outcome.code));
    // An opening goes on with what it has in memory.
    require(outcome.code < 0 || !outcome.mustFail || m_operation.use != SessionUse::eUses,
            "it succeeds, though the disk has told otherwise");
    const bool had = m_operation.use != SessionUse::eCreates;
    const std::string backup = m_store.backupPath();
    if (had || m_store.exists() || m_store.backupExists()) {
        require(
            isWhole(path(), passedTexts()) || (!m_store.exists() && isWhole(backup, passedTexts())),
            "neither the file nor its backup holds a whole text; the file has\n" +
                (m_store.exists() ? shortened(m_store.read()) : "gone"));
    }
    if (!outcome.mayBeOld) {
        if (outcome.code >= 0 && (had || m_operation.after != m_operation.found)) {
            requireText({m_operation.after}, "after success");
        } else if (outcome.isOut) {
            requireText(writtenTexts(), "after a wait that failed");
        } else if (outcome.hasKept && had) {
            requireText({m_operation.found}, "after a failure");
        }
    }
    if (!outcome.mayLeaveFiles) {
        requireNoTemporaries();
    }
    requireWitness(changes);
}

std::string Ground::withAdded(const std::string& text, bool isEnd) const {
    const char* const keyLine = keyLineOf(m_operation);
    std::string added = text;
    if (m_hasWitnessChanged) {
        added = withNumber(added, "B", kWitnesses, keyLine);
    }
    return isEnd ? withNumber(added, "A", kOwn, keyLine) : added;
}

// After a failure the change may be lost, unless it was kept; an opening that has failed is made up for
// by the next one.
void Ground::judgeEnd(const Outcome& outcome) {
    std::vector<std::string> texts = {withAdded(m_operation.after, true)};
    const bool isKept = outcome.code >= 0 || (outcome.hasKept && !m_hasWitnessChanged);
    const bool isWrittenAgain = m_operation.deletes && m_hasWitnessChanged;
    if (m_operation.use == SessionUse::eUses && (!isKept || outcome.mayBeOld || isWrittenAgain)) {
        for (const std::string& text : passedTexts()) {
            texts.push_back(withAdded(text, true));
        }
        if (!m_operation.merged.empty() && (m_hasWitnessChanged || outcome.mayBeOld)) {
            texts.push_back(withAdded(m_operation.merged, true));
        }
    }
    requireText(texts, "after the next change");
    requireWitness(false);
}

void Ground::judgeDeath() {
    const bool had = m_operation.use != SessionUse::eCreates;
    if (had) {
        require(isWhole(path(), passedTexts()) ||
                    (!m_store.exists() && isWhole(m_store.backupPath(), passedTexts())),
                "neither the file nor its backup holds a whole text");
    }
    if (!m_isWitnessOpen) {
        require(m_witness.open(path(), m_operation.root ? m_operation.root : "-") == REGLIB_OK,
                "the witness cannot open the store");
        m_isWitnessOpen = true;
    }
    require(m_witness.set(".", "B", kWitnesses) == REGLIB_OK, "another process cannot change it");
    m_hasWitnessChanged = true;
    std::vector<std::string> texts;
    for (const std::string& text : passedTexts()) {
        texts.push_back(withAdded(text, false));
    }
    if (m_operation.root) {
        texts = {withAdded(m_operation.after, false)};
    }
    requireText(texts, "after the next change");
}

void Ground::dismissWitness() {
    if (m_isWitnessOpen) {
        m_witness.close();
        m_isWitnessOpen = false;
    }
}

void comeOn(Scene& scene) {
    if (!scene.session || !scene.hasStore()) {
        scene.session.reset();
        scene.open();
    }
    require(scene.hasStore(), "the store cannot be opened when everything works");
    int code = REGLIB_E_FAIL;
    std::thread([&] {
        CRegLib::eDataType type = CRegLib::eNone;
        code = scene.session->VQRegQueryValueType(scene.rootKey(), "Nothing", type);
    }).join();
    require(code == REGLIB_E_NOT_FOUND, "another thread reads " + std::to_string(code));
    code = scene.session->VQRegSetValue(scene.rootKey(), "A", static_cast<unsigned long>(kOwn));
    require(code == REGLIB_OK, "the next change ends with " + std::to_string(code));
}

std::size_t openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

}  // namespace vqtorture
