#include "include2/Logger"

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "foundation/Caught.h"
#include "foundation/Console.h"
#include "foundation/TryToLog.h"

namespace Quillmark {

namespace {

/// Formats into @p buffer. The log's library gives the length of the whole text, as vsnprintf does;
/// the result is what the buffer really holds.
template <std::size_t Size>
std::string_view formatted(std::array<char, Size>& buffer, unsigned int argument, char const* format,
                           va_list list) {
    int const length = ::evt_format_logv(buffer.data(), buffer.size(), argument, format, list);
    return {buffer.data(), std::min(static_cast<std::size_t>(std::max(length, 0)), Size - 1)};
}

/// Makes @p fresh the current logger unless somebody was first; gives the current one.
Logger* installed(std::atomic<Logger*>& slot, std::unique_ptr<Logger> fresh) {
    Logger* current = nullptr;
    return slot.compare_exchange_strong(current, fresh.get()) ? fresh.release() : current;
}

/// Kept for the daemons: they get the current logger under the name of the class they asked, whatever
/// it is. All loggers begin with their Logger, so that calls by way of Logger's operations work.
template <class T>
T* as(Logger* logger) {
    return reinterpret_cast<T*>(logger);
}

}  // namespace

std::atomic<Logger*> Logger::m_instance{nullptr};

Logger::~Logger() = default;

int Logger::evt_log(int level, char const* /*context*/, char const* format, ...) {
    va_list list;
    va_start(list, format);
    int const result = evt_logv(level, evt_log_args_t{}, format, list);
    va_end(list);
    return result;
}

int Logger::evt_logv(int level, char const* /*context*/, char const* format, va_list list) {
    return evt_logv(level, evt_log_args_t{}, format, list);
}

Logger* Logger::instance(bool destroy) {
    if (destroy) {
        delete m_instance.exchange(nullptr);
        return nullptr;
    }
    Logger* const current = m_instance.load();
    return current ? current : MigLogger::instance(false);
}

std::string Logger::evt_fmt(int /*level*/, char const* /*context*/, char const* format, ...) {
    std::array<char, 4096> buffer{};
    va_list list;
    va_start(list, format);
    std::string_view const text = formatted(buffer, 0, format, list);
    va_end(list);
    return std::string(text);
}

MigLogger::~MigLogger() = default;

int MigLogger::evt_log(int level, evt_log_args_t const& args, char const* format, ...) {
    va_list list;
    va_start(list, format);
    int const result = evt_logv(level, args, format, list);
    va_end(list);
    return result;
}

int MigLogger::evt_logv(int level, evt_log_args_t const& args, char const* format, va_list list) {
    return ::evt_logv(level, &args, format, list);
}

int MigLogger::evt_log(int level, char const* /*context*/, char const* format, ...) {
    va_list list;
    va_start(list, format);
    int const result = evt_logv(level, evt_log_args_t{}, format, list);
    va_end(list);
    return result;
}

int MigLogger::evt_logv(int level, char const* context, char const* format, va_list list) {
    return Logger::evt_logv(level, context, format, list);
}

MigLogger* MigLogger::instance(bool recreate) {
    if (recreate) {
        auto fresh = std::make_unique<MigLogger>();
        MigLogger* const current = fresh.get();
        delete m_instance.exchange(fresh.release());
        return current;
    }
    Logger* const current = m_instance.load();
    return as<MigLogger>(current ? current : installed(m_instance, std::make_unique<MigLogger>()));
}

StdOutLogger::~StdOutLogger() = default;

int StdOutLogger::evt_log(int level, evt_log_args_t const& args, char const* format, ...) {
    va_list list;
    va_start(list, format);
    int const result = evt_logv(level, args, format, list);
    va_end(list);
    return result;
}

int StdOutLogger::evt_logv(int /*level*/, evt_log_args_t const& args, char const* format, va_list list) {
    std::array<char, 1024> buffer{};
    std::size_t const length = formatted(buffer, args.argument, format, list).size();
    buffer[length] = '\n';
    Synchronized const wholeLine(m_lock);
    return print({buffer.data(), length + 1}) ? 0 : -1;
}

StdOutLogger* StdOutLogger::instance() {
    Logger* const current = m_instance.load();
    return as<StdOutLogger>(current ? current : installed(m_instance, std::make_unique<StdOutLogger>()));
}

std::string replaceDoubleQuote(std::string const& text) {
    std::string result(text);
    std::replace(result.begin(), result.end(), '"', '\'');
    return result;
}

void logCaught(char const* function, Exception const& exception) {
    std::string text;
    try {
        text = exception.asString();
    } catch (std::bad_alloc const&) {  // then it is written without
    }
    logCaught(function, text.c_str());
}

void logCaught(char const* function, char const* detail) {
    tryToLog(EventException, nullptr, "%s\x01%s", function, detail);
}

void logUnknown(char const* function) {
    tryToLog(EventUnknownException, nullptr, "%s", function);
}

}  // namespace Quillmark
