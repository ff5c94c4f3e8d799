// Texts that would be addresses, masks or host names if they only came to an end.

#include <string>
#include <string_view>

#include "bench/support/Bench.h"
#include "bench/support/Growth.h"
#include "include2/HostName"
#include "include2/IPAddress"
#include "include2/IPAddressMask"
#include "platform/quill_ip.h"

namespace {

using namespace Quillmark;
using Make = std::function<std::string(std::size_t)>;

Make repeated(std::string_view head, std::string_view part, std::string_view tail = {}) {
    return [=](std::size_t size) {
        std::string text(head);
        text.reserve(size + part.size() + tail.size());
        while (text.size() < size) text += part;
        return text += tail;
    };
}

void address(std::string const& text) {
    ip_addr_t address;
    bench::agree(quill_string_to_ip(text.c_str(), &address) != 1 || text.size() > 6, "no address");
    benchmark::DoNotOptimize(IPAddress::isValidIPAddress(text));
}

void mask(std::string const& text) {
    benchmark::DoNotOptimize(IPAddressMask::isValidIPAddressMask(text));
}

void host(std::string const& text) {
    benchmark::DoNotOptimize(HostName(text, false, false));
    benchmark::DoNotOptimize(HostName(text, true, true));
}

bench::Growth const cases[] = {
    {"address: a number of zeros", repeated("0x", "0"), address},
    {"address: dots", repeated("1.2.3.4", "."), address},
    {"address: colons", repeated("2001:db8::", ":"), address},
    {"address: groups", repeated("2001", ":0"), address},
    {"mask: slashes", repeated("192.0.2.0", "/"), mask},
    {"mask: zeros in the length", repeated("2001:db8::/", "0", "32"), mask},
    {"mask: parts of a netmask", repeated("10.0.0.0/255", ".255"), mask},
    {"host: labels of one letter", repeated("www", ".a", ".com"), host},
    {"host: one label", repeated("w", "a", ".com"), host},
    {"host: dots", repeated("www", ".", "com"), host},
    {"host: labels of umlauts", repeated("www", ".\xc3\xa4", ".com"), host},
    {"host: combining marks in labels of 500",
     [](std::size_t size) {
         std::string label = "a";
         while (label.size() < 1000) label += "\xcc\x81";
         return repeated("", label + ".", "com")(size);
     },
     host},
    {"host: brackets", repeated("[", "[", "]"), host},
};

}  // namespace

int main(int argc, char** argv) {
    return bench::growthMain(argc, argv, cases);
}
