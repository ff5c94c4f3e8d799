#include "include2/SocketAddress"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/un.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>

#include "include2/Host"
#include "tests/support/Support.h"

using namespace Quillmark;
using QuillmarkTest::failureOf;
using QuillmarkTest::hex;
using QuillmarkTest::slotOf;

namespace {

std::string const nullFailure = "SocketAddress( 1 ) , SocketAddress";

std::string bytesOf(SocketAddress const& address) {
    sockaddr* const record = address;
    return hex({reinterpret_cast<char const*>(record), address.size()});
}

template <class Record>
sockaddr const& asSockaddr(Record const& record) {
    return reinterpret_cast<sockaddr const&>(record);
}

sockaddr_in inetRecord() {
    sockaddr_in record{};
    record.sin_family = AF_INET;
    record.sin_port = htons(8080);
    ::inet_pton(AF_INET, "192.0.2.7", &record.sin_addr);
    return record;
}

std::string textOf(SocketAddress const& address) {
    return address.asINET().address().asString(true) + " " + std::to_string(address.asINET().port());
}

}  // namespace

TEST(SocketAddress, IsNullUntilItHasAValue) {
    SocketAddress const address;
    EXPECT_TRUE(address.isNull());
    EXPECT_FALSE(address.isUNIX());
    EXPECT_FALSE(address.isINET());
    EXPECT_EQ(failureOf([&] { (void)address.size(); }), nullFailure);
    EXPECT_EQ(failureOf([&] { (void)static_cast<sockaddr*>(address); }), nullFailure);
    EXPECT_EQ(failureOf([&] { (void)address.asUNIX(); }), nullFailure + " \"Not a UNIX address\"");
    EXPECT_EQ(failureOf([&] { (void)address.asINET(); }), nullFailure + " \"Not an INET address\"");
}

TEST(SocketAddress, HasItsVirtualOperationsInTheirPlaces) {
    EXPECT_EQ(slotOf(&_SocketAddress::size), 2U);
    EXPECT_EQ(slotOf(&_SocketAddress::operator sockaddr*), 3U);
    EXPECT_TRUE((std::is_base_of_v<RefImpl, _SocketAddress>));
}

TEST(SocketAddress, OfAnIPv4AddressIsASockaddrIn) {
    SocketAddress const address(IPAddress("192.0.2.7"), 8080);
    EXPECT_FALSE(address.isNull());
    EXPECT_TRUE(address.isINET());
    EXPECT_FALSE(address.isUNIX());
    EXPECT_EQ(address.size(), 16U);
    EXPECT_EQ(bytesOf(address), "02001f90c00002070000000000000000");
    EXPECT_EQ(bytesOf(address), bytesOf(address));  // built once, given again
    EXPECT_EQ(address.asINET().type(), 1U);
    EXPECT_EQ(textOf(address), "192.0.2.7 8080");
    EXPECT_EQ(failureOf([&] { (void)address.asUNIX(); }), nullFailure + " \"Not a UNIX address\"");
}

TEST(SocketAddress, OfAnIPv6AddressIsASockaddrIn6) {
    SocketAddress const address(IPAddress("2001:db8::1"), 25);
    EXPECT_EQ(address.size(), 28U);
    EXPECT_EQ(bytesOf(address),
              "0a00001900000000"
              "20010db8000000000000000000000001"
              "00000000");
}

TEST(SocketAddress, OfAHostHasTheHostsAddress) {
    EXPECT_EQ(textOf(SocketAddress(Host(IPAddress("192.0.2.7")), 8080)), "192.0.2.7 8080");
    EXPECT_EQ(textOf(SocketAddress(Host("2001:db8::1", false), 25)), "2001:db8::1 25");
    EXPECT_EQ(failureOf([] { SocketAddress(Host(), 25); }), "Host( 1 ) , Host");
}

TEST(SocketAddress, KeepsAPortOf32BitsAndSendsTheLowSixteen) {
    SocketAddress const address(IPAddress("127.0.0.1"), 0x10019);
    EXPECT_EQ(address.asINET().port(), 0x10019U);
    EXPECT_EQ(bytesOf(address).substr(0, 8), "02000019");
}

TEST(SocketAddress, OfNoIPAddressHasNoSystemForm) {
    SocketAddress const address(IPAddress(), 80);
    EXPECT_FALSE(address.isNull());
    EXPECT_EQ(address.size(), 28U);
    EXPECT_EQ(failureOf([&] { (void)static_cast<sockaddr*>(address); }), "IPAddress( 1 ) , IPAddress");
}

TEST(SocketAddress, OfAPathIsASockaddrUn) {
    SocketAddress const address(std::string("/tmp/s"));
    EXPECT_TRUE(address.isUNIX());
    EXPECT_FALSE(address.isINET());
    EXPECT_EQ(address.size(), 8U);
    EXPECT_EQ(bytesOf(address), "01002f746d702f73");
    sockaddr_un const* const record = reinterpret_cast<sockaddr_un*>(static_cast<sockaddr*>(address));
    EXPECT_EQ(std::string(record->sun_path + 6, 102), std::string(102, '\0'));
    EXPECT_EQ(address.asUNIX().type(), 2U);
    EXPECT_EQ(address.asUNIX().path(), "/tmp/s");
    EXPECT_EQ(failureOf([&] { (void)address.asINET(); }), nullFailure + " \"Not an INET address\"");
}

TEST(SocketAddress, CutsALongPathWithoutATerminator) {
    for (std::size_t const length : {107U, 108U, 109U, 100'000U}) {
        SocketAddress const address(std::string(length, 'p'));
        EXPECT_EQ(address.size(), length + 2);
        std::string const record(reinterpret_cast<char const*>(static_cast<sockaddr*>(address)), length + 2);
        std::size_t const kept = std::min<std::size_t>(length, 108);
        EXPECT_EQ(record.substr(2), std::string(kept, 'p') + std::string(length - kept, '\0')) << length;
    }
}

TEST(SocketAddress, EndsAPathAtItsFirstNul) {
    SocketAddress const address(std::string("a\0b", 3));
    EXPECT_EQ(bytesOf(address), "0100610000");
    EXPECT_EQ(SocketAddress(std::string()).size(), 2U);
}

TEST(SocketAddress, FromASystemAddressKeepsItsFamilyUnlessMapped) {
    sockaddr_in const v4 = inetRecord();
    EXPECT_EQ(textOf(SocketAddress(asSockaddr(v4), false)), "192.0.2.7 8080");
    EXPECT_EQ(SocketAddress(asSockaddr(v4), false).size(), 16U);
    EXPECT_EQ(textOf(SocketAddress(asSockaddr(v4), true)), "::ffff:192.0.2.7 8080");
    EXPECT_EQ(SocketAddress(asSockaddr(v4), true).size(), 28U);

    sockaddr_in6 v6{};
    v6.sin6_family = AF_INET6;
    v6.sin6_port = htons(25);
    v6.sin6_addr = in6addr_loopback;
    for (bool const mapped : {false, true})
        EXPECT_EQ(textOf(SocketAddress(asSockaddr(v6), mapped)), "::1 25");
}

TEST(SocketAddress, FromALocalSystemAddressIsAPath) {
    sockaddr_un record{};
    record.sun_family = AF_UNIX;
    std::strcpy(record.sun_path, "/run/x");
    SocketAddress const address(asSockaddr(record), false);
    EXPECT_TRUE(address.isUNIX());
    EXPECT_EQ(address.asUNIX().path(), "/run/x");
    std::memset(record.sun_path, 'q', sizeof record.sun_path);
    EXPECT_EQ(SocketAddress(asSockaddr(record), true).asUNIX().path(), std::string(108, 'q'));
}

TEST(SocketAddress, FromAnotherFamilyHasNoAddress) {
    sockaddr record{};
    for (int const family : {0, 3, 17}) {
        record.sa_family = static_cast<sa_family_t>(family);
        SocketAddress const address(record, false);
        EXPECT_TRUE(address.isINET()) << family;
        EXPECT_TRUE(address.asINET().address().isNull()) << family;
        EXPECT_EQ(address.asINET().port(), 0U) << family;
    }
}

TEST(SocketAddress, CopiesShareTheValue) {
    SocketAddress first(std::string("/tmp/s"));
    SocketAddress const copy(first);
    EXPECT_EQ(&copy.asUNIX(), &first.asUNIX());
    SocketAddress const moved(std::move(first));
    EXPECT_TRUE(first.isNull());  // NOLINT(bugprone-use-after-move)
    first = moved;
    EXPECT_EQ(&first.asUNIX(), &copy.asUNIX());
    EXPECT_TRUE(std::has_virtual_destructor_v<SocketAddress>);
}
