#pragma once
// Host names out of pieces of a text.

#include <string>
#include <string_view>

#include "include2/HostName"

namespace Quillmark {

/// HostName's constructor and its test for those who hold a piece of a longer text and want no copy of it.
class HostNameReader {
public:
    static HostName read(std::string_view text, bool parseDomain, bool strict);
    /// The same into a name, whose object is used again where nobody else holds it.
    static void read(std::string_view text, bool parseDomain, bool strict, HostName& name);
    /// HostName::isValidHostname(text, false). A common name is looked at and nothing is made.
    static bool isValid(std::string_view text);

private:
    static Handle<HostNameImpl> impl(std::string_view text, bool parseDomain, bool strict,
                                     Handle<HostNameImpl> former);
    static Handle<HostNameImpl> blank(Handle<HostNameImpl> former);
    static Handle<HostNameImpl> ofAddress(std::string_view text, std::string const& idn);

    friend class HostName;
};

}  // namespace Quillmark
