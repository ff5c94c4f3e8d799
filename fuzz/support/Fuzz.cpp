#include "fuzz/support/Fuzz.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

#include "include2/Logger"
#include "platform/quill_cfg.h"

namespace QuillmarkFuzz {

namespace {

/// Formats what is logged, and throws it away.
class SilentLogger : public Quillmark::Logger {
public:
    static void install() { m_instance = new SilentLogger; }

    using Logger::evt_log;
    using Logger::evt_logv;
    int evt_log(int level, evt_log_args_t const& args, char const* format, ...) override {
        va_list list;
        va_start(list, format);
        int const result = evt_logv(level, args, format, list);
        va_end(list);
        return result;
    }
    int evt_logv(int /*level*/, evt_log_args_t const& args, char const* format, va_list list) override {
        std::array<char, 4096> text{};
        return ::evt_format_logv(text.data(), text.size(), args.argument, format, list) < 0 ? -1 : 0;
    }
};

// Before the first input, in every program that this file is linked into.
[[maybe_unused]] bool const prepared = [] {
    SilentLogger::install();
    ::quill_path_root(QUILLMARK_SOURCE_DIR "/examples/lists");
    return true;
}();

}  // namespace

std::size_t Input::number(std::size_t low, std::size_t high) {
    std::size_t const range = high - low;
    std::size_t value = 0;
    for (std::size_t wide = range; wide != 0 && !m_rest.empty(); wide >>= 8) {
        value = value << 8 | static_cast<unsigned char>(m_rest.back());
        m_rest.remove_suffix(1);
    }
    return low + (range == SIZE_MAX ? value : value % (range + 1));
}

std::string Input::bytes(std::size_t n) {
    std::string const text(m_rest.substr(0, n));
    m_rest.remove_prefix(text.size());
    return text;
}

std::string Input::line() {
    std::string const text = bytes(std::min(m_rest.find('\n'), m_rest.size()));
    if (!m_rest.empty()) m_rest.remove_prefix(1);
    return text;
}

std::string Input::rest() {
    return bytes(m_rest.size());
}

std::string shown(std::string_view text) {
    static constexpr std::size_t longest = 600;
    static constexpr char digits[] = "0123456789abcdef";
    std::string out = "\"";
    for (char const c : text.substr(0, longest)) {
        auto const byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (byte < 0x20 || byte > 0x7e) {
            out += "\\x";
            out += digits[byte >> 4];
            out += digits[byte & 15];
        } else {
            out += c;
        }
    }
    out += '"';
    return text.size() > longest ? out + "... of " + std::to_string(text.size()) + " bytes" : out;
}

void broken(std::string const& message) {
    std::fprintf(stderr, "Does not hold: %s\n", message.c_str());
    std::fflush(stderr);
    std::abort();
}

MemoryFile::MemoryFile(std::string_view content) : m_descriptor(::memfd_create("fuzz", MFD_CLOEXEC)) {
    claim(m_descriptor >= 0, "a file in memory can be made");
    m_name = "/proc/self/fd/" + std::to_string(m_descriptor);
    while (!content.empty()) {
        ssize_t const count = ::write(m_descriptor, content.data(), content.size());
        claim(count > 0, "a file in memory can be written");
        content.remove_prefix(static_cast<std::size_t>(count));
    }
}

MemoryFile::~MemoryFile() {
    ::close(m_descriptor);
}

std::string MemoryFile::content() const {
    std::string text;
    std::array<char, 65536> block{};
    for (ssize_t count;
         (count = ::pread(m_descriptor, block.data(), block.size(), static_cast<off_t>(text.size()))) > 0;)
        text.append(block.data(), static_cast<std::size_t>(count));
    return text;
}

}  // namespace QuillmarkFuzz
