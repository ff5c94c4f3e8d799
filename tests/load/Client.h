#pragma once
// A client of the local protocol that knows nothing of the library, and that may send as badly as it likes.

#include <chrono>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>

namespace QuillmarkLoad {

using Random = std::minstd_rand;

/// One connection to a port of loopback.
class Client {
public:
    explicit Client(std::uint16_t port);
    ~Client();
    Client(Client&& other) noexcept;
    Client& operator=(Client&& other) noexcept;

    bool isConnected() const { return m_connected; }
    /// @return whether the system took all bytes
    bool send(std::string_view bytes) const;
    /// The same in pieces that are cut at random places, with moments between them in which the other end may run.
    bool sendCut(std::string_view bytes, Random& random) const;
    void endSending() const;
    void resetAtTheEnd() const;  ///< lets the end of the connection be a reset
    /// All that comes until the other end closes; "reset" when the connection breaks, "silence" when nothing came
    /// for a minute.
    std::string answer() const;
    /// Whether there is something to read, or becomes so in time. Waits in poll().
    bool isReadable(std::chrono::milliseconds limit) const;

private:
    int m_socket;
    bool m_connected = false;
};

/// The bytes of one message: type and length in the machine's own order, then the payload.
std::string message(std::uint32_t type, std::string_view payload, std::uint32_t length);
std::string message(std::uint32_t type, std::string_view payload);

/// A number for the bytes, by which a change of any of them shows.
std::uint64_t digestOf(std::string_view bytes);

}  // namespace QuillmarkLoad
