// Host names, addresses and networks. Takes the directory that holds the appliance's files, here the
// lists of top-level domains below etc/.
#include <platform/quill_cfg.h>
#include <include2/HostName>
#include <include2/IPAddress>
#include <include2/IPAddressMask>

#include <iostream>

using namespace Quillmark;

int main(int argc, char** argv) {
    quill_path_root(argc > 1 ? argv[1] : nullptr);

    for (char const* text : {"Mail.Shop.CO.UK",
                             "www.b\xc3\xbc"
                             "cher.example",
                             "192.0.2.1", "trailing.dot."}) {
        HostName const name(text, true, true);
        if (name.isNull())
            std::cout << text << " is no host name\n";
        else
            std::cout << name.asString() << " = " << name.host() << " + " << name.domain() << '\n';
    }

    IPAddress const mapped("::ffff:192.168.1.7");
    std::cout << mapped << " is " << IPAddress::asIPv4(mapped) << ", "
              << (IPAddress::isPrivateAddress(mapped) ? "private" : "public") << '\n';
    IPAddressMask const network("198.51.100.0/24");
    std::cout << network << (network.matches(IPAddress("198.51.100.9")) ? " holds" : " does not hold")
              << " 198.51.100.9\n";
}
