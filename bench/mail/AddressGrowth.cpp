// The worst of mail-address text, doubled.

#include <deque>

#include "bench/support/Growth.h"
#include "include2/EmailAddress"
#include "include2/Rfc822Lex"

namespace {

using namespace Quillmark;
using bench::repeated;

// As many different addresses as there is room for.
std::string distinctAddresses(std::size_t bytes) {
    std::string text;
    for (std::size_t i = 0; text.size() < bytes; ++i) text += "user" + std::to_string(i) + "@example.com, ";
    return text;
}

void lex(std::string const& text) {
    std::deque<Rfc822Token> tokens;
    rfc5322Lex(text, tokens);
}
void list(std::string const& text) {
    EmailAddress::rfc5322ParseList(text, false);
}
void listBySemicolon(std::string const& text) {
    EmailAddress::rfc5322ParseList(text, ";");
}
void set(std::string const& text) {
    EmailAddress::rfc5322ParseSet(text, true, false);
}
void smallest(std::string const& text) {
    EmailAddress::rfc5322Parse(text, true);
}
void path(std::string const& text) {
    EmailAddress::rfc5321Parse(text, false);
}

bench::Growth const cases[] = {
    {"lexer: nested comments", repeated("("), lex},
    {"lexer: comments side by side", repeated("()"), lex},
    {"lexer: backslashes in a comment", repeated("\\(", "(", ")"), lex},
    {"lexer: specials", repeated("@<>,;:."), lex},
    {"list: nested comments", repeated("(", "a@x.example"), list},
    {"list: commas", repeated(","), list},
    {"list: commas and blanks", repeated(", "), list},
    {"list: semicolons as separators", repeated(";"), listBySemicolon},
    {"list: separators of both kinds", repeated(";,"), listBySemicolon},
    {"list: at signs", repeated("a@"), list},
    {"list: bad addresses", repeated("a@@b,"), list},
    {"list: angle brackets", repeated("<a>"), list},
    {"list: opening angle brackets", repeated("<", {}, "a@x.example>"), list},
    {"list: dots", repeated("."), list},
    {"list: one local part of dotted words", repeated("a.", {}, "a@x.example"), list},
    {"list: one name of many words", repeated("a ", {}, "<a@x.example>"), list},
    {"list: one quoted string of escapes", repeated("\\\"", "\"", "\" <a@x.example>"), list},
    {"list: quotes", repeated("\"\""), list},
    {"list: bracketed literals", repeated("[a]"), list},
    {"list: blanks", repeated(" ", "a@x.example", "b"), list},
    {"list: distinct addresses", distinctAddresses, list},
    {"set: distinct addresses", distinctAddresses, set},
    {"smallest: distinct addresses", distinctAddresses, smallest},
    {"list: one domain of many labels", repeated("a.", "a@", "example"), list},
    {"path: nested comments", repeated("(", "<a@x.example"), path},
    {"path: dotted words", repeated("a.", "<", "a@x.example>"), path},
    {"path: dots", repeated("."), path},
    {"path: blanks", repeated(" ", "<a@x.example>"), path},
    {"path: one quoted string of escapes", repeated("\\\"", "<\"", "\"@x.example>"), path},
};

}  // namespace

int main(int argc, char** argv) {
    return bench::growthMain(argc, argv, cases);
}
