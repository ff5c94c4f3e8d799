// One link, with every accessor: cleaned up, taken apart, compared.

#include "fuzz/support/Fuzz.h"
#include "include2/Uri"
#include "platform/quill_string.h"

using namespace Quillmark;
using namespace QuillmarkFuzz;

namespace {

/// Everything that a link says of itself, or that it is none.
std::string said(Uri const& uri) {
    std::string text = "no link";
    std::string const failure = failureOf([&] {
        text = uri.scheme() + '|' + uri.user() + '|' + uri.password() + '|' + uri.path() + '|' + uri.query() +
               '|' + uri.fragment() + '|' + uri.pathQueryFragment() + '|' + std::to_string(uri.port()) + '|' +
               uri.idn() + '|' + uri.asString() + '|' + uri.comparisonString();
        for (TypeAndValue const& header : uri.headers()) text += '|' + header.type() + '=' + header.value();
        for (EmailAddress const& address : uri.emailAddresses()) text += '|' + address.asString();
        if (!uri.host().isNull())
            text += '|' + uri.hostname() + '|' + uri.domain() + (uri.hostnameIsAnIpAddress() ? "|ip" : "");
    });
    return text + failure;
}

bool beginsMailto(std::string text) {
    ::copyStringToLower(text, text);
    return text.starts_with("mailto:");
}

bool isLowered(std::string const& text) {
    return text.find_first_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ") == std::string::npos;
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string const text = Input(data, size).rest();

    Uri const uri(text);
    Uri const fromBytes(text.data(), static_cast<unsigned int>(text.size()));
    std::string const all = said(uri);
    claimSame("a link from a string and from bytes", said(fromBytes), all);
    claimSame("a link that is looked at again", said(uri), all);
    std::string const clean = UriImpl::convertEncodedChars(UriImpl::convertEscaped(text));
    claim(clean.size() <= text.size(), "cleaning up adds nothing");
    claim(
        text.find('\n') == std::string::npos || UriImpl::convertEscaped(text).find('\n') == std::string::npos,
        "no line feed is left");
    std::string const failure = failureOf([&] { uri.scheme(); });
    claimSame("a link has \"//\" or is a mailto link", failure.empty(),
              clean.find("//") != std::string::npos || beginsMailto(clean));
    if (!failure.empty()) {
        std::string const detail = clean.empty() ? "" : " \"" + clean + "\"";
        claimSame("what is said of no link", failure, "UriException( 5 ) , UriImpl" + detail);
        return 0;
    }
    claimSame("the text, unless its host has another form", uri.idn().empty() ? uri.asString() : uri.idn(),
              clean);
    claim(isLowered(uri.scheme()) && isLowered(uri.query()) && isLowered(uri.fragment()),
          "scheme, query and fragment are in lower case");
    claim(uri == fromBytes && !(uri < fromBytes) && !(fromBytes < uri), "a link equals itself");
    bool const mailto = uri.scheme() == "mailto:" && clean.find("//") == std::string::npos;
    if (!mailto) {
        claim(uri.pathQueryFragment().starts_with(uri.path()), "the path comes first");
        claimSame("what stands behind the authority ends the text", clean.ends_with(uri.pathQueryFragment()),
                  true);
        claim(uri.headers().empty() && uri.emailAddresses().empty(), "only a mailto link has addresses");
    }
    claim(!uri.host().isNull() || uri.port() == 0 || mailto, "without a host there is no port");
    return 0;
}
