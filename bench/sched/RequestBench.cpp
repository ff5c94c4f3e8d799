// A request and its answer over loopback, on a connection of its own each: 64 bytes that come back as they
// were sent, as a daemon asks another one. The servers have a thread of their own and take one at a time.
//
// On two processors most of the time is what a sleeping one takes to wake, and whether the server's sleep ends
// with the connection or with the request on it. On one it is the work that everybody does.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zmq.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <string>
#include <thread>

#include "bench/support/Bench.h"
#include "include2/QuillIPC"

namespace {

using namespace Quillmark;

constexpr unsigned int payload = 64;
constexpr unsigned int headerSize = 8;
constexpr unsigned int messageSize = headerSize + payload;
using Message = std::array<unsigned char, messageSize>;

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<in_port_t>(port));
    return address;
}

/// A listener on a port that the system chooses.
int listening(int& port) {
    int const listener = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    auto* const record = reinterpret_cast<sockaddr*>(&address);
    bench::agree(::bind(listener, record, size) == 0 && ::listen(listener, 10) == 0 &&
                     ::getsockname(listener, record, &size) == 0,
                 "a listener");
    port = ntohs(address.sin_port);
    return listener;
}

Message request() {
    Message message;
    message.fill('x');
    std::array<std::uint32_t, 2> const header{1, payload};  // a ping
    std::memcpy(message.data(), header.data(), sizeof header);
    return message;
}

bool receive(int connection, Message& message) {
    std::size_t held = 0;
    while (held < message.size()) {
        ssize_t const result = ::recv(connection, message.data() + held, message.size() - held, 0);
        if (result <= 0) return false;
        held += static_cast<std::size_t>(result);
    }
    return true;
}

// Plain sockets: what the system calls alone cost.

void plainServer(int listener) {
    Message message;
    for (;;) {
        int const connection = ::accept(listener, nullptr, nullptr);
        if (connection == -1) return;
        if (receive(connection, message)) ::send(connection, message.data(), message.size(), MSG_NOSIGNAL);
        ::close(connection);
    }
}

Message plainRequest(int port) {
    int const connection = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in const address = loopback(port);
    Message message = request();
    bench::agree(::connect(connection, reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0 &&
                     ::send(connection, message.data(), message.size(), MSG_NOSIGNAL) == messageSize,
                 "a plain request");
    message = {};
    bench::agree(receive(connection, message), "a plain answer");
    ::close(connection);
    return message;
}

// ZeroMQ.

void zmqServer(void* context, char const* endpoint) {
    void* const socket = ::zmq_socket(context, ZMQ_REP);
    bench::agree(::zmq_bind(socket, endpoint) == 0, "ZeroMQ's listener");
    Message message;
    for (;;) {
        if (::zmq_recv(socket, message.data(), message.size(), 0) == -1) return;
        ::zmq_send(socket, message.data(), message.size(), 0);
    }
}

Message zmqRequest(void* context, char const* endpoint) {
    void* const socket = ::zmq_socket(context, ZMQ_REQ);
    Message message = request();
    bench::agree(::zmq_connect(socket, endpoint) == 0 &&
                     ::zmq_send(socket, message.data(), message.size(), 0) == messageSize,
                 "ZeroMQ's request");
    message = {};
    bench::agree(::zmq_recv(socket, message.data(), message.size(), 0) == messageSize, "ZeroMQ's answer");
    ::zmq_close(socket);
    return message;
}

// Ours.

Message ourRequest(int port) {
    IPC::SocketIPC connection;
    connection.connect(port);
    Message message = request();
    connection.send(IPC::Pdu(1, Buffer(message.data() + headerSize, payload, true)));
    IPC::Pdu answer(0, messageSize);
    bench::agree(connection.receive(answer) == messageSize, "our answer");
    std::memcpy(message.data(), answer(), messageSize);
    return message;
}

/// Lets all threads of this process run on the first @p count processors that there are, no others.
void useProcessors(int count) {
    static cpu_set_t const all = [] {
        cpu_set_t set;
        CPU_ZERO(&set);
        bench::agree(::sched_getaffinity(0, sizeof set, &set) == 0, "the processors");
        return set;
    }();
    static int used = 0;
    if (used == count) return;
    cpu_set_t wanted = all;
    int left = count;
    for (std::size_t cpu = 0; cpu < CPU_SETSIZE; ++cpu)
        if (CPU_ISSET(cpu, &wanted) && left-- <= 0) CPU_CLR(cpu, &wanted);
    for (auto const& thread : std::filesystem::directory_iterator("/proc/self/task"))
        ::sched_setaffinity(std::stoi(thread.path().filename()), sizeof wanted, &wanted);
    used = count;
}

int freePort() {
    int port = 0;
    ::close(listening(port));
    return port;
}

}  // namespace

int main(int argc, char** argv) {
    std::string const path = "request and answer, a new connection each";
    int const port = freePort();
    auto* const dispatcher = IPC::Dispatcher::instance(port);
    dispatcher->add(IPC::Handler(new IPC::HandlerPing));
    bench::agree(dispatcher->waitUntilReady(10), "our listener");

    int plainPort = 0;
    std::thread(plainServer, listening(plainPort)).detach();

    void* const context = ::zmq_ctx_new();
    std::string const endpoint = "tcp://127.0.0.1:" + std::to_string(freePort());
    std::thread(zmqServer, context, endpoint.c_str()).detach();

    bench::agree(ourRequest(port) == request() && plainRequest(plainPort) == request() &&
                     zmqRequest(context, endpoint.c_str()) == request(),
                 path);
    auto const compare = [&](std::string const& name, int processors) {
        auto const contestant = [&](char const* who, auto work) {
            bench::contestant(name, who, [processors, work] {
                useProcessors(processors);
                return work();
            });
        };
        contestant("quillmark", [port] { return ourRequest(port); });
        contestant("plain sockets", [plainPort] { return plainRequest(plainPort); });
        contestant("ZeroMQ", [context, endpoint] { return zmqRequest(context, endpoint.c_str()); });
    };
    compare(path, CPU_SETSIZE);
    compare(path + ", one core", 1);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    std::cout.flush();
    std::_Exit(0);  // the servers wait for ever
}
