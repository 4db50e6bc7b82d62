// The power is cut while a store is being changed: what is in its file afterwards? Without VQREG_SYNC=1
// a complete text, on ext4 and xfs; on btrfs it is counted and not judged. With it a complete text
// everywhere, and not an older one than the last change that was acknowledged before. Where it is judged the
// store can be opened and changed.
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "power/Disk.h"
#include "power/Writer.h"
#include "support/Torture.h"

namespace {

using namespace vqtorture;
namespace fs = std::filesystem;

constexpr FileSystem kExt4{"ext4", "", "mkfs.ext4 -q -F", 64};
constexpr FileSystem kExt4WithoutAlloc{"ext4", "noauto_da_alloc", "mkfs.ext4 -q -F", 64};
constexpr FileSystem kXfs{"xfs", "", "mkfs.xfs -q -f", 300};
constexpr FileSystem kBtrfs{"btrfs", "", "mkfs.btrfs -q -f", 128};

std::string contentOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void startAnew(const std::string& file) {
    for (const fs::directory_entry& entry : fs::directory_iterator(fs::path(file).parent_path())) {
        if (entry.path().string().starts_with(file)) {
            fs::remove(entry.path());
        }
    }
    std::ofstream(file, std::ios::binary) << textAfter(0);
    ::sync();
}

struct Cut {
    Way way;
    bool isSynced;
    bool isJudged;  // also without the switch
};

// What is left, and what was promised.
void look(Run& run, const Cut& cut, const std::string& file, const Progress& progress,
          std::uint32_t acknowledged) {
    const std::string kind = cut.isSynced ? "_with_sync" : "_without_sync";
    const bool isThere = fs::exists(file);
    const std::string left = contentOf(isThere ? file : file + ".bak");
    const std::int64_t changes = changesIn(left);
    const std::string found =
        "way " + std::to_string(static_cast<int>(cut.way)) + ": " + (isThere ? "file" : "backup") +
        " of " + std::to_string(left.size()) + " bytes" +
        (left.find('\0') == std::string::npos ? "" : " with zeroes") + ", changes " +
        std::to_string(changes) + " of " + std::to_string(acknowledged) + " acknowledged";
    run.add("cuts" + kind);
    run.add("acknowledged" + kind, acknowledged);
    run.add("damaged" + kind, changes < 0 ? 1 : 0);
    run.add("only_backup" + kind, isThere ? 0 : 1);
    const std::int64_t kept = std::max<std::int64_t>(changes, 0);
    run.add("changes_lost" + kind,
            static_cast<double>(std::max<std::int64_t>(std::int64_t{acknowledged} - kept, 0)));
    require(changes <= std::int64_t{progress.begun}, "no text of the future: " + found);
    if (cut.isSynced) {
        require(isThere && changes >= std::int64_t{acknowledged}, "with VQREG_SYNC=1, " + found);
    } else if (cut.isJudged) {
        require(changes >= 0 && (isThere || cut.way == Way::eRenames), found);
    }
}

void cutOnce(Run& run, Disk& disk, const Cut& cut) {
    const std::string file = disk.directory() + "/store.cfg";
    startAnew(file);
    Bystander bystander(disk.directory(), run.below(~std::uint64_t{0}));
    Writer writer(file, 0, cut.way, cut.isSynced);
    writer.awaitChanges(1 + static_cast<std::uint32_t>(run.below(cut.isSynced ? 20 : 200)));
    ::usleep(static_cast<useconds_t>(run.below(3000)));
    const std::uint32_t acknowledged = writer.progress().acknowledged;
    disk.cutPower();
    writer.kill();
    bystander.kill();
    disk.start();
    look(run, cut, file, writer.progress(), acknowledged);
    const bool isChangeable = isUsable(file);
    run.add("unusable", isChangeable ? 0 : 1);
    require(isChangeable || !(cut.isSynced || cut.isJudged), "the store can be changed afterwards");
}

// Both ways and all three kinds of replacement in turn.
void cutOften(Run& run, const FileSystem& fileSystem, bool isJudged) {
    if (::geteuid() != 0) {
        throw CannotRun("it mounts");
    }
    Disk disk(run, fileSystem);
    const std::uint64_t first = run.seed();
    for (std::uint64_t number = first; number < first + run.count(); ++number) {
        cutOnce(run, disk, {static_cast<Way>(number / 2 % 3), number % 2 == 0, isJudged});
    }
}

void ext4(Run& run) {
    cutOften(run, kExt4, true);
}

void ext4WithoutAlloc(Run& run) {
    cutOften(run, kExt4WithoutAlloc, true);
}

void xfs(Run& run) {
    cutOften(run, kXfs, true);
}

void btrfs(Run& run) {
    cutOften(run, kBtrfs, false);
}

}  // namespace

int main(int argc, char** argv) {
    return runOneOf({{"ext4", ext4},
                     {"ext4_noauto_da_alloc", ext4WithoutAlloc},
                     {"xfs", xfs},
                     {"btrfs", btrfs}},
                    argc, argv);
}
