#include "tests/net/DnsFromC.h"

#include <thread>

#include "include2/Resolver"
#include "tests/net/DnsResponder.h"
#include "tests/net/ResolverHook.h"
#include "tests/support/DomainLists.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/Support.h"

using namespace Quillmark;
using namespace QuillmarkTest;
using namespace std::string_literals;

namespace {

template <class Action>
auto onThread(Action action) {
    decltype(action()) result{};
    std::thread([&] { result = action(); }).join();
    return result;
}

std::string const address192 = "\xc0\0\2\1"s;

std::string fullAnswer(Asked const& asked) {
    if (asked.name == "none.example.com") return noSuchName(asked);
    if (asked.name == "bare.example.com") return response(asked, {1, 1}, "", 0x8180);
    if (asked.name == "ns.example.com") return answer(asked, {record(pointer(12), 1, "\x7f\0\0\2"s)});
    std::string const soa =
        "\2ns" + pointer(12) + name("admin.example") + u32(1) + u32(2) + u32(3) + u32(4) + u32(5);
    return response(asked, {1, 3, 1, 1},
                    record(pointer(12), 1, address192) +
                        record(pointer(12), 15, u16(10) + "\2mx" + pointer(12)) +
                        record(pointer(12), 33, "\1\2\3", 7, 3) + record(pointer(14), 6, soa, 3600) +
                        record(name(""), 16, "\1t\2xt"),
                    0x8780);
}

std::string const printedAnswer =
    "Queries:\n1: type=A, class=IN, name=a.example.com\n"
    "Answers:\n1: type=A, class=IN, name=a.example.com, ttl=60, value=192.0.2.1\n"
    "2: type=MX, class=IN, name=a.example.com, ttl=60, value=mx.a.example.com, mx-rank=10\n"
    "3: type=Unknown, class=CH, name=a.example.com, ttl=7, rdata=[01 02 03]\n"
    "Name Server Records:\n1: type=SOA, class=IN, name=example.com, ttl=3600, mname=ns.a.example.com, "
    "rname=admin.example, serial=1, refresh=2, retry=3, expire=4, minimum=5\n"
    "Additional Records:\n1: type=TXT, class=IN, name=, ttl=60, value=txt\n";

}  // namespace

TEST(DnsFromC, HandsOutEverySection) {
    DnsResponder const server("127.0.0.1", fullAnswer);
    EXPECT_EQ(
        taken(answerFromC(1, 1, "a.example.com", server.addressText().c_str(), server.port())),
        "queries 1\n"
        " a.example.com type 1 class 1\n"
        "answers 3\n"
        " a.example.com type 1 class 1 ttl 60 value '192.0.2.1' rank 0 mname '' rname '' soa 0 0 0 0 0 "
        "rdata c0000201\n"
        " a.example.com type 15 class 1 ttl 60 value 'mx.a.example.com' rank 10 mname '' rname '' soa 0 0 0 "
        "0 0 rdata 000a026d78c00c\n"
        " a.example.com type 33 class 3 ttl 7 value '' rank 0 mname '' rname '' soa 0 0 0 0 0 rdata 010203\n"
        "name servers 1\n"
        " example.com type 6 class 1 ttl 3600 value '' rank 0 mname 'ns.a.example.com' rname 'admin.example' "
        "soa 1 2 3 4 5 rdata "
        "026e73c00c0561646d696e076578616d706c65000000000100000002000000030000000400000005\n"
        "additional 1\n"
        "  type 16 class 1 ttl 60 value 'txt' rank 0 mname '' rname '' soa 0 0 0 0 0 rdata 0174027874\n"
        "flags 0: 1 1\n"
        "error -1: 7 untouched\n");
}

TEST(DnsFromC, GivesNoArrayForNoEntries) {
    DnsResponder const server("::1", fullAnswer);
    LogRecorder const events;
    EXPECT_EQ(taken(answerFromC(1, 1, "bare.example.com", "::1", server.port())),
              "queries 1\n"
              " bare.example.com type 1 class 1\n"
              "answers 0 null\n"
              "name servers 0 null\n"
              "additional 0 null\n"
              "flags 0: 0 0\n"
              "error -1: 7 untouched\n");
}

TEST(DnsFromC, StoresNothingWhereNullIsGiven) {
    DnsResponder const server("127.0.0.1", fullAnswer);
    EXPECT_EQ(taken(nothingStoredFromC("a.example.com", "127.0.0.1", server.port())), "1 3 1 1 0 -1");
}

#ifdef QUILLMARK_TEST_REFUSES_ARRAYS
TEST(DnsFromC, CountsTheEntriesAlsoWithoutMemoryForThem) {
    DnsResponder const server("127.0.0.1", fullAnswer);
    quill_dns_query* const query = quill_dns_query_create(1, 1, "a.example.com", "127.0.0.1", server.port());
    {
        RefusedArrays const refused(sizeof(quill_dns_record));
        EXPECT_EQ(taken(withoutMemoryFromC(query)), "1 null 3 null");
    }
    quill_dns_query_release(query);
}
#endif

TEST(DnsFromC, RefusesNoQuery) {
    EXPECT_EQ(taken(nullQueryFromC()), "-1 -1 -1 -1 untouched\nflags -1: 7 7\nerror -1: 7 untouched\n");
    EXPECT_EQ(taken(printFromC(nullptr, nullptr, 0)), "DNS query response is NULL\n");
}

TEST(DnsFromC, TellsWhyAQuestionFailed) {
    DnsResponder const server("127.0.0.1", fullAnswer);
    EXPECT_EQ(taken(failedQueryFromC("none.example.com", "127.0.0.1", server.port())),
              "-1 -1 -1 -1 untouched\nflags -1: 7 7\nerror 0: 1 Unknown host\n0\n");
    EXPECT_EQ(taken(printFromC("none.example.com", "127.0.0.1", server.port())),
              "DNS query failed: error=1(Unknown host)\n");
}

TEST(DnsFromC, PrintsAnAnswer) {
    DnsResponder const server("127.0.0.1", fullAnswer);
    EXPECT_EQ(taken(printFromC("a.example.com", "127.0.0.1", server.port())), printedAnswer);
}

TEST(DnsFromC, AsksForTheNumbersThatItIsGiven) {
    DnsResponder server("127.0.0.1", noSuchName);
    for (auto const& [type, recordClass] : {std::pair{33, 3}, {65535, 255}, {65536 + 16, 65536 + 1}})
        quill_dns_query_release(
            quill_dns_query_create(type, recordClass, "x.example", "127.0.0.1", server.port()));
    EXPECT_EQ(server.asked(), "x.example 33 3\nx.example 65535 255\nx.example 16 1\n");
}

TEST(DnsFromC, MakesNoQueryWithoutAName) {
    EXPECT_EQ(taken(answerFromC(1, 1, nullptr, nullptr, 0)), "no query\n");
}

TEST(DnsFromC, MakesNoQueryWithoutAResolver) {
    std::string const results = onThread([] {
        RefusedResolver const refused;
        return taken(answerFromC(1, 1, "a.example", "127.0.0.1", 1)) +
               std::to_string(addressListWithoutArrayFromC("a.example", 1)) +
               taken(addressListFromC("a.example", 1, -1)) + taken(serverInfoFromC(4));
    });
    EXPECT_EQ(results, "no query\n00 | - - - -0 [####] 0");
}

TEST(DnsFromC, KeepsTheServerOfAThread) {
    LogRecorder const events;
    DnsResponder first("127.0.0.1", noSuchName);
    DnsResponder second("127.0.0.1", noSuchName);
    auto const ask = [](char const* name, char const* server, int port) {
        quill_dns_query_release(quill_dns_query_create(1, 1, name, server, port));
    };
    ask("a.example", "127.0.0.1", first.port());
    ask("b.example", nullptr, second.port());
    ask("c.example", "", second.port());
    ask("d.example", "127.0.0.1", 0);
    ask("e.example", "127.0.0.1", -1);
    EXPECT_EQ(first.asked(), "a.example 1 1\nb.example 1 1\nc.example 1 1\nd.example 1 1\ne.example 1 1\n");
    ask("f.example", "127.0.0.1", second.port());
    EXPECT_EQ(second.asked(), "f.example 1 1\n");
    EXPECT_EQ(first.asked(), "");
    EXPECT_EQ(events.text(), "");
}

TEST(DnsFromC, FindsAServerByItsName) {
    DomainLists const lists;
    DnsResponder first("127.0.0.1", fullAnswer);
    DnsResponder second("127.0.0.2", noSuchName);
    first.serveThisThread();
    quill_dns_query_release(quill_dns_query_create(1, 1, "a.example", "ns.example.com", second.port()));
    EXPECT_EQ(first.asked(), "ns.example.com 1 1\n");
    EXPECT_EQ(second.asked(), "a.example 1 1\n");
}

TEST(DnsFromC, LogsAServerWithoutAnAddressAndAsksOn) {
    DomainLists const lists;
    DnsResponder server("127.0.0.1", fullAnswer);
    server.serveThisThread();
    for (auto const& [name, questions] :
         {std::pair{"none.example.com", "none.example.com 1 1\na.example.com 1 1\n"},
          {"localhost", "a.example.com 1 1\n"}}) {
        LogRecorder const events;
        EXPECT_NE(taken(answerFromC(1, 1, "a.example.com", name, 1)).find("answers 3"), std::string::npos);
        EXPECT_EQ(server.asked(), questions);
        EXPECT_EQ(events.text(), "300006d quill_dns_query_create|"s + name + "\n");
    }
}

TEST(DnsFromC, NamesTypesAndClasses) {
    EXPECT_STREQ(quill_dns_type_name(15), "MX");
    EXPECT_STREQ(quill_dns_type_name(33), "SRV");
    EXPECT_STREQ(quill_dns_type_name(255), "ANY");
    EXPECT_STREQ(quill_dns_type_name(4711), "Unknown");
    EXPECT_STREQ(quill_dns_class_name(1), "IN");
    EXPECT_STREQ(quill_dns_class_name(254), "NONE");
    EXPECT_STREQ(quill_dns_class_name(-1), "Unknown");
    EXPECT_EQ(taken(namesFromC(15, 1, "127.0.0.1")), "MX IN 0");
    EXPECT_EQ(taken(namesFromC(4711, -1, nullptr)), "Unknown Unknown -1");
}

TEST(DnsFromC, ChecksHostNames) {
    DomainLists const lists;
    struct {
        char const* name;
        int result;
    } const rows[] = {
        {"www.example.com", 1}, {"example.co.uk", 1},   {"10.0.0.1", 0},        {"::1", 0}, {"", -1},
        {nullptr, -1},          {"localhost", -1},      {"no.such.suffix", -1}, {"x", -1},  {"2130706433", 0},
        {"example.com.", -1},   {"a b.example.com", 1},
    };
    for (auto const& [name, result] : rows)
        EXPECT_EQ(quill_dns_validate_hostname(name), result) << (name ? name : "null");
}

TEST(DnsFromC, TurnsAddressesRound) {
    EXPECT_EQ(taken(queryStringFromC("192.0.2.1", 30)), "0 [1.2.0.192.in-addr.arpa########]");
    EXPECT_EQ(taken(queryStringFromC("::1", 74)),
              "0 [1.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.ip6.arpa##]");
    EXPECT_EQ(taken(queryStringFromC("192.0.2.1", 23)), "0 [1.2.0.192.in-addr.arpa#]");
    EXPECT_EQ(taken(queryStringFromC("192.0.2.1", 22)), "0 [1.2.0.192.in-addr.arp#]");
    EXPECT_EQ(taken(queryStringFromC("192.0.2.1", 1)), "0 [#]");
    EXPECT_EQ(taken(queryStringFromC("192.0.2.1", 0)), "-1 []");
    EXPECT_EQ(taken(queryStringFromC("192.0.2.1", -1)), "-1 []");
    EXPECT_EQ(taken(queryStringFromC("host.example", 5)), "-1 [xxxxx]");
    EXPECT_EQ(taken(queryStringFromC("", 5)), "-1 [xxxxx]");
    EXPECT_EQ(taken(queryStringFromC(nullptr, 5)), "-1 [xxxxx]");
    EXPECT_EQ(quill_dns_get_ip_querystring("192.0.2.1", nullptr, 10), -1);
}

TEST(DnsFromC, TellsTheServerOfTheThread) {
    onThread([] {
        Resolver& resolver = *Resolver::instance();
        resolver.server(IPAddress("192.0.2.53"s), 5353);
        EXPECT_EQ(taken(serverInfoFromC(14)), "0 [192.0.2.53####] 5353");
        EXPECT_EQ(taken(serverInfoFromC(5)), "0 [192.#] 5353");
        EXPECT_EQ(taken(serverInfoFromC(1)), "0 [#] 5353");
        EXPECT_EQ(taken(serverInfoFromC(0)), "0 [] 5353");
        EXPECT_EQ(taken(serverPortFromC()), "0 0 5353");
        // Kept for the daemons: the port is the IPv4 server's.
        resolver.server(IPAddress("2001:db8::53"s), 99);
        EXPECT_EQ(taken(serverInfoFromC(14)), "0 [2001:db8::53##] 5353");
        resolver.server(IPAddress("192.0.2.54"s), 54);
        EXPECT_EQ(taken(serverInfoFromC(14)), "0 [192.0.2.54####] 54");
        return 0;
    });
}

TEST(DnsFromC, TellsTheServerAlsoAfterAQuestion) {
    DnsResponder const v4("127.0.0.1", noSuchName);
    DnsResponder const v6("::1", noSuchName);
    for (DnsResponder const* server : {&v4, &v6, &v4}) {
        quill_dns_query_release(
            quill_dns_query_create(1, 1, "a.example", server->addressText().c_str(), server->port()));
        EXPECT_EQ(taken(serverInfoFromC(12)), "0 [" + (server->addressText() + "############").substr(0, 12) +
                                                  "] " + std::to_string(v4.port()));
    }
}

TEST(DnsFromC, PreparesTheThreadThatWantsToKnowItsServer) {
    std::string const info = onThread([] { return taken(serverInfoFromC(64)); });
    EXPECT_EQ(info.substr(0, 3), "0 [");
    EXPECT_NE(info[3], '#');  // the system's first server, whatever it is
}
