#pragma once
// A logger that keeps what is logged, and lets a test wait for it.

#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "include2/Logger"

namespace QuillmarkTest {

/// The current logger as long as it lives. Threads: any may log.
///
/// A line is the event's number in hexadecimal and its message, in which the byte 1 has become "|":
/// "300006d where|what". A context, of which the library gives none, stands before the message.
class LogRecorder : public Quillmark::Logger {
public:
    LogRecorder() {
        Logger::instance(true);
        m_instance = this;
    }
    ~LogRecorder() override { m_instance = nullptr; }
    int evt_log(int level, evt_log_args_t const& args, char const* format, ...) override {
        va_list list;
        va_start(list, format);
        int const result = LogRecorder::evt_logv(level, args, format, list);
        va_end(list);
        return result;
    }
    int evt_logv(int level, evt_log_args_t const& /*args*/, char const* format, va_list list) override {
        return LogRecorder::evt_logv(level, static_cast<char const*>(nullptr), format, list);
    }
    int evt_log(int level, char const* context, char const* format, ...) override {
        va_list list;
        va_start(list, format);
        int const result = LogRecorder::evt_logv(level, context, format, list);
        va_end(list);
        return result;
    }
    int evt_logv(int level, char const* context, char const* format, va_list list) override {
        char message[512];
        std::vsnprintf(message, sizeof message, format, list);
        for (char* c = message; *c != '\0'; ++c)
            if (*c == '\x01') *c = '|';
        char number[16];
        std::snprintf(number, sizeof number, "%x ", static_cast<unsigned int>(level));
        std::function<void()> then;
        {
            std::lock_guard const guard(m_lock);
            m_lines.push_back(std::string(number) + (context ? context : "") + message);
            then = m_afterwards;
            m_logged.notify_all();
        }
        if (then) then();
        return 0;
    }

    /// What was logged.
    std::vector<std::string> lines() const {
        std::lock_guard const guard(m_lock);
        return m_lines;
    }
    /// The same as soon as it is @p count lines, and what there is when they do not come.
    std::vector<std::string> lines(std::size_t count) const {
        std::unique_lock guard(m_lock);
        m_logged.wait_for(guard, std::chrono::seconds(30), [&] { return m_lines.size() >= count; });
        return m_lines;
    }
    /// The lines as one text, each with its line feed.
    std::string text() const {
        std::string all;
        for (std::string const& line : lines()) all += line + "\n";
        return all;
    }
    /// Lets the logger do something when it has logged: throw, end its thread.
    void afterwards(std::function<void()> action) {
        std::lock_guard const guard(m_lock);
        m_afterwards = std::move(action);
    }

private:
    mutable std::mutex m_lock;
    mutable std::condition_variable m_logged;
    std::vector<std::string> m_lines;
    std::function<void()> m_afterwards;
};

}  // namespace QuillmarkTest
