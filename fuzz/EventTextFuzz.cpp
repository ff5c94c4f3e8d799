// Texts of strangers on their way into the log.

#include <sys/mman.h>
#include <unistd.h>

#include <iostream>
#include <sstream>

#include "fuzz/support/Fuzz.h"
#include "include2/Logger"

using namespace Quillmark;
using namespace QuillmarkFuzz;

namespace {

/// What is written to standard output's stream meanwhile.
template <class Action>
std::string onStandardOutput(Action action) {
    std::ostringstream text;
    std::streambuf* const former = std::cout.rdbuf(text.rdbuf());
    action();
    std::cout.rdbuf(former);
    return text.str();
}

/// What is written to standard error's descriptor meanwhile.
template <class Action>
std::string onStandardError(Action action) {
    static int const file = ::memfd_create("log", MFD_CLOEXEC);
    static int const former = ::dup(STDERR_FILENO);
    claim(::ftruncate(file, 0) == 0 && ::lseek(file, 0, SEEK_SET) == 0, "an empty log");
    ::dup2(file, STDERR_FILENO);
    action();
    ::dup2(former, STDERR_FILENO);
    std::string text(1 << 16, '\0');
    ssize_t const got = ::pread(file, text.data(), text.size(), 0);
    text.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
    return text;
}

/// The line of a message in the appliance's log.
std::string lineOf(std::string const& message) {
    std::string line;
    for (char const c : message) {
        auto const byte = static_cast<unsigned char>(c);
        std::string piece(1, c);
        if (byte == 1) {
            piece = ": ";
        } else if ((byte < ' ' && c != '\t') || byte == 0x7f) {
            piece = {'#', static_cast<char>('0' + (byte >> 6)), static_cast<char>('0' + (byte >> 3 & 7)),
                     static_cast<char>('0' + (byte & 7))};
        }
        if (line.size() + piece.size() > 8191) break;
        line += piece;
    }
    return line + '\n';
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Input in(data, size);
    std::size_t const times = in.number(0, 3) == 3 ? in.number(1, 500) : 1;
    std::string const where = in.line().c_str();  // a C text
    std::string const piece = in.rest().c_str();
    std::string what;
    for (std::size_t i = 0; i < times; ++i) what += piece;
    std::string const message = where + '\x01' + what;

    claimSame("the text of an event",
              Logger::evt_fmt(EventException, nullptr, "%s\x01%s", where.c_str(), what.c_str()),
              message.substr(0, 4095));
    evt_log_args_t const none{};
    StdOutLogger console;
    claimSame("a line on the console", onStandardOutput([&] {
                  console.evt_log(EventException, none, "%s\x01%s", where.c_str(), what.c_str());
              }),
              message.substr(0, 1023) + '\n');
    MigLogger log;
    claimSame("a line of the log", onStandardError([&] {
                  log.evt_log(EventException, none, "%s\x01%s", where.c_str(), what.c_str());
              }),
              lineOf(message.substr(0, 4095)));
    std::string const quoted = replaceDoubleQuote(message);
    claim(quoted.size() == message.size() && quoted.find('"') == std::string::npos,
          "no double quote is left");
    return 0;
}
