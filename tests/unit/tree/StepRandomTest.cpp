// A file that is compared with what was read before makes the same of a tree as one that is read
// anew: random texts, and chains of changes to them, against each other and against a plain model.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

#include "RegLib/text/LineFormat.h"
#include "RegLib/tree/Merge.h"
#include "unit/tree/PlainTree.h"
#include "unit/tree/TextChanges.h"
#include "unit/tree/TextOf.h"

using namespace VQRegLib;
using namespace vqtest;

namespace {

#if defined(__SANITIZE_THREAD__)
constexpr unsigned kRounds = 100;  // each takes twenty times as long, and there is one thread
#else
constexpr unsigned kRounds = 400;
#endif

// VQREG_TREE_ROUNDS=100000 looks longer.
unsigned rounds(unsigned usual) {
    const char* const given = std::getenv("VQREG_TREE_ROUNDS");
    return given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : usual;
}

CRegLib::eDataType typeOf(const std::string& line) {
    CValueLine parts;
    return splitValueLine(line, parts) == eLineFault::eNone ? parts.type : CRegLib::eString;
}

// The same store three times: one tree is compared with each new text, one merges it whole, and the
// plain one says what both should hold.
class Trio {
public:
    Trio(TextChanges& changes, bool isLarge) : m_changes(changes) {
        m_file = "[Top]\n";
        for (std::size_t left = changes.isOdd() ? 5 : 0; left > 0; --left) {
            m_file = changes.changed(m_file);
        }
        for (std::size_t number = 0; isLarge && number < 200; ++number) {
            const std::string name = "[Top/k" + std::to_string(number * 7 % 200) + "]\n";
            m_file += name + "\"v\"=string:" + std::string(changes.below(1900), 'x') + "\n";
        }
    }

    void run(int steps) {
        read();
        for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
            for (std::size_t left = m_changes.oneIn(3) ? m_changes.below(4) : 0; left > 0; --left) {
                changeHere();
            }
            if (m_changes.oneIn(m_isReadable ? 4 : 2)) {
                write();
            }
            if (m_changes.oneIn(8)) {
                forgetGone();
            }
            m_file = m_changes.changed(m_file);
            if (m_changes.oneIn(10)) {
                dropOwnChanges();
            }
            read();
        }
        write();
    }

    int compared() const { return m_compared; }

private:
    struct Handle {
        CKeyOrValue* stepped;
        CKeyOrValue* whole;
        PlainNode* plain;
    };

    void read();
    void dropOwnChanges();
    void write();
    void expectSame();
    void changeHere();
    void changeAt(const Handle& at);
    void addValue(const Handle& at, const std::string& name);
    void addKey(const Handle& at, const std::string& name);
    void setValue(const Handle& at);
    void takeHandle(const Handle& at);
    void forgetGone();
    Handle find(PlainNode& plain);
    static CKeyOrValue* find(const CTree& tree, const PlainNode& plain);

    TextChanges& m_changes;
    std::string m_file;
    CTree m_stepped;
    CTree m_whole;
    PlainTree m_plain;
    std::vector<Handle> m_handles;
    bool m_isReadable = true;
    int m_compared = 0;
};

void Trio::read() {
    TextOf forStep(m_file);
    TextOf forWhole(m_file);
    std::string trusted = m_file;
    if (m_changes.oneIn(20)) {
        const std::size_t failAt = m_changes.below(m_file.size() + 1);
        forStep.failAt(failAt);
        forWhole.failAt(failAt);
        trusted = m_file.substr(0, m_file.substr(0, failAt).rfind('\n') + 1);
    }
    if (m_changes.oneIn(12)) {
        forWhole.tellSize(m_changes.below(m_file.size() + 1));
    }
    const CMergeResult stepped = mergeText(m_stepped, forStep);
    const CMergeResult whole = CMerge(m_whole).run(forWhole);
    const PlainOutcome plain = m_plain.merge(trusted);
    EXPECT_EQ(stepped.code, plain.code);
    EXPECT_EQ(whole.code, plain.code);
    if (plain.code == REGLIB_E_END_OF_FILE) {  // a bad line ends the reading, sooner or later
        EXPECT_EQ(stepped.readError, whole.readError);
    }
    EXPECT_EQ(stepped.isEmpty, plain.isEmpty);
    EXPECT_EQ(whole.isEmpty, plain.isEmpty);
    EXPECT_LE(stepped.hasValues, whole.hasValues);  // of old lines nothing is told
    m_isReadable = plain.code == REGLIB_E_END_OF_FILE && !forStep.wasReadWhole();
    m_compared += forStep.wasReadWhole() ? 0 : 1;
    expectSame();
}

void Trio::expectSame() {
    ASSERT_EQ(dumpOf(m_whole), m_plain.dump(m_plain.root())) << "the file:\n" << m_file;
    ASSERT_EQ(dumpOf(m_stepped), dumpOf(m_whole)) << "the file:\n" << m_file;
    ASSERT_EQ(m_stepped.displaced(), m_whole.displaced());
    for (const Handle& handle : m_handles) {
        ASSERT_EQ(handle.stepped->m_state, handle.whole->m_state);
        if (handle.whole->m_state != CKeyOrValue::eGone) {
            ASSERT_EQ(dumpOf(m_whole, *handle.whole), m_plain.dump(*handle.plain));
            ASSERT_EQ(dumpOf(m_stepped, *handle.stepped), m_plain.dump(*handle.plain));
        }
    }
}

// Before a reading: what only this process had goes.
void Trio::dropOwnChanges() {
    CTree fresh;
    PlainTree plainFresh;
    TextOf text(m_file);
    mergeText(fresh, text);
    plainFresh.merge(m_file);
    m_stepped.reduceTo(fresh);
    m_whole.reduceTo(fresh);
    m_plain.reduceTo(plainFresh);
    expectSame();
}

void Trio::write() {
    m_file = m_plain.text();
    ASSERT_EQ(textOf(m_whole), m_file);
    ASSERT_EQ(textOf(m_stepped), m_file);
    if (!m_changes.oneIn(6)) {  // else the disk was full
        m_whole.textWasWritten();
        m_stepped.textWasWritten();
    }
    expectSame();
}

CKeyOrValue* Trio::find(const CTree& tree, const PlainNode& plain) {
    return plain.parent ? tree.findChild(*find(tree, *plain.parent), plain.name) : &tree.root();
}

Trio::Handle Trio::find(PlainNode& plain) {
    return {find(m_stepped, plain), find(m_whole, plain), &plain};
}

void Trio::changeHere() {
    std::erase_if(m_handles,
                  [](const Handle& handle) { return handle.whole->m_state == CKeyOrValue::eGone; });
    if (!m_handles.empty() && m_changes.oneIn(3)) {
        const Handle handle = m_handles[m_changes.below(m_handles.size())];
        changeAt(handle);
        return;
    }
    const std::vector<PlainNode*> all = m_plain.reachable();
    changeAt(find(*all[m_changes.below(all.size())]));
}

void Trio::changeAt(const Handle& at) {
    const bool isTop = at.plain == &m_plain.root();
    if (!isTop && m_changes.oneIn(6)) {
        m_stepped.remove(*at.stepped);
        m_whole.remove(*at.whole);
        m_plain.remove(*at.plain);
        return;
    }
    if (!at.plain->isKey) {
        setValue(at);
        return;
    }
    const std::string name = m_changes.name(true);
    if (!isTop && m_changes.oneIn(4)) {
        takeHandle(at);
    } else if (!m_plain.find(*at.plain, name) &&
               (m_changes.oneIn(2) || (isTop && !m_changes.isOdd()))) {
        addKey(at, name);
    } else if (!m_plain.find(*at.plain, name)) {
        addValue(at, name);
    }
}

void Trio::takeHandle(const Handle& at) {
    at.stepped->m_ulKeyHandleID = at.whole->m_ulKeyHandleID = 1;
    m_handles.push_back(at);
}

void Trio::addKey(const Handle& at, const std::string& name) {
    m_stepped.addKey(*at.stepped, name);
    m_whole.addKey(*at.whole, name);
    m_plain.addKey(*at.plain, name);
}

void Trio::addValue(const Handle& at, const std::string& name) {
    const std::string line = m_changes.valueLine(name);
    m_stepped.addValue(*at.stepped, name, typeOf(line), line);
    m_whole.addValue(*at.whole, name, typeOf(line), line);
    m_plain.addValue(*at.plain, name, typeOf(line), line);
}

void Trio::setValue(const Handle& at) {
    std::string name = at.plain->name;
    if (m_changes.isOdd() && m_changes.oneIn(4)) {
        name = inLowerCase(name);
    }
    const std::string line =
        m_changes.valueLine(name) + (m_changes.isOdd() && m_changes.oneIn(9) ? "\nx" : "");
    m_stepped.setValue(*at.stepped, typeOf(line), line);
    m_whole.setValue(*at.whole, typeOf(line), line);
    at.plain->line = line;
    at.plain->type = typeOf(line);
}

// As when all handles have been given back.
void Trio::forgetGone() {
    std::erase_if(m_handles,
                  [](const Handle& handle) { return handle.whole->m_state == CKeyOrValue::eGone; });
    m_stepped.sweep();
    m_whole.sweep();
}

void runRounds(unsigned firstSeed, unsigned count, bool isLarge, int steps) {
    int compared = 0;
    for (unsigned seed = firstSeed; seed < firstSeed + count; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        TextChanges changes(seed);
        Trio trio(changes, isLarge);
        trio.run(steps);
        compared += trio.compared();
        if (testing::Test::HasFailure()) {
            return;
        }
    }
    // Most changes are such that comparing is enough; a test without that would say nothing.
    EXPECT_GT(compared, static_cast<int>(count) * steps / 8);
}

}  // namespace

TEST(StepRandom, MakesOfSmallTextsWhatAWholeMergeMakes) {
    runRounds(1, rounds(kRounds), false, 20);
}

TEST(StepRandom, MakesOfTextsOfSeveralBlocksWhatAWholeMergeMakes) {
    runRounds(1000000, rounds(kRounds) / 20, true, 12);
}
