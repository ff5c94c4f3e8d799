// The lexer of mail-address text: rfc5322Lex, which fills a queue, and Rfc822Scan, which walks over ranges.

#include <deque>

#include "fuzz/support/Fuzz.h"
#include "include2/Rfc822Lex"
#include "mail/Rfc822Scan.h"
#include "mail/TokenQueue.h"

using namespace Quillmark;
using namespace QuillmarkFuzz;

namespace {

std::string joined(std::deque<Rfc822Token> const& tokens) {
    std::string text;
    for (Rfc822Token const& token : tokens) text += token.text;
    return text;
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string const text = Input(data, size).rest();

    std::deque<Rfc822Token> tokens;
    bool const whole = rfc5322Lex(text, tokens);

    // The scan over ranges sees the same tokens in the same places.
    Rfc822Scan scan(text);
    std::size_t count = 0, end = 0;
    for (; scan.next(); ++count) {
        claim(count < tokens.size(), "the scan sees no more tokens than the queue holds");
        claimSame("a token as the scan sees it", scan.text(), tokens[count].text);
        claimSame("what kind it is", scan.symbol(), symbol(tokens[count]));
        claim(scan.begin() >= end && scan.begin() < scan.end(), "tokens follow each other");
        end = scan.end();
    }
    claimSame("the number of tokens", count, tokens.size());
    claimSame("whether the text ends well", !scan.failed(), whole);

    // What the tokens say can be read again, and says the same. Comments may have kept two atoms apart.
    std::string const again = joined(tokens);
    claim(again.size() <= text.size(), "tokens add nothing");
    std::deque<Rfc822Token> second;
    claim(rfc5322Lex(again, second), "the text of the tokens can be cut into tokens");
    claimSame("the text of its tokens", joined(second), again);

    // A comment that is skipped by itself ends where the lexer says it does.
    std::string const comment = "(" + text;
    auto pos = comment.begin() + 1;
    bool const closed = eat_comment(pos, comment.end());
    claim(closed || pos == comment.end(), "a comment without end takes everything");
    std::deque<Rfc822Token> rest, behind;
    bool const wholeRest = rfc5322Lex(comment, rest);
    if (closed)
        claimSame("what follows a comment", wholeRest, rfc5322Lex(std::string(pos, comment.end()), behind));
    claimSame("the tokens behind a comment", joined(rest), joined(behind));
    claim(closed || !wholeRest, "a comment without end fails");
    return 0;
}
