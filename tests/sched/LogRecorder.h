#pragma once
// A logger for tests of services: keeps what is logged, and lets the test wait for it.

#include <cstdarg>
#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "include2/Logger"

namespace QuillmarkTest {

/// The current logger as long as it lives. Threads: any may log.
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
        char text[512];
        std::vsnprintf(text, sizeof text, format, list);
        std::string const line = std::to_string(level) + " " + text;
        {
            std::lock_guard const guard(m_lock);
            m_lines.push_back(line);
        }
        m_logged.post();
        if (afterwards) afterwards();
        return 0;
    }

    /// Waits until @p count lines more were logged.
    void wait(unsigned int count = 1) { m_logged -= count; }
    std::vector<std::string> lines() {
        std::lock_guard const guard(m_lock);
        return m_lines;
    }

    std::function<void()> afterwards;  ///< what the logger does when it has logged

private:
    std::mutex m_lock;
    std::vector<std::string> m_lines;
    Quillmark::Semaphore m_logged{0};
};

}  // namespace QuillmarkTest
