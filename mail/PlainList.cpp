#include "mail/PlainList.h"

#include "mail/PlainAddress.h"

namespace Quillmark {

EmailAddress readPlainPath(std::string_view text, bool requireBrackets) {
    std::size_t const begin = text.starts_with('<') ? 1 : 0;
    if (requireBrackets && begin == 0) return {};
    PlainAddress address;
    bool const isAll =
        address.read(text) && address.end == text.size() && address.text.data() == text.data() + begin;
    return isAll ? address.make(true) : EmailAddress();
}

}  // namespace Quillmark
