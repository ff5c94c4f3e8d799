#pragma once
// What both grammars over queues of tokens do with their pieces.

#include <deque>
#include <string>

#include "include2/Rfc822Lex"
#include "mail/Rfc822Scan.h"

namespace Quillmark {

using TokenQueue = std::deque<Rfc822Token>;

/// What a grammar sees of @p token. Other for one that is cut from no text.
Symbol symbol(Rfc822Token const& token) noexcept;

/// Removes TAB and SPACE from both ends; CR and LF stay.
void trimWhitespaceTokens(TokenQueue& tokens);

/// Removes TAB and SPACE from the end, then appends the texts of the rest to @p out.
void joinTokens(TokenQueue& tokens, std::string& out);

bool isValidLocalPart(TokenQueue const& tokens) noexcept;

}  // namespace Quillmark
