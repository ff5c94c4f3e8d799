// The texts of /proc, in a directory of our own.

#include "fuzz/support/Fuzz.h"
#include "include2/QuillProcess"
#include "platform/quill_cfg.h"
#include "tests/support/Support.h"

using namespace Quillmark;
using namespace QuillmarkFuzz;

namespace {

/// A /proc with one process, 42.
class Proc {
public:
    Proc() { ::quill_path_map("/proc", m_directory.path().c_str()); }
    void write(std::string const& stat, std::string const& cmdline) const {
        m_directory.write("42/stat", stat);
        m_directory.write("42/cmdline", cmdline);
    }

private:
    QuillmarkTest::TemporaryDirectory m_directory;
};

/// The name in the first 63 bytes; the last byte of a shorter file ends it.
std::string nameIn(std::string const& stat) {
    std::string const start = stat.substr(0, std::min<std::size_t>(stat.size() - !stat.empty(), 63));
    std::size_t const open = start.find('('), close = start.find(')', open == std::string::npos ? 0 : open);
    if (open == std::string::npos || close == std::string::npos) return {};
    return start.substr(open + 1, close - open - 1);
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    // The stat file, and behind a line feed the command line; a number says how often that comes.
    Input in(data, size);
    std::size_t const times = in.number(0, 7) == 7 ? in.number(1, 200) : 1;
    std::string const stat = in.line();
    std::string const piece = in.rest();
    std::string cmdline;
    for (std::size_t i = 0; i < times; ++i) cmdline += piece;

    static Proc const proc;
    proc.write(stat, cmdline);
    Process::Entry const entry(42);
    claimSame("the name of a process", entry.name(), nameIn(stat));
    std::string const expected =
        cmdline.substr(0, std::min<std::size_t>(cmdline.size() - !cmdline.empty(), 4095));
    claimSame("its command line", entry.cmdline(), expected);
    std::string joined;
    for (std::string const& argument : entry.args()) {
        claim(argument.find('\0') == std::string::npos, "an argument ends at its NUL");
        joined += argument + '\0';
    }
    if (!joined.empty()) joined.pop_back();
    claimSame("its arguments, put together", joined, expected);
    return 0;
}
