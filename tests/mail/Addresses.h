#pragma once
// What the tests of both address grammars share: addresses as text, and the parses over queues.

#include <list>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "include2/EmailAddress"

namespace QuillmarkTest {

/// "null", or the three parts as "local|domain" or "name|local|domain".
std::string parts(Quillmark::EmailAddress const& address);
/// The parts of all, with "; " between them.
template <class Addresses>
std::string parts(Addresses const& addresses) {
    std::string text;
    for (auto const& address : addresses) text += (text.empty() ? "" : "; ") + parts(address);
    return text;
}

// What the exported lexer and the exported parsers give over queues of tokens, called as the parses of
// EmailAddress are described. They are the oracle for the parses that work on the text.
Quillmark::EmailAddress pathByQueue(std::string const& text, bool requireBrackets);
std::list<Quillmark::EmailAddress> listByQueue(std::string const& text, bool lowerLocal,
                                               std::string const& separator);
std::set<Quillmark::EmailAddress> setByQueue(std::string const& text, bool lowerLocal);

/// Random text out of pieces of mail addresses.
std::string randomText(std::mt19937& random, std::vector<std::string> const& pieces, unsigned maxPieces);

}  // namespace QuillmarkTest
