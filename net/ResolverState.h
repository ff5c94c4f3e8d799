#pragma once
// The calling thread's resolver state, as the C library keeps it.

#include "include2/IPAddress"

namespace Quillmark {

/// The server that the calling thread asks first.
struct CurrentServer {
    IPAddress address;
    unsigned int port;
};

/// Kept for the daemons: the port is that of the first IPv4 server, also when the address is IPv6.
CurrentServer currentServer();

}  // namespace Quillmark
