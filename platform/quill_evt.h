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

/** Writes one event to the log. The stand-in sends it to syslog (facility mail, severity by event) or,
 *  when there is no log socket, to standard error as one line; 0x01 comes out as ": ".
 *  @return 0, or -1 when nothing could be written. Any thread. */
QUILL_PLATFORM_EXPORT int evt_logv(int level, evt_log_args_t const* args, char const* format, va_list list);

/** Formats the message of an event into @p buffer of @p size bytes, always terminated when size is
 *  not 0: a longer text is cut.
 *  @return as vsnprintf: the length that the whole text has, which may be size or more; negative when
 *  the format is broken. Any thread. */
QUILL_PLATFORM_EXPORT int evt_format_logv(char* buffer, size_t size, unsigned int argument,
                                          char const* format, va_list list);

#ifdef __cplusplus
}
#endif

#endif
