// Command lines from anywhere, one argument a line: whatever they say, the command ends by itself
// with one of its codes, and every file that it has written can be read back without a finding.
// That it never writes what would stop the programs of a machine is its most important duty.
//
// Each command line runs in a child, in a root directory of its own that holds a store and a few
// inputs; so it must be run where it may change its root directory.
//
//   fuzz_arguments FILE...          runs through the files
//   fuzz_arguments --random COUNT   makes up command lines, the same ones every time
//
// With VQREG_LIBFUZZER it is a target for clang's -fsanitize=fuzzer (scripts/fuzz).
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "tools/vqreg/commands/Command.h"
#include "tools/vqreg/text/ConfigReader.h"

#ifdef VQREG_LIBFUZZER
// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker gives them
extern "C" std::uint8_t __start___sancov_cntrs[];
extern "C" std::uint8_t __stop___sancov_cntrs[];
// NOLINTEND(bugprone-reserved-identifier)
#endif

namespace {

namespace fs = std::filesystem;

using Arguments = std::vector<std::string>;

constexpr int kLastExitCode = 7;
constexpr unsigned kPatienceSeconds = 60;
constexpr int kSkipped = 77;

// The root directory of the command lines.
class Root {
public:
    Root() {
        char path[] = "/tmp/vqreg-fuzz-XXXXXX";
        if (::mkdtemp(path) == nullptr) {
            std::perror(path);
            std::exit(1);
        }
        m_path = path;
    }
    ~Root() {
        std::error_code ignored;
        fs::remove_all(m_path, ignored);
    }
    Root(const Root&) = delete;
    Root& operator=(const Root&) = delete;

    const std::string& path() const { return m_path; }

    // Nothing in it but what a command line may want to name.
    void furnish() const;

private:
    std::string m_path;
};

const Root& root() {
    static const Root directory;
    return directory;
}

[[noreturn]] void fail(const Arguments& arguments, const std::string& what) {
    std::fprintf(stderr, "broken: %s\n", what.c_str());
    for (const std::string& argument : arguments) {
        std::fprintf(stderr, "  %s\n", argument.c_str());
    }
    std::error_code ignored;
    fs::remove_all(root().path(), ignored);
    std::abort();
}

const std::map<std::string, std::string>& seeds() {
    static const std::map<std::string, std::string> files = {
        {"/etc/Velquist.cfg",
         "[Velquist]\n\"Text\"=string:some text\n[Velquist/Net]\n\"Bytes\"=binary:00FF\n"
         "\"Port\"=dword:00001F90\n[Velquist/Net/Empty]\n"},
        {"/etc/Velquist.cfg.bak", "[Velquist]\n\"Text\"=string:before\n"},
        {"/in.cfg", "[Velquist]\n[Velquist/In]\n\"One\"=dword:00000001\n"},
        {"/in.json", R"({"keys":{"J":{"values":{"A":{"type":"string","value":"b"}}}}})"},
        {"/bad.cfg", "[Velquist]\nno value\n"},
        {"/data", std::string("\0\r\n\xFF", 4)},
    };
    return files;
}

std::string contentOf(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void Root::furnish() const {
    for (const fs::directory_entry& entry : fs::directory_iterator(m_path)) {
        fs::remove_all(entry.path());
    }
    for (const char* const directory : {"/etc", "/tmp", "/dev/shm"}) {
        fs::create_directories(m_path + directory);
    }
    for (const auto& [path, content] : seeds()) {
        std::ofstream(m_path + path, std::ios::binary) << content;
    }
}

// Whatever the command has written must be a clean text.
void checkFiles(const Arguments& arguments) {
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root().path())) {
        const std::string path = entry.path().string().substr(root().path().size());
        if (!entry.is_regular_file() || path.starts_with("/dev/shm/")) {
            continue;
        }
        const std::string content = contentOf(entry.path());
        bool isSeed = false;  // under whatever name: backups and copies of malformed files
        for (const auto& seed : seeds()) {
            isSeed |= seed.second == content;
        }
        vqreg::ConfigReader reader;
        reader.read(content);
        if (!isSeed && (!reader.isReadable() || !reader.findings().empty())) {
            fail(arguments, path + " was written as:\n" + content);
        }
    }
}

struct Shared {
    std::size_t size = 0;
    std::uint8_t* counters = nullptr;
};

#ifdef VQREG_LIBFUZZER
// What a child has covered, for the fuzzer in the parent.
Shared& shared() {
    static Shared memory = [] {
        Shared made;
        made.size = static_cast<std::size_t>(__stop___sancov_cntrs - __start___sancov_cntrs);
        made.counters = static_cast<std::uint8_t*>(
            ::mmap(nullptr, made.size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
        return made;
    }();
    return memory;
}

void keepCoverage() {
    std::memcpy(shared().counters, __start___sancov_cntrs, shared().size);
}

void takeCoverage() {
    std::memcpy(__start___sancov_cntrs, shared().counters, shared().size);
}
#else
void keepCoverage() {}
void takeCoverage() {}
#endif

// In a child: what a command line leaves behind in a process ends with it.
[[noreturn]] void runInChild(Arguments arguments) {
    const int null = ::open("/dev/null", O_RDWR);
    for (const int stream : {0, 1, 2}) {
        ::dup2(null, stream);
    }
    if (::chroot(root().path().c_str()) != 0 || ::chdir("/") != 0) {
        std::_Exit(kSkipped);
    }
    std::signal(SIGALRM, SIG_DFL);  // a fuzzer has its own use for it
    ::alarm(kPatienceSeconds);
    std::vector<char*> pointers;
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);
    const int code = vqreg::runCommand(static_cast<int>(arguments.size()), pointers.data());
    keepCoverage();
    std::_Exit(code);
}

void run(Arguments arguments) {
    arguments.insert(arguments.begin(), "vqreg");
    for (const std::string& argument : arguments) {
        if (argument == "watch" || argument == "run") {
            return;  // it does not end by itself, or as another program does
        }
    }
    root().furnish();
    const pid_t child = ::fork();
    if (child == 0) {
        runInChild(arguments);
    }
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child) {
        fail(arguments, "no child");
    }
    if (!WIFEXITED(status)) {
        fail(arguments, "ended by signal " + std::to_string(WTERMSIG(status)));
    }
    if (WEXITSTATUS(status) == kSkipped) {
        std::fprintf(stderr, "cannot change the root directory\n");
        std::exit(kSkipped);
    }
    if (WEXITSTATUS(status) > kLastExitCode) {
        fail(arguments, "ended with " + std::to_string(WEXITSTATUS(status)));
    }
    takeCoverage();
    checkFiles(arguments);
}

Arguments argumentsOf(std::string_view text) {
    Arguments arguments;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        arguments.emplace_back(text.substr(0, end));
        arguments.back().erase(std::min(arguments.back().find('\0'), arguments.back().size()));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return arguments;
}

}  // namespace

#ifdef VQREG_LIBFUZZER

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    run(argumentsOf(std::string_view(reinterpret_cast<const char*>(data), size)));
    return 0;
}

#else

namespace {

// Makes up command lines: mostly words that mean something, in an order that means something, with
// strange ones strewn in.
class Maker {
public:
    Arguments make() {
        Arguments arguments;
        add(arguments, 3, kGlobal);
        arguments.push_back(pick(kCommands));
        for (std::size_t count = m_random() % 6; count > 0; --count) {
            switch (m_random() % 4) {
                case 0:
                    arguments.push_back(pick(kOptions));
                    break;
                case 1:
                    arguments.push_back(strange());
                    break;
                default:
                    arguments.push_back(pick(kWords));
            }
        }
        add(arguments, 8, kGlobal);
        return arguments;
    }

private:
    using Words = std::vector<std::string>;

    const std::string& pick(const Words& words) { return words[m_random() % words.size()]; }

    // Perhaps an option of all commands, with its argument.
    void add(Arguments& arguments, std::uint32_t oneIn, const std::vector<Words>& options) {
        if (m_random() % oneIn == 0) {
            const Words& words = options[m_random() % options.size()];
            arguments.insert(arguments.end(), words.begin(), words.end());
            if (m_random() % 8 == 0) {
                arguments.back() = strange();
            }
        }
    }

    // Bytes that have a meaning in a path, a line or a command line, and others.
    std::string strange() {
        static constexpr std::string_view kBytes = "]\"[:=/\\\r\n\t -@.%0aZ\x80\xC3\xA4\x7F\x01";
        std::string text = m_random() % 2 == 0 ? pick(kWords) : "";
        for (std::size_t count = m_random() % 5; count > 0; --count) {
            text.insert(m_random() % (text.size() + 1), 1, kBytes[m_random() % kBytes.size()]);
        }
        return m_random() % 64 == 0 ? std::string(m_random() % 2200, 'x') + text : text;
    }

    const Words kCommands = {"get",  "set",    "rm",     "mkkey",   "ls",    "tree",
                             "cp",   "mv",     "export", "import",  "diff",  "check",
                             "edit", "notify", "info",   "restore", "clean", "complete"};
    const Words kOptions = {"-r", "-f",        "-l",        "-R",        "-t",      "-L",
                            "-n", "-y",        "-0",        "--json",    "--type",  "--raw",
                            "--", "--help",    "--key",     "--default", "--merge", "--replace",
                            "-x", "--dry-run", "--initial", "string",    "dword",   "binary"};
    const Words kWords = {"/",
                          ".",
                          "Net",
                          "net/empty",
                          "Net/Port",
                          "Port",
                          "Text",
                          "New",
                          "New/Sub",
                          "New\\Sub",
                          "Bytes",
                          "",
                          "0x10",
                          "42",
                          "-1",
                          "00FF",
                          "@/data",
                          "-",
                          "/data",
                          "/in.json",
                          "/in.cfg",
                          "/bad.cfg",
                          "/none",
                          "keys",
                          "4294967296",
                          "values",
                          "/etc/Velquist.cfg",
                          "/etc/Velquist.cfg.bak"};
    const std::vector<Words> kGlobal = {
        {"--file", "/in.cfg"},      {"--file", "/new.cfg"}, {"--file", "/bad.cfg"},
        {"--file", "/none/x.cfg"},  {"--file", "/etc"},     {"--file", ""},
        {"--root", "Velquist"},     {"--root", "Other"},    {"--root", "Velquist/Net"},
        {"--root", "Velquist/New"}, {"--root", ""},         {"--timeout", "1"},
        {"--color", "always"},      {"--no-notify"},        {"--version"}};
    std::mt19937 m_random{1};
};

}  // namespace

int main(int argc, char** argv) {
    std::vector<Arguments> lines;
    const bool isRandom = argc == 3 && std::string_view(argv[1]) == "--random";
    for (int i = 1; i < argc && !isRandom; ++i) {
        lines.push_back(argumentsOf(contentOf(argv[i])));
    }
    if (isRandom) {
        Maker maker;
        for (int count = std::atoi(argv[2]); count > 0; --count) {
            run(maker.make());
        }
    }
    for (const Arguments& line : lines) {
        run(line);
    }
    std::printf("%s command lines\n", isRandom ? argv[2] : std::to_string(lines.size()).c_str());
    return argc > 1 ? 0 : 2;
}

#endif
