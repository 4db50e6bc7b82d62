// A tree, and short ways to fill it.
#ifndef VQTEST_TREE_TREE_FIXTURE_H
#define VQTEST_TREE_TREE_FIXTURE_H

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "RegLib/text/LineFormat.h"
#include "RegLib/tree/Merge.h"
#include "RegLib/tree/Tree.h"
#include "unit/tree/PlainTree.h"
#include "unit/tree/TextOf.h"

namespace vqtest {

class TreeFixture : public testing::Test {
protected:
    using Node = VQRegLib::CKeyOrValue;

    Node& key(std::string_view name) { return key(tree.root(), name); }
    Node& key(Node& parent, std::string_view name) { return tree.addKey(parent, name); }
    Node& value(Node& parent, std::string_view name, std::string_view text) {
        return tree.addValue(parent, name, VQRegLib::CRegLib::eString,
                             VQRegLib::composeStringLine(name, text));
    }
    void set(Node& value, std::string_view name, std::string_view text) {
        tree.setValue(value, VQRegLib::CRegLib::eString, VQRegLib::composeStringLine(name, text));
    }
    Node* find(const Node& parent, std::string_view name) const {
        Node* const found = tree.findChild(parent, name);
        EXPECT_EQ(tree.findNamed(parent, name), found) << name;
        return found;
    }

    /// As "a|b|", in order.
    std::string names(const Node& of, bool isKey) const {
        std::string all;
        for (int index = 0; Node* const child = tree.childOfKind(of, isKey, index); ++index) {
            all.append(tree.nameOf(*child)).append("|");
        }
        return all;
    }

    VQRegLib::CMergeResult merge(const std::string& text) {
        TextOf source(text);
        return mergeText(tree, source);
    }
    /// Hands the text on as a writer does.
    std::string write() {
        const std::string text = textOf(tree);
        tree.textWasWritten();
        return text;
    }
    /// As if a handle had been issued.
    static Node& withHandle(Node& key) {
        key.m_ulKeyHandleID = 1;
        return key;
    }

    VQRegLib::CTree tree;
};

}  // namespace vqtest

#endif  // VQTEST_TREE_TREE_FIXTURE_H
