#pragma once
// Events of services that have more to do than to fail for want of a log.

#include <exception>

#include "include2/Exception"
#include "include2/Logger"

namespace Quillmark {

/// Writes an event to the current logger. A failure to log is nobody's failure any more: an Exception or a
/// std::exception of a daemon's own logger, or for want of memory, stays here. What is caught has names: the end
/// of a cancelled thread, which has none, cannot be caught while another exception is being handled. It passes.
/// Any thread.
template <class... Arguments>
void tryToLog(LogEvent event, char const* context, char const* format, Arguments... arguments) {
    try {
        Logger::instance()->evt_log(event, context, format, arguments...);
    } catch (Exception const&) {
    } catch (std::exception const&) {
    }
}

}  // namespace Quillmark
