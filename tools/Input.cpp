#include "tools/Input.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace QuillmarkTool {
namespace {

[[noreturn]] void fail(std::string const& name, int error) {
    throw std::system_error(error, std::generic_category(), name);
}

// A stream would take what cannot be read for the end, or throw something that names no file.
std::string contentsOf(int descriptor, std::string const& name) {
    std::string text;
    std::array<char, 65536> block{};
    for (;;) {
        ssize_t const count = ::read(descriptor, block.data(), block.size());
        if (count == 0) return text;
        if (count > 0) {
            text.append(block.data(), static_cast<std::size_t>(count));
        } else if (errno == EAGAIN) {  // whoever shares it with us does not want to wait; we do
            pollfd waiting{descriptor, POLLIN, 0};
            ::poll(&waiting, 1, -1);
        } else if (errno != EINTR) {
            fail(name, errno);
        }
    }
}

}  // namespace

std::string contentsOf(std::string const& path) {
    struct Opened {
        int const descriptor;
        ~Opened() {
            if (descriptor >= 0) ::close(descriptor);
        }
    } const file{::open(path.c_str(), O_RDONLY | O_CLOEXEC)};
    if (file.descriptor < 0) fail(path, errno);
    return contentsOf(file.descriptor, path);
}

std::string standardInput() {
    return contentsOf(STDIN_FILENO, "standard input");
}

}  // namespace QuillmarkTool
