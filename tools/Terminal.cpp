#include "tools/Terminal.h"

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cwchar>

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <new>

namespace QuillmarkTool {
namespace {

/// One character of a text: its code point and its bytes; a byte that begins no character stands alone.
struct Character {
    char32_t code = 0;
    std::size_t bytes = 1;
    bool valid = false;
};

Character characterAt(std::string_view text, std::size_t at) {
    auto const byte = [&](std::size_t i) { return static_cast<unsigned char>(text[at + i]); };
    unsigned int const lead = byte(0);
    if (lead < 0x80) return {lead, 1, true};
    std::size_t const size = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
    if (lead < 0xc2 || lead > 0xf4 || text.size() - at < size) return {lead, 1, false};
    char32_t code = lead & (0x7fU >> size);
    for (std::size_t i = 1; i < size; ++i) {
        if ((byte(i) & 0xc0U) != 0x80) return {lead, 1, false};
        code = code << 6U | (byte(i) & 0x3fU);
    }
    static constexpr std::array<char32_t, 5> smallest{0, 0, 0x80, 0x800, 0x10000};
    bool const surrogate = code >= 0xd800 && code <= 0xdfff;
    if (code < smallest[size] || surrogate || code > 0x10ffff) return {lead, 1, false};
    return {code, size, true};
}

struct Range {
    char32_t first;
    char32_t last;
};

// Characters that a reader does not see, or that turn the writing around: Unicode's property
// Default_Ignorable_Code_Point, with the separators of lines and paragraphs (2028, 2029) and the marks of
// interlinear annotations (FFF9 to FFFB), which it leaves out.
constexpr std::array<Range, 17> hidden{{
    {0xad, 0xad},        // soft hyphen
    {0x34f, 0x34f},      // combining grapheme joiner
    {0x61c, 0x61c},      // Arabic letter mark
    {0x115f, 0x1160},    // Hangul fillers
    {0x17b4, 0x17b5},    // Khmer inherent vowels
    {0x180b, 0x180f},    // Mongolian variation selectors and vowel separator
    {0x200b, 0x200f},    // zero width, left-to-right and right-to-left marks
    {0x2028, 0x202e},    // separators, embeddings and overrides
    {0x2060, 0x206f},    // word joiner, invisible operators, isolates, deprecated format characters
    {0x3164, 0x3164},    // Hangul filler
    {0xfe00, 0xfe0f},    // variation selectors
    {0xfeff, 0xfeff},    // byte order mark
    {0xffa0, 0xffa0},    // halfwidth Hangul filler
    {0xfff0, 0xfffb},    // not assigned, and annotations
    {0x1bca0, 0x1bca3},  // shorthand format controls
    {0x1d173, 0x1d17a},  // musical format controls
    {0xe0000, 0xe0fff},  // tags, variation selectors, and what is left for others
}};

bool isHidden(char32_t code) {
    return std::any_of(hidden.begin(), hidden.end(),
                       [code](Range const& range) { return code >= range.first && code <= range.last; });
}

std::string formatted(char const* format, unsigned int value) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), format, value);
    return text.data();
}

bool writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        ssize_t const written = ::write(descriptor, text.data(), text.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return false;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

}  // namespace

std::string Painter::operator()(Style style, std::string_view text) const {
    static constexpr std::array<char const*, 7> codes{"", "1;36", "36", "2", "1", "33", "1;31"};
    char const* const code = codes[static_cast<std::size_t>(style)];
    if (!m_on || text.empty() || *code == '\0') return std::string(text);
    return "\x1b[" + std::string(code) + "m" + std::string(text) + "\x1b[0m";
}

bool wantsColour(Colour choice) {
    if (choice != Colour::Auto) return choice == Colour::Always;
    char const* const never = std::getenv("NO_COLOR");
    char const* const terminal = std::getenv("TERM");
    bool const dumb = terminal == nullptr || std::string_view(terminal) == "dumb";
    return ::isatty(STDOUT_FILENO) != 0 && !dumb && (never == nullptr || *never == '\0');
}

std::string harmless(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        Character const c = characterAt(text, i);
        if (!c.valid || c.code < 0x20 || c.code == 0x7f) {
            out += formatted("\\x%02x", c.code);
        } else if ((c.code >= 0x80 && c.code < 0xa0) || isHidden(c.code)) {
            out += formatted("\\u{%x}", c.code);
        } else {
            out.append(text, i, c.bytes);
        }
        i += c.bytes;
    }
    return out;
}

std::string withoutHidden(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        Character const c = characterAt(text, i);
        bool const isControl = c.valid && (c.code < 0x20 || (c.code >= 0x7f && c.code < 0xa0));
        if (!isControl && !(c.valid && isHidden(c.code))) out.append(text, i, c.bytes);
        i += c.bytes;
    }
    return out;
}

std::size_t columnsOf(std::string_view text) {
    // wcwidth knows wide characters in a UTF-8 locale only; the user's own decides nothing else here.
    [[maybe_unused]] static char const* const locale = std::setlocale(LC_CTYPE, "C.UTF-8");
    std::size_t columns = 0;
    for (std::size_t i = 0; i < text.size();) {
        Character const c = characterAt(text, i);
        int const width = c.code < 0x80 ? 1 : ::wcwidth(static_cast<wchar_t>(c.code));
        columns += width < 0 ? 1U : static_cast<std::size_t>(width);
        i += c.bytes;
    }
    return columns;
}

std::string padded(std::string_view text, std::size_t columns) {
    std::size_t const taken = columnsOf(text);
    std::string out(text);
    if (taken < columns) out.append(columns - taken, ' ');
    return out;
}

std::string bytesForPeople(std::uint64_t bytes) {
    if (bytes < 1000) return std::to_string(bytes) + " B";
    static constexpr std::array<char const*, 6> units{"kB", "MB", "GB", "TB", "PB", "EB"};
    std::uint64_t unit = 1000;
    std::size_t name = 0;
    while (name + 1 < units.size() && bytes >= unit * 1000 - unit / 2)
        unit *= 1000, ++name;  // 999.5 kB are 1.0 MB
    auto const rounded = [bytes](std::uint64_t to) { return bytes / to + (bytes % to * 2 >= to ? 1 : 0); };
    std::uint64_t const tenths = rounded(unit / 10);
    std::string const number = tenths < 100 ? std::to_string(tenths / 10) + "." + std::to_string(tenths % 10)
                                            : std::to_string(rounded(unit));
    return number + " " + units[name];
}

std::string counted(std::size_t count, std::string_view one, std::string_view many) {
    return std::to_string(count) + " " + std::string(count == 1 ? one : many);
}

void Output::flush() {
    bool const written = writeAll(STDOUT_FILENO, m_text);
    int const error = errno;
    m_text.clear();
    if (!written) throw Closed{error};
}

void sayError(std::string_view text) {
    writeAll(STDERR_FILENO, text);
}

void complain(std::string_view text) {
    try {
        sayError("quillmark: " + harmless(text) + "\n");
    } catch (std::bad_alloc const&) {
        sayError("quillmark: out of memory\n");
    }
}

}  // namespace QuillmarkTool
