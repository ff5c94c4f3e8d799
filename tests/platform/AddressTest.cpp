// What the library needs of any address-helper library.

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "platform/quill_ip.h"
#include "tests/support/Support.h"

using QuillmarkTest::hex;

// In ContractInC.c.
extern "C" int platformInC(char* text, std::size_t size);

namespace {

ip_addr_t address(std::string const& text) {
    ip_addr_t record{};
    EXPECT_EQ(quill_string_to_ip(text.c_str(), &record), 1) << text;
    return record;
}

ip_mask_t mask(std::string const& text) {
    ip_mask_t record{};
    EXPECT_EQ(quill_string_to_ipmask(text.c_str(), &record), 0) << text;
    return record;
}

// A record as "family bytes" and, for a mask, "/bits".
std::string shown(ip_addr_t const& record) {
    return std::to_string(record.family) + ' ' +
           hex({reinterpret_cast<char const*>(record.address), sizeof record.address});
}

std::string shown(ip_mask_t const& record) {
    return shown(record.address) + '/' + std::to_string(record.bits);
}

std::string printed(ip_addr_t const& record) {
    char buffer[46];
    return quill_ip_to_string(&record, buffer, sizeof buffer, true) == buffer ? buffer : "failed";
}

std::string printed(ip_mask_t const& record) {
    char buffer[48];
    return quill_ipmask_to_string(&record, buffer, sizeof buffer) == buffer ? buffer : "failed";
}

int sign(int number) {
    return (number > 0) - (number < 0);
}

TEST(Address, RecordsHaveTheLayoutThatEveryDaemonKnows) {
    EXPECT_EQ(sizeof(ip_addr_t), 20U);
    EXPECT_EQ(offsetof(ip_addr_t, family), 0U);
    EXPECT_EQ(offsetof(ip_addr_t, address), 4U);
    EXPECT_EQ(sizeof(ip_mask_t), 24U);
    EXPECT_EQ(offsetof(ip_mask_t, address), 0U);
    EXPECT_EQ(offsetof(ip_mask_t, bits), 20U);
}

TEST(Address, ReadsDottedQuadsAndEveryFormOfIpv6) {
    for (auto const& [text, record] : std::vector<std::pair<char const*, char const*>>{
             {"0.0.0.0", "2 00000000000000000000000000000000"},
             {"192.0.2.1", "2 c0000201000000000000000000000000"},
             {"255.255.255.255", "2 ffffffff000000000000000000000000"},
             {"::", "10 00000000000000000000000000000000"},
             {"::1", "10 00000000000000000000000000000001"},
             {"2001:db8::1", "10 20010db8000000000000000000000001"},
             {"2001:DB8:0:0:8:800:200C:417A", "10 20010db80000000000080800200c417a"},
             {"fe80::", "10 fe800000000000000000000000000000"},
             {"1:2:3:4:5:6:7:8", "10 00010002000300040005000600070008"},
             {"::ffff:192.0.2.1", "10 00000000000000000000ffffc0000201"},
             {"::13.1.68.3", "10 0000000000000000000000000d014403"},
         })
        EXPECT_EQ(shown(address(text)), record) << text;
}

TEST(Address, RefusesWhatIsNoAddressAndZeroesTheRecord) {
    for (char const* const text : {"",
                                   " ",
                                   "1",
                                   "1.2",
                                   "1.2.3",
                                   "1.2.3.4.5",
                                   "1.2.3.4 ",
                                   " 1.2.3.4",
                                   "1.2.3.256",
                                   "1.2.3.-4",
                                   "a.b.c.d",
                                   ".1.2.3.4",
                                   "1..2.3",
                                   "example.com",
                                   ":",
                                   ":::",
                                   "1::2::3",
                                   "1:2:3:4:5:6:7",
                                   "1:2:3:4:5:6:7:8:9",
                                   "12345::",
                                   "::g",
                                   "fe80::1%eth0",
                                   "[::1]",
                                   "::1 ",
                                   "::1.2.3",
                                   "::ffff:1.2.3.256",
                                   "1.2.3.4/24",
                                   "1.2.3.4:80"}) {
        ip_addr_t record;
        std::memset(&record, 0xee, sizeof record);
        EXPECT_NE(quill_string_to_ip(text, &record), 1) << text;
        EXPECT_EQ(shown(record), "0 00000000000000000000000000000000") << text;
    }
}

TEST(Address, PrintsTheFormOfRfc5952) {
    for (auto const& [text, canonical] : std::vector<std::pair<char const*, char const*>>{
             {"0.0.0.0", "0.0.0.0"},
             {"255.10.0.1", "255.10.0.1"},
             {"0:0:0:0:0:0:0:0", "::"},
             {"0:0:0:0:0:0:0:1", "::1"},
             {"1:0:0:0:0:0:0:0", "1::"},
             {"2001:0DB8:0:0:0:0:2:1", "2001:db8::2:1"},
             {"2001:db8:0:1:1:1:1:1", "2001:db8:0:1:1:1:1:1"},  // one group of zeros stays
             {"0:1:1:1:1:1:1:0", "0:1:1:1:1:1:1:0"},
             {"2001:0:0:1:0:0:0:1", "2001:0:0:1::1"},        // the longest run
             {"2001:db8:0:0:1:0:0:1", "2001:db8::1:0:0:1"},  // the first of equals
             {"1:2:3:4:5:6:0:0", "1:2:3:4:5:6::"},
             {"0:0:3:4:5:6:7:8", "::3:4:5:6:7:8"},
             {"2001:db8:aaaa:bbbb:cccc:dddd:eeee:AAAA", "2001:db8:aaaa:bbbb:cccc:dddd:eeee:aaaa"},
             {"::ffff:192.0.2.1", "::ffff:192.0.2.1"},
         })
        EXPECT_EQ(printed(address(text)), canonical) << text;
}

TEST(Address, PrintsInto46BytesWhateverTheFlag) {
    ip_addr_t const longest = address("ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff");
    for (bool const flag : {true, false}) {
        char buffer[46];
        ASSERT_EQ(quill_ip_to_string(&longest, buffer, sizeof buffer, flag), buffer);
        EXPECT_STREQ(buffer, "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff");
    }
}

TEST(Address, FailsToPrintAnUnknownFamilyOrIntoTooSmallABuffer) {
    char buffer[46] = {};
    for (std::uint32_t const family : {0U, 1U, 11U}) {
        ip_addr_t const record{family, {}};
        EXPECT_NE(quill_ip_to_string(&record, buffer, sizeof buffer, true), buffer) << family;
    }
    ip_addr_t const record = address("192.0.2.1");
    EXPECT_NE(quill_ip_to_string(&record, buffer, 9, true), buffer);
    EXPECT_EQ(quill_ip_to_string(&record, buffer, 10, true), buffer);
    EXPECT_STREQ(buffer, "192.0.2.1");
    ip_addr_t const longest = address("255.255.255.255");
    EXPECT_NE(quill_ip_to_string(&longest, buffer, 15, true), buffer);
    EXPECT_EQ(quill_ip_to_string(&longest, buffer, 16, true), buffer);
    EXPECT_STREQ(buffer, "255.255.255.255");
}

TEST(Address, ReadsWhatItPrints) {
    for (char const* const text :
         {"1.2.3.4", "::", "::1", "1::", "::ffff:1.2.3.4", "::1.2.3.4", "1:0:0:2::3"}) {
        ip_addr_t const record = address(text);
        EXPECT_EQ(shown(address(printed(record))), shown(record)) << text;
    }
}

TEST(Address, OrdersByFamilyAndThenByBytes) {
    std::vector<ip_addr_t> const ascending{
        ip_addr_t{},          address("0.0.0.0"),   address("1.2.3.4"), address("1.2.3.5"),
        address("127.0.0.1"), address("128.0.0.1"), address("::"),      address("::1"),
        address("7fff::"),    address("8000::"),
    };
    for (std::size_t i = 0; i < ascending.size(); ++i)
        for (std::size_t j = 0; j < ascending.size(); ++j)
            EXPECT_EQ(sign(quill_ip_compare(&ascending[i], &ascending[j])), (i > j) - (i < j))
                << shown(ascending[i]) << " and " << shown(ascending[j]);
}

TEST(AddressMask, ReadsAnAddressAndALength) {
    for (auto const& [text, record] : std::vector<std::pair<char const*, char const*>>{
             {"10.0.0.0/8", "2 0a000000000000000000000000000000/8"},
             {"0.0.0.0/0", "2 00000000000000000000000000000000/0"},
             {"192.0.2.1/32", "2 c0000201000000000000000000000000/32"},
             {"::/0", "10 00000000000000000000000000000000/0"},
             {"2001:db8::/128", "10 20010db8000000000000000000000000/128"},
             {"10.1.2.3/8", "2 0a010203000000000000000000000000/8"},  // host bits stay
         })
        EXPECT_EQ(shown(mask(text)), record) << text;
}

TEST(AddressMask, RefusesWhatIsNoMaskAndZeroesTheRecord) {
    for (char const* const text : {"/",
                                   "/8",
                                   "10.0.0.0/",
                                   "10.0.0.0/33",
                                   "10.0.0.0/-1",
                                   "10.0.0.0/+8",
                                   "10.0.0.0/ 8",
                                   "10.0.0.0/8 ",
                                   "10.0.0.0/8/8",
                                   "10.0.0.0/x",
                                   "10.0.0.0/0x8",
                                   "10.0.0.0/4294967304",
                                   "10.0.0.0/18446744073709551624",
                                   "::/129",
                                   "::/",
                                   "::/255.0.0.0",
                                   "10.0.0/8",
                                   "example/8",
                                   "10.0.0.256/8",
                                   "::g/8"}) {
        ip_mask_t record;
        std::memset(&record, 0xee, sizeof record);
        EXPECT_NE(quill_string_to_ipmask(text, &record), 0) << text;
        EXPECT_EQ(shown(record), "0 00000000000000000000000000000000/0") << text;
    }
}

TEST(AddressMask, PrintsTheAddressAndTheLength) {
    for (char const* const text : {"10.0.0.0/8", "0.0.0.0/0", "10.1.2.3/8", "2001:db8::/32", "::/128"})
        EXPECT_EQ(printed(mask(text)), text);
    EXPECT_EQ(printed(mask("ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff/128")),
              "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff/128");
}

TEST(AddressMask, FailsToPrintAnUnknownFamilyOrIntoTooSmallABuffer) {
    char buffer[48] = {};
    for (std::uint32_t const family : {0U, 11U}) {
        ip_mask_t const record{{family, {}}, 8};
        EXPECT_NE(quill_ipmask_to_string(&record, buffer, sizeof buffer), buffer) << family;
    }
    ip_mask_t const record = mask("10.0.0.0/8");
    EXPECT_NE(quill_ipmask_to_string(&record, buffer, 10), buffer);
    EXPECT_EQ(quill_ipmask_to_string(&record, buffer, 11), buffer);
}

TEST(AddressMask, OrdersByAddressAndThenByLength) {
    std::vector<ip_mask_t> const ascending{
        ip_mask_t{},        mask("10.0.0.0/8"), mask("10.0.0.0/16"), mask("10.0.0.1/8"),
        mask("11.0.0.0/0"), mask("::/0"),       mask("::/1"),        mask("1::/0"),
    };
    for (std::size_t i = 0; i < ascending.size(); ++i)
        for (std::size_t j = 0; j < ascending.size(); ++j)
            EXPECT_EQ(sign(quill_ipmask_compare(&ascending[i], &ascending[j])), (i > j) - (i < j))
                << shown(ascending[i]) << " and " << shown(ascending[j]);
}

TEST(AddressMask, MatchesTheAddressesOfTheNetwork) {
    struct Row {
        char const *network, *address;
        int match;
    };
    for (auto const& [network, text, match] : std::vector<Row>{
             {"10.0.0.0/8", "10.255.255.255", 1},
             {"10.0.0.0/8", "11.0.0.0", 0},
             {"10.1.2.3/8", "10.9.9.9", 1},  // host bits of the mask do not count
             {"172.16.0.0/12", "172.16.0.0", 1},
             {"172.16.0.0/12", "172.31.255.255", 1},
             {"172.16.0.0/12", "172.32.0.0", 0},
             {"172.16.0.0/12", "172.15.255.255", 0},
             {"0.0.0.0/0", "255.1.2.3", 1},
             {"192.0.2.1/32", "192.0.2.1", 1},
             {"192.0.2.1/32", "192.0.2.0", 0},
             {"192.0.2.0/31", "192.0.2.1", 1},
             {"fe80::/10", "febf::1", 1},
             {"fe80::/10", "fec0::1", 0},
             {"::/0", "8000::", 1},
             {"::1/128", "::1", 1},
             {"::1/128", "::", 0},
             {"0.0.0.0/0", "::1", 0},
             {"::/0", "1.2.3.4", 0},
         }) {
        ip_mask_t const network_ = mask(network);
        ip_addr_t const address_ = address(text);
        EXPECT_EQ(quill_ipmask_match(&network_, &address_), match) << network << " and " << text;
    }
}

TEST(AddressMask, MatchesNothingWithoutAFamily) {
    ip_mask_t const none{};
    ip_addr_t const nowhere{};
    ip_addr_t const somewhere = address("0.0.0.0");
    EXPECT_EQ(quill_ipmask_match(&none, &nowhere), 0);
    EXPECT_EQ(quill_ipmask_match(&none, &somewhere), 0);
}

TEST(AddressMask, ClearsTheBitsBeyondTheCount) {
    struct Row {
        char const* before;
        unsigned int bits;
        char const* after;
    };
    for (auto const& [before, bits, after] : std::vector<Row>{
             {"255.255.255.255", 8, "255.0.0.0"},
             {"255.255.255.255", 12, "255.240.0.0"},
             {"255.255.255.255", 31, "255.255.255.254"},
             {"255.255.255.255", 32, "255.255.255.255"},
             {"255.255.255.255", 0, "0.0.0.0"},
             {"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", 33, "ffff:ffff:8000::"},
             {"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", 0, "::"},
             {"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", 127, "ffff:ffff:ffff:ffff:ffff:ffff:ffff:fffe"},
             {"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", 128, "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
         }) {
        ip_addr_t record = address(before);
        quill_ipmask_apply_mask(&record, bits);
        EXPECT_EQ(shown(record), shown(address(after))) << before << " to " << bits;
    }
}

TEST(AddressMask, AppliesToNoAddressAtAll) {
    EXPECT_EXIT((quill_ipmask_apply_mask(nullptr, 8), std::exit(0)), testing::ExitedWithCode(0), "");
}

TEST(Address, WorksFromC) {
    char text[48];
    EXPECT_EQ(platformInC(text, sizeof text), 1);
    EXPECT_STREQ(text, "10.0.0.0/8");
}

}  // namespace
