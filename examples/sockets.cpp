// Sockets with time-outs: lines and their answers over loopback, and what goes wrong.
#include <include2/Exception>
#include <include2/Socket>

#include <sys/socket.h>

#include <iostream>
#include <string>

using namespace Quillmark;

int main() {
    Socket listener(Socket::Stream, false, true, AF_INET);
    listener.bind(SocketAddress(IPAddress("127.0.0.1"), 0), true);  // the system chooses the port
    listener.listen(5);

    Socket client(Socket::Stream, false, true, AF_INET);
    client.timeout(5);  // seconds, for each wait
    client.connect(listener.localAddr());
    Socket server = listener.accept();
    std::cout << "the server sees " << server.remoteAddr().asINET().address() << '\n';

    client << "HELO client.example.com\nQUIT\n";
    Buffer line;
    while (server.readline(line) > 0) {  // line feed included
        server << "250 " << line;
        if (line == Buffer("QUIT\n", 5, false)) break;
    }
    server.close();
    while (client.readline(line) > 0) std::cout << line.c_str();

    // A time-out is a result, a failure is an exception.
    Socket quiet(Socket::Stream, false, true, AF_INET);
    quiet.timeout(0);
    quiet.connect(listener.localAddr());
    std::cout << "nothing to receive: " << quiet.receive(line) << '\n';
    SocketAddress const gone = listener.localAddr();
    listener.close();
    try {
        Socket(Socket::Stream, false, true, AF_INET).connect(gone);
    } catch (SocketException const& e) {
        std::cout << e.asString() << '\n';
    }
}
