// A file whose place no new text can take: the library does not look, the command does and says why.
#include <VQRegLib.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/ChildProcess.h"
#include "support/ObjectAttacks.h"
#include "support/OtherUser.h"
#include "support/Sessions.h"
#include "tools/VqregStore.h"

using vqtest::fails;

namespace {

constexpr char kText[] = "[Velquist]\n\"V\"=dword:00000001\n";

class Unreplaceable : public vqtest::VqregStore {
protected:
    // The file and its backup may be there, and texts whose place it was not.
    bool isNewTextLeft() const {
        const std::vector<std::string> files = file.files();
        return std::any_of(files.begin(), files.end(), [](const std::string& name) {
            return name != "store.cfg" && name != "store.cfg.bak";
        });
    }

    vqtest::CommandResult cannotTakeIt(const std::string& why) const {
        return fails(7, file.path() + ": the change could not be written: " + why +
                            " (\"vqreg clean\" removes what is left)");
    }
};

// While it lasts, a file is a mount point of its own.
class MountedFile {
public:
    explicit MountedFile(const std::string& path)
        : m_path(path),
          m_isMounted(::mount(path.c_str(), path.c_str(), nullptr, MS_BIND, "") == 0) {}
    ~MountedFile() { ::umount2(m_path.c_str(), MNT_DETACH); }
    MountedFile(const MountedFile&) = delete;
    MountedFile& operator=(const MountedFile&) = delete;

    bool isMounted() const { return m_isMounted; }

private:
    const std::string m_path;
    const bool m_isMounted;
};

}  // namespace

TEST_F(Unreplaceable, AMountPointIsNamedByTheCommandOnly) {
    file.write(kText);
    const MountedFile mounted(file.path());
    ASSERT_TRUE(mounted.isMounted());
    const auto session = vqtest::openSession(file.path());
    EXPECT_EQ(vqtest::setNumber(*session, "V", 2), VQRegLib::REGLIB_OK);
    EXPECT_EQ(file.read(), kText);
    EXPECT_TRUE(isNewTextLeft());
    EXPECT_EQ(run({"set", "/", "V", "3"}),
              cannotTakeIt("the file is a mount point and cannot be replaced; mount its directory "
                           "instead"));
    EXPECT_EQ(file.read(), kText);
}

TEST_F(Unreplaceable, AnotherUsersFileInAStickyDirectoryIsNamedByTheCommandOnly) {
    if (!vqtest::mayRunAsAnother(VQREG_COMMAND_PATH)) {
        GTEST_SKIP() << "no program can be run as another user here";
    }
    file.write(kText);
    ASSERT_EQ(::chmod(file.path().c_str(), 0666), 0);
    ASSERT_EQ(::chmod(file.directory().c_str(), 01777), 0);
    const auto other = vqtest::asNobody([&] {
        const auto session = vqtest::openSession(file.path());
        return vqtest::setNumber(*session, "V", 2) == VQRegLib::REGLIB_OK ? 0 : 1;
    });
    EXPECT_EQ(other->wait(), 0);
    EXPECT_EQ(file.read(), kText);
    EXPECT_TRUE(isNewTextLeft());
    vqtest::Arguments arguments = vqtest::asAnother(VQREG_COMMAND_PATH);
    arguments.insert(arguments.end(), {"--file", file.path(), "set", "/", "V", "3"});
    EXPECT_EQ(
        vqtest::ChildProcess(vqtest::kAsAnother, arguments, {{"LC_ALL", "C"}}).finish(),
        cannotTakeIt("the directory " + file.directory() + " is sticky, and the file is root's"));
    EXPECT_EQ(file.read(), kText);
}
