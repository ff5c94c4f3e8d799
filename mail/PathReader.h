#pragma once
// SMTP paths, straight from the text.

#include <string_view>

namespace Quillmark {

class EmailAddressImpl;

/// What rfc5322Lex and parseRfc5321 do, in one pass and without a queue.
bool readPath(std::string_view text, EmailAddressImpl& impl, bool requireBrackets);

}  // namespace Quillmark
