#include "include2/HostName"

#include <idn-free.h>
#include <idna.h>
#include <stringprep.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>
#include <utility>

#include "foundation/ByteSet.h"
#include "foundation/Fail.h"
#include "foundation/SpareBlocks.h"
#include "include2/IPAddress"
#include "net/DomainLists.h"
#include "net/HostNameReader.h"
#include "platform/quill_string.h"

namespace Quillmark {

namespace {

constexpr auto npos = std::string_view::npos;

constexpr ByteSet nameBytes = alphanumericBytes | ByteSet{"-._"};
// Kept for the daemons: in a whole text the byte 0xFF passes as well.
constexpr ByteSet textBytes = nameBytes | ByteSet{"\xff"};

/// What a text is like, gathered from its bytes in one pass.
class Traits {
public:
    explicit Traits(std::string_view text) noexcept : m_beginsWithDot(text.substr(0, 1) == ".") {
        for (char const c : text) m_bytes |= s_ofByte[static_cast<unsigned char>(c)];
    }

    bool isPlainName() const noexcept { return !m_beginsWithDot && !has(OutsideNames); }
    bool isAscii() const noexcept { return !has(OutsideAscii); }
    bool hasCapitals() const noexcept { return has(Capital); }
    /// Most names are no addresses, and are known by a byte that stands in none.
    bool mayBeIPAddress() const noexcept { return has(Colon) || !has(OutsideIPv4); }

private:
    enum Trait : std::uint8_t {
        OutsideNames = 1,
        OutsideAscii = 2,
        OutsideIPv4 = 4,
        Colon = 8,
        Capital = 16
    };

    bool has(Trait trait) const noexcept { return (m_bytes & trait) != 0; }

    static constexpr std::array<std::uint8_t, 256> s_ofByte = [] {
        constexpr ByteSet inIPv4 = digitBytes | ByteSet{"abcdefABCDEFxX."};
        constexpr ByteSet capitals = ByteSet::range('A', 'Z');
        std::array<std::uint8_t, 256> traits{};
        for (int byte = 0; byte < 256; ++byte) {
            traits[static_cast<std::size_t>(byte)] = static_cast<std::uint8_t>(
                (textBytes.contains(byte) ? 0 : OutsideNames) | (byte < 0x80 ? 0 : OutsideAscii) |
                (inIPv4.contains(byte) ? 0 : OutsideIPv4) | (byte == ':' ? Colon : 0) |
                (capitals.contains(byte) ? Capital : 0));
        }
        return traits;
    }();

    bool m_beginsWithDot;
    std::uint8_t m_bytes = 0;
};

bool isPlainName(std::string_view text) {
    return Traits(text).isPlainName();
}

/// "example.c" and "example.com." have no last label to speak of.
bool hasShortLastLabel(std::string_view text) {
    std::size_t const dot = text.rfind('.');
    return dot != npos && text.size() - dot - 1 < 2;
}

struct IdnFree {
    void operator()(void* memory) const { ::idn_free(memory); }
};

/// A text in code points, terminated by 0. None at all, and none() is true, for malformed UTF-8.
class CodePoints {
public:
    explicit CodePoints(std::string_view text)
        : m_points(::stringprep_utf8_to_ucs4(text.data(), static_cast<ssize_t>(text.size()), &m_count)) {}

    bool none() const { return !m_points; }
    std::span<std::uint32_t> all() { return {m_points.get(), none() ? 0 : m_count}; }

private:
    std::size_t m_count = 0;
    std::unique_ptr<std::uint32_t[], IdnFree> m_points;
};

// The library's conversion of a label takes the square of its length in time.
constexpr std::size_t longestLabel = 1024;

bool isSeparator(std::uint32_t point) {
    return point == 0x2e || point == 0x3002 || point == 0xff0e || point == 0xff61;
}

/// The first label of a text, and whether a separator stood behind it.
struct Label {
    std::span<std::uint32_t> points;
    bool separated;
};

/// Takes the first label and its separator off a text. A 0 stands behind the label afterwards.
Label takeLabel(std::span<std::uint32_t>& text) {
    auto const end = std::find_if(text.begin(), text.end(), isSeparator);
    bool const separated = end != text.end();
    if (separated) *end = 0;
    auto const length = static_cast<std::size_t>(end - text.begin());
    Label const label{text.first(length), separated};
    text = text.subspan(length + (separated ? 1 : 0));
    return label;
}

/// The ASCII-compatible form of well-formed UTF-8 without NUL (RFC 3490, 4.1). A separator at the end
/// leaves an empty label there; an empty label elsewhere has no such form, unless the separator is all.
/// @return false when there is none
bool toAscii(std::string_view text, std::string& name) {
    CodePoints points(text);
    std::span<std::uint32_t> rest = points.all();
    bool const isRoot = rest.size() == 1 && isSeparator(rest.front());
    std::string result;
    while (!rest.empty()) {
        auto const [label, separated] = takeLabel(rest);
        char ascii[64] = "";  // a label of 63 bytes and its NUL
        if (label.size() > longestLabel) return false;
        if (!isRoot && ::idna_to_ascii_4i(label.data(), label.size(), ascii, 0) != IDNA_SUCCESS) return false;
        result += ascii;
        if (separated) result += '.';
    }
    name = std::move(result);
    return !points.none();
}

/// Appends the UTF-8 form of a label that is terminated by 0. The library would take a whole text as
/// well, but it grows its result label by label.
bool appendUnicode(std::uint32_t const* label, std::string& text) {
    std::uint32_t* points = nullptr;
    int const result = ::idna_to_unicode_4z4z(label, &points, 0);
    std::unique_ptr<std::uint32_t[], IdnFree> const unicode(points);
    if (result != IDNA_SUCCESS) return false;
    std::unique_ptr<char, IdnFree> const utf8(::stringprep_ucs4_to_utf8(unicode.get(), -1, nullptr, nullptr));
    if (!utf8) return false;
    text += utf8.get();
    return true;
}

/// Where a name comes apart. The texts are pieces of the name.
struct Split {
    std::string_view host;
    std::string_view domain;
};

Split split(std::string_view name) {
    auto const dotBefore = [name](std::size_t end) {
        void const* const dot = ::memrchr(name.data(), '.', end);
        return dot ? static_cast<std::size_t>(static_cast<char const*>(dot) - name.data()) : npos;
    };
    std::size_t const last = dotBefore(name.size());
    if (last == npos) return {};
    std::string_view const label = name.substr(last + 1);
    DomainLists const lists;
    auto const isSuffix = [&] { return lists.hasTopLevel(label); };

    std::size_t const dot = dotBefore(last);
    if (dot == npos) return {{}, isSuffix() ? name : std::string_view()};
    Split const twoLabels{name.substr(0, dot), name.substr(dot + 1)};
    if (lists.hasCountryCode(twoLabels.domain)) {
        std::size_t const dotAbove = dotBefore(dot);
        // Kept for the daemons: "shop.co.uk" is a domain as a whole, and its host is "shop" all the same.
        if (dotAbove == npos) return {twoLabels.host, name};
        return {name.substr(0, dotAbove), name.substr(dotAbove + 1)};
    }
    if (isSuffix()) return twoLabels;
    // Kept for the daemons: a name without a registered domain has a host.
    return {twoLabels.host, {}};
}

void assignChange(std::string& text, std::string_view value) {
    if (text == value) return;
    text.clear();  // to append is faster than to assign
    text += value;
}

}  // namespace

HostNameImpl::HostNameImpl(std::string name, std::string idn, bool isIPAddress)
    : m_parsed(isIPAddress), m_isIPAddress(isIPAddress), m_name(std::move(name)), m_idn(std::move(idn)) {
    if (isIPAddress) m_host = m_domain = m_name;
}

using SpareNames = SpareBlocks<HostNameImpl, 256>;

void* HostNameImpl::operator new(std::size_t size) {
    return SpareNames::take(size);
}

void HostNameImpl::operator delete(void* memory, std::size_t size) noexcept {
    SpareNames::giveBack(memory, size);
}

std::string const& HostNameImpl::host() const {
    parse();
    return m_host;
}

std::string const& HostNameImpl::domain() const {
    parse();
    return m_domain;
}

bool HostNameImpl::isIPAddress() const {
    parse();
    return m_isIPAddress;
}

void HostNameImpl::parse() const {
    if (m_parsed) return;
    // Of before the search, should the lists change meanwhile.
    std::uint32_t const state = DomainLists::state();
    std::atomic_ref<std::uint32_t> const found(m_lists);  // a thread may look while another one notes it
    if (state != 0 && state == found.load(std::memory_order_relaxed)) return;
    Split const parts = split(m_name);
    assignChange(m_host, parts.host);
    assignChange(m_domain, parts.domain);
    if (found.load(std::memory_order_relaxed) != state) found.store(state, std::memory_order_relaxed);
}

/// An object without a name: the former one, if it is not shared.
Handle<HostNameImpl> HostNameReader::blank(Handle<HostNameImpl> former) {
    if (!former || former->count() != 1) return {new HostNameImpl({}, {}, false), false};
    HostNameImpl& name = *former;
    name.m_parsed = name.m_isIPAddress = false;
    name.m_lists = 0;
    name.m_name.clear();
    name.m_idn.clear();
    name.m_host.clear();
    name.m_domain.clear();
    return former;
}

Handle<HostNameImpl> HostNameReader::impl(std::string_view text, bool parseDomain, bool strict,
                                          Handle<HostNameImpl> former) {
    if (text.size() < 2) return {};
    Traits const traits(text);
    bool const isIPAddress = traits.mayBeIPAddress() && IPAddress::isValidIPAddress(std::string(text));
    if (!isIPAddress && hasShortLastLabel(text)) return {};
    // Kept for the daemons: an IPv6 literal is no plain name, for its colons.
    bool const isUtf8 = !traits.isPlainName() && !traits.isAscii() && ::isValidUtf8(text.data(), text.size());
    if (strict && !traits.isPlainName() && !isUtf8) return {};
    if (isUtf8 && text.find('\0') != npos) return {};  // the IDN library would lose what follows it

    Handle<HostNameImpl> made = blank(std::move(former));
    std::string& name = made->m_name;
    if (isUtf8) {
        // Kept for the daemons: a text that has no ASCII form is a name without text.
        if (toAscii(text, name)) {
            ::copyStringToLower(name, name);
            if (!isPlainName(name)) return {};
            made->m_idn = text;
        }
    } else {
        name += text;
        if (traits.hasCapitals()) ::copyStringToLower(name, name);
    }
    if (isIPAddress) return ofAddress(text, made->m_idn);
    if (parseDomain && made->domain().empty()) return {};
    return made;
}

// Kept for the daemons: what is valid and yet does not construct is no name.
Handle<HostNameImpl> HostNameReader::ofAddress(std::string_view text, std::string const& idn) {
    try {
        return {new HostNameImpl(IPAddress(std::string(text)).asString(true), idn, true), false};
    } catch (Exception const&) {
        return {};
    }
}

HostName HostNameReader::read(std::string_view text, bool parseDomain, bool strict) {
    HostName name;
    read(text, parseDomain, strict, name);
    return name;
}

void HostNameReader::read(std::string_view text, bool parseDomain, bool strict, HostName& name) {
    name.m_impl = impl(text, parseDomain, strict, std::move(name.m_impl));
}

bool HostNameReader::isValid(std::string_view text) {
    Traits const traits(text);
    if (text.size() >= 2 && traits.isPlainName() && !traits.mayBeIPAddress()) return !hasShortLastLabel(text);
    try {
        return static_cast<bool>(impl(text, false, true, {}));
    } catch (Exception const&) {
        return false;
    }
}

HostName::HostName(std::string const& text, bool parseDomain, bool strict)
    : m_impl(HostNameReader::impl(text, parseDomain, strict, {})) {}

// Apart, so that the question itself is inline.
[[noreturn, gnu::cold, gnu::noinline]] static void refuseNull(char const* operation) {
    fail(operation, NullHandle, Site{"Hostname", 0});
}

inline HostNameImpl const& HostName::value(char const* operation) const {
    if (!m_impl) refuseNull(operation);
    return *m_impl;
}

std::string const& HostName::asString() const {
    return value("asString").asString();
}

std::string const& HostName::idn() const {
    return value("idn").idn();
}

std::string const& HostName::host() const {
    return value("host").host();
}

std::string const& HostName::domain() const {
    return value("domain").domain();
}

bool HostName::isIPAddress() const {
    return value("isIPAddress").isIPAddress();
}

bool HostName::operator==(HostName const& other) const noexcept {
    if (m_impl == other.m_impl) return true;
    return m_impl && other.m_impl && m_impl->asString() == other.m_impl->asString();
}

bool HostName::operator<(HostName const& other) const noexcept {
    if (!m_impl || !other.m_impl) return !m_impl && other.m_impl;
    return m_impl->asString() < other.m_impl->asString();
}

bool HostName::isValidHostname(std::string const& text, bool parseDomain) {
    if (!parseDomain) return HostNameReader::isValid(text);
    try {
        return !HostName(text, parseDomain, true).isNull();
    } catch (Exception const&) {
        return false;
    }
}

bool HostName::isValidACharacter(char c) noexcept {
    return nameBytes.contains(c);
}

bool HostName::containsValidCharactersOnly(std::string const& text) {
    return isPlainName(text) || ::isValidUtf8(text.data(), text.size());
}

std::string HostName::aceToIDN(std::string const& text) {
    if (text.find('\0') != npos) return {};  // the IDN library would lose what follows it
    CodePoints ace(text);
    std::string result;
    for (std::span<std::uint32_t> rest = ace.all(); !rest.empty();) {
        auto const [label, separated] = takeLabel(rest);
        if (label.size() > longestLabel || !appendUnicode(label.data(), result)) return {};
        if (separated) result += '.';
    }
    return result;
}

}  // namespace Quillmark
