#pragma once
// How the command talks to its daemon. Requests and answers are texts over the library's own protocol.

#include <cstdint>
#include <stdexcept>
#include <string>

#include "include2/QuillIPC"

namespace QuillmarkTool {

/// Types of requests, above those of the protocol itself. Each is answered with its own type.
enum RequestType : unsigned int {
    AskPing = 1,         ///< answered with itself
    AskDigests = 51,     ///< MD5 digests, one a line; answered with those that are known, each with its text
    AskFeatures = 52,    ///< Features as text; answered with a Verdict as text
    AskStatistics = 53,  ///< nothing; answered with "name number" lines
};

/// The most that a request may hold. A dispatcher has room for 8 bytes more.
inline constexpr std::size_t largestRequest = 1016;

/// The other end cannot be reached, or does not answer.
struct NoAnswer : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The payload bytes of a message by the word of who sent it, which may be more than it holds.
std::uint32_t sentLength(Quillmark::IPC::Pdu const& message);

/// Where a daemon listens.
struct Endpoint {
    std::string text;  ///< as it is shown: "127.0.0.1:29001"
    std::string host;  ///< an IPv4 address
    unsigned short port = 0;

    /// Reads "host:port", "host" or ":port". What is not there is 127.0.0.1 and 29001. "localhost" and names
    /// are looked up. Throws NoAnswer for what is none.
    explicit Endpoint(std::string const& text);
};

/// Sends one request and waits for its answer. Throws NoAnswer.
std::string ask(Endpoint const& daemon, unsigned int type, std::string const& request);

}  // namespace QuillmarkTool
