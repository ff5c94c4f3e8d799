#pragma once
// A daemon to ask, and a client that speaks its protocol without the library, well or badly.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/tools/Tool.h"

namespace QuillmarkTest {

/// `quillmark serve` on a free port. It listens when the object is there, and ends with it.
class Daemon {
public:
    /// @param more  further arguments
    explicit Daemon(std::vector<std::string> more = {}, std::string const& lists = testLists(),
                    Surroundings const& surroundings = {})
        : m_run(arguments(std::move(more), lists), surroundings) {
        m_greeting = m_run.line();
        std::size_t const at = m_greeting.find("127.0.0.1:");
        if (at != std::string::npos) m_where = m_greeting.substr(at, m_greeting.find(' ', at) - at);
    }

    std::string const& where() const { return m_where; }  ///< "127.0.0.1:29001"
    std::uint16_t port() const {
        return static_cast<std::uint16_t>(std::stoul(m_where.substr(m_where.find(':') + 1)));
    }
    std::string const& greeting() const { return m_greeting; }
    Running& run() { return m_run; }
    /// What the daemon answers to a request.
    std::string answer(int type, std::string const& request) const {
        Ran const ran = quillmark({"ipc", "send", std::to_string(type), "--to", m_where}, {request, {}, ""});
        return ran.status == 0 ? ran.out : ran.err;
    }

private:
    static std::vector<std::string> arguments(std::vector<std::string> more, std::string const& lists) {
        std::vector<std::string> all{"serve", "--port", "0", "--lists", lists};
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }

    Running m_run;
    std::string m_greeting;
    std::string m_where;
};

/// The bytes of one message: type and length in the machine's own order, then the payload.
inline std::string message(std::uint32_t type, std::string const& payload, std::uint32_t length) {
    std::string bytes(8, '\0');
    std::memcpy(bytes.data(), &type, 4);
    std::memcpy(bytes.data() + 4, &length, 4);
    return bytes + payload;
}
inline std::string message(std::uint32_t type, std::string const& payload) {
    return message(type, payload, static_cast<std::uint32_t>(payload.size()));
}

/// One end of a connection to a port of loopback.
class RawClient {
public:
    explicit RawClient(std::uint16_t port) : m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        m_connected = ::connect(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    }
    ~RawClient() { ::close(m_socket); }
    RawClient(RawClient const&) = delete;
    RawClient& operator=(RawClient const&) = delete;

    bool isConnected() const { return m_connected; }
    /// @return whether the system took all bytes
    bool send(std::string const& bytes) const {
        return ::send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(bytes.size());
    }
    void endSending() const { ::shutdown(m_socket, SHUT_WR); }
    /// Lets the end of the connection be a reset.
    void resetAtTheEnd() const {
        linger const now{1, 0};
        ::setsockopt(m_socket, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    }
    /// All that comes until the other end closes, or "reset" when the connection breaks.
    std::string answer() const {
        std::string bytes;
        std::array<char, 4096> block{};
        for (;;) {
            ssize_t const count = ::recv(m_socket, block.data(), block.size(), 0);
            if (count < 0 && errno == EINTR) continue;
            if (count < 0) return "reset";
            if (count == 0) return bytes;
            bytes.append(block.data(), static_cast<std::size_t>(count));
        }
    }

private:
    int m_socket;
    bool m_connected = false;
};

}  // namespace QuillmarkTest
