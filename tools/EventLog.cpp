#include "tools/EventLog.h"

#include <array>
#include <cstdarg>
#include <string>

#include "include2/Logger"
#include "tools/Terminal.h"

namespace QuillmarkTool {
namespace {

class StandardErrorLogger final : public Quillmark::Logger {
public:
    static void install() {
        if (m_instance == nullptr) m_instance = new StandardErrorLogger;  // the library deletes it
    }
    using Quillmark::Logger::evt_log;
    using Quillmark::Logger::evt_logv;

    int evt_log(int level, evt_log_args_t const& args, char const* format, ...) override {
        va_list list;
        va_start(list, format);
        int const result = evt_logv(level, args, format, list);
        va_end(list);
        return result;
    }
    int evt_logv(int /*level*/, evt_log_args_t const& args, char const* format, va_list list) override {
        std::array<char, 1024> text{};
        int const length = evt_format_logv(text.data(), text.size(), args.argument, format, list);
        // The byte 1 stands between the fields of an event.
        std::string shown;
        for (char const* p = text.data(); *p != '\0'; ++p)
            shown += *p == '\1' ? std::string(": ") : std::string(1, *p);
        complain(shown);
        return length;
    }
};

}  // namespace

void logToStandardError() {
    StandardErrorLogger::install();
}

}  // namespace QuillmarkTool
