#include "include2/UriSniffer"

#include <algorithm>
#include <atomic>
#include <boost/make_shared.hpp>
#include <mutex>
#include <string_view>

#include "foundation/ByteSet.h"
#include "include2/Exception"
#include "platform/quill_string.h"

namespace Quillmark {

namespace {

constexpr auto npos = std::string_view::npos;

constexpr ByteSet highBytes = ByteSet::range(0x80, 0xff);
constexpr ByteSet asciiUriBytes = alphanumericBytes | ByteSet{":/?#[]@$&'()*+,;=-._~%"};
constexpr ByteSet utf8UriBytes = asciiUriBytes | highBytes;
static_assert(!asciiUriBytes.contains('!') && !asciiUriBytes.contains(0x7f));  // both end a run

// One pass over the text; a run is a stretch of bytes that may stand in a URI. Hands over the runs that
// may be links, each with its dots counted (its colons, once past a "[").
template <class Found>
void forEachRun(std::string_view text, ByteSet const& uriBytes, Found found) {
    enum class State {
        Outside,    // between runs
        Run,        // in a run, counting its dots
        Bracketed,  // in a run and past a "[", counting its colons and looking for the "]"
        Broken,     // in a run that is no link any more, until it ends
    } state = State::Outside;
    std::size_t begin = 0;
    std::size_t count = 0;
    bool closed = false;
    for (std::size_t i = 0; i <= text.size(); ++i) {
        if (i == text.size() || !uriBytes.contains(text[i])) {  // a run, if any, ends here
            bool const link = state == State::Run || (state == State::Bracketed && closed);
            if (link && count != 0) found(text.substr(begin, i - begin), count);
            state = State::Outside;
            continue;
        }
        char const c = text[i];
        switch (state) {
        case State::Outside:
            if (c == '.') break;
            state = c == '[' ? State::Bracketed : State::Run;
            begin = i;
            count = 0;
            closed = false;
            break;
        case State::Run:
            if (c == '[') {
                state = State::Bracketed;
                count = 0;
            } else if (c == '.') {
                ++count;
                if (text[i - 1] == '.') state = State::Broken;
            }
            break;
        case State::Bracketed:
            if (c == '[' && count != 0) state = State::Broken;
            if (c == ':') ++count;
            if (c == ']') closed = true;
            break;
        case State::Broken: break;
        }
    }
}

// Where a text comes next in a run, asked from ever later places: each byte is searched once.
class NextPlace {
public:
    NextPlace(std::string_view run, std::string_view wanted)
        : m_run(run), m_wanted(wanted), m_place(run.find(wanted)) {}

    std::size_t from(std::size_t start) {
        if (m_place < start) m_place = m_run.find(m_wanted, start);
        return m_place;
    }

private:
    std::string_view m_run;
    std::string_view m_wanted;
    std::size_t m_place;
};

bool beginsWith(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() &&
           stringCompareNoCase(text.data(), prefix.data(), prefix.size()) == 0;
}

// Past the slashes at the front or, where there are none, past an "href" attribute's name.
std::size_t skipMarkup(std::string_view run, std::size_t at) {
    std::string_view const rest = run.substr(at);
    if (rest.substr(0, 1) == "/") return std::min(run.find_first_not_of('/', at), run.size());
    if (beginsWith(rest, "href")) return std::min(run.find_first_not_of('=', at + 4), run.size());
    return at;
}

std::string joined(std::string_view a, std::string_view b) {
    return std::string(a).append(b);
}

// The text of the link that a run stands for, or nothing. A link whose scheme was doubled is looked at
// again behind its first scheme: the loop moves on over the run and never goes back.
std::string linkIn(std::string_view run, std::size_t count, bool bareDomains) {
    NextPlace schemeMark(run, "://");
    NextPlace question(run, "?");
    std::size_t at = 0;
    for (;;) {
        at = skipMarkup(run, at);
        std::string_view const rest = run.substr(at);
        if (!beginsWith(rest, "http:/")) break;
        std::size_t const slashes = beginsWith(rest, "http://") ? 2 : 1;
        std::size_t const body = at + 5 + slashes;
        std::size_t const nextMark = schemeMark.from(body);
        bool const doubled = nextMark != npos && nextMark < question.from(body);
        if (!doubled) return joined(rest.substr(0, 5), "//").append(run.substr(body));
        at = body;
    }

    std::string_view const rest = run.substr(at);
    if (rest.empty()) return {};
    if (beginsWith(rest, "https://")) return std::string(rest);
    if (beginsWith(rest, "https:/")) return joined(rest.substr(0, 7), "/").append(rest.substr(7));
    if (beginsWith(rest, "mailto:")) return joined("mailto:", rest.substr(7));
    if (beginsWith(rest, "ftp://")) return std::string(rest);
    if (count < 2 && rest.back() == '.') return {};
    if (rest.find('@') != npos) {
        std::size_t const mailto = stringFindNoCase(std::string(rest), "mailto:");
        return joined("mailto:", mailto == npos ? rest : rest.substr(mailto + 7));
    }
    if (beginsWith(rest, "www.")) return joined("http://", rest);
    if (!bareDomains) return {};
    std::size_t const mark = schemeMark.from(at);
    if (mark == npos) return joined("http://", rest);
    return mark - at > 3 ? std::string() : joined("http", run.substr(mark));
}

void addLink(UriContainer& out, std::string const& text) {
    try {
        out.add(Uri(text), true);
    } catch (Exception const&) {
        // It was no link.
    }
}

void searchBytes(UriContainer& out, std::string_view text, bool bareDomains) {
    bool const utf8 = std::any_of(text.begin(), text.end(), [](char c) { return highBytes.contains(c); }) &&
                      isValidUtf8(text.data(), text.size());
    forEachRun(text, utf8 ? utf8UriBytes : asciiUriBytes, [&](std::string_view run, std::size_t count) {
        std::string const link = linkIn(run, count, bareDomains);
        if (!link.empty()) addLink(out, link);
    });
}

// The process-wide configuration. The level stands apart so that a search takes no lock.
std::mutex configLock;
boost::shared_ptr<UriSniffer::Config> config;
std::atomic<UriSniffer::Level> currentLevel{UriSniffer::Config::LevelLiberal};

}  // namespace

boost::shared_ptr<UriSniffer::Config> UriSniffer::Config::instance(Level level) {
    std::lock_guard const guard(configLock);
    if (config && level == LevelCurrent) return config;
    boost::shared_ptr<Config> fresh = boost::make_shared<Config>(level);
    currentLevel = level;
    config = fresh;
    return fresh;
}

void UriSniffer::search(UriContainer& out, std::string const& text, unsigned long length, bool liberal) {
    std::string_view const all = text;
    searchBytes(out, length == 0 ? all : all.substr(0, length),
                liberal || currentLevel == Config::LevelLiberal);
}

void UriSniffer::search(UriContainer& out, Buffer const& text, bool liberal) {
    std::string_view const all(reinterpret_cast<char const*>(text.data()), text.length());
    searchBytes(out, all, liberal || currentLevel == Config::LevelLiberal);
}

}  // namespace Quillmark
