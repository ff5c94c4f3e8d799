#include "bench/uri/SuffixLists.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "bench/support/Bench.h"
#include "include2/HostName"
#include "platform/quill_cfg.h"

namespace Quillmark::bench {

QuillmarkTool::DomainLists usePublicSuffixes() {
    std::ifstream in("/usr/share/publicsuffix/public_suffix_list.dat", std::ios::binary);
    agree(in.is_open(), "there is no public suffix list");
    auto lists = QuillmarkTool::readPublicSuffixes(in, false);
    std::string directory = (std::filesystem::temp_directory_path() / "quillmark-bench-XXXXXX").string();
    agree(::mkdtemp(directory.data()) != nullptr, "cannot make a directory");
    QuillmarkTool::writeDomainLists(lists, directory);
    for (std::string const name : {"gtld", "cctld", "idntld"})
        ::quill_path_map(("/var/spool/etc/antispam/" + name).c_str(), (directory + '/' + name).c_str());
    ::quill_cfg_new_generation();
    // All three are read once, and then nobody needs the files any more.
    for (std::string const domain : {"example.com", "example.co.uk", "example.xn--p1ai"})
        agree(HostName("www." + domain, true, true).domain() == domain, domain);
    std::filesystem::remove_all(directory);
    return lists;
}

}  // namespace Quillmark::bench
