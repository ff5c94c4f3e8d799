// quillmark ps: the processes that run on this machine.

#include <algorithm>

#include "include2/QuillProcess"
#include "tools/Commands.h"

namespace QuillmarkTool {

int processes(ProcessOptions const& options, Output& output) {
    Quillmark::Process::Tree tree;
    Quillmark::Process::Visitor::for_each(tree);
    Painter const paint(wantsColour(options.colour));
    bool found = false;
    for (Quillmark::Process::Entry const& entry : tree.entries()) {
        if (!options.name.empty() && entry.name() != options.name) continue;
        std::string const id = std::to_string(entry.id());
        output.line(std::string(7 - std::min<std::size_t>(7, id.size()), ' ') + id + "  " +
                    paint(Style::Strong, padded(harmless(entry.name()), 16)) + "  " +
                    harmless(entry.cmdline()));
        found = true;
    }
    return found ? Fine : Findings;
}

}  // namespace QuillmarkTool
