// Messages over a pair of sockets, in any pieces, with peers that end or fall silent anywhere.

#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include "fuzz/support/Fuzz.h"
#include "include2/QuillIPC"
#include "include2/quillmark.h"

using namespace Quillmark;
using namespace QuillmarkFuzz;

namespace {

constexpr std::size_t headerSize = 8;

/// A connection whose other end is ours, too. It keeps pieces apart: what is sent as one piece is received as one.
class Connection {
public:
    Connection() {
        int ends[2];
        claim(::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) == 0, "a pair of sockets");
        claim(::dup2(ends[0], near.socket().descriptor()) >= 0, "one end of it");
        ::close(ends[0]);
        m_far = ends[1];
        near.socket().timeout(0);
    }
    ~Connection() { end(); }
    Connection(Connection const&) = delete;
    Connection& operator=(Connection const&) = delete;

    /// Whether there was room for the piece.
    bool put(std::string_view piece) {
        return ::send(m_far, piece.data(), piece.size(), MSG_DONTWAIT) == static_cast<ssize_t>(piece.size());
    }
    std::string take() {
        std::string piece(65536, '\0');
        ssize_t const got = ::recv(m_far, piece.data(), piece.size(), MSG_DONTWAIT);
        piece.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
        return piece;
    }
    void end() {
        if (m_far >= 0) ::close(m_far);
        m_far = -1;
    }

    IPC::SocketIPC near;

private:
    int m_far = -1;
};

std::uint32_t numberAt(std::string const& text, std::size_t at) {
    std::uint32_t number = 0;
    std::memcpy(&number, text.data() + at, sizeof number);
    return number;
}

std::string textOf(Buffer const& buffer) {
    return {reinterpret_cast<char const*>(buffer.data()), buffer.length()};
}

/// What is received into room for some bytes, header included.
struct Received {
    ssize_t result = 0;
    std::uint32_t type = 0;
    std::string payload;
};

/// What should come of the stream from @p at on, which moves behind the message.
Received expected(std::string const& stream, std::size_t& at, std::size_t room, bool ended) {
    ssize_t const broken = ended ? 0 : -1;
    std::size_t const left = stream.size() - at;
    if (left < headerSize) return {broken, 0, ""};
    std::uint32_t const length = numberAt(stream, at + 4);
    Received received{0, numberAt(stream, at),
                      stream.substr(at + headerSize, std::min<std::size_t>(length, room - headerSize))};
    if (left - headerSize < length) return {broken, 0, ""};
    received.result = static_cast<ssize_t>(headerSize + received.payload.size());
    at += headerSize + length;
    return received;
}

/// Where a receiver with that room looks for a piece to end, so that no piece is larger than it asks for.
std::vector<std::size_t> ends(std::string const& stream, std::vector<std::size_t> const& rooms) {
    std::vector<std::size_t> all;
    std::size_t at = 0;
    for (std::size_t const room : rooms) {
        if (stream.size() - at < headerSize) break;
        std::size_t const length = numberAt(stream, at + 4);
        all.push_back(at + headerSize);
        all.push_back(at + headerSize + std::min(length, room - headerSize));
        all.push_back(at += headerSize + length);
        if (at >= stream.size()) break;
    }
    return all;
}

Received receiveInPlusPlus(IPC::SocketIPC& connection, std::size_t room) {
    IPC::Pdu pdu(0, static_cast<unsigned int>(room));
    ssize_t const result = connection.receive(pdu);
    if (result <= 0) return {result, 0, ""};
    claimSame("a message holds what it says", static_cast<std::size_t>(result), pdu.length());
    return {result, pdu.type(), textOf(pdu.data())};
}

Received receiveInC(IPC::SocketIPC& connection, std::size_t room) {
    std::vector<std::uint32_t> memory(room / 4 + 2);
    auto* const pdu = reinterpret_cast<ipc_pdu*>(memory.data());
    pdu->length = static_cast<std::uint32_t>(room - headerSize);
    int const result = ::ipc_read(reinterpret_cast<ipc_connection*>(&connection), pdu);
    if (result <= 0) return {result, 0, ""};
    return {
        result, pdu->type,
        std::string(reinterpret_cast<char const*>(pdu + 1), static_cast<std::size_t>(result) - headerSize)};
}

void sends(Connection& connection, std::uint32_t type, std::string const& payload) {
    IPC::Pdu const pdu(type, Buffer(payload.data(), static_cast<uint_t>(payload.size()), true));
    std::string wire(headerSize, '\0');
    auto const length = static_cast<std::uint32_t>(payload.size());
    std::memcpy(wire.data(), &type, sizeof type);
    std::memcpy(wire.data() + 4, &length, sizeof length);
    claimSame("the bytes sent", connection.near.send(pdu), static_cast<ssize_t>(headerSize + payload.size()));
    claimSame("a message on the wire", connection.take(), wire + payload);
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Input in(data, size);
    bool const ended = in.flag();
    std::vector<std::size_t> rooms(8);
    for (std::size_t& room : rooms) room = in.number(headerSize, headerSize + 40);
    Input pieces = in;
    std::string const stream = in.rest();

    Connection connection;
    std::string sent;
    std::vector<std::size_t> const stops = ends(stream, rooms);
    for (auto stop = stops.begin(); sent.size() < stream.size();) {
        while (stop != stops.end() && *stop <= sent.size()) ++stop;
        std::size_t const most =
            (stop == stops.end() ? stream.size() : std::min(*stop, stream.size())) - sent.size();
        std::string const piece = stream.substr(sent.size(), std::min(most, pieces.number(1, 64)));
        if (!connection.put(piece)) break;
        sent += piece;
    }
    if (ended) connection.end();

    std::size_t at = 0;
    bool inC = false;
    for (std::size_t const room : rooms) {
        Received const wanted = expected(sent, at, room, ended);
        Received const got =
            inC ? receiveInC(connection.near, room) : receiveInPlusPlus(connection.near, room);
        claimSame("the result of receiving", got.result, wanted.result);
        if (wanted.result <= 0) break;
        claimSame("the type of a message", got.type, wanted.type);
        claimSame("its payload", got.payload, wanted.payload);
        inC = !inC;
    }

    Connection other;
    sends(other, static_cast<std::uint32_t>(stream.size()), stream.substr(0, 4096));
    IPC::PduIntValue number(0);
    std::memcpy(const_cast<unsigned char*>(number()), stream.data(), std::min<std::size_t>(stream.size(), 8));
    std::string const failure = failureOf([&] { number.value(); });
    claimSame("a number is a payload of 4 bytes", failure.empty(),
              number.data().length() == 4 &&
                  numberAt(std::string(reinterpret_cast<char const*>(number()), headerSize), 4) == 4);
    return 0;
}
