// Which processes run, and what have they open? Only this one is shown.
#include <include2/File>
#include <include2/QuillProcess>

#include <unistd.h>

#include <iostream>

using namespace Quillmark;

int main(int /*argc*/, char** argv) {
    File::basic_ifstream const program(File::Path("/proc/self/exe"));  // something to have open

    Process::Tree tree;
    Process::Visitor::for_each(tree);
    for (Process::Entry const& process : tree.entries()) {
        if (process.id() != ::getpid()) continue;
        std::cout << process.name() << " runs";
        if (process.args().front() == argv[0]) std::cout << " as it was called";
        std::cout << (process.kill(0) == 0 ? " and takes signals\n" : "\n");
        for (auto const& [number, file] : process.fd())
            if (File::Path(file).name() == process.name()) std::cout << "it has its own file open\n";
    }
}
