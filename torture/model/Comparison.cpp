#include "model/Comparison.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "model/LibraryProcess.h"
#include "model/Player.h"
#include "model/Session.h"
#include "support/TempStore.h"

namespace fs = std::filesystem;

namespace vqtorture::model {

namespace {

using Content = std::map<std::string, std::string>;

constexpr std::size_t kShown = 3000;

// The files as they are, behind the name that they have while they are hidden or not.
class RealFiles {
public:
    explicit RealFiles(const std::string& directory)
        : m_place(directory + "/stores"), m_hidden(directory + "/hidden") {
        fs::remove_all(m_place);
        fs::remove_all(m_hidden);
        fs::create_directories(m_place);
    }

    const std::string& place() const { return m_place; }

    void take(const Step& step) {
        const std::string path =
            present() + "/" + kFileNames.at(static_cast<std::size_t>(step.key));
        switch (step.verb) {
            case Verb::eHideDirectory:
                move(m_place, m_hidden);
                break;
            case Verb::eShowDirectory:
                move(m_hidden, m_place);
                break;
            case Verb::eWriteFile:
                write(path, step.data, std::ios::trunc);
                break;
            case Verb::eAppendFile:
                write(path, step.data, std::ios::app);
                break;
            case Verb::eEditFile:
                write(path, edited(fs::exists(path) ? vqtest::readFile(path) : "", step),
                      std::ios::trunc);
                break;
            case Verb::eCutFile:
                if (fs::exists(path)) {
                    fs::resize_file(path,
                                    fs::file_size(path) * static_cast<unsigned>(step.number) / 100);
                }
                break;
            case Verb::eRemoveFile:
                fs::remove(path);
                break;
            case Verb::eWriteBackup:
                write(path + ".bak", step.data, std::ios::trunc);
                break;
            case Verb::eRemoveBackup:
                fs::remove(path + ".bak");
                break;
            default:
                break;
        }
    }

    Content content() const {
        Content content;
        for (const auto& entry : fs::directory_iterator(present())) {
            content[entry.path().filename()] = vqtest::readFile(entry.path());
        }
        return content;
    }

private:
    std::string present() const { return fs::exists(m_place) ? m_place : m_hidden; }

    static void move(const std::string& from, const std::string& to) {
        if (fs::exists(from)) {
            fs::rename(from, to);
        }
    }

    static void write(const std::string& path, const std::string& text, std::ios::openmode mode) {
        std::ofstream(path, std::ios::binary | mode) << text;
    }

    std::string m_place;
    std::string m_hidden;
};

// One sequence. What is destroyed first is at the end.
class Comparison {
public:
    Comparison(const std::string& directory, Agents& agents)
        : m_real(directory), m_agents(agents), m_library(m_real.place()) {
        for (int i = 0; i <= static_cast<int>(agents.size()); ++i) {
            m_models.push_back(std::make_unique<ModelProcess>(m_files, i));
            m_expected.push_back(std::make_unique<Player<ModelProcess>>(*m_models.back()));
        }
        m_own = std::make_unique<Player<LibraryProcess>>(m_library);
    }

    ~Comparison() {
        m_real.take(Step{Verb::eShowDirectory});
        for (auto& agent : m_agents) {
            agent->ask({"reset"});
        }
    }

    Comparison(const Comparison&) = delete;
    Comparison& operator=(const Comparison&) = delete;

    Outcome run(const std::vector<Step>& steps) {
        Outcome outcome;
        openFirst(outcome);
        for (std::size_t i = 0; i < steps.size() && outcome.difference.empty(); ++i) {
            if (mayTake(steps[i])) {
                step(steps[i], outcome);
            }
        }
        return outcome;
    }

private:
    // Each process has two stores on one file to begin with, a key in each hand and something in it.
    void openFirst(Outcome& outcome) {
        for (int i = 0; i < static_cast<int>(m_expected.size()); ++i) {
            step({Verb::eOpenSession, i, 0}, outcome);
            step({Verb::eOpenSession, i, 1, 0, 0, 2}, outcome);
            step({Verb::eCreateKey, i, 0, 1, 0, 0, true, "a"}, outcome);
            step({Verb::eCreateKey, i, 0, 2, 0, 0, true, "a/b"}, outcome);
            step({Verb::eCreateKey, i, 0, 3, 0, 0, true, "b"}, outcome);
            step({Verb::eSetString, i, 0, 1, 0, 0, false, "c", "x"}, outcome);
            step({Verb::eSetDword, i, 0, 0, 0, 31, false, "d"}, outcome);
            step({Verb::eSetBinary, i, 1, 0, 0, 0, false, "c", "bytes"}, outcome);
        }
    }

    void step(const Step& one, Outcome& outcome) {
        ++outcome.operations;
        if (concernsFiles(one)) {
            m_files.take(one);
            m_real.take(one);
        } else {
            const Seen expected = m_expected.at(static_cast<std::size_t>(one.process))->play(one);
            const Seen seen = play(one);
            if (seen != expected) {
                outcome.difference = describe(one, expected, seen);
            }
        }
        compareFiles(one, outcome);
    }

    Seen play(const Step& one) {
        return one.process == 0 ? m_own->play(one)
                                : m_agents.at(static_cast<std::size_t>(one.process - 1))
                                      ->ask(toFields(one))
                                      .fields;
    }

    // While a process has an update others would wait for its end, where they do not only read.
    bool mayTake(const Step& one) {
        for (const char* name : kFileNames) {
            const File& file = m_files.of(name);
            if (file.updating == nullptr || concernsFiles(one)) {
                continue;
            }
            const bool isOwn = file.updatingProcess == one.process;
            if (isOwn ? isForbiddenInUpdate(one) : isOn(file, one) && !isReading(file, one)) {
                return false;
            }
        }
        return true;
    }

    bool isOn(const File& file, const Step& one) {
        const int store =
            one.verb == Verb::eOpenSession
                ? one.number
                : m_expected.at(static_cast<std::size_t>(one.process))->storeOf(one.session);
        return store != kNoStore &&
               &m_files.of(kStoreNames.at(static_cast<std::size_t>(store)).file) == &file;
    }

    bool isReading(const File& file, const Step& one) const {
        if (one.verb == Verb::eOpenSession) {
            const StoreName& name = kStoreNames.at(static_cast<std::size_t>(one.number));
            return m_models.at(static_cast<std::size_t>(one.process))
                ->findsRootKey(name.file, name.root);
        }
        return onlyReads(one) && file.text && !m_files.isHidden();
    }

    void compareFiles(const Step& one, Outcome& outcome) {
        const Content expected = m_files.content();
        const Content seen = m_real.content();
        if (seen != expected && outcome.difference.empty()) {
            outcome.difference = describe(one, listOf(expected), listOf(seen));
        }
    }

    static Seen listOf(const Content& content) {
        Seen list;
        for (const auto& [name, text] : content) {
            list.push_back(name + ":\n" + text + "(end)");
        }
        return list;
    }

    static std::string describe(const Step& one, const Seen& expected, const Seen& seen) {
        std::ostringstream text;
        text << "after" << one << "\nexpected:" << joined(expected) << "\nseen:" << joined(seen);
        return text.str();
    }

    static std::string joined(const Seen& seen) {
        std::string text;
        for (const std::string& one : seen) {
            text += "\n  " + one.substr(0, kShown);
        }
        return text;
    }

    RealFiles m_real;
    Files m_files;
    std::vector<std::unique_ptr<ModelProcess>> m_models;
    std::vector<std::unique_ptr<Player<ModelProcess>>> m_expected;
    Agents& m_agents;
    LibraryProcess m_library;
    std::unique_ptr<Player<LibraryProcess>> m_own;
};

}  // namespace

Outcome compare(const std::vector<Step>& steps, const std::string& directory, Agents& agents) {
    return Comparison(directory, agents).run(steps);
}

}  // namespace vqtorture::model
