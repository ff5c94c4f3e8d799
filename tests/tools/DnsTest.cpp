// quillmark dns, run for real, asking a name server of the tests' own.

#include <nlohmann/json.hpp>

#include "tests/net/DnsResponder.h"
#include "tests/tools/Tool.h"

using namespace QuillmarkTest;

namespace {

/// Asks the responder; what does not come is waited for one second.
Ran ask(DnsResponder const& server, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "dns");
    for (std::string const& more : {std::string("--server"), server.addressText(), std::string("--port"),
                                    std::to_string(server.port())})
        arguments.push_back(more);
    return quillmark(arguments, {"", {{"RES_OPTIONS", "timeout:1 attempts:1"}}, ""});
}

std::string const here = pointer(12);  // where the name of the question stands

/// One record of each kind that the library takes apart, and one that it does not.
std::string everything(Asked const& asked) {
    return answer(
        asked, {record(here, 1, "\x0a\x01\x02\x03"), record(here, 15, u16(10) + name("mx.example.com")),
                record(here, 16, "\x03one\x03two"),
                record(here, 6,
                       name("ns.example.com") + name("root.example.com") + u32(1) + u32(2) + u32(3) + u32(4) +
                           u32(5)),
                record(here, 33, u16(1) + u16(2))});
}

}  // namespace

TEST(DnsCommand, PrintsTheAnswerInTheLibrarysLayout) {
    DnsResponder server("127.0.0.1", everything);
    Ran const ran = ask(server, {"example.com", "any"});
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_EQ(ran.err, "");
    EXPECT_EQ(ran.out,
              "Queries:\n"
              "1: type=ANY, class=IN, name=example.com\n"
              "Answers:\n"
              "1: type=A, class=IN, name=example.com, ttl=60, value=10.1.2.3\n"
              "2: type=MX, class=IN, name=example.com, ttl=60, value=mx.example.com, mx-rank=10\n"
              "3: type=TXT, class=IN, name=example.com, ttl=60, value=onetwo\n"
              "4: type=SOA, class=IN, name=example.com, ttl=60, mname=ns.example.com, "
              "rname=root.example.com, serial=1, refresh=2, retry=3, expire=4, minimum=5\n"
              "5: type=Unknown, class=IN, name=example.com, ttl=60, rdata=[00 01 00 02]\n");
}

TEST(DnsCommand, AsksForTheTypeAndClassThatWereNamed) {
    DnsResponder server("127.0.0.1", [](Asked const& asked) { return answer(asked, {}); });
    struct {
        std::vector<std::string> arguments;
        char const* asked;
    } const rows[] = {
        {{"example.com"}, "example.com 1 1\n"},
        {{"example.com", "mx"}, "example.com 15 1\n"},
        {{"example.com", "SRV"}, "example.com 33 1\n"},
        {{"example.com", "257"}, "example.com 257 1\n"},
        {{"example.com", "type257"}, "example.com 257 1\n"},
        {{"version.bind", "TXT", "--class", "ch"}, "version.bind 16 3\n"},
        {{"example.com", "--class", "CLASS254"}, "example.com 1 254\n"},
        {{"b\xc3\xbc"
          "cher.example"},
         "xn--bcher-kva.example 1 1\n"},
        {{"-x", "192.0.2.5"}, "5.2.0.192.in-addr.arpa 12 1\n"},
        {{"-x", "2001:db8::1"},
         "1.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.8.b.d.0.1.0.0.2.ip6.arpa 12 1\n"},
    };
    for (auto const& row : rows) {
        Ran const ran = ask(server, row.arguments);
        std::string const asked = server.asked();
        EXPECT_EQ(asked.substr(0, asked.find('\n') + 1), row.asked) << ran.err;
    }
}

TEST(DnsCommand, AsksOverIpv6) {
    DnsResponder server("::1", everything);
    EXPECT_THAT(ask(server, {"example.com"}).out, testing::HasSubstr("value=10.1.2.3\n"));
}

TEST(DnsCommand, SaysLoudlyThatAnAnswerIsTruncated) {
    DnsResponder server("127.0.0.1", [](Asked const& asked) {
        return response(asked, {1, 1}, record(here, 1, "\x0a\x01\x02\x03"), 0x8380);
    });
    Ran const ran = ask(server, {"example.com"});
    EXPECT_EQ(ran.status, 1);
    EXPECT_THAT(ran.out, testing::HasSubstr("value=10.1.2.3\n"));
    EXPECT_THAT(ran.err, testing::StartsWith("quillmark: WARNING: THE ANSWER IS TRUNCATED."));
    EXPECT_THAT(ask(server, {"example.com", "--json"}).out, testing::HasSubstr("\"truncated\":true"));
}

TEST(DnsCommand, SaysLoudlyThatNothingIsLeftOfATruncatedAnswer) {
    DnsResponder server("127.0.0.1", [](Asked const& asked) { return response(asked, {1, 0}, "", 0x8780); });
    Ran const ran = ask(server, {"example.com", "TXT"});
    EXPECT_EQ(ran.status, 1);
    EXPECT_EQ(ran.out, "DNS query failed: error=4(No address associated with name)\n");
    EXPECT_THAT(ran.err, testing::StartsWith("quillmark: WARNING: THE ANSWER IS TRUNCATED."));
    auto const json = nlohmann::json::parse(ask(server, {"example.com", "TXT", "--json"}).out);
    EXPECT_EQ(json["truncated"], true);
    EXPECT_EQ(json["error"]["code"], 4);

    // Where the server has nothing, nothing is missing.
    DnsResponder none("127.0.0.1", [](Asked const& asked) { return response(asked, {1, 0}, ""); });
    EXPECT_EQ(ask(none, {"example.com", "TXT"}).err, "");
    EXPECT_EQ(none.asked(), "example.com 16 1\nexample.com 16 1\n");
}

TEST(DnsCommand, ShowsWhyAQuestionFailed) {
    DnsResponder none("127.0.0.1", noSuchName);
    Ran const unknown = ask(none, {"no.example.com"});
    EXPECT_EQ(unknown.status, 1);
    EXPECT_EQ(unknown.out, "DNS query failed: error=1(Unknown host)\n");

    DnsResponder silent("127.0.0.1", [](Asked const&) { return std::string(); });
    Ran const lost = ask(silent, {"example.com", "--json"});
    EXPECT_EQ(lost.status, 1);
    auto const json = nlohmann::json::parse(lost.out);
    EXPECT_EQ(json["error"]["code"], 2);
    EXPECT_EQ(json["error"]["text"], "Host name lookup failure");
    EXPECT_EQ(json["answers"].size(), 0U);
}

TEST(DnsCommand, PrintsJson) {
    DnsResponder server("127.0.0.1", everything);
    Ran const ran = ask(server, {"example.com", "any", "--json"});
    EXPECT_EQ(linesOf(ran.out).size(), 1U);
    auto const json = nlohmann::json::parse(ran.out);
    EXPECT_EQ(json["name"], "example.com");
    EXPECT_EQ(json["type"], "ANY");
    EXPECT_EQ(json["class"], "IN");
    EXPECT_EQ(json["error"], nullptr);
    EXPECT_EQ(json["authoritative"], false);
    EXPECT_EQ(json["truncated"], false);
    EXPECT_EQ(json["queries"][0]["type_number"], 255);
    auto const& answers = json["answers"];
    ASSERT_EQ(answers.size(), 5U);
    EXPECT_EQ(answers[0]["value"], "10.1.2.3");
    EXPECT_EQ(answers[0]["ttl"], 60);
    EXPECT_EQ(answers[0]["mx_rank"], nullptr);
    EXPECT_EQ(answers[0]["soa"], nullptr);
    EXPECT_EQ(answers[1]["mx_rank"], 10);
    EXPECT_EQ(answers[2]["value"], "onetwo");
    EXPECT_EQ(answers[3]["soa"]["rname"], "root.example.com");
    EXPECT_EQ(answers[3]["soa"]["minimum"], 5);
    EXPECT_EQ(answers[3]["value"], nullptr);
    EXPECT_EQ(answers[4]["value"], nullptr);
    EXPECT_EQ(answers[4]["type"], "SRV");
    EXPECT_EQ(answers[4]["rdata"], "00010002");
}

TEST(DnsCommand, HandsNothingToATerminalThatItWouldObey) {
    DnsResponder server("127.0.0.1",
                        [](Asked const& asked) { return answer(asked, {record(here, 16, "\x04\x1b[2J")}); });
    Ran const ran = quillmarkOnTerminal(
        Terminal::Everything,
        {"dns", "example.com", "TXT", "--server", "127.0.0.1", "--port", std::to_string(server.port())});
    EXPECT_THAT(ran.out, testing::HasSubstr("value=\\x1b[2J\n"));
}

TEST(DnsCommand, RefusesWhatCannotBeAsked) {
    struct {
        std::vector<std::string> arguments;
        char const* reason;
    } const rows[] = {
        {{"dns"}, "quillmark: name either a NAME to ask for or, with -x, an ADDRESS\n"},
        {{"dns", "example.com", "-x", "192.0.2.1"},
         "quillmark: name either a NAME to ask for or, with -x, an ADDRESS\n"},
        {{"dns", "example.com", "XYZ"}, "quillmark: XYZ is no record type\n"},
        {{"dns", "example.com", "Unknown"}, "quillmark: Unknown is no record type\n"},
        {{"dns", "example.com", "65536"}, "quillmark: 65536 is no record type\n"},
        {{"dns", "example.com", "--class", "XYZ"}, "quillmark: XYZ is no record class\n"},
        {{"dns", "-x", "192.0.2.1.5"}, "quillmark: 192.0.2.1.5 is no IP address\n"},
        {{"dns", "example.com", "--server", "name"}, "quillmark: name is no IP address\n"},
        {{"dns", "example.com", "--port", "53"},
         "quillmark: --port requires --server\nTry \"quillmark --help\".\n"},
        {{"dns", "\xff"}, "quillmark: \\xff is no host name\n"},
    };
    for (auto const& row : rows) {
        Ran const ran = quillmark(row.arguments);
        EXPECT_EQ(ran.status, 2) << row.reason;
        EXPECT_EQ(ran.err, row.reason);
        EXPECT_EQ(ran.out, "");
    }
    EXPECT_EQ(quillmark({"dns", "example.com", "--port", "65536"}).status, 2);
}
