#include <arpa/inet.h>
#include <malloc.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <thread>

#include "include2/Resolver"
#include "tests/net/WireMessage.h"
#include "tests/support/DomainLists.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/Support.h"

using namespace Quillmark;
using namespace QuillmarkTest;
using namespace std::string_literals;

namespace {

constexpr std::size_t largest = 8192;

std::string logged(std::string const& failure) {
    return "300006d void Quillmark::ResolverMessageImpl::parse()|" + failure + "\n";
}

std::string repeated(std::string const& text, std::size_t count) {
    std::string result;
    for (std::size_t i = 0; i < count; ++i) result += text;
    return result;
}

/// One answer, printed without its number.
std::string answered(std::string const& wireRecord) {
    std::string const text = printed(parsed(header({0, 1}) + wireRecord));
    std::string const heading = "Answers:\n1: ";
    return text.compare(0, heading.size(), heading) == 0 ? text.substr(heading.size()) : text;
}

/// What a name at the start of some bytes reads as, in quotes, or the failure.
std::string named(std::string const& bytes) {
    auto const message = behindHeader(bytes);
    std::string text;
    std::string const failure = failureOf([&] { message->parseName(text); });
    return failure == "nothing thrown" ? '"' + text + '"' : failure;
}

std::string const badName = "Resolver::ParseName( 5 ) , Resolver \"OutOfBounds name index\"";

std::string corrupt(char const* operation) {
    return "Resolver::"s + operation + "( 5 ) , Resolver \"Packet is corrupt\"";
}

std::string fault(std::string const& bytes,
                  void (ResolverMessageImpl::*operation)(ResolverMessage::Record&)) {
    auto const message = behindHeader(bytes);
    ResolverMessage::Record record;
    return failureOf([&] { (message.get()->*operation)(record); });
}

std::string exchanges(ResolverMessage const& message) {
    std::string text;
    for (auto const& record : message.mxRecords())
        text += record.value + "=" + std::to_string(record.mxRank) + " ";
    return text;
}

}  // namespace

TEST(RecordType, HasANumberOnTheWireAndANameForEachOfOurs) {
    struct {
        Resolver::RecordType type;
        int number;
        int dns;
        char const* name;
    } const rows[] = {
        {Resolver::TypeA, 1, 1, "A"},         {Resolver::TypeNS, 2, 2, "NS"},
        {Resolver::TypeCNAME, 3, 5, "CNAME"}, {Resolver::TypePTR, 4, 12, "PTR"},
        {Resolver::TypeMX, 5, 15, "MX"},      {Resolver::TypeTXT, 6, 16, "TXT"},
        {Resolver::TypeSOA, 7, 6, "SOA"},     {Resolver::TypeANY, 100, 255, "ANY"},
        {Resolver::TypeAAAA, 8, 28, "AAAA"},  {Resolver::TypeSPF, 99, 99, "SPF"},
    };
    for (auto const& [type, number, dns, name] : rows) {
        EXPECT_EQ(static_cast<int>(type), number) << name;
        EXPECT_EQ(Resolver::convertRecordType(type), dns) << name;
        EXPECT_EQ(Resolver::convertRecordType(dns), type) << name;
        EXPECT_STREQ(Resolver::recordTypeName(type), name);
        EXPECT_STREQ(Resolver::recordTypeName(dns), name);
    }
}

TEST(RecordType, NamesTheOtherNumbersOfTheWire) {
    std::map<std::string, int> const others = {
        {"DLV", 32769}, {"DNSKEY", 48}, {"DS", 43},       {"NSEC", 47},  {"NSEC3", 50},  {"NSEC3PARAM", 51},
        {"RRSIG", 46},  {"TA", 32768},  {"MD", 3},        {"MF", 4},     {"MB", 7},      {"MG", 8},
        {"MR", 9},      {"NULL", 10},   {"WKS", 11},      {"HINFO", 13}, {"MINFO", 14},  {"RP", 17},
        {"AFSDB", 18},  {"X25", 19},    {"ISDN", 20},     {"RT", 21},    {"NSAP", 22},   {"NSAP_PTR", 23},
        {"SIG", 24},    {"KEY", 25},    {"PX", 26},       {"GPOS", 27},  {"LOC", 29},    {"NXT", 30},
        {"EID", 31},    {"NIMLOC", 32}, {"SRV", 33},      {"ATMA", 34},  {"NAPTR", 35},  {"KX", 36},
        {"CERT", 37},   {"A6", 38},     {"DNAME", 39},    {"SINK", 40},  {"OPT", 41},    {"APL", 42},
        {"TKEY", 249},  {"TSIG", 250},  {"IXFR", 251},    {"AXFR", 252}, {"MAILB", 253}, {"MAILA", 254},
        {"ZXFR", 256},  {"SSHFP", 44},  {"IPSECKEY", 45}, {"HIP", 55},   {"DHCID", 49}};
    EXPECT_EQ(others.size(), 53U);
    for (auto const& [name, dns] : others) {
        EXPECT_EQ(Resolver::recordTypeName(dns), name);
        EXPECT_EQ(Resolver::convertRecordType(dns), Resolver::TypeUnknown) << name;
    }
}

TEST(RecordType, IsUnknownWithoutARow) {
    for (int const dns : {-1, 0, 52, 100, 65535, 70000}) {
        EXPECT_EQ(Resolver::convertRecordType(dns), Resolver::TypeUnknown) << dns;
        EXPECT_STREQ(Resolver::recordTypeName(dns), "Unknown") << dns;
    }
    EXPECT_EQ(Resolver::convertRecordType(Resolver::TypeUnknown), 255);
    EXPECT_STREQ(Resolver::recordTypeName(Resolver::TypeUnknown), "Unknown");
    auto const none = static_cast<Resolver::RecordType>(42);
    EXPECT_EQ(Resolver::convertRecordType(none), 255);
    EXPECT_STREQ(Resolver::recordTypeName(none), "Unknown");
}

TEST(RecordClass, HasANumberOnTheWireAndAName) {
    struct {
        Resolver::RecordClass recordClass;
        int number;
        int dns;
        char const* name;
    } const rows[] = {
        {Resolver::ClassIN, 1, 1, "IN"},       {Resolver::ClassCS, 2, 2, "CS"},
        {Resolver::ClassCH, 3, 3, "CH"},       {Resolver::ClassHS, 4, 4, "HS"},
        {Resolver::ClassNONE, 5, 254, "NONE"}, {Resolver::ClassANY, 6, 255, "ANY"},
    };
    for (auto const& [recordClass, number, dns, name] : rows) {
        EXPECT_EQ(static_cast<int>(recordClass), number) << name;
        EXPECT_EQ(Resolver::convertRecordClass(recordClass), dns) << name;
        EXPECT_EQ(Resolver::convertRecordClass(dns), recordClass) << name;
        EXPECT_STREQ(Resolver::recordClassName(recordClass), name);
        EXPECT_STREQ(Resolver::recordClassName(dns), name);
    }
    for (int const dns : {-1, 0, 5, 6, 253, 256}) {
        EXPECT_EQ(Resolver::convertRecordClass(dns), Resolver::ClassUnknown) << dns;
        EXPECT_STREQ(Resolver::recordClassName(dns), "Unknown") << dns;
    }
    EXPECT_EQ(Resolver::convertRecordClass(Resolver::ClassUnknown), 1);
    EXPECT_STREQ(Resolver::recordClassName(Resolver::ClassUnknown), "Unknown");
    EXPECT_EQ(Resolver::convertRecordClass(static_cast<Resolver::RecordClass>(42)), 1);
    EXPECT_STREQ(Resolver::recordClassName(static_cast<Resolver::RecordClass>(42)), "Unknown");
}

TEST(ResolverMessage, NullRefusesQuestionsAboutItself) {
    ResolverMessage const null;
    EXPECT_TRUE(null.isNull());
    std::string const refused = "ResolverMessage( 1 ) , Resolver";
    EXPECT_EQ(failureOf([&] { (void)null.queries(); }), refused);
    EXPECT_EQ(failureOf([&] { (void)null.answers(); }), refused);
    EXPECT_EQ(failureOf([&] { (void)null.nameserverRecords(); }), refused);
    EXPECT_EQ(failureOf([&] { (void)null.additionalRecords(); }), refused);
    EXPECT_EQ(failureOf([&] { (void)null.mxRecords(); }), refused);
    EXPECT_EQ(failureOf([&] { (void)null.getCanonicalName(); }), refused);
    EXPECT_EQ(failureOf([&] { (void)null.getHostname(); }), refused);
    EXPECT_EQ(failureOf([&] { (void)null.getIPAddress(); }), refused);
    EXPECT_EQ(failureOf([&] { (void)null.isAuthouritativeAnswer(); }), refused);
    EXPECT_EQ(failureOf([&] { (void)null.isTruncated(); }), refused);
    EXPECT_EQ(failureOf([&] { (void)null.isEmpty(); }), refused);
    EXPECT_EQ(failureOf([&] { (void)null.resolve_error(); }), refused);
    EXPECT_EQ(failureOf([&] { (void)null.errorAsString(); }), refused);
    EXPECT_EQ(printed(null), "DNS query response is NULL\n");
}

TEST(ResolverMessage, SharesItsBytesAmongCopies) {
    ResolverMessage const first = parsed(header({0, 1}) + record(name("a.example"), 1, "\x7f\0\0\1"s));
    ResolverMessage const second = first;
    EXPECT_EQ(&first.answers(), &second.answers());
    EXPECT_EQ(second.answers().size(), 1U);
}

TEST(ResolverMessage, IsParsedByTheFirstLook) {
    auto const message = filled("");
    ResolverMessage const handle(message.get(), true);
    EXPECT_TRUE(handle.isEmpty());
    EXPECT_TRUE(handle.answers().empty());
    // What comes later is too late.
    std::string const bytes = header({0, 1}) + record(name("a.example"), 1, "\1\2\3\4");
    std::memcpy(message->data(), bytes.data(), bytes.size());
    message->length(static_cast<int>(bytes.size()));
    EXPECT_TRUE(handle.answers().empty());
}

TEST(ResolverMessage, HasFourSectionsInWireOrder) {
    ResolverMessage const message = parsed(
        header({2, 2, 1, 1}) + question(name("one.example"), 1) + question(name("two.example"), 15, 3) +
        record(pointer(12), 1, "\xc0\0\2\1"s) + record(pointer(12), 1, "\xc0\0\2\2"s) +
        record(pointer(16), 2, name("ns.example"), 3600) + record(name("ns.example"), 1, "\xc0\0\2\3"s));
    EXPECT_EQ(printed(message),
              "Queries:\n"
              "1: type=A, class=IN, name=one.example\n"
              "2: type=MX, class=CH, name=two.example\n"
              "Answers:\n"
              "1: type=A, class=IN, name=one.example, ttl=60, value=192.0.2.1\n"
              "2: type=A, class=IN, name=one.example, ttl=60, value=192.0.2.2\n"
              "Name Server Records:\n"
              "1: type=NS, class=IN, name=example, ttl=3600, value=ns.example\n"
              "Additional Records:\n"
              "1: type=A, class=IN, name=ns.example, ttl=60, value=192.0.2.3\n");
}

TEST(ResolverMessage, HasAsManyEntriesInASectionAsItsHeaderSays) {
    // More records than all counts together: those left over are nobody's.
    std::string const bytes = header({1, 3, 2, 4}) + question(name("a.example"), 1) +
                              repeated(record(pointer(12), 1, "\1\2\3\4"), 20);
    ResolverMessage const message = parsed(bytes);
    EXPECT_EQ(message.queries().size(), 1U);
    EXPECT_EQ(message.answers().size(), 3U);
    EXPECT_EQ(message.nameserverRecords().size(), 2U);
    EXPECT_EQ(message.additionalRecords().size(), 4U);
}

// The fields are taken by their places: daemons were compiled with them.
TEST(ResolverMessage, KeepsEveryFieldOfAQuestion) {
    ResolverMessage const message = parsed(header({1}) + question(name("x.example"), 33, 254));
    auto const& [type, recordClass, owner, dnsType, dnsClass] = message.queries().front();
    EXPECT_EQ(type, Resolver::TypeUnknown);
    EXPECT_EQ(recordClass, Resolver::ClassNONE);
    EXPECT_EQ(owner, "x.example");
    EXPECT_EQ(dnsType, 33);
    EXPECT_EQ(dnsClass, 254);
}

TEST(ResolverMessage, KeepsEveryFieldOfARecord) {
    std::string const data = name("ns.example") + name("admin.example") + u32(1) + u32(2) + u32(0x80000003U) +
                             u32(4) + u32(0xffffffffU);
    ResolverMessage const message =
        parsed(header({0, 2}) + record(name("example"), 6, data, 0xfffffffeU, 4) +
               record(name("example"), 15, u16(7) + name("mx.example"), 0x80000000U, 255));
    {
        auto const& [type, recordClass, owner, ttl, value, mxRank, mname, rname, serial, refresh, retry,
                     expire, minimum, dnsType, dnsClass, rdata] = message.answers().front();
        EXPECT_EQ(type, Resolver::TypeSOA);
        EXPECT_EQ(recordClass, Resolver::ClassHS);
        EXPECT_EQ(owner, "example");
        EXPECT_EQ(ttl, 0xfffffffeU);
        EXPECT_EQ(value, "");
        EXPECT_EQ(mxRank, 0U);
        EXPECT_EQ(mname, "ns.example");
        EXPECT_EQ(rname, "admin.example");
        EXPECT_EQ(serial, 1U);
        EXPECT_EQ(refresh, 2U);
        EXPECT_EQ(retry, 0x80000003U);
        EXPECT_EQ(expire, 4U);
        EXPECT_EQ(minimum, 0xffffffffU);
        EXPECT_EQ(dnsType, 6);
        EXPECT_EQ(dnsClass, 4);
        EXPECT_EQ(rdata, data);
    }
    ResolverMessage::Record const& mx = message.answers().back();
    EXPECT_EQ(mx.recordClass, Resolver::ClassANY);
    EXPECT_EQ(mx.ttl, 0x80000000U);
    EXPECT_EQ(mx.value, "mx.example");
    EXPECT_EQ(mx.mxRank, 7U);
    EXPECT_EQ(mx.mname + mx.rname, "");
    EXPECT_EQ(mx.serial + mx.refresh + mx.retry + mx.expire + mx.minimum, 0U);
}

TEST(ResolverMessage, PrintsRecordsByTheirType) {
    std::string const owner = name("x.example");
    struct {
        std::string record;
        char const* text;
    } const rows[] = {
        {record(owner, 1, "\xff\1\2\3"s), "type=A, class=IN, name=x.example, ttl=60, value=255.1.2.3\n"},
        {record(owner, 28, "\x20\1\xd\xb8\0\0\0\0\0\0\0\0\0\0\0\1"s),
         "type=AAAA, class=IN, name=x.example, ttl=60, value=2001:db8::1\n"},
        {record(owner, 2, name("ns.example")),
         "type=NS, class=IN, name=x.example, ttl=60, value=ns.example\n"},
        {record(owner, 5, pointer(14), 0), "type=CNAME, class=IN, name=x.example, ttl=0, value=example\n"},
        {record(owner, 12, name(""), 4294967295U),
         "type=PTR, class=IN, name=x.example, ttl=4294967295, value=\n"},
        {record(owner, 15, u16(65535) + name("mx.example")),
         "type=MX, class=IN, name=x.example, ttl=60, value=mx.example, mx-rank=65535\n"},
        {record(owner, 16, "\6v=spf1\5 -all"),
         "type=TXT, class=IN, name=x.example, ttl=60, value=v=spf1 -all\n"},
        {record(owner, 6, pointer(12) + name("") + u32(7) + u32(8) + u32(9) + u32(10) + u32(4294967295U)),
         "type=SOA, class=IN, name=x.example, ttl=60, mname=x.example, rname=, serial=7, refresh=8, retry=9, "
         "expire=10, minimum=4294967295\n"},
        // Types that we have no number of our own for are not named.
        {record(owner, 33, "\0\1\0\2\x1f\x90\xab"s),
         "type=Unknown, class=IN, name=x.example, ttl=60, rdata=[00 01 00 02 1F 90 AB]\n"},
        {record(owner, 99, "\1x"), "type=SPF, class=IN, name=x.example, ttl=60, rdata=[01 78]\n"},
        {record(owner, 255, "\x80"), "type=ANY, class=IN, name=x.example, ttl=60, rdata=[80]\n"},
        {record(owner, 10, ""), "type=Unknown, class=IN, name=x.example, ttl=60, rdata=[]\n"},
        {record(owner, 1, "\1\1\1\1", 60, 77),
         "type=A, class=Unknown, name=x.example, ttl=60, value=1.1.1.1\n"},
    };
    for (auto const& [wire, text] : rows) EXPECT_EQ(answered(wire), text);
}

TEST(ResolverMessage, WritesAddressesAsTheSystemDoes) {
    std::mt19937 random(3);
    auto const below = [&](unsigned int n) { return static_cast<unsigned int>(random() % n); };
    for (int round = 0; round < 3000; ++round) {
        // Many zeros, and what begins like an address with an IPv4 address at its end.
        std::string v6(16, '\0');
        for (char& byte : v6) byte = static_cast<char>(below(3) == 0 ? below(256) : 0);
        if (below(4) == 0) v6.replace(0, 10, 10, '\0');
        if (below(4) == 0) v6.replace(10, 2, "\xff\xff");
        std::string const v4 = v6.substr(12);
        char text[INET6_ADDRSTRLEN];
        EXPECT_EQ(parsed(header({0, 1}) + record(name(""), 28, v6)).answers().front().value,
                  ::inet_ntop(AF_INET6, v6.data(), text, sizeof text));
        EXPECT_EQ(parsed(header({0, 1}) + record(name(""), 1, v4)).answers().front().value,
                  ::inet_ntop(AF_INET, v4.data(), text, sizeof text));
    }
}

TEST(ResolverMessage, PrintsQuestionsByTheirType) {
    struct {
        unsigned int type;
        unsigned int recordClass;
        char const* text;
    } const rows[] = {
        {15, 254, "type=MX, class=NONE"},      {99, 2, "type=SPF, class=CS"},
        {255, 255, "type=ANY, class=ANY"},     {33, 1, "type=Unknown, class=IN"},
        {0, 0, "type=Unknown, class=Unknown"},
    };
    for (auto const& [type, recordClass, text] : rows)
        EXPECT_EQ(printed(parsed(header({1}) + question(name("x.example"), type, recordClass))),
                  "Queries:\n1: "s + text + ", name=x.example\n");
}

TEST(ResolverMessage, PrintsTextsUpToANulAndEscapesNothing) {
    EXPECT_EQ(answered(record("\4a\0bc\0"s, 16, "\5\"\n\0,\\"s)),
              "type=TXT, class=IN, name=a, ttl=60, value=\"\n\n");
}

TEST(ResolverMessage, PrintsAFailedQuestionWithItsReason) {
    auto const message = filled("");
    message->length(0);
    message->resolve_error(1);
    ResolverMessage const failed(message.get(), true);
    EXPECT_EQ(printed(failed), "DNS query failed: error=1(Unknown host)\n");
    EXPECT_EQ(failed.resolve_error(), 1);
    EXPECT_STREQ(failed.errorAsString(), "Unknown host");
}

TEST(ResolverMessage, PrintsNothingForAHeaderAloneAndToNoStream) {
    EXPECT_EQ(printed(parsed(header({}))), "");
    testing::internal::CaptureStdout();
    ResolverMessage().print(nullptr);
    std::fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(ResolverMessage, IsEmptyWithoutBytesAndLogsNothing) {
    LogRecorder const events;
    ResolverMessage const message = parsed("");
    EXPECT_TRUE(message.isEmpty());
    EXPECT_EQ(message.resolve_error(), 0);
    EXPECT_FALSE(message.isAuthouritativeAnswer());
    EXPECT_FALSE(message.isTruncated());
    EXPECT_EQ(events.text(), "");
}

TEST(ResolverMessage, LogsAHeaderThatIsCutOnce) {
    LogRecorder const events;
    std::string const bytes = header({1, 1, 1, 1}, 0xffff);
    ResolverMessage const message = parsed(bytes.substr(0, 11));
    EXPECT_FALSE(message.isEmpty());
    EXPECT_TRUE(message.queries().empty() && message.answers().empty());
    EXPECT_TRUE(message.nameserverRecords().empty() && message.additionalRecords().empty());
    EXPECT_FALSE(message.isAuthouritativeAnswer());
    EXPECT_FALSE(message.isTruncated());
    EXPECT_EQ(events.text(), logged("ResolverMessage( 4 ) , Resolver \"Truncated packet\""));
}

TEST(ResolverMessage, TellsItsFlags) {
    for (unsigned int const flags : {0x0000U, 0x0200U, 0x0400U, 0x0600U, 0xf9ffU, 0xfbffU, 0xfdffU}) {
        ResolverMessage const message = parsed(header({}, flags));
        EXPECT_EQ(message.isAuthouritativeAnswer(), (flags & 0x0400) != 0) << flags;
        EXPECT_EQ(message.isTruncated(), (flags & 0x0200) != 0) << flags;
    }
}

TEST(ResolverMessage, HoldsBytesUpToItsSize) {
    ResolverMessageImpl message;
    EXPECT_EQ(message.size(), largest);
    message.length(9000);
    EXPECT_EQ(message.length(), largest);
    message.length(-1);
    EXPECT_EQ(message.length(), 0U);
    message.length(INT32_MIN);
    EXPECT_EQ(message.length(), 0U);
}

TEST(ResolverMessage, ConvertsItsHeaderInPlaceOnce) {
    auto const message = filled(header({0, 0x0102, 0x0304, 0x0506}, 0x8180, 0xabcd));
    message->length(12);
    std::string const converted = "cdab81800000020104030605";
    EXPECT_EQ(hex({reinterpret_cast<char const*>(message->data()), 12}), converted);
    message->length(12);
    message->parse();
    EXPECT_EQ(hex({reinterpret_cast<char const*>(message->data()), 12}), converted);
}

TEST(ResolverMessage, IsNotParsedAgain) {
    auto const message = filled("");
    message->length(0);
    std::string const bytes = header({0, 1}) + record(name("a.example"), 1, "\1\2\3\4");
    std::memcpy(message->data(), bytes.data(), bytes.size());
    message->length(static_cast<int>(bytes.size()));
    EXPECT_EQ(message->length(), bytes.size());
    EXPECT_TRUE(message->answers().empty());
}

TEST(ResolverMessage, StopsASectionOfRecordsAtTheEndOfTheMessage) {
    LogRecorder const events;
    ResolverMessage const message = parsed(header({0, 9, 9, 9}) + record(name("a.example"), 1, "\1\2\3\4") +
                                           record(pointer(12), 1, "\1\2\3\4"));
    EXPECT_EQ(message.answers().size(), 2U);
    EXPECT_TRUE(message.nameserverRecords().empty());
    EXPECT_TRUE(message.additionalRecords().empty());
    EXPECT_EQ(events.text(), "");
}

TEST(ResolverMessage, DoesNotStopQuestionsAtTheEndOfTheMessage) {
    LogRecorder const events;
    ResolverMessage const message = parsed(header({2, 1}) + question(name("a.example"), 1));
    EXPECT_EQ(message.queries().size(), 1U);
    EXPECT_EQ(events.text(), logged(badName));
}

TEST(ResolverMessage, KeepsWhatStoodBeforeAFaultAndLogsTheFaultOnce) {
    LogRecorder const events;
    ResolverMessage const message = parsed(header({0, 3, 1}) + record(name("a.example"), 1, "\1\2\3\4") +
                                           pointer(12) + u16(1) + u16(1) + u32(60) + u16(100) + "\1\2\3\4");
    EXPECT_EQ(message.answers().size(), 1U);
    EXPECT_TRUE(message.nameserverRecords().empty());
    EXPECT_EQ(message.answers().size(), 1U);
    EXPECT_EQ(events.text(), logged(corrupt("resourceRecordParse")));
}

// Kept for the daemons: the class is read unchecked.
TEST(ResolverMessage, TakesAQuestionWithoutItsClass) {
    LogRecorder const events;
    for (auto const& [rest, dnsClass] : {std::pair{""s, 0}, {"\1"s, 0x0100}, {"\0"s, 0}, {"\1\2"s, 0x0102}}) {
        ResolverMessage const message = parsed(header({1, 1}) + name("a.example") + u16(16) + rest);
        ASSERT_EQ(message.queries().size(), 1U) << dnsClass;
        EXPECT_EQ(message.queries().front().type, Resolver::TypeTXT);
        EXPECT_EQ(message.queries().front().dnsClass, dnsClass);
        EXPECT_TRUE(message.answers().empty());
    }
    EXPECT_EQ(events.text(), "");
}

TEST(ResolverMessage, ReadsZerosBehindItsBytes) {
    // A question whose type fills the last two of all bytes: names of 64 bytes, and one to fill up.
    std::string body;
    while (body.size() < largest - 12 - 200) body += question(name(std::string(60, 'x')), 1);
    std::size_t const left = largest - 12 - body.size() - 2;  // the last name
    std::string last;
    for (std::size_t rest = left - 1; rest != 0;) {
        std::size_t const label = rest <= 64 ? rest - 1 : 31;
        last += u8(static_cast<unsigned int>(label)) + std::string(label, 'y');
        rest -= label + 1;
    }
    auto const count = static_cast<unsigned int>(body.size() / 66) + 1;
    std::string const bytes = header({count}) + body + last + '\0' + u16(28);
    ASSERT_EQ(bytes.size(), largest);
    ResolverMessage const message = parsed(bytes);
    ASSERT_EQ(message.queries().size(), count);
    EXPECT_EQ(message.queries().back().type, Resolver::TypeAAAA);
    EXPECT_EQ(message.queries().back().dnsClass, 0);
}

TEST(ResolverMessage, RefusesAQuestionWithoutItsType) {
    auto const message = behindHeader(name("a.example") + "\1");
    ResolverMessage::Query query;
    EXPECT_EQ(failureOf([&] { message->queryParse(query); }), corrupt("queryParse"));
}

TEST(ResolverMessage, RefusesWhatIsCutShort) {
    std::string const owner = name("a.example");
    using Impl = ResolverMessageImpl;
    EXPECT_EQ(fault(owner + std::string(9, '\1'), &Impl::resourceRecordParse),
              corrupt("resourceRecordParse"));
    EXPECT_EQ(fault(owner + std::string(9, '\0'), &Impl::resourceRecordParse),
              corrupt("resourceRecordParse"));
    EXPECT_EQ(fault(owner + u16(33) + u16(1) + u32(1) + u16(3) + "xx", &Impl::resourceRecordParse),
              corrupt("resourceRecordParse"));
    EXPECT_EQ(fault("xxx", &Impl::parseAddress), corrupt("parseAddress"));
    EXPECT_EQ(fault(std::string(15, 'x'), &Impl::parseAAAA), corrupt("parseAAAA"));
    EXPECT_EQ(fault("\0\1\0"s, &Impl::parseMX), corrupt("parseMx"));
    EXPECT_EQ(fault("\0\1\2x"s, &Impl::parseMX), badName);
    EXPECT_EQ(fault("\1x", &Impl::resourceRecordParse), badName);

    auto const soa = behindHeader(name("a") + name("b") + std::string(19, 'x'));
    ResolverMessage::Record record;
    EXPECT_EQ(failureOf([&] { soa->parseSOA(record, 25); }), corrupt("parseSOA"));
    auto const txt = behindHeader("");
    EXPECT_EQ(failureOf([&] { txt->parseTxt(record, 1); }), corrupt("parseTxt"));
    auto const longTxt = behindHeader("\5text");
    EXPECT_EQ(failureOf([&] { longTxt->parseTxt(record, 100); }), corrupt("parseTxt"));
}

TEST(ResolverMessage, RefusesDataThatIsTooShortForItsType) {
    // Where the data length says nothing, the message ends.
    std::string const owner = name("a.example");
    struct {
        std::string record;
        std::string failure;
    } const rows[] = {
        {record(owner, 1, "\1\2\3"), corrupt("parseAddress")},
        {record(owner, 28, std::string(15, '\1')), corrupt("parseAAAA")},
        {record(owner, 2, ""), badName},
        {record(owner, 5, "\3ab"), badName},
        {record(owner, 12, "\xc0"), badName},
        {record(owner, 15, "\0\1"s), corrupt("parseMx")},
        {record(owner, 6, name("") + name("") + std::string(19, '\0')), corrupt("parseSOA")},
        {record(owner, 16, "\3ab"), corrupt("parseTxt")},
    };
    for (auto const& [wire, failure] : rows) {
        LogRecorder const events;
        EXPECT_TRUE(parsed(header({0, 1}) + wire).answers().empty()) << failure;
        EXPECT_EQ(events.text(), logged(failure));
    }
}

// Kept for the daemons: the data length moves nothing.
TEST(ResolverMessage, GoesOnBehindWhatItRead) {
    std::string const owner = name("a.example");
    std::string const next = record(owner, 16, "\4next");
    auto const second = [&](std::string const& first) {
        ResolverMessage const message = parsed(header({0, 2}) + first + next);
        return message.answers().size() == 2 ? message.answers().back().value : "";
    };
    // Four bytes that no length counts, and two that follow the address.
    EXPECT_EQ(second(owner + u16(1) + u16(1) + u32(1) + u16(0) + "\1\2\3\4"), "next");
    EXPECT_EQ(second(record(owner, 1, "\1\2\3\4xx")), "");
    EXPECT_EQ(second(owner + u16(1) + u16(1) + u32(1) + u16(6) + "\1\2\3\4"), "next");
    EXPECT_EQ(second(owner + u16(2) + u16(1) + u32(1) + u16(9) + name("ns")), "next");
    EXPECT_EQ(second(owner + u16(33) + u16(1) + u32(1) + u16(5) + "12345"), "next");
}

TEST(ResolverMessage, JoinsTheStringsOfATextRecord) {
    LogRecorder const events;
    auto const text = [](std::string const& data) {
        ResolverMessage const message = parsed(header({0, 1}) + record(name("a.example"), 16, data));
        return message.answers().empty() ? "refused" : '"' + message.answers().front().value + '"';
    };
    EXPECT_EQ(text("\6v=spf1\5 -all"), "\"v=spf1 -all\"");
    EXPECT_EQ(text(""), "\"\"");
    EXPECT_EQ(text("\0\0\0"s), "\"\"");
    EXPECT_EQ(text("\0\2ab\0\1c\0"s), "\"abc\"");
    EXPECT_EQ(text("\xff" + std::string(255, 'x') + "\xff" + std::string(255, 'y')),
              '"' + std::string(255, 'x') + std::string(255, 'y') + '"');
    EXPECT_EQ(text("\2a"), "refused");
    EXPECT_EQ(text("\1"), "refused");
    EXPECT_EQ(text("\1a\1"), "refused");
}

TEST(ResolverMessage, RefusesATextThatLeavesItsRecordForTheNext) {
    LogRecorder const events;
    ResolverMessage const message = parsed(header({0, 2}) + record(name("a.example"), 16, "\4abc") +
                                           record(name("b.example"), 16, "\1d"));
    EXPECT_TRUE(message.answers().empty());
}

TEST(ResolverMessage, TakesANullExchangeUnlessItEndsTheMessage) {
    LogRecorder const events;
    std::string const nullMx = record(name("a.example"), 15, u16(0) + name(""));
    EXPECT_EQ(parsed(header({0, 1}) + nullMx).answers().size(), 0U);
    EXPECT_EQ(parsed(header({0, 2}) + nullMx + record(name("b.example"), 1, "\1\2\3\4")).answers().size(),
              2U);
}

TEST(ResolverMessage, OrdersExchangesByRankAndName) {
    std::string const owner = name("a.example");
    auto const mx = [&](unsigned int rank, char const* exchange) {
        return record(owner, 15, u16(rank) + name(exchange));
    };
    EXPECT_EQ(exchanges(parsed(header({0, 4}) + mx(20, "c") + mx(10, "b") + mx(10, "a") + mx(5, "d"))),
              "d=5 a=10 b=10 c=20 ");
    // Two ranks of one exchange: the first answer counts.
    EXPECT_EQ(exchanges(parsed(header({0, 2}) + mx(20, "a") + mx(10, "a"))), "a=20 ");
    // Also where another exchange stands between the two.
    EXPECT_EQ(exchanges(parsed(header({0, 3}) + mx(10, "a") + mx(15, "b") + mx(20, "a"))), "a=10 b=15 ");
    EXPECT_EQ(exchanges(parsed(header({0, 3}) + mx(20, "a") + mx(15, "b") + mx(10, "a"))), "b=15 a=20 ");
    // Bytes, not letters.
    EXPECT_EQ(exchanges(parsed(header({0, 2}) + mx(10, "a") + mx(10, "A"))), "A=10 a=10 ");
}

TEST(ResolverMessage, TakesExchangesOutOfAnswersOfThatTypeOnly) {
    std::string const owner = name("a.example");
    ResolverMessage const message = parsed(header({0, 2, 1}) + record(owner, 5, name("cname.example")) +
                                           record(owner, 15, u16(1) + name("mx.example")) +
                                           record(owner, 15, u16(0) + name("other.example")));
    EXPECT_EQ(exchanges(message), "mx.example=1 ");
    EXPECT_EQ(&message.mxRecords(), &message.mxRecords());
}

TEST(RecordCompare, TakesRecordsOfOneExchangeAsEquivalent) {
    auto const mx = [](unsigned int rank, char const* value) {
        ResolverMessage::Record record;
        record.mxRank = rank;
        record.value = value;
        return record;
    };
    ResolverMessage::RecordCompare const before{};
    EXPECT_FALSE(before(mx(1, "a"), mx(2, "a")) || before(mx(2, "a"), mx(1, "a")));
    EXPECT_TRUE(before(mx(1, "b"), mx(2, "a")) && !before(mx(2, "a"), mx(1, "b")));
    EXPECT_TRUE(before(mx(1, "a"), mx(1, "b")) && !before(mx(1, "b"), mx(1, "a")));
}

TEST(ResolverMessage, FindsTheFirstNameOfItsAnswers) {
    DomainLists const lists;
    std::string const owner = name("a.example");
    std::string const records = record(owner, 5, name("no-domain")) + record(owner, 12, name("")) +
                                record(owner, 1, "\1\2\3\4") + record(owner, 5, name("First.Example.com")) +
                                record(owner, 12, name("ptr.example.com")) +
                                record(owner, 5, name("x.example.com"));
    ResolverMessage const message = parsed(header({0, 6}) + records);
    EXPECT_EQ(message.getCanonicalName().asString(), "first.example.com");
    EXPECT_EQ(message.getHostname().asString(), "ptr.example.com");
    EXPECT_EQ(&message.getHostname(), &message.getHostname());
    EXPECT_EQ(&message.getCanonicalName(), &message.getCanonicalName());
    // Bytes that a strict name has not are no reason to go on.
    ResolverMessage const loose = parsed(header({0, 2}) + record(owner, 5, name("a b.example.com")) +
                                         record(owner, 5, name("c.example.com")));
    EXPECT_EQ(loose.getCanonicalName().asString(), "a b.example.com");

    ResolverMessage const none =
        parsed(header({0, 1, 2}) + record(owner, 5, name("no-domain")) +
               record(owner, 5, name("a.example.com")) + record(owner, 12, name("b.example.com")));
    EXPECT_TRUE(none.getCanonicalName().isNull());
    EXPECT_TRUE(none.getHostname().isNull());
}

TEST(ResolverMessage, FindsTheFirstAddressOfItsAnswers) {
    std::string const owner = name("a.example");
    std::string const v4 = record(owner, 1, "\xc0\0\2\1"s);
    std::string const v6 = record(owner, 28, "\x20\1\xd\xb8\0\0\0\0\0\0\0\0\0\0\0\1"s);
    std::string const other = record(owner, 5, name("192.0.2.9"));
    EXPECT_EQ(parsed(header({0, 3}) + other + v4 + v6).getIPAddress().asString(true), "192.0.2.1");
    EXPECT_EQ(parsed(header({0, 3}) + other + v6 + v4).getIPAddress().asString(true), "2001:db8::1");
    EXPECT_TRUE(parsed(header({0, 1, 1}) + other + v4).getIPAddress().isNull());
}

TEST(ResolverMessage, HasNothingOfTheMessagesBeforeIt) {
    std::string const before = header({0, 2, 1}) +
                               record(name("exchange.example"), 15, u16(10) + name("mail.example")) +
                               record(name("text.example"), 16, u8(200) + std::string(200, 't')) +
                               record(name("zone.example"), 6,
                                      name("ns.zone.example") + name("admin.zone.example") + u32(1) + u32(2) +
                                          u32(3) + u32(4) + u32(5));
    std::string const bytes = header({0, 3}) + repeated(record(name(""), 99, "", 0, 0), 3);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(parsed(before).nameserverRecords().front().minimum, 5U);
        ResolverMessage const message = parsed(bytes);
        ASSERT_EQ(message.answers().size(), 3U);
        for (auto const& answer : message.answers()) {
            EXPECT_EQ(answer.name + answer.value + answer.mname + answer.rname + answer.rdata, "");
            EXPECT_EQ(answer.ttl + answer.mxRank + answer.serial + answer.refresh + answer.retry +
                          answer.expire + answer.minimum + answer.dnsClass,
                      0U);
            EXPECT_EQ(answer.dnsType, 99);
        }
    }
}

TEST(ResolverMessage, BeginsWithZeros) {
    for (int round = 0; round < 3; ++round) {
        std::vector<Handle<ResolverMessageImpl>> messages;
        for (int i = 0; i < 4; ++i) {
            auto const message = messages.emplace_back(new ResolverMessageImpl, false);
            EXPECT_EQ(std::count(message->data(), message->data() + largest, 0), largest);
            std::memset(message->data(), 0xff, largest);
            message->length(i < 2 ? 0 : 100);
        }
    }
}

TEST(ResolverMessage, IsReadAloneAmongOthers) {
    std::vector<ResolverMessage> messages;
    for (int round = 0; round < 2; ++round) {
        messages.clear();
        for (std::string const host : {"a.example", "b.example", "c.example", "d.example"})
            messages.push_back(parsed(header({1, 2}) + question(name(host), 1) +
                                      record(pointer(12), 16, u8(200) + std::string(200, host[0])) +
                                      record(pointer(12), 16,
                                             u8(250) + std::string(250, host[0]) + u8(250) +
                                                 std::string(250, 'x') + u8(99) + std::string(99, 'y'))));
        for (ResolverMessage const& message : messages) {
            std::string const& host = message.queries().front().name;
            ASSERT_EQ(message.answers().size(), 2U);
            EXPECT_EQ(message.answers().front().name, host);
            EXPECT_EQ(message.answers().front().value, std::string(200, host[0]));
            EXPECT_EQ(message.answers().back().value,
                      std::string(250, host[0]) + std::string(250, 'x') + std::string(99, 'y'));
        }
    }
}

TEST(ResolverMessage, MayBeDestroyedWhenItsThreadEnds) {
    std::string const bytes = header({0, 1}) + record(name("a.example"), 1, "1234");
    std::string seen;
    std::thread([&] {
        thread_local ResolverMessage kept;  // goes after everything that came later
        kept = parsed(bytes);
        seen = kept.answers().front().value;
        parsed(bytes);
    }).join();
    EXPECT_EQ(seen, "49.50.51.52");
}

TEST(ResolverMessage, MayBeReadWhenItsThreadEnds) {
    struct LastWords {
        std::string bytes;
        std::string* seen = nullptr;
        ~LastWords() { *seen = parsed(bytes).answers().back().value; }
    };
    std::string seen;
    std::thread([&] {
        thread_local LastWords last;  // goes after everything that came later
        last.bytes = header({0, 2}) + record(name("a.example"), 2, pointer(12)) +
                     record(pointer(12), 5, name("b.example"));
        last.seen = &seen;
        parsed(last.bytes);
    }).join();
    EXPECT_EQ(seen, "b.example");
}

TEST(DnsName, IsDottedWithoutALastDot) {
    EXPECT_EQ(named(name("www.example.com")), "\"www.example.com\"");
    EXPECT_EQ(named(name("")), "\"\"");
    EXPECT_EQ(named("\1" + "a"s + "\3" + "B\n."s + '\0'), "\"a.B\n.\"");
    EXPECT_EQ(named(u8(63) + std::string(63, 'x') + '\0'), '"' + std::string(63, 'x') + '"');
    // Not cut at 255 bytes.
    std::string const longName = repeated("x.", 2000) + "y";
    EXPECT_EQ(named(name(longName)), '"' + longName + '"');
}

TEST(DnsName, EndsWhereTheNextFieldBegins) {
    for (std::size_t const labels : {1U, 20U, 255U, 256U, 257U, 600U, 2000U}) {
        std::string const text = repeated("x.", labels) + "y";
        auto const message = behindHeader(name(text) + name("next") + "\1z" + pointer(12) + name("last"));
        for (std::string const& expected : {text, "next"s, "z." + text, "last"s}) {
            std::string read;
            message->parseName(read);
            EXPECT_EQ(read, expected) << labels;
        }
    }
}

TEST(DnsName, IsReadAnewBehindANewLength) {
    auto const message = behindHeader(name("old") + pointer(12) + pointer(12) + pointer(12));
    std::string text;
    for (char const* const expected : {"old", "old", "old"}) {
        text.clear();
        message->parseName(text);
        EXPECT_EQ(text, expected);
    }
    std::memcpy(message->data() + 13, "new", 3);
    message->length(static_cast<int>(message->length()));
    text.clear();
    message->parseName(text);
    EXPECT_EQ(text, "new");
}

TEST(DnsName, IsAppendedToATextThatIsThere) {
    auto const message = behindHeader(name("b.example") + name("") + pointer(12));
    std::string text = "a";
    message->parseName(text);
    EXPECT_EQ(text, "a.b.example");
    message->parseName(text);
    EXPECT_EQ(text, "a.b.example");
    message->parseName(text);
    EXPECT_EQ(text, "a.b.example.b.example");
}

TEST(DnsName, FollowsPointers) {
    // A pointer is the end of a name, which goes on behind it.
    auto const message = behindHeader(name("example.com") + "\3www" + pointer(12) + name("next"));
    std::string first;
    std::string second;
    std::string third;
    message->parseName(first);
    message->parseName(second);
    message->parseName(third);
    EXPECT_EQ(first, "example.com");
    EXPECT_EQ(second, "www.example.com");
    EXPECT_EQ(third, "next");
    // To the root, to the middle, forward, and to a name that ends in a pointer itself.
    EXPECT_EQ(named("\1x" + pointer(16) + '\0'), "\"x\"");
    EXPECT_EQ(named(pointer(14) + "\1x" + pointer(18) + name("y.z")), "\"x.y.z\"");
}

TEST(DnsName, IsReadAnewWhenTheMessageGetsItsLengthAgain) {
    auto const message = behindHeader(name("a.example") + repeated(pointer(12), 4));
    for (int i = 0; i < 3; ++i) {
        std::string text;
        message->parseName(text);
        EXPECT_EQ(text, "a.example") << i;
    }
    message->data()[13] = 'b';
    message->length(static_cast<int>(message->length()));
    for (int i = 0; i < 2; ++i) {
        std::string text;
        message->parseName(text);
        EXPECT_EQ(text, "b.example") << i;
    }
}

TEST(DnsName, IsReadUpToTheLastByteOfTheLargestMessage) {
    std::string const wireName = name("abc.de");
    std::size_t const names = (largest - 12 - 4) / wireName.size();
    auto const message = behindHeader(repeated(wireName, names) + name("xy"));
    ASSERT_EQ(message->length(), largest);
    for (std::size_t i = 0; i <= names; ++i) {
        std::string text;
        message->parseName(text);
        ASSERT_EQ(text, i < names ? "abc.de" : "xy") << i;
    }
}

// Whoever answers questions would otherwise decide how much memory every thread that asks keeps for good.
TEST(DnsName, LeavesNoMemoryBehindThatOnlyHostileMessagesNeed) {
    std::string const manyLabels = repeated(name("a").substr(0, 2), 2000) + '\0';
    std::string const longLabels = repeated(name(std::string(63, 'b')).substr(0, 64), 15) + '\0';
    std::string const beginnings[] = {header({0, 500}) + record(u8(0), 99, manyLabels),
                                      header({0, 500}) + record(longLabels, 1, "ABCD")};
    std::size_t const nameAt[] = {beginnings[0].size() - manyLabels.size(), header({}).size()};
    auto const used = [] { return ::mallinfo2().uordblks + ::mallinfo2().hblkhd; };
    for (std::size_t const i : {0U, 1U}) {
        std::string message = beginnings[i];
        std::string const toIt = pointer(static_cast<unsigned int>(nameAt[i]));
        while (message.size() + 16 <= largest) message += record(toIt, 2, toIt);
        auto const readTwo = [&] {
            ResolverMessage const one = parsed(message), two = parsed(message);
            return one.answers().size() + two.answers().size();
        };
        { ResolverMessage const first = parsed(header({})), second = parsed(header({})); }
        std::size_t const before = used();
        EXPECT_GT(readTwo(), 500U);
        EXPECT_LT(used(), before + 100'000) << i;
    }
}

// Names that were read are remembered where they were put together, as long as nothing else is put there.
TEST(DnsName, IsReadAgainWhenWhatIsRememberedOfItMadeRoom) {
    for (unsigned int count = 8; count <= 20; ++count) {
        std::vector<std::string> names;
        std::string message = header({2 * count});
        std::string pointers;
        for (unsigned int i = 0; i < count; ++i) {
            std::string const label(60, static_cast<char>('a' + i));
            names.push_back(label + "." + label + "." + label + "." + label + "." + std::string(55, 'z'));
            pointers += question(pointer(static_cast<unsigned int>(message.size())), 1);
            message += question(name(names.back()), 1);
        }
        ResolverMessage const both = parsed(message + pointers);
        ASSERT_EQ(both.queries().size(), 2 * count);
        std::size_t i = 0;
        for (auto const& query : both.queries())
            EXPECT_EQ(query.name, names[i++ % count]) << count << ' ' << i;
    }
}

// A pointer may lead ahead, to a name that is read in its turn once that is known.
TEST(DnsName, EndsWhereItStandsAlsoWhenAPointerHasBeenThereBefore) {
    std::string const manyLabels = repeated(name("a").substr(0, 2), 2000) + '\0';
    std::string message = header({0, 8}) + record(u8(0), 99, manyLabels);
    std::string const toIt = pointer(static_cast<unsigned int>(message.size() - manyLabels.size()));
    for (int i = 0; i < 4; ++i) message += record(toIt, 1, "ABCD");  // more steps than the message has bytes
    std::string const ahead = record(pointer(0), 1, "EFGH");
    unsigned int const place = static_cast<unsigned int>(message.size() + ahead.size());
    message += record(pointer(place), 1, "EFGH") + record(name("direct.example"), 1, "IJKL") +
               record(name("last.example"), 1, "MNOP");
    ResolverMessage const read = parsed(message);
    ASSERT_EQ(read.answers().size(), 8U);
    std::string ends;
    for (auto record = std::prev(read.answers().end(), 3); record != read.answers().end(); ++record)
        ends += record->name + " " + record->value + "\n";
    EXPECT_EQ(ends, "direct.example 69.70.71.72\ndirect.example 73.74.75.76\nlast.example 77.78.79.80\n");
}

TEST(DnsName, HasALongBeginningInFrontOfAnEndThatWasMet) {
    std::string const label(63, 'x');
    std::string const end = repeated(label + ".", 6) + label;
    for (std::size_t labels = 0; labels < 4; ++labels) {
        std::string const beginning = repeated(u8(63) + label, labels);
        auto const message = behindHeader(name(end) + pointer(12) + beginning + pointer(12) + name("next"));
        for (std::string const& expected : {end, end, repeated(label + ".", labels) + end, "next"s}) {
            std::string text;
            message->parseName(text);
            EXPECT_EQ(text, expected) << labels;
        }
    }
}

// A thread counts the bytes of the names that it reads, and the count begins anew in here.
TEST(DnsName, IsReadWellHoweverMuchItsThreadHasReadBefore) {
    std::string const label(63, 'x');
    std::string const end = repeated(label + ".", 6) + label;
    std::size_t const names = 1900;
    std::string const bytes = name(end) + repeated("\1a" + pointer(12), names);
    std::string text;
    std::size_t wrong = 0;
    for (std::size_t read = 0; read < std::size_t{9} << 28;) {
        auto const message = behindHeader(bytes);
        for (std::size_t i = 0; i <= names; ++i) {
            text.clear();
            message->parseName(text);
            if (text.size() != end.size() + (i == 0 ? 0 : 2) || !text.ends_with(end)) ++wrong;
            read += text.size();
        }
    }
    EXPECT_EQ(wrong, 0U);
}

TEST(DnsName, TakesTheReservedLabelTypesForPointers) {
    for (unsigned int const type : {0x40U, 0x7fU, 0x80U, 0xbfU, 0xc0U, 0xffU}) {
        unsigned int const offset = (type & 0x3f) << 8 | 14;
        std::string const bytes = u8(type) + u8(14) + std::string(offset - 14, 'x') + name("a.b");
        bool const fits = bytes.size() + 12 <= largest;
        EXPECT_EQ(named(fits ? bytes : bytes.substr(0, 3)), fits ? "\"a.b\"" : badName) << type;
    }
}

TEST(DnsName, ReadsTheHeaderInHostOrder) {
    // The identifier 0x0161 is 'a' and 1 in memory: at offset 1 stands a label of 'a' now.
    std::string const bytes = header({}, 0x0000, 0x6101);
    auto const message = filled(bytes + pointer(0));
    message->length(14);
    std::string text;
    message->parseName(text);
    EXPECT_EQ(text, "a");
}

TEST(DnsName, RefusesToLeaveTheMessage) {
    struct {
        std::string bytes;
        char const* what;
    } const rows[] = {
        {"", "nothing at all"},
        {"\3ab", "a label that is cut"},
        {"\2ab", "a name without an end"},
        {"\1a\2b", "a second label that is cut"},
        {"\xc0", "half a pointer"},
        {"\1a\xc0", "half a pointer behind a label"},
        {pointer(14), "a pointer to the end"},
        {pointer(15), "a pointer behind the end"},
        {pointer(0x3fff), "a pointer far behind the end"},
        {pointer(14) + pointer(16), "a chain that leaves"},
        {pointer(14) + "\xc0", "a chain into half a pointer"},
    };
    for (auto const& [bytes, what] : rows) EXPECT_EQ(named(bytes), badName) << what;
}

TEST(DnsName, RefusesToGoRound) {
    EXPECT_EQ(named(pointer(12)), badName);
    EXPECT_EQ(named("\1a" + pointer(12)), badName);
    EXPECT_EQ(named("\1a" + pointer(14)), badName);
    EXPECT_EQ(named(pointer(14) + pointer(16) + pointer(12)), badName);
    EXPECT_EQ(named(pointer(14) + "\1a" + pointer(18) + "\1b" + pointer(14)), badName);
}

TEST(DnsName, FollowsAnyChainThatEnds) {
    for (std::size_t const count : {2U, 128U, 4000U}) {
        std::string chain;
        for (std::size_t i = 0; i < count; ++i) chain += pointer(static_cast<unsigned int>(14 + 2 * i));
        std::string text;
        onSmallStack(64 << 10, [&] { text = named(chain + name("end.example")); });
        EXPECT_EQ(text, "\"end.example\"") << count;

        std::string labels = "\1z";
        for (std::size_t i = 0; i + 1 < count / 2; ++i)
            labels += pointer(static_cast<unsigned int>(16 + 4 * i)) + "\1z";
        onSmallStack(64 << 10, [&] { text = named(labels + '\0'); });
        EXPECT_EQ(text, '"' + repeated("z.", count / 2 - 1) + "z\"") << count;
    }
}

TEST(DnsName, KeepsTheEndOfAChainForOtherNames) {
    // Each record's owner enters one long chain at another place.
    std::string body = name("end");
    unsigned int const links = 2000;
    for (unsigned int i = 0; i < links; ++i) body += pointer(i == 0 ? 12 : 17 + 2 * (i - 1));
    auto const message = behindHeader(body + repeated(pointer(17 + 2 * (links - 1)) + pointer(17), 1000));
    std::string first;
    message->parseName(first);
    EXPECT_EQ(first, "end");
    for (unsigned int i = 0; i < links + 2000; ++i) {
        std::string text;
        message->parseName(text);
        ASSERT_EQ(text, "end") << i;
    }
}

TEST(DnsName, ReadsManyNamesThatGoOverTheSameWaysByTurns) {
    // Two chains, 64 bytes from each other: what is known of the one takes the place of the other.
    unsigned int const names = 2000;
    unsigned int const start = 12 + 2 * names;
    std::string bytes = repeated(pointer(start) + pointer(start + 64), names / 2);
    for (unsigned int const chain : {start, start + 64}) {
        for (unsigned int i = 1; i <= 15; ++i) bytes += pointer(chain + 2 * i);
        bytes += name(chain == start ? "one" : "two") + std::string(64 - 30 - 5, '\0');
    }
    auto const message = behindHeader(bytes);
    for (unsigned int i = 0; i < names; ++i) {
        std::string text;
        message->parseName(text);
        ASSERT_EQ(text, i % 2 == 0 ? "one" : "two") << i;
    }
}

TEST(DnsName, IsRefusedOnceThoseOfItsMessageAreOfFourMebibytes) {
    std::size_t const allowed = std::size_t{4} << 20;
    // Every byte is a label's length, as below: a name of 204,799 bytes.
    std::string const label(63, 'x');
    std::string const shortName = repeated(label + ".", 6) + label;
    std::string const shortOnWire = name(shortName) + pointer(12);
    unsigned int const start = 12 + static_cast<unsigned int>(shortOnWire.size()) + 2 * (20 + 300);
    unsigned int const end = start + 6400;
    std::string lanes(end - start, '?');
    for (unsigned int lane = 0; lane < 32; ++lane)
        lanes += pointer(lane == 31 ? end + 64 : start + 2 * (lane + 1));
    lanes += '\0';
    auto const message =
        behindHeader(shortOnWire + repeated(pointer(start), 20) + repeated(pointer(12), 300) + lanes);
    std::size_t total = 0;
    std::size_t longest = 0;
    std::string failure;
    for (;;) {
        std::string text;
        failure = failureOf([&] { message->parseName(text); });
        if (failure != "nothing thrown") break;
        total += text.size() + 1;
        longest = std::max(longest, text.size());
    }
    EXPECT_EQ(failure, badName);
    EXPECT_EQ(longest, 32 * 6400U - 1);
    EXPECT_LE(total, allowed);
    EXPECT_GT(total + shortName.size() + 1, allowed);
}

TEST(ResolverMessage, EndsWhenItsNamesOutgrowEveryMeasure) {
    // Every byte is a label's length: 32 chains of labels of 63 bytes lie side by side, and each leads to
    // the next. One name is 200 KB long.
    unsigned int const start = 12 + 11;
    unsigned int const end = start + 6400;
    std::string lanes(end - start, '?');
    for (unsigned int lane = 0; lane < 32; ++lane)
        lanes += pointer(lane == 31 ? end + 64 : start + 2 * (lane + 1));
    lanes += '\0';
    std::string bytes = header({0, 100}) + record(name(""), 33, lanes);
    for (int i = 1; i < 100; ++i) bytes += record(pointer(start), 2, pointer(start));
    ASSERT_LE(bytes.size(), largest);

    LogRecorder const events;
    ResolverMessage const hostile = parsed(bytes);
    ASSERT_EQ(hostile.answers().size(), 11U);
    EXPECT_EQ(hostile.answers().back().name.size(), 32 * 6400U - 1);
    EXPECT_EQ(hostile.answers().back().value, hostile.answers().back().name);
    EXPECT_EQ(events.text(), logged(badName));
}

namespace {

/// Reads names pointer by pointer, and remembers in a set where it has been.
class PlainReader {
public:
    PlainReader(std::string_view message, std::size_t offset) : m_message(message), m_offset(offset) {}

    bool name(std::string& text) {
        std::set<std::size_t> seen;
        std::size_t at = m_offset;
        std::size_t behind = 0;
        for (;;) {
            if (at >= m_message.size()) return false;
            unsigned int const count = byte(at);
            if (count == 0) break;
            if (count > 63) {
                if (at + 1 >= m_message.size() || !seen.insert(at).second) return false;
                if (behind == 0) behind = at + 2;
                at = (count & 63) << 8 | byte(at + 1);
                continue;
            }
            if (at + 1 + count > m_message.size()) return false;
            text += (text.empty() ? "" : ".") + std::string(m_message.substr(at + 1, count));
            at += 1 + count;
        }
        m_offset = behind ? behind : at + 1;
        return true;
    }

private:
    unsigned int byte(std::size_t at) const { return static_cast<unsigned char>(m_message[at]); }

    std::string_view m_message;
    std::size_t m_offset;
};

}  // namespace

TEST(DnsName, ReadsAsAPlainReaderDoes) {
    std::mt19937 random(20240517);
    auto const below = [&](unsigned int n) { return static_cast<unsigned int>(random() % n); };
    std::size_t names = 0;
    std::size_t refused = 0;
    for (int round = 0; round < 4000; ++round) {
        std::string bytes;
        unsigned int const size = 1 + below(120);
        while (bytes.size() < size) {
            unsigned int const kind = below(10);
            std::size_t const label = 1 + below(3);
            if (kind < 3)
                bytes += pointer(12 + below(size + 1));
            else if (kind < 6)
                bytes += u8(static_cast<unsigned int>(label)) + std::string(label, 'a');
            else if (kind < 9)
                bytes += '\0';
            else
                bytes += u8(below(256));
        }
        auto const message = behindHeader(bytes);
        PlainReader plain({reinterpret_cast<char const*>(message->data()), message->length()}, 12);
        for (bool more = true; more;) {
            std::string text;
            std::string expected;
            more = plain.name(expected);
            std::string const failure = failureOf([&] { message->parseName(text); });
            ASSERT_EQ(failure, more ? "nothing thrown" : badName) << hex(bytes);
            if (!more) expected = text;  // what was read before the fault counts for nothing
            ASSERT_EQ(text, expected) << hex(bytes);
            ++(more ? names : refused);
        }
    }
    EXPECT_GT(names, 2000U);
    EXPECT_EQ(refused, 4000U);
}

TEST(DnsName, ReadsAsAPlainReaderDoesHoweverManyPointToOthers) {
    std::mt19937 random(11);
    auto const below = [&](std::size_t n) { return random() % n; };
    for (int round = 0; round < 20; ++round) {
        std::vector<std::size_t> places = {12, 16};  // where a name may be pointed to; the second is the root
        std::string bytes = name("a.b");
        while (bytes.size() < 6000) {
            // Mostly to a name that has just been, so that chains grow.
            std::size_t const back =
                below(10) == 0 ? below(places.size()) : below(std::min<std::size_t>(4, places.size()));
            auto const target = static_cast<unsigned int>(places[places.size() - 1 - back]);
            for (std::size_t labels = below(3); labels-- > 0;) {
                places.push_back(12 + bytes.size());
                bytes += "\3" + std::to_string(100 + below(900));
            }
            places.push_back(12 + bytes.size());
            bytes += pointer(target);
        }
        std::size_t const used = bytes.size();
        auto const message = behindHeader(bytes);
        PlainReader plain({reinterpret_cast<char const*>(message->data()), message->length()}, 12);
        for (std::size_t i = 0; i < used / 12; ++i) {
            std::string const before = i % 3 == 0 ? "before" : "";
            std::string text = before;
            std::string expected = before;
            ASSERT_TRUE(plain.name(expected));
            message->parseName(text);
            ASSERT_EQ(text, expected) << round << " " << i;
        }
    }
}

TEST(ResolverMessage, WithstandsMutations) {
    LogRecorder const events;
    DomainLists const lists;
    std::string const seed =
        header({1, 8, 1, 2}) + question(name("www.example.com"), 255) + record(pointer(12), 1, "\1\2\3\4") +
        record(pointer(12), 28, std::string(16, '\1')) + record(pointer(16), 2, "\2ns" + pointer(16)) +
        record(pointer(12), 5, "\1c" + pointer(16)) + record(pointer(12), 12, name("ptr.example.org")) +
        record(pointer(16), 15, u16(10) + "\2mx" + pointer(16)) + record(pointer(16), 16, "\5v=one\4 two") +
        record(pointer(16), 6, pointer(16) + "\5admin" + pointer(16) + std::string(20, '\2')) +
        record(pointer(16), 33, std::string(9, '\3')) + record(name(""), 41, "", 0, 4096) +
        record(pointer(20), 99, "\1x");
    std::mt19937 random(7);
    auto const below = [&](std::size_t n) { return random() % n; };
    for (int round = 0; round < 10000; ++round) {
        std::string bytes = seed;
        for (std::size_t i = 1 + below(6); i-- > 0;) {
            std::size_t const at = below(bytes.size());
            switch (below(6)) {
            case 0: bytes[at] = static_cast<char>(random()); break;
            case 1: bytes[at] = static_cast<char>(bytes[at] ^ 1 << below(8)); break;
            case 2: bytes.resize(at + 1); break;
            case 3: bytes.insert(at, bytes.substr(below(bytes.size()), below(40))); break;
            case 4:
                bytes.erase(at, below(4));
                bytes += '\0';
                break;
            default:
                bytes.replace(at, std::min<std::size_t>(2, bytes.size() - at),
                              pointer(12 + static_cast<unsigned int>(below(200))));
                break;
            }
        }
        bytes.resize(std::min(bytes.size(), largest));
        ResolverMessage const message = parsed(bytes);
        std::string const text = printed(message);
        ASSERT_EQ(text, printed(parsed(bytes))) << hex(bytes);
        ASSERT_LE(message.mxRecords().size(), message.answers().size());
        (void)message.getCanonicalName();
        (void)message.getHostname();
        (void)message.getIPAddress();
        ASSERT_LE(message.queries().size(), bytes.size() / 5) << hex(bytes);
    }
}
