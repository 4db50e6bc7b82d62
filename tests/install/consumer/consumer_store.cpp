// consumer_store FILE: every class of the installed VQRegStore.h once.
#include <VQRegStore.h>

#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>

namespace {

bool check(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "consumer_store: %s failed\n", what);
    }
    return condition;
}

bool useValues(vqreg::Store& store) {
    vqreg::Key ports = store.create("Network/Ports");
    ports.set("Http", 8081);
    ports.set("Host", std::string("web"));
    std::size_t values = 0;
    for (const vqreg::Value& value : ports.values()) {
        values += value.name().size() == 4;
    }
    return check(ports.get_or("Http", 80u) == 8081, "number") &&
           check(ports.get<std::string>("Host") == "web", "text") &&
           check(!ports.get<bool>("None"), "absent value") && check(values == 2, "values") &&
           check(store.key("Network").keys().size() == 1, "keys") &&
           check(ports.erase("Host") && !ports.erase("Host"), "erase");
}

// The change that the watch tells is the update's.
bool useWatch(vqreg::Store& store) {
    std::mutex mutex;
    std::condition_variable isTold;
    std::string told;
    const vqreg::Watch watch(store, "Network", [&](const vqreg::Change& change) {
        const std::lock_guard<std::mutex> guard(mutex);
        told = change.path + ' ' + change.name;
        isTold.notify_all();
    });
    vqreg::Update update(store);
    update.set("Network/Ports", "Ssh", 22);
    update.commit();
    std::unique_lock<std::mutex> lock(mutex);
    return check(isTold.wait_for(lock, std::chrono::seconds(20), [&] { return !told.empty(); }),
                 "watch") &&
           check(told == "Network/Ports Ssh", "change");
}

bool useErrors(vqreg::Store& store) {
    try {
        store.key("Missing");
    } catch (const vqreg::Error& error) {
        return check(error.code() == vqreg::errc::key_not_found, "code") &&
               check(error.path() == "Missing", "path") &&
               check(vqreg::Store::why("/missing/x").find("directory /missing ") == 16, "why");
    }
    return check(false, "exception");
}

}  // namespace

int main(int argc, char** argv) {
    std::error_code error;
    vqreg::Store store(argc == 2 ? argv[1] : "", nullptr, error);
    return check(!error, "store") && useValues(store) && useWatch(store) && useErrors(store) ? 0
                                                                                             : 1;
}
