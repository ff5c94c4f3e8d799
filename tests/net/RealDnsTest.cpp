// The library asks a name server as others run it, over both families.

#include <netdb.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <thread>

#include "include2/Host"
#include "include2/Resolver"
#include "tests/net/DnsFromC.h"
#include "tests/net/RealDnsServer.h"
#include "tests/net/WireMessage.h"
#include "tests/support/DomainLists.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/Support.h"

using namespace Quillmark;
using namespace QuillmarkTest;
using namespace std::string_literals;

namespace {

constexpr char longestName[] =
    "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa."
    "bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb."
    "ccccccccccccccccccccccccccccccccccccccccccccccccccccccccccccccc."
    "dddddddddddddddddddddddddddddddddddddddddddddd.quill.example";

/// Where the name of 2001:db8::1 stands.
constexpr char reversed6[] = "1.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.8.b.d.0.1.0.0.2.ip6.arpa";

/// The answers of a printed message, without their heading; the whole text where there are none.
std::string answersOf(std::string const& text) {
    std::string const heading = "Answers:\n";
    std::size_t const begin = text.find(heading);
    if (begin == std::string::npos) return text;
    std::size_t const end = std::min(text.find("Name Server Records:\n"), text.find("Additional Records:\n"));
    return text.substr(begin + heading.size(), end - begin - heading.size());
}

std::string withName(std::string text, std::string const& name) {
    for (std::size_t at = 0; (at = text.find('@', at)) != std::string::npos; at += name.size())
        text.replace(at, 1, name);
    return text;
}

/// The server is the same for all tests of a program.
class RealDns : public testing::Test {
protected:
    static void SetUpTestSuite() { s_server = std::make_unique<RealDnsServer>(); }
    static void TearDownTestSuite() { s_server.reset(); }

    static RealDnsServer const& server() { return *s_server; }
    static ResolverMessage ask(char const* address, unsigned int type, std::string const& name,
                               unsigned int recordClass = 1) {
        server().serveThisThread(address);
        return Resolver::instance()->submit(static_cast<unsigned short>(type),
                                            static_cast<unsigned short>(recordClass), name);
    }

    static constexpr char const* s_addresses[] = {"127.0.0.1", "::1"};

private:
    static std::unique_ptr<RealDnsServer> s_server;
};

std::unique_ptr<RealDnsServer> RealDns::s_server;

}  // namespace

TEST_F(RealDns, GivesTheRecordsOfEachType) {
    struct {
        unsigned int type;
        char const* name;
        char const* answers;  // "@" stands for the name
    } const rows[] = {
        {1, "host.quill.example",
         "1: type=A, class=IN, name=@, ttl=3600, value=192.0.2.1\n"
         "2: type=A, class=IN, name=@, ttl=3600, value=192.0.2.2\n"
         "3: type=A, class=IN, name=@, ttl=3600, value=192.0.2.3\n"},
        {28, "host.quill.example",
         "1: type=AAAA, class=IN, name=@, ttl=3600, value=2001:db8::1\n"
         "2: type=AAAA, class=IN, name=@, ttl=3600, value=2001:db8::ffff:1\n"},
        {28, "six.quill.example", "1: type=AAAA, class=IN, name=@, ttl=0, value=2001:db8::1:0:0:6\n"},
        {1, "old.quill.example", "1: type=A, class=IN, name=@, ttl=2147483647, value=255.255.255.255\n"},
        {1, longestName, "1: type=A, class=IN, name=@, ttl=3600, value=192.0.2.11\n"},
        {1, "dot\\.ted.quill.example",
         "1: type=A, class=IN, name=dot.ted.quill.example, ttl=3600, value=192.0.2.10\n"},
        {2, "quill.example",
         "1: type=NS, class=IN, name=@, ttl=3600, value=ns1.quill.example\n"
         "2: type=NS, class=IN, name=@, ttl=3600, value=ns2.quill.example\n"},
        {6, "quill.example",
         "1: type=SOA, class=IN, name=@, ttl=3600, mname=ns1.quill.example, "
         "rname=admin.people.quill.example, serial=2024051701, refresh=7200, retry=900, expire=1209600, "
         "minimum=300\n"},
        // A chain of names with and without its end, and one that has none.
        {1, "www.quill.example",
         "1: type=CNAME, class=IN, name=@, ttl=3600, value=web.quill.example\n"
         "2: type=CNAME, class=IN, name=web.quill.example, ttl=120, value=host.quill.example\n"
         "3: type=A, class=IN, name=host.quill.example, ttl=3600, value=192.0.2.1\n"
         "4: type=A, class=IN, name=host.quill.example, ttl=3600, value=192.0.2.2\n"
         "5: type=A, class=IN, name=host.quill.example, ttl=3600, value=192.0.2.3\n"},
        {5, "www.quill.example", "1: type=CNAME, class=IN, name=@, ttl=3600, value=web.quill.example\n"},
        {1, "away.quill.example", "1: type=CNAME, class=IN, name=@, ttl=3600, value=www.elsewhere.test\n"},
        {1, "leaf.tree.quill.example",
         "1: type=Unknown, class=IN, name=tree.quill.example, ttl=3600, rdata=[04 77 6F 6F 64 05 71 75 "
         "69 6C 6C 07 65 78 61 6D 70 6C 65 00]\n"
         "2: type=CNAME, class=IN, name=@, ttl=3600, value=leaf.wood.quill.example\n"
         "3: type=A, class=IN, name=leaf.wood.quill.example, ttl=3600, value=192.0.2.9\n"},
        {12, "1.2.0.192.in-addr.arpa", "1: type=PTR, class=IN, name=@, ttl=3600, value=host.quill.example\n"},
        {12, "3.2.0.192.in-addr.arpa.",
         "1: type=CNAME, class=IN, name=3.2.0.192.in-addr.arpa, ttl=3600, "
         "value=3.range.2.0.192.in-addr.arpa\n"
         "2: type=PTR, class=IN, name=3.range.2.0.192.in-addr.arpa, ttl=3600, value=ranged.quill.example\n"},
        {12, reversed6, "1: type=PTR, class=IN, name=@, ttl=3600, value=host.quill.example\n"},
        {15, "mail.quill.example",
         "1: type=MX, class=IN, name=@, ttl=3600, value=backup.quill.example, mx-rank=20\n"
         "2: type=MX, class=IN, name=@, ttl=3600, value=second.quill.example, mx-rank=10\n"
         "3: type=MX, class=IN, name=@, ttl=3600, value=first.quill.example, mx-rank=10\n"
         "4: type=MX, class=IN, name=@, ttl=3600, value=best.elsewhere.test, mx-rank=5\n"
         "5: type=MX, class=IN, name=@, ttl=3600, value=backup.quill.example, mx-rank=30\n"},
        {15, "nomail.quill.example", "1: type=MX, class=IN, name=@, ttl=3600, value=, mx-rank=0\n"},
        {16, "spf.quill.example", "1: type=TXT, class=IN, name=@, ttl=3600, value=v=spf1 -all\n"},
        {16, "long.quill.example",
         "1: type=TXT, class=IN, name=@, ttl=3600, value=0123456789abcdef0123456789abcdef0123456789abcdef"
         "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef"
         "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef"
         "0123456789abcde\n"},
        {16, "empty.quill.example", "1: type=TXT, class=IN, name=@, ttl=3600, value=x\n"},
        {16, "Any.Of.WILD.quill.example", "1: type=TXT, class=IN, name=@, ttl=3600, value=any\n"},
        {33, "_sip._udp.quill.example",
         "1: type=Unknown, class=IN, name=@, ttl=3600, rdata=[00 01 00 02 13 C4 04 68 "
         "6F 73 74 05 71 75 69 6C 6C 07 65 78 61 6D 70 6C 65 00]\n"
         "2: type=Unknown, class=IN, name=@, ttl=3600, rdata=[FF FF FF FF FF FF 00]\n"},
        {65400, "odd.quill.example", "1: type=Unknown, class=IN, name=@, ttl=3600, rdata=[00 FF 10 22 AB]\n"},
        {65400, "nothing.quill.example", "1: type=Unknown, class=IN, name=@, ttl=3600, rdata=[]\n"},
        {255, "six.quill.example", "1: type=AAAA, class=IN, name=@, ttl=0, value=2001:db8::1:0:0:6\n"},
    };
    for (char const* address : s_addresses) {
        LogRecorder const events;
        for (auto const& [type, name, answers] : rows)
            EXPECT_EQ(answersOf(printed(ask(address, type, name))), withName(answers, name))
                << address << " " << name;
        EXPECT_EQ(events.text(), "");
    }
}

TEST_F(RealDns, GivesEverySection) {
    std::string const text = printed(ask("127.0.0.1", 15, "quill.example"));
    EXPECT_EQ(text,
              "Queries:\n"
              "1: type=MX, class=IN, name=quill.example\n"
              "Answers:\n"
              "1: type=MX, class=IN, name=quill.example, ttl=3600, value=mx1.quill.example, mx-rank=10\n"
              "Name Server Records:\n"
              "1: type=NS, class=IN, name=quill.example, ttl=3600, value=ns1.quill.example\n"
              "2: type=NS, class=IN, name=quill.example, ttl=3600, value=ns2.quill.example\n"
              "Additional Records:\n"
              "1: type=A, class=IN, name=ns1.quill.example, ttl=3600, value=127.0.0.1\n"
              "2: type=A, class=IN, name=ns2.quill.example, ttl=60, value=192.0.2.53\n"
              "3: type=AAAA, class=IN, name=ns1.quill.example, ttl=3600, value=::1\n");
}

TEST_F(RealDns, AnswersInOtherClasses) {
    for (char const* address : s_addresses)
        EXPECT_EQ(printed(ask(address, 16, "version.server", 3)),
                  "Queries:\n"
                  "1: type=TXT, class=CH, name=version.server\n"
                  "Answers:\n"
                  "1: type=TXT, class=CH, name=version.server, ttl=0, value=a name server of the tests\n");
}

TEST_F(RealDns, KeepsEveryByteOfAText) {
    ResolverMessage const message = ask("::1", 16, "raw.quill.example");
    ASSERT_EQ(message.answers().size(), 1U);
    EXPECT_EQ(hex(message.answers().front().value), "0001225cff");
    EXPECT_EQ(hex(message.answers().front().rdata), "050001225cff");
}

TEST_F(RealDns, TellsItsFlags) {
    for (char const* address : s_addresses) {
        ResolverMessage const message = ask(address, 1, "host.quill.example");
        EXPECT_TRUE(message.isAuthouritativeAnswer());
        EXPECT_FALSE(message.isTruncated());
        EXPECT_EQ(message.resolve_error(), 0);
        EXPECT_FALSE(ask(address, 16, "version.server", 3).isAuthouritativeAnswer());
    }
}

TEST_F(RealDns, TellsWhyAQuestionFailed) {
    struct {
        unsigned int type;
        char const* name;
        int error;
    } const rows[] = {
        {1, "none.quill.example", HOST_NOT_FOUND},
        {16, "host.quill.example", NO_DATA},
        {1, "elsewhere.example", TRY_AGAIN},     // refused
        {1, "host.sub.quill.example", NO_DATA},  // the name servers of another, and nothing else
        {16, "large.quill.example", NO_DATA},    // truncated before its first answer
        {12, "9.2.0.192.in-addr.arpa", HOST_NOT_FOUND},
    };
    for (char const* address : s_addresses)
        for (auto const& [type, name, error] : rows) {
            ResolverMessage const message = ask(address, type, name);
            EXPECT_TRUE(message.isEmpty()) << name;
            EXPECT_EQ(message.resolve_error(), error) << name;
            EXPECT_FALSE(message.isAuthouritativeAnswer() || message.isTruncated()) << name;
        }
}

TEST_F(RealDns, OrdersTheExchangesOfADomain) {
    ResolverMessage const message = ask("127.0.0.1", 15, "mail.quill.example");
    std::string exchanges;
    for (auto const& record : message.mxRecords())
        exchanges += std::to_string(record.mxRank) + " " + record.value + "\n";
    EXPECT_EQ(exchanges,
              "5 best.elsewhere.test\n"
              "10 first.quill.example\n"
              "10 second.quill.example\n"
              "20 backup.quill.example\n");
}

TEST_F(RealDns, LooksUpHostsAndAddresses) {
    DomainLists const lists;
    for (char const* address : s_addresses) {
        server().serveThisThread(address);
        Resolver const& resolver = *Resolver::instance();
        EXPECT_EQ(resolver.getIPAddress(HostName("www.quill.example", true, false)).asString(true),
                  "192.0.2.1");
        EXPECT_TRUE(resolver.getIPAddress(HostName("six.quill.example", true, false)).isNull());
        EXPECT_EQ(resolver.getHostname(IPAddress("192.0.2.1"s)).asString(), "host.quill.example");
        EXPECT_EQ(resolver.getHostname(IPAddress("192.0.2.2"s)).asString(), "other.quill.example");
        EXPECT_EQ(resolver.getHostname(IPAddress("192.0.2.3"s)).asString(), "ranged.quill.example");
        EXPECT_TRUE(resolver.getHostname(IPAddress("192.0.2.9"s)).isNull());
        EXPECT_EQ(resolver.getHostname(IPAddress("2001:db8::1"s)).asString(), "host.quill.example");
        EXPECT_EQ(ask(address, 1, "www.quill.example").getCanonicalName().asString(), "web.quill.example");
    }
}

TEST_F(RealDns, FillsHosts) {
    DomainLists const lists;
    for (char const* address : s_addresses) {
        server().serveThisThread(address);
        Host const host("www.quill.example", true);
        EXPECT_EQ(host.address().asString(true), "192.0.2.1");
        std::string text;
        for (IPAddress const& each : host.addressList()) text += each.asString(true) + " ";
        EXPECT_EQ(text, "192.0.2.1 192.0.2.2 192.0.2.3 2001:db8::1 2001:db8::ffff:1 ");
        EXPECT_EQ(Host(IPAddress("2001:db8::1"s)).name().asString(), "host.quill.example");
        EXPECT_EQ(taken(addressListFromC("host.quill.example", 4, -1)),
                  "4 192.0.2.1 192.0.2.2 192.0.2.3 2001:db8::1 |");
        EXPECT_EQ(taken(addressListFromC("host.quill.example", 4, 10)),
                  "2 2001:db8::1 2001:db8::ffff:1 | - -");
    }
}

TEST_F(RealDns, FillsTheArraysOfC) {
    EXPECT_EQ(
        taken(answerFromC(6, 1, "quill.example", "127.0.0.1", server().port())),
        "queries 1\n"
        " quill.example type 6 class 1\n"
        "answers 1\n"
        " quill.example type 6 class 1 ttl 3600 value '' rank 0 mname 'ns1.quill.example' rname "
        "'admin.people.quill.example' soa 2024051701 7200 900 1209600 300 rdata "
        "036e7331c00c0561646d696e0670656f706c65c00c78a493f500001c2000000384001275000000012c\n"
        "name servers 2\n"
        " quill.example type 2 class 1 ttl 3600 value 'ns1.quill.example' rank 0 mname '' rname '' soa 0 0 0 "
        "0 0 rdata c02b\n"
        " quill.example type 2 class 1 ttl 3600 value 'ns2.quill.example' rank 0 mname '' rname '' soa 0 0 0 "
        "0 0 rdata 036e7332c00c\n"
        "additional 3\n"
        " ns1.quill.example type 1 class 1 ttl 3600 value '127.0.0.1' rank 0 mname '' rname '' soa 0 0 0 0 0 "
        "rdata 7f000001\n"
        " ns2.quill.example type 1 class 1 ttl 60 value '192.0.2.53' rank 0 mname '' rname '' soa 0 0 0 0 0 "
        "rdata c0000235\n"
        " ns1.quill.example type 28 class 1 ttl 3600 value '::1' rank 0 mname '' rname '' soa 0 0 0 0 0 "
        "rdata "
        "00000000000000000000000000000001\n"
        "flags 0: 1 0\n"
        "error -1: 7 untouched\n");
    EXPECT_EQ(
        taken(answerFromC(16, 3, "version.server", "::1", server().port())),
        "queries 1\n"
        " version.server type 16 class 3\n"
        "answers 1\n"
        " version.server type 16 class 3 ttl 0 value 'a name server of the tests' rank 0 mname '' rname "
        "'' soa 0 0 0 0 0 rdata 1a61206e616d6520736572766572206f6620746865207465737473\n"
        "name servers 0 null\n"
        "additional 0 null\n"
        "flags 0: 0 0\n"
        "error -1: 7 untouched\n");
    EXPECT_EQ(taken(failedQueryFromC("none.quill.example", "::1", server().port())),
              "-1 -1 -1 -1 untouched\nflags -1: 7 7\nerror 0: 1 Unknown host\n0\n");
    EXPECT_EQ(taken(printFromC("old.quill.example", "::1", server().port())).substr(0, 60),
              "Queries:\n1: type=A, class=IN, name=old.quill.example\nAnswers");
}

TEST_F(RealDns, HoldsNoDescriptorsAndServesThreadsAtOnce) {
    server().serveThisThread("127.0.0.1");
    std::size_t const before = openDescriptors();
    std::atomic<int> found{0};
    std::vector<std::thread> threads;
    for (char const* address : {"127.0.0.1", "::1", "127.0.0.1", "::1"})
        threads.emplace_back([&found, address] {
            for (int i = 0; i < 20; ++i) found += ask(address, 1, "host.quill.example").answers().size() == 3;
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(found, 80);
    EXPECT_EQ(openDescriptors(), before);
}

TEST(RealDnsServer, LeavesNothingBehind) {
    std::size_t const before = openDescriptors();
    std::string directory;
    pid_t process = 0;
    {
        RealDnsServer const server;
        directory = server.directory();
        process = server.process();
        EXPECT_EQ(::kill(process, 0), 0);
    }
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_NE(::access(directory.c_str(), F_OK), 0);
    EXPECT_EQ(::kill(process, 0), -1);
    EXPECT_EQ(errno, ESRCH);
}
