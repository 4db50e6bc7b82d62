// private_root PROGRAM ARGUMENTS...
//
// Runs a program in a private world: it sees the file system of the machine, but has an /etc,
// /tmp, /dev/shm and System V memory of its own, no /velquist and no /cf, and may create these in its
// own root directory. So tests may use the default paths of the library without disturbing the machine
// or each other. All of it lives in namespaces and vanishes with the last process in them.
//
// Where the system does not allow this, it prints one line and ends with 77, which means "skipped".
#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr int kSkipped = 77;
constexpr int kCannotRun = 127;
constexpr const char* kInsideVariable = "VQREG_PRIVATE_ROOT";

// The new root is put together here. It needs a directory that exists, and this is the one that is
// never taken over from the machine, so nothing that is needed gets hidden.
constexpr const char* kNewRoot = "/etc";

constexpr std::array<std::string_view, 4> kNotTakenOver = {"etc", "tmp", "velquist", "cf"};
constexpr std::array<std::string_view, 8> kEtcFiles = {"passwd",    "group",       "nsswitch.conf",
                                                       "hosts",     "ld.so.cache", "ld.so.conf",
                                                       "localtime", "timezone"};

struct Impossible : std::runtime_error {
    using std::runtime_error::runtime_error;
};

void check(bool succeeded, const std::string& action) {
    if (!succeeded) {
        throw Impossible(action + ": " + std::strerror(errno));
    }
}

struct EtcFile {
    std::string name;  // below /etc
    fs::perms mode;
    std::string content;
};

void rememberFile(const fs::path& path, std::vector<EtcFile>& files) {
    std::error_code error;
    if (!fs::is_regular_file(path, error)) {
        return;
    }
    std::ifstream in(path, std::ios::binary);
    std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    files.push_back({fs::path(path).lexically_relative("/etc").string(),
                     fs::status(path).permissions() & fs::perms::all, std::move(content)});
}

std::vector<EtcFile> readEtc() {
    std::vector<EtcFile> files;
    for (const std::string_view name : kEtcFiles) {
        rememberFile(fs::path("/etc") / name, files);
    }
    std::error_code error;
    for (const auto& entry : fs::directory_iterator("/etc/ld.so.conf.d", error)) {
        rememberFile(entry.path(), files);
    }
    return files;
}

// The build tree may lie below /tmp. Its topmost directory there stays visible then.
std::set<std::string> usedInTmp(const std::string& workingDirectory, char** command) {
    std::set<std::string> names;
    std::vector<fs::path> used = {workingDirectory};
    for (char** argument = command; *argument != nullptr; ++argument) {
        std::error_code error;
        const fs::path path = fs::canonical(*argument, error);
        if (!error) {
            used.push_back(path);
        }
    }
    for (const fs::path& path : used) {
        const fs::path below = path.lexically_relative("/tmp");
        if (!below.empty() && *below.begin() != ".." && below != ".") {
            names.insert(below.begin()->string());
        }
    }
    return names;
}

void writeProc(const char* path, const std::string& text) {
    const int fd = ::open(path, O_WRONLY | O_CLOEXEC);
    check(fd >= 0, std::string("open ") + path);
    const ssize_t written = ::write(fd, text.data(), text.size());
    const int error = errno;
    ::close(fd);
    errno = error;
    check(written == static_cast<ssize_t>(text.size()), std::string("write ") + path);
}

void enterNamespace() {
    const uid_t user = ::geteuid();
    const gid_t group = ::getegid();
    // Root in a container often lacks the right to unshare mounts but may make a user namespace.
    // Killed processes leave segments of System V memory, of which the machine has not many.
    if (user == 0 && ::unshare(CLONE_NEWNS | CLONE_NEWIPC) == 0) {
        return;
    }
    check(::unshare(CLONE_NEWUSER | CLONE_NEWNS | CLONE_NEWIPC) == 0, "unshare");
    writeProc("/proc/self/setgroups", "deny");
    writeProc("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
    writeProc("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
}

void makeDirectory(const std::string& path, mode_t mode) {
    check(::mkdir(path.c_str(), mode) == 0, "mkdir " + path);
    check(::chmod(path.c_str(), mode) == 0, "chmod " + path);
}

void bind(const std::string& source, const std::string& target) {
    check(::mount(source.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0,
          "bind " + source);
}

// Directories and files need a target of their kind to be bound to.
void takeOver(const std::string& source, const std::string& target) {
    const fs::file_status status = fs::symlink_status(source);
    if (fs::is_symlink(status)) {
        fs::create_symlink(fs::read_symlink(source), target);
    } else if (fs::is_directory(status)) {
        makeDirectory(target, 0755);
        bind(source, target);
    } else if (fs::is_regular_file(status)) {
        const int fd = ::open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        check(fd >= 0, "create " + target);
        ::close(fd);
        bind(source, target);
    }
}

void fillRoot(const std::set<std::string>& tmpNames) {
    const std::string root = kNewRoot;
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator("/")) {
        names.push_back(entry.path().filename().string());
    }
    for (const std::string& name : names) {
        if (std::find(kNotTakenOver.begin(), kNotTakenOver.end(), name) == kNotTakenOver.end()) {
            takeOver("/" + name, root + "/" + name);
        }
    }
    makeDirectory(root + "/tmp", 01777);
    for (const std::string& name : tmpNames) {
        takeOver("/tmp/" + name, root + "/tmp/" + name);
    }
}

void fillEtc(const std::vector<EtcFile>& files) {
    const fs::path etc = fs::path(kNewRoot) / "etc";
    makeDirectory(etc.string(), 0755);
    for (const EtcFile& file : files) {
        const fs::path path = etc / file.name;
        fs::create_directories(path.parent_path());
        std::ofstream out(path, std::ios::binary);
        out << file.content;
        out.close();
        check(out.good(), "write " + path.string());
        fs::permissions(path, file.mode);
    }
}

void switchRoot() {
    check(::chdir(kNewRoot) == 0, "chdir to the new root");
    if (::syscall(SYS_pivot_root, ".", ".") == 0) {
        check(::umount2(".", MNT_DETACH) == 0, "umount the old root");
    } else {
        // The old root cannot be exchanged where it is no mount of its own or the initial ramfs.
        check(::chroot(".") == 0, "chroot");
    }
    check(::chdir("/") == 0, "chdir /");
}

void makePrivateRoot(char** command) {
    const std::string workingDirectory = fs::current_path().string();
    const std::vector<EtcFile> etc = readEtc();
    const std::set<std::string> tmpNames = usedInTmp(workingDirectory, command);
    enterNamespace();
    // First of all: without this, mounts would show up in the namespace of the machine.
    check(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "make / private");
    check(::mount("tmpfs", kNewRoot, "tmpfs", MS_NOSUID | MS_NODEV, "mode=755") == 0,
          "mount the new root");
    fillRoot(tmpNames);
    fillEtc(etc);
    switchRoot();
    // Only now, so that a /dev/shm that is a link leads to a place in the new root.
    check(::mount("tmpfs", "/dev/shm", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777,size=64m") == 0,
          "mount /dev/shm");
    check(::chdir(workingDirectory.c_str()) == 0, "chdir " + workingDirectory);
    check(::setenv(kInsideVariable, "1", 1) == 0, "setenv");
}

bool isInside() {
    const char* value = std::getenv(kInsideVariable);
    return value != nullptr && std::strcmp(value, "1") == 0;
}

// Listing the tests uses none of the private places. It must succeed everywhere: then each test is
// reported as skipped, whereas a failed listing would end the whole run.
bool onlyListsTests(char** command) {
    for (; *command != nullptr; ++command) {
        if (std::strcmp(*command, "--gtest_list_tests") == 0) {
            return true;
        }
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fputs("usage: private_root PROGRAM ARGUMENTS...\n", stderr);
        return kCannotRun;
    }
    char** command = argv + 1;
    if (!isInside() && !onlyListsTests(command)) {
        try {
            makePrivateRoot(command);
        } catch (const std::exception& error) {
            std::fprintf(stderr, "private_root: cannot make a private root: %s\n", error.what());
            return kSkipped;
        }
    }
    ::execvp(command[0], command);
    std::fprintf(stderr, "private_root: cannot run %s: %s\n", command[0], std::strerror(errno));
    return kCannotRun;
}
