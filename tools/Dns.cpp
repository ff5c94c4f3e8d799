// quillmark dns: asks a question and shows the answer.

#include <netdb.h>
#include <resolv.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "include2/Exception"
#include "include2/HostName"
#include "include2/IPAddress"
#include "include2/Resolver"
#include "tools/Commands.h"
#include "tools/Facts.h"
#include "tools/Json.h"

namespace QuillmarkTool {
using namespace Quillmark;
namespace {

/// A number from 0 to 65535, or nothing.
std::optional<unsigned short> numberOf(std::string_view text) {
    unsigned short number = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

/// The number that @p nameOf gives a name, in any case, or that the text is, after @p prefix or bare.
std::optional<unsigned short> numberOf(std::string const& text, std::string const& prefix,
                                       char const* (*nameOf)(int)) {
    for (int number = 0; number <= 0xffff; ++number) {
        char const* const name = nameOf(number);
        if (::strcasecmp(text.c_str(), name) == 0 && ::strcasecmp(name, "Unknown") != 0)
            return static_cast<unsigned short>(number);
    }
    if (::strncasecmp(text.c_str(), prefix.c_str(), prefix.size()) == 0)
        return numberOf(std::string_view(text).substr(prefix.size()));
    return numberOf(text);
}

/// The address, or a null one for what is none.
IPAddress addressOf(std::string const& text) {
    try {
        return IPAddress(text);
    } catch (Exception const&) {
        complain(text + " is no IP address");
        return {};
    }
}

/// The name to ask for, or empty when there is none.
std::string nameOf(DnsOptions const& options) {
    if (!options.reverse.empty()) {
        IPAddress const address = addressOf(options.reverse);
        if (address.isNull()) return {};
        return address.asStringReversed(true) + (address.isV4() ? ".in-addr.arpa" : ".ip6.arpa");
    }
    bool const isAscii =
        std::all_of(options.name.begin(), options.name.end(), [](char c) { return (c & 0x80) == 0; });
    if (isAscii) return options.name;
    HostName const host(options.name, false, true);
    if (host.isNull()) complain(options.name + " is no host name");
    return host.isNull() ? std::string() : host.asString();
}

/// What the library prints. A terminal gets it without what it would obey.
std::string printed(ResolverMessage const& message) {
    char* bytes = nullptr;
    std::size_t size = 0;
    std::FILE* const stream = ::open_memstream(&bytes, &size);
    if (stream == nullptr) return {};
    message.print(stream);
    std::fclose(stream);
    std::string text(bytes, size);
    std::free(bytes);
    if (::isatty(STDOUT_FILENO) == 0) return text;
    std::string shown;
    for (std::size_t at = 0; at < text.size();) {
        std::size_t const end = std::min(text.find('\n', at), text.size());
        shown += harmless(std::string_view(text).substr(at, end - at)) + "\n";
        at = end + 1;
    }
    return shown;
}

/// A server that cuts an answer may leave none of it. The library knows that as a question without an answer, and
/// the flags of the response are gone, so they are asked for once more.
bool isCutToNothing(DnsFacts const& facts) {
    if (facts.message.resolve_error() != NO_DATA) return false;
    constexpr unsigned char truncated = 0x02;  // in the third byte of the header
    std::array<unsigned char, 8192> response{};
    ::res_nsearch(&_res, facts.name.c_str(), facts.recordClass, facts.type, response.data(),
                  static_cast<int>(response.size()));
    return (response[2] & truncated) != 0;
}

}  // namespace

int dns(DnsOptions const& options, Output& output) {
    if (options.name.empty() == options.reverse.empty()) {
        complain("name either a NAME to ask for or, with -x, an ADDRESS");
        return Failed;
    }
    std::string const usual = options.reverse.empty() ? "A" : "PTR";
    auto const type = numberOf(options.type.empty() ? usual : options.type, "TYPE",
                               [](int number) { return Resolver::recordTypeName(number); });
    auto const recordClass =
        numberOf(options.recordClass, "CLASS", [](int number) { return Resolver::recordClassName(number); });
    if (!type) complain(options.type + " is no record type");
    if (!recordClass) complain(options.recordClass + " is no record class");
    std::string const name = type && recordClass ? nameOf(options) : std::string();
    if (name.empty()) return Failed;
    Resolver const* const resolver = Resolver::instance();
    if (!options.server.empty()) {
        IPAddress const server = addressOf(options.server);
        if (server.isNull()) return Failed;
        resolver->server(server, options.port);
    }
    DnsFacts facts;
    facts.name = name;
    facts.type = *type;
    facts.recordClass = *recordClass;
    facts.message = resolver->submit(*type, *recordClass, name);
    facts.truncated = facts.message.isTruncated() || isCutToNothing(facts);
    if (options.json)
        output.line(jsonOf(facts));
    else
        output.say(printed(facts.message));
    output.flush();
    if (!facts.truncated) return facts.message.isEmpty() ? Findings : Fine;
    complain("WARNING: THE ANSWER IS TRUNCATED. It did not fit, records are missing, and nobody asks again");
    complain("over TCP: what stands here is not all that there is.");
    return Findings;
}

}  // namespace QuillmarkTool
