#include "include2/UriSniffer"

#include <cstdlib>
#include <ctime>
#include <thread>

#include "tests/support/Support.h"

using namespace Quillmark;
using QuillmarkTest::onSmallStack;

namespace {

using Config = UriSniffer::Config;

// The level belongs to the process: every test begins with the one of a fresh process.
class UriSnifferTest : public testing::Test {
protected:
    void SetUp() override { Config::instance(Config::LevelLiberal); }
    void TearDown() override { Config::instance(Config::LevelLiberal); }
};

std::string listed(UriContainer const& links) {
    std::string text;
    for (Uri const& uri : links.hrefs(0)) text += (text.empty() ? "" : " ") + uri.asString();
    return text;
}

std::string found(std::string const& text, bool liberal = false) {
    UriContainer links;
    UriSniffer::search(links, text, 0, liberal);
    return listed(links);
}

struct Row {
    std::string text;
    std::string links;
};

Row const runs[] = {
    {"", ""},
    {"no link", ""},
    {"see http://a.example/, or", "http://a.example/,"},
    {"<a href=http://a.example/>", "http://a.example/"},
    {"<a href=\"http://a.example/\">", "http://a.example/"},
    {"http://a.example/\nhttp://b.example/", "http://a.example/ http://b.example/"},
    {"http://a.example/ http://b.example/ HTTP://A.EXAMPLE/", "http://a.example/ http://b.example/"},
    {"file.", ""},
    {".a.example", "http://a.example"},  // dots before a run are nothing
    {"..a.example", "http://a.example"},
    {"a..b.c", ""},
    {"a..b.example x.example", "http://x.example"},
    {"http://a.example/..", ""},
    {"http://a.example/b.", "http://a.example/b."},
    {"a.b[c", ""},  // a bracket that is not closed, and has no colon
    {"http://a.example/?x[]=1", ""},
    {"http://[::1]/", "http://[::1]/"},
    {"[::1]", "http://[::1]"},
    {"http://u@[::1]:80/a..b", "http://u@[::1]:80/a..b"},
    {"http://[192.0.2.1]:8/", "http://[192.0.2.1]:8/"},
    {"http://[192.0.2.1]/", ""},  // no colon behind the bracket
    {"http://a.example/[x:y]", "http://a.example/[x:y]"},
    {"http://a.example/[x:y", ""},
    {"http://a.example/[x::y", ""},
    {"http://a.example/[x:[y]", ""},
    {"http://a.example/[[x:y]", "http://a.example/[[x:y]"},
    {"http://[::1[]/", ""},
    {"http://[[::1]/", ""},
    {"http://[::1/", ""},
};

TEST_F(UriSnifferTest, CutsTextIntoRuns) {
    for (auto const& [text, links] : runs) EXPECT_EQ(found(text), links) << text;
}

TEST_F(UriSnifferTest, EndsARunAtEveryByteThatCannotStandInALink) {
    std::string const inside =
        "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz:/?#]@$&'()*+,;=-._~%";
    for (int byte = 0; byte < 128; ++byte) {
        char const c = static_cast<char>(byte);
        if (c == '[') continue;  // begins to look for colons
        UriContainer links;
        UriSniffer::search(links, "http://a.example/" + std::string(1, c) + "b.example", 0, false);
        EXPECT_EQ(links.size(), inside.find(c) != std::string::npos ? 1u : 2u) << byte;
    }
}

Row const kinds[] = {
    // Markup in front of a link.
    {"//a.example/x", "http://a.example/x"},
    {"/a.example/x", "http://a.example/x"},
    {"/////www.a.example/x", "http://www.a.example/x"},
    {"href=http://a.example/", "http://a.example/"},
    {"HREF===http://a.example/", "http://a.example/"},
    {"hrefhttp://a.example/", "http://a.example/"},
    {"//href=a.example", ""},
    {"href=.", ""},
    {"//.", ""},

    // Schemes that are known.
    {"HTTP://a.example/", "HTTP://a.example/"},
    {"visit http:/example.com/x", "http://example.com/x"},
    {"HTTP:/example.com/x", "HTTP://example.com/x"},
    {"https://a.example/", "https://a.example/"},
    {"hTTps:/a.example/", "hTTps://a.example/"},
    {"FTP://a.example/", "FTP://a.example/"},
    {"mailto:john@a.example", "mailto:john@a.example"},
    {"MAILTO:john@a.example?subject=x", "mailto:john@a.example?subject=x"},
    {"mailto:john.a.example", ""},
    {"http://a.example.", "http://a.example."},
    {"http://a.", ""},
    {"subject:mailto:john@a.example", "mailto:john@a.example"},
    {"0x7f000001:/.x", "http://0x7f000001:/.x"},
    {"0x7f000001:/.", ""},  // a dot at the end alone makes no name

    // A scheme that was written twice.
    {"http://http://a.example/", "http://a.example/"},
    {"http://HTTP://a.example/", "HTTP://a.example/"},
    {"http://https://a.example/", "https://a.example/"},
    {"http://ftp://a.example/", "ftp://a.example/"},
    {"http://http:/a.example/", ""},
    {"http:/http://a.example/", "http://a.example/"},
    {"http:/http:/http://a.example/", "http://a.example/"},
    {"http:////http://a.example/", "http://a.example/"},
    {"http://href=http://a.example/", "http://a.example/"},
    {"http://a.example/?u=http://b.example/", "http://a.example/?u=http://b.example/"},
    {"http://?http://a.example/", ""},
    {"http://a.example/http://b.example/", ""},  // "a.example/http" is no scheme
    {"http://x://a.example/", "http://a.example/"},
    {"http://http://a.example/?http://b.example/", "http://a.example/?http://b.example/"},
    {"https://https://a.example/", ""},

    // Addresses.
    {"mail john@example.com", "mailto:john@example.com"},
    {"john@example.", ""},
    {"john@example.com.", ""},  // no address ends in a dot
    {"mail John@Example.com, now", "mailto:John@Example.com,"},
    {"write:mailto:john@example.com", "mailto:john@example.com"},
    {"write:MailTo:john@example.com", "mailto:john@example.com"},
    {"jane@example.com/mailto:john@example.com", "mailto:john@example.com"},
    {"www.john@example.com", "mailto:www.john@example.com"},
    {"@example.com", ""},

    // Names without a scheme.
    {"see www.example.com.", "http://www.example.com."},
    {"WWW.example.com/x", "http://WWW.example.com/x"},
    {"www.", ""},
    {"example.org/page", "http://example.org/page"},
    {"example.org.", "http://example.org."},
    {"www.example.org.", "http://www.example.org."},
    {"a.example.org.", "http://a.example.org."},
    {"file.txt", ""},
    {"hxp://a.example/", "http://a.example/"},
    {"ttp://a.example/", "http://a.example/"},
    {"://a.example/", "http://a.example/"},
    {"hxxp://a.example/", ""},
    {"a.example/?u=http://b.example/", ""},
    {"192.0.2.1", "http://192.0.2.1"},
    {"1.2", ""},
};

TEST_F(UriSnifferTest, JudgesARunByItsBeginning) {
    for (auto const& [text, links] : kinds) EXPECT_EQ(found(text), links) << text;
}

TEST_F(UriSnifferTest, TakesABareDomainByLevelAndLiberality) {
    struct {
        Config::Level level;
        bool liberal;
        char const* links;
    } const rows[] = {
        {Config::LevelLiberal, false, "http://example.org/page http://www.example.org mailto:a@b.example"},
        {Config::LevelLiberal, true, "http://example.org/page http://www.example.org mailto:a@b.example"},
        {Config::LevelStrict, false, "http://www.example.org mailto:a@b.example"},
        {Config::LevelStrict, true, "http://example.org/page http://www.example.org mailto:a@b.example"},
    };
    for (auto const& [level, liberal, links] : rows) {
        Config::instance(level);
        EXPECT_EQ(found("example.org/page www.example.org a@b.example", liberal), links) << level << liberal;
    }
}

TEST_F(UriSnifferTest, RepairsASchemeOnlyWhereABareDomainIsTaken) {
    Config::instance(Config::LevelStrict);
    EXPECT_EQ(found("hxp://a.example/"), "");
    EXPECT_EQ(found("hxp://a.example/", true), "http://a.example/");
    EXPECT_EQ(found("http:/a.example/"), "http://a.example/");
}

TEST_F(UriSnifferTest, ReplacesTheConfigurationByOneOfTheAskedLevel) {
    auto const strict = Config::instance(Config::LevelStrict);
    EXPECT_EQ(strict->level(), Config::LevelStrict);
    EXPECT_EQ(Config::instance(Config::LevelCurrent), strict);
    auto const again = Config::instance(Config::LevelStrict);
    EXPECT_NE(again, strict);
    auto const liberal = Config::instance(Config::LevelLiberal);
    EXPECT_EQ(liberal->level(), Config::LevelLiberal);
    EXPECT_EQ(strict->level(), Config::LevelStrict);
    EXPECT_EQ(Config::instance(Config::LevelCurrent), liberal);
}

TEST_F(UriSnifferTest, TakesItsLevelFromInstanceAlone) {
    EXPECT_EQ(Config(Config::LevelStrict).level(), Config::LevelStrict);
    EXPECT_EQ(found("example.org"), "http://example.org");
    EXPECT_EQ(static_cast<UriSniffer::Level>(2), Config::LevelCurrent);
}

// The program starts once more for this one, because a configuration never goes away again.
TEST(UriSnifferDeathTest, IsLiberalBeforeThereIsAConfigurationAndMakesOneWhenAskedForTheCurrent) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            bool const liberal = found("example.org") == "http://example.org";
            bool const made = Config::instance(Config::LevelCurrent)->level() == Config::LevelCurrent;
            bool const strict = found("example.org").empty();
            std::_Exit(liberal && made && strict ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(UriSnifferTest, LooksAtTheAskedBytesOnly) {
    std::string const text = "http://a.example/ http://b.example/path";
    UriContainer links;
    UriSniffer::search(links, text, 1, false);
    EXPECT_EQ(links.size(), 0U);
    UriSniffer::search(links, text, 17, false);
    EXPECT_EQ(listed(links), "http://a.example/");
    UriSniffer::search(links, text, 37, false);
    EXPECT_EQ(listed(links), "http://a.example/ http://b.example/pa");
    UriSniffer::search(links, text, 18446744073709551615u, false);
    EXPECT_EQ(listed(links), "http://a.example/ http://b.example/pa http://b.example/path");
}

TEST_F(UriSnifferTest, SearchesABuffer) {
    UriContainer links;
    UriSniffer::search(links, Buffer("http://a.example/ b.example", 27, false), false);
    EXPECT_EQ(listed(links), "http://a.example/ http://b.example");
    UriSniffer::search(links, Buffer(), false);
    UriSniffer::search(links, Buffer(nullptr, 0, true), false);
    EXPECT_EQ(links.size(), 2u);
    Config::instance(Config::LevelStrict);
    UriSniffer::search(links, Buffer("c.example", 9, false), false);
    EXPECT_EQ(links.size(), 2u);
    UriSniffer::search(links, Buffer("c.example", 9, false), true);
    EXPECT_EQ(links.size(), 3u);
}

TEST_F(UriSnifferTest, AddsToTheListOfTheCurrentIdentifier) {
    UriContainer links;
    for (unsigned long id : {0ul, 1ul}) {
        links.currentId(id);
        UriSniffer::search(links, "http://a.example/ http://a.example/", 0, false);
        EXPECT_EQ(links.hrefs(id).size(), 1u) << id;
    }
    EXPECT_EQ(links.size(), 2u);
}

TEST_F(UriSnifferTest, TakesHighBytesOnlyInUtf8) {
    EXPECT_EQ(found("http://b\xc3\xbc"
                    "cher.example/"),
              "http://xn--bcher-kva.example/");
    EXPECT_EQ(found("http://a.example/\xc3\xbc.txt"), "http://a.example/\xc3\xbc.txt");
    EXPECT_EQ(found("http://a.example/\xfc.txt"), "http://a.example/");
    EXPECT_EQ(found("http://a.example/\xc3\xbc \xff"), "http://a.example/");
    EXPECT_EQ(found("\xc3\xbc.example.org"), "http://xn--tda.example.org");
}

TEST_F(UriSnifferTest, ChecksForUtf8OverTheAskedBytesOnly) {
    std::string const text = "http://a.example/\xc3\xbc \xff";
    UriContainer links;
    UriSniffer::search(links, text, text.size() - 1, false);
    EXPECT_EQ(listed(links), "http://a.example/\xc3\xbc");
}

TEST_F(UriSnifferTest, LetsNothingOutForBadText) {
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte) bytes += static_cast<char>(byte);
    for (std::string const& text : {bytes, std::string("mailto:&#47;.x"), std::string("http:/&#47;."),
                                    std::string("a.%0a"), std::string("mailto:x@y.z?to=((.")}) {
        UriContainer links;
        EXPECT_EQ(QuillmarkTest::failureOf([&] { UriSniffer::search(links, text, 0, true); }),
                  "nothing thrown");
    }
}

std::string repeated(std::string const& text, std::size_t count) {
    std::string result;
    result.reserve(text.size() * count);
    while (count-- != 0) result += text;
    return result;
}

// Whatever is not linear in these takes minutes of the processor.
TEST_F(UriSnifferTest, TakesLinearTimeAndLittleStackForHostileTexts) {
    std::size_t const many = 200'000;
    Row const rows[] = {
        {repeated("http://", many) + "a.example", "http://a.example"},
        {repeated("http:/", many) + "x://a.example", "http://a.example"},
        {repeated("http://href=", many) + "http://a.example", "http://a.example"},
        {repeated("http:////", many) + "http://a.example?", "http://a.example?"},
        {repeated("/", many) + "a.example", "http://a.example"},
        {repeated("a@b.", many), ""},
        {repeated("mailto:", many) + "a@b.example", ""},
        {repeated("[", many) + "a.example", ""},
        {repeated("a.", many) + "nowhere", ""},
        {repeated("a. ", many), ""},
        {repeated("a.example ", many / 10), "http://a.example"},
        {"http://a.example/" + repeated("%41", many) + "&#65;", ""},
    };
    std::clock_t const begin = std::clock();
    for (auto const& [text, links] : rows) {
        onSmallStack(64 * 1024, [&text = text, &links = links] {
            if (links.empty())
                found(text);
            else
                EXPECT_EQ(found(text), links) << text.substr(0, 40);
        });
    }
    EXPECT_LT((std::clock() - begin) / CLOCKS_PER_SEC, 60);
}

TEST_F(UriSnifferTest, TakesLinearTimeForManyDistinctLinks) {
    std::string text;
    for (int i = 0; i < 200'000; ++i) text += "http://example.com/" + std::to_string(i) + ' ';
    UriContainer links;
    std::clock_t const begin = std::clock();
    UriSniffer::search(links, text, 0, false);
    EXPECT_LT((std::clock() - begin) / CLOCKS_PER_SEC, 60);
    EXPECT_EQ(links.size(), 200'000u);
    EXPECT_EQ(links.hrefs(0).back().asString(), "http://example.com/199999");
}

TEST_F(UriSnifferTest, SearchesOnSeveralThreadsWhileTheLevelChanges) {
    auto const searchOften = [] {
        for (int i = 0; i < 100; ++i) EXPECT_EQ(found("http://a.example/"), "http://a.example/");
    };
    std::thread first(searchOften);
    std::thread second(searchOften);
    for (int i = 0; i < 100; ++i) Config::instance(i % 2 == 0 ? Config::LevelStrict : Config::LevelLiberal);
    first.join();
    second.join();
}

}  // namespace
