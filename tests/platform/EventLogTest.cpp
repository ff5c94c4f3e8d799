// What the library needs of any event log.

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstring>
#include <string>

#include "platform/quill_evt.h"

namespace {

int format(char* buffer, std::size_t size, char const* text, ...) {
    va_list list;
    va_start(list, text);
    int const length = evt_format_logv(buffer, size, 0, text, list);
    va_end(list);
    return length;
}

TEST(EventLog, ArgumentRecordIsAnAggregateThatBeginsWithTheArgumentWord) {
    evt_log_args_t const none = {};
    evt_log_args_t const some = {7, {}};
    EXPECT_EQ(none.argument, 0U);
    EXPECT_EQ(some.argument, 7U);
    EXPECT_EQ(offsetof(evt_log_args_t, argument), 0U);
}

TEST(EventLog, FormatsAMessageLikePrintf) {
    char buffer[64];
    EXPECT_EQ(format(buffer, sizeof buffer, "%s: %u, %d%%", "count", 3U, -4), 13);
    EXPECT_STREQ(buffer, "count: 3, -4%");
}

TEST(EventLog, KeepsTheFieldSeparatorWhileItFormats) {
    char buffer[64];
    format(buffer, sizeof buffer, "%s\1%s", "call", "failure");
    EXPECT_STREQ(buffer, "call\1failure");
}

TEST(EventLog, CutsAMessageToTheBufferAndTerminatesIt) {
    for (std::size_t const size : {1U, 2U, 1024U, 4096U}) {
        std::string buffer(size + 1, '#');
        format(buffer.data(), size, "%s", std::string(5000, 'x').c_str());
        EXPECT_EQ(std::strlen(buffer.c_str()), size - 1);
        EXPECT_EQ(buffer[size], '#') << "wrote beyond " << size;
    }
}

TEST(EventLog, LeavesABufferOfNoSizeAlone) {
    char buffer[] = "#";
    format(buffer, 0, "%s", "text");
    EXPECT_STREQ(buffer, "#");
}

}  // namespace
