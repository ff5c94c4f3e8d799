#include "include2/HostName"

#include <atomic>
#include <thread>

#include "tests/support/DomainLists.h"
#include "tests/support/Support.h"

using namespace Quillmark;
using QuillmarkTest::DomainLists;
using QuillmarkTest::failureOf;

namespace {

/// The name that a text makes, "null" for none.
std::string named(std::string const& text, bool strict) {
    HostName const name(text, false, strict);
    return name.isNull() ? "null" : '"' + name.asString() + '"';
}

/// "host|domain" of a name that is not refused for want of a domain.
std::string parts(HostName const& name) {
    return name.isNull() ? "null" : name.host() + "|" + name.domain();
}

std::string split(std::string const& text) {
    return parts(HostName(text, false, true));
}

std::string const softHyphen = "\u00ad";  // disappears from a name, but counts as a code point

std::string repeated(std::string const& text, std::size_t count) {
    std::string result;
    for (std::size_t i = 0; i < count; ++i) result += text;
    return result;
}

}  // namespace

TEST(HostName, IsNullByDefault) {
    EXPECT_TRUE(HostName().isNull());
}

TEST(HostName, NullFailsInTheNameOfTheCall) {
    HostName const null;
    EXPECT_EQ(failureOf([&] { (void)null.asString(); }), "asString( 1 ) , Hostname");
    EXPECT_EQ(failureOf([&] { (void)null.idn(); }), "idn( 1 ) , Hostname");
    EXPECT_EQ(failureOf([&] { (void)null.host(); }), "host( 1 ) , Hostname");
    EXPECT_EQ(failureOf([&] { (void)null.domain(); }), "domain( 1 ) , Hostname");
    EXPECT_EQ(failureOf([&] { (void)null.isIPAddress(); }), "isIPAddress( 1 ) , Hostname");
}

TEST(HostName, AcceptsAndRefusesText) {
    using namespace std::string_literals;
    struct {
        std::string text;
        std::string strict;
        std::string lenient;
    } const rows[] = {
        {"", "null", "null"},
        {"a", "null", "null"},
        {".", "null", "null"},
        {"ab", "\"ab\"", "\"ab\""},
        {"localhost", "\"localhost\"", "\"localhost\""},
        {"Mail.Example.COM", "\"mail.example.com\"", "\"mail.example.com\""},
        {"_dmarc.x-1.example", "\"_dmarc.x-1.example\"", "\"_dmarc.x-1.example\""},
        {"-a..b-.example", "\"-a..b-.example\"", "\"-a..b-.example\""},
        // The last label needs two bytes.
        {"example.c", "null", "null"},
        {"example.com.", "null", "null"},
        {"a b.c", "null", "null"},
        {"..", "null", "null"},
        {"a.bc", "\"a.bc\"", "\"a.bc\""},
        {"example.\u00fc", "\"example.xn--tda\"", "\"example.xn--tda\""},
        // Without strict, other text is a name as it stands.
        {".example", "null", "\".example\""},
        {"Foo Bar", "null", "\"foo bar\""},
        {"A@B.Example", "null", "\"a@b.example\""},
        {"B\xfc"
         "CHER.example",
         "null",
         "\"b\xfc"
         "cher.example\""},
        {".B\xff.example", "null", "\".b\xff.example\""},
        {"AB\0CD"s, "null", "\"ab\0cd\""s},
        // The byte 0xFF passes in a whole text.
        {"A\xff.Example", "\"a\xff.example\"", "\"a\xff.example\""},
    };
    for (auto const& [text, strict, lenient] : rows) {
        EXPECT_EQ(named(text, true), strict) << text;
        EXPECT_EQ(named(text, false), lenient) << text;
    }
}

TEST(HostName, LowersAsciiLettersOnly) {
    EXPECT_EQ(named("AZ[\xc4\xdf", false), "\"az[\xc4\xdf\"");
}

TEST(HostName, ConvertsInternationalisedText) {
    struct {
        char const* text;
        char const* name;
    } const rows[] = {
        {"b\u00fccher.example", "xn--bcher-kva.example"},
        {"B\u00dcCHER.EXAMPLE", "xn--bcher-kva.example"},
        {"www.b\u00fccher.COM", "www.xn--bcher-kva.com"},
        {"stra\u00dfe.example", "strasse.example"},
        {"\u043f\u0440\u0438\u043c\u0435\u0440.\u0440\u0444", "xn--e1afmkfd.xn--p1ai"},
        {"\u4f8b\u3048.\u30c6\u30b9\u30c8", "xn--r8jz45g.xn--zckzah"},
        // Four dots separate labels.
        {"b\u00fccher\u3002example", "xn--bcher-kva.example"},
        {"b\u00fccher\uff0eexample", "xn--bcher-kva.example"},
        {"b\u00fccher\uff61example", "xn--bcher-kva.example"},
        {"www\u3002example", "www.example"},
        // Only the ASCII dot at the end is refused.
        {"b\u00fccher.example\u3002", "xn--bcher-kva.example."},
    };
    for (auto const& [text, expected] : rows) {
        for (bool const strict : {false, true}) {
            HostName const name(text, false, strict);
            ASSERT_FALSE(name.isNull()) << text;
            EXPECT_EQ(name.asString(), expected) << text;
            EXPECT_EQ(name.idn(), text);
        }
    }
}

TEST(HostName, KeepsTheTextOfInternationalisedNamesOnly) {
    EXPECT_EQ(HostName("xn--bcher-kva.example", false, true).idn(), "");
    EXPECT_EQ(HostName("192.0.2.1", false, true).idn(), "");
    EXPECT_EQ(HostName("foo bar", false, false).idn(), "");
}

// Kept for the daemons: not null, but without text.
TEST(HostName, IsEmptyWhenInternationalisedTextHasNoAsciiForm) {
    std::string const rows[] = {
        "b\u00fccher..example",                     // an empty label
        "\u3002b\u00fccher.example",                // another, at the start
        "\u3002\u3002",                             // two
        softHyphen + ".example",                    // and one that nothing is left of
        "\u00fc" + repeated("a", 60) + ".example",  // more than 63 bytes in ASCII
        repeated("a", 64) + ".\u00fc\u00fc",        // even where it was ASCII before
        "\u05d0a.example",                          // from right to left, and not
        "\u2028x.example",                          // a code point that no name has
    };
    for (std::string const& text : rows) {
        for (bool const strict : {false, true}) {
            HostName const name(text, false, strict);
            ASSERT_FALSE(name.isNull()) << text;
            EXPECT_EQ(name.asString(), "") << text;
            EXPECT_EQ(name.idn(), "") << text;
            EXPECT_EQ(parts(name), "|") << text;
            EXPECT_TRUE(HostName(text, true, strict).isNull()) << text;
        }
    }
}

TEST(HostName, RefusesConvertedTextWithOtherBytesInIt) {
    for (bool const strict : {false, true}) {
        EXPECT_EQ(named("b\u00fc cher.example", strict), "null");
        EXPECT_EQ(named("b\u00fccher@mail.example", strict), "null");
        EXPECT_EQ(named("\u2024example", strict), "null");  // U+2024 becomes "."
    }
    EXPECT_EQ(named("\u3002", true), "null");  // the root alone
    EXPECT_EQ(named("mail\u2024example", true), "\"mail.example\"");
}

TEST(HostName, NeverLosesWhatFollowsANul) {
    DomainLists const lists;
    using namespace std::string_literals;
    for (bool const strict : {false, true}) {
        EXPECT_EQ(named("b\u00fc\0cher.example"s, strict), "null");
        EXPECT_EQ(named("bank.example\0.b\u00fccher.example"s, strict), "null");
    }
    EXPECT_EQ(named("bank.example\0.evil.example"s, true), "null");
    EXPECT_EQ(named("Bank.example\0.Evil.example"s, false), "\"bank.example\0.evil.example\""s);
    EXPECT_EQ(named("192.0.2.1\0.example"s, true), "null");
    EXPECT_EQ(HostName("192.0.2.1\0.example"s, false, false).isIPAddress(), false);
    EXPECT_TRUE(HostName("::1\0.example"s, false, true).isNull());
    HostName const tail("::1\0.example"s, false, false);
    EXPECT_TRUE(tail.isNull() || tail.asString() == "::1\0.example"s);
}

TEST(HostName, ConvertsLabelsOfUpTo1024CodePoints) {
    EXPECT_EQ(named(repeated(softHyphen, 1023) + "\u00fc.example", true), "\"xn--tda.example\"");
    EXPECT_EQ(named(repeated(softHyphen, 1024) + "\u00fc.example", true), "\"\"");
    EXPECT_EQ(named(repeated(softHyphen, 1024) + "u.example", true), "\"\"");
}

TEST(HostName, TakesIPv4LiteralsForAddresses) {
    DomainLists const lists;
    struct {
        char const* text;
        char const* address;
    } const rows[] = {
        {"192.0.2.1", "192.0.2.1"},
        {"1.2.3.4", "1.2.3.4"},  // a last label of one byte
        {"0x7f.0.0.1", "127.0.0.1"},
        {"123456", "0.1.226.64"},
    };
    for (auto const& [text, address] : rows) {
        for (bool const parseDomain : {false, true}) {
            HostName const name(text, parseDomain, true);
            ASSERT_FALSE(name.isNull()) << text;
            EXPECT_TRUE(name.isIPAddress()) << text;
            EXPECT_EQ(name.asString(), address);
            EXPECT_EQ(name.host(), address);
            EXPECT_EQ(name.domain(), address);
        }
    }
}

// Kept for the daemons: its colons make an IPv6 literal one of the other texts.
TEST(HostName, TakesIPv6LiteralsForAddressesUnlessStrict) {
    for (bool const parseDomain : {false, true}) {
        EXPECT_TRUE(HostName("::1", parseDomain, true).isNull());
        HostName const name("2001:DB8::00a1", parseDomain, false);
        EXPECT_TRUE(name.isIPAddress());
        EXPECT_EQ(name.asString(), "2001:db8::a1");
        EXPECT_EQ(parts(name), "2001:db8::a1|2001:db8::a1");
    }
    EXPECT_EQ(parts(HostName("::1", false, false)), "::1|::1");
    EXPECT_TRUE(HostName("::ffff:1.2.3.4", false, false).isIPAddress());  // nor does the short label count
    EXPECT_FALSE(HostName::isValidHostname("::1", false));
    EXPECT_FALSE(HostName::isValidHostname("::1", true));
}

TEST(HostName, OtherNamesAreNoAddresses) {
    DomainLists const lists;
    for (char const* text : {"example.com", "1.2.345", "1.2.3.45.67", "256.256.256.256", "12345"}) {
        HostName const name(text, false, true);
        ASSERT_FALSE(name.isNull()) << text;
        EXPECT_FALSE(name.isIPAddress()) << text;
        EXPECT_EQ(name.asString(), text);
    }
}

TEST(HostName, SplitsAtTheRegisteredDomain) {
    DomainLists const lists("co.uk\ncity.kawasaki.jp\n\xff.uk\n", "com\nuk\njp\ntwo.labels\n", "xn--p1ai\n");
    struct {
        char const* text;
        char const* parts;
    } const rows[] = {
        // No dot.
        {"localhost", "|"},
        {"com", "|"},
        // One dot: the whole name, when its last label is a suffix.
        {"example.com", "|example.com"},
        {"example.xn--p1ai", "|example.xn--p1ai"},
        {"co.uk", "|co.uk"},
        {"example.test", "|"},
        {"two.labels", "|"},
        // More: the last two labels.
        {"Mail.Example.COM", "mail|example.com"},
        {"a.b.mail.example.com", "a.b.mail|example.com"},
        {"mail.example.xn--p1ai", "mail|example.xn--p1ai"},
        {"mail.other.uk", "mail|other.uk"},
        {"a..com", "a|.com"},
        // Or three, when the last two are a country's suffix.
        {"mail.shop.co.uk", "mail|shop.co.uk"},
        {"a.mail.shop.co.uk", "a.mail|shop.co.uk"},
        {"a..co.uk", "a|.co.uk"},
        {"a.city.kawasaki.jp", "a.city|kawasaki.jp"},  // two labels are all that is looked for
        // The host of a name without a registered domain is kept for the daemons.
        {"shop.co.uk", "shop|shop.co.uk"},
        {"mail.example.test", "mail|"},
        {"a.b.mail.example.test", "a.b.mail|"},
        {"mail.two.labels", "mail|"},
    };
    for (auto const& [text, expected] : rows) {
        HostName const name(text, false, true);
        EXPECT_EQ(parts(name), expected) << text;
        EXPECT_EQ(parts(name), expected) << text << ", again";
        EXPECT_FALSE(name.isIPAddress()) << text;
        bool const hasDomain = std::string(expected).back() != '|';
        HostName const parsed(text, true, true);
        EXPECT_EQ(parts(parsed), hasDomain ? expected : "null") << text;
        EXPECT_EQ(HostName::isValidHostname(text, true), hasDomain) << text;
        EXPECT_TRUE(HostName::isValidHostname(text, false)) << text;
    }
}

TEST(HostName, SplitsACountrysSuffixItselfOnlyByTheOtherLists) {
    {
        DomainLists const lists("co.uk\n", "com\n", "");
        EXPECT_EQ(split("co.uk"), "|");
        EXPECT_EQ(split("mail.shop.co.uk"), "mail|shop.co.uk");
    }
    {
        DomainLists const lists("co.uk\n", "", "uk\n");
        EXPECT_EQ(split("co.uk"), "|co.uk");
    }
}

TEST(HostName, SplitsConvertedAndUncheckedNamesAlike) {
    DomainLists const lists;
    EXPECT_EQ(parts(HostName("www.\u043f\u0440\u0438\u043c\u0435\u0440.\u0440\u0444", true, true)),
              "www|xn--e1afmkfd.xn--p1ai");
    EXPECT_EQ(parts(HostName("Foo Bar.Example.COM", true, false)), "foo bar|example.com");
    EXPECT_EQ(parts(HostName("b\u00fccher.example\u3002", false, true)), "xn--bcher-kva|");
    EXPECT_EQ(parts(HostName(".com", true, false)), "|.com");
}

TEST(HostName, SplitsAgainWithTheListsOfTheDay) {
    DomainLists const lists("", "com\n", "");
    HostName const name("mail.shop.co.uk", false, true);
    EXPECT_EQ(name.domain(), "");
    lists.replace("", "uk\n", "");
    EXPECT_EQ(name.domain(), "co.uk");
    EXPECT_EQ(name.host(), "mail.shop");
    lists.replace("co.uk\n", "uk\n", "");
    EXPECT_EQ(name.domain(), "shop.co.uk");
    lists.replace("", "", "");
    EXPECT_EQ(name.host(), "mail.shop");
    EXPECT_EQ(name.domain(), "");
    lists.replace("", "", "uk\n");
    EXPECT_FALSE(name.isIPAddress());
    EXPECT_EQ(name.domain(), "co.uk");
}

TEST(HostName, IsRefusedForWantOfADomainOnlyWhenThatWasAskedFor) {
    DomainLists const lists;
    EXPECT_TRUE(HostName("localhost", true, false).isNull());
    EXPECT_FALSE(HostName("localhost", false, false).isNull());
    EXPECT_FALSE(HostName("192.0.2.1", true, true).isNull());
}

TEST(HostName, CopiesShareTheirTexts) {
    DomainLists const lists;
    HostName const name("mail.example.com", false, true);
    HostName const copy(name);
    HostName assigned;
    assigned = name;
    EXPECT_EQ(&copy.asString(), &name.asString());
    EXPECT_EQ(&assigned.domain(), &name.domain());
    assigned = HostName();
    EXPECT_TRUE(assigned.isNull());
    EXPECT_TRUE(HostName(assigned).isNull());
    EXPECT_EQ(name.asString(), "mail.example.com");
}

TEST(HostName, ComparesByName) {
    auto const name = [](char const* text) { return HostName(text, false, false); };
    HostName const b = name("b.example");
    EXPECT_TRUE(b == HostName(b));
    EXPECT_FALSE(b != HostName(b));
    EXPECT_FALSE(b < HostName(b));
    struct {
        char const* a;
        char const* b;
        int order;
    } const rows[] = {
        {"b.example", "B.Example", 0},   {"a.example", "b.example", -1},        {"b.exam", "b.example", -1},
        {"b.example", "b-x.example", 1}, {"b.example", "\xc3\x28.example", -1},  // bytes have no sign
    };
    for (auto const& [left, right, order] : rows) {
        EXPECT_EQ(name(left) == name(right), order == 0) << left << " " << right;
        EXPECT_EQ(name(left) != name(right), order != 0) << left << " " << right;
        EXPECT_EQ(name(left) < name(right), order < 0) << left << " " << right;
        EXPECT_EQ(name(right) < name(left), order > 0) << left << " " << right;
    }
}

TEST(HostName, NullComesFirstAndEqualsNullOnly) {
    HostName const null;
    HostName const empty("\u3002\u3002", false, true);
    ASSERT_EQ(empty.asString(), "");
    EXPECT_TRUE(null == HostName());
    EXPECT_FALSE(null != HostName());
    EXPECT_FALSE(null < HostName());
    EXPECT_FALSE(null == empty);
    EXPECT_FALSE(empty == null);
    EXPECT_TRUE(null != empty);
    EXPECT_TRUE(null < empty);
    EXPECT_FALSE(empty < null);
}

TEST(HostName, NamesHaveLettersDigitsHyphensDotsAndUnderscores) {
    std::string const members = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._";
    for (int byte = 0; byte < 256; ++byte) {
        char const c = static_cast<char>(byte);
        EXPECT_EQ(HostName::isValidACharacter(c), members.find(c) != std::string::npos) << byte;
    }
}

TEST(HostName, TellsTextOfValidCharacters) {
    using namespace std::string_literals;
    struct {
        std::string text;
        bool valid;
    } const rows[] = {
        {"", true},
        {"mail_1.Example-2", true},
        {"a\xff", true},     // 0xFF is a character of names here
        {".example", true},  // as UTF-8
        {"foo bar", true},   // likewise
        {"a\0b"s, true},     // likewise
        {"b\u00fccher", true},
        {".\xff", false},
        {"a b\xff", false},
        {"b\xfc"
         "cher",
         false},
        {"\xc0\xae", false},      // an overlong dot
        {"\xed\xa0\x80", false},  // a surrogate
        {"\xf4\x90\x80\x80", false},
        {"b\xc3", false},
    };
    for (auto const& [text, valid] : rows)
        EXPECT_EQ(HostName::containsValidCharactersOnly(text), valid) << QuillmarkTest::hex(text);
}

TEST(HostName, ConvertsAsciiFormsBack) {
    using namespace std::string_literals;
    struct {
        std::string text;
        std::string idn;
    } const rows[] = {
        {"", ""},
        {"example.com", "example.com"},
        {"a..b.", "a..b."},
        {"\u3002", "."},
        {"xn--bcher-kva.example", "b\u00fccher.example"},
        {"XN--BCHER-KVA.Example", "B\u00fcCHER.Example"},
        {"xn--e1afmkfd.xn--p1ai", "\u043f\u0440\u0438\u043c\u0435\u0440.\u0440\u0444"},
        {"b\u00fccher\u3002example", "b\u00fccher.example"},
        {"xn--99999999999.example", "xn--99999999999.example"},  // no such form: left alone
        {"b\xfc"
         "cher.example",
         ""},
        {"xn--bcher-kva\0.example"s, ""},
    };
    for (auto const& [text, idn] : rows) EXPECT_EQ(HostName::aceToIDN(text), idn) << text;
}

TEST(HostName, ConvertsLabelsOfUpTo1024CodePointsBack) {
    std::string const longest = repeated("a", 1024) + ".example";
    EXPECT_EQ(HostName::aceToIDN(longest), longest);
    EXPECT_EQ(HostName::aceToIDN("www.a" + longest), "");
}

TEST(HostName, TakesLongTextInLinearTimeOnASmallStack) {
    DomainLists const lists;
    QuillmarkTest::onSmallStack(64 * 1024, [] {
        std::string const labels = repeated("a.", 200'000) + "example.com";
        HostName const name(labels, false, true);
        EXPECT_EQ(name.asString(), labels);
        EXPECT_EQ(name.host().size(), 400'000 - 1);
        EXPECT_EQ(named(repeated(".", 200'000) + "\u00fc", true), "\"\"");
        EXPECT_EQ(named(repeated("\u00fc", 200'000), true), "\"\"");
        EXPECT_EQ(named(repeated("\u00fc.", 200'000) + "com", true).size(), 200'000 * 8 + 5);
        EXPECT_EQ(HostName::aceToIDN(repeated("xn--tda.", 200'000) + "com").size(), 200'000 * 3 + 3);
        EXPECT_EQ(HostName::aceToIDN(repeated("\u00fc", 200'000)), "");
    });
}

TEST(HostNameImpl, SplitsAndKeepsWhatItWasGiven) {
    DomainLists const lists;
    Handle<HostNameImpl> const name(new HostNameImpl("mail.example.com", "idn", false), false);
    EXPECT_EQ(name->count(), 1U);
    name->parse();
    EXPECT_EQ(name->asString() + " " + name->idn() + " " + name->host() + " " + name->domain(),
              "mail.example.com idn mail example.com");
    EXPECT_FALSE(name->isIPAddress());
    Handle<HostNameImpl> const address(new HostNameImpl("192.0.2.1", "", true), false);
    address->parse();
    EXPECT_TRUE(address->isIPAddress());
    EXPECT_EQ(address->host() + " " + address->domain(), "192.0.2.1 192.0.2.1");
}

// What was looked at before is only read afterwards, also while the lists are loaded anew.
TEST(HostName, IsReadByManyThreadsWhileListsAreLoadedAnew) {
    DomainLists const lists;
    HostName const shared("mail.shop.co.uk", true, true);
    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&] {
            while (!stop) {
                if (shared.host() != "mail" || shared.domain() != "shop.co.uk") ++wrong;
                HostName const own("www.example.com", true, true);
                if (own.isNull() || own.domain() != "example.com") ++wrong;
            }
        });
    }
    for (int i = 0; i < 100; ++i) {
        ::quill_cfg_new_generation();
        if (split("a.b.com.au") != "a|b.com.au") ++wrong;
    }
    stop = true;
    for (std::thread& reader : readers) reader.join();
    EXPECT_EQ(wrong, 0);
}
