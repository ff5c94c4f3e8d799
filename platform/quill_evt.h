/* The appliance's event log, as the library calls it. Plain C.
 *
 * An event has a number (the library's own are named in include2/Logger), an argument record and a
 * printf-style message. The byte 0x01 separates the fields of a message.
 */
#ifndef QUILLMARK_PLATFORM_QUILL_EVT_H
#define QUILLMARK_PLATFORM_QUILL_EVT_H

#include <stdarg.h>
#include <stddef.h>

#include "platform/quill_platform.h"

#ifdef __cplusplus
extern "C" {
#endif

/** What an event carries beside its text. An aggregate: fill it with zeros and set what is known. */
typedef struct evt_log_args_t {
    unsigned int argument;    /**< the argument word, handed on to the formatting; 0 for none */
    unsigned int reserved[3]; /**< zero */
} evt_log_args_t;

/** Writes one event to the log. Any thread; errno stays as it was.
 *
 *  The stand-in sends it to syslog (facility mail, severity by event) or, when there is no log socket at
 *  quill_path("/dev/log"), to standard error, as one line either way: 0x01 comes out as ": ", and other
 *  control bytes than TAB as "#" and three octal digits. A message is cut to 4095 bytes, a line to 8191.
 *  @param level   the number of the event
 *  @param args    read during the call only; null counts as a record of zeros
 *  @param format  as printf's; a message that cannot be formatted leaves the format itself in the log
 *  @return 0, or -1 when nothing could be written or the format is null */
QUILL_PLATFORM_EXPORT int evt_logv(int level, evt_log_args_t const* args, char const* format, va_list list);

/** Formats the message of an event into @p buffer of @p size bytes, always terminated when size is
 *  not 0: a longer text is cut. 0x01 stays as it is. Any thread.
 *  @param argument  the argument word, which the stand-in does not use
 *  @return as vsnprintf: the length that the whole text has. MIND THAT IT MAY BE size OR MORE; negative
 *  when the text cannot be formatted, which leaves an empty one. */
QUILL_PLATFORM_EXPORT int evt_format_logv(char* buffer, size_t size, unsigned int argument,
                                          char const* format, va_list list);

#ifdef __cplusplus
}
#endif

#endif
