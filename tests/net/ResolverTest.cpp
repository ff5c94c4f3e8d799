#include "include2/Resolver"

#include <netdb.h>
#include <pthread.h>
#include <resolv.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <thread>
#include <type_traits>

#include "tests/net/DnsResponder.h"
#include "tests/net/ResolverHook.h"
#include "tests/support/DomainLists.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/Support.h"

using namespace Quillmark;
using namespace QuillmarkTest;
using namespace std::string_literals;

namespace {

std::string const address192 = "\xc0\0\2\1"s;
std::string const address2001 = "\x20\1\xd\xb8\0\0\0\0\0\0\0\0\0\0\0\1"s;

/// A host with an IPv4 and an IPv6 address.
std::string hostAnswer(Asked const& asked) {
    if (asked.name == "host.example.com" && asked.type == 1)
        return answer(asked, {record(pointer(12), 1, address192), record(pointer(12), 1, "\xc0\0\2\2"s)});
    if (asked.name == "host.example.com" && asked.type == 28)
        return answer(asked, {record(pointer(12), 28, address2001)});
    return noSuchName(asked);
}

void onThread(std::function<void()> const& action) {
    std::thread(action).join();
}

}  // namespace

static_assert(std::has_virtual_destructor_v<Resolver>);

TEST(Resolver, IsOneForTheProcess) {
    Resolver* other = nullptr;
    onThread([&] { other = Resolver::instance(); });
    EXPECT_EQ(Resolver::instance(), other);
}

// The C library frees only as many as are asked at the end.
TEST(Resolver, FreesTheServersThatStoodBehindAChosenOne) {
    Resolver const& resolver = *Resolver::instance();
    static int left = -1;
    pthread_key_t later = 0;  // its destructor comes behind that of the resolver
    ASSERT_EQ(::pthread_key_create(&later,
                                   [](void*) {
                                       left = 0;
                                       for (sockaddr_in6 const* const slot : _res._u._ext.nsaddrs)
                                           left += slot ? 1 : 0;
                                   }),
              0);
    onThread([&] {
        Resolver::instance();
        for (std::size_t const at : {1U, 2U})  // as the system does it for its second and third server
            if (!_res._u._ext.nsaddrs[at])
                _res._u._ext.nsaddrs[at] = static_cast<sockaddr_in6*>(std::calloc(1, sizeof(sockaddr_in6)));
        resolver.server(IPAddress("::1"), 53);
        ::pthread_setspecific(later, &left);
    });
    ::pthread_key_delete(later);
    EXPECT_EQ(left, 0);
}

TEST(Resolver, PreparesEachThreadOnce) {
    onThread([] {
        EXPECT_NE(_res.options, 0x81061U);
        Resolver::instance();
        EXPECT_EQ(_res.options, 0x81061U);
        _res.options = 0x81061U | RES_STAYOPEN;
        Resolver::instance();
        EXPECT_EQ(_res.options, 0x81061U | RES_STAYOPEN);
    });
}

TEST(Resolver, FailsWhereTheSystemRefuses) {
    onThread([] {
        RefusedResolver const refused;
        std::string const failure = "Resolver( 6 ) , Resolver";
        EXPECT_EQ(failureOf([] { Resolver::instance(); }), failure);
        EXPECT_EQ(failureOf([] { Resolver::instance(); }), failure);
    });
}

TEST(Resolver, IsReadyOnceTheSystemGivesIn) {
    onThread([] {
        {
            RefusedResolver const refused;
            failureOf([] { Resolver::instance(); });
        }
        Resolver::instance();
        EXPECT_EQ(_res.options, 0x81061U);
    });
}

TEST(Resolver, SetsTheOptionsWhateverTheyWere) {
    onThread([] {
        ASSERT_EQ(::res_ninit(&_res), 0);
        _res.options |= RES_DNSRCH | RES_DEFNAMES | RES_USEVC;
        Resolver::instance();
        EXPECT_EQ(_res.options, 0x81061U);
    });
}

TEST(Resolver, AsksForANameAsItStands) {
    DnsResponder server("127.0.0.1", noSuchName);
    server.serveThisThread();
    std::snprintf(_res.defdname, sizeof _res.defdname, "example.org");
    _res.dnsrch[0] = _res.defdname;
    _res.dnsrch[1] = nullptr;
    Resolver::instance()->submit(16, 3, "plain");
    EXPECT_EQ(server.asked(), "plain 16 3\n");
    Resolver::instance()->submit(Resolver::TypeMX, "Example.COM.", Resolver::ClassHS);
    EXPECT_EQ(server.asked(), "Example.COM 15 4\n");
}

TEST(Resolver, SendsTheNumbersOfTheWire) {
    DnsResponder server("127.0.0.1", noSuchName);
    server.serveThisThread();
    Resolver const& resolver = *Resolver::instance();
    resolver.submit(Resolver::TypeAAAA, "a.example", Resolver::ClassIN);
    resolver.submit(Resolver::TypeANY, "b.example", Resolver::ClassANY);
    resolver.submit(Resolver::TypeUnknown, "c.example", Resolver::ClassUnknown);
    resolver.submit(65535, 65535, "d.example");
    EXPECT_EQ(server.asked(), "a.example 28 1\nb.example 255 255\nc.example 255 1\nd.example 65535 65535\n");
}

TEST(Resolver, BringsTheAnswerHome) {
    for (char const* loopback : {"127.0.0.1", "::1"}) {
        DnsResponder server(loopback, [](Asked const& asked) {
            return response(asked, {1, 2, 1, 1},
                            record(pointer(12), 5, "\4real" + pointer(16)) +
                                record("\4real" + pointer(16), 1, address192) +
                                record(pointer(16), 2, "\2ns" + pointer(16)) +
                                record("\2ns" + pointer(16), 28, address2001),
                            0x8580);
        });
        server.serveThisThread();
        ResolverMessage const message =
            Resolver::instance()->submit(Resolver::TypeA, "www.example.com", Resolver::ClassIN);
        EXPECT_EQ(printed(message),
                  "Queries:\n"
                  "1: type=A, class=IN, name=www.example.com\n"
                  "Answers:\n"
                  "1: type=CNAME, class=IN, name=www.example.com, ttl=60, value=real.example.com\n"
                  "2: type=A, class=IN, name=real.example.com, ttl=60, value=192.0.2.1\n"
                  "Name Server Records:\n"
                  "1: type=NS, class=IN, name=example.com, ttl=60, value=ns.example.com\n"
                  "Additional Records:\n"
                  "1: type=AAAA, class=IN, name=ns.example.com, ttl=60, value=2001:db8::1\n");
        EXPECT_EQ(message.resolve_error(), 0);
        EXPECT_TRUE(message.isAuthouritativeAnswer());
        EXPECT_FALSE(message.isTruncated());
        EXPECT_EQ(server.asked(), "www.example.com 1 1\n");
    }
}

TEST(Resolver, TellsWhyAQuestionFailed) {
    DnsResponder server("127.0.0.1", [](Asked const& asked) {
        if (asked.name == "none.example") return noSuchName(asked);
        if (asked.name == "nodata.example") return response(asked, {1}, "");
        if (asked.name == "refused.example") return response(asked, {1}, "", 0x8185);
        if (asked.name == "broken.example") return response(asked, {1}, "", 0x8182);
        return ""s;
    });
    server.serveThisThread();
    _res.retrans = 1;  // for the silence
    std::string const tooLong(64, 'x');
    struct {
        std::string name;
        int error;
        char const* text;
    } const rows[] = {
        {"none.example", HOST_NOT_FOUND, "Unknown host"},
        {"a\0b.example"s, NO_RECOVERY, "Unknown server error"},
        {"nodata.example", NO_DATA, "No address associated with name"},
        {"refused.example", TRY_AGAIN, "Host name lookup failure"},
        {"broken.example", TRY_AGAIN, "Host name lookup failure"},
        {"silent.example", TRY_AGAIN, "Host name lookup failure"},
        {tooLong, NO_RECOVERY, "Unknown server error"},
    };
    for (auto const& [name, error, text] : rows) {
        ResolverMessage const message =
            Resolver::instance()->submit(Resolver::TypeA, name, Resolver::ClassIN);
        EXPECT_TRUE(message.isEmpty()) << name;
        EXPECT_EQ(message.resolve_error(), error) << name;
        EXPECT_STREQ(message.errorAsString(), text) << name;
        EXPECT_EQ(printed(message), "DNS query failed: error=" + std::to_string(error) + "(" + text + ")\n");
    }
    EXPECT_EQ(server.asked().find("a.b"), std::string::npos);
}

TEST(Resolver, FailsWhereNobodyListens) {
    int port = 0;
    {
        DnsResponder const gone("127.0.0.1", noSuchName);
        gone.serveThisThread();
        port = gone.port();
    }
    EXPECT_NE(port, 0);
    EXPECT_EQ(Resolver::instance()->submit(1, 1, "a.example").resolve_error(), TRY_AGAIN);
}

TEST(Resolver, TakesATruncatedAnswerAndAsksNoMore) {
    // Whoever asked again over TCP would come to a listener on the server's port, which may be another's.
    std::unique_ptr<DnsResponder> server;
    int listener = -1;
    sockaddr_in endpoint{};
    endpoint.sin_family = AF_INET;
    endpoint.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    do {
        if (listener != -1) ::close(listener);
        listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        server = std::make_unique<DnsResponder>("127.0.0.1", [](Asked const& asked) {
            return response(asked, {1, 2}, record(pointer(12), 1, address192), 0x8380);
        });
        endpoint.sin_port = htons(static_cast<in_port_t>(server->port()));
    } while (::bind(listener, reinterpret_cast<sockaddr*>(&endpoint), sizeof endpoint) != 0);
    ASSERT_EQ(::listen(listener, 1), 0);

    server->serveThisThread();
    ResolverMessage const message = Resolver::instance()->submit(1, 1, "host.example.com");
    EXPECT_TRUE(message.isTruncated());
    EXPECT_EQ(message.answers().size(), 1U);
    EXPECT_EQ(::accept(listener, nullptr, nullptr), -1);
    ::close(listener);
    EXPECT_EQ(server->asked(), "host.example.com 1 1\n");
}

TEST(Resolver, TakesAnswersOfEverySizeUpToItsOwn) {
    for (unsigned int const records : {1U, 30U, 580U, 700U}) {
        DnsResponder server("127.0.0.1", [records](Asked const& asked) {
            return answer(asked, std::vector<std::string>(records, record(pointer(12), 33, "\1")));
        });
        server.serveThisThread();
        LogRecorder const events;
        ResolverMessage const message = Resolver::instance()->submit(1, 1, "a.example");
        // What is too large for a message breaks off.
        std::size_t const room = (8192 - 12 - 15) / 13;
        EXPECT_EQ(message.answers().size(), std::min<std::size_t>(records, room)) << records;
        EXPECT_EQ(events.text().empty(), records <= room) << records;
    }
}

// What a server that means well never sends.
TEST(Resolver, KeepsWhatACorruptAnswerBeginsWith) {
    std::string const good = record(pointer(12), 1, address192);
    std::string const badName = "Resolver::ParseName( 5 ) , Resolver \"OutOfBounds name index\"";
    std::string const badRecord = "Resolver::resourceRecordParse( 5 ) , Resolver \"Packet is corrupt\"";
    struct {
        char const* what;
        Counts counts;
        std::string records;
        std::size_t answers;
        std::string failure;
    } const rows[] = {
        {"a record that breaks off", {1, 3}, good + pointer(12) + "\0"s, 1, badRecord},
        {"more answers than there are", {1, 65535}, good, 1, ""},
        {"fewer answers than there are", {1, 1}, good + good, 1, ""},
        {"answers counted as another's", {1, 1, 65535, 65535}, good + good, 1, ""},
        {"a name that points to itself", {1, 2}, good + record(pointer(43), 1, address192), 1, badName},
        {"two names that point to each other",
         {1, 2},
         good + record(pointer(45) + pointer(43), 1, ""),
         1,
         badName},
        {"a name that leaves the message", {1, 2}, good + record(pointer(0x3fff), 1, address192), 1, badName},
        {"data that leaves the message",
         {1, 2},
         good + pointer(12) + u16(1) + u16(1) + u32(1) + u16(5) + "1234",
         1,
         badRecord},
    };
    for (auto const& row : rows) {
        DnsResponder server("127.0.0.1",
                            [&](Asked const& asked) { return response(asked, row.counts, row.records); });
        server.serveThisThread();
        LogRecorder const events;
        ResolverMessage const message = Resolver::instance()->submit(1, 1, "a.example");
        EXPECT_EQ(message.answers().size(), row.answers) << row.what;
        EXPECT_EQ(message.resolve_error(), 0) << row.what;
        EXPECT_EQ(events.text(),
                  row.failure.empty()
                      ? ""
                      : "300006d void Quillmark::ResolverMessageImpl::parse()|" + row.failure + "\n")
            << row.what;
    }
}

TEST(Resolver, FailsWhereAServerCountsNoAnswers) {
    DnsResponder server("127.0.0.1", [](Asked const& asked) {
        return response(asked, {1, 0}, record(pointer(12), 1, address192));
    });
    server.serveThisThread();
    ResolverMessage const message = Resolver::instance()->submit(1, 1, "a.example");
    EXPECT_TRUE(message.isEmpty());
    EXPECT_EQ(message.resolve_error(), NO_DATA);
}

TEST(Resolver, FindsAnAddress) {
    DnsResponder server("127.0.0.1", hostAnswer);
    server.serveThisThread();
    Resolver const& resolver = *Resolver::instance();
    EXPECT_EQ(resolver.getIPAddress(HostName("host.example.com", false, false)).asString(true), "192.0.2.1");
    EXPECT_EQ(server.asked(), "host.example.com 1 1\n");
    EXPECT_TRUE(resolver.getIPAddress(HostName("none.example.com", false, false)).isNull());
    server.asked();
    // Without a question.
    EXPECT_TRUE(resolver.getIPAddress(HostName()).isNull());
    EXPECT_EQ(resolver.getIPAddress(HostName("192.0.2.7", false, false)).asString(true), "192.0.2.7");
    EXPECT_EQ(resolver.getIPAddress(HostName("2001:DB8::7", false, false)).asString(true), "2001:db8::7");
    EXPECT_EQ(server.asked(), "");
}

TEST(Resolver, FindsAHost) {
    DomainLists const lists;
    DnsResponder server("127.0.0.1", [](Asked const& asked) {
        if (asked.name == "1.2.0.192.in-addr.arpa")
            return answer(asked, {record(pointer(12), 12, name("nodomain")),
                                  record(pointer(12), 12, name("Host.Example.com"))});
        if (asked.name.find(".ip6.arpa") != std::string::npos)
            return answer(asked, {record(pointer(12), 12, name("six.example.com"))});
        return noSuchName(asked);
    });
    server.serveThisThread();
    Resolver const& resolver = *Resolver::instance();
    EXPECT_EQ(resolver.getHostname(IPAddress("192.0.2.1"s)).asString(), "host.example.com");
    EXPECT_EQ(server.asked(), "1.2.0.192.in-addr.arpa 12 1\n");
    EXPECT_EQ(resolver.getHostname(IPAddress("2001:db8::1"s)).asString(), "six.example.com");
    EXPECT_EQ(server.asked(),
              "1.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.8.b.d.0.1.0.0.2.ip6.arpa 12 1\n");
    EXPECT_TRUE(resolver.getHostname(IPAddress("192.0.2.2"s)).isNull());
    EXPECT_EQ(failureOf([&] { (void)resolver.getHostname(IPAddress()); }), "IPAddress( 1 ) , IPAddress");
}

// A reverse name is whole, also for a thread that has names completed.
TEST(Resolver, CompletesNoReverseName) {
    DnsResponder server("127.0.0.1", noSuchName);
    onThread([&] {
        server.serveThisThread();
        std::snprintf(_res.defdname, sizeof _res.defdname, "example.org");
        _res.dnsrch[0] = _res.defdname;
        _res.dnsrch[1] = nullptr;
        _res.options |= RES_DEFNAMES | RES_DNSRCH;
        Resolver::instance()->getHostname(IPAddress("192.0.2.1"s));
    });
    EXPECT_EQ(server.asked(), "1.2.0.192.in-addr.arpa 12 1\n");
}

TEST(Resolver, PointsAThreadAtAnIPv4Server) {
    onThread([] {
        Resolver const& resolver = *Resolver::instance();
        _res.nscount = 3;
        _res._u._ext.nscount = _res._u._ext.nscount6 = 2;
        resolver.server(IPAddress("192.0.2.53"s), 5353);
        EXPECT_EQ(_res.nscount, 1);
        EXPECT_EQ(_res.nsaddr_list[0].sin_family, 2);
        EXPECT_EQ(_res.nsaddr_list[0].sin_port, htons(5353));
        EXPECT_EQ(_res.nsaddr_list[0].sin_addr.s_addr, htonl(0xc0000235));
        EXPECT_EQ(_res._u._ext.nscount, 0);
        EXPECT_EQ(_res._u._ext.nscount6, 0);
    });
}

TEST(Resolver, PointsAThreadAtAnIPv6Server) {
    onThread([] {
        Resolver::instance()->server(IPAddress("192.0.2.53"s), 5353);
        _res.nscount = 3;
        Resolver::instance()->server(IPAddress("2001:db8::53"s), 53);
        EXPECT_EQ(_res.nscount, 1);
        EXPECT_EQ(_res._u._ext.nscount, 1);
        EXPECT_EQ(_res._u._ext.nscount6, 1);
        sockaddr_in6& slot = *_res._u._ext.nsaddrs[0];
        EXPECT_EQ(slot.sin6_family, 10);
        EXPECT_EQ(slot.sin6_port, htons(53));
        EXPECT_EQ(slot.sin6_flowinfo, 0U);
        EXPECT_EQ(slot.sin6_scope_id, 1U);
        EXPECT_EQ(IPAddress(slot.sin6_addr).asString(true), "2001:db8::53");
        // Kept for the daemons: the port is looked up here.
        EXPECT_EQ(_res.nsaddr_list[0].sin_port, htons(5353));

        sockaddr_in6 const* const before = &slot;
        slot.sin6_flowinfo = slot.sin6_scope_id = 7;
        Resolver::instance()->server(IPAddress("2001:db8::54"s), 54);
        EXPECT_EQ(_res._u._ext.nsaddrs[0], before);
        EXPECT_EQ(slot.sin6_flowinfo, 0U);
        EXPECT_EQ(slot.sin6_scope_id, 1U);
    });
}

TEST(Resolver, LeavesTheServerForANullAddress) {
    onThread([] {
        Resolver::instance()->server(IPAddress("192.0.2.53"s), 5353);
        Resolver::instance()->server(IPAddress(), 1);
        EXPECT_EQ(_res.nsaddr_list[0].sin_port, htons(5353));
        EXPECT_EQ(_res.nsaddr_list[0].sin_addr.s_addr, htonl(0xc0000235));
        Resolver::instance()->server(IPAddress(ip_addr_t{}), 1);
        EXPECT_EQ(_res.nsaddr_list[0].sin_port, htons(5353));
    });
}

TEST(Resolver, ChangesServersBackAndForth) {
    DnsResponder one("127.0.0.1", noSuchName);
    DnsResponder two("::1", noSuchName);
    DnsResponder three("::1", noSuchName);
    DnsResponder four("127.0.0.2", noSuchName);
    for (DnsResponder* server : {&two, &one, &two, &three, &four, &one, &three}) {
        server->serveThisThread();
        Resolver::instance()->submit(1, 1, "a.example");
        EXPECT_EQ(server->asked(), "a.example 1 1\n") << server->addressText();
        EXPECT_EQ(one.asked() + two.asked() + three.asked() + four.asked(), "");
    }
}

TEST(Resolver, KeepsAServerPerThread) {
    DnsResponder here("127.0.0.1", noSuchName);
    DnsResponder there("127.0.0.1", noSuchName);
    here.serveThisThread();
    onThread([&] {
        there.serveThisThread();
        Resolver::instance()->submit(1, 1, "there.example");
    });
    Resolver::instance()->submit(1, 1, "here.example");
    EXPECT_EQ(here.asked(), "here.example 1 1\n");
    EXPECT_EQ(there.asked(), "there.example 1 1\n");
}

TEST(Resolver, ServesThreadsAtOnceAndLeavesNothingOpen) {
    DnsResponder v4("127.0.0.1", hostAnswer);
    DnsResponder v6("::1", hostAnswer);
    Resolver::instance();
    std::size_t const before = openDescriptors();
    for (int round = 0; round < 3; ++round) {
        std::atomic<int> found{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; ++i)
            threads.emplace_back([&, i] {
                (i % 2 ? v4 : v6).serveThisThread();
                for (int j = 0; j < 5; ++j)
                    found += !Resolver::instance()
                                  ->getIPAddress(HostName("host.example.com", false, false))
                                  .isNull();
            });
        for (std::thread& thread : threads) thread.join();
        EXPECT_EQ(found, 40);
    }
    EXPECT_EQ(openDescriptors(), before);
}
