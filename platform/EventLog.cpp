// The event log of a machine without the appliance's own: syslog, or standard error.

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <string_view>

#include "platform/quill_cfg.h"
#include "platform/quill_evt.h"

namespace {

// Event, severity. What is not listed is a notice.
struct SeverityRow {
    int event;
    int severity;
};
constexpr SeverityRow severities[] = {
    {0x300006d, LOG_ERR},      // an exception ended the work on one item
    {0x300006e, LOG_WARNING},  // a request of a type that nobody serves
    {0x300006f, LOG_ERR},      // an exception that is not the library's
    {0x3000071, LOG_NOTICE},   // a task of this type already runs
    {0x300014a, LOG_ERR},      // a task thread without its argument
};

int severityOf(int event) {
    for (SeverityRow const& row : severities)
        if (row.event == event) return row.severity;
    return LOG_NOTICE;
}

// One line of the log, of a fixed size: an event must come through when memory does not.
class Line {
public:
    // Takes a message whole or as far as there is room. No byte of it can begin a second line.
    explicit Line(std::string_view message) {
        for (char const c : message) {
            if (!append(c)) break;
        }
        m_text[m_length] = '\0';
    }

    char const* text() const { return m_text.data(); }

    // Puts out the line and its end in one call, so that lines of several threads do not mix.
    bool writeTo(int descriptor) {
        m_text[m_length] = '\n';
        std::string_view rest(m_text.data(), m_length + 1);
        while (!rest.empty()) {
            ssize_t const written = ::write(descriptor, rest.data(), rest.size());
            if (written < 0 && errno == EINTR) continue;
            if (written <= 0) return false;
            rest.remove_prefix(static_cast<std::size_t>(written));
        }
        return true;
    }

private:
    static constexpr unsigned char fieldSeparator = 0x01;

    static constexpr char octal(int bits) { return static_cast<char>('0' + (bits & 7)); }

    bool append(char c) {
        auto const byte = static_cast<unsigned char>(c);
        if (byte == fieldSeparator) return append(std::string_view(": "));
        if ((byte >= ' ' && byte != 0x7f) || byte == '\t') return append(std::string_view(&c, 1));
        char const escape[] = {'#', octal(byte >> 6), octal(byte >> 3), octal(byte)};
        return append(std::string_view(escape, sizeof escape));
    }

    bool append(std::string_view piece) {
        if (piece.size() >= m_text.size() - m_length) return false;
        m_length += piece.copy(m_text.data() + m_length, piece.size());
        return true;
    }

    std::array<char, 8192> m_text;
    std::size_t m_length = 0;
};

bool haveLogSocket() {
    struct stat status {};
    return ::stat(quill_path("/dev/log"), &status) == 0 && S_ISSOCK(status.st_mode);
}

}  // namespace

int evt_format_logv(char* buffer, size_t size, unsigned int /*argument*/, char const* format, va_list list) {
    int const length = format ? std::vsnprintf(buffer, size, format, list) : -1;
    if (length < 0 && size != 0) *buffer = '\0';
    return length;
}

int evt_logv(int level, evt_log_args_t const* args, char const* format, va_list list) {
    if (!format) return -1;
    int const error = errno;
    char message[4096];
    int const length = evt_format_logv(message, sizeof message, args ? args->argument : 0, format, list);
    // A message that cannot be formatted is still an event: its format says which.
    Line line(length < 0 ? std::string_view(format) : std::string_view(message));
    int result = 0;
    if (haveLogSocket()) {
        ::syslog(LOG_MAIL | severityOf(level), "%s", line.text());
    } else if (!line.writeTo(STDERR_FILENO)) {
        result = -1;
    }
    errno = error;
    return result;
}
