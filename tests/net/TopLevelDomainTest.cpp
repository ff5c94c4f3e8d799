#include "include2/TopLevelDomain"

#include <atomic>
#include <cstdlib>
#include <thread>

#include "include2/HostName"
#include "tests/support/DomainLists.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/Support.h"

using namespace Quillmark;
using QuillmarkTest::DomainLists;
using QuillmarkTest::LogRecorder;
using QuillmarkTest::TemporaryDirectory;

using CountryCodes = DomainNameCountryCodeContainer;
using Generic = DomainNameGenericCodeContainer;
using Internationalised = DomainNameInternationalDomainNameCodeContainer;

namespace {

/// Which of the names a file of this content lists, in order, with what was logged behind a "!".
std::string listed(std::string_view content, std::vector<std::string> const& names) {
    TemporaryDirectory const directory;
    LogRecorder const log;
    Generic const list(directory.write("list", content));
    std::string result;
    for (std::string const& name : names)
        if (list.find(name)) result += "[" + name + "]";
    return log.lines().empty() ? result : result + "!" + log.text();
}

char const* const genericMessage =
    "!300006d DomainNameGenericCodeContainer: Could not open TopLevelDomain file\n";

std::string domainOf(char const* text) {
    return HostName(text, false, true).domain();
}

}  // namespace

TEST(TopLevelDomain, FindsNamesExactly) {
    EXPECT_EQ(listed("com\nco.uk\nxn--p1ai\n",
                     {"com", "Com", "co", "comm", "co.uk", "uk", ".uk", "xn--p1ai", "", "com\n"}),
              "[com][co.uk][xn--p1ai]");
}

TEST(TopLevelDomain, FindsAPieceOfALongerTextWithoutACopy) {
    TemporaryDirectory const directory;
    Generic const list(directory.write("list", "com\n"));
    std::string_view const text = "example.com.x";
    EXPECT_TRUE(list.contains(text.substr(8, 3)));
    EXPECT_FALSE(list.contains(text.substr(8, 4)));
    EXPECT_FALSE(list.contains(std::string(100'000, 'c')));
}

TEST(TopLevelDomain, TakesLinesAsTheyStand) {
    using namespace std::string_literals;
    EXPECT_EQ(listed(" com \n# net\nORG\ncom\ncom\n", {"com", " com ", "# net", "net", "org", "ORG"}),
              "[com][ com ][# net][ORG]");
    EXPECT_EQ(listed("a\0b\n\xc3\xa4\n"s, {"a", "a\0b"s, "\xc3\xa4"}), "[a\0b][\xc3\xa4]"s);
}

// Kept for list files: names with Windows line ends never match.
TEST(TopLevelDomain, KeepsACarriageReturn) {
    EXPECT_EQ(listed("com\r\nnet\r\n", {"com", "net", "com\r"}), "[com\r]");
}

TEST(TopLevelDomain, TakesTheLastLineWithoutALineFeed) {
    EXPECT_EQ(listed("com\nnet", {"com", "net"}), "[com][net]");
    EXPECT_EQ(listed("com", {"com"}), "[com]");
}

TEST(TopLevelDomain, TakesAnEmptyLineForTheEmptyName) {
    EXPECT_EQ(listed("", {"", "com"}), "");
    EXPECT_EQ(listed("com\n", {""}), "");
    EXPECT_EQ(listed("\n", {""}), "[]");
    EXPECT_EQ(listed("com\n\nnet\n", {"com", "", "net"}), "[com][][net]");
}

TEST(TopLevelDomain, TakesLinesOfUpTo127Bytes) {
    std::string const longest(127, 'x');
    EXPECT_EQ(listed("com\n" + longest + "\nnet\n", {"com", longest, "net"}), "[com][" + longest + "][net]");
    EXPECT_EQ(listed("com\n" + longest, {"com", longest}), "[com][" + longest + "]");
}

TEST(TopLevelDomain, StopsAtALongerLineAndKeepsWhatItHas) {
    std::string const tooLong(128, 'x');
    std::vector<std::string> const names{"com", tooLong, tooLong.substr(1), "net"};
    EXPECT_EQ(listed("com\n" + tooLong + "\nnet\n", names), "[com]" + std::string(genericMessage));
    EXPECT_EQ(listed("com\n" + tooLong, names), "[com]" + std::string(genericMessage));
    EXPECT_EQ(listed("com\n" + std::string(100'000, 'x') + "\nnet\n", names),
              "[com]" + std::string(genericMessage));
}

TEST(TopLevelDomain, DoesNotReadAnEndlessLine) {
    LogRecorder const log;
    Generic const list("/dev/zero");
    EXPECT_EQ("!" + log.text(), genericMessage);
    EXPECT_FALSE(list.find(""));
}

TEST(TopLevelDomain, LogsADirectoryAndHasNoNames) {
    TemporaryDirectory const directory;
    directory.write("fallback", "com\n");
    ::quill_path_map("/etc/gtld", directory.file("fallback").c_str());
    LogRecorder const log;
    Generic const list(directory.path());
    EXPECT_EQ("!" + log.text(), genericMessage);
    EXPECT_FALSE(list.find("com"));
    ::quill_path_map("/etc/gtld", nullptr);
}

TEST(TopLevelDomain, HasNoNamesAlsoWhenTheLoggerFails) {
    TemporaryDirectory const directory;
    ::quill_path_map("/etc/gtld", directory.file("missing").c_str());
    LogRecorder log;
    for (std::function<void()> const& failure :
         {std::function<void()>([] { throw std::runtime_error("full"); }),
          std::function<void()>([] { throw Exception("Logger", 4, "Scanner", 7); })}) {
        log.afterwards(failure);
        Generic const list(directory.file("missing"));
        EXPECT_FALSE(list.find("com"));
    }
    EXPECT_EQ(log.lines().size(), 2U);
    ::quill_path_map("/etc/gtld", nullptr);
}

TEST(TopLevelDomain, FindsEveryNameOfALongList) {
    std::string content;
    for (int i = 0; i < 20'000; ++i) content += "name" + std::to_string(i) + "\n";
    TemporaryDirectory const directory;
    Generic const list(directory.write("list", content));
    for (int i = 0; i < 20'000; ++i) {
        EXPECT_TRUE(list.find("name" + std::to_string(i)));
        EXPECT_FALSE(list.find("eman" + std::to_string(i)));
    }
}

TEST(TopLevelDomain, TellsNamesOfEveryLengthApart) {
    std::string content;
    for (std::size_t length = 1; length <= 127; ++length)
        for (std::size_t at = 0; at < length; ++at) {
            std::string name(length, 'a');
            name[at] = 'b';
            content += name + "\n";
        }
    TemporaryDirectory const directory;
    Generic const list(directory.write("list", content));
    for (std::size_t length = 1; length <= 127; ++length) {
        EXPECT_FALSE(list.find(std::string(length, 'a'))) << length;
        for (std::size_t at = 0; at < length; ++at) {
            std::string name(length, 'a');
            name[at] = 'b';
            EXPECT_TRUE(list.find(name)) << name;
            name[at] = 'c';
            EXPECT_FALSE(list.find(name)) << name;
        }
    }
}

namespace {

/// The files of one class, opened below a directory.
template <class List>
void readsPrimaryThenFallback(char const* fallback, char const* message) {
    TemporaryDirectory const directory;
    ::quill_path_map(fallback, directory.file("fallback").c_str());
    {
        LogRecorder const log;
        List const none(directory.file("primary"));
        EXPECT_EQ(log.text(), "300006d " + std::string(message) + "\n");
        EXPECT_FALSE(none.find("com"));
    }
    LogRecorder const log;
    directory.write("fallback", "second\n");
    List const second(directory.file("primary"));
    EXPECT_TRUE(second.find("second"));
    directory.write("primary", "first\n");
    std::size_t const open = QuillmarkTest::openDescriptors();
    List const first(directory.file("primary"));
    EXPECT_EQ(QuillmarkTest::openDescriptors(), open);
    EXPECT_TRUE(first.find("first"));
    EXPECT_FALSE(first.find("second"));
    EXPECT_EQ(log.text(), "");
    ::quill_path_map(fallback, nullptr);
}

}  // namespace

TEST(TopLevelDomain, ReadsTheFallbackWhenThePrimaryFileDoesNotOpen) {
    readsPrimaryThenFallback<CountryCodes>(
        "/etc/cctld", "DomainNameCountryCodeContainer: Could not open TopLevelDomain file");
    readsPrimaryThenFallback<Generic>("/etc/gtld",
                                      "DomainNameGenericCodeContainer: Could not open TopLevelDomain file");
    // Kept for log readers: the list of country codes is named.
    readsPrimaryThenFallback<Internationalised>(
        "/etc/idntld", "DomainNameCountryCodeContainer: Could not open TopLevelDomain file");
}

TEST(TopLevelDomain, InstancesReadTheirOwnFiles) {
    DomainLists const lists("co.uk\n", "com\n", "xn--p1ai\n");
    auto const found = [](auto const& list) {
        std::string names;
        for (char const* name : {"co.uk", "com", "xn--p1ai"})
            if (list->find(name)) names += name;
        return names;
    };
    EXPECT_EQ(found(CountryCodes::instance()), "co.uk");
    EXPECT_EQ(found(Generic::instance()), "com");
    EXPECT_EQ(found(Internationalised::instance()), "xn--p1ai");
}

TEST(TopLevelDomain, InstanceStaysTheSameUntilTheNextGeneration) {
    DomainLists const lists("", "com\n", "");
    Generic const* const first = Generic::instance().operator->();
    EXPECT_EQ(Generic::instance().operator->(), first);
    ::quill_cfg_new_generation();
    Ref<Generic> const second = Generic::instance();
    EXPECT_NE(second.operator->(), first);
    EXPECT_EQ(Generic::instance().operator->(), second.operator->());
}

TEST(TopLevelDomain, InstanceIsTheSameInEveryThread) {
    DomainLists const lists("", "com\n", "");
    Ref<Generic> const here = Generic::instance();
    Ref<Generic> there;
    std::thread([&] { there = Generic::instance(); }).join();
    EXPECT_EQ(here.operator->(), there.operator->());
}

TEST(TopLevelDomain, KeepsTheListBeforeForThoseWhoStillReadIt) {
    DomainLists const lists("", "com\n", "");
    Ref<Generic> const list = Generic::instance();
    lists.replace("", "net\n", "");
    EXPECT_FALSE(Generic::instance()->find("com"));
    EXPECT_EQ(list->count(), 2U);  // ours and the library's
    lists.replace("", "org\n", "");
    EXPECT_TRUE(Generic::instance()->find("org"));
    EXPECT_EQ(list->count(), 1U);
    EXPECT_TRUE(list->find("com"));
}

TEST(TopLevelDomain, ThreadsGiveBackTheListsThatTheyUsed) {
    DomainLists const lists("", "com\n", "");
    Ref<Generic> const list = Generic::instance();
    uint_t const before = list->count();
    std::thread([&] {
        EXPECT_EQ(domainOf("example.com"), "example.com");
        EXPECT_EQ(list->count(), before + 1);
    }).join();
    EXPECT_EQ(list->count(), before);
}

namespace {

/// Splits a name when its thread ends.
struct LastWords {
    std::string* domain = nullptr;
    ~LastWords() {
        if (domain) *domain = domainOf("example.com");
    }
};
thread_local LastWords lastWords;

}  // namespace

TEST(TopLevelDomain, IsThereUntilTheVeryEndOfAThread) {
    DomainLists const lists("", "com\n", "");
    Ref<Generic> const list = Generic::instance();
    uint_t const before = list->count();
    std::string atTheEnd;
    std::thread([&] {
        lastWords.domain = &atTheEnd;  // made first, so it ends last
        EXPECT_EQ(domainOf("example.com"), "example.com");
    }).join();
    EXPECT_EQ(atTheEnd, "example.com");
    EXPECT_EQ(list->count(), before);
}

TEST(TopLevelDomain, LooksAtTheGenerationWordOfTheArea) {
    DomainLists const lists("", "com\n", "");
    std::uint32_t volatile* const former = nCfg_debug_zone;
    static std::uint32_t area[512];
    area[296] = 7000;
    nCfg_debug_zone = area;
    Generic const* const first = Generic::instance().operator->();
    for (std::size_t word = 0; word < 512; ++word)
        if (word != 296) area[word] = 7001;
    EXPECT_EQ(Generic::instance().operator->(), first);
    area[296] = 7001;
    EXPECT_NE(Generic::instance().operator->(), first);
    // Another generation is another list, also one that was there before.
    Ref<Generic> const second = Generic::instance();
    area[296] = 7000;
    EXPECT_NE(Generic::instance().operator->(), second.operator->());
    nCfg_debug_zone = former;
}

namespace {

[[noreturn]] void leave(bool good) {
    std::exit(good ? 0 : 1);
}

void mapGeneric(TemporaryDirectory const& directory, char const* content) {
    ::quill_path_map("/var/spool/etc/antispam/gtld", directory.write("gtld", content).c_str());
}

}  // namespace

// These need a process that has not looked at any list yet.
TEST(TopLevelDomainDeathTest, WithoutAnAreaTheListIsReadOnce) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    TemporaryDirectory const directory;
    EXPECT_EXIT(
        {
            nCfg_debug_zone = nullptr;
            mapGeneric(directory, "com\n");
            bool good = Generic::instance()->find("com");
            Ref<Generic> const first = Generic::instance();
            mapGeneric(directory, "net\n");
            good = good && Generic::instance().operator->() == first.operator->();
            good = good && first->find("com") && !first->find("net");
            ::quill_cfg_new_generation();
            good = good && Generic::instance()->find("net");
            nCfg_debug_zone = nullptr;
            good = good && Generic::instance().operator->() == first.operator->();
            leave(good);
        },
        testing::ExitedWithCode(0), "");
}

TEST(TopLevelDomainDeathTest, TheFirstLookReadsTheListInGenerationZeroToo) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    TemporaryDirectory const directory;
    EXPECT_EXIT(
        {
            static std::uint32_t area[512];
            nCfg_debug_zone = area;
            mapGeneric(directory, "com\n");
            Ref<Generic> const first = Generic::instance();
            leave(first->find("com") && Generic::instance().operator->() == first.operator->());
        },
        testing::ExitedWithCode(0), "");
}

TEST(TopLevelDomainDeathTest, WithoutAnAreaManyThreadsMayLookFirst) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    TemporaryDirectory const directory;
    EXPECT_EXIT(
        {
            nCfg_debug_zone = nullptr;
            mapGeneric(directory, "com\n");
            std::atomic<int> good{0};
            std::vector<std::thread> threads;
            for (int i = 0; i < 4; ++i)
                threads.emplace_back([&good] { good += Generic::instance()->find("com"); });
            for (std::thread& thread : threads) thread.join();
            leave(good == 4);
        },
        testing::ExitedWithCode(0), "");
}

TEST(TopLevelDomain, InstancesAreReadByManyThreadsWhileTheyAreLoadedAnew) {
    DomainLists const lists("co.uk\n", "com\n", "xn--p1ai\n");
    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&] {
            while (!stop) {
                Ref<CountryCodes> const countries = CountryCodes::instance();
                if (!countries->find("co.uk") || countries->find("com")) ++wrong;
                if (!Generic::instance()->find("com")) ++wrong;
                if (!Internationalised::instance()->find("xn--p1ai")) ++wrong;
            }
        });
    }
    for (int i = 0; i < 100; ++i) {
        ::quill_cfg_new_generation();
        if (!Generic::instance()->find("com")) ++wrong;
    }
    stop = true;
    for (std::thread& reader : readers) reader.join();
    EXPECT_EQ(wrong, 0);
}
