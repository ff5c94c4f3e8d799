#pragma once
// A name server of the tests' own on loopback.

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "include2/IPAddress"
#include "tests/net/WireMessage.h"

namespace QuillmarkTest {

/// What a client asked, taken apart.
struct Asked {
    std::string id;        ///< two bytes
    std::string question;  ///< the whole question on the wire; its name stands at offset 12
    std::string name;
    unsigned int type;
    unsigned int recordClass;
    bool recursionDesired;
};

/// A response to a question: flags and sections to taste.
std::string response(Asked const& asked, Counts counts, std::string const& records,
                     unsigned int flags = 0x8180);
/// The same with one section of answers.
std::string answer(Asked const& asked, std::vector<std::string> const& records);
std::string noSuchName(Asked const& asked);

/// Answers over UDP, on a thread of its own, on a port that was free.
class DnsResponder {
public:
    using Answer = std::function<std::string(Asked const&)>;

    /// @param address  of loopback
    /// @param answer   gives the bytes of a response; none at all is silence
    /// @param begin    what its thread does first, if anything
    DnsResponder(char const* address, Answer answer, void (*begin)() = nullptr);
    ~DnsResponder();
    DnsResponder(DnsResponder const&) = delete;
    DnsResponder& operator=(DnsResponder const&) = delete;

    Quillmark::IPAddress const& address() const { return m_address; }
    std::string const& addressText() const { return m_addressText; }
    int port() const { return m_port; }
    /// The questions so far, as "name type class", one a line. Forgets them.
    std::string asked();

    /// Makes it the calling thread's only server, which is asked once and has five seconds.
    void serveThisThread() const;

private:
    void run();

    std::string m_addressText;
    Quillmark::IPAddress m_address;
    Answer m_answer;
    int m_socket;
    int m_stop;
    int m_port = 0;
    std::mutex m_lock;
    std::string m_asked;
    std::thread m_thread;
};

}  // namespace QuillmarkTest
