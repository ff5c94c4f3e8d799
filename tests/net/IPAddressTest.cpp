#include "include2/IPAddress"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "tests/net/AddressHelperHook.h"
#include "tests/support/Support.h"
#include "tests/support/Threads.h"

using namespace Quillmark;
using QuillmarkTest::askedSecond;
using QuillmarkTest::failureOf;
using QuillmarkTest::FamilyHook;
using QuillmarkTest::fromFourThreads;
using QuillmarkTest::hex;
using QuillmarkTest::isFree;
using QuillmarkTest::PrintingHook;
using QuillmarkTest::slotOf;
using QuillmarkTest::whileLocked;

namespace {

IPAddress address(char const* text) {
    return IPAddress(std::string(text));
}

std::string printed(IPAddress const& a) {
    std::ostringstream out;
    out << a;
    return out.str();
}

std::string bytes(IPAddress const& a) {
    return hex({reinterpret_cast<char const*>(a.asIpAddr().address), 16});
}

in_addr inAddr(char const* text) {
    in_addr record{};
    EXPECT_EQ(::inet_pton(AF_INET, text, &record), 1) << text;
    return record;
}

in6_addr in6Addr(char const* text) {
    in6_addr record{};
    EXPECT_EQ(::inet_pton(AF_INET6, text, &record), 1) << text;
    return record;
}

ip_addr_t withoutFamily() {
    return {0, {1, 2, 3, 4}};
}

TEST(IPAddress, ReadsTextAsTheAddressHelperDoes) {
    EXPECT_EQ(printed(address("192.0.2.1")), "192.0.2.1");
    EXPECT_EQ(printed(address("2001:DB8:0::1")), "2001:db8::1");
    EXPECT_EQ(printed(address("0x7f.0.0.1")), "127.0.0.1");
    EXPECT_EQ(printed(address("2130706433")), "127.0.0.1");
}

TEST(IPAddress, RefusesOtherTextWithTheWordsForABadFamily) {
    for (std::string const& text :
         {std::string(), std::string("1.2.3"), std::string("1.2.3.4 "), std::string("example.com"),
          std::string("1.2.3.4\0", 8), std::string("1.2.3.4\0.5", 10), std::string("::1\0", 4)})
        EXPECT_EQ(failureOf([&] { IPAddress const refused(text); }),
                  "IPAddress( 2 ) , IPAddress \"Invalid address type\"")
            << testing::PrintToString(text);
}

TEST(IPAddress, TakesSystemAddressesAsTheyAre) {
    IPAddress const four(inAddr("192.0.2.1"));
    EXPECT_EQ(four.asIpAddr().family, 2U);
    EXPECT_EQ(bytes(four), "c0000201000000000000000000000000");
    IPAddress const six(in6Addr("2001:db8::1"));
    EXPECT_EQ(six.asIpAddr().family, 10U);
    EXPECT_EQ(bytes(six), "20010db8000000000000000000000001");
}

TEST(IPAddress, TakesNumbersInHostAndInNetworkOrder) {
    IPAddress const host(2130706433U, false);
    IPAddress const network(htonl(2130706433U), true);
    EXPECT_EQ(printed(host), "127.0.0.1");
    EXPECT_EQ(host, network);
    EXPECT_TRUE(IPAddress::isLoopBack(host));
    EXPECT_TRUE(IPAddress::isLoopBack(network));
    EXPECT_EQ(bytes(IPAddress(inAddr("1.2.3.4").s_addr, true)), "01020304000000000000000000000000");
}

TEST(IPAddress, TakesARecordOfFamily2Or10) {
    EXPECT_EQ(printed(ip_addr_t{2, {192, 0, 2, 1}}), "192.0.2.1");
    EXPECT_EQ(printed(ip_addr_t{10, {0xfe, 0x80}}), "fe80::");
    for (unsigned int const family : {1U, 3U, 9U, 11U, 4294967295U})
        EXPECT_EQ(failureOf([&] {
                      IPAddress const refused(ip_addr_t{family, {}});
                  }),
                  "IPAddress( 2 ) , IPAddress \"Invalid address type\"")
            << family;
}

TEST(IPAddress, TakesARecordWithoutFamilyThatIsNotNullAndPrintsAsNothing) {
    IPAddress const none(withoutFamily());
    EXPECT_FALSE(none.isNull());
    EXPECT_FALSE(none.isV4());
    EXPECT_FALSE(none.isV6());
    EXPECT_EQ(none.asString(true), "");
    EXPECT_EQ(none.asString(false), "");
    EXPECT_EQ(none.asStringReversed(true), "");
    EXPECT_EQ(printed(none), "");
    EXPECT_NE(none, IPAddress());
    EXPECT_EQ(bytes(none), "01020304000000000000000000000000");
}

TEST(IPAddress, ThrowsWhenNullIsAskedForAReference) {
    IPAddress const null;
    for (auto const& call :
         std::vector<std::function<void()>>{[&] { null.asString(true); }, [&] { null.asString(false); },
                                            [&] { null.asStringReversed(true); }, [&] { null.asIpAddr(); },
                                            [&] { null.asInAddr(); }, [&] { null.asIn6Addr(); }})
        EXPECT_EQ(failureOf(call), "IPAddress( 1 ) , IPAddress");
}

TEST(IPAddress, IsOfNoFamilyAndPrintsAsNothingWhenNull) {
    IPAddress const null;
    EXPECT_TRUE(null.isNull());
    EXPECT_FALSE(null.isV4());
    EXPECT_FALSE(null.isV6());
    EXPECT_EQ(printed(null), "");
}

TEST(IPAddress, KnowsItsFamily) {
    EXPECT_TRUE(address("1.2.3.4").isV4());
    EXPECT_FALSE(address("1.2.3.4").isV6());
    EXPECT_TRUE(address("::1").isV6());
    EXPECT_FALSE(address("::1").isV4());
}

TEST(IPAddress, GivesItsFirstFourAndAllItsBytesWhateverTheFamily) {
    IPAddress const four = address("192.0.2.1");
    EXPECT_EQ(four.asInAddr().s_addr, inAddr("192.0.2.1").s_addr);
    EXPECT_EQ(static_cast<void const*>(&four.asInAddr()), four.asIpAddr().address);
    EXPECT_EQ(hex({reinterpret_cast<char const*>(&four.asIn6Addr()), 16}),
              "c0000201000000000000000000000000");
    IPAddress const six = address("2001:db8::1");
    EXPECT_EQ(six.asInAddr().s_addr, inAddr("32.1.13.184").s_addr);
    EXPECT_EQ(static_cast<void const*>(&six.asIn6Addr()), six.asIpAddr().address);
    EXPECT_EQ(std::memcmp(&six.asIn6Addr(), six.asIpAddr().address, 16), 0);
}

TEST(IPAddress, KeepsTheTextOfTheFirstCallForTheDaemons) {
    IPAddress const hexadecimal = address("::ffff:192.0.2.1");
    IPAddress const copy = hexadecimal;
    EXPECT_EQ(hexadecimal.asString(false), "::ffff:c000:201");
    EXPECT_EQ(hexadecimal.asString(true), "::ffff:c000:201");
    EXPECT_EQ(&copy.asString(true), &hexadecimal.asString(false));
    EXPECT_EQ(printed(copy), "::ffff:c000:201");
    IPAddress const dotted = address("::ffff:192.0.2.1");
    EXPECT_EQ(printed(dotted), "::ffff:192.0.2.1");
    EXPECT_EQ(dotted.asString(false), "::ffff:192.0.2.1");
}

TEST(IPAddress, KeepsFortySixNulsForTheDaemonsWhereTheHelperFails) {
    IPAddress const unprintable = address("192.0.2.1");
    {
        PrintingHook const failing([] { return false; });
        EXPECT_EQ(unprintable.asString(true), std::string(46, '\0'));
    }
    EXPECT_EQ(unprintable.asString(false), std::string(46, '\0'));
    EXPECT_EQ(printed(unprintable), std::string(46, '\0'));
    EXPECT_EQ(unprintable.asStringReversed(true), "1.2.0.192");
}

TEST(IPAddress, HasNoTextsWhenItIsOfNoFamilyThatAnybodyKnows) {
    FamilyHook const other(99);
    IPAddress const unknown = address("192.0.2.1");
    EXPECT_EQ(unknown.asIpAddr().family, 99U);
    EXPECT_EQ(unknown.asString(true), "");
    EXPECT_EQ(unknown.asStringReversed(true), "");
}

TEST(IPAddress, AsksTheHelperOnceUnderTheLock) {
    IPAddress const shared = address("192.0.2.1");
    IPAddress const copy = shared;
    int asked = 0;
    bool free = false;
    PrintingHook const looking([&] {
        ++asked;
        free = isFree(IPAddressImpl::s_lock);
        return true;
    });
    EXPECT_EQ(shared.asString(true), "192.0.2.1");
    EXPECT_EQ(copy.asString(true), "192.0.2.1");
    EXPECT_EQ(asked, 1);
    EXPECT_FALSE(free);
    EXPECT_TRUE(isFree(IPAddressImpl::s_lock));
}

TEST(IPAddress, ReadsAFinishedTextWithoutTheLock) {
    IPAddress const shared = address("192.0.2.1");
    shared.asString(true);
    shared.asStringReversed(true);
    whileLocked(IPAddressImpl::s_lock, [&] {
        EXPECT_EQ(shared.asString(true), "192.0.2.1");
        EXPECT_EQ(shared.asStringReversed(true), "1.2.0.192");
    });
}

TEST(IPAddress, ShowsOtherThreadsNoHalfOfAText) {
    for (int round = 0; round < 50; ++round) {
        IPAddress const shared = address("2001:db8:aaaa:bbbb:cccc:dddd:eeee:ffff");
        EXPECT_EQ(
            fromFourThreads([&] { return shared.asString(true) + " " + shared.asStringReversed(true); }),
            std::vector<std::string>(4,
                                     "2001:db8:aaaa:bbbb:cccc:dddd:eeee:ffff "
                                     "f.f.f.f.e.e.e.e.d.d.d.d.c.c.c.c.b.b.b.b.a.a.a.a.8.b.d.0.1.0.0.2"));
    }
}

TEST(IPAddress, AsksTheHelperOnceThoughTwoThreadsFindNoText) {
    IPAddress const shared = address("192.0.2.1");
    int asked = 0;
    PrintingHook const counting([&] { return ++asked != 0; });
    EXPECT_EQ(askedSecond(IPAddressImpl::s_lock, [&] { return shared.asString(true); }), "192.0.2.1");
    EXPECT_EQ(asked, 1);
}

// Made before main() begins.
std::string const printedEarly =
    address("192.0.2.1").asString(true) + address("192.0.2.1").asStringReversed(true);

TEST(IPAddress, PrintsWhileStaticsAreMade) {
    EXPECT_EQ(printedEarly, "192.0.2.11.2.0.192");
}

TEST(IPAddress, ReversesIpv4ByBytesAndIpv6ByNibbles) {
    for (auto const& [text, reversed] : std::vector<std::pair<char const*, char const*>>{
             {"192.0.2.1", "1.2.0.192"},
             {"10.20.30.40", "40.30.20.10"},
             {"255.255.255.255", "255.255.255.255"},
             {"::1", "1.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0"},
             {"2001:db8::567:89ab", "b.a.9.8.7.6.5.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.8.b.d.0.1.0.0.2"},
             {"fedc:ba98:7654:3210:fedc:ba98:7654:3210",
              "0.1.2.3.4.5.6.7.8.9.a.b.c.d.e.f.0.1.2.3.4.5.6.7.8.9.a.b.c.d.e.f"},
         })
        for (bool const flag : {true, false}) {
            IPAddress const fresh = address(text);
            EXPECT_EQ(fresh.asStringReversed(flag), reversed) << text;
            EXPECT_EQ(&fresh.asStringReversed(!flag), &fresh.asStringReversed(flag)) << text;
        }
}

TEST(IPAddress, TellsValidTextFromOther) {
    for (auto const& [text, valid] : std::vector<std::pair<std::string, bool>>{
             {"1.2.3.4", true},
             {"255.255.255.255", true},
             {"::1", true},
             {"::", true},
             {"2001:DB8::1", true},
             {"::ffff:1.2.3.4", true},
             {"123456", true},
             {"2130706433", true},
             {"0x7f.0.0.1", true},
             {"0X7F.0.0.1", true},
             {"0x7f000001", true},
             {"0177.0.0.1", true},
             {"", false},
             {"1.2.3", false},  // five characters
             {"12345", false},
             {"0.0.0", false},
             {"1.2.3.4.5", false},  // four dots
             {"127.0.1", false},    // two dots
             {"123.456", false},    // one dot
             {"1.2.3.4 ", false},
             {" 1.2.3.4", false},
             {"1.2.3.4\n", false},
             {"1.2.3.256", false},
             {"1.2..3", false},
             {"abcdef", false},  // letters that no number begins with
             {"4294967296", false},
             {"g.2.3.4", false},
             {"1.2.3.-4", false},
             {"::1 ", false},
             {":::", false},
             {"fe80::1%lo", false},
             {"[::1]", false},
             {"1:2", false},
             {std::string("1.2.3.4\0", 8), false},
             {std::string("::1\0", 4), false},
             {std::string("::1\0 and more", 13), false},
         }) {
        EXPECT_EQ(IPAddress::isValidIPAddress(text), valid) << testing::PrintToString(text);
        // Whatever is valid constructs, and nothing else does.
        EXPECT_EQ(failureOf([&, &given = text] { IPAddress const made(given); }) == "nothing thrown", valid)
            << testing::PrintToString(text);
    }
}

TEST(IPAddress, ValidatesInTimeInProportionToTheText) {
    EXPECT_FALSE(IPAddress::isValidIPAddress(std::string(1'000'000, '1')));
    EXPECT_FALSE(IPAddress::isValidIPAddress(std::string(1'000'000, '.')));
    EXPECT_FALSE(IPAddress::isValidIPAddress(std::string(1'000'000, ':')));
}

TEST(IPAddress, OrdersNullThenNoFamilyThenIpv4ThenIpv6) {
    std::vector<IPAddress> const ascending{
        IPAddress(),         withoutFamily(),      address("0.0.0.0"), address("9.255.255.255"),
        address("10.0.0.0"), address("200.0.0.0"), address("::"),      address("::1"),
        address("fe80::"),
    };
    for (std::size_t i = 0; i < ascending.size(); ++i)
        for (std::size_t j = 0; j < ascending.size(); ++j) {
            EXPECT_EQ(ascending[i] < ascending[j], i < j) << i << " and " << j;
            EXPECT_EQ(ascending[i] == ascending[j], i == j) << i << " and " << j;
            EXPECT_EQ(ascending[i] != ascending[j], i != j) << i << " and " << j;
        }
}

TEST(IPAddress, ComparesByValueAndSharedValuesWithoutALook) {
    IPAddress const one = address("192.0.2.1");
    IPAddress const same = address("192.0.2.1");
    IPAddress const copy = one;
    EXPECT_EQ(one, same);
    EXPECT_EQ(one, copy);
    EXPECT_FALSE(one < same);
    EXPECT_FALSE(one < copy);
    EXPECT_EQ(IPAddress(), IPAddress());
    EXPECT_FALSE(IPAddress() < IPAddress());
    EXPECT_NE(address("::ffff:192.0.2.1"), one);
}

TEST(IPAddress, ServesAsAKey) {
    std::map<IPAddress, int> seen;
    ++seen[address("192.0.2.1")];
    ++seen[address("::1")];
    ++seen[address("192.0.2.1")];
    EXPECT_EQ(seen.size(), 2U);
    EXPECT_EQ(seen[address("192.0.2.1")], 2);
}

TEST(IPAddress, SharesItsValueWithCopiesAndLeavesNullWhenMoved) {
    IPAddress original = address("192.0.2.1");
    IPAddress copy = original;
    IPAddress assigned;
    assigned = copy;
    EXPECT_EQ(&copy.asIpAddr(), &original.asIpAddr());
    EXPECT_EQ(&assigned.asIpAddr(), &original.asIpAddr());
    IPAddress const moved = std::move(original);
    EXPECT_EQ(&moved.asIpAddr(), &copy.asIpAddr());
    EXPECT_TRUE(original.isNull());  // NOLINT: what a move leaves is promised
    copy = IPAddress();
    EXPECT_TRUE(copy.isNull());
    EXPECT_EQ(printed(assigned), "192.0.2.1");
}

TEST(IPAddress, TakesTheIpv4AddressOutOfMappedAndCompatibleOnes) {
    EXPECT_EQ(printed(IPAddress::asIPv4(address("::ffff:10.1.2.3"))), "10.1.2.3");
    EXPECT_EQ(printed(IPAddress::asIPv4(address("::10.1.2.3"))), "10.1.2.3");
    EXPECT_TRUE(IPAddress::asIPv4(address("::ffff:10.1.2.3")).isV4());
    EXPECT_EQ(bytes(IPAddress::asIPv4(address("::ffff:10.1.2.3"))), "0a010203000000000000000000000000");
    for (char const* const text : {"2001:db8::1", "::", "::1", "::fffe:10.1.2.3", "1::ffff:10.1.2.3"})
        EXPECT_EQ(failureOf([&] { IPAddress::asIPv4(address(text)); }),
                  "IPAddress( 2 ) , IPAddress \"Address cannot be cast to IPv4\"")
            << text;
}

TEST(IPAddress, GivesBackWhatIsIpv4OrNoAddressAsItIs) {
    for (IPAddress const& same : {address("10.1.2.3"), IPAddress(withoutFamily())})
        EXPECT_EQ(&IPAddress::asIPv4(same).asIpAddr(), &same.asIpAddr());
    EXPECT_TRUE(IPAddress::asIPv4(IPAddress()).isNull());
}

TEST(IPAddress, MapsIpv4AndGivesBackAnythingElse) {
    IPAddress const mapped = IPAddress::asIPv4Mapped(address("10.1.2.3"));
    EXPECT_TRUE(mapped.isV6());
    EXPECT_EQ(bytes(mapped), "00000000000000000000ffff0a010203");
    EXPECT_EQ(IPAddress::asIPv4(mapped), address("10.1.2.3"));
    for (IPAddress const& same : {address("::1"), mapped, IPAddress(withoutFamily())})
        EXPECT_EQ(&IPAddress::asIPv4Mapped(same).asIpAddr(), &same.asIpAddr());
    EXPECT_TRUE(IPAddress::asIPv4Mapped(IPAddress()).isNull());
}

// The classes of an address by name.
std::string classes(IPAddress const& a) {
    std::string names;
    auto const add = [&](bool is, char const* name) {
        if (is) names += (names.empty() ? "" : " ") + std::string(name);
    };
    add(IPAddress::isLoopBack(a), "loopback");
    add(IPAddress::isSiteLocal(a), "site");
    add(IPAddress::isLinkLocal(a), "link");
    add(IPAddress::isMultiCast(a), "multicast");
    add(IPAddress::isV4Mapped(a), "mapped");
    add(IPAddress::isV4Compatible(a), "compatible");
    add(IPAddress::isPrivateAddress(a), "private");
    return names;
}

TEST(IPAddress, Classifies) {
    for (auto const& [text, names] : std::vector<std::pair<char const*, char const*>>{
             {"8.8.8.8", ""},
             {"127.0.0.1", "loopback private"},
             {"127.0.0.2", "private"},  // kept for the daemons: loopback is one address
             {"10.0.0.1", "private"},
             {"169.254.1.1", "private"},  // kept for the daemons: link-local is for IPv6
             {"172.31.255.255", "private"},
             {"172.32.0.1", ""},
             {"192.168.1.1", "private"},
             {"224.0.0.1", ""},  // kept for the daemons: multicast is for IPv6
             {"254.128.0.1", ""},
             {"255.0.0.1", ""},
             {"0.0.0.0", ""},
             {"::", ""},
             {"::1", "loopback"},
             {"1::1", ""},
             {"::2", "compatible"},
             {"::10.0.0.1", "compatible"},
             {"::255.255.255.255", "compatible"},
             {"::1:0:0", ""},
             {"::ffff:8.8.8.8", "mapped"},
             {"::ffff:0.0.0.0", "mapped"},
             {"::ffff:10.0.0.1", "mapped private"},
             {"::ffff:127.0.0.1", "mapped private"},
             {"::feff:8.8.8.8", ""},
             {"1::ffff:8.8.8.8", ""},
             {"::1:ffff:808:808", ""},
             {"fe7f::", ""},
             {"fe80::", "link"},
             {"febf:ffff::", "link"},
             {"fec0::", "site"},
             {"feff:ffff::", "site"},
             {"fe00::", ""},
             {"fd80::1", ""},
             {"ff00::", "multicast"},
             {"ffff::1", "multicast"},
             {"fc00::1", ""},
         })
        EXPECT_EQ(classes(address(text)), names) << text;
    EXPECT_EQ(classes(IPAddress()), "");
    EXPECT_EQ(classes(withoutFamily()), "");
}

TEST(IPAddressImpl, HoldsTheRecordAndItsFamily) {
    EXPECT_EQ(IPAddressImpl(std::string("1.2.3.4")).type(), IPAddressImpl::IPv4);
    EXPECT_EQ(IPAddressImpl(in6Addr("::1")).type(), 10U);
    EXPECT_EQ(IPAddressImpl(withoutFamily()).type(), 0U);
    EXPECT_EQ(IPAddressImpl(inAddr("1.2.3.4")).asIpAddr().address[3], 4);
    EXPECT_TRUE(IPAddressImpl(16909060U, false) == IPAddressImpl(std::string("1.2.3.4")));
    EXPECT_TRUE(IPAddressImpl(std::string("1.2.3.3")) < IPAddressImpl(std::string("1.2.3.4")));
}

TEST(IPAddressImpl, KeepsTheOrderOfItsVirtualOperations) {
    EXPECT_TRUE(std::has_virtual_destructor_v<IPAddress>);
    EXPECT_TRUE(std::has_virtual_destructor_v<IPAddressImpl>);
    EXPECT_FALSE(std::is_copy_constructible_v<IPAddressImpl>);
    EXPECT_EQ(slotOf(&IPAddressImpl::asString), 2U);
    EXPECT_EQ(slotOf(&IPAddressImpl::asReverseString), 3U);
    EXPECT_EQ(slotOf(&IPAddressImpl::operator==), 4U);
    EXPECT_EQ(slotOf(&IPAddressImpl::operator<), 5U);
}

}  // namespace
