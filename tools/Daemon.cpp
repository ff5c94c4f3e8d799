// The client's side of the daemon, and the commands that are nothing but that: ping and ipc send.

#include "tools/Daemon.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "include2/Exception"
#include "include2/Host"
#include "include2/IPAddress"
#include "tools/Commands.h"
#include "tools/Examine.h"
#include "tools/Input.h"

namespace QuillmarkTool {
using namespace Quillmark;
namespace {

// More than any answer of ours, and not so much that a stranger's daemon could fill the memory.
constexpr unsigned int largestAnswer = 1U << 16;

IPAddress addressOf(std::string const& host) {
    try {
        return IPAddress(host == "localhost" ? "127.0.0.1" : host);
    } catch (Exception const&) {
        HostName const name(host, false, true);
        return name.isNull() ? IPAddress() : Host(name).address();
    }
}

}  // namespace

std::uint32_t sentLength(IPC::Pdu const& message) {
    std::uint32_t length = 0;
    std::memcpy(&length, message() + sizeof length, sizeof length);
    return length;
}

Endpoint::Endpoint(std::string const& given) : host("127.0.0.1"), port(29001) {
    std::size_t const colon = given.rfind(':');
    std::string const before = given.substr(0, colon);
    if (!before.empty()) host = before;
    if (colon != std::string::npos) {
        char const* const end = given.data() + given.size();
        auto const [stop, error] = std::from_chars(given.data() + colon + 1, end, port);
        if (error != std::errc() || stop != end || port == 0) throw NoAnswer(given + ": no port");
    }
    IPAddress address = addressOf(host);
    if (address.isNull() || !address.isV4()) throw NoAnswer(given + ": no IPv4 address");
    host = address.asString(true);
    text = host + ":" + std::to_string(port);
}

std::string ask(Endpoint const& daemon, unsigned int type, std::string const& request) {
    try {
        IPC::SocketIPC connection;
        connection.connect(SocketAddress(IPAddress(daemon.host), daemon.port));
        IPC::Pdu question(type, 8);
        question << request;
        if (connection.send(question) != static_cast<ssize_t>(question.length()))
            throw NoAnswer(daemon.text + ": does not take the request");
        IPC::Pdu answer(0, largestAnswer);
        if (connection.receive(answer) < 8) throw NoAnswer(daemon.text + ": does not answer");
        Buffer const payload = answer.data();
        if (payload.length() < sentLength(answer))
            throw NoAnswer(daemon.text + ": answers with more than " + std::to_string(payload.length()) +
                           " bytes");
        return {reinterpret_cast<char const*>(payload.data()), payload.length()};
    } catch (SocketException const& e) {
        throw NoAnswer(daemon.text + ": " + std::strerror(e.error()));
    }
}

int ping(IpcOptions const& options, Output& output) {
    try {
        Endpoint const daemon(options.daemon);
        auto const start = std::chrono::steady_clock::now();
        std::string const request = "quillmark ping";
        std::string const answer = ask(daemon, AskPing, request);
        std::chrono::duration<double, std::milli> const taken = std::chrono::steady_clock::now() - start;
        if (answer != request) throw NoAnswer(daemon.text + ": answers with something else");
        std::array<char, 64> milliseconds{};
        std::snprintf(milliseconds.data(), milliseconds.size(), "%.3f ms", taken.count());
        output.line(daemon.text + " answers in " + milliseconds.data());
        return Fine;
    } catch (NoAnswer const& e) {
        complain(e.what());
        return Findings;
    }
}

int ipcSend(IpcOptions const& options, Output& output) {
    try {
        output.say(ask(Endpoint(options.daemon), options.type, standardInput()));
        return Fine;
    } catch (NoAnswer const& e) {
        complain(e.what());
        return Findings;
    }
}

}  // namespace QuillmarkTool
