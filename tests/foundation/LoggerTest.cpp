#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <iostream>
#include <sstream>
#include <streambuf>
#include <string>
#include <thread>
#include <vector>

#include "include2/Logger"
#include "tests/support/Support.h"
#include "tests/support/Threads.h"

using namespace Quillmark;
using QuillmarkTest::isCancelledIn;
using QuillmarkTest::slotOf;

namespace {

/// Where std::cout writes as long as it lives: a place of which cancelled threads get no further, as the system
/// makes one of every file.
class FitfulOutput : public std::streambuf {
public:
    FitfulOutput() : m_former(std::cout.rdbuf(this)) {}
    ~FitfulOutput() override { std::cout.rdbuf(m_former); }

    bool refuses = false;
    std::string text;

protected:
    int overflow(int c) override {
        ::pthread_testcancel();
        if (refuses) return traits_type::eof();
        text += static_cast<char>(c);
        return c;
    }

private:
    std::streambuf* m_former;
};

/// What the event log was given last.
struct LastEvent {
    int level = 0;
    evt_log_args_t args{};
    std::string text;
    int calls = 0;
    int result = 0;
} lastEvent;

/// What was last asked of its formatting, and what that says instead of the truth.
struct LastFormatting {
    std::size_t size = 0;
    unsigned int argument = 0;
    int extra = 0;
};
thread_local LastFormatting lastFormatting;  // several threads format at once

std::string described(int level, evt_log_args_t const& args, std::string const& text) {
    std::ostringstream out;
    out << std::hex << level << std::dec << " [" << args.argument << ' ' << args.reserved[0] << ' '
        << args.reserved[1] << ' ' << args.reserved[2] << "] " << text;
    return out.str();
}

std::string vformatted(char const* format, va_list list) {
    char text[256];
    std::vsnprintf(text, sizeof text, format, list);
    return text;
}

}  // namespace

// These stand in the place of the appliance's event log for this whole program.
int evt_logv(int level, evt_log_args_t const* args, char const* format, va_list list) {
    ++lastEvent.calls;
    lastEvent.level = level;
    lastEvent.args = *args;
    lastEvent.text = vformatted(format, list);
    return lastEvent.result;
}

int evt_format_logv(char* buffer, size_t size, unsigned int argument, char const* format, va_list list) {
    lastFormatting.size = size;
    lastFormatting.argument = argument;
    return std::vsnprintf(buffer, size, format, list) + lastFormatting.extra;
}

namespace {

/// A logger of a daemon's own, which supplies the two operations that it must.
class OwnLogger : public Logger {
public:
    using Logger::evt_log;
    using Logger::evt_logv;
    int evt_log(int level, evt_log_args_t const& args, char const* format, ...) override {
        va_list list;
        va_start(list, format);
        int const result = evt_logv(level, args, format, list);
        va_end(list);
        return result;
    }
    int evt_logv(int level, evt_log_args_t const& args, char const* format, va_list list) override {
        seen.push_back(described(level, args, vformatted(format, list)));
        return 42;
    }
    ~OwnLogger() override { ++destroyed; }
    static void install() { m_instance = new OwnLogger; }

    std::vector<std::string> seen;
    static inline int destroyed = 0;
};

class LoggerTest : public testing::Test {
protected:
    LoggerTest() {
        Logger::instance(true);
        lastEvent = LastEvent();
        lastFormatting = LastFormatting();
    }
    ~LoggerTest() override { Logger::instance(true); }
};

int withList(Logger& logger, evt_log_args_t const& args, char const* format, ...) {
    va_list list;
    va_start(list, format);
    int const result = logger.evt_logv(7, args, format, list);
    va_end(list);
    return result;
}

int withList(Logger& logger, char const* context, char const* format, ...) {
    va_list list;
    va_start(list, format);
    int const result = logger.evt_logv(7, context, format, list);
    va_end(list);
    return result;
}

evt_log_args_t const someArgs{5, {1, 2, 3}};

}  // namespace

TEST_F(LoggerTest, MakesAMigLoggerForWhoeverAsksFirst) {
    Logger* const logger = Logger::instance();
    EXPECT_NE(dynamic_cast<MigLogger*>(logger), nullptr);
    EXPECT_EQ(Logger::instance(), logger);
    EXPECT_EQ(Logger::instance(false), logger);
    EXPECT_EQ(static_cast<void*>(MigLogger::instance()), logger);
}

TEST_F(LoggerTest, IsGoneAfterItsDestructionAndFreshAfterThat) {
    OwnLogger::destroyed = 0;
    OwnLogger::install();
    EXPECT_NE(dynamic_cast<OwnLogger*>(Logger::instance()), nullptr);
    EXPECT_EQ(Logger::instance(true), nullptr);
    EXPECT_EQ(OwnLogger::destroyed, 1);
    EXPECT_EQ(Logger::instance(true), nullptr);
    EXPECT_NE(dynamic_cast<MigLogger*>(Logger::instance()), nullptr);
}

TEST_F(LoggerTest, KeptForTheDaemonsTheConsoleIsOnlyForWhoAsksBeforeAnybodyElse) {
    Logger* const first = Logger::instance();
    EXPECT_EQ(static_cast<void*>(StdOutLogger::instance()), first);
    EXPECT_NE(dynamic_cast<MigLogger*>(Logger::instance()), nullptr);
    Logger::instance(true);
    StdOutLogger* const console = StdOutLogger::instance();
    EXPECT_EQ(console, Logger::instance());
    EXPECT_NE(dynamic_cast<StdOutLogger*>(Logger::instance()), nullptr);
    EXPECT_EQ(static_cast<void*>(MigLogger::instance(false)), console);
}

TEST_F(LoggerTest, TakesThePlaceOfAnyLoggerWhenRecreated) {
    OwnLogger::destroyed = 0;
    OwnLogger::install();
    MigLogger* const fresh = MigLogger::instance(true);
    EXPECT_EQ(OwnLogger::destroyed, 1);
    EXPECT_EQ(Logger::instance(), fresh);
    EXPECT_NE(dynamic_cast<MigLogger*>(Logger::instance()), nullptr);
}

TEST_F(LoggerTest, IsOneForAllThreadsThatAskFirstTogether) {
    for (int round = 0; round < 50; ++round) {
        Logger::instance(true);
        std::atomic<int> ready{0};
        std::vector<Logger*> given(4);
        std::vector<std::thread> threads;
        for (Logger*& mine : given)
            threads.emplace_back([&mine, &ready] {
                ++ready;
                while (ready < 4) std::this_thread::yield();
                mine = Logger::instance();
            });
        for (std::thread& thread : threads) thread.join();
        for (Logger const* const logger : given) ASSERT_EQ(logger, Logger::instance());
    }
}

TEST_F(LoggerTest, HandsEveryCallWithoutArgumentsOnWithARecordOfZeros) {
    OwnLogger logger;
    EXPECT_EQ(static_cast<Logger&>(logger).evt_log(0x300006e, "context", "%u", 12U), 42);
    EXPECT_EQ(static_cast<Logger&>(logger).evt_log(-1, static_cast<char const*>(nullptr), "%s", "x"), 42);
    EXPECT_EQ(withList(logger, "context", "%d", -3), 42);
    EXPECT_EQ(logger.evt_log(8, someArgs, "%c", 'y'), 42);
    EXPECT_EQ(logger.seen, (std::vector<std::string>{"300006e [0 0 0 0] 12", "ffffffff [0 0 0 0] x",
                                                     "7 [0 0 0 0] -3", "8 [5 1 2 3] y"}));
}

TEST_F(LoggerTest, KeepsTheOrderOfItsVirtualOperations) {
    using LogArgs = int (Logger::*)(int, evt_log_args_t const&, char const*, ...);
    using LogArgsV = int (Logger::*)(int, evt_log_args_t const&, char const*, va_list);
    using Log = int (Logger::*)(int, char const*, char const*, ...);
    using LogV = int (Logger::*)(int, char const*, char const*, va_list);
    EXPECT_EQ(slotOf(static_cast<LogArgs>(&Logger::evt_log)), 2U);
    EXPECT_EQ(slotOf(static_cast<LogArgsV>(&Logger::evt_logv)), 3U);
    EXPECT_EQ(slotOf(static_cast<Log>(&Logger::evt_log)), 4U);
    EXPECT_EQ(slotOf(static_cast<LogV>(&Logger::evt_logv)), 5U);
}

TEST_F(LoggerTest, NamesTheEventsThatTheLibraryWrites) {
    EXPECT_EQ(EventException, 0x300006d);
    EXPECT_EQ(EventNoHandler, 0x300006e);
    EXPECT_EQ(EventUnknownException, 0x300006f);
    EXPECT_EQ(EventTaskAlreadyRunning, 0x3000071);
    EXPECT_EQ(EventThreadWithoutArgument, 0x300014a);
}

TEST_F(LoggerTest, FormatsTheTextOfAnEvent) {
    EXPECT_EQ(Logger::evt_fmt(1, "context", "%s\x01%s %d", "a", "b", 3),
              "a\x01"
              "b 3");
    EXPECT_EQ(Logger::evt_fmt(1, nullptr, "plain"), "plain");
}

TEST_F(LoggerTest, CutsTheTextOfAnEventAt4095Characters) {
    for (std::size_t const length : {4094U, 4095U, 4096U, 100000U}) {
        std::string const text(length, 'x');
        EXPECT_EQ(Logger::evt_fmt(1, nullptr, "%s", text.c_str()), text.substr(0, 4095)) << length;
    }
}

TEST_F(LoggerTest, GivesNoTextForAFormatThatCannotBeCarriedOut) {
    wchar_t const noCharacter[] = {static_cast<wchar_t>(0x7ffffff0), 0};
    EXPECT_EQ(Logger::evt_fmt(1, nullptr, "%ls", noCharacter), "");
}

TEST_F(LoggerTest, TellsTheFormattingItsSpaceAndTheArgumentWord) {
    Logger::evt_fmt(1, nullptr, "%s", "x");
    EXPECT_EQ(lastFormatting.size, 4096U);
    EXPECT_EQ(lastFormatting.argument, 0U);
    testing::internal::CaptureStdout();
    StdOutLogger::instance()->evt_log(1, someArgs, "%s", "x");
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(lastFormatting.size, 1024U);
    EXPECT_EQ(lastFormatting.argument, 5U);
}

TEST_F(LoggerTest, StaysInItsSpaceWhateverTheFormattingSaysOfTheLength) {
    lastFormatting.extra = 1'000'000;
    EXPECT_EQ(Logger::evt_fmt(1, nullptr, "%s", "x").size(), 4095U);
    lastFormatting.extra = -1'000'000;
    EXPECT_EQ(Logger::evt_fmt(1, nullptr, "%s", "x"), "");
}

TEST_F(LoggerTest, ForwardsToTheEventLog) {
    MigLogger logger;
    lastEvent.result = 3;
    EXPECT_EQ(logger.evt_log(0x300006d, someArgs, "%s\x01%s", "where", "what"), 3);
    EXPECT_EQ(described(lastEvent.level, lastEvent.args, lastEvent.text), "300006d [5 1 2 3] where\x01what");
    lastEvent.result = -1;
    EXPECT_EQ(withList(logger, someArgs, "%d", 1), -1);
    EXPECT_EQ(described(lastEvent.level, lastEvent.args, lastEvent.text), "7 [5 1 2 3] 1");
    EXPECT_EQ(logger.evt_log(9, "context", "%d", 2), -1);
    EXPECT_EQ(described(lastEvent.level, lastEvent.args, lastEvent.text), "9 [0 0 0 0] 2");
    EXPECT_EQ(withList(logger, "context", "%d", 3), -1);
    EXPECT_EQ(described(lastEvent.level, lastEvent.args, lastEvent.text), "7 [0 0 0 0] 3");
    EXPECT_EQ(lastEvent.calls, 4);
}

TEST_F(LoggerTest, CanBeDerivedFromTheEventLogsLogger) {
    struct Tagged : MigLogger {
        int evt_logv(int level, evt_log_args_t const& args, char const* format, va_list list) override {
            ++calls;
            return MigLogger::evt_logv(level, args, format, list);
        }
        int calls = 0;
    } tagged;
    MigLogger& logger = tagged;
    logger.evt_log(1, someArgs, "%d", 1);
    logger.evt_log(1, "context", "%d", 2);
    withList(logger, "context", "%d", 3);
    EXPECT_EQ(tagged.calls, 3);
    EXPECT_EQ(lastEvent.text, "3");
}

TEST_F(LoggerTest, PrintsLinesToStandardOutput) {
    Logger* const logger = StdOutLogger::instance();
    testing::internal::CaptureStdout();
    EXPECT_EQ(logger->evt_log(1, someArgs, "%s\x01%d", "a", 1), 0);
    EXPECT_EQ(withList(*logger, someArgs, "%s", "b"), 0);
    EXPECT_EQ(logger->evt_log(1, "context", "%s", "c"), 0);
    EXPECT_EQ(withList(*logger, "context", "%s", ""), 0);
    static_cast<StdOutLogger*>(logger)->evt_log(1, "context", "%s", "e");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "a\x01"
              "1\nb\nc\n\ne\n");
    EXPECT_EQ(lastEvent.calls, 0);
}

TEST_F(LoggerTest, FlushesEveryLine) {
    struct Flushes : std::stringbuf {
        std::string flushed;
        int sync() override {
            flushed = str();
            return 0;
        }
    } output;
    std::streambuf* const former = std::cout.rdbuf(&output);
    StdOutLogger::instance()->evt_log(1, someArgs, "%s", "a");
    std::string const afterOne = output.flushed;
    StdOutLogger::instance()->evt_log(1, "context", "%s", "b");
    std::cout.rdbuf(former);
    EXPECT_EQ(afterOne, "a\n");
    EXPECT_EQ(output.flushed, "a\nb\n");
}

TEST_F(LoggerTest, CutsPrintedLinesAt1023Characters) {
    for (std::size_t const length : {1022U, 1023U, 1024U, 5000U}) {
        std::string const text(length, 'x');
        testing::internal::CaptureStdout();
        StdOutLogger::instance()->evt_log(1, someArgs, "%s", text.c_str());
        EXPECT_EQ(testing::internal::GetCapturedStdout(), text.substr(0, 1023) + "\n") << length;
    }
}

TEST_F(LoggerTest, PrintsAgainAfterALineThatCouldNotBePrinted) {
    FitfulOutput output;
    output.refuses = true;
    EXPECT_EQ(StdOutLogger::instance()->evt_log(1, someArgs, "%s", "lost"), -1);
    output.refuses = false;
    EXPECT_EQ(StdOutLogger::instance()->evt_log(1, someArgs, "%s", "printed"), 0);
    EXPECT_EQ(output.text, "printed\n");
}

TEST_F(LoggerTest, PrintsWholeLinesOfThreadsThatAreCancelled) {
    FitfulOutput output;
    Logger* const logger = StdOutLogger::instance();
    EXPECT_FALSE(isCancelledIn([&] { logger->evt_log(1, someArgs, "%s", "last words"); }));
    EXPECT_EQ(logger->evt_log(1, someArgs, "%s", "of another"), 0);
    EXPECT_EQ(output.text, "last words\nof another\n");
}

TEST_F(LoggerTest, KeepsThePrintedLinesOfThreadsApart) {
    constexpr int threadCount = 4;
    constexpr int lineCount = 50;
    Logger* const logger = StdOutLogger::instance();
    testing::internal::CaptureStdout();
    std::vector<std::thread> threads;
    for (int n = 0; n < threadCount; ++n)
        threads.emplace_back([logger, n] {
            std::string const line(200, static_cast<char>('a' + n));
            for (int i = 0; i < lineCount; ++i) logger->evt_log(1, someArgs, "%s", line.c_str());
        });
    for (std::thread& thread : threads) thread.join();
    std::istringstream out(testing::internal::GetCapturedStdout());
    int count = 0;
    for (std::string line; std::getline(out, line); ++count) EXPECT_EQ(line, std::string(200, line[0]));
    EXPECT_EQ(count, threadCount * lineCount);
}

TEST_F(LoggerTest, PrintsOneLineAtATime) {
    // Whoever prints first goes on when the other waits for its turn, or stands beside it.
    struct Turns : std::stringbuf {
        std::atomic<bool> begun{false};
        std::atomic<bool> inside{false};
        std::atomic<bool> met{false};
        std::atomic<pid_t> other{0};
        std::streamsize xsputn(char const* text, std::streamsize size) override {
            if (inside.exchange(true)) met = true;
            if (!begun.exchange(true))
                while (!met && (other == 0 || !QuillmarkTest::isAsleep(other))) std::this_thread::yield();
            if (met) return 0;
            inside = false;
            return std::stringbuf::xsputn(text, size);
        }
    } output;
    std::streambuf* const former = std::cout.rdbuf(&output);
    Logger* const logger = StdOutLogger::instance();
    std::thread second([&] {
        while (!output.begun) std::this_thread::yield();
        output.other = ::gettid();
        logger->evt_log(1, someArgs, "%s", "second");
    });
    logger->evt_log(1, someArgs, "%s", "first");
    second.join();
    std::cout.rdbuf(former);
    std::cout.clear();
    EXPECT_FALSE(output.met);
    EXPECT_EQ(output.str(), "first\nsecond\n");
}

TEST(ReplaceDoubleQuote, MakesThemSingle) {
    EXPECT_EQ(replaceDoubleQuote(""), "");
    EXPECT_EQ(replaceDoubleQuote("it's plain"), "it's plain");
    EXPECT_EQ(replaceDoubleQuote("\"a\" and \"b\"\""), "'a' and 'b''");
    EXPECT_EQ(replaceDoubleQuote(std::string("\"\0\"", 3)), std::string("'\0'", 3));
}
