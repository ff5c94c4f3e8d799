#include "tests/net/DnsResponder.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <resolv.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <utility>

#include "include2/Resolver"

namespace QuillmarkTest {

namespace {

std::string toDotted(std::string_view query, std::size_t& at) {
    std::string dotted;
    while (std::size_t const count = static_cast<unsigned char>(query.at(at++))) {
        dotted += (dotted.empty() ? "" : ".") + std::string(query.substr(at, count));
        at += count;
    }
    return dotted;
}

Asked takeApart(std::string_view query) {
    auto const byte = [&](std::size_t at) {
        return static_cast<unsigned int>(static_cast<unsigned char>(query.at(at)));
    };
    Asked asked;
    asked.id = query.substr(0, 2);
    asked.recordClass = asked.type = 0;
    asked.recursionDesired = (byte(2) & 1) != 0;
    std::size_t at = 12;
    asked.name = toDotted(query, at);
    asked.type = byte(at) << 8 | byte(at + 1);
    asked.recordClass = byte(at + 2) << 8 | byte(at + 3);
    asked.question = query.substr(12, at + 4 - 12);
    return asked;
}

union Endpoint {
    sockaddr any;
    sockaddr_in v4;
    sockaddr_in6 v6;
};

}  // namespace

std::string response(Asked const& asked, Counts counts, std::string const& records, unsigned int flags) {
    counts.questions = 1;
    return asked.id + header(counts, flags).substr(2) + asked.question + records;
}

std::string answer(Asked const& asked, std::vector<std::string> const& records) {
    std::string all;
    for (std::string const& record : records) all += record;
    return response(asked, {1, static_cast<unsigned int>(records.size())}, all);
}

std::string noSuchName(Asked const& asked) {
    return response(asked, {1}, "", 0x8183);
}

DnsResponder::DnsResponder(char const* address, Answer answer, void (*begin)())
    : m_addressText(address),
      m_address(m_addressText),
      m_answer(std::move(answer)),
      m_socket(::socket(m_address.isV4() ? AF_INET : AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0)),
      m_stop(::eventfd(0, EFD_CLOEXEC)) {
    Endpoint endpoint{};
    socklen_t size = 0;
    if (m_address.isV4()) {
        endpoint.v4.sin_family = AF_INET;
        endpoint.v4.sin_addr = m_address.asInAddr();
        size = sizeof endpoint.v4;
    } else {
        endpoint.v6.sin6_family = AF_INET6;
        endpoint.v6.sin6_addr = m_address.asIn6Addr();
        size = sizeof endpoint.v6;
    }
    if (::bind(m_socket, &endpoint.any, size) != 0 || ::getsockname(m_socket, &endpoint.any, &size) != 0)
        throw std::runtime_error("no loopback socket");
    m_port = ntohs(endpoint.v4.sin_port);  // at the same place in both families
    m_thread = std::thread([this, begin] {
        if (begin != nullptr) begin();
        run();
    });
}

DnsResponder::~DnsResponder() {
    ::eventfd_write(m_stop, 1);
    m_thread.join();
    ::close(m_socket);
    ::close(m_stop);
}

std::string DnsResponder::asked() {
    std::lock_guard const guard(m_lock);
    return std::exchange(m_asked, {});
}

void DnsResponder::serveThisThread() const {
    Quillmark::Resolver::instance()->server(m_address, static_cast<unsigned int>(m_port));
    _res.retrans = 5;
    _res.retry = 1;
}

void DnsResponder::run() {
    for (;;) {
        pollfd waits[] = {{m_socket, POLLIN, 0}, {m_stop, POLLIN, 0}};
        if (::poll(waits, 2, -1) < 0 || waits[1].revents != 0) return;
        std::array<char, 8192> bytes{};
        Endpoint client{};
        socklen_t size = sizeof client;
        ssize_t const count = ::recvfrom(m_socket, bytes.data(), bytes.size(), 0, &client.any, &size);
        if (count < 17) continue;
        Asked const asked = takeApart({bytes.data(), static_cast<std::size_t>(count)});
        {
            std::lock_guard const guard(m_lock);
            m_asked += asked.name + " " + std::to_string(asked.type) + " " +
                       std::to_string(asked.recordClass) +
                       (asked.recursionDesired ? "\n" : " without recursion\n");
        }
        std::string const reply = m_answer(asked);
        if (!reply.empty()) ::sendto(m_socket, reply.data(), reply.size(), 0, &client.any, size);
    }
}

}  // namespace QuillmarkTest
