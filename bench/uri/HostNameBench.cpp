// A name checked and cut into host and registered domain.

#include <libpsl.h>

#include <algorithm>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "bench/support/Bench.h"
#include "bench/uri/SuffixLists.h"
#include "include2/HostName"

namespace {

using namespace Quillmark;

std::vector<std::string> const names{
    "www.example.com",
    "mail.example.org",
    "example.net",
    "smtp-out-12.eu-west.mailer.example.com",
    "shop.example.co.uk",
    "www.example.com.au",
    "lists.example.de",
    "static.cdn.assets.example.io",
    "mx1.example.fr",
    "portal.example.co.jp",
    "a.b.c.d.e.example.info",
    "www.example.com.br",
    "news.example.museum",
    "intranet.corp.example.nl",
    "click.example.email",
    "www.xn--bcher-kva.example.xn--p1ai",
};

struct Parts {
    std::string name, host, domain;
};

// What one would write first: every suffix of the name, the longest first, looked up in a set.
Parts walked(std::set<std::string> const& suffixes, std::string const& text) {
    Parts parts;
    parts.name = text;
    std::transform(text.begin(), text.end(), parts.name.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    std::size_t label = 0;  // where the label in front of the suffix begins
    for (std::size_t dot = parts.name.find('.'); dot != std::string::npos;
         dot = parts.name.find('.', dot + 1)) {
        if (suffixes.count(parts.name.substr(dot + 1)) != 0) {
            parts.domain = parts.name.substr(label);
            if (label != 0) parts.host = parts.name.substr(0, label - 1);
            break;
        }
        label = dot + 1;
    }
    return parts;
}

}  // namespace

int main(int argc, char** argv) {
    auto const lists = bench::usePublicSuffixes();
    std::set<std::string> suffixes = lists.gtld;
    suffixes.insert(lists.cctld.begin(), lists.cctld.end());
    suffixes.insert(lists.idntld.begin(), lists.idntld.end());
    psl_ctx_t* const psl = psl_load_file("/usr/share/publicsuffix/public_suffix_list.dat");
    bench::agree(psl != nullptr, "libpsl has no list");
    for (std::string const& name : names) {
        HostName const host(name, true, true);
        char const* const domain = psl_registrable_domain(psl, name.c_str());
        Parts const walk = walked(suffixes, name);
        bench::agree(!host.isNull() && domain != nullptr && host.domain() == domain, "libpsl: " + name);
        bench::agree(host.domain() == walk.domain && host.host() == walk.host, "std::set: " + name);
    }
    std::string const path = "host and registered domain of a name";
    auto const inTurn = [&](std::string const& who, auto parse) {
        std::size_t next = 0;
        bench::contestant(path, who, [=]() mutable {
            std::string const& name = names[next];
            next = next + 1 == names.size() ? 0 : next + 1;
            return parse(name);
        });
    };
    inTurn("quillmark", [](std::string const& name) {
        HostName const host(name, true, true);
        return host.host().size() + host.domain().size();
    });
    inTurn("libpsl", [=](std::string const& name) { return psl_registrable_domain(psl, name.c_str()); });
    inTurn("std::set", [&](std::string const& name) { return walked(suffixes, name); });
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
