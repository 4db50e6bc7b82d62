// The other processes of a comparison.
#include <unistd.h>

#include <fcntl.h>

#include <iostream>
#include <memory>
#include <optional>

#include "model/Comparison.h"
#include "model/LibraryProcess.h"
#include "model/Player.h"

namespace vqtorture::model {

namespace {

bool writeAll(const std::string& text) {
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t count =
            ::write(vqtest::kAnswerDescriptor, text.data() + written, text.size() - written);
        if (count <= 0) {
            return false;
        }
        written += static_cast<std::size_t>(count);
    }
    return true;
}

}  // namespace

std::unique_ptr<vqtest::Agent> startAgent(const std::string& directory) {
    return std::make_unique<vqtest::Agent>(
        vqtest::Agent::Options{"/proc/self/exe", {"agent", directory}});
}

int beAgent(const std::string& directory) {
    ::fcntl(vqtest::kAnswerDescriptor, F_SETFD, FD_CLOEXEC);
    LibraryProcess process(directory);
    auto player = std::make_unique<Player<LibraryProcess>>(process);
    std::string line;
    while (std::getline(std::cin, line)) {
        vqtest::Fields answer;
        if (line == "reset") {
            player = std::make_unique<Player<LibraryProcess>>(process);
        } else {
            answer = player->play(fromFields(vqtest::splitFields(line)));
        }
        answer.insert(answer.begin(), vqtest::codeToText(0));
        if (!writeAll(vqtest::joinFields(answer) + "\n")) {
            return 1;
        }
    }
    return 0;
}

}  // namespace vqtorture::model
