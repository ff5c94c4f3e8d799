// Names are looked up all day and the lists change once in a while. So each thread keeps a reference of
// its own to the list that it saw last, with the stamp under which that list was published: as long as
// nothing changed, a look-up reads two words that all threads share and writes none.

#include "include2/TopLevelDomain"

#include <atomic>
#include <bit>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include "foundation/ThreadEnd.h"
#include "foundation/TryToLog.h"
#include "include2/QuillThread"
#include "net/DomainLists.h"
#include "platform/quill_cfg.h"

namespace Quillmark {

namespace {

constexpr std::size_t longestLine = 127;

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

File openToRead(char const* path) {
    return {std::fopen(path, "re"), &std::fclose};
}

/// Appends whole lines, the last of which may lack its line feed.
/// @return false when a line is too long or cannot be read: the lines before it are there
bool readLines(std::FILE* file, std::string& text) {
    char piece[4096];
    std::size_t line = 0;  // where the last line begins
    while (std::size_t const got = std::fread(piece, 1, sizeof piece, file)) {
        text.append(piece, got);
        bool ended = true;
        while (ended) {
            std::size_t const feed = text.find('\n', line);
            ended = feed != std::string::npos;
            std::size_t const end = ended ? feed : text.size();
            if (end - line > longestLine) {
                text.resize(line);
                return false;
            }
            if (ended) line = feed + 1;
        }
    }
    if (!std::ferror(file)) return true;
    text.resize(line);
    return false;
}

/// Takes the first line off a text.
std::string_view takeLine(std::string_view& text) {
    std::size_t const feed = text.find('\n');
    std::string_view const line = text.substr(0, feed);
    text.remove_prefix(feed == std::string_view::npos ? text.size() : feed + 1);
    return line;
}

template <class Word>
std::uint64_t load(char const* at) {
    Word word;
    std::memcpy(&word, at, sizeof word);
    return word;
}

std::uint64_t mixed(std::uint64_t hash, std::uint64_t word) {
    hash = (hash ^ word) * 0x9e3779b97f4a7c15;
    return hash ^ (hash >> 32);
}

/// Names are short: their first and their last bytes cover them, whatever overlaps. Longer ones go by steps
/// of eight bytes.
std::uint32_t hashOf(std::string_view name) {
    char const* at = name.data();
    std::size_t left = name.size();
    std::uint64_t hash = left;
    for (; left > 16; at += 8, left -= 8) hash = mixed(hash, load<std::uint64_t>(at));
    if (left >= 8) {
        hash = mixed(mixed(hash, load<std::uint64_t>(at)), load<std::uint64_t>(at + left - 8));
    } else if (left >= 4) {
        hash = mixed(hash, load<std::uint32_t>(at) << 32 | load<std::uint32_t>(at + left - 4));
    } else if (left > 0) {
        hash = mixed(hash, load<std::uint8_t>(at) << 16 | load<std::uint8_t>(at + left / 2) << 8 |
                               load<std::uint8_t>(at + left - 1));
    }
    return static_cast<std::uint32_t>(hash);
}

}  // namespace

DomainNameList::DomainNameList(std::string const& path, char const* fallback, char const* message) {
    File file = openToRead(path.c_str());
    if (!file) file = openToRead(::quill_path(fallback));
    if (!file || !readLines(file.get(), m_text)) tryToLog(EventException, "", "%s", message);

    std::size_t lines = 0;
    for (std::string_view rest = m_text; !rest.empty(); takeLine(rest)) ++lines;
    m_places.resize(std::bit_ceil(2 * lines + 1));
    for (std::string_view rest = m_text; !rest.empty();) {
        std::string_view const name = takeLine(rest);
        std::uint32_t const hash = hashOf(name);
        Place& place = m_places[placeOf(name, hash)];
        place = {name.data(), hash, static_cast<std::uint32_t>(name.size())};
    }
}

DomainNameList::~DomainNameList() = default;

std::size_t DomainNameList::placeOf(std::string_view name, std::uint32_t hash) const noexcept {
    std::size_t const mask = m_places.size() - 1;
    std::size_t at = hash & mask;
    for (; m_places[at].text; at = (at + 1) & mask) {
        Place const& place = m_places[at];
        if (place.hash == hash && name == std::string_view(place.text, place.length)) break;
    }
    return at;
}

bool DomainNameList::contains(std::string_view name) const noexcept {
    return name.size() <= longestLine && m_places[placeOf(name, hashOf(name))].text;
}

namespace {

constexpr std::size_t kinds = 3;

std::size_t numberOf(DomainListKind kind) {
    return static_cast<std::size_t>(kind);
}

template <class List>
Handle<DomainNameList> read(char const* path) {
    return {new List(::quill_path(path)), false};
}

Handle<DomainNameList> read(DomainListKind kind) {
    switch (kind) {
    case DomainListKind::CountryCode:
        return read<DomainNameCountryCodeContainer>("/var/spool/etc/antispam/cctld");
    case DomainListKind::Generic: return read<DomainNameGenericCodeContainer>("/var/spool/etc/antispam/gtld");
    case DomainListKind::Internationalised: break;
    }
    return read<DomainNameInternationalDomainNameCodeContainer>("/var/spool/etc/antispam/idntld");
}

/// The kind's list where there is no configuration area: read once, never destroyed.
template <DomainListKind kind>
Handle<DomainNameList> const& unchanging() {
    static auto const& only = *new Handle<DomainNameList>(read(kind));
    return only;
}

Handle<DomainNameList> const& unchanging(DomainListKind kind) {
    switch (kind) {
    case DomainListKind::CountryCode: return unchanging<DomainListKind::CountryCode>();
    case DomainListKind::Generic: return unchanging<DomainListKind::Generic>();
    case DomainListKind::Internationalised: break;
    }
    return unchanging<DomainListKind::Internationalised>();
}

/// The lists that a thread saw last.
struct LastSeen : EndsWithThread {
    DomainLists::Seen of[kinds];
};
// Looking at it is a read and no call.
[[gnu::tls_model("initial-exec")]] constinit thread_local LastSeen lastSeen{};

void forget(EndsWithThread& ending) noexcept {
    for (DomainLists::Seen& last : static_cast<LastSeen&>(ending).of) {
        if (last.list) last.list->release();
        last = {};
    }
}

/// For each kind, how many lists were published, in the upper half, and the generation of the present one.
constinit std::atomic<std::uint64_t> stamps[kinds] = {};

std::uint32_t generationOf(std::uint64_t stamp) {
    return static_cast<std::uint32_t>(stamp);
}

std::uint32_t generationOf(std::uint32_t volatile const* area) {
    return __atomic_load_n(area + QUILL_CFG_GENERATION_WORD, __ATOMIC_ACQUIRE);
}

/// What all threads share about one kind of list.
class Published {
public:
    /// The present list, read when it has to be and remembered for this thread.
    Handle<DomainNameList> list(DomainListKind kind, std::uint32_t volatile const* area) {
        std::atomic<std::uint64_t>& shared = stamps[numberOf(kind)];
        Synchronized const guard(m_lock);
        std::uint64_t stamp = shared.load(std::memory_order_relaxed);
        std::uint32_t const generation = generationOf(area);  // before the file is opened
        if (!m_slots[m_index] || generationOf(stamp) != generation) {
            Handle<DomainNameList> fresh = read(kind);
            m_index = 1 - m_index;
            m_slots[m_index] = std::move(fresh);
            stamp = ((stamp >> 32) + 1) << 32 | generation;
            shared.store(stamp, std::memory_order_release);
        }
        Handle<DomainNameList> list = m_slots[m_index];
        if (ThreadEnd::note(lastSeen, forget)) {
            DomainLists::Seen& last = lastSeen.of[numberOf(kind)];
            if (last.list) last.list->release();
            list->addReference();
            last = {stamp, list.get()};
        }
        return list;
    }

private:
    Mutex m_lock;
    Handle<DomainNameList> m_slots[2];  ///< the present list and the one before it
    unsigned int m_index = 0;
};

Published& published(DomainListKind kind) {
    static Published* const all = new Published[kinds];  // never destroyed: daemons end with threads running
    return all[numberOf(kind)];
}

template <class List>
Ref<List> present(DomainListKind kind) {
    return {static_cast<List*>(DomainLists().list(kind).get()), true};
}

}  // namespace

DomainLists::DomainLists() noexcept
    : m_area(__atomic_load_n(&nCfg_debug_zone, __ATOMIC_ACQUIRE)),
      m_generation(m_area ? generationOf(m_area) : 0),
      m_seen(lastSeen.of) {}

DomainNameList* DomainLists::seenList(DomainListKind kind) const noexcept {
    Seen const& last = m_seen[numberOf(kind)];
    bool const isPresent = last.list && generationOf(last.stamp) == m_generation &&
                           last.stamp == stamps[numberOf(kind)].load(std::memory_order_acquire);
    return isPresent ? last.list : nullptr;
}

std::uint32_t DomainLists::state() noexcept {
    std::uint32_t published = 1;  // which alone stands for the lists that never change
    std::uint32_t volatile const* const area = __atomic_load_n(&nCfg_debug_zone, __ATOMIC_ACQUIRE);
    if (!area) return published;
    std::uint32_t const generation = generationOf(area);
    for (auto const& shared : stamps) {
        std::uint64_t const stamp = shared.load(std::memory_order_acquire);
        auto const times = static_cast<std::uint32_t>(stamp >> 32);
        if (times == 0 || generationOf(stamp) != generation) return 0;
        published += times;
    }
    return published;
}

bool DomainLists::has(DomainListKind kind, std::string_view suffix, std::uint32_t hash) const {
    auto const holds = [&](DomainNameList const& list) {
        return suffix.size() <= longestLine && list.m_places[list.placeOf(suffix, hash)].text;
    };
    if (!m_area) return holds(*unchanging(kind));
    if (DomainNameList const* const list = seenList(kind)) return holds(*list);
    return holds(*published(kind).list(kind, m_area));
}

bool DomainLists::hasCountryCode(std::string_view suffix) const {
    return has(DomainListKind::CountryCode, suffix, hashOf(suffix));
}

bool DomainLists::hasTopLevel(std::string_view label) const {
    std::uint32_t const hash = hashOf(label);
    return has(DomainListKind::Internationalised, label, hash) || has(DomainListKind::Generic, label, hash);
}

Handle<DomainNameList> DomainLists::list(DomainListKind kind) const {
    if (!m_area) return unchanging(kind);
    if (DomainNameList* const list = seenList(kind)) return {list, true};
    return published(kind).list(kind, m_area);
}

DomainNameCountryCodeContainer::DomainNameCountryCodeContainer(std::string const& path)
    : DomainNameList(path, "/etc/cctld",
                     "DomainNameCountryCodeContainer: Could not open TopLevelDomain file") {}

DomainNameGenericCodeContainer::DomainNameGenericCodeContainer(std::string const& path)
    : DomainNameList(path, "/etc/gtld",
                     "DomainNameGenericCodeContainer: Could not open TopLevelDomain file") {}

// Kept for log readers: the message names the list of country codes.
DomainNameInternationalDomainNameCodeContainer::DomainNameInternationalDomainNameCodeContainer(
    std::string const& path)
    : DomainNameList(path, "/etc/idntld",
                     "DomainNameCountryCodeContainer: Could not open TopLevelDomain file") {}

Ref<DomainNameCountryCodeContainer> DomainNameCountryCodeContainer::instance() {
    return present<DomainNameCountryCodeContainer>(DomainListKind::CountryCode);
}

Ref<DomainNameGenericCodeContainer> DomainNameGenericCodeContainer::instance() {
    return present<DomainNameGenericCodeContainer>(DomainListKind::Generic);
}

Ref<DomainNameInternationalDomainNameCodeContainer>
DomainNameInternationalDomainNameCodeContainer::instance() {
    return present<DomainNameInternationalDomainNameCodeContainer>(DomainListKind::Internationalised);
}

}  // namespace Quillmark
