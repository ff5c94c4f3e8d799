#pragma once
// The library's log, caught for a test.

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>

#include "include2/Logger"

namespace QuillmarkTest {

/// As long as it lives, events are kept as a text, one a line: the number in hexadecimal and the message,
/// in which 0x01 has become "|".
class EventRecorder {
public:
    EventRecorder() { Recorder::install(*this); }
    ~EventRecorder() { Quillmark::Logger::instance(true); }
    EventRecorder(EventRecorder const&) = delete;
    EventRecorder& operator=(EventRecorder const&) = delete;

    std::string text() const {
        std::lock_guard const guard(m_lock);
        return m_text;
    }

private:
    class Recorder : public Quillmark::Logger {
    public:
        static void install(EventRecorder& events) {
            Logger::instance(true);
            m_instance = new Recorder(events);
        }
        using Logger::evt_log;
        using Logger::evt_logv;
        int evt_log(int level, evt_log_args_t const& args, char const* format, ...) override {
            va_list list;
            va_start(list, format);
            int const result = evt_logv(level, args, format, list);
            va_end(list);
            return result;
        }
        int evt_logv(int level, evt_log_args_t const& /*args*/, char const* format, va_list list) override {
            char line[400];
            int const start = std::snprintf(line, sizeof line, "%x ", static_cast<unsigned int>(level));
            std::vsnprintf(line + start, sizeof line - static_cast<std::size_t>(start), format, list);
            m_events.append(line);
            return 0;
        }

    private:
        explicit Recorder(EventRecorder& events) : m_events(events) {}
        EventRecorder& m_events;
    };

    void append(std::string line) {
        for (char& c : line)
            if (c == '\x01') c = '|';
        std::lock_guard const guard(m_lock);
        m_text += line + "\n";
    }

    mutable std::mutex m_lock;
    std::string m_text;
};

}  // namespace QuillmarkTest
