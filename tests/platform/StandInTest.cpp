// What the stand-in promises beyond what the library needs: an appliance's own libraries may differ here.

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/quill_cfg.h"
#include "platform/quill_evt.h"
#include "platform/quill_ip.h"
#include "tests/support/Support.h"

using QuillmarkTest::hex;
using QuillmarkTest::readFile;
using QuillmarkTest::TemporaryDirectory;

namespace {

// What reached syslog since the test began. The function below stands in for the system's.
std::vector<std::pair<int, std::string>> sentToSyslog;

}  // namespace

extern "C" QUILL_PLATFORM_EXPORT void syslog(int priority, char const* format, ...) {
    char text[16384];
    va_list list;
    va_start(list, format);
    std::vsnprintf(text, sizeof text, format, list);
    va_end(list);
    errno = EPIPE;
    sentToSyslog.emplace_back(priority, text);
}

namespace {

constexpr char failed[] = "failed";

std::string read(char const* text) {
    ip_addr_t record{};
    if (quill_string_to_ip(text, &record) != 1) return failed;
    return std::to_string(record.family) + ' ' + hex({reinterpret_cast<char const*>(record.address), 4});
}

std::string readMask(char const* text) {
    ip_mask_t record{};
    char buffer[48];
    if (quill_string_to_ipmask(text, &record) != 0) return failed;
    return quill_ipmask_to_string(&record, buffer, sizeof buffer);
}

std::string printed(char const* text, bool dotted) {
    ip_addr_t record{};
    char buffer[46];
    quill_string_to_ip(text, &record);
    return quill_ip_to_string(&record, buffer, sizeof buffer, dotted);
}

int match(char const* network, char const* text) {
    ip_mask_t mask{};
    ip_addr_t address{};
    EXPECT_EQ(quill_string_to_ipmask(network, &mask), 0) << network;
    EXPECT_EQ(quill_string_to_ip(text, &address), 1) << text;
    return quill_ipmask_match(&mask, &address);
}

TEST(AddressStandIn, ReadsIpv4NumbersOfOneOrFourParts) {
    for (auto const& [text, record] : std::vector<std::pair<char const*, char const*>>{
             {"0x7f.0.0.1", "2 7f000001"},
             {"0X7F.0.0.1", "2 7f000001"},
             {"0177.0.0.1", "2 7f000001"},
             {"010.0.0.1", "2 08000001"},
             {"2130706433", "2 7f000001"},
             {"0x7f000001", "2 7f000001"},
             {"123456", "2 0001e240"},
             {"4294967295", "2 ffffffff"},
             {"0x7f.0xff.0377.255", "2 7fffffff"},
             {"12345", failed},       // too short to be meant as an address
             {"127.1", failed},       // two parts
             {"127.0.1234", failed},  // three parts
             {"0x7f.0.1", failed},
             {"4294967296", failed},
             {"1.2.3.0x100", failed},
             {"08.0.0.1", failed},
             {"abcdef", failed},
             {"1.2.3.4 x", failed},
             {"1.2.3.4\n", failed},
         })
        EXPECT_EQ(read(text), record) << text;
}

TEST(AddressStandIn, PrintsMappedAddressesByTheFlag) {
    EXPECT_EQ(printed("::ffff:192.0.2.1", true), "::ffff:192.0.2.1");
    EXPECT_EQ(printed("::ffff:192.0.2.1", false), "::ffff:c000:201");
    EXPECT_EQ(printed("::ffff:255.255.255.255", true), "::ffff:255.255.255.255");
    // Other addresses have one text.
    for (bool const dotted : {true, false}) {
        EXPECT_EQ(printed("::192.0.2.1", dotted), "::c000:201");
        EXPECT_EQ(printed("::fffe:192.0.2.1", dotted), "::fffe:c000:201");
        EXPECT_EQ(printed("192.0.2.1", dotted), "192.0.2.1");
    }
}

TEST(AddressStandIn, LeavesABufferAloneThatIsTooSmall) {
    ip_addr_t const address{2, {192, 0, 2, 1}};
    ip_mask_t const mask{address, 4294967295U};
    char buffer[] = "untouched";
    EXPECT_EQ(quill_ip_to_string(&address, buffer, 9, true), nullptr);
    EXPECT_EQ(quill_ip_to_string(&address, buffer, 0, true), nullptr);
    EXPECT_EQ(quill_ipmask_to_string(&mask, buffer, 10), nullptr);
    EXPECT_STREQ(buffer, "untouched");
}

TEST(AddressStandIn, ComparesOnlyTheFourBytesOfIpv4) {
    ip_addr_t const clean{2, {1, 2, 3, 4}};
    ip_addr_t const dirty{2, {1, 2, 3, 4, 5}};
    EXPECT_EQ(quill_ip_compare(&clean, &dirty), 0);
}

TEST(AddressStandIn, ReadsNetmasksAndAddressesAlone) {
    for (auto const& [text, canonical] : std::vector<std::pair<char const*, char const*>>{
             {"10.0.0.0/255.0.0.0", "10.0.0.0/8"},
             {"10.1.2.3/255.255.240.0", "10.1.2.3/20"},
             {"10.0.0.0/0.0.0.0", "10.0.0.0/0"},
             {"10.0.0.0/255.255.255.255", "10.0.0.0/32"},
             {"10.0.0.1", "10.0.0.1/32"},
             {"2001:db8::1", "2001:db8::1/128"},
             {"0x7f.0.0.1/8", "127.0.0.1/8"},
             {"10.0.0.0/08", "10.0.0.0/8"},
             {"::ffff:10.0.0.0/104", "::ffff:10.0.0.0/104"},
             {"10.0.0.0/255.0.255.0", failed},  // a hole
             {"10.0.0.0/0.0.0.255", failed},    // the other way round
             {"10.0.0.0/255.0.0", failed},
             {"10.0.0.0/255.0.0.256", failed},
             {"::/255.0.0.0", failed},
             {"", failed},
         })
        EXPECT_EQ(readMask(text), canonical) << text;
}

TEST(AddressStandIn, PrintsALengthBeyondTheWidth) {
    ip_mask_t const mask{{2, {10}}, 4294967295U};
    char buffer[48];
    EXPECT_STREQ(quill_ipmask_to_string(&mask, buffer, sizeof buffer), "10.0.0.0/4294967295");
    ip_mask_t longest{{10, {}}, 4294967295U};
    std::memset(longest.address.address, 0xff, sizeof longest.address.address);
    EXPECT_EQ(quill_ipmask_to_string(&longest, buffer, sizeof buffer), nullptr);
    char large[51];
    EXPECT_STREQ(quill_ipmask_to_string(&longest, large, sizeof large),
                 "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff/4294967295");
}

TEST(AddressStandIn, LetsNoMappedPrivateAddressSlipBy) {
    EXPECT_EQ(match("10.0.0.0/8", "::ffff:10.1.2.3"), 1);
    EXPECT_EQ(match("10.0.0.0/8", "::ffff:11.1.2.3"), 0);
    EXPECT_EQ(match("0.0.0.0/0", "::ffff:11.1.2.3"), 1);
    EXPECT_EQ(match("10.0.0.0/8", "::10.1.2.3"), 0);
    EXPECT_EQ(match("::ffff:10.0.0.0/104", "10.1.2.3"), 0);
    EXPECT_EQ(match("::ffff:10.0.0.0/104", "::ffff:10.1.2.3"), 1);
}

TEST(AddressStandIn, TakesALengthBeyondTheWidthForTheWidth) {
    ip_addr_t const address{2, {10, 0, 0, 1}};
    ip_addr_t const other{2, {10, 0, 0, 2}};
    ip_addr_t const mapped{10, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 10, 0, 0, 1}};
    for (unsigned int const bits : {33U, 128U, 129U, 4294967295U}) {
        ip_mask_t const mask{address, bits};
        EXPECT_EQ(quill_ipmask_match(&mask, &address), 1) << bits;
        EXPECT_EQ(quill_ipmask_match(&mask, &mapped), 1) << bits;
        EXPECT_EQ(quill_ipmask_match(&mask, &other), 0) << bits;
    }
    ip_mask_t const six{mapped, 4294967295U};
    EXPECT_EQ(quill_ipmask_match(&six, &mapped), 1);
    for (unsigned int const bits : {32U, 33U, 128U, 4294967295U}) {
        ip_addr_t changed = address;
        quill_ipmask_apply_mask(&changed, bits);
        EXPECT_EQ(quill_ip_compare(&changed, &address), 0) << bits;
    }
}

TEST(AddressStandIn, LeavesAnAddressWithoutFamilyAlone) {
    ip_addr_t record{0, {1, 2, 3}};
    quill_ipmask_apply_mask(&record, 0);
    EXPECT_EQ(record.address[0], 1);
}

TEST(AddressStandIn, SurvivesNull) {
    ip_addr_t address{2, {10}};
    ip_mask_t mask{address, 8};
    char buffer[48];
    EXPECT_EQ(quill_string_to_ip(nullptr, &address), 0);
    EXPECT_EQ(address.family, 0U);
    EXPECT_EQ(quill_string_to_ip("10.0.0.1", nullptr), 0);
    EXPECT_EQ(quill_ip_to_string(nullptr, buffer, sizeof buffer, true), nullptr);
    EXPECT_EQ(quill_ip_to_string(&address, nullptr, 46, true), nullptr);
    EXPECT_LT(quill_ip_compare(nullptr, &address), 0);
    EXPECT_GT(quill_ip_compare(&address, nullptr), 0);
    EXPECT_EQ(quill_ip_compare(nullptr, nullptr), 0);
    EXPECT_EQ(quill_ipmask_match(nullptr, &address), 0);
    EXPECT_EQ(quill_ipmask_match(&mask, nullptr), 0);
    EXPECT_EQ(quill_ipmask_to_string(nullptr, buffer, sizeof buffer), nullptr);
    EXPECT_EQ(quill_ipmask_to_string(&mask, nullptr, 48), nullptr);
    EXPECT_LT(quill_ipmask_compare(nullptr, &mask), 0);
    EXPECT_GT(quill_ipmask_compare(&mask, nullptr), 0);
    EXPECT_NE(quill_string_to_ipmask("10.0.0.0/8", nullptr), 0);
    EXPECT_NE(quill_string_to_ipmask(nullptr, &mask), 0);
    EXPECT_EQ(mask.bits, 0U);
}

TEST(AddressStandIn, TakesTimeInProportionToTheText) {
    std::string const digits(1'000'000, '1');
    EXPECT_EQ(read(digits.c_str()), failed);
    EXPECT_EQ(read(std::string(1'000'000, ':').c_str()), failed);
    EXPECT_EQ(readMask(("10.0.0.0/" + digits).c_str()), failed);
    EXPECT_EQ(readMask(std::string(1'000'000, '/').c_str()), failed);
}

TEST(ConfigurationStandIn, HasNoAreaUntilTheFirstGenerationAndAfterDetaching) {
    quill_cfg_detach();
    EXPECT_EQ(nCfg_debug_zone, nullptr);
    std::uint32_t const first = quill_cfg_new_generation();
    ASSERT_NE(nCfg_debug_zone, nullptr);
    EXPECT_EQ(nCfg_debug_zone[QUILL_CFG_GENERATION_WORD], first);
    EXPECT_EQ(quill_cfg_new_generation(), first + 1);
    quill_cfg_detach();
    EXPECT_EQ(nCfg_debug_zone, nullptr);
}

TEST(ConfigurationStandIn, GoesOnCountingAfterDetaching) {
    std::uint32_t const before = quill_cfg_new_generation();
    quill_cfg_detach();
    EXPECT_EQ(quill_cfg_new_generation(), before + 1);
    quill_cfg_detach();
}

TEST(ConfigurationStandIn, LeavesOutGenerationZero) {
    std::uint32_t volatile area[QUILL_CFG_WORDS] = {};
    area[QUILL_CFG_GENERATION_WORD] = UINT32_MAX;
    nCfg_debug_zone = area;
    EXPECT_EQ(quill_cfg_new_generation(), 1U);
    EXPECT_EQ(area[QUILL_CFG_GENERATION_WORD], 1U);
    quill_cfg_detach();
    EXPECT_EQ(nCfg_debug_zone, area) << "detached an area of somebody else";
    nCfg_debug_zone = nullptr;
}

TEST(ConfigurationStandIn, GivesEachOfManyThreadsAGenerationOfItsOwn) {
    quill_cfg_detach();
    constexpr std::size_t each = 500;
    std::vector<std::vector<std::uint32_t>> given(4);
    std::vector<std::thread> threads;
    for (auto& mine : given) {
        threads.emplace_back([&mine] {
            for (std::size_t i = 0; i < each; ++i) {
                mine.push_back(quill_cfg_new_generation());
                auto* const area = __atomic_load_n(&nCfg_debug_zone, __ATOMIC_ACQUIRE);
                auto const seen = __atomic_load_n(area + QUILL_CFG_GENERATION_WORD, __ATOMIC_ACQUIRE);
                if (seen < mine.back()) mine.push_back(0);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    std::set<std::uint32_t> all;
    for (auto const& mine : given) all.insert(mine.begin(), mine.end());
    EXPECT_EQ(all.size(), each * given.size());
    EXPECT_EQ(all.count(0), 0U);
    quill_cfg_detach();
}

// Goes back to production at the end of the test.
class PathStandIn : public testing::Test {
protected:
    ~PathStandIn() override {
        quill_path_root(nullptr);
        for (char const* const path : {"/etc/gtld", "/dev/log", "relative"}) quill_path_map(path, nullptr);
    }
};

TEST_F(PathStandIn, PutsAbsolutePathsBelowTheDirectory) {
    quill_path_root("/tmp/here");
    EXPECT_STREQ(quill_path("/etc/gtld"), "/tmp/here/etc/gtld");
    EXPECT_STREQ(quill_path("/"), "/tmp/here/");
    EXPECT_STREQ(quill_path("relative"), "relative");
    EXPECT_STREQ(quill_path(""), "");
    EXPECT_EQ(quill_path(nullptr), nullptr);
    quill_path_root("/tmp/there//");
    EXPECT_STREQ(quill_path("/etc/gtld"), "/tmp/there/etc/gtld");
}

TEST_F(PathStandIn, GivesThePathItselfAgainAfterANullDirectory) {
    quill_path_root("/tmp/here");
    quill_path_root(nullptr);
    char const path[] = "/etc/gtld";
    EXPECT_EQ(quill_path(path), path);
    quill_path_root("");
    EXPECT_EQ(quill_path(path), path);
}

TEST_F(PathStandIn, OpensOnePathElsewhere) {
    quill_path_root("/tmp/here");
    quill_path_map("/etc/gtld", "/tmp/my-list");
    EXPECT_STREQ(quill_path("/etc/gtld"), "/tmp/my-list");
    EXPECT_STREQ(quill_path("/etc/cctld"), "/tmp/here/etc/cctld");
    quill_path_map("/etc/gtld", "/tmp/my-other-list");
    EXPECT_STREQ(quill_path("/etc/gtld"), "/tmp/my-other-list");
    quill_path_map("/etc/gtld", nullptr);
    EXPECT_STREQ(quill_path("/etc/gtld"), "/tmp/here/etc/gtld");
    quill_path_map(nullptr, "/tmp/nothing");
}

TEST_F(PathStandIn, KeepsWhatItGave) {
    quill_path_root("/tmp/here");
    char const* const before = quill_path("/etc/gtld");
    quill_path_root("/tmp/there");
    for (int i = 0; i < 1000; ++i) quill_path(("/etc/" + std::to_string(i)).c_str());
    quill_path_root(nullptr);
    EXPECT_STREQ(before, "/tmp/here/etc/gtld");
}

TEST_F(PathStandIn, AnswersSeveralThreads) {
    quill_path_root("/tmp/here");
    std::vector<std::thread> threads;
    std::vector<std::string> answers(4);
    for (std::string& answer : answers)
        threads.emplace_back([&answer] {
            for (int i = 0; i < 200; ++i) answer = quill_path("/etc/gtld");
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(answers, std::vector<std::string>(4, "/tmp/here/etc/gtld"));
}

// Standard error goes to a file, and the log socket is where the test puts it: nowhere at first.
class EventLogStandIn : public PathStandIn {
protected:
    EventLogStandIn() : m_standardError(::dup(STDERR_FILENO)) {
        sentToSyslog.clear();
        quill_path_map("/dev/log", m_directory.file("log").c_str());
        redirect(m_directory.file("stderr").c_str());
    }
    ~EventLogStandIn() override {
        ::dup2(m_standardError, STDERR_FILENO);
        ::close(m_standardError);
    }

    static void redirect(char const* path) {
        int const file = ::open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        ::dup2(file, STDERR_FILENO);
        ::close(file);
    }

    static int log(int level, char const* format, ...) {
        va_list list;
        va_start(list, format);
        evt_log_args_t const args = {};
        int const result = evt_logv(level, &args, format, list);
        va_end(list);
        return result;
    }

    std::string standardError() const { return readFile(m_directory.file("stderr")); }

    void makeLogSocket() const {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        m_directory.file("log").copy(address.sun_path, sizeof address.sun_path - 1);
        int const socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        ASSERT_EQ(::bind(socket, reinterpret_cast<sockaddr const*>(&address), sizeof address), 0);
        ::close(socket);  // its name stays
    }

    TemporaryDirectory m_directory;

private:
    int m_standardError;
};

TEST_F(EventLogStandIn, WritesOneLineToStandardErrorWithoutALogSocket) {
    EXPECT_EQ(log(0x300006d, "%s\1%s", "void f()", "Exception( 1 ) "), 0);
    EXPECT_EQ(log(0x300006e, "%u", 17U), 0);
    EXPECT_EQ(standardError(), "void f(): Exception( 1 ) \n17\n");
    EXPECT_TRUE(sentToSyslog.empty());
}

TEST_F(EventLogStandIn, WritesToStandardErrorWhereTheLogSocketIsAnotherKindOfFile) {
    m_directory.write("log", "");
    log(1, "text");
    EXPECT_EQ(standardError(), "text\n");
}

TEST_F(EventLogStandIn, SendsToTheMailFacilityWithASeverityByEvent) {
    makeLogSocket();
    for (auto const& [event, severity] : std::vector<std::pair<int, int>>{
             {0x300006d, LOG_ERR},
             {0x300006e, LOG_WARNING},
             {0x300006f, LOG_ERR},
             {0x3000071, LOG_NOTICE},
             {0x300014a, LOG_ERR},
             {0, LOG_NOTICE},
             {-1, LOG_NOTICE},
         }) {
        sentToSyslog.clear();
        EXPECT_EQ(log(event, "%s\1%s", "what", "100%s"), 0);
        ASSERT_EQ(sentToSyslog.size(), 1U) << event;
        EXPECT_EQ(sentToSyslog[0].first, LOG_MAIL | severity) << event;
        EXPECT_EQ(sentToSyslog[0].second, "what: 100%s") << event;
    }
    EXPECT_EQ(standardError(), "");
}

TEST_F(EventLogStandIn, LetsNoTextBeginALineOfItsOwn) {
    log(1, "%s", "subject\r\nfaked line\t\x1b[2J\x7f\xc3\xbc");
    EXPECT_EQ(standardError(), "subject#015#012faked line\t#033[2J#177\xc3\xbc\n");
}

TEST_F(EventLogStandIn, CutsAMessageTo4095BytesAndALineTo8191) {
    std::string const text(5000, 'x');
    log(1, "%s", text.c_str());
    EXPECT_EQ(standardError(), text.substr(0, 4095).append("\n"));
    redirect(m_directory.file("second").c_str());
    log(1, "%s", std::string(4095, '\x02').c_str());
    EXPECT_EQ(readFile(m_directory.file("second")).size(), 4U * 2047 + 1);
}

TEST_F(EventLogStandIn, LogsTheFormatOfAMessageThatCannotBeFormatted) {
    wchar_t const unpaired[] = {static_cast<wchar_t>(0xd800), 0};
    EXPECT_EQ(log(1, "event %ls", unpaired), 0);
    EXPECT_EQ(standardError(), "event %ls\n");
}

TEST_F(EventLogStandIn, SaysWhenNothingCouldBeWritten) {
    redirect("/dev/full");
    EXPECT_EQ(log(1, "text"), -1);
    EXPECT_EQ(log(1, nullptr), -1);
}

TEST_F(EventLogStandIn, LeavesErrnoAsItWas) {
    errno = EDOM;
    log(1, "%m");
    EXPECT_EQ(errno, EDOM);
    EXPECT_EQ(standardError(), std::string(std::strerror(EDOM)) + '\n');
    makeLogSocket();
    errno = EDOM;
    log(1, "text");
    EXPECT_EQ(errno, EDOM);
}

int formatInto(char* buffer, std::size_t size, char const* format, ...) {
    va_list list;
    va_start(list, format);
    int const length = evt_format_logv(buffer, size, 0, format, list);
    va_end(list);
    return length;
}

TEST_F(EventLogStandIn, TellsTheLengthThatTheWholeTextHas) {
    char buffer[4] = "###";
    EXPECT_EQ(formatInto(buffer, sizeof buffer, "%s", "12345"), 5);
    EXPECT_STREQ(buffer, "123");
    EXPECT_LT(formatInto(buffer, sizeof buffer, nullptr), 0);
    EXPECT_STREQ(buffer, "");
}

TEST_F(EventLogStandIn, TakesNoArgumentRecord) {
    va_list none{};
    EXPECT_EQ(evt_logv(1, nullptr, "text", none), 0);
    EXPECT_EQ(standardError(), "text\n");
}

}  // namespace
