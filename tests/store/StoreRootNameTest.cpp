// Root keys and files that no store can have, through VQRegStore.h.
#include "store/CxxStoreFixture.h"

using StoreRootName = vqtest::CxxStoreTest;

TEST_F(StoreRootName, ThatTheFileCannotHoldIsRefusedBeforeItIsWritten) {
    open().root().set("V", 1);
    const std::string before = file.read();
    const std::string path = file.path();
    for (const std::string& root : vqtest::Texts{
             "a\nb", "a]b", "", "/", "a//b", "/x", "<root>", std::string(2046, 'x'), {"a\0b", 3}}) {
        EXPECT_EQ(thrown([&] { vqreg::Store(path, root); }), vqreg::errc::not_storable) << root;
        std::error_code error;
        const vqreg::Store store(path, root, error);
        EXPECT_EQ(error, vqreg::errc::not_storable) << root;
        EXPECT_FALSE(store);
        EXPECT_EQ(thrown([&] { store.root(); }), vqreg::errc::not_initialized);
    }
    EXPECT_EQ(file.read(), before);
    EXPECT_EQ(open().root().get<int>("V"), 1);
}

TEST_F(StoreRootName, ThatTheFileCannotHoldIsTold) {
    const auto text = [&](const char* root) {
        return textOf([&] { vqreg::Store(file.path(), root); });
    };
    const std::string all = "the file cannot give back such a name or such data";
    EXPECT_EQ(text("a]b"), "a]b: " + all + ": a key name must not hold a closing bracket: byte 2");
    EXPECT_EQ(text("a//b"), "a//b: " + all + ": a key name must not be empty");
    EXPECT_EQ(text("/x"), "/x: " + all + ": a key name must not be empty");
    EXPECT_EQ(text(""), all + ": a key name must not be empty");
    EXPECT_FALSE(file.exists());
}

TEST_F(StoreRootName, MayBeAPath) {
    vqreg::Store(file.path(), "A/B").root().set("V", 1);
    EXPECT_EQ(file.read(), "[A]\n[A/B]\n\"V\"=dword:00000001\n");
}

// It would be cut where the NUL is, or mean the machine's default store.
TEST_F(StoreRootName, AndAPathOfAFileThatHoldANulAreRefused) {
    const std::string cut = file.path() + std::string("\0.cfg", 5);
    EXPECT_EQ(thrown([&] { vqreg::Store{cut}; }), vqreg::errc::not_storable);
    EXPECT_EQ(textOf([&] { vqreg::Store{cut}; }),
              "the file cannot give back such a name or such data: the path or name holds a NUL");
    EXPECT_EQ(textOf([&] { vqreg::Store(cut, "Good"); }),
              "the file cannot give back such a name or such data: the path or name holds a NUL");
    std::error_code error;
    EXPECT_FALSE(vqreg::Store(cut, nullptr, error));
    EXPECT_EQ(error, vqreg::errc::not_storable);
    EXPECT_EQ(vqreg::Store::why(cut), "the path or name holds a NUL");
    EXPECT_FALSE(file.exists());
}
