// What is found in the text of a message, and what is said about it.

#include <algorithm>
#include <nlohmann/json.hpp>

#include "tests/tools/Scans.h"

using namespace QuillmarkTest;

namespace {

constexpr std::size_t sniffedAtOnce = 8U << 20;

/// The report on a message whose text has these fields.
nlohmann::json reportOn(std::string const& fields, std::string const& text) {
    Ran const ran = scan({"--json"}, {"From: a@example.com\n" + fields + "\n" + text, {}, ""});
    return nlohmann::json::parse(ran.out);
}

std::vector<std::string> linksOf(nlohmann::json const& report) {
    std::vector<std::string> links;
    for (auto const& link : report["links"]) links.push_back(link["link"]);
    return links;
}

/// At least so many bytes.
std::string repeated(std::string const& text, std::size_t size) {
    std::string all;
    while (all.size() < size) all += text;
    return all;
}

/// The text in a character set of which each character takes as many bytes.
std::string wide(std::string const& text, std::size_t bytes, bool isBigEndian = false) {
    std::string all;
    for (char const c : text) {
        std::string character(bytes, '\0');
        (isBigEndian ? character.back() : character.front()) = c;
        all += character;
    }
    return all;
}

}  // namespace

TEST(Examine, TearsNoLinkOfALongLine) {
    for (std::string const filler : {"x ", "x\t", "x<", "x!"})
        for (std::size_t const size : {sniffedAtOnce - 30, sniffedAtOnce - 10, sniffedAtOnce - 8})
            EXPECT_EQ(linksOf(reportOn("", repeated(filler, size) + "http://10.0.0.1/evil")),
                      std::vector<std::string>{"http://10.0.0.1/evil"})
                << filler << size;
}

TEST(Examine, TearsNoLinkBetweenBytesOfAnUnknownCharacterSet) {
    for (std::string const filler : {"\xfc", "\xfcx", "\xa4\xa4"})
        for (std::size_t const size : {sniffedAtOnce - 10, sniffedAtOnce - 9, 2 * sniffedAtOnce - 10})
            EXPECT_EQ(linksOf(reportOn("", repeated(filler, size) + "\xfchttp://10.0.0.1/evil\xfc" +
                                               repeated(filler, sniffedAtOnce))),
                      std::vector<std::string>{"http://10.0.0.1/evil"})
                << filler << size;
}

TEST(Examine, MakesNoLinkOfTheEndOfOneThatIsTooLong) {
    for (std::string const filler : {"x", "\xc3\xbc", "x\xc3\xbc\xe2\x82\xac"}) {
        std::string const text =
            repeated(filler, sniffedAtOnce) + "www.example.com/ http://www.example.org/\n";
        EXPECT_EQ(linksOf(reportOn("", text)), std::vector<std::string>{"http://www.example.org/"}) << filler;
    }
}

TEST(Examine, FindsLinksInCharacterSetsByAnyOfTheirNames) {
    struct {
        char const* charset;
        std::size_t bytes;
        bool isBigEndian = false;
    } const rows[] = {
        {"utf16", 2},   {"utf_16", 2},          {"UTF16BE", 2, true},
        {"ucs-2", 2},   {"iso-10646-ucs-2", 2}, {"csUnicode", 2},
        {"utf32le", 4}, {"ucs-4", 4, true},     {"iso-10646-ucs-4", 4, true},
    };
    for (auto const& row : rows)
        EXPECT_EQ(linksOf(reportOn(std::string("Content-Type: text/plain; charset=") + row.charset + "\n",
                                   wide("See http://bc.example.de/\n", row.bytes, row.isBigEndian))),
                  std::vector<std::string>{"http://bc.example.de/"})
            << row.charset;
}

TEST(Examine, ReadsARareCharacterSetInBothWays) {
    // "See http://a.example.com/" in EBCDIC.
    std::string const ebcdic(
        "\xe2\x85\x85\x40\x88\xa3\xa3\x97\x7a\x61\x61\x81\x4b\x85\xa7\x81\x94\x97\x93\x85\x4b"
        "\x83\x96\x94\x61");
    EXPECT_EQ(linksOf(reportOn("Content-Type: text/plain; charset=cp037\n", ebcdic)),
              std::vector<std::string>{"http://a.example.com/"});
    EXPECT_EQ(linksOf(reportOn("Content-Type: text/plain; charset=cp037\n", "See http://a.example.com/")),
              std::vector<std::string>{"http://a.example.com/"});
}

TEST(Examine, KnowsBase64ThatBreaksOffWithinAByte) {
    struct {
        std::string text;
        bool isWhole;
    } const rows[] = {
        {repeated("QUJDQUJD\n", 50000) + "Q\n", false},
        {repeated("QUJDQUJD\n", 50000), true},
        {"QUJDQ", false},
        {"QUJD\nQ\n", false},
        {"QUI=\nQ\n", false},
        {"QUJD\r\nR\r\n", false},
        {"QUJD", true},
        {"QUJDQQ", true},
        {"QUJDQUI", true},
        {"Q\nUJD\n", true},
        {"QUI=\nQUJD", true},
        {"QQ==", true},
        {"", true},
    };
    for (auto const& row : rows) {
        auto const report = reportOn("Content-Transfer-Encoding: base64\n", row.text);
        auto const errors = row.isWhole
                                ? std::vector<std::string>{}
                                : std::vector<std::string>{"part 1: the Base64 breaks off within a byte"};
        EXPECT_EQ(report["errors"], errors) << row.text;
        EXPECT_EQ(report["parts"][0]["md5"].is_string(), row.isWhole) << row.text;
    }
}
