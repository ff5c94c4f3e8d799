// quillmark address, uri, links, host and ip, run for real.

#include "tests/tools/Tool.h"

using namespace QuillmarkTest;

namespace {

/// What a command prints, its lines joined with "|" and runs of blanks made one.
std::string shown(std::vector<std::string> arguments, std::string const& input = {}) {
    if (arguments.front() != "address" && arguments.front() != "ip") {
        arguments.emplace_back("--lists");
        arguments.push_back(testLists());
    }
    Ran const ran = quillmark(arguments, {input, {}, ""});
    std::string text = ran.err;
    for (std::string const& line : linesOf(ran.out)) {
        text += text.empty() ? "" : "|";
        for (char const c : line)
            if (c != ' ' || (!text.empty() && text.back() != ' ' && text.back() != '|')) text += c;
    }
    return text + " -> " + std::to_string(ran.status);
}

}  // namespace

TEST(AddressCommand, ReadsAHeaderAndAnEnvelope) {
    EXPECT_EQ(shown({"address", "<John@Example.COM>"}),
              "In a header field|address John@example.com|local part John|domain example.com|"
              "In an envelope|address john@example.com|local part john|domain example.com -> 0");
}

TEST(AddressCommand, ShowsEveryAddressOfAList) {
    EXPECT_EQ(
        shown({"address", "\"Smith, John\" <j@a.example>, Readers: k@b.example;"}),
        "In a header field|address j@a.example|display name \"Smith, John\"|local part j|domain a.example|"
        "address k@b.example|display name Readers:|local part k|domain b.example|"
        "In an envelope|error no path -> 0");
}

TEST(AddressCommand, KnowsABounce) {
    EXPECT_THAT(shown({"address", "<>"}),
                testing::HasSubstr("In an envelope|address <> (nobody: a bounce) -> 0"));
}

TEST(AddressCommand, EndsWithOneForWhatIsNoAddress) {
    EXPECT_EQ(shown({"address", "not an address(("}),
              "In a header field|error no address|In an envelope|error no path -> 1");
}

TEST(AddressCommand, PrintsJson) {
    EXPECT_EQ(shown({"address", "--json", "A <a@b.example>"}),
              R"({"text":"A <a@b.example>","header":[{"name":"A","display_name":"A","address":"a@b.example",)"
              R"("local":"a","domain":"b.example"}],"envelope":null} -> 0)");
}

TEST(UriCommand, ShowsThePartsThatThereAre) {
    EXPECT_EQ(shown({"uri", "HTTP://User:Pw@Www.Example.COM:8080/Path?Q=1#Frag"}),
              "HTTP://User:Pw@Www.Example.COM:8080/Path?Q=1#Frag|scheme http:|user User|password Pw|host www|"
              "registered domain example.com|port 8080|path /Path|query q=1|fragment frag|"
              "canonical http://User:Pw@www.example.com:8080/Path?q=1#frag -> 0");
}

TEST(UriCommand, ShowsTheAddressesAndHeadersOfAMailtoLink) {
    EXPECT_EQ(shown({"uri", "mailto:a@b.example,c@example.com?subject=Hi&cc=e@f.example"}),
              "mailto:a@b.example,c@example.com?subject=Hi&cc=e@f.example|scheme mailto:|user a|"
              "remark no registered domain|addresses a@b.example, c@example.com, e@f.example|"
              "header subject: Hi|header cc: e@f.example|"
              "canonical mailto:a@b.example,c@example.com,e@f.example?subject=Hi&cc=e@f.example -> 0");
}

TEST(UriCommand, RemarksOnTheHost) {
    EXPECT_THAT(shown({"uri", "http://10.1.2.3/"}),
                testing::HasSubstr("|address 10.1.2.3|remark private IP address|"));
    EXPECT_THAT(shown({"uri", "http://203.0.113.9/"}),
                testing::HasSubstr("|address 203.0.113.9|remark IP address|"));
    EXPECT_THAT(shown({"uri", "http://intranet/"}), testing::HasSubstr("|remark no registered domain|"));
    EXPECT_THAT(shown({"uri", "http://co.uk/"}),
                testing::HasSubstr("|registered domain co.uk|remark no registered domain|"));
}

TEST(UriCommand, ShowsAnInternationalisedHostBothWays) {
    EXPECT_THAT(shown({"uri",
                       "http://b\xc3\xbc"
                       "cher.example.com/"}),
                testing::HasSubstr("|host xn--bcher-kva|registered domain example.com|path /|"
                                   "written http://b\xc3\xbc"
                                   "cher.example.com/|"
                                   "canonical http://xn--bcher-kva.example.com/ -> 0"));
}

TEST(UriCommand, EndsWithOneForWhatIsNoUri) {
    EXPECT_EQ(shown({"uri", "www.example.com"}),
              "www.example.com|error no URI: it has no \"//\" and does not begin with \"mailto:\" -> 1");
    EXPECT_EQ(
        shown({"uri", "--json", "www.example.com"}),
        R"({"text":"www.example.com","error":"no URI: it has no \"//\" and does not begin with \"mailto:\"",)"
        R"("link":null,"idn":null,"scheme":null,"name":null,"host":null,"domain":null,"port":null,)"
        R"("ip_literal":false,"private":false,"no_registered_domain":false,"user":null,"password":null,)"
        R"("path":null,"query":null,"fragment":null,"canonical":null,"addresses":[],"headers":[]} -> 1)");
}

TEST(UriCommand, PrintsJson) {
    EXPECT_EQ(
        shown({"uri", "--json", "http://www.example.co.uk/"}),
        R"({"text":"http://www.example.co.uk/","error":null,"link":"http://www.example.co.uk/","idn":null,)"
        R"("scheme":"http:","name":"www.example.co.uk","host":"www","domain":"example.co.uk","port":null,)"
        R"("ip_literal":false,"private":false,"no_registered_domain":false,"user":null,"password":null,)"
        R"("path":"/","query":null,"fragment":null,"canonical":"http://www.example.co.uk/","addresses":[],)"
        R"("headers":[]} -> 0)");
}

TEST(LinksCommand, FindsLinksInItsArgumentOrInStandardInput) {
    std::string const text = "see www.example.com, http://10.0.0.1/x and mail a@example.org";
    std::string const links =
        "http://www.example.com,|http://10.0.0.1/x private IP address|mailto:a@example.org -> 0";
    EXPECT_EQ(shown({"links", text}), links);
    EXPECT_EQ(shown({"links"}, text + "\n"), links);
    EXPECT_EQ(shown({"links", "-"}, text), links);
}

TEST(LinksCommand, TakesBareDomainsUnlessItIsStrict) {
    EXPECT_EQ(shown({"links", "go to example.org/page"}), "http://example.org/page -> 0");
    EXPECT_EQ(shown({"links", "--strict", "go to example.org/page"}), " -> 1");
}

TEST(LinksCommand, PrintsOneJsonObjectALine) {
    EXPECT_EQ(
        shown({"links", "--json", "http://a.example.com/ http://192.168.0.1:81/"}),
        R"({"part":null,"link":"http://a.example.com/","idn":null,"scheme":"http:","name":"a.example.com",)"
        R"("host":"a","domain":"example.com","port":null,"ip_literal":false,"private":false,)"
        R"("no_registered_domain":false}|)"
        R"({"part":null,"link":"http://192.168.0.1:81/","idn":null,"scheme":"http:","name":"192.168.0.1",)"
        R"("host":null,"domain":"192.168.0.1","port":81,"ip_literal":true,"private":true,)"
        R"("no_registered_domain":false} -> 0)");
}

TEST(HostCommand, SplitsANameAtItsRegisteredDomain) {
    struct {
        char const* text;
        char const* shown;
    } const rows[] = {
        {"Mail.Shop.CO.UK", "name mail.shop.co.uk|host mail|registered domain shop.co.uk -> 0"},
        {"example.com", "name example.com|registered domain example.com -> 0"},
        {"co.uk", "name co.uk|remark public suffix: names below it are registered -> 0"},
        {"com", "name com|remark public suffix: names below it are registered -> 0"},
        {"localhost", "name localhost|remark no registered domain -> 0"},
        {"192.0.2.1", "name 192.0.2.1|remark IP address -> 0"},
        {"xn--bcher-kva.de",
         "name xn--bcher-kva.de|internationalised b\xc3\xbc"
         "cher.de|registered domain xn--bcher-kva.de -> 0"},
        {"b\xc3\xbc"
         "cher.de",
         "name xn--bcher-kva.de|internationalised b\xc3\xbc"
         "cher.de|registered domain xn--bcher-kva.de -> 0"},
        {"a b.com", "error no host name -> 1"},
        {"example.c", "error no host name -> 1"},
    };
    for (auto const& row : rows)
        EXPECT_EQ(shown({"host", row.text}), std::string(row.text) + "|" + row.shown);
}

TEST(HostCommand, PrintsJson) {
    EXPECT_EQ(shown({"host", "--json", "www.example.com"}),
              R"({"text":"www.example.com","valid":true,"name":"www.example.com","idn":null,"host":"www",)"
              R"("domain":"example.com","ip_literal":false,"public_suffix":false} -> 0)");
    EXPECT_EQ(
        shown({"host", "--json", "-"}, "x\n"),
        R"({"text":"x","valid":false,"name":null,"idn":null,"host":null,"domain":null,"ip_literal":false,)"
        R"("public_suffix":false} -> 1)");
}

TEST(HostCommand, PassesOnWhatTheLibraryLogs) {
    TemporaryDirectory const place;
    place.write("gtld", "com\n" + std::string(200, 'x') + "\n");
    place.write("cctld", "");
    place.write("idntld", "");
    Ran const ran = quillmark({"host", "--lists", place.path(), "www.example.com"});
    EXPECT_THAT(ran.err, testing::StartsWith("quillmark: DomainNameGenericCodeContainer: "));
    EXPECT_THAT(ran.out, testing::HasSubstr("registered domain  example.com\n"));
}

TEST(IpCommand, ShowsAddressesAndNetworks) {
    struct {
        char const* text;
        char const* shown;
    } const rows[] = {
        {"192.168.1.1", "version IPv4|address 192.168.1.1|reversed 1.1.168.192|kind private -> 0"},
        {"127.0.0.1", "version IPv4|address 127.0.0.1|reversed 1.0.0.127|kind private, loopback -> 0"},
        {"203.0.113.9", "version IPv4|address 203.0.113.9|reversed 9.113.0.203 -> 0"},
        {"10.0.0.0/8", "version IPv4|address 10.0.0.0|prefix length 8|reversed 0.0.0.10|kind private -> 0"},
        {"300.1.1.1", "error Invalid address type -> 1"},
        {"10.0.0.0/33", "error Invalid mask:10.0.0.0/33 -> 1"},
    };
    for (auto const& row : rows) EXPECT_EQ(shown({"ip", row.text}), std::string(row.text) + "|" + row.shown);
}

TEST(IpCommand, ShowsTheIPv4AddressInsideAnIPv6Address) {
    EXPECT_THAT(shown({"ip", "::ffff:10.1.2.3"}),
                testing::HasSubstr("|IPv4 address 10.1.2.3|kind private, IPv4-mapped -> 0"));
    EXPECT_THAT(shown({"ip", "fe80::1"}), testing::HasSubstr("|kind link-local -> 0"));
    EXPECT_THAT(shown({"ip", "ff02::1"}), testing::HasSubstr("|kind multicast -> 0"));
}

TEST(IpCommand, PrintsJson) {
    EXPECT_EQ(shown({"ip", "--json", "10.0.0.0/8"}),
              R"({"text":"10.0.0.0/8","error":null,"version":4,"address":"10.0.0.0","prefix_length":8,)"
              R"("reversed":"0.0.0.10","ipv4":null,"kinds":["private"]} -> 0)");
    EXPECT_EQ(
        shown({"ip", "--json", "x"}),
        R"({"text":"x","error":"Invalid address type","version":null,"address":null,"prefix_length":null,)"
        R"("reversed":null,"ipv4":null,"kinds":[]} -> 1)");
}

TEST(ShowCommands, SayWhenStandardInputCannotBeRead) {
    TemporaryDirectory const place;
    Surroundings directory;
    directory.inputFrom = place.path();
    for (char const* command : {"address", "uri", "links", "host", "ip"}) {
        std::vector<std::string> arguments{command, "-"};
        if (command != std::string("address") && command != std::string("ip"))
            arguments.insert(arguments.end(), {"--lists", testLists()});
        Ran const ran = quillmark(arguments, directory);
        EXPECT_EQ(ran.status, 2) << command;
        EXPECT_EQ(ran.err, "quillmark: standard input: Is a directory\n") << command;
        EXPECT_EQ(ran.out, "") << command;
    }
}

TEST(ShowCommands, WriteOutWhatATerminalWouldObey) {
    EXPECT_THAT(shown({"host", "a\x1b[31m\x7f\xff\xe2\x80\xae.com"}),
                testing::StartsWith("a\\x1b[31m\\x7f\\xff\\u{202e}.com|"));
}
