// plugin_host PLUGIN STORE TIMES
//
// Loads a module, lets it watch a store and unloads it; then waits for the end of its input. What
// the module brought along may have threads by then.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <thread>

int main(int count, char** arguments) {
    if (count != 4) {
        return 10;
    }
    ::alarm(60);
    for (int left = std::atoi(arguments[3]); left > 0; --left) {
        void* const plugin = ::dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL);
        if (plugin == nullptr) {
            std::fprintf(stderr, "%s\n", ::dlerror());
            return 11;
        }
        using WatchOnce = int (*)(const char*);
        const auto watchOnce = reinterpret_cast<WatchOnce>(::dlsym(plugin, "watchOnce"));
        int result = 12;
        // On a thread that ends: what the library keeps for a thread keeps the library loaded.
        if (watchOnce != nullptr) {
            std::thread([&] { result = watchOnce(arguments[2]); }).join();
        }
        if (result != 0) {
            return result;
        }
        if (::dlclose(plugin) != 0) {
            return 13;
        }
    }
    std::puts("unloaded");
    std::fflush(stdout);
    char byte = 0;
    return ::read(STDIN_FILENO, &byte, 1) == 0 ? 0 : 14;
}
