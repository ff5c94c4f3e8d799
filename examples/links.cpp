// Which links does a text carry, and where do they lead? Takes the directory that holds the
// appliance's files, here the lists of top-level domains below etc/.
#include <platform/quill_cfg.h>
#include <include2/IPAddress>
#include <include2/UriSniffer>

#include <iostream>
#include <string>

using namespace Quillmark;

int main(int argc, char** argv) {
    quill_path_root(argc > 1 ? argv[1] : nullptr);

    UriContainer links;
    links.currentId(1);  // one list per part of a message
    std::string const text = R"(Visit http:/Shop.Example.COM/a?ID=1 or www.example.co.uk, see
        <a href=http://10.0.0.1/x>here</a>, again HTTP://shop.example.com/a?id=1 ;
        mail to john@example.org )";
    UriSniffer::search(links, text, 0, true);

    for (Uri const& link : links.hrefs(1)) {
        std::cout << link.canonicalized() << "  host " << link.hostname();
        if (link.hostnameIsAnIpAddress() && IPAddress::isPrivateAddress(IPAddress(link.hostname())))
            std::cout << "  private address";
        else
            std::cout << "  registered domain " << link.domain();
        std::cout << '\n';
    }
}
