#include "tests/load/Corpus.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <vector>

#include "tests/load/Meter.h"
#include "tests/support/Support.h"
#include "tests/tools/Tool.h"

namespace QuillmarkLoad {
using namespace QuillmarkTest;

namespace {

std::string times(std::size_t count, std::string_view piece) {
    std::string text;
    text.reserve(count * piece.size());
    for (std::size_t i = 0; i < count; ++i) text += piece;
    return text;
}

std::string header(std::string const& field, std::string const& value) {
    return "From: ann@example.org\n" + field + ": " + value + "\n\nhttp://www.example.com/\n";
}

std::string body(std::string const& text, char const* encoding = "7bit", char const* type = "text/html") {
    return "From: ann@example.org\nContent-Type: " + std::string(type) +
           "\nContent-Transfer-Encoding: " + encoding + "\n\n" + text;
}

/// Multiparts in multiparts, and a link within them all.
std::string nested(std::size_t depth, bool isClosed) {
    std::string text = "From: ann@example.org\n";
    for (std::size_t i = 0; i < depth; ++i) {
        std::string const boundary = "b" + std::to_string(i);
        text += "Content-Type: multipart/mixed; boundary=" + boundary + "\n\n--" + boundary + "\n";
    }
    text += "Content-Type: text/plain\n\nhttp://www.example.com/\n";
    for (std::size_t i = depth; isClosed && i > 0; --i) text += "--b" + std::to_string(i - 1) + "--\n";
    return text;
}

std::string manyParts(std::size_t count, std::string const& part) {
    return "From: ann@example.org\nContent-Type: multipart/mixed; boundary=b\n\n" +
           times(count, "--b\n" + part) + "--b--\n";
}

std::string differentLinks(std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        std::string const number = std::to_string(i);
        text += "http://h" + number + ".example.com/p" + number + "?q=" + number + "\n";
    }
    return text;
}

template <char letter>
std::string runInBody(std::size_t count) {
    return body(std::string(count, letter));
}
template <char letter>
std::string runInHeader(std::size_t count) {
    return header("To", std::string(count, letter));
}

constexpr std::size_t mega = std::size_t{1} << 20;

constexpr char tooDeep[] = "multiparts are nested too deep";

using Count = std::size_t;

Hostile const rows[] = {
    {"multiparts in multiparts", 10'000, [](Count n) { return nested(n, true); }, tooDeep},
    {"multiparts in multiparts that never end", 10'000, [](Count n) { return nested(n, false); }, tooDeep},
    {"messages in messages", 10'000,
     [](Count n) {
         return "From: a@example.org\n" + times(n, "Content-Type: message/rfc822\n\nFrom: a@example.org\n") +
                "\nx\n";
     }},
    {"parts side by side", 50'000,
     [](Count n) { return manyParts(n, "Content-Type: text/plain\n\nwww.example.com\n"); }},
    {"parts without content", 100'000, [](Count n) { return manyParts(n, "\n"); }},
    {"lines that begin like a boundary", 200'000,
     [](Count n) { return manyParts(1, "\n" + times(n, "--bb\n")); }},
    {"a boundary of many letters", mega,
     [](Count n) {
         std::string const b(n, 'b');
         return "From: a@example.org\nContent-Type: multipart/mixed; boundary=" + b + "\n\n--" + b +
                "\n\nx\n";
     }},
    {"parameters of a type", 50'000,
     [](Count n) { return body("x", "7bit", ("text/plain" + times(n, "; a=b")).c_str()); }},
    {"pieces of a parameter", 20'000,
     [](Count n) {
         std::string type = "application/octet-stream";
         for (Count i = 0; i < n; ++i) type += ";\n name*" + std::to_string(i) + "*=%41";
         return body("x", "7bit", type.c_str());
     }},
    {"addresses in a header field", 100'000,
     [](Count n) { return header("To", times(n, "Ann <ann@example.org>,\n ") + "ben@example.org"); }},
    {"groups in a header field", 100'000,
     [](Count n) { return header("To", times(n, "g: ann@example.org;,\n ")); }},
    {"comments in comments", mega, [](Count n) { return header("To", std::string(n, '(')); }},
    {"comments in comments that end", mega,
     [](Count n) {
         return header("To", std::string(n / 2, '(') + std::string(n / 2, ')') + " a@example.org");
     }},
    {"a quoted string that never ends", mega,
     [](Count n) { return header("To", "\"" + std::string(n, 'a')); }},
    {"quoted pairs", mega, [](Count n) { return header("To", "\"" + times(n / 2, "\\\"")); }},
    {"angle brackets", mega, [](Count n) { return header("To", std::string(n, '<')); }},
    {"domain literals that never end", mega, [](Count n) { return header("To", times(n / 2, "@[")); }},
    {"commas", mega, [](Count n) { return header("Cc", std::string(n, ',')); }},
    {"colons", mega, [](Count n) { return header("Cc", std::string(n, ':')); }},
    {"letters in From", mega, [](Count n) { return header("From", std::string(n, 'a')); }},
    {"dots in an envelope", mega,
     [](Count n) { return header("Return-Path", "<a" + std::string(n, '.') + "@b>"); }},
    {"\"@\" in an envelope", mega, [](Count n) { return header("Return-Path", "<" + std::string(n, '@')); }},
    {"\"@\" in To", mega, runInHeader<'@'>},
    {"quotes in To", mega, runInHeader<'"'>},
    {"a header field in one line", mega, [](Count n) { return header("X-Long", std::string(n, 'x')); }},
    {"a header field in many lines", mega, [](Count n) { return header("X-Long", times(n / 4, "x\n ")); }},
    {"a header field's name", mega, [](Count n) { return std::string(n, 'X') + ": x\n\nx\n"; }},
    {"header fields", 100'000,
     [](Count n) { return times(n, "X-Field: some text, as long as most fields are\n") + "\nx\n"; }},
    {"From fields", 100'000,
     [](Count n) { return times(n, "From: \"Ann of many letters\" <ann@mail.example.org>\n") + "\nx\n"; }},
    {"a header that never ends", mega,
     [](Count n) { return "From: a@example.org\n" + times(n / 10, "X-F: abcd\n"); }},
    {"encoded words", 200'000, [](Count n) { return header("Subject", times(n, "=?utf-8?B?w4Y=?=\n ")); }},
    {"encoded words that never end", 100'000,
     [](Count n) { return header("Subject", times(n, "=?utf-8?B?w4Y")); }},
    {"encoded words that never end in a file name", 50'000,
     [](Count n) {
         return body("x", "7bit", ("text/plain; name=\"" + times(n, "=?utf-8?B?w4Y") + "\"").c_str());
     }},
    {"encoded words that never end in an mbox", 50'000,
     [](Count n) { return "From a\n" + header("X-Field", times(n, "=?utf-8?B?w4Y")); }},
    {"encoded words that never end in a display name", 50'000,
     [](Count n) { return header("To", "\"" + times(n, "=?utf-8?B?w4Y") + "\" <a@example.org>"); }},
    {"encoded words that end late", 5'000,
     [](Count n) { return header("Subject", times(n, "=?utf-8?B?" + std::string(1000, 'A') + "?=")); }},
    {"encoded words in many character sets", 10'000,
     [](Count n) {
         return header("Subject", times(n / 3, "=?iso-8859-1?Q?x?= =?koi8-r?Q?x?= =?big5?Q?x?= "));
     }},
    {"a character set in an encoded word", mega,
     [](Count n) { return header("Content-Type", "a/b; x=\"=?" + std::string(n, 'x') + "?Q?y?=\""); },
     "a header field names a character set of more than 16 KiB"},
    {"a character set of a name", mega,
     [](Count n) { return header("Content-Disposition", "a; filename*=" + std::string(n, 'x') + "'*=''y"); },
     "a header field names a character set of more than 16 KiB"},
    {"signs in front of a character set", mega,
     [](Count n) { return header("Content-Type", "a/b; x*=\"" + times(n / 4, "*==*") + "=?'\""); }},
    {"names of one attachment", 50'000,
     [](Count n) {
         std::string type = "text/plain";
         for (Count i = 0; i < n; ++i) type += "; name=" + std::to_string(i);
         return body("x", "7bit", type.c_str());
     }},
    {"pieces of one name, the last first", 50'000,
     [](Count n) {
         std::string type = "text/plain";
         for (Count i = n; i > 0; --i) type += "; name*" + std::to_string(i - 1) + "*=%C3";
         return body("x", "7bit", type.c_str());
     }},
    {"quotes, escapes and comments in a name", 50'000,
     [](Count n) { return body("x", "7bit", ("text/plain; name=\"" + times(n, "\\\";a=\"(")).c_str()); }},
    {"links", 200'000, [](Count n) { return body(differentLinks(n)); }},
    {"the same link", 200'000, [](Count n) { return body(times(n, "http://www.example.com/\n")); }},
    {"schemes before schemes", 200'000, [](Count n) { return body(times(n, "http://")); }},
    {"links without a blank between", 100'000,
     [](Count n) { return body(times(n, "http://a.example.com/")); }},
    {"mailto links", 100'000,
     [](Count n) { return body(times(n, "mailto:a@example.org?subject=%41&cc=b\n")); }},
    {"a mailto link with many addresses", 100'000,
     [](Count n) { return body("mailto:" + times(n, "a@example.org,")); }},
    {"hosts in IDN", 50'000,
     [](Count n) {
         std::string text;
         for (Count i = 0; i < n; ++i) text += "http://b\xc3\xbc" + std::to_string(i) + "cher.example.com/\n";
         return body(text);
     }},
    {"a host of many labels", mega, [](Count n) { return body("http://" + times(n / 2, "a.") + "com/"); }},
    {"numbers as hosts", 100'000,
     [](Count n) {
         std::string text;
         for (Count i = 0; i < n; ++i) text += "http://0x7f" + std::to_string(100'000 + i) + "/\n";
         return body(text);
     }},
    {"letters", mega, runInBody<'a'>},
    {"dots", mega, runInBody<'.'>},
    {"slashes", mega, runInBody<'/'>},
    {"brackets", mega, runInBody<'['>},
    {"quotes", mega, runInBody<'"'>},
    {"percent signs", mega, runInBody<'%'>},
    {"at signs", mega, runInBody<'@'>},
    {"colons in text", mega, runInBody<':'>},
    {"less-than signs", mega, runInBody<'<'>},
    {"ampersands", mega, runInBody<'&'>},
    {"line ends", mega, runInBody<'\n'>},
    {"carriage returns", mega, runInBody<'\r'>},
    {"null bytes", mega, runInBody<'\0'>},
    {"bytes 0xFF", mega, runInBody<'\xff'>},
    {"Base64 full of links", 200'000,
     [](Count n) { return body(times(n, "aHR0cDovL3d3dy5leGFtcGxlLmNvbS8K\n"), "base64"); }},
    {"Base64 in lines of one letter", 500'000, [](Count n) { return body(times(n, "a\n"), "base64"); }},
    {"Base64 in one line", 8 * mega, [](Count n) { return body(std::string(n, 'A'), "base64"); }},
    {"Base64 of padding", mega, [](Count n) { return body(std::string(n, '='), "base64"); }},
    {"Base64 that is none", 500'000, [](Count n) { return body(times(n, "!!!!\n"), "base64"); }},
    {"quoted-printable of equals signs", mega,
     [](Count n) { return body(std::string(n, '='), "quoted-printable"); }},
    {"quoted-printable of line ends that do not count", 500'000,
     [](Count n) { return body("http://" + times(n, "=\n") + "example.com", "quoted-printable"); }},
    {"quoted-printable of escapes", 500'000,
     [](Count n) { return body(times(n, "=41"), "quoted-printable"); }},
    {"uuencode that never ends", 100'000,
     [](Count n) {
         return body("begin 644 a\n" + times(n, "M" + std::string(60, '!') + "\n"), "x-uuencode");
     }},
    {"UTF-16 of odd length", mega,
     [](Count n) { return body(std::string(n / 2 * 2 + 1, 'a'), "8bit", "text/plain; charset=utf-16"); }},
    {"UTF-7", mega,
     [](Count n) { return body(times(n / 8, "+AGEAYg-"), "7bit", "text/plain; charset=utf-7"); }},
    {"shifts of ISO-2022-JP", mega,
     [](Count n) { return body(times(n / 6, "\x1b$B\x1b(B"), "7bit", "text/plain; charset=iso-2022-jp"); }},
    {"a charset that nobody knows", mega,
     [](Count n) { return body(std::string(n, '\xe4'), "8bit", "text/plain; charset=x-unheard-of"); }},
    {"messages of an mbox", 20'000, [](Count n) { return times(n, "From a\nFrom: a@example.org\n\nx\n\n"); }},
    {"lines of an mbox that begin no message", 100'000, [](Count n) { return times(n, "From a\n"); }},
};

/// The program's place is taken by a scan. Does not come back.
[[noreturn]] void becomeScan(std::string const& directory, std::string const& lists) {
    // Also of the threads that it makes. The sanitizers have a thread begin with more than that.
#if !defined __SANITIZE_ADDRESS__ && !defined __SANITIZE_THREAD__
    rlimit const stack{256 * 1024, 256 * 1024};
    ::setrlimit(RLIMIT_STACK, &stack);
#endif
    int const out = ::open((directory + "/report").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ::dup2(out, 1);
    ::dup2(out, 2);
    std::string const message = directory + "/message";
    std::string const swap = directory + "/swap";
    ::execl(QUILLMARK_TOOL, "quillmark", "scan", "--json", "--lists", lists.c_str(), "--tmp", swap.c_str(),
            message.c_str(), nullptr);
    ::_exit(127);
}

/// The list of errors in the report's beginning.
std::string errorsIn(std::string const& report) {
    static constexpr std::string_view key = "\"errors\":[";
    std::size_t const at = report.find(key);
    if (at == std::string::npos) return report.substr(0, 200);
    return report.substr(at + key.size(), report.find(']', at) - at - key.size());
}

double seconds(timeval const& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

}  // namespace

std::span<Hostile const> corpus() {
    return rows;
}

Cost costOf(std::string const& message, std::string const& directory) {
    std::filesystem::create_directories(directory + "/swap");
    std::string const& lists = testLists();
    writeFile(directory + "/message", message);
    pid_t const child = ::fork();
    if (child == 0) becomeScan(directory, lists);
    int status = 0;
    rusage usage{};
    while (::wait4(child, &status, 0, &usage) < 0 && errno == EINTR) {
    }
    Cost cost;
    cost.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    cost.seconds = seconds(usage.ru_utime) + seconds(usage.ru_stime);
    cost.peakKib = static_cast<unsigned long>(usage.ru_maxrss);
    std::string const report = readFile(directory + "/report");
    cost.errors = errorsIn(report);
    cost.reports = static_cast<std::size_t>(std::count(report.begin(), report.end(), '\n'));
    if (entriesBelow(directory + "/swap") != 0) throw std::runtime_error("swap files are left");
    return cost;
}

namespace {

/// The least of a few, which is nearest to what it takes on a machine of one's own.
Cost leastOf(int runs, std::string const& message, std::string const& directory) {
    Cost least = costOf(message, directory);
    for (int run = 1; run < runs; ++run) {
        Cost const cost = costOf(message, directory);
        least.seconds = std::min(least.seconds, cost.seconds);
        least.peakKib = std::max(least.peakKib, cost.peakKib);
    }
    return least;
}

}  // namespace

bool measureCorpus(std::string const& word) {
    TemporaryDirectory const place;
    constexpr double bound = 2.3;
    constexpr double enough = 0.008;  // seconds; what takes less cannot be told from the rest of a run
    double const start = leastOf(7, body("x\n"), place.path()).seconds;
    say("A scan of nothing takes %.1f ms. Times are of the processor, beyond that.", start * 1e3);
    say("| Made of | times | bytes | ms | doubling | and again | KiB at the peak | Report says |");
    say("|---|---:|---:|---:|---:|---:|---:|---|");
    bool isGood = true;
    for (Hostile const& row : corpus()) {
        if (std::string_view(row.name).find(word) == std::string_view::npos) continue;
        std::array<Cost, 3> costs;
        std::array<double, 3> taken{};
        std::size_t bytes = 0;
        auto const growth = [&](std::size_t i) {
            return taken[i - 1] < enough ? 0 : taken[i] / taken[i - 1];
        };
        // Who shares the machine may disturb a round.
        for (int round = 0; round < 4; ++round) {
            for (std::size_t i = 0; i < costs.size(); ++i) {
                std::string const message = row.make(row.most >> (2 - i));
                bytes = message.size();
                costs[i] = leastOf(round == 0 ? 2 : 1, message, place.path());
                double const net = std::max(costs[i].seconds - start, 0.0);
                taken[i] = round == 0 ? net : std::min(taken[i], net);
            }
            if (growth(1) <= bound && growth(2) <= bound) break;
        }
        auto const asText = [&](std::size_t i) {
            std::array<char, 16> text{};
            std::snprintf(text.data(), text.size(), "%.2f", growth(i));
            return growth(i) == 0 ? std::string("-") : std::string(text.data());
        };
        bool const isReported = std::all_of(costs.begin(), costs.end(), [&](Cost const& cost) {
            return cost.status >= 0 && cost.status <= 1 && cost.reports != 0;
        });
        bool const isSaid = row.limit == nullptr || costs[2].errors.find(row.limit) != std::string::npos;
        bool const isLinear = growth(1) <= bound && growth(2) <= bound;
        isGood = isGood && isReported && isSaid && isLinear;
        say("| %s | %s | %s | %.1f | %s | %s | %s | %s |%s", row.name, grouped(row.most).c_str(),
            grouped(bytes).c_str(), taken[2] * 1e3, asText(1).c_str(), asText(2).c_str(),
            grouped(costs[2].peakKib).c_str(), costs[2].errors.substr(0, 120).c_str(),
            !isReported ? " NO REPORT"
            : !isSaid   ? " LIMIT NOT TOLD"
            : !isLinear ? " NOT LINEAR"
                        : "");
    }
    return isGood;
}

}  // namespace QuillmarkLoad
