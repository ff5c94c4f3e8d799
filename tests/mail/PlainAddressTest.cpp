#include "mail/PlainAddress.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <utility>
#include <vector>

#include "include2/HostName"
#include "tests/support/ExactTexts.h"

namespace {

using namespace Quillmark;
using QuillmarkTest::onEveryExactText;

// What a kernel finds at the front of a text, as "local|domain", with "+" for a common domain and "^" for
// capitals; "-" for no address.
std::string found(AddressScan const& scan, std::string_view text) {
    PlainAddress address;
    if (!scan.scan(text, address)) return "-";
    std::string line(address.text.substr(0, address.sign));
    (line += '|') += address.domain();
    if (address.hasCommonDomain) line += '+';
    if (address.hasCapitals) line += '^';
    return line;
}

// Mostly an address, with what ends one and what spoils it.
std::string someText(std::mt19937& random, std::size_t size) {
    constexpr std::string_view bytes{"....@@abcdefxXYZ0189-_~= ,<>\"\x01\x7f\x80\xc3\xff"};
    std::size_t const sign = size < 2 ? 0 : random() % size;
    std::string text;
    while (text.size() < size) {
        bool const any = random() % 64 == 0;
        text += any ? bytes[random() % bytes.size()] : static_cast<char>('a' + random() % 26);
        if (text.size() == sign + 1) text.back() = '@';
    }
    return text;
}

}  // namespace

TEST(PlainAddress, IsAtomsAndDotsAroundASign) {
    std::vector<std::pair<std::string, std::string>> const rows{
        {"john.smith@example.com", "john.smith|example.com+"},
        {"j@example.com> and more", "j|example.com+"},
        {".j.@example.com", ".j.|example.com+"},
        {"J@example.com", "J|example.com+^"},
        {"j@Example.com", "j|Example.com+^"},
        {"j@example.com, J@x", "j|example.com+"},
        {"j..s@example.com", "-"},
        {"@example.com", "-"},
        {"john", "-"},
        {"john smith@example.com", "-"},
        {"", "-"},
    };
    for (auto const& [text, address] : rows) EXPECT_EQ(found(addressScans().back(), text), address) << text;
}

TEST(PlainAddress, LeavesADomainThatIsNotCommonToTheHostNames) {
    std::vector<std::pair<std::string, std::string>> const rows{
        {"j@", "j|"},
        {"j@x", "j|x"},
        {"j@yx", "j|yx+"},
        {"j@xx", "j|xx"},
        {"j@.example", "j|.example"},
        {"j@example.c", "j|example.c"},
        {"j@example.com.", "j|example.com."},
        {"j@192.0.2.1", "j|192.0.2.1"},
        {"j@b\xc3\xbc.example", "j|b\xc3\xbc.example"},
        {"j@a..example", "j|a..example+"},
        {"j@a!b.example", "j|a!b.example"},
    };
    for (auto const& [text, address] : rows) EXPECT_EQ(found(addressScans().back(), text), address) << text;
}

TEST(PlainAddress, HasACommonDomainOnlyWhereItIsAHostName) {
    std::mt19937 random(7);
    int common = 0;
    for (int round = 0; round < 50000; ++round) {
        constexpr std::string_view bytes{"..aAfFgx019-_~\x80\xff"};
        std::string text = "j@";
        for (auto more = random() % 8; more != 0; --more) text += bytes[random() % bytes.size()];
        PlainAddress address;
        ASSERT_TRUE(addressScans().back().scan(text, address));
        if (!address.hasCommonDomain) continue;
        ++common;
        ASSERT_TRUE(HostName::isValidHostname(std::string(address.domain()), false)) << text;
    }
    EXPECT_GT(common, 1000);
}

TEST(PlainAddress, EveryKernelFindsWhatThePlainOneFinds) {
    std::mt19937 random(1);
    for (AddressScan const& scan : addressScans()) {
        if (!cpuHas(scan.needs)) continue;
        onEveryExactText(
            0, [&](std::size_t size) { return someText(random, size); },
            [&](std::string_view text) {
                ASSERT_EQ(found(scan, text), found(addressScans().back(), text))
                    << testing::PrintToString(std::string(text));
            });
    }
}
