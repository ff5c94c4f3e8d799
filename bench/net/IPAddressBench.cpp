// Addresses between text and record, as a log reader or a list of networks does it by the thousand, and the
// question whether an address is private.

#include <arpa/inet.h>

extern "C" {  // which it leaves to us
#include <libcidr.h>
}

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bench/support/Bench.h"
#include "include2/IPAddress"
#include "platform/quill_ip.h"

namespace {

using namespace Quillmark;

// So many that the processor does not learn them by heart.
constexpr std::size_t count = 8192;

std::vector<ip_addr_t> v4Addresses() {
    bench::Random random(4);
    std::vector<ip_addr_t> addresses(count);
    for (auto& address : addresses) {
        address.family = AF_INET;
        for (int i = 0; i < 4; ++i) address.address[i] = static_cast<std::uint8_t>(random.below(256));
    }
    return addresses;
}

// As they are seen: hosts of a provider's network with a handful of groups, few of them written in full.
std::vector<ip_addr_t> v6Addresses() {
    bench::Random random(6);
    std::vector<ip_addr_t> addresses(count);
    for (auto& address : addresses) {
        address.family = AF_INET6;
        address.address[0] = 0x20;
        address.address[1] = 0x01;
        auto const groups = 2 + random.below(7);  // the rest are zeros
        for (std::size_t group = 1; group < 8; ++group) {
            bool const zero = group >= groups / 2 + 1 && group < 8 - (groups - groups / 2 - 1);
            auto const value = zero ? 0 : random.below(random.below(3) == 0 ? 256 : 65536);
            address.address[2 * group] = static_cast<std::uint8_t>(value >> 8);
            address.address[2 * group + 1] = static_cast<std::uint8_t>(value);
        }
    }
    return addresses;
}

std::vector<std::string> textsOf(std::vector<ip_addr_t> const& addresses) {
    std::vector<std::string> texts;
    for (auto const& address : addresses) {
        std::array<char, INET6_ADDRSTRLEN> text{};
        ::inet_ntop(static_cast<int>(address.family), address.address, text.data(), text.size());
        texts.emplace_back(text.data());
    }
    return texts;
}

void comparePrinting(std::string const& path, std::vector<ip_addr_t> const& addresses) {
    auto const ours = [addresses] {
        std::array<char, INET6_ADDRSTRLEN> text;
        for (auto const& address : addresses) {
            benchmark::DoNotOptimize(quill_ip_to_string(&address, text.data(), text.size(), true));
            benchmark::ClobberMemory();
        }
    };
    auto const theirs = [addresses] {
        std::array<char, INET6_ADDRSTRLEN> text;
        for (auto const& address : addresses) {
            benchmark::DoNotOptimize(
                ::inet_ntop(static_cast<int>(address.family), address.address, text.data(), text.size()));
            benchmark::ClobberMemory();
        }
    };
    for (auto const& address : addresses) {
        std::array<char, INET6_ADDRSTRLEN> a{}, b{};
        quill_ip_to_string(&address, a.data(), a.size(), true);
        ::inet_ntop(static_cast<int>(address.family), address.address, b.data(), b.size());
        bench::agree(std::strcmp(a.data(), b.data()) == 0, path);
    }
    bench::contestant(path, "quillmark", ours, 0, count);
    bench::contestant(path, "inet_ntop", theirs, 0, count);
}

void compareReading(std::string const& path, std::vector<ip_addr_t> const& addresses) {
    auto const texts = textsOf(addresses);
    int const family = static_cast<int>(addresses.front().family);
    auto const ours = [texts] {
        ip_addr_t address;
        for (auto const& text : texts) {
            benchmark::DoNotOptimize(quill_string_to_ip(text.c_str(), &address));
            benchmark::ClobberMemory();
        }
    };
    auto const theirs = [texts, family] {
        ip_addr_t address;
        for (auto const& text : texts) {
            benchmark::DoNotOptimize(::inet_pton(family, text.c_str(), address.address));
            benchmark::ClobberMemory();
        }
    };
    for (std::size_t i = 0; i < count; ++i) {
        ip_addr_t a{}, b{};
        bench::agree(quill_string_to_ip(texts[i].c_str(), &a) == 1 && a.family == addresses[i].family, path);
        bench::agree(::inet_pton(family, texts[i].c_str(), b.address) == 1, path);
        bench::agree(std::memcmp(a.address, b.address, sizeof a.address) == 0, path);
    }
    bench::contestant(path, "quillmark", ours, 0, count);
    bench::contestant(path, "inet_pton", theirs, 0, count);
}

using Cidr = std::shared_ptr<CIDR>;

Cidr cidr(CIDR* made) {
    return {made, cidr_free};
}

// One address in four is private, spread over the networks, in values made before.
void comparePrivate() {
    std::string const path = "private-network test";
    constexpr std::size_t few = 1024;
    auto records = v4Addresses();
    records.resize(few);
    static constexpr std::uint8_t beginnings[][2] = {{10, 1}, {169, 254}, {172, 20}, {192, 168}, {127, 0}};
    for (std::size_t i = 0; i < few; i += 4) std::copy_n(beginnings[i / 4 % 5], 2, records[i].address);

    std::vector<IPAddress> addresses;
    std::vector<Cidr> cidrs, networks;
    for (auto const& record : records) {
        in_addr address{};
        std::memcpy(&address, record.address, sizeof address);
        addresses.emplace_back(address);
        cidrs.push_back(cidr(cidr_from_inaddr(&address)));
    }
    for (char const* network :
         {"10.0.0.0/8", "169.254.0.0/16", "172.16.0.0/12", "192.168.0.0/16", "127.0.0.0/8"})
        networks.push_back(cidr(cidr_from_str(network)));
    auto const isPrivate = [networks](CIDR const* address) {
        return std::any_of(networks.begin(), networks.end(), [address](Cidr const& network) {
            return cidr_contains(network.get(), address) == 0;
        });
    };
    for (std::size_t i = 0; i < few; ++i)
        bench::agree(IPAddress::isPrivateAddress(addresses[i]) == isPrivate(cidrs[i].get()), path);

    auto const ours = [addresses] {
        int found = 0;
        for (auto const& address : addresses) found += IPAddress::isPrivateAddress(address) ? 1 : 0;
        return found;
    };
    auto const theirs = [cidrs, isPrivate] {
        int found = 0;
        for (auto const& address : cidrs) found += isPrivate(address.get()) ? 1 : 0;
        return found;
    };
    bench::contestant(path, "quillmark", ours, 0, few);
    bench::contestant(path, "libcidr", theirs, 0, few);
}

}  // namespace

int main(int argc, char** argv) {
    compareReading("IPv4 text to address", v4Addresses());
    comparePrinting("IPv4 address to text", v4Addresses());
    compareReading("IPv6 text to address", v6Addresses());
    comparePrinting("IPv6 address to text", v6Addresses());
    comparePrivate();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
