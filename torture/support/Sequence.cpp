#include "support/Sequence.h"

#include "support/Ground.h"

namespace vqtorture {

using namespace VQRegLib;

namespace {

// Those that need nothing but an open session.
const std::vector<Operation>& freeOperations() {
    static const std::vector<Operation> all = [] {
        std::vector<Operation> found;
        for (const auto& list : {changingOperations(), lookingOperations()}) {
            for (const Operation& each : list) {
                const bool isOther = each.name == "a closing" || each.name == "a dump";
                if (each.use == SessionUse::eUses && !each.prepare && !isOther) {
                    found.push_back(each);
                }
            }
        }
        return found;
    }();
    return all;
}

bool isPublished(int code) {
    constexpr int kCodes[] = {REGLIB_OK,
                              REGLIB_E_FAIL,
                              REGLIB_E_FILE_OPEN,
                              REGLIB_E_NOT_FOUND,
                              REGLIB_E_KEY_NOT_FOUND,
                              REGLIB_E_NO_MORE_ITEMS,
                              REGLIB_E_BUFFER_TOO_SMALL};
    for (const int each : kCodes) {
        if (code == each) {
            return true;
        }
    }
    return false;
}

}  // namespace

Sequence::Sequence(const std::string& below, vqtest::Agent& witness)
    : m_operations(freeOperations()),
      m_witness(witness),
      m_store(below),
      m_descriptors(openDescriptors()) {
    m_store.write(m_operations.front().before);
    require(m_witness.open(m_store.path()) == REGLIB_OK, "the witness cannot open the store");
    m_scene.emplace(m_store.path());
    m_scene->open();
}

Sequence::~Sequence() {
    try {
        m_scene.reset();
        m_witness.close();
    } catch (const std::exception&) {
        // It has ended, of which somebody else has told.
    }
}

void Sequence::step(Run& run, const std::function<void()>& before,
                    const std::function<void()>& after) {
    if (!m_scene->session || !m_scene->hasStore()) {
        m_scene->session.reset();
        m_scene->open();
    }
    if (m_scene->hasStore()) {
        const Operation& operation = m_operations[run.below(m_operations.size())];
        try {
            act(operation, before, after);
        } catch (const std::exception& violation) {
            throw Violation(operation.name + ": " + violation.what());
        }
        run.add("operations");
    }
}

void Sequence::act(const Operation& operation, const std::function<void()>& before,
                   const std::function<void()>& after) {
    const std::function<void()> nothing = [] {};
    int code = REGLIB_OK;
    bool hasThrown = false;
    (before ? before : nothing)();
    try {
        code = operation.act(*m_scene);
    } catch (const VQException&) {
        hasThrown = true;
    }
    (after ? after : nothing)();
    require(operation.mayThrow || !hasThrown, "it throws VQException");
    require(isPublished(code), "the result is " + std::to_string(code));
    if (hasThrown) {
        m_scene->session.reset();  // nobody else can enter it
    }
    for (CRegKey* const key : m_scene->keys) {
        delete key;
    }
    m_scene->keys.clear();
}

void Sequence::judge(bool mayLeaveFiles) {
    comeOn(*m_scene);
    require(m_witness.get(".", "A") == vqtest::Value::ofDword(0xA), "the witness misses a change");
    require(m_witness.set(".", "B", 0xB) == REGLIB_OK, "the witness cannot change anything");
    CRegLib::eDataType type = CRegLib::eNone;
    const int code = m_scene->session->VQRegQueryValueType(m_scene->rootKey(), "B", type);
    require(code == REGLIB_OK, "the witness's change is missed");
    const std::string text = m_store.read();
    require(text.find("\"A\"=dword:0000000A\n") != std::string::npos &&
                text.find("\"B\"=dword:0000000B\n") != std::string::npos,
            "a change is not in the file");
    m_scene.emplace(m_store.path());
    m_scene->open();
    require(m_scene->hasStore(), "the store cannot be opened any more");
    m_scene.reset();
    require(openDescriptors() == m_descriptors, "a descriptor is left open");
    require(mayLeaveFiles || m_store.files().size() == 2, "a temporary file is left");
}

}  // namespace vqtorture
