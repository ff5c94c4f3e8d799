// The request/response protocol for C callers.

#include "include2/quillmark.h"

#include "capi/Guard.h"
#include "foundation/Caught.h"
#include "include2/QuillIPC"

#include <algorithm>
#include <climits>
#include <exception>
#include <memory>

using namespace Quillmark;

namespace {

constexpr int defaultPort = 29001;

IPC::SocketIPC* connectionOf(ipc_connection* connection) {
    return reinterpret_cast<IPC::SocketIPC*>(connection);
}

int asInt(ssize_t count) {
    return static_cast<int>(std::min<ssize_t>(count, INT_MAX));
}

/// As guarded does it, with a line in the log. Want of memory is a failure like any other.
template <class Result, class Call>
Result logged(char const* function, Result failure, Call call) {
    return guarded(failure, [&] {
        try {
            return call();
        } catch (Exception const& e) {
            logCaught(function, e);
            throw;
        } catch (std::exception const&) {
            logUnknown(function);
            return failure;
        }
    });
}

}  // namespace

ipc_connection* ipc_connect(struct sockaddr const* address) {
    return logged("ipc_connection* ipc_connect(const sockaddr*)", static_cast<ipc_connection*>(nullptr), [&] {
        auto connection = std::make_unique<IPC::SocketIPC>();
        if (address)
            connection->connect(SocketAddress(*address, false));
        else
            connection->connect(defaultPort);
        return reinterpret_cast<ipc_connection*>(connection.release());
    });
}

int ipc_read(ipc_connection* connection, ipc_pdu* pdu) {
    if (!connection || !pdu) return 0;
    return logged("int ipc_read(ipc_connection*, ipc_pdu*)", -1, [&] {
        IPC::Pdu inPlace(*pdu);
        return asInt(connectionOf(connection)->receive(inPlace));
    });
}

int ipc_write(ipc_connection* connection, ipc_pdu* pdu) {
    if (!connection || !pdu) return 0;
    return logged("int ipc_write(ipc_connection*, ipc_pdu*)", -1,
                  [&] { return asInt(connectionOf(connection)->send(IPC::Pdu(*pdu))); });
}

void ipc_close(ipc_connection* connection) {
    delete connectionOf(connection);
}
