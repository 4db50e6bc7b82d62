#include "tools/vqreg/terminal/Listing.h"

#include <cstdio>

#include "tools/vqreg/terminal/Output.h"

namespace vqreg {

void printFindings(const std::string& file, const std::vector<Finding>& findings) {
    std::string lines;
    for (const Finding& finding : findings) {
        lines += format(file, finding) + "\n";
    }
    std::fputs(lines.c_str(), stderr);  // nobody can be told where this fails
}

void printChanges(const std::vector<Change>& changes, const Path& above, bool json,
                  const Path& root) {
    Output& output = Output::standard();
    for (const Change& change : changes) {
        if (json) {
            output.json(jsonOf(change, root), -1);
            continue;
        }
        const eStyle style = change.kind == Change::eKind::eCreated   ? eStyle::eAdded
                             : change.kind == Change::eKind::eDeleted ? eStyle::eRemoved
                                                                      : eStyle::eChanged;
        output.line(output.styled(style, lineOf(change, above)));
    }
}

}  // namespace vqreg
