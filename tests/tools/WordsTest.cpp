// Encoded words in subjects and display names.

#include <nlohmann/json.hpp>
#include <random>

#include "tests/tools/Scans.h"

using namespace QuillmarkTest;

namespace {

std::string hexadecimal(unsigned char byte) {
    static constexpr char digits[] = "0123456789ABCDEF";
    return {digits[byte >> 4], digits[byte & 15]};
}

std::string base64(std::string const& bytes, bool isPadded) {
    static constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        unsigned int group = 0;
        std::size_t const count = std::min<std::size_t>(3, bytes.size() - i);
        for (std::size_t k = 0; k < 3; ++k)
            group = group << 8 | (k < count ? static_cast<unsigned char>(bytes[i + k]) : 0U);
        for (std::size_t k = 0; k < 4; ++k)
            if (k <= count)
                text += alphabet[group >> (18 - 6 * k) & 63U];
            else if (isPadded)
                text += '=';
    }
    return text;
}

std::string quotedPrintable(std::string const& bytes) {
    std::string text;
    for (char const c : bytes) {
        bool const isPlain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        if (isPlain)
            text += c;
        else
            text += c == ' ' ? "_" : "=" + hexadecimal(static_cast<unsigned char>(c));
    }
    return text;
}

std::string word(std::string const& charset, std::string const& encodingAndText) {
    return "=?" + charset + "?" + encodingAndText + "?=";
}

/// The subjects and the names of the senders that a scan of an mbox gives, one message each.
struct Decoded {
    std::vector<std::string> subjects;
    std::vector<std::string> names;
};

Decoded decoded(std::vector<std::string> const& texts) {
    std::string mbox;
    for (std::string const& text : texts)
        mbox += "From a\nFrom: \"" + text + "\" <a@example.com>\nSubject: " + text + "\n\nx\n\n";
    Decoded found;
    for (std::string const& line : linesOf(scan({"--json"}, {mbox, {}, ""}).out)) {
        auto const json = nlohmann::json::parse(line);
        found.subjects.push_back(json["subject"].is_null() ? "" : json["subject"]);
        found.names.push_back(json["from"][0]["name"].is_null() ? "" : json["from"][0]["name"]);
    }
    return found;
}

}  // namespace

TEST(Words, AreDecodedOneByOneAndJoined) {
    struct {
        char const* what;
        std::string text;
        std::string shown;
    } const rows[] = {
        {"padding ends a word and not the text", "=?UTF-8?B?Y2Fmw6k=?= =?UTF-8?B?LmV4ZQ==?=", "café.exe"},
        {"words need no blank between them", "=?UTF-8?B?Y2Fmw6k=?==?UTF-8?B?LmV4ZQ==?=", "café.exe"},
        {"words may stand on several lines", "=?UTF-8?B?Y2Fmw6k=?=\n \t=?UTF-8?B?LmV4ZQ==?=", "café.exe"},
        {"padding may be missing", "=?UTF-8?B?Y2Fmw6k?= =?UTF-8?B?LmV4ZQ?= =?utf-8?b?YQ?=", "café.exea"},
        {"padding may end a part of a word", "=?utf-8?B?Y2Fmw6k=LmV4ZQ==?=", "café.exe"},
        {"what is no Base64 is left out", "=?utf-8?B?Y2.Fm w6\x01k=?=", "café"},
        {"a word may be empty", "=?utf-8?B?YQ==?= =?utf-8?Q?\?= =?utf-8?B?\?= =?utf-8?B?Yg==?=", "ab"},
        {"a character may be in two words", "=?utf-8?B?Y2Fmww==?= =?utf-8?B?qQ==?=", "café"},
        {"it may be in words of both encodings", "=?utf-8?Q?caf=C3?= =?utf-8?B?qQ==?=", "café"},
        {"it may be in words in lower case and in capitals", "=?utf-8?q?=c3?= =?UTF-8?Q?=A9?=", "é"},
        {"it may be in two words of another character set",
         "=?utf-16be?B?AA==?= =?utf-16be?B?6QAu?= =?utf-16be?B?AGU=?=", "é.e"},
        {"half a character is shown", "=?utf-8?Q?caf=C3?= =?iso-8859-1?Q?=E9?=", "caf?é"},
        {"an escape may be in two words", "=?utf-8?Q?caf=C3=?= =?utf-8?Q?A9?=", "café"},
        {"neighbours may be in different character sets",
         "=?iso-8859-1?B?Y2Fm6Q==?= =?utf-8?B?LsOp?=", "café.é"},
        {"a language stands behind the character set", "=?utf-8*en?Q?caf=C3=A9?= =?utf-8*fr?Q?s?=", "cafés"},
        {"an unknown character set is taken for UTF-8", "=?x-none?Q?caf=C3=A9?=", "café"},
        {"or, where it is none, for ISO 8859-1", "=?x-none?Q?caf=E9?=", "café"},
        {"a character set is a name and nothing more", "=?utf-16le//ignore?Q?caf=C3=A9?=", "café"},
        {"a very long character set is unknown", word(std::string(1000, 'x'), "Q?=C3=A9"), "é"},
        {"a character set without a name makes no word", "=?\?Q?x?=", "=?\?Q?x?="},
        {"it has no blanks in it", "=? =?Q?x?=", "=? =?Q?x?="},
        {"a word may have blanks in it", "=?utf-8?Q?a b?=", "a b"},
        {"a word may have question marks in it", "=?utf-8?Q?who?what?_why?=", "who?what? why"},
        {"a word that is not ended hides none behind it", "=?utf-8?B?x =?utf-8?Q?=C3=A9?=", "=?utf-8?B?x é"},
        {"an escape that is none stays", "=?utf-8?Q?=4_=G1_=?=", "=4 =G1 ="},
        {"a word may be very long", word("utf-8", "Q?" + std::string(5000, 'x')), std::string(5000, 'x')},
        {"a NUL ends nothing", "=?iso-8859-1?Q?a=00b?= =?utf-8?Q?=00c?=", std::string("a\0b\0c", 5)},
        {"text around words keeps its blanks", "a  =?utf-8?Q?b?=  c =?utf-8?Q?d?=", "a  b  c d"},
        {"text beside words may be in UTF-8", "caf\xc3\xa9 =?utf-8?Q?=C3=A9?=", "café é"},
        {"or in ISO 8859-1", "caf\xe9 =?utf-8?Q?=C3=A9?=", "café é"},
    };
    std::vector<std::string> texts;
    for (auto const& row : rows) texts.push_back(row.text);
    Decoded const found = decoded(texts);
    ASSERT_EQ(found.subjects.size(), std::size(rows));
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        EXPECT_EQ(found.subjects[i], rows[i].shown) << rows[i].what;
        EXPECT_EQ(found.names[i], rows[i].shown) << rows[i].what;
    }
}

// However a text is cut into words, it comes out whole.
TEST(Words, GiveBackTheTextThatWasCutIntoThem) {
    std::mt19937 random(20261121);
    auto const below = [&](std::size_t end) { return random() % end; };
    static char const* const pieces[] = {
        "a", "Z", "7", " ", ".", "?", "=", "\xc3\xa9", "\xe2\x82\xac", "_", "\xf0\x9f\x93\x9a"};
    static char const* const blanks[] = {"", " ", "\t", "   ", "\n ", " \n\t"};
    std::vector<std::string> texts;
    std::vector<std::string> wanted;
    for (int i = 0; i < 500; ++i) {
        std::string bytes = "x";
        for (std::size_t count = below(40); count > 0; --count) bytes += pieces[below(std::size(pieces))];
        bytes += "x";
        wanted.push_back(bytes);
        std::string text;
        while (!bytes.empty()) {
            std::string const part = bytes.substr(0, below(9));
            bytes.erase(0, part.size());
            bool const isBase64 = below(2) != 0;
            text += word(below(2) != 0 ? "utf-8" : "UTF-8",
                         isBase64 ? "B?" + base64(part, below(2) != 0) : "q?" + quotedPrintable(part));
            text += bytes.empty() ? "" : blanks[below(std::size(blanks))];
        }
        texts.push_back(text);
    }
    Decoded const found = decoded(texts);
    ASSERT_EQ(found.subjects.size(), texts.size());
    for (std::size_t i = 0; i < texts.size(); ++i) {
        EXPECT_EQ(found.subjects[i], wanted[i]) << texts[i];
        EXPECT_EQ(found.names[i], wanted[i]) << texts[i];
    }
}
