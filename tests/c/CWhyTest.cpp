// What the C interface tells people.
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <fstream>

#include "c/CStoreFixture.h"
#include "support/ForkedChild.h"

namespace {

class CWhy : public testing::Test {
protected:
    std::string why() const { return whyOf(file.path()); }

    static std::string whyOf(const std::string& path) {
        char text[1024] = "untouched";
        const size_t length = vqreg_why(path.c_str(), text, sizeof text);
        EXPECT_EQ(length, std::strlen(text));
        return text;
    }

    vqtest::TempStore file;
};

}  // namespace

TEST_F(CWhy, NothingStandsInTheWayOfAFileThatCanBeMadeOrRead) {
    EXPECT_EQ(why(), "");
    file.write("[Velquist]\n");
    EXPECT_EQ(why(), "");
}

TEST_F(CWhy, NamesLineAndColumnOfAMalformedFile) {
    const auto at = [this](const std::string& text) {
        file.write(text);
        const std::string sentence = why();
        const std::string begin = file.path() + ':';
        EXPECT_EQ(sentence.substr(0, begin.size()), begin);
        return sentence.substr(begin.size());
    };
    EXPECT_EQ(at("[Velquist]\n\"A\"=dword:1\n\n"), "3:1: the line is empty");
    EXPECT_EQ(at("[Velquist]\nA=dword:1\n"), "2:1: neither a key nor a value begins here");
    EXPECT_EQ(at("[Velquist]\n\"A=dword:1\n"), "2:11: the name has no second quote");
    EXPECT_EQ(at("[Velquist]\n\"A\" =dword:1\n"), "2:4: no \"=\" follows the name");
    EXPECT_EQ(at("[Velquist]\n\"A\"=dword\n"), "2:10: no \":\" follows the type");
    EXPECT_EQ(at("[Velquist]\n\"A\"=Dword:1\n"),
              "2:5: the type is none of binary, dword and string");
    EXPECT_EQ(at("[Velquist\n"), "1:10: the key line has no \"]\"");
    EXPECT_EQ(at("\"A\"=dword:1\n"), "1:1: the value stands below no key");
    EXPECT_EQ(at("[]\n\"A\"=dword:1\n"), "2:1: the value stands below no key");
    EXPECT_EQ(at("[Velquist]\n\"A\"=string:" + std::string(2100, 'x') + "\n"),
              "2:2049: neither a key nor a value begins here");
}

TEST_F(CWhy, NamesWhatIsInThePlaceOfFileOrDirectory) {
    EXPECT_EQ(whyOf("/missing/store.cfg"),
              "/missing/store.cfg: the directory /missing does not exist");
    file.write("");
    EXPECT_EQ(whyOf(file.path() + "/store.cfg"),
              file.path() + "/store.cfg: " + file.path() + " is not a directory");
    EXPECT_EQ(whyOf(file.directory()), file.directory() + ": it is not a file");
    EXPECT_EQ(whyOf(""), "an empty path is no store");
}

TEST_F(CWhy, TellsWhatTheSystemSaysOfAPathThatItCannotFollow) {
    const std::string tooLong = file.directory() + '/' + std::string(300, 'x');
    EXPECT_EQ(whyOf(tooLong), tooLong + ": " + std::strerror(ENAMETOOLONG));
    EXPECT_EQ(whyOf(tooLong + "/store.cfg"),
              tooLong + "/store.cfg: " + std::strerror(ENAMETOOLONG));
}

TEST_F(CWhy, WithoutANameIsOfTheUsualFile) {
    EXPECT_EQ(vqreg_why(nullptr, nullptr, 0), 0u);
    std::ofstream("/etc/Velquist.cfg") << "nonsense\n";
    char text[100] = "";
    vqreg_why(nullptr, text, sizeof text);
    EXPECT_STREQ(text, "/etc/Velquist.cfg:1:1: neither a key nor a value begins here");
    std::remove("/etc/Velquist.cfg");
}

TEST_F(CWhy, NamesMissingPermissions) {
    if (::geteuid() == 0 && vqtest::ForkedChild([] { return ::seteuid(65534); }).wait() != 0) {
        GTEST_SKIP() << "a process may not become another user here";
    }
    file.write("[Velquist]\n");
    ASSERT_EQ(::chmod(file.path().c_str(), 0), 0);
    ASSERT_EQ(::chmod(file.directory().c_str(), 0755), 0);
    const uid_t own = ::geteuid();
    ASSERT_EQ(::seteuid(own == 0 ? 65534 : own), 0);
    const std::string closed = why();
    const std::string missing = whyOf(file.directory() + "/other.cfg");
    ASSERT_EQ(::seteuid(own), 0);
    EXPECT_EQ(closed, file.path() + ": the file may not be read");
    if (own == 0) {
        EXPECT_EQ(missing, file.directory() +
                               "/other.cfg: the file does not exist, and the "
                               "directory " +
                               file.directory() + " may not be written");
        ASSERT_EQ(::chmod(file.directory().c_str(), 0700), 0);
        ASSERT_EQ(::seteuid(65534), 0);
        const std::string closedDirectory = why();
        ASSERT_EQ(::seteuid(0), 0);
        EXPECT_EQ(closedDirectory,
                  file.path() + ": the directory " + file.directory() + " may not be entered");
    }
}

TEST_F(CWhy, GivesWhatFitsIntoTheBuffer) {
    char text[8] = "xxxxxxx";
    const size_t length = vqreg_why("/missing/store.cfg", text, sizeof text);
    EXPECT_EQ(length, std::strlen("/missing/store.cfg: the directory /missing does not exist"));
    EXPECT_STREQ(text, "/missin");
    EXPECT_EQ(vqreg_why("/missing/store.cfg", nullptr, 0), length);
    EXPECT_EQ(vqreg_why("/missing/store.cfg", text, 0), length);
    EXPECT_STREQ(text, "/missin") << "no room, no NUL";
}

TEST_F(CWhy, AStoreThatCannotBeOpenedIsNull) {
    int result = 0;
    EXPECT_EQ(vqreg_open("/missing/store.cfg", nullptr, &result), nullptr);
    EXPECT_EQ(result, VQREG_E_NOT_INITIALIZED);
    EXPECT_STREQ(vqreg_strerror(result), "there is no store");
    EXPECT_STREQ(vqreg_strerror(0), "success");
    EXPECT_STREQ(vqreg_strerror(12345), "an unknown result");
}

namespace {

std::string whichOf(const char* given) {
    char path[1024] = "untouched";
    const size_t length = vqreg_which(given, path, sizeof path);
    EXPECT_EQ(length, std::strlen(path));
    return path;
}

}  // namespace

TEST(CWhich, IsTheFileThatWouldBeOpenedAndDoesNotMakeIt) {
    EXPECT_EQ(whichOf(nullptr), "/etc/Velquist.cfg");
    EXPECT_NE(::access("/etc/Velquist.cfg", F_OK), 0);
    const vqtest::TempStore file;
    EXPECT_EQ(whichOf(file.path().c_str()), file.path());
    const std::string link = file.directory() + "/link.cfg";
    ASSERT_EQ(::symlink(file.path().c_str(), link.c_str()), 0);
    EXPECT_EQ(whichOf(link.c_str()), file.path());
    EXPECT_NE(::access(file.path().c_str(), F_OK), 0);
    ASSERT_TRUE(::mkdir("/velquist", 0755) == 0 && ::mkdir("/velquist/etc", 0755) == 0);
    EXPECT_EQ(whichOf(nullptr), "/velquist/etc/Velquist.cfg");
}

TEST(CWhich, GivesWhatFitsIntoTheBuffer) {
    char path[5] = "xxxx";
    EXPECT_EQ(vqreg_which(nullptr, path, sizeof path), std::strlen("/etc/Velquist.cfg"));
    EXPECT_STREQ(path, "/etc");
    EXPECT_EQ(vqreg_which(nullptr, nullptr, 0), std::strlen("/etc/Velquist.cfg"));
}
