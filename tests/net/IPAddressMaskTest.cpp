#include "include2/IPAddressMask"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>
#include <list>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "include2/quillmark.h"
#include "tests/net/AddressHelperHook.h"
#include "tests/support/Support.h"
#include "tests/support/Threads.h"

using namespace Quillmark;
using QuillmarkTest::askedSecond;
using QuillmarkTest::failureOf;
using QuillmarkTest::fromFourThreads;
using QuillmarkTest::isFree;
using QuillmarkTest::PrintingHook;
using QuillmarkTest::slotOf;
using QuillmarkTest::whileLocked;

// In PrivateAddressFromC.c.
extern "C" int isPrivateFromC(char const* text);

namespace {

IPAddress address(char const* text) {
    return IPAddress(std::string(text));
}

IPAddressMask mask(char const* text) {
    return IPAddressMask(std::string(text));
}

std::string printed(IPAddressMask const& m) {
    std::ostringstream out;
    out << m;
    return out.str();
}

TEST(IPAddressMask, ReadsTextAsTheAddressHelperDoes) {
    EXPECT_EQ(printed(mask("10.0.0.0/8")), "10.0.0.0/8");
    EXPECT_EQ(printed(mask("10.1.2.3/8")), "10.1.2.3/8");
    EXPECT_EQ(printed(mask("10.0.0.0/255.255.0.0")), "10.0.0.0/16");
    EXPECT_EQ(printed(mask("192.0.2.1")), "192.0.2.1/32");
    EXPECT_EQ(printed(mask("2001:DB8::/32")), "2001:db8::/32");
    EXPECT_EQ(printed(mask("::1")), "::1/128");
}

TEST(IPAddressMask, RefusesOtherTextAndNamesItWithoutABlank) {
    for (std::string const& text :
         {std::string("10.0.0.0/33"), std::string("::/129"), std::string("/"), std::string("example/8"),
          std::string("10.0.0.0/"), std::string(" "), std::string("10.0.0.0/8\0", 11),
          std::string("10.0.0.0/8\0/9", 13), std::string("\0", 1)}) {
        EXPECT_EQ(failureOf([&] { IPAddressMask const refused(text); }),
                  "IPAddressMask( 2 ) , IPAddressMask \"Invalid mask:" + text + "\"");
        EXPECT_FALSE(IPAddressMask::isValidIPAddressMask(text)) << text;
    }
}

TEST(IPAddressMask, KnowsValidText) {
    for (char const* const text : {"10.0.0.0/8", "10.0.0.0/255.0.0.0", "10.0.0.1", "::/0", "2001:db8::1"})
        EXPECT_TRUE(IPAddressMask::isValidIPAddressMask(text)) << text;
    EXPECT_FALSE(IPAddressMask::isValidIPAddressMask(""));
}

TEST(IPAddressMask, MakesAMaskThatMatchesNothingOfTheEmptyText) {
    IPAddressMask const empty{std::string()};
    EXPECT_FALSE(empty.isNull());
    EXPECT_FALSE(empty.isV4());
    EXPECT_FALSE(empty.isV6());
    EXPECT_EQ(empty.cidr(), 0U);
    EXPECT_EQ(empty.asIpMask().address.family, 0U);
    EXPECT_EQ(empty.asString(), "");
    EXPECT_EQ(printed(empty), "");
    EXPECT_TRUE(empty.prefix().isNull());
    EXPECT_FALSE(empty.matches(address("0.0.0.0")));
    EXPECT_FALSE(empty.matches(address("::")));
    EXPECT_FALSE(empty.matches(IPAddress(ip_addr_t{})));
    EXPECT_EQ(empty, IPAddressMask(std::string()));
}

TEST(IPAddressMask, TakesAddressAndLengthAsTheyAre) {
    IPAddressMask const loose(ip_addr_t{2, {10, 1, 2, 3}}, 99);
    EXPECT_EQ(loose.cidr(), 99U);
    EXPECT_EQ(loose.asString(), "10.1.2.3/99");
    EXPECT_TRUE(loose.isV4());
    IPAddressMask const record(ip_mask_t{{10, {0xfe, 0x80}}, 10});
    EXPECT_EQ(record.asString(), "fe80::/10");
    EXPECT_TRUE(record.isV6());
    EXPECT_EQ(record.asIpMask().bits, 10U);
    IPAddressMask const unknown(ip_addr_t{7, {1}}, 8);
    EXPECT_EQ(unknown.asIpMask().address.family, 7U);
    EXPECT_FALSE(unknown.matches(address("1.0.0.0")));
    EXPECT_TRUE(unknown.prefix().isNull());
}

TEST(IPAddressMask, GivesTheAddressWithItsHostBitsAsThePrefix) {
    IPAddressMask const four = mask("10.1.2.3/8");
    EXPECT_EQ(four.prefix(), address("10.1.2.3"));
    EXPECT_EQ(&four.prefix(), &four.prefix());
    EXPECT_EQ(mask("2001:db8::1/32").prefix(), address("2001:db8::1"));
    // Only the four bytes of an IPv4 mask are an address.
    IPAddressMask const dirty(ip_addr_t{2, {1, 2, 3, 4, 5}}, 8);
    EXPECT_EQ(dirty.prefix().asIpAddr().address[4], 0);
}

TEST(IPAddressMask, ThrowsWhenNullIsAskedForAnything) {
    IPAddressMask const null;
    for (auto const& call : std::vector<std::function<void()>>{
             [&] { null.asString(); }, [&] { null.prefix(); }, [&] { null.asIpMask(); },
             [&] { null.matches(address("10.0.0.1")); }, [&] { null.matches(IPAddress()); }})
        EXPECT_EQ(failureOf(call), "IPAddressMask( 1 ) , IPAddressMask");
    EXPECT_EQ(failureOf([&] { null.cidr(); }), "IPAddressMask( 2 ) , IPAddressMask \"Null value\"");
}

TEST(IPAddressMask, IsOfNoFamilyAndPrintsAsNothingWhenNull) {
    IPAddressMask const null;
    EXPECT_TRUE(null.isNull());
    EXPECT_FALSE(null.isV4());
    EXPECT_FALSE(null.isV6());
    EXPECT_EQ(printed(null), "");
}

TEST(IPAddressMask, MatchesWhatLiesInTheNetwork) {
    struct Row {
        char const *network, *address;
        bool match;
    };
    for (auto const& [network, text, match] : std::vector<Row>{
             {"10.0.0.0/8", "10.1.2.3", true},
             {"10.0.0.0/8", "11.0.0.0", false},
             {"10.0.0.0/8", "::ffff:10.1.2.3", true},
             {"10.0.0.0/8", "::10.1.2.3", false},
             {"fe80::/10", "fe80::1", true},
             {"fe80::/10", "10.0.0.1", false},
             {"0.0.0.0/0", "1.2.3.4", true},
         })
        EXPECT_EQ(mask(network).matches(address(text)), match) << network << " and " << text;
    EXPECT_FALSE(mask("0.0.0.0/0").matches(IPAddress()));
    EXPECT_FALSE(mask("0.0.0.0/0").matches(IPAddress(ip_addr_t{})));
}

TEST(IPAddressMask, OrdersNullFirstThenByAddressThenByLength) {
    std::vector<IPAddressMask> const ascending{
        IPAddressMask(),    mask(""),     mask("10.0.0.0/8"), mask("10.0.0.0/16"),
        mask("11.0.0.0/0"), mask("::/0"), mask("fe80::/10"),
    };
    for (std::size_t i = 0; i < ascending.size(); ++i)
        for (std::size_t j = 0; j < ascending.size(); ++j) {
            EXPECT_EQ(ascending[i] < ascending[j], i < j) << i << " and " << j;
            EXPECT_EQ(ascending[i] == ascending[j], i == j) << i << " and " << j;
            EXPECT_EQ(ascending[i] != ascending[j], i != j) << i << " and " << j;
        }
    EXPECT_EQ(IPAddressMask(), IPAddressMask());
    EXPECT_FALSE(IPAddressMask() < IPAddressMask());
    EXPECT_EQ(mask("10.0.0.0/8"), mask("10.0.0.0/255.0.0.0"));
}

TEST(IPAddressMask, SharesItsValueWithCopiesAndLeavesNullWhenMoved) {
    IPAddressMask original = mask("10.0.0.0/8");
    IPAddressMask copy;
    copy = original;
    EXPECT_EQ(&copy.asIpMask(), &original.asIpMask());
    IPAddressMask const moved = std::move(original);
    EXPECT_EQ(&moved.asIpMask(), &copy.asIpMask());
    EXPECT_TRUE(original.isNull());  // NOLINT: what a move leaves is promised
}

TEST(IPAddressMask, KeepsFortyEightNulsForTheDaemonsWhereTheHelperFails) {
    IPAddressMask const unprintable = mask("10.0.0.0/8");
    {
        PrintingHook const failing([] { return false; });
        EXPECT_EQ(unprintable.asString(), std::string(48, '\0'));
    }
    EXPECT_EQ(unprintable.asString(), std::string(48, '\0'));
    // A length of ten digits behind a long address does not fit either.
    ip_mask_t tooLong{{10, {}}, 4294967295U};
    std::memset(tooLong.address.address, 0xff, sizeof tooLong.address.address);
    EXPECT_EQ(IPAddressMask(tooLong).asString(), std::string(48, '\0'));
}

TEST(IPAddressMask, AsksTheHelperOnceUnderTheLock) {
    IPAddressMask const shared = mask("10.0.0.0/8");
    IPAddressMask const copy = shared;
    int asked = 0;
    bool free = false;
    PrintingHook const looking([&] {
        ++asked;
        free = isFree(IPAddressMaskImpl::s_lock);
        return true;
    });
    EXPECT_EQ(shared.asString(), "10.0.0.0/8");
    EXPECT_EQ(&copy.asString(), &shared.asString());
    EXPECT_EQ(asked, 1);
    EXPECT_FALSE(free);
}

TEST(IPAddressMask, ReadsWhatIsFinishedWithoutTheLock) {
    IPAddressMask const shared = mask("10.0.0.0/8");
    shared.asString();
    shared.prefix();
    whileLocked(IPAddressMaskImpl::s_lock, [&] {
        EXPECT_EQ(shared.asString(), "10.0.0.0/8");
        EXPECT_EQ(shared.prefix().asString(true), "10.0.0.0");
    });
}

TEST(IPAddressMask, ShowsOtherThreadsNoHalfOfATextOrPrefix) {
    for (int round = 0; round < 50; ++round) {
        IPAddressMask const shared = mask("2001:db8:aaaa:bbbb:cccc:dddd:eeee:ffff/128");
        EXPECT_EQ(fromFourThreads([&] { return shared.prefix().asString(true) + " " + shared.asString(); }),
                  std::vector<std::string>(4,
                                           "2001:db8:aaaa:bbbb:cccc:dddd:eeee:ffff "
                                           "2001:db8:aaaa:bbbb:cccc:dddd:eeee:ffff/128"));
    }
}

TEST(IPAddressMask, AsksTheHelperOnceThoughTwoThreadsFindNoText) {
    IPAddressMask const shared = mask("10.0.0.0/8");
    int asked = 0;
    PrintingHook const counting([&] { return ++asked != 0; });
    EXPECT_EQ(askedSecond(IPAddressMaskImpl::s_lock, [&] { return shared.asString(); }), "10.0.0.0/8");
    EXPECT_EQ(asked, 1);
}

// Made before main() begins.
std::string const printedEarly = mask("10.0.0.0/8").asString();

TEST(IPAddressMask, PrintsWhileStaticsAreMade) {
    EXPECT_EQ(printedEarly, "10.0.0.0/8");
}

TEST(IPAddressMask, ClearsHostBitsInTheAddressItself) {
    IPAddress changed = address("10.1.2.3");
    IPAddress const copy = changed;
    IPAddressMask::applyMask(changed, 16);
    EXPECT_EQ(changed, address("10.1.0.0"));
    EXPECT_EQ(copy, address("10.1.0.0"));
    EXPECT_EQ(copy.asString(true), "10.1.0.0");
    IPAddress six = address("2001:db8:ffff::1");
    IPAddressMask::applyMask(six, 33);
    EXPECT_EQ(six, address("2001:db8:8000::"));
}

TEST(IPAddressMask, KeepsATextThatWasMadeBeforeHostBitsWereClearedForTheDaemons) {
    IPAddress changed = address("10.1.2.3");
    EXPECT_EQ(changed.asString(true), "10.1.2.3");
    IPAddressMask::applyMask(changed, 8);
    EXPECT_EQ(changed.asString(true), "10.1.2.3");
    EXPECT_EQ(changed, address("10.0.0.0"));
    EXPECT_EQ(changed.asStringReversed(true), "0.0.0.10");
}

TEST(IPAddressMask, ClearsNothingBeyondTheWidthAndEverythingAtZero) {
    for (unsigned int const bits : {32U, 33U, 4294967295U}) {
        IPAddress same = address("10.1.2.3");
        IPAddressMask::applyMask(same, bits);
        EXPECT_EQ(same, address("10.1.2.3")) << bits;
    }
    IPAddress cleared = address("10.1.2.3");
    IPAddressMask::applyMask(cleared, 0);
    EXPECT_EQ(cleared, address("0.0.0.0"));
}

TEST(IPAddressMask, LeavesNullAlone) {
    IPAddress null;
    IPAddressMask::applyMask(null, 8);
    EXPECT_TRUE(null.isNull());
}

TEST(IPAddressMaskMulti, MatchesWhenAMemberDoes) {
    IPAddressMask const set(std::list<IPAddressMask>{mask("10.0.0.0/8"), mask("fe80::/10"), mask("")});
    EXPECT_TRUE(set.matches(address("10.1.2.3")));
    EXPECT_TRUE(set.matches(address("fe80::1")));
    EXPECT_FALSE(set.matches(address("11.0.0.0")));
    EXPECT_FALSE(set.matches(IPAddress()));
    IPAddressMask const nested(std::list<IPAddressMask>{mask("192.0.2.0/24"), set});
    EXPECT_TRUE(nested.matches(address("10.1.2.3")));
}

TEST(IPAddressMaskMulti, IsOfNoFamilyHasNoTextNoPrefixAndNoLength) {
    for (std::list<IPAddressMask> const& masks :
         {std::list<IPAddressMask>(), std::list<IPAddressMask>{mask("10.0.0.0/8")}}) {
        IPAddressMask const set(masks);
        EXPECT_FALSE(set.isNull());
        EXPECT_FALSE(set.isV4());
        EXPECT_FALSE(set.isV6());
        EXPECT_EQ(set.asString(), "");
        EXPECT_EQ(printed(set), "");
        EXPECT_TRUE(set.prefix().isNull());
        EXPECT_EQ(set.cidr(), 0U);
        EXPECT_EQ(set.asIpMask().address.family, 11U);
    }
    std::list<IPAddressMask> const none;
    IPAddressMask const one(none);
    IPAddressMask const other(none);
    EXPECT_FALSE(one.matches(address("10.0.0.1")));
    EXPECT_EQ(&one.asString(), &other.asString());
}

TEST(IPAddressMaskMulti, EqualsOnlyItsCopiesAndIsLessThanNothing) {
    std::list<IPAddressMask> const masks{mask("10.0.0.0/8")};
    IPAddressMask const one(masks);
    IPAddressMask const other(masks);
    IPAddressMask const copy = one;
    EXPECT_TRUE(one == copy);
    EXPECT_TRUE(one == static_cast<IPAddressMask const&>(one));
    EXPECT_FALSE(one == other);
    EXPECT_FALSE(one < other);
    EXPECT_FALSE(other < one);
    EXPECT_FALSE(one < copy);
    EXPECT_TRUE(IPAddressMask() < one);
    EXPECT_FALSE(one == mask("10.0.0.0/8"));
}

TEST(IPAddressMaskMulti, AsksItsMembersInOrderAndThrowsAtANullOne) {
    IPAddressMask const set(std::list<IPAddressMask>{mask("10.0.0.0/8"), IPAddressMask()});
    EXPECT_TRUE(set.matches(address("10.0.0.1")));
    EXPECT_EQ(failureOf([&] { set.matches(address("11.0.0.1")); }), "IPAddressMask( 1 ) , IPAddressMask");
    EXPECT_FALSE(set.matches(IPAddress()));
}

TEST(IPAddressMaskMulti, SharesTheValuesOfItsMembers) {
    std::list<IPAddressMask> masks{mask("10.0.0.0/8")};
    IPAddressMaskMulti const set(masks);
    EXPECT_EQ(set.type(), IPAddressMaskImpl::Multi);
    masks.clear();
    EXPECT_TRUE(set.matches(address("10.0.0.1")));
}

TEST(IPAddressMaskImpl, KeepsTheOrderOfItsVirtualOperations) {
    EXPECT_TRUE(std::has_virtual_destructor_v<IPAddressMask>);
    EXPECT_TRUE(std::has_virtual_destructor_v<IPAddressMaskImpl>);
    EXPECT_TRUE(std::has_virtual_destructor_v<PrivateNetworkIdentifier>);
    EXPECT_FALSE(std::is_copy_constructible_v<IPAddressMaskImpl>);
    EXPECT_EQ(slotOf(&IPAddressMaskImpl::prefix), 2U);
    EXPECT_EQ(slotOf(&IPAddressMaskImpl::asString), 3U);
    EXPECT_EQ(slotOf(&IPAddressMaskImpl::matches), 4U);
    EXPECT_EQ(slotOf(&IPAddressMaskImpl::operator==), 5U);
    EXPECT_EQ(slotOf(&IPAddressMaskImpl::operator<), 6U);
}

constexpr std::pair<char const*, bool> privacy[] = {
    {"10.0.0.0", true},    {"10.255.255.255", true},  {"9.255.255.255", false},   {"11.0.0.0", false},
    {"169.254.0.0", true}, {"169.254.1.1", true},     {"169.253.255.255", false}, {"169.255.0.0", false},
    {"172.16.0.0", true},  {"172.31.255.255", true},  {"172.15.255.255", false},  {"172.32.0.1", false},
    {"192.168.1.1", true}, {"192.168.255.255", true}, {"192.167.255.255", false}, {"192.169.0.0", false},
    {"127.0.0.1", true},   {"127.255.255.255", true}, {"126.255.255.255", false}, {"128.0.0.0", false},
    {"8.8.8.8", false},    {"0.0.0.0", false},        {"100.64.0.1", false},
};

TEST(PrivateNetworkIdentifier, KnowsTheFiveNetworks) {
    for (auto const& [text, isPrivate] : privacy)
        EXPECT_EQ(PrivateNetworkIdentifier::instance()->isPrivateAddress(address(text)), isPrivate) << text;
}

TEST(PrivateNetworkIdentifier, AgreesWithTheMasksOfTheFiveNetworks) {
    std::list<IPAddressMask> masks;
    for (std::string const network :
         {"10.0.0.0/8", "169.254.0.0/16", "172.16.0.0/12", "192.168.0.0/16", "127.0.0.0/8"})
        masks.emplace_back(network);
    IPAddressMask const networks(masks);
    for (unsigned int beginning = 0; beginning < 65536; ++beginning) {
        IPAddress const one(beginning << 16 | (beginning * 40503U & 0xffffU), false);
        ASSERT_EQ(PrivateNetworkIdentifier::instance()->isPrivateAddress(one), networks.matches(one)) << one;
    }
}

TEST(PrivateNetworkIdentifier, KnowsIpv6AddressesOnlyWhereTheyMapPrivateOnes) {
    for (auto const& [text, isPrivate] : std::vector<std::pair<char const*, bool>>{{"::1", false},
                                                                                   {"fc00::1", false},
                                                                                   {"fe80::1", false},
                                                                                   {"::10.0.0.1", false},
                                                                                   {"::ffff:10.0.0.1", true},
                                                                                   {"::ffff:8.8.8.8", false}})
        EXPECT_EQ(PrivateNetworkIdentifier::instance()->isPrivateAddress(address(text)), isPrivate) << text;
    EXPECT_FALSE(PrivateNetworkIdentifier::instance()->isPrivateAddress(IPAddress()));
}

TEST(PrivateNetworkIdentifier, IsOneForAllThreads) {
    std::vector<PrivateNetworkIdentifier*> given(4);
    std::vector<std::thread> threads;
    for (auto& one : given) threads.emplace_back([&one] { one = PrivateNetworkIdentifier::instance(); });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(given, std::vector<PrivateNetworkIdentifier*>(4, PrivateNetworkIdentifier::instance()));
}

TEST(PrivateNetworkIdentifier, MayBeHadForOneself) {
    PrivateNetworkIdentifier const own;
    EXPECT_TRUE(own.isPrivateAddress(address("10.1.2.3")));
    EXPECT_FALSE(own.isPrivateAddress(address("11.1.2.3")));
}

TEST(PrivateAddress, AnswersCCallers) {
    for (auto const& [text, isPrivate] : privacy) EXPECT_EQ(isPrivateFromC(text), isPrivate ? 1 : 0) << text;
}

TEST(PrivateAddress, TakesAWordInNetworkOrder) {
    EXPECT_EQ(quill_int_is_private_ip_address(htonl(0xc0a80101U)), 1);
    EXPECT_EQ(quill_int_is_private_ip_address(htonl(0x0101a8c0U)), 0);
}

}  // namespace
