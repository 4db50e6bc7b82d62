// vqreg-browse: the screen of "vqreg browse", which starts it.
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "tools/browse/Loop.h"
#include "tools/browse/Screen.h"
#include "tools/browse/Signals.h"
#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/base/Startup.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/usage/BrowseRequest.h"

namespace {

// The signal that ended it.
std::optional<int> browse(const vqreg::BrowseRequest& request) {
    const vqreg::Signals signals;
    vqreg::Loop loop(request, signals);
    vqreg::Screen screen(request.isColored);
    return loop.run(screen);
}

int run(const std::vector<std::string>& arguments) {
    const auto request = vqreg::BrowseRequest::of(arguments);
    if (!request) {
        vqreg::note("this program is started by \"vqreg browse\"");
        return static_cast<int>(vqreg::eExit::eUsage);
    }
    try {
        if (const auto signal = browse(*request)) {
            vqreg::endBySignal(*signal);
        }
        return 0;
    } catch (const vqreg::CommandError& error) {
        vqreg::note(error.what());
        return static_cast<int>(error.code());
    } catch (const std::exception& error) {
        vqreg::note(error.what());
    }
    return static_cast<int>(vqreg::eExit::eUnavailable);
}

}  // namespace

int main(int argc, char** argv) {
    vqreg::prepareProcess();
    return run(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
}
