#include "include2/Host"

#include <type_traits>

#include "include2/Resolver"
#include "tests/net/DnsFromC.h"
#include "tests/net/DnsResponder.h"
#include "tests/support/DomainLists.h"
#include "tests/support/Support.h"

using namespace Quillmark;
using namespace QuillmarkTest;
using namespace std::string_literals;

namespace {

std::string v4(unsigned int last) {
    return "\xc0\0\2"s + u8(last);
}

std::string v6(unsigned int last) {
    return "\x20\1\xd\xb8\0\0\0\0\0\0\0\0\0\0\0"s + u8(last);
}

/// A host with two addresses of either family; each answer holds records that were not asked for, too.
std::string hostAnswer(Asked const& asked) {
    std::string const owner = pointer(12);
    bool const isHost = asked.name == "host.example.com";
    if (isHost && asked.type == 1)
        return answer(asked, {record(owner, 5, name("c.example.com")), record(owner, 1, v4(1)),
                              record(owner, 28, v6(9)), record(owner, 1, v4(2))});
    if (isHost && asked.type == 28)
        return answer(asked, {record(owner, 1, v4(9)), record(owner, 28, v6(1)), record(owner, 28, v6(2))});
    if (asked.name == "six.example.com" && asked.type == 28) return answer(asked, {record(owner, 28, v6(3))});
    if (asked.name == "1.2.0.192.in-addr.arpa")
        return answer(asked, {record(owner, 12, name("host.example.com"))});
    return noSuchName(asked);
}

std::string listed(Host const& host) {
    std::string text;
    for (IPAddress const& address : host.addressList()) text += address.asString(true) + " ";
    return text;
}

HostName hostName(char const* text) {
    return HostName(text, false, false);
}

class HostLookup : public testing::Test {
protected:
    HostLookup() { m_server.serveThisThread(); }

    DomainLists m_lists;
    DnsResponder m_server{"127.0.0.1", hostAnswer};
};

}  // namespace

static_assert(std::has_virtual_destructor_v<Host>);

TEST(Host, IsNullOfNothing) {
    EXPECT_TRUE(Host().isNull());
    EXPECT_TRUE(Host(HostName()).isNull());
    EXPECT_TRUE(Host(IPAddress()).isNull());
    EXPECT_TRUE(Host("x", false).isNull());
    EXPECT_TRUE(Host("", false).isNull());
    DomainLists const lists;
    EXPECT_TRUE(Host("host.nowhere", true).isNull());
    EXPECT_FALSE(Host("host.nowhere", false).isNull());
    EXPECT_FALSE(Host("host.example.com", true).isNull());
    EXPECT_FALSE(Host("a b", false).isNull());  // a name as it stands
}

TEST(Host, NullRefusesQuestions) {
    Host const null;
    EXPECT_EQ(failureOf([&] { (void)null.name(); }), "Host( 1 ) , Host");
    EXPECT_EQ(failureOf([&] { (void)null.address(); }), "Host( 1 ) , Host");
    EXPECT_EQ(failureOf([&] { (void)null.addressList(); }), "Host( 1 ) , Host");
}

TEST(Host, RefusesToStoreANullName) {
    HostImpl impl(hostName("host.example.com"));
    EXPECT_EQ(failureOf([&] { impl.name(HostName()); }), "Host( 1 ) , Host");
    EXPECT_EQ(impl.name().asString(), "host.example.com");
    EXPECT_EQ(failureOf([&] { HostImpl const refused{HostName()}; }), "Host( 1 ) , Host");
}

TEST_F(HostLookup, TakesALiteralForTheAddress) {
    for (char const* text : {"192.0.2.7", "2001:db8::7"}) {
        Host const host(text, true);
        EXPECT_EQ(host.address().asString(true), text);
        EXPECT_EQ(listed(host), text + " "s);
        EXPECT_EQ(Host(hostName(text)).address().asString(true), text);
    }
    EXPECT_EQ(m_server.asked(), "");
}

TEST_F(HostLookup, AsksForTheAddressOnce) {
    Host const host(hostName("host.example.com"));
    EXPECT_EQ(host.name().asString(), "host.example.com");
    EXPECT_EQ(m_server.asked(), "");
    Host const copy = host;
    EXPECT_EQ(copy.address().asString(true), "192.0.2.1");
    EXPECT_EQ(host.address().asString(true), "192.0.2.1");
    EXPECT_EQ(&host.address(), &copy.address());
    EXPECT_EQ(m_server.asked(), "host.example.com 1 1\n");
}

TEST_F(HostLookup, AsksForTheNameOnce) {
    Host const host(IPAddress("192.0.2.1"s));
    EXPECT_EQ(host.address().asString(true), "192.0.2.1");
    EXPECT_EQ(m_server.asked(), "");
    EXPECT_EQ(host.name().asString(), "host.example.com");
    EXPECT_EQ(host.name().asString(), "host.example.com");
    EXPECT_EQ(m_server.asked(), "1.2.0.192.in-addr.arpa 12 1\n");
}

TEST_F(HostLookup, AsksAgainForWhatItDidNotFind) {
    Host const host("none.example.com", false);
    EXPECT_TRUE(host.address().isNull());
    EXPECT_TRUE(host.address().isNull());
    EXPECT_EQ(m_server.asked(), "none.example.com 1 1\nnone.example.com 1 1\n");
    EXPECT_TRUE(host.addressList().empty());
    EXPECT_TRUE(host.addressList().empty());
    EXPECT_EQ(m_server.asked(),
              "none.example.com 1 1\nnone.example.com 28 1\nnone.example.com 1 1\nnone.example.com 28 1\n");
    Host const nobody(IPAddress("192.0.2.99"s));
    EXPECT_TRUE(nobody.name().isNull());
    EXPECT_TRUE(nobody.name().isNull());
    EXPECT_EQ(m_server.asked(), "99.2.0.192.in-addr.arpa 12 1\n99.2.0.192.in-addr.arpa 12 1\n");
}

TEST_F(HostLookup, ListsTheAddressesOfBothFamilies) {
    Host const host("host.example.com", true);
    EXPECT_EQ(listed(host), "192.0.2.1 192.0.2.2 2001:db8::1 2001:db8::2 ");
    EXPECT_EQ(listed(host), "192.0.2.1 192.0.2.2 2001:db8::1 2001:db8::2 ");
    EXPECT_EQ(m_server.asked(), "host.example.com 1 1\nhost.example.com 28 1\n");
    EXPECT_EQ(listed(Host("six.example.com", true)), "2001:db8::3 ");
}

TEST_F(HostLookup, ListsByTheNameOnceThatIsKnown) {
    Host const host(IPAddress("192.0.2.1"s));
    host.name();
    EXPECT_EQ(listed(host), "192.0.2.1 192.0.2.2 2001:db8::1 2001:db8::2 ");
    EXPECT_EQ(listed(Host(IPAddress("192.0.2.1"s))), "192.0.2.1 ");
}

TEST_F(HostLookup, FillsAnArrayOfC) {
    struct {
        char const* name;
        int max;
        int family;
        char const* result;
    } const rows[] = {
        {"host.example.com", 4, -1, "4 192.0.2.1 192.0.2.2 2001:db8::1 2001:db8::2 |"},
        {"host.example.com", 3, -1, "3 192.0.2.1 192.0.2.2 2001:db8::1 | -"},
        {"host.example.com", 1, -1, "1 192.0.2.1 | - - -"},
        // What is not wanted stays where the next one would have gone.
        {"host.example.com", 4, 2, "2 192.0.2.1 192.0.2.2 | 2001:db8::2 -"},
        {"host.example.com", 4, 10, "2 2001:db8::1 2001:db8::2 | - -"},
        {"host.example.com", 1, 10, "1 2001:db8::1 | - - -"},
        {"host.example.com", 4, 0, "0 | 2001:db8::2 - - -"},
        {"host.example.com", 0, -1, "0 | - - - -"},
        {"host.example.com", -1, -1, "0 | - - - -"},
        {"192.0.2.77", 4, -1, "1 192.0.2.77 | - - -"},
        {"192.0.2.77", 4, 10, "0 | 192.0.2.77 - - -"},
        {"none.example.com", 4, -1, "0 | - - - -"},
        {"x", 4, -1, "0 | - - - -"},
        {"", 4, -1, "0 | - - - -"},
    };
    for (auto const& [name, max, family, result] : rows)
        EXPECT_EQ(taken(addressListFromC(name, max, family)), result) << name << " " << max << " " << family;
    EXPECT_EQ(addressListWithoutArrayFromC("host.example.com", 4), 0);
}

TEST_F(HostLookup, GivesNothingForNoName) {
    EXPECT_EQ(taken(addressListFromC(nullptr, 4, -1)), "0 | - - - -");
}

// Kept for the daemons: whatever room there is.
TEST_F(HostLookup, KnowsLocalhost) {
    EXPECT_EQ(taken(addressListFromC("LOCALHOST", 0, 10)), "1 127.0.0.1 | - - -");
    EXPECT_EQ(taken(addressListFromC("localhost", -5, -1)), "1 127.0.0.1 | - - -");
    EXPECT_EQ(taken(addressListFromC("LocalHost", 4, 2)), "1 127.0.0.1 | - - -");
    EXPECT_EQ(addressListWithoutArrayFromC("localhost", 4), 0);
    EXPECT_EQ(m_server.asked(), "");
    EXPECT_EQ(taken(addressListFromC("localhostx", 4, 2)), "0 | - - - -");
    EXPECT_EQ(taken(addressListFromC("localhos", 4, 2)), "0 | - - - -");
    EXPECT_EQ(m_server.asked(), "localhostx 1 1\nlocalhostx 28 1\nlocalhos 1 1\nlocalhos 28 1\n");
}
