#include "tests/mail/Addresses.h"

#include <algorithm>
#include <iterator>

using namespace Quillmark;

namespace QuillmarkTest {

namespace {

using Tokens = std::deque<Rfc822Token>;

bool isComma(Rfc822Token const& token) {
    return token.type == Rfc822Token::Special && token.text == ",";
}

bool isBlank(Rfc822Token const& token) {
    return token.type == Rfc822Token::Special && (token.text == " " || token.text == "\t");
}

// Whether the parser would stop at the terminator before it found anything of an address.
bool endsInNothing(Tokens const& tokens, Rfc822Token const& terminator) {
    auto token = tokens.rbegin();
    auto const end = std::make_reverse_iterator(std::find_if_not(tokens.begin(), tokens.end(), isBlank));
    while (token != end && isBlank(*token)) ++token;
    while (token != end && *token != terminator &&
           (isComma(*token) || *token == Rfc822Token{Rfc822Token::Special, "."}))
        ++token;
    return token != end && *token == terminator;
}

// Every address that the parser takes off the back of the queue.
template <class Found>
void forEachByQueue(std::string const& text, bool lowerLocal, std::string const& separator, Found found) {
    Tokens tokens;
    if (text.find('\0') != std::string::npos || !rfc5322Lex(text, tokens)) return;
    Rfc822Token const terminator =
        separator.empty() ? Rfc822Token() : Rfc822Token{Rfc822Token::Special, separator};
    auto const separates = [&](Rfc822Token const& token) { return isComma(token) || token == terminator; };
    while (!tokens.empty()) {
        auto* const impl = new EmailAddressImpl;
        EmailAddress const address(impl, false);
        bool const nothing = endsInNothing(tokens, terminator);
        if (parseRfc5322(tokens, terminator, impl, lowerLocal)) {
            if (!nothing) found(address);  // a separator with nothing to its right adds nothing
            while (!tokens.empty() && separates(tokens.back())) tokens.pop_back();
        } else {
            while (!tokens.empty() && !separates(tokens.back())) tokens.pop_back();
            if (!tokens.empty()) tokens.pop_back();
        }
    }
}

}  // namespace

std::string parts(EmailAddress const& address) {
    if (address.isNull()) return "null";
    std::string const name = address.displayName().empty() ? "" : address.displayName() + "|";
    return name + address.local() + "|" + address.domain();
}

EmailAddress pathByQueue(std::string const& text, bool requireBrackets) {
    Tokens tokens;
    if (text.find('\0') != std::string::npos || !rfc5322Lex(text, tokens)) return {};
    auto* const impl = new EmailAddressImpl;
    EmailAddress const address(impl, false);
    return parseRfc5321(tokens, impl, requireBrackets) ? address : EmailAddress();
}

std::list<EmailAddress> listByQueue(std::string const& text, bool lowerLocal, std::string const& separator) {
    std::list<EmailAddress> list;
    forEachByQueue(text, lowerLocal, separator,
                   [&](EmailAddress const& address) { list.push_front(address); });
    return list;
}

std::set<EmailAddress> setByQueue(std::string const& text, bool lowerLocal) {
    std::set<EmailAddress> set;
    forEachByQueue(text, lowerLocal, "", [&](EmailAddress const& address) { set.insert(address); });
    return set;
}

std::string randomText(std::mt19937& random, std::vector<std::string> const& pieces, unsigned maxPieces) {
    std::string text;
    for (unsigned long count = random() % (maxPieces + 1); count > 0; --count)
        text += pieces[random() % pieces.size()];
    return text;
}

}  // namespace QuillmarkTest
