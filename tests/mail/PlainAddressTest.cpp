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

// What a kernel finds at the front of a text, as "name<local|domain>", with "(" for parentheses in the name,
// "+" for a common domain, "^" for capitals and what follows in the text behind a blank; "-" for no address.
std::string found(AddressScan const& scan, std::string_view text) {
    PlainAddress address;
    if (!scan.scan(text, address)) return "-";
    std::string line(address.name);
    ((line += '<') += address.text.substr(0, address.sign)) += '|';
    (line += address.domain()) += '>';
    if (address.hasParentheses) line += '(';
    if (address.hasCommonDomain) line += '+';
    if (address.hasCapitals) line += '^';
    if (address.end < text.size()) (line += ' ') += text.substr(address.end);
    return line;
}

std::vector<AddressScan> usableScans() {
    std::vector<AddressScan> scans;
    for (AddressScan const& scan : addressScans())
        if (cpuHas(scan.needs)) scans.push_back(scan);
    return scans;
}

// Addresses, some in angle brackets behind a name of some pieces, with what ends and what spoils one.
std::string someText(std::mt19937& random, std::size_t size) {
    constexpr std::string_view bytes{"....@@abcdefxXYZ0189-_~= ,<>\"()\\\x01\x7f\x80\xc3\xff"};
    std::vector<std::string> const pieces{" ",  "First", "Last.", "\"Last, First\"", "\"a\\\"b\"",
                                          "\t", "\r\n",  "(c)",   "\"(c)\"",         "Some Longer Name "};
    auto const letters = [&random, bytes](std::size_t most) {
        std::string word;
        for (auto more = random() % most; more != 0; --more)
            word +=
                random() % 64 == 0 ? bytes[random() % bytes.size()] : static_cast<char>('a' + random() % 26);
        return word;
    };
    std::string text;
    while (text.size() < size) {
        bool const hasName = random() % 2 == 0;
        if (hasName) {
            for (auto more = random() % 5; more != 0; --more) text += pieces[random() % pieces.size()];
            text += '<';
        }
        text += letters(20) + '@' + letters(40) + (hasName ? ">," : ",");
    }
    text.resize(size);
    return text;
}

}  // namespace

TEST(PlainAddress, IsAtomsAndDotsAroundASign) {
    std::vector<std::pair<std::string, std::string>> const rows{
        {"john.smith@example.com", "<john.smith|example.com>+"},
        {"j@example.com> and more", "<j|example.com>+ > and more"},
        {".j.@example.com", "<.j.|example.com>+"},
        {"J@example.com", "<J|example.com>+^"},
        {"j@Example.com", "<j|Example.com>+^"},
        {"j@example.com, J@x", "<j|example.com>+ , J@x"},
        {" \t\r\nj@example.com ", "<j|example.com>+  "},
        {"j..s@example.com", "-"},
        {"@example.com", "-"},
        {"john", "-"},
        {"john smith@example.com", "-"},
        {"", "-"},
        {" ", "-"},
    };
    for (AddressScan const& scan : usableScans())
        for (auto const& [text, address] : rows) EXPECT_EQ(found(scan, text), address) << text;
}

TEST(PlainAddress, MayStandInAngleBracketsBehindAName) {
    std::vector<std::pair<std::string, std::string>> const rows{
        {"<j@example.com>", "<j|example.com>+"},
        {" <j@example.com>, ", "<j|example.com>+ , "},
        {"J. S. <j@example.com>", "J. S.<j|example.com>+"},
        {"j..s <j@example.com>", "j..s<j|example.com>+"},
        {" \"Smith, J.\"\t<j@example.com>x", "\"Smith, J.\"<j|example.com>+ x"},
        {"\"J\"\"\" S<j@example.com>", "\"J\"\"\" S<j|example.com>+"},
        {"\"\\\"J\" <j@example.com>", "\"\\\"J\"<j|example.com>+"},
        {"\"(J)\" <j@example.com>", "\"(J)\"<j|example.com>(+"},
        {"J (a (b)) S(c) <j@example.com>", "J (a (b)) S(c)<j|example.com>(+"},
        {" \r\n J \r\n <j@example.com>", "\r\n J<j|example.com>+"},
        {"\r\n <j@example.com>", "<j|example.com>+"},
        {"J <J@example.com>", "J<J|example.com>+^"},
        {"<j@example.com", "-"},
        {"<j@example.com ", "-"},
        {"<j@example.com,", "-"},
        {"<@example.com>", "-"},
        {"<j..s@example.com>", "-"},
        {"<j>", "-"},
        {"J", "-"},
        {"J \"", "-"},
        {"J (", "-"},
        {"J @ <j@example.com>", "-"},
        {"J, <j@example.com>", "-"},
        {"J <<j@example.com>", "-"},
    };
    for (AddressScan const& scan : usableScans())
        for (auto const& [text, address] : rows) EXPECT_EQ(found(scan, text), address) << text;
}

TEST(PlainAddress, MayBeLongerThanABlock) {
    std::vector<std::pair<std::string, std::string>> const rows{
        {"# <j@example.com>,", "#<j|example.com>+ ,"},
        {"# (c) <j@example.com>,", "# (c)<j|example.com>(+ ,"},
        {"\"#\" <j@example.com>", "\"#\"<j|example.com>+"},
        {"J <#@example.com>", "J<#|example.com>+"},
        {"# <#@example.com>", "#<#|example.com>+"},
        {"#@#.example, j@x", "<#|#.example>+ , j@x"},
        {"#, <j@example.com>", "-"},
        {"# <j@example.com", "-"},
        {"\"# <j@example.com>", "-"},
    };
    auto const widened = [](std::string text) {
        for (std::size_t at = 0; (at = text.find('#', at)) != std::string::npos; at += 70)
            text.replace(at, 1, 70, 'n');
        return text;
    };
    for (AddressScan const& scan : usableScans())
        for (auto const& [text, address] : rows)
            EXPECT_EQ(found(scan, widened(text)), widened(address)) << text;
}

TEST(PlainAddress, LeavesADomainThatIsNotCommonToTheHostNames) {
    std::vector<std::pair<std::string, std::string>> const rows{
        {"j@", "<j|>"},
        {"j@x", "<j|x>"},
        {"j@yx", "<j|yx>+"},
        {"j@xx", "<j|xx>"},
        {"j@.example", "<j|.example>"},
        {"j@example.c", "<j|example.c>"},
        {"j@example.com.", "<j|example.com.>"},
        {"j@192.0.2.1", "<j|192.0.2.1>"},
        {"j@b\xc3\xbc.example", "<j|b\xc3\xbc.example>"},
        {"j@a..example", "<j|a..example>+"},
        {"j@a!b.example", "<j|a!b.example>"},
    };
    for (AddressScan const& scan : usableScans())
        for (auto const& [text, address] : rows) EXPECT_EQ(found(scan, text), address) << text;
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
    for (AddressScan const& scan : usableScans()) {
        onEveryExactText(
            0, [&](std::size_t size) { return someText(random, size); },
            [&](std::string_view text) {
                ASSERT_EQ(found(scan, text), found(addressScans().back(), text))
                    << testing::PrintToString(std::string(text));
            });
    }
}
