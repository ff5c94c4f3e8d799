// The clients of a daemon, before a daemon that answers as no good one does.

#include <functional>
#include <thread>

#include "tests/tools/Daemon.h"

using namespace QuillmarkTest;

namespace {

/// Reads one request on each connection and answers it with the bytes that a test says.
class FakeDaemon {
public:
    using Answer = std::function<std::string(std::uint32_t type)>;
    explicit FakeDaemon(Answer answer) : m_answer(std::move(answer)) {
        m_listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const place = reinterpret_cast<sockaddr*>(&address);
        if (::bind(m_listener, place, size) != 0 || ::listen(m_listener, 10) != 0 ||
            ::getsockname(m_listener, place, &size) != 0)
            throw std::runtime_error("no listener");
        m_where = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
        m_thread = std::thread([this] { serve(); });
    }
    ~FakeDaemon() {
        ::shutdown(m_listener, SHUT_RDWR);
        m_thread.join();
        ::close(m_listener);
    }
    FakeDaemon(FakeDaemon const&) = delete;
    FakeDaemon& operator=(FakeDaemon const&) = delete;

    std::string const& where() const { return m_where; }

private:
    void serve() {
        for (int connection = 0; (connection = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
            std::uint32_t header[2] = {};
            std::string payload;
            if (::recv(connection, header, sizeof header, MSG_WAITALL) == sizeof header) {
                payload.resize(header[1]);
                if (!payload.empty()) ::recv(connection, payload.data(), payload.size(), MSG_WAITALL);
                std::string const answer = m_answer(header[0]);
                for (std::size_t at = 0; at < answer.size();) {
                    ssize_t const count =
                        ::send(connection, answer.data() + at, answer.size() - at, MSG_NOSIGNAL);
                    if (count <= 0) break;
                    at += static_cast<std::size_t>(count);
                }
            }
            ::close(connection);
        }
    }

    Answer m_answer;
    int m_listener = -1;
    std::string m_where;
    std::thread m_thread;
};

}  // namespace

TEST(DaemonClient, SaysWhatIsWrongWithAnAnswer) {
    struct {
        char const* what;
        std::string answer;
        char const* complaint;
    } const rows[] = {
        {"nothing", "", "does not answer"},
        {"half a header", message(1, "").substr(0, 5), "does not answer"},
        {"half a payload", message(1, "quillmark", 14), "does not answer"},
        {"a length of 4 GiB", message(1, "quillmark", 0xffffffff), "does not answer"},
        {"no header", "HTTP/1.0 400 Bad Request\r\n\r\n", "does not answer"},
        {"another text", message(1, "quillmark pong"), "answers with something else"},
        {"no text", message(1, ""), "answers with something else"},
        {"too long a text", message(1, std::string(65529, 'x')), "answers with more than 65528 bytes"},
    };
    for (auto const& row : rows) {
        FakeDaemon const daemon([&](std::uint32_t) { return row.answer; });
        Ran const ran = quillmark({"ping", daemon.where()});
        EXPECT_EQ(ran.status, 1) << row.what;
        EXPECT_EQ(ran.out, "") << row.what;
        EXPECT_EQ(ran.err, "quillmark: " + daemon.where() + ": " + row.complaint + "\n") << row.what;
    }
}

TEST(DaemonClient, PrintsAnAnswerAsItIs) {
    std::string const longest(65528, '\xff');
    FakeDaemon const daemon([&](std::uint32_t type) { return message(type + 1, longest); });
    Ran const ran = quillmark({"ipc", "send", "4000000000", "--to", daemon.where()}, {"x", {}, ""});
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_TRUE(ran.out == longest) << ran.out.size();
}

TEST(DaemonClient, TakesNoVerdictFromWhatIsNone) {
    for (std::string const& text :
         {std::string("error a line is no feature\n"), std::string("score x\naction accept\n"),
          std::string("score 1\naction delete\n"), std::string("score 1\naction accept\nnonsense\n"),
          std::string("score 4294967296\naction accept\n"), std::string("\n\n"), std::string()}) {
        FakeDaemon const daemon(
            [&](std::uint32_t type) { return message(type, type == 52 ? text : std::string()); });
        Ran const ran = quillmark({"scan", "--lists", testLists(), "--verdict", daemon.where()},
                                  {"From: a@example.com\n\nx\n", {}, ""});
        EXPECT_EQ(ran.status, 1) << text;
        EXPECT_THAT(ran.out,
                    testing::HasSubstr("no verdict: " + daemon.where() + ": answers with no verdict\n"));
    }
}

TEST(DaemonClient, ShowsAVerdictWithoutHarm) {
    FakeDaemon const daemon([&](std::uint32_t type) {
        return message(type, type == 52 ? "score 7\naction review\nreason \x1b[31mred\n" : "");
    });
    Ran const ran = quillmark({"scan", "--lists", testLists(), "--verdict", daemon.where()},
                              {"From: a@example.com\n\nx\n", {}, ""});
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_THAT(ran.out, testing::HasSubstr("\n  Verdict    review, score 7\n             \\x1b[31mred\n"));
}
