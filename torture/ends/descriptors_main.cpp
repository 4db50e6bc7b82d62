// A program that nothing was handed on to but the three streams: its exit status is how many other
// descriptors it has, which it names.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>

int main() {
    int count = 0;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const std::string target = std::filesystem::read_symlink(entry.path(), ignored).string();
        const bool isOwnLook =
            target.find("/fd") != std::string::npos && target.starts_with("/proc/");
        if (std::stoi(entry.path().filename().string()) > STDERR_FILENO && !isOwnLook) {
            std::fprintf(stderr, "%s is %s\n", entry.path().c_str(), target.c_str());
            ++count;
        }
    }
    return std::min(count, 100);
}
