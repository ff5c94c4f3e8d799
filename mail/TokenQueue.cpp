#include "mail/TokenQueue.h"

#include "foundation/ByteSet.h"
#include "mail/LocalPart.h"

namespace Quillmark {

namespace {

constexpr ByteSet specials{"<>@,;:\\."};
constexpr ByteSet neverInLocalPart = ByteSet::range(0x00, 0x20) | ByteSet{"()<@>;,\\:\"]["};

char firstByte(Rfc822Token const& token) noexcept {
    return token.text.empty() ? '\0' : token.text.front();
}

void trimEnd(TokenQueue& tokens) {
    while (!tokens.empty() && symbol(tokens.back()) == Blank) tokens.pop_back();
}

}  // namespace

Symbol symbol(Rfc822Token const& token) noexcept {
    switch (token.type) {
    case Rfc822Token::Atom: return Word;
    case Rfc822Token::QuotedString: return Quoted;
    case Rfc822Token::DomainLiteral: return Literal;
    case Rfc822Token::Special: break;
    default: return Other;
    }
    switch (char const c = firstByte(token)) {
    case '\t':
    case ' ': return Blank;
    case '\r':
    case '\n': return LineEnd;
    default: return specials.contains(c) ? c : Other;
    }
}

void trimWhitespaceTokens(TokenQueue& tokens) {
    while (!tokens.empty() && symbol(tokens.front()) == Blank) tokens.pop_front();
    trimEnd(tokens);
}

void joinTokens(TokenQueue& tokens, std::string& out) {
    trimEnd(tokens);
    for (auto const& token : tokens) out += token.text;
}

bool isValidLocalPart(TokenQueue const& tokens) noexcept {
    LocalPartCheck check;
    for (auto token = tokens.rbegin(); token != tokens.rend(); ++token) {
        // A special that is cut from no text passes for a word, unless its byte never could be in one.
        bool const wordLike = token->type == Rfc822Token::Special && symbol(*token) == Other &&
                              !neverInLocalPart.contains(firstByte(*token));
        if (wordLike) {
            check.takeOdd();
        } else {
            check.take(symbol(*token));
        }
    }
    return check.valid();
}

}  // namespace Quillmark
