#include "tools/vqreg/text/OthersVariables.h"

#include <algorithm>
#include <iterator>

namespace vqreg {

namespace {

// Whoever may write a store, which is everybody, would choose with one of these what runs in the place
// of a program, or beside it, whom it asks and trusts, and what the service manager has given to it. The
// list cannot be complete: a prefix is what keeps all of them away.
constexpr std::string_view kSteering[] = {"ALL_PROXY",
                                          "BROWSER",
                                          "CACHE_DIRECTORY",
                                          "CDPATH",
                                          "CLASSPATH",
                                          "CONFIGURATION_DIRECTORY",
                                          "CREDENTIALS_DIRECTORY",
                                          "CURL_CA_BUNDLE",
                                          "EDITOR",
                                          "ENV",
                                          "FPATH",
                                          "FTP_PROXY",
                                          "GCONV_PATH",
                                          "GETCONF_DIR",
                                          "GLOBIGNORE",
                                          "HOME",
                                          "HOSTALIASES",
                                          "HTTPS_PROXY",
                                          "HTTP_PROXY",
                                          "IFS",
                                          "INVOCATION_ID",
                                          "JAVA_TOOL_OPTIONS",
                                          "JDK_JAVA_OPTIONS",
                                          "JOURNAL_STREAM",
                                          "LC_ALL",
                                          "LESSCLOSE",
                                          "LESSOPEN",
                                          "LOCALDOMAIN",
                                          "LOCPATH",
                                          "LOGS_DIRECTORY",
                                          "MAINPID",
                                          "NLSPATH",
                                          "NOTIFY_SOCKET",
                                          "NO_PROXY",
                                          "PAGER",
                                          "PATH",
                                          "POSIXLY_CORRECT",
                                          "PROMPT_COMMAND",
                                          "PS4",
                                          "RES_OPTIONS",
                                          "RUNTIME_DIRECTORY",
                                          "SHELL",
                                          "SHELLOPTS",
                                          "SSLKEYLOGFILE",
                                          "STATE_DIRECTORY",
                                          "TMOUT",
                                          "TMPDIR",
                                          "TZDIR",
                                          "VISUAL",
                                          "ZDOTDIR",
                                          "_JAVA_OPTIONS"};
constexpr std::string_view kSteeringFamilies[] = {
    "BASH",   "DBUS_",   "DOTNET_", "GIO_",      "GIT_",     "GLIBC_",   "GTK_",      "KRB5_",
    "LD_",    "LISTEN_", "LUA_",    "MALLOC_",   "NODE_",    "OPENSSL_", "PERL",      "PHP",
    "PYTHON", "QT_",     "RUBY",    "SSL_CERT_", "SYSTEMD_", "VQREG_",   "WATCHDOG_", "XDG_"};

// Shells change these by themselves, or let nobody set them: what a file says does not stay.
constexpr std::string_view kOfShells[] = {
    "ARGC",     "DIRSTACK", "EGID",   "EPOCHREALTIME", "EPOCHSECONDS", "EUID",
    "FUNCNAME", "GID",      "GROUPS", "HISTCMD",       "LINENO",       "OLDPWD",
    "OPTARG",   "OPTERR",   "OPTIND", "PIPESTATUS",    "PPID",         "PWD",
    "RANDOM",   "SECONDS",  "SHLVL",  "SRANDOM",       "TTYIDLE",      "UID",
    "USERNAME", "_"};

}  // namespace

std::optional<std::string_view> othersOf(std::string_view variable) {
    const auto isFamily = [&](std::string_view family) { return variable.starts_with(family); };
    if (std::ranges::find(kSteering, variable) != std::end(kSteering) ||
        std::ranges::any_of(kSteeringFamilies, isFamily)) {
        return "which steers other programs";
    }
    if (std::ranges::find(kOfShells, variable) != std::end(kOfShells)) {
        return "which shells keep for themselves";
    }
    return std::nullopt;
}

}  // namespace vqreg
