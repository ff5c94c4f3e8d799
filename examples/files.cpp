// A walk over a directory, with files made, converted and removed.
#include <include2/File>

#include <stdlib.h>

#include <iostream>
#include <set>
#include <string>

using namespace Quillmark;

namespace {

/// Keeps the names of what it is given: a walk has the system's order.
class Names : public File::Processor {
public:
    int process(File::Path const& path) override {
        m_names.insert(path.name() + ", " + std::to_string(path.status(false).size()) + " bytes");
        return 0;  // go on
    }
    std::set<std::string> const& all() const { return m_names; }

private:
    std::set<std::string> m_names;
};

}  // namespace

int main() {
    char place[] = "/tmp/quillmark-example-XXXXXX";
    if (!::mkdtemp(place)) return 1;
    std::string const spool = std::string(place) + "/spool/new";
    File::Path::makeDirectory(spool, 0700);
    File::Path const letter(spool, "1.eml");
    File::basic_ofstream(letter) << "Subject: lines\n\nof a letter\n";
    File::unix2dos(letter, File::Path(spool, "2.eml"));  // lines end in CR LF
    File::basic_ofstream(File::Path(spool, "notes.txt")) << "no letter\n";

    Names names;
    File::Selector selector(File::Path(place), names);
    selector.patterns({"*.eml"});
    selector.start();
    for (std::string const& name : names.all()) std::cout << name << '\n';

    letter.rename(letter.asString() + ".done");
    std::cout << letter.name() << (letter.exists() ? " is there\n" : " is missing\n");

    File::Path const all(place);
    all.unlink(true);  // with everything below it
    std::cout << "and now it is " << (all.exists() ? "still there\n" : "gone\n");
}
