// quillmark serve among many clients, and among those who mean it no good.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <sstream>
#include <thread>

#include "tests/tools/Daemon.h"

using namespace QuillmarkTest;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

constexpr char eicar[] = "44d88612fea8a8f36de82e1278abb02f";

std::size_t descriptorsOf(int process) {
    std::size_t count = 0;
    std::string const place = "/proc/" + std::to_string(process) + "/fd";
    for ([[maybe_unused]] auto const& entry : std::filesystem::directory_iterator(place)) ++count;
    return count;
}

/// KiB of memory that are really there.
unsigned long memoryOf(int process) {
    std::istringstream status(readFile("/proc/" + std::to_string(process) + "/status"));
    for (std::string word; status >> word;)
        if (unsigned long kib = 0; word == "VmRSS:" && status >> kib) return kib;
    return 0;
}

/// What a client asks, and what it must hear: no two are the same.
struct Question {
    std::string request;
    std::string answer;
};

Question question(unsigned int client, unsigned int number, std::minstd_rand& random) {
    switch (number % 3) {
    case 0: {
        std::string bytes(random() % 1017, '\0');
        for (char& c : bytes) c = static_cast<char>(random());
        return {message(1, bytes), message(1, bytes)};
    }
    case 1: {
        char unknown[33];
        std::snprintf(unknown, sizeof unknown, "%016x%016x", client, number);
        return {message(51, std::string(unknown) + "\n" + eicar + "\n"),
                message(51, std::string(eicar) + " the EICAR test file\n")};
    }
    default: {
        std::string const host = "10." + std::to_string(client) + "." + std::to_string(number >> 8) + "." +
                                 std::to_string(number & 255);
        return {message(52, "sender example.com\nlink " + host + "\n"),
                message(52, "score 60\naction review\nreason private-link 60 " + host + "\n")};
    }
    }
}

/// Asks until there is an answer. A queue that is full turns a connection away before it was heard.
std::string asked(std::uint16_t port, std::string const& request, std::atomic<int>& turnedAway) {
    for (int attempt = 0; attempt < 100; ++attempt) {
        RawClient const client(port);
        if (client.isConnected() && client.send(request)) {
            std::string const answer = client.answer();
            if (answer != "reset") return answer;
        }
        ++turnedAway;
    }
    return "turned away";
}

/// What so many clients did not hear as they should: the first such answer of each.
std::vector<std::string> storm(std::uint16_t port, unsigned int clients, unsigned int requestsEach,
                               std::atomic<int>& turnedAway) {
    std::vector<std::string> wrong(clients);
    std::vector<std::thread> threads;
    for (unsigned int client = 0; client < clients; ++client)
        threads.emplace_back([&, client] {
            std::minstd_rand random(client + 1);
            for (unsigned int i = 0; i < requestsEach; ++i) {
                Question const asking = question(client, i, random);
                std::string const answer = asked(port, asking.request, turnedAway);
                if (answer != asking.answer && wrong[client].empty())
                    wrong[client] = "request " + std::to_string(i) + ": " + hex(answer);
            }
        });
    for (auto& thread : threads) thread.join();
    wrong.erase(std::remove(wrong.begin(), wrong.end(), std::string()), wrong.end());
    return wrong;
}

/// Puts a file in place whole.
void replace(TemporaryDirectory const& place, char const* name, std::string const& content) {
    std::filesystem::rename(place.write(std::string(name) + ".new", content), place.file(name));
}

#if defined __SANITIZE_ADDRESS__ || defined __SANITIZE_THREAD__
constexpr unsigned long memoryGrowth = 300'000;  // KiB; a sanitizer keeps what was freed for a while
#else
constexpr unsigned long memoryGrowth = 512;
#endif

}  // namespace

TEST(ServeUnderLoad, LosesAndChangesNoneOfTwentyThousandRequestsAndStaysAsItIs) {
    constexpr unsigned int clients = 16;
    constexpr unsigned int warmUp = 150;
    constexpr unsigned int each = 1250;
    Daemon daemon;
    int const process = daemon.run().process();
    std::atomic<int> turnedAway{0};
    EXPECT_THAT(storm(daemon.port(), clients, warmUp, turnedAway), testing::IsEmpty());
    std::size_t const descriptors = descriptorsOf(process);
    unsigned long const memory = memoryOf(process);
    ASSERT_GT(memory, 0U);

    auto const start = Clock::now();
    EXPECT_THAT(storm(daemon.port(), clients, each, turnedAway), testing::IsEmpty());
    std::chrono::duration<double> const taken = Clock::now() - start;

    unsigned long const after = memoryOf(process);
    std::cout << clients * each << " requests in " << taken.count() << " s, memory " << memory << " -> "
              << after << " KiB, turned away " << turnedAway << "\n";
    EXPECT_LE(after, memory + memoryGrowth);
    EXPECT_LE(descriptorsOf(process), descriptors + 1);  // the last connection may be closing
    // Each was handled once: those of 1251 and of 151 numbers of a client that leave 1 and 2.
    unsigned int const total = clients * ((each + 1) / 3 + (warmUp + 1) / 3);
    unsigned int const judged = clients * (each / 3 + warmUp / 3);
    std::string const counts = daemon.answer(53, "");
    EXPECT_THAT(counts, testing::HasSubstr("\ndigests " + std::to_string(2 * total) + "\nknown " +
                                           std::to_string(total) + "\nmessages " + std::to_string(judged) +
                                           "\naccept 0\nreview " + std::to_string(judged) +
                                           "\nreject 0\nrefused 0\n"));
    daemon.run().signal(SIGTERM);
    EXPECT_EQ(daemon.run().line(), "served " + std::to_string(judged) + " messages");
    EXPECT_EQ(daemon.run().wait(), 0);
    EXPECT_EQ(daemon.run().error(), "");
}

TEST(ServeUnderLoad, ReadsPolicyAndListsAgainWhileItIsAsked) {
    TemporaryDirectory const place;
    auto const policy = [&](int score) {
        replace(place, "policy", "rule ip-link " + std::to_string(score) + "\nrule unrelated-sender 1\n");
    };
    auto const lists = [&](char const* rules) {
        place.write("rules", rules);
        return quillmark({"lists", "--source", place.file("rules"), "--out", place.file("lists")}).status;
    };
    policy(2);
    ASSERT_EQ(lists("com\n"), 0);
    Daemon daemon({"--policy", place.file("policy")}, place.file("lists"));
    std::string const request = message(52, "sender a.shops.com\nlink b.shops.com\nlink 203.0.113.9\n");
    std::atomic<bool> enough{false};
    std::atomic<int> answers{0};
    std::atomic<int> turnedAway{0};
    std::vector<std::thread> clients;
    std::vector<std::string> wrong(8);
    for (std::string& mine : wrong)
        clients.emplace_back([&] {
            while (!enough) {
                std::string const answer = asked(daemon.port(), request, turnedAway);
                ++answers;
                // A verdict is of one policy; the lists may already be others.
                bool const good = answer.find("\nreason ip-link 2 203.0.113.9\n") != std::string::npos ||
                                  answer.find("\nreason ip-link 3 203.0.113.9\n") != std::string::npos;
                if (!good && mine.empty()) mine = hex(answer);
            }
        });
    for (int i = 0; i < 20; ++i) {
        policy(2 + i % 2);
        EXPECT_EQ(lists(i % 2 == 0 ? "com\nshops.com\n" : "com\n"), 0);
        int const before = answers;
        daemon.run().signal(SIGHUP);
        EXPECT_EQ(daemon.run().error(), "quillmark: policy and lists are read again");
        while (answers == before) std::this_thread::yield();
    }
    enough = true;
    for (auto& client : clients) client.join();
    wrong.erase(std::remove(wrong.begin(), wrong.end(), std::string()), wrong.end());
    EXPECT_THAT(wrong, testing::IsEmpty());
    EXPECT_EQ(daemon.answer(52, "link 203.0.113.9"),
              "score 3\naction accept\nreason ip-link 3 203.0.113.9\n");
    daemon.run().signal(SIGTERM);
    EXPECT_EQ(daemon.run().wait(), 0);
    // A full minute may have come in between, at which the daemon looks by itself.
    EXPECT_THAT(daemon.run().error(), testing::AnyOf("", "quillmark: policy and lists are read again"));
}

TEST(ServeUnderLoad, AnswersWhatItBeganWhenItIsAskedToEnd) {
    Daemon daemon;
    std::string const request = message(52, "link 10.0.0.1\n");
    std::string const verdict = message(52, "score 60\naction review\nreason private-link 60 10.0.0.1\n");
    std::atomic<int> answers{0};
    std::atomic<int> wrong{0};
    std::vector<std::thread> clients;
    for (int i = 0; i < 16; ++i)
        clients.emplace_back([&] {
            for (;;) {
                RawClient const client(daemon.port());
                if (!client.isConnected() || !client.send(request)) return;
                std::string const answer = client.answer();
                if (answer == verdict)
                    ++answers;
                else if (answer.empty() || answer == "reset")
                    return;
                else
                    ++wrong;  // half an answer
            }
        });
    while (answers < 500) std::this_thread::yield();
    daemon.run().signal(SIGTERM);
    std::string const farewell = daemon.run().line();
    EXPECT_EQ(daemon.run().wait(), 0);
    for (auto& client : clients) client.join();
    EXPECT_EQ(farewell, "served " + std::to_string(answers) + " messages");
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(daemon.run().error(), "");
}

TEST(ServeUnderLoad, IsNotHeldUpBySilentClients) {
    Daemon daemon;
    std::vector<std::unique_ptr<RawClient>> silent;
    for (int i = 0; i < 8; ++i) {
        silent.push_back(std::make_unique<RawClient>(daemon.port()));
        EXPECT_TRUE(silent.back()->isConnected());
    }
    auto const start = Clock::now();
    EXPECT_EQ(daemon.answer(1, "anybody there?"), "anybody there?");
    EXPECT_LT(Clock::now() - start, 10s);
    silent.front()->send(message(1, "after all"));
    EXPECT_EQ(silent.front()->answer(), message(1, "after all"));
}

TEST(ServeUnderLoad, AnswersTheOthersWhenAHalfRequestEnds) {
    Daemon daemon;
    std::string const whole = message(52, "link 10.0.0.1\n");
    for (std::size_t cut = 1; cut < whole.size(); ++cut) {
        RawClient const waiting(daemon.port());
        {
            RawClient const half(daemon.port());
            EXPECT_TRUE(half.send(whole.substr(0, cut)));
            EXPECT_TRUE(waiting.send(message(1, "me too")));
            if (cut % 2 == 0) half.resetAtTheEnd();
        }
        EXPECT_EQ(waiting.answer(), message(1, "me too")) << cut;
    }
    EXPECT_THAT(daemon.answer(53, ""), testing::HasSubstr("\nmessages 0\n"));
}

TEST(ServeUnderLoad, SurvivesRubbish) {
    Daemon daemon;
    int const process = daemon.run().process();
    EXPECT_EQ(daemon.answer(1, ""), "");
    std::size_t const descriptors = descriptorsOf(process);
    unsigned long const memory = memoryOf(process);
    // What no message is like, and what it is answered with.
    struct {
        char const* what;
        std::string bytes;
        std::string answer;
    } const rows[] = {
        {"nothing", "", ""},
        {"a web browser", "GET / HTTP/1.0\r\n\r\n", ""},
        {"a type of nobody", message(4711, "x"), ""},
        {"the highest type", message(0xffffffff, ""), ""},
        {"type 0", message(0, "x"), ""},
        {"a length of 4 GiB", message(52, "link 10.0.0.1\n", 0xffffffff), ""},
        {"a length of 2 GiB", message(51, "x", 0x80000000), ""},
        {"a length that wraps", message(1, "x", 0xfffffff8), ""},
        {"one byte too few", message(53, "xyz", 4), ""},
        {"two requests", message(1, "a") + message(1, "b"), message(1, "a")},
        {"a cut ping", message(1, std::string(5000, 'p')), message(1, std::string(1016, 'p'), 5000)},
        {"5 MB", message(52, std::string(5'000'000, 'x')),
         message(52, "error the request has more than 1016 bytes\n")},
        {"no digest", message(51, std::string(1016, '\0')), message(51, "error a line is no MD5 digest\n")},
        {"no features", message(52, std::string(1016, '\xff')), message(52, "error a line is no feature\n")},
    };
    std::atomic<int> turnedAway{0};
    for (int round = 0; round < 5; ++round)
        for (auto const& row : rows) {
            RawClient const client(daemon.port());
            ASSERT_TRUE(client.isConnected());
            client.send(row.bytes);
            client.endSending();
            EXPECT_EQ(hex(client.answer()), hex(row.answer)) << row.what;
        }
    EXPECT_EQ(asked(daemon.port(), message(1, "still well"), turnedAway), message(1, "still well"));
    EXPECT_LE(descriptorsOf(process), descriptors + 1);
    EXPECT_LE(memoryOf(process), memory + 4096 + memoryGrowth);  // KiB; no length was believed
    daemon.run().signal(SIGTERM);
    EXPECT_EQ(daemon.run().wait(), 0);
    EXPECT_EQ(daemon.run().error(), "quillmark: 0");
}
