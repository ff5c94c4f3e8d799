// What GMime's parser gets to see of a message.

#include "tools/ParserStream.h"

#include <fcntl.h>
#include <gmime/gmime.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace QuillmarkTool::Mime;

namespace {

/// What is read in blocks of @p block bytes.
std::string shown(std::string_view text, bool isMbox, std::size_t block = 4096) {
    g_mime_init();
    GMimeStream* const source = g_mime_stream_mem_new_with_buffer(text.data(), text.size());
    std::vector<std::int64_t> hidden;
    ReadFailure failure;
    GMimeStream* const stream = newParserStream(source, isMbox, hidden, failure);
    std::string all;
    std::vector<char> bytes(block);
    for (ssize_t count = 0; (count = g_mime_stream_read(stream, bytes.data(), bytes.size())) > 0;)
        all.append(bytes.data(), static_cast<std::size_t>(count));
    g_object_unref(stream);
    g_object_unref(source);
    return all;
}

}  // namespace

TEST(ParserStream, HidesTheNamesOfFieldsThatTheParserWouldTakeApart) {
    struct Row {
        char const* line;
        char const* shown;
        char const* shownInMailbox = shown;
    };
    constexpr Row rows[] = {
        {"From: a", "_rom: a"},
        {"fROM:a", "_ROM:a"},
        {"From a", "From a"},
        {"From : a", "_rom : a", "From : a"},
        {"From  \t\t : a", "_rom  \t\t : a", "From  \t\t : a"},
        {"To x: a", "To x: a"},
        {"from : a", "_rom : a"},
        {"From\t: a", "_rom\t: a"},
        {"Sender: a", "_ender: a"},
        {"Sender  : a", "_ender  : a"},
        {"Reply-To: a", "_eply-To: a"},
        {"To:", "_o:"},
        {"Cc: a", "_c: a"},
        {"Bcc: a", "_cc: a"},
        {"Subject: a", "_ubject: a"},
        {"Date: a", "_ate: a"},
        {"Message-ID: a", "_essage-ID: a"},
        {"Fromage: a", "Fromage: a"},
        {"From", "From"},
        {"Content-Type: a", "Content-Type: a"},
        {"Resent-To: a", "Resent-To: a"},
        {" To: a", " To: a"},
        {"X-To: a", "X-To: a"},
        {"--To: a", "--To: a"},
        {"", ""},
    };
    for (Row const& row : rows) {
        std::string const text = "A: b\n" + std::string(row.line) + "\nC: d\n\n" + row.line + "\n";
        auto const expected = [](char const* line) {
            return "A: b\n" + std::string(line) + "\nC: d\n\n" + line + "\n";
        };
        EXPECT_EQ(shown(text, false), expected(row.shown));
        EXPECT_EQ(shown(text, true), expected(row.shownInMailbox));
        EXPECT_EQ(shown(row.line, false), row.shown);
    }
}

TEST(ParserStream, KnowsAFieldOfAMailboxFromTheBeginningOfAMessage) {
    // What ends with the mailbox is no line that begins a message.
    struct Row {
        char const* text;
        char const* shown;
    };
    constexpr Row rows[] = {
        {"From a\nFrom : b\nTo: c\nFrom  : d\n", "From a\n_rom : b\n_o: c\n_rom  : d\n"},
        {"From a\nFrom b\nFrom : c\n", "From a\nFrom b\n_rom : c\n"},
        {"From a\n\nFrom : b\nFrom : c\n", "From a\n\nFrom : b\n_rom : c\n"},
        {"From a\n\nFrom : b", "From a\n\n_rom : b"},
        {"From a\n\r\nFrom : b\n", "From a\n\r\nFrom : b\n"},
        {"From a\n\rFrom : b\nFrom : c\n", "From a\n\rFrom : b\n_rom : c\n"},
        {"From a\nX: y\n\nFrom: b\nFrom : c\nFrom : d\n", "From a\nX: y\n\n_rom: b\nFrom : c\n_rom : d\n"},
    };
    for (Row const& row : rows) EXPECT_EQ(shown(row.text, true), row.shown);
    std::string const withNul("From a\n\nFrom : b\0c\n", 20);
    EXPECT_EQ(shown(withNul, true), withNul);
}

TEST(ParserStream, HidesTheSameHoweverItIsRead) {
    std::string const text = "Message-Id: 1\nSubject: =?" + std::string(longestCharset + 1, 'x') +
                             "?q?a?=\nTo: a\n b\nFrom: c\nFrom d\nReply-To : e\nSender" +
                             std::string(1000, ' ') + ": f\nTo" + std::string(1000, '\t') +
                             "g\n\nTo: h\nFrom : i\n\r\nFrom : j\nT";
    for (bool const isMbox : {false, true}) {
        std::string const expected = shown(text, isMbox);
        EXPECT_THAT(expected, testing::HasSubstr("\n_o: a\n b\n_rom: c\nFrom d\n_eply-To : e\n_ender  "));
        for (std::size_t block = 1; block <= 40; ++block)
            EXPECT_EQ(shown(text, isMbox, block), expected) << block;
    }
}

TEST(ParserStream, SaysWhereAReadFailedAndReadsNothingBehind) {
    g_mime_init();
    int const descriptor = ::open("/", O_RDONLY | O_CLOEXEC);  // no directory can be read so
    GMimeStream* const source = g_mime_stream_fs_new(descriptor);
    std::vector<std::int64_t> hidden;
    ReadFailure failure;
    GMimeStream* const stream = newParserStream(source, false, hidden, failure);
    std::array<char, 8> bytes{};
    ASSERT_EQ(g_mime_stream_seek(stream, 3, GMIME_STREAM_SEEK_SET), 3);
    EXPECT_EQ(failure.error, 0);
    EXPECT_EQ(g_mime_stream_read(stream, bytes.data(), bytes.size()), -1);
    EXPECT_EQ(failure.error, EISDIR);
    EXPECT_EQ(failure.offset, 3);
    // From now on the descriptor can be read.
    int const zeros = ::open("/dev/zero", O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(::dup2(zeros, descriptor), descriptor);
    ::close(zeros);
    EXPECT_EQ(g_mime_stream_read(stream, bytes.data(), bytes.size()), -1);
    g_mime_stream_seek(stream, 0, GMIME_STREAM_SEEK_SET);
    EXPECT_EQ(failure.error, 0);
    EXPECT_EQ(g_mime_stream_read(stream, bytes.data(), bytes.size()), 8);
    g_object_unref(stream);
    g_object_unref(source);
}
