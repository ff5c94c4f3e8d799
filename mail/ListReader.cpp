// parseRfc5322 reads an address from its right end: the domain up to the last "@", the local part up to a
// blank or a "<", and what is left is the name. Here the tokens come from the left, so each "@" might be
// the last one, and what stands before it is remembered: where the local part begins and the name ends.
// What the last token is, and with it what the "<" and the blanks mean, is known only at the end.

#include "mail/ListReader.h"

#include <algorithm>
#include <utility>

#include "mail/AddressMaker.h"
#include "mail/DomainPart.h"

namespace Quillmark {

namespace {

bool isBlank(Symbol symbol) noexcept {
    return symbol == Blank || symbol == LineEnd;
}

// Only specials are compared with the separator, so nothing else can be one.
char separatorByte(std::string_view separator) noexcept {
    Rfc822Scan scan(separator);
    bool const special = separator.size() == 1 && scan.next() && scan.symbol() != Word;
    return special ? separator.front() : '\0';
}

}  // namespace

// This token cannot be in a local part, which begins anew behind it.
void ListReader::Segment::beginLocal(std::size_t end, bool fails) noexcept {
    local = {end, end};
    nameEnd = end - 1;
    localFails = fails;
    afterBlank = false;
}

void ListReader::Segment::take(Symbol symbol, Range token) noexcept {
    empty = false;
    if (symbol != Blank) onlyBlanks = false;
    if (symbol == Blank) {
        blank = token.end;
    } else if (symbol == '.') {
        blankBeforeDot = blank;
    } else {
        last = symbol;
        lastRange = token;
        blank = blankBeforeDot = 0;
        stopsBeforeLast = stops;
    }

    switch (symbol) {
    case Blank:
    case LineEnd: afterBlank = true; return;
    case '<':
        stops.leftAngle = token.end;
        beginLocal(token.end, false);
        return;
    case '@':
        stops.at = token.end;
        stops.local = local;
        stops.nameEnd = nameEnd;
        stops.localFails = localFails;
        beginLocal(token.end, true);
        return;
    case ':':
        stops.fault = token.end;
        beginLocal(token.end, true);
        return;
    case ';':
    case '\\': stops.fault = token.end; break;
    default: break;
    }

    if (afterBlank) {
        local = token;
        nameEnd = token.begin;
        localFails = afterBlank = false;
    } else {
        if (local.empty()) local.begin = token.begin;
        local.end = token.end;
    }
    if (symbol == '>' || symbol == ';' || symbol == '\\') localFails = true;
}

ListReader::ListReader(std::string_view text, bool lowerLocal, std::string_view separator)
    : m_text(text), m_lowerLocal(lowerLocal), m_separator(separatorByte(separator)) {
    Rfc822Scan scan(text);
    while (scan.next()) {
        m_more = true;
        take(scan);
    }
    if (scan.failed()) m_more = false;
}

void ListReader::take(Rfc822Scan const& token) {
    // Blanks in front of everything count for nothing, not even as separators.
    if (token.symbol() == Blank && m_segment.begin == 0 && m_segment.empty) return;
    char const first = m_text[token.begin()];
    if (first == ',' || (m_separator != '\0' && first == m_separator)) {
        m_separators.push_back(token.begin());
        m_segment = Segment(token.end());
    } else {
        m_segment.take(token.symbol(), {token.begin(), token.end()});
    }
}

ListReader::Edge ListReader::leftEdge() const noexcept {
    if (m_separators.empty()) return Edge::Start;
    return m_text[m_separators.back()] == m_separator ? Edge::Separator : Edge::Comma;
}

// Reads the segment to the left, whose tokens are known to be whole.
void ListReader::moveLeft() {
    if (m_separators.empty()) {
        m_more = false;
        return;
    }
    std::size_t const end = m_separators.back();
    m_separators.pop_back();
    m_segment = Segment(m_separators.empty() ? 0 : m_separators.back() + 1);
    for (Rfc822Scan scan(m_text.substr(0, end), m_segment.begin); scan.next();) take(scan);
}

EmailAddress ListReader::next() {
    bool const blankSeparates = m_separator == ' ' || m_separator == '\t';
    while (m_more) {
        // Nor do blanks at the end separate anything.
        while (blankSeparates && m_segment.onlyBlanks && leftEdge() == Edge::Separator) moveLeft();

        // Commas with nothing to their right are dropped. The blanks to their left are not.
        bool fresh = true;
        for (; m_segment.isNothing(fresh) && leftEdge() == Edge::Comma; fresh = false) moveLeft();
        bool const nothing = m_segment.isNothing(fresh) && leftEdge() == Edge::Separator;
        EmailAddress found = nothing ? EmailAddress() : address(fresh);

        // Behind a good address the separators that stand side by side go all at once.
        moveLeft();
        if (nothing || !found.isNull())
            while (m_more && m_segment.empty && !m_separators.empty()) moveLeft();
        if (m_segment.empty && m_separators.empty()) m_more = false;
        if (!found.isNull()) return found;
    }
    return {};
}

// Appends the tokens that a local part or a domain consists of.
LocalPartCheck ListReader::join(Range range, std::string& out) const {
    LocalPartCheck check;
    for (Rfc822Scan scan(m_text.substr(0, range.end), range.begin); scan.next();) {
        Symbol const symbol = scan.symbol();
        if (isBlank(symbol) || symbol == '<' || symbol == '>') continue;
        out += scan.text();
        check.take(symbol);
    }
    return check;
}

// All tokens as written, but for the blanks around them; a line end in front stays.
std::string ListReader::name(Range range) const {
    std::string text;
    std::size_t length = 0;  // without the blanks at the end
    for (Rfc822Scan scan(m_text.substr(0, range.end), range.begin); scan.next();) {
        if (scan.symbol() == Blank && text.empty()) continue;
        text += scan.text();
        if (!isBlank(scan.symbol())) length = text.size();
    }
    text.resize(length);
    return text;
}

EmailAddress ListReader::address(bool fresh) const {
    Segment const& segment = m_segment;
    std::size_t const blank = fresh ? segment.blankBeforeDot : segment.blank;
    // A blank that is not dropped is the last token; it hides what stands before it.
    Symbol const last = blank != 0 ? Blank : segment.last;
    if (last == ':' || last == Quoted) return {};

    Stops const& stops = blank != 0 ? segment.stops : segment.stopsBeforeLast;
    std::size_t const leftAngle = last == '>' ? stops.leftAngle : 0;
    std::size_t const stop = std::max({stops.at, leftAngle, stops.fault});
    if (stop == 0 && leftEdge() == Edge::Comma) return {};
    if (stop != 0 && stop == stops.fault) return {};
    bool const hasAt = stop != 0 && stop == stops.at;
    if (hasAt && stops.localFails) return {};

    std::string local, domain;
    LocalPartCheck check;
    Range tail{stop != 0 ? stop : segment.begin, blank != 0 ? blank - 1 : segment.lastRange.begin};
    LocalPartCheck tailCheck = join(tail, domain);
    if (last != Blank && last != '>') {
        domain += m_text.substr(segment.lastRange.begin, segment.lastRange.end - segment.lastRange.begin);
        tailCheck.take(last);
    }
    if (hasAt) check = join(stops.local, local);
    if (local.empty()) {  // no "@", or nothing before it
        local.swap(domain);
        check = tailCheck;
    }
    if (!local.empty() && !check.valid()) return {};
    if (!domain.empty() && !isValidDomainPart(domain)) return {};

    std::string const name = stop != 0 ? this->name({segment.begin, hasAt ? stops.nameEnd : stop - 1}) : "";
    std::size_t const sign = local.size();
    if (!domain.empty()) (local += '@') += domain;
    return AddressMaker::make(AddressMaker::lowered(local, sign, m_lowerLocal), sign, name);
}

}  // namespace Quillmark
