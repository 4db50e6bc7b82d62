// Random operations of two processes, compared with a simple model of the store.
#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string>

#include "VQRegLib.h"
#include "support/Agent.h"
#include "support/ModelStore.h"
#include "support/TempStore.h"

using namespace VQRegLib;
using vqtest::Agent;
using vqtest::ModelStore;
using vqtest::TempStore;

namespace {

constexpr int kSteps = 2000;

class RandomOperations : public testing::TestWithParam<unsigned> {
protected:
    void SetUp() override {
        ASSERT_EQ(agents[0].open(store.path()), REGLIB_OK);
        ASSERT_EQ(agents[1].open(store.path()), REGLIB_OK);
    }

    unsigned below(unsigned limit) {
        return std::uniform_int_distribution<unsigned>(0, limit - 1)(m_random);
    }

    std::string anyCase(std::string text) {
        for (char& byte : text) {
            if (byte >= 'a' && byte <= 'z' && below(4) == 0) {
                byte = static_cast<char>(byte - 'a' + 'A');
            }
        }
        return text;
    }

    std::string keyName() {
        static const std::array<const char*, 5> names = {"net", "disk", "a b", "x",
                                                         "long key name"};
        return anyCase(names[below(names.size())]);
    }

    std::string path() {
        std::string text = keyName();
        for (unsigned depth = below(3); depth > 0; --depth) {
            text += (below(2) == 0 ? "/" : "\\") + keyName();
        }
        return below(8) == 0 ? "." : text;
    }

    // Mostly the name of a value; that of a key only where there is one, so that no value takes it.
    std::string valueName(const std::string& keyPath) {
        static const std::array<const char*, 6> names = {"port", "mode", "=",
                                                         "v",    "va",   "with blank"};
        const std::string key = keyName();
        const std::string full = keyPath == "." ? key : keyPath + "/" + key;
        const bool takeKey = below(6) == 0 && model.open(full) == REGLIB_OK;
        return takeKey ? key : anyCase(names[below(names.size())]);
    }

    std::string data(unsigned limit) {
        std::string text(below(limit), ' ');
        for (char& byte : text) {
            byte = static_cast<char>(' ' + below(95));
        }
        return text;
    }

    Agent& agent() { return agents[m_active]; }

    void step();
    void change(const std::string& at);
    void read(const std::string& at);
    void takeTurns();

    TempStore store;
    ModelStore model;
    std::array<Agent, 2> agents = {Agent(VQREG_AGENT_PATH), Agent(VQREG_AGENT_PATH)};

private:
    std::mt19937 m_random{GetParam()};
    std::size_t m_active = 0;
    bool m_hasDeleted = false;
    std::uint32_t m_turns = 0;
};

// The other process goes on. It forgets nothing that has been deleted, so it starts anew then; and
// it writes, so that this one has to read the file before it goes on some day.
void RandomOperations::takeTurns() {
    m_active = 1 - m_active;
    if (m_hasDeleted) {
        ASSERT_EQ(agent().open(store.path()), REGLIB_OK);
        m_hasDeleted = false;
    }
    model.reread();
    ++m_turns;
    ASSERT_EQ(agent().set(".", "Turn", m_turns), model.set(".", "Turn", m_turns));
}

void RandomOperations::change(const std::string& at) {
    const std::string name = valueName(at);
    switch (below(7)) {
        case 0:
        case 1: {
            const unsigned number = below(4);
            EXPECT_EQ(agent().set(at, name, number), model.set(at, name, number));
            break;
        }
        case 2: {
            const std::string text = data(40);
            EXPECT_EQ(agent().set(at, name, text), model.set(at, name, text));
            break;
        }
        case 3: {
            const std::string bytes = data(20);
            EXPECT_EQ(agent().setBinary(at, name, bytes), model.setBinary(at, name, bytes));
            break;
        }
        case 4: {
            const int code = model.deleteValue(at, name);
            EXPECT_EQ(agent().deleteValue(at, name), code);
            m_hasDeleted = m_hasDeleted || code == REGLIB_OK;
            break;
        }
        case 5:
            if (at != ".") {
                const int code = model.deleteKey(at);
                EXPECT_EQ(agent().deleteKey(at), code);
                m_hasDeleted = m_hasDeleted || code == REGLIB_OK;
            }
            break;
        default:
            if (at != ".") {
                EXPECT_EQ(agent().create(at), model.create(at));
            }
    }
    EXPECT_EQ(store.read(), model.text());
}

void RandomOperations::read(const std::string& at) {
    const std::string name = valueName(at);
    switch (below(4)) {
        case 0:
            EXPECT_EQ(agent().get(at, name), model.get(at, name));
            break;
        case 1:
            EXPECT_EQ(agent().enumKeys(at), model.enumKeys(at));
            break;
        case 2:
            EXPECT_EQ(agent().enumValues(at), model.enumValues(at));
            break;
        default:
            EXPECT_EQ(agent().openKey(at), model.open(at));
    }
}

void RandomOperations::step() {
    if (below(15) == 0) {
        takeTurns();
    }
    const std::string at = path();
    SCOPED_TRACE("at " + at);
    if (below(3) == 0) {
        read(at);
    } else {
        change(at);
    }
}

}  // namespace

TEST_P(RandomOperations, AgreeWithTheModel) {
    for (int i = 0; i < kSteps && !HasFailure(); ++i) {
        SCOPED_TRACE("step " + std::to_string(i));
        step();
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomOperations, testing::Values(1u, 2u, 3u));
