#include "include2/UriSniffer"

#include <algorithm>
#include <array>
#include <atomic>
#include <boost/make_shared.hpp>
#include <cstdint>
#include <cstring>
#include <limits>
#include <mutex>
#include <string>
#include <string_view>

#include "foundation/ByteSet.h"
#include "include2/Exception"
#include "platform/quill_string.h"
#include "uri/LinkScan.h"

namespace Quillmark {

namespace {

constexpr auto npos = std::string_view::npos;

static_assert(!asciiUriBytes.contains('!') && !asciiUriBytes.contains(0x7f));  // both end a run

bool isHigh(char c) noexcept {
    return static_cast<unsigned char>(c) >= 0x80;
}

// What makes a run a possible link: how many dots it has or, past a "[", how many colons, if a "]" is
// there as well. 0 for a run that is none, as any with two dots side by side.
std::size_t countOf(LinkRun const& found, std::string_view run) {
    if (found.doubledDot) return 0;
    if (!found.bracketed) return found.dots;
    std::size_t colons = 0;
    bool closed = false;
    for (char const c : run.substr(run.find('[') + 1)) {
        if (c == '[' && colons != 0) return 0;
        if (c == ':') ++colons;
        if (c == ']') closed = true;
    }
    return closed ? colons : 0;
}

// Cuts the text into runs, stretches of bytes that may stand in a URI, and hands over the runs that may be
// links, each with its count. It goes from mark to mark, and looks for the two ends of a run only there.
template <class Found>
void forEachRun(std::string_view text, Found found) {
    static LinkScan const& scan = bestKernel(linkScans());
    HighBytes highBytes = HighBytes::Unseen;
    for (std::size_t from = 0; from < text.size();) {
        std::size_t const mark = scan.nextMark(text, from, highBytes);
        if (mark == text.size()) return;
        LinkRun const place = scan.runAt(text, from, mark, highBytes);
        if (highBytes == HighBytes::Unseen && place.end < text.size() && isHigh(text[place.end])) {
            highBytes = isValidUtf8(text.data(), text.size()) ? HighBytes::InLinks : HighBytes::Foreign;
            continue;  // and look again: the run may go on behind this byte
        }
        std::string_view const run = text.substr(place.begin, place.end - place.begin);
        if (std::size_t const count = countOf(place, run); count != 0) found(run, count);
        from = place.end;  // the mark is in its run
    }
}

// Where a text comes next in a run, asked from ever later places: each byte is searched once.
class NextPlace {
public:
    NextPlace(std::string_view run, std::string_view wanted) : m_run(run), m_wanted(wanted) {}

    std::size_t from(std::size_t start) {
        if (!m_searched || m_place < start) m_place = m_run.find(m_wanted, start);
        m_searched = true;
        return m_place;
    }

private:
    std::string_view m_run;
    std::string_view m_wanted;
    std::size_t m_place = 0;
    bool m_searched = false;
};

constexpr char lower(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// The prefix in lower case.
constexpr bool beginsWith(std::string_view text, std::string_view prefix) noexcept {
    if (text.size() < prefix.size()) return false;
    for (std::size_t i = 0; i < prefix.size(); ++i)
        if (lower(text[i]) != prefix[i]) return false;
    return true;
}

// Past the slashes at the front or, where there are none, past an "href" attribute's name.
std::size_t skipMarkup(std::string_view run, std::size_t at) {
    std::string_view const rest = run.substr(at);
    if (rest.substr(0, 1) == "/") return std::min(run.find_first_not_of('/', at), run.size());
    if (beginsWith(rest, "href")) return std::min(run.find_first_not_of('=', at + 4), run.size());
    return at;
}

// The text behind the first "mailto:", or all of it.
std::string_view pastMailto(std::string_view text) {
    constexpr std::string_view mailto = "mailto:";
    for (std::size_t colon = text.find(':'); colon != npos; colon = text.find(':', colon + 1)) {
        if (colon + 1 >= mailto.size() && beginsWith(text.substr(colon + 1 - mailto.size()), mailto))
            return text.substr(colon + 1);
    }
    return text;
}

// Reads links out of runs.
class LinkReader {
public:
    explicit LinkReader(bool bareDomains) noexcept : m_bareDomains(bareDomains) {}

    std::string_view linkIn(std::string_view run, std::size_t count);

private:
    std::string_view joined(std::string_view a, std::string_view b, std::string_view c = {}) {
        return (m_text = a).append(b).append(c);
    }

    bool m_bareDomains;
    std::string m_text;  ///< that of the last link, where it is not as it stands in its run
};

// The text of the link that a run stands for, or nothing; good until the next call. A link whose scheme was
// doubled is looked at again behind its first scheme: the loop moves on over the run and never goes back.
std::string_view LinkReader::linkIn(std::string_view run, std::size_t count) {
    NextPlace schemeMark(run, "://");
    NextPlace question(run, "?");
    std::size_t at = 0;
    for (;;) {
        at = skipMarkup(run, at);
        std::string_view const rest = run.substr(at);
        if (!beginsWith(rest, "http:/")) break;
        bool const whole = beginsWith(rest, "http://");
        std::size_t const body = at + (whole ? 7 : 6);
        std::size_t const nextMark = schemeMark.from(body);
        bool const doubled = nextMark != npos && nextMark < question.from(body);
        if (!doubled) return whole ? rest : joined(rest.substr(0, 5), "//", run.substr(body));
        at = body;
    }

    std::string_view const rest = run.substr(at);  // never empty: no markup has a dot or a colon
    if (beginsWith(rest, "https://")) return rest;
    if (beginsWith(rest, "https:/")) return joined(rest.substr(0, 7), "/", rest.substr(7));
    if (beginsWith(rest, "mailto:")) return joined("mailto:", rest.substr(7));
    if (beginsWith(rest, "ftp://")) return rest;
    if (count < 2 && rest.back() == '.') return {};
    if (rest.find('@') != npos) return joined("mailto:", pastMailto(rest));
    if (beginsWith(rest, "www.")) return joined("http://", rest);
    if (!m_bareDomains) return {};
    std::size_t const mark = schemeMark.from(at);
    if (mark == npos) return joined("http://", rest);
    return mark - at > 3 ? std::string_view() : joined("http", run.substr(mark));
}

// Remembers some of the runs that were met, so that a link that stands in a message many times is made
// once. Who meets another run in its place takes the place over: no choice of runs makes this slow.
class RecentRuns {
public:
    /// False for a run that is remembered. A new one is remembered from now on; it must stay where it is.
    bool isNew(std::string_view run) noexcept {
        std::string_view& place = m_runs[hash(run) >> (64 - placesBits)];
        if (place == run) return false;
        place = run;
        return true;
    }

private:
    static constexpr unsigned placesBits = 8;

    static std::uint64_t hash(std::string_view run) noexcept {
        std::uint64_t hash = run.size();
        if (run.size() < 8) return mixed(hash, run.data(), run.size());
        char const* const last = run.data() + run.size() - 8;
        for (char const* at = run.data(); at < last; at += 8) hash = mixed(hash, at, 8);
        return mixed(hash, last, 8);
    }
    static std::uint64_t mixed(std::uint64_t hash, char const* bytes, std::size_t size) noexcept {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes, size);
        hash = (hash ^ word) * 0x9e3779b97f4a7c15;
        return hash ^ hash >> 32;
    }

    std::array<std::string_view, std::size_t{1} << placesBits> m_runs{};
};

void addLink(UriContainerImpl& out, std::string_view text) {
    try {
        bool const isShort = text.size() <= std::numeric_limits<unsigned int>::max();
        out.add(isShort ? Uri(text.data(), static_cast<unsigned int>(text.size())) : Uri(std::string(text)),
                true);
    } catch (Exception const&) {
        // It was no link.
    }
}

void searchBytes(UriContainerImpl& out, std::string_view text, bool bareDomains) {
    LinkReader reader(bareDomains);
    RecentRuns recent;
    forEachRun(text, [&](std::string_view run, std::size_t count) {
        if (!recent.isNew(run)) return;
        std::string_view const link = reader.linkIn(run, count);
        if (!link.empty()) addLink(out, link);
    });
}

// The process-wide configuration. The level stands apart so that a search takes no lock.
std::mutex configLock;
std::atomic<UriSniffer::Level> currentLevel{UriSniffer::Config::LevelLiberal};

}  // namespace

boost::shared_ptr<UriSniffer::Config> UriSniffer::Config::instance(Level level) {
    static auto& config =
        *new boost::shared_ptr<Config>;  // never destroyed: daemons end with threads running
    std::lock_guard const guard(configLock);
    if (config && level == LevelCurrent) return config;
    boost::shared_ptr<Config> fresh = boost::make_shared<Config>(level);
    currentLevel = level;
    config = fresh;
    return fresh;
}

void UriSniffer::search(UriContainer& out, std::string const& text, unsigned long length, bool liberal) {
    std::string_view const all = text;
    searchBytes(*out.m_impl, length == 0 ? all : all.substr(0, length),
                liberal || currentLevel == Config::LevelLiberal);
}

void UriSniffer::search(UriContainer& out, Buffer const& text, bool liberal) {
    std::string_view const all(reinterpret_cast<char const*>(text.data()), text.length());
    searchBytes(*out.m_impl, all, liberal || currentLevel == Config::LevelLiberal);
}

}  // namespace Quillmark
