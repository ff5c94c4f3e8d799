// Short forms of what ./tests/load/run does for long.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <ostream>
#include <string>

#include "tests/load/Corpus.h"
#include "tests/load/Soak.h"
#include "tests/load/Storm.h"
#include "tests/support/Support.h"

namespace QuillmarkLoad {
namespace {

using testing::IsEmpty;

#if defined __SANITIZE_ADDRESS__ || defined __SANITIZE_THREAD__
constexpr unsigned long slackKib = 400'000;  // a sanitizer keeps 256 MiB of what was freed, and margins
constexpr double mostSeconds = 20;
#else
constexpr unsigned long slackKib = 4096;
constexpr double mostSeconds = 2;  // ten times what the worst takes
#endif

void expectClean(Soaked const& soaked, unsigned long done) {
    EXPECT_THAT(soaked.wrong, IsEmpty());
    EXPECT_EQ(soaked.done, done);
    EXPECT_EQ(soaked.filesLeft, 0U);
    ASSERT_GT(soaked.warm.residentKib, 0U);
    EXPECT_LE(soaked.end.residentKib, soaked.warm.residentKib + slackKib);
    EXPECT_LE(soaked.end.descriptors, soaked.warm.descriptors + 20);  // silent clients come and go
}

}  // namespace

TEST(Load, ADispatcherLosesAndChangesNoRequestThatComesInPieces) {
    StormOptions options;
    options.requests = 10'000;
    options.sampleEvery = 2'000;
    Stormed const stormed = storm(options);
    EXPECT_THAT(stormed.wrong, IsEmpty());
    EXPECT_EQ(stormed.answered, options.requests);
    EXPECT_EQ(stormed.lost, 0U);
    EXPECT_EQ(stormed.twice, 0U);
    EXPECT_EQ(stormed.samples.size(), 5U);
    EXPECT_TRUE(isFlat(stormed.samples, slackKib));
}

TEST(Load, AGoodClientIsAnsweredBesideSilentAndSlowOnes) {
    SlowOptions options;
    options.asks = 300;
    options.between = {};
    options.bytesEvery = 10;
    Delays const delays = askBesideSlowClients(options);
    EXPECT_THAT(delays.wrong, IsEmpty());
    EXPECT_EQ(delays.slowBytes, 600U);
    EXPECT_EQ(delays.sentAway, 0U);
    EXPECT_LT(delays.median, 1.0);
}

TEST(Load, EveryElementIsWorkedOnOnce) {
    ElementOptions options;
    options.elements = 300'000;
    options.sampleEvery = 100'000;
    Worked const worked = workElements(options);
    EXPECT_EQ(worked.never, 0U);
    EXPECT_EQ(worked.twice, 0U);
    EXPECT_TRUE(isFlat(worked.samples, slackKib + 16'384));  // the longest queue may be yet to come
}

TEST(Load, ADaemonStaysAsItIsAmongClientsOfEveryKind) {
    Pace pace;
    pace.most = 1'500;
    expectClean(soakServe(pace), pace.most);
}

TEST(Load, AScanOfBrokenMailReportsOnEverythingInOrderAndStaysAsItIs) {
    Pace pace;
    pace.most = 1'000;
    expectClean(soakScan(pace), pace.most);
}

// GMime remembers each charset that it is asked for: here 200,000 of them, for which it takes 20 MB.
TEST(Load, AScanForgetsTheCharsetsThatSendersThinkOf) {
    QuillmarkTest::TemporaryDirectory const place;
    auto const mailbox = [](bool areNew) {
        std::string text;
        for (int i = 0; i < 200'000; ++i) {
            if (i % 100 == 0) text += i == 0 ? "From a\nSubject:" : "\n\nFrom a\nSubject:";
            text += "\n =?x" + std::to_string(100'000 + (areNew ? i : i % 100)) + "?Q?a?=";
        }
        return text + "\n";
    };
    unsigned long const peakKib = costOf(mailbox(false), place.path()).peakKib;
    EXPECT_LE(costOf(mailbox(true), place.path()).peakKib, peakKib + slackKib);
}

// GMime loses the memory of an address that ends within a comment: 22 MB here, were it shown them.
TEST(Load, AScanLosesNoMemoryToAddressesThatBreakOff) {
    QuillmarkTest::TemporaryDirectory const place;
    auto const mailbox = [](std::string const& end) {
        std::string text;
        for (int i = 0; i < 40; ++i)
            text += "From a\nTo: " + std::string(1'000'000, 'a') + end + "\n\ntext\n\n";
        return text;
    };
    unsigned long const peakKib = costOf(mailbox("@[1]"), place.path()).peakKib;
    EXPECT_LE(costOf(mailbox("@[1] (a"), place.path()).peakKib, peakKib + slackKib);
}

class HostileMail : public testing::TestWithParam<Hostile> {};

void PrintTo(Hostile const& hostile, std::ostream* out) {
    *out << hostile.name;
}

TEST_P(HostileMail, EndsInAReportOnASmallStack) {
    QuillmarkTest::TemporaryDirectory const place;
    Hostile const& hostile = GetParam();
    Cost const cost = costOf(hostile.make(hostile.most / 8), place.path());
    EXPECT_THAT(cost.status, testing::AnyOf(0, 1));
    EXPECT_GT(cost.reports, 0U);
    EXPECT_THAT(cost.errors, testing::HasSubstr(hostile.limit != nullptr ? hostile.limit : ""));
    EXPECT_LE(cost.peakKib, 160'000 + slackKib);
    EXPECT_LE(cost.seconds, mostSeconds);
}

INSTANTIATE_TEST_SUITE_P(, HostileMail, testing::ValuesIn(corpus().begin(), corpus().end()),
                         [](auto const& row) {
                             std::string name;
                             for (char const c : std::string(row.param.name))
                                 if (std::isalnum(static_cast<unsigned char>(c)) != 0) name += c;
                             return name;
                         });

}  // namespace QuillmarkLoad
