// A dispatcher with a handler of our own, and a client, in one process.
#include <include2/QuillIPC>

#include <iostream>
#include <string>

using namespace Quillmark;

namespace {

/// Answers a request with its payload in reverse.
class Reverse : public IPC::HandlerImpl {
public:
    Reverse() { type(60); }
    int task(IPC::SocketIPC& connection, IPC::Pdu const& request) const override {
        Buffer const payload = request.data();
        std::string const text(reinterpret_cast<char const*>(payload.data()), payload.length());
        IPC::Pdu answer(60, 8 + payload.length());  // the header counts
        answer << std::string(text.rbegin(), text.rend());
        connection << answer;
        return 0;
    }
};

}  // namespace

int main() {
    int const port = 29117;
    IPC::Dispatcher* const dispatcher = IPC::Dispatcher::instance(port);
    dispatcher->add(IPC::Handler(new Reverse));
    if (!dispatcher->waitUntilReady(10)) return 1;

    IPC::SocketIPC connection;
    connection.connect(port);
    IPC::Pdu request(60, 64);
    request << std::string("drawer");
    connection << request;
    IPC::Pdu answer(0, 64);
    connection >> answer;
    Buffer const text = answer.data();
    std::cout << std::string(reinterpret_cast<char const*>(text.data()), text.length()) << '\n';
}
