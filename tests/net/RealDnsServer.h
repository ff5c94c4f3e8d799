#pragma once
// A name server as others run it, for tests that ask it.

#include <sys/types.h>

#include <string>

#include "tests/support/Support.h"

namespace QuillmarkTest {

/// NSD, as a child of the test program, answering on 127.0.0.1 and ::1 for zones of the tests' own (see the
/// source): quill.example, 2.0.192.in-addr.arpa and 8.b.d.0.1.0.0.2.ip6.arpa. It ends with the object, or with
/// the thread that made it.
class RealDnsServer {
public:
    /// Comes back once the server answers on both addresses. Throws std::runtime_error, with the server's log,
    /// when it does not.
    RealDnsServer();
    ~RealDnsServer();
    RealDnsServer(RealDnsServer const&) = delete;
    RealDnsServer& operator=(RealDnsServer const&) = delete;

    int port() const { return m_port; }  ///< of both addresses, over UDP and TCP
    pid_t process() const { return m_process; }
    std::string const& directory() const { return m_directory.path(); }  ///< of its zones and its log

    /// Makes it the calling thread's only server, at @p address, and gives it ten seconds a question.
    void serveThisThread(std::string const& address) const;

private:
    void start();
    bool isReady() const;
    bool answers(std::string const& address) const;
    bool hasEnded() const;
    void stop() noexcept;

    TemporaryDirectory m_directory;
    int m_port = 0;
    pid_t m_process = -1;
    int m_alive = -1;  // a pipe that nobody writes to, and that ends with the last of the server's processes
};

}  // namespace QuillmarkTest
