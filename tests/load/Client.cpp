#include "tests/load/Client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

namespace QuillmarkLoad {
using namespace std::chrono_literals;

Client::Client(std::uint16_t port) : m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int const on = 1;  // a piece is a segment
    ::setsockopt(m_socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    m_connected = ::connect(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
}

Client::~Client() {
    if (m_socket >= 0) ::close(m_socket);
}

Client::Client(Client&& other) noexcept
    : m_socket(std::exchange(other.m_socket, -1)), m_connected(std::exchange(other.m_connected, false)) {}

Client& Client::operator=(Client&& other) noexcept {
    std::swap(m_socket, other.m_socket);
    std::swap(m_connected, other.m_connected);
    return *this;
}

bool Client::send(std::string_view bytes) const {
    while (!bytes.empty()) {
        ssize_t const sent = ::send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

bool Client::sendCut(std::string_view bytes, Random& random) const {
    while (!bytes.empty()) {
        // Half of the pieces are small, so that the eight bytes of the header are torn too.
        std::size_t const most = random() % 2 == 0 ? 5 : bytes.size();
        std::size_t const piece = 1 + random() % std::min(most, bytes.size());
        if (!send(bytes.substr(0, piece))) return false;
        bytes.remove_prefix(piece);
        switch (random() % 32) {
        case 0: isReadable(1ms); break;
        case 1:
        case 2: ::sched_yield(); break;
        default: break;  // two pieces may share a segment, or be read at once
        }
    }
    return true;
}

void Client::endSending() const {
    ::shutdown(m_socket, SHUT_WR);
}

void Client::resetAtTheEnd() const {
    linger const now{1, 0};
    ::setsockopt(m_socket, SOL_SOCKET, SO_LINGER, &now, sizeof now);
}

std::string Client::answer() const {
    std::string bytes;
    std::array<char, 4096> block;
    for (;;) {
        if (!isReadable(1min)) return "silence";
        ssize_t const count = ::recv(m_socket, block.data(), block.size(), 0);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return "reset";
        if (count == 0) return bytes;
        bytes.append(block.data(), static_cast<std::size_t>(count));
    }
}

bool Client::isReadable(std::chrono::milliseconds limit) const {
    pollfd waiting{m_socket, POLLIN, 0};
    int result = 0;
    do {
        result = ::poll(&waiting, 1, static_cast<int>(limit.count()));
    } while (result < 0 && errno == EINTR);
    return result > 0;
}

std::string message(std::uint32_t type, std::string_view payload, std::uint32_t length) {
    std::string bytes(8, '\0');
    std::memcpy(bytes.data(), &type, 4);
    std::memcpy(bytes.data() + 4, &length, 4);
    return bytes.append(payload);
}

std::string message(std::uint32_t type, std::string_view payload) {
    return message(type, payload, static_cast<std::uint32_t>(payload.size()));
}

std::uint64_t digestOf(std::string_view bytes) {
    std::uint64_t digest = 14695981039346656037U;
    for (char const c : bytes) digest = (digest ^ static_cast<unsigned char>(c)) * 1099511628211U;
    return digest;
}

}  // namespace QuillmarkLoad
