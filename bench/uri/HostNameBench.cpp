// Host and registered domain: asked of a name that was checked before, as those of links and addresses are,
// and of a text. A name remembers its two parts as long as the lists stay the same.

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
struct Cut {
    std::string_view host, domain;
};

using Suffixes = std::set<std::string, std::less<>>;

// What one would write first: every suffix of the name, the longest first, looked up in a set.
Cut walked(Suffixes const& suffixes, std::string_view name) {
    std::size_t label = 0;  // where the label in front of the suffix begins
    for (std::size_t dot = name.find('.'); dot != name.npos; dot = name.find('.', dot + 1)) {
        if (suffixes.find(name.substr(dot + 1)) != suffixes.end())
            return {name.substr(0, label == 0 ? 0 : label - 1), name.substr(label)};
        label = dot + 1;
    }
    return {};
}

// The same from a text: in lower case, and kept.
Parts kept(Suffixes const& suffixes, std::string const& text) {
    Parts parts;
    parts.name = text;
    std::transform(text.begin(), text.end(), parts.name.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    Cut const cut = walked(suffixes, parts.name);
    parts.host = cut.host;
    parts.domain = cut.domain;
    return parts;
}

}  // namespace

int main(int argc, char** argv) {
    auto const lists = bench::usePublicSuffixes();
    Suffixes suffixes(lists.gtld.begin(), lists.gtld.end());
    suffixes.insert(lists.cctld.begin(), lists.cctld.end());
    suffixes.insert(lists.idntld.begin(), lists.idntld.end());
    psl_ctx_t* const psl = psl_load_file("/usr/share/publicsuffix/public_suffix_list.dat");
    bench::agree(psl != nullptr, "libpsl has no list");
    for (std::string const& name : names) {
        HostName const host(name, true, true);
        char const* const domain = psl_registrable_domain(psl, name.c_str());
        Cut const walk = walked(suffixes, name);
        bench::agree(!host.isNull() && domain != nullptr && host.domain() == domain, "libpsl: " + name);
        bench::agree(host.domain() == walk.domain && host.host() == walk.host, "std::set: " + name);
    }
    // What each of them has is all that differs: a name that was checked before, or a text to be checked
    // first.
    auto const inTurn = [&](std::string const& path, std::string const& who, auto const& all, auto parse) {
        std::size_t next = 0;
        bench::contestant(path, who, [=]() mutable {
            auto const& name = all[next];
            next = next + 1 == all.size() ? 0 : next + 1;
            return parse(name);
        });
    };
    auto const bothOf = [](HostName const& host) { return host.host().size() + host.domain().size(); };
    auto const registrable = [=](std::string const& name) {
        return psl_registrable_domain(psl, name.c_str());
    };

    std::string const ofName = "host and registered domain of a name";
    std::vector<HostName> hosts;
    for (std::string const& name : names) hosts.emplace_back(name, false, true);
    inTurn(ofName, "quillmark", hosts, bothOf);
    inTurn(ofName, "libpsl", names, registrable);
    inTurn(ofName, "std::set", names, [&](std::string const& name) { return walked(suffixes, name); });

    std::string const ofText = "host and registered domain of a text";
    inTurn(ofText, "quillmark", names,
           [=](std::string const& name) { return bothOf(HostName(name, true, true)); });
    inTurn(ofText, "libpsl", names, registrable);
    inTurn(ofText, "std::set", names, [&](std::string const& name) { return kept(suffixes, name); });
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
