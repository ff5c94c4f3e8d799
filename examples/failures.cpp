// What a failure carries, and where it is logged.
#include <include2/Buffer>
#include <include2/Exception>
#include <include2/Logger>

#include <iostream>

using namespace Quillmark;

int main() {
    StdOutLogger::instance();  // before anybody else asks for a logger: print, do not use the event log
    try {
        char header[10] = "Subject: ";
        Buffer wrapped(header, sizeof header, true);
        wrapped.size(20);  // the memory is not the buffer's: it cannot grow
    } catch (Exception const& e) {
        std::cout << e << '\n' << e.title() << ", code " << e.error() << ", " << e.stringParameter() << '\n';
        Logger::instance()->evt_log(EventException, "", "caught: %s", e.asString().c_str());
    }
}
