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

#include "include2/Logger"
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

/// Names are short: eight bytes a step, then what is left as one word.
std::uint32_t hashOf(std::string_view name) {
    auto const mixed = [](std::uint64_t hash, std::uint64_t word) {
        hash = (hash ^ word) * 0x9e3779b97f4a7c15;
        return hash ^ (hash >> 32);
    };
    char const* at = name.data();
    std::size_t left = name.size();
    std::uint64_t hash = left;
    for (; left >= 8; at += 8, left -= 8) hash = mixed(hash, load<std::uint64_t>(at));
    if (left >= 4)
        hash = mixed(hash, load<std::uint32_t>(at) << 32 | load<std::uint32_t>(at + left - 4));
    else if (left > 0)
        hash = mixed(hash, load<std::uint8_t>(at) << 16 | load<std::uint8_t>(at + left / 2) << 8 |
                               load<std::uint8_t>(at + left - 1));
    return static_cast<std::uint32_t>(hash);
}

}  // namespace

DomainNameList::DomainNameList(std::string const& path, char const* fallback, char const* message) {
    File file = openToRead(path.c_str());
    if (!file) file = openToRead(::quill_path(fallback));
    if (!file || !readLines(file.get(), m_text))
        Logger::instance(false)->evt_log(EventException, "", "%s", message);

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

constexpr char const countryCodePath[] = "/var/spool/etc/antispam/cctld";
constexpr char const genericPath[] = "/var/spool/etc/antispam/gtld";
constexpr char const internationalisedPath[] = "/var/spool/etc/antispam/idntld";

/// The area's generation, and whether there is an area.
struct Generation {
    bool exists;
    std::uint32_t number;
};

Generation presentGeneration() {
    std::uint32_t volatile const* const area = __atomic_load_n(&nCfg_debug_zone, __ATOMIC_ACQUIRE);
    if (!area) return {false, 0};
    return {true, __atomic_load_n(area + QUILL_CFG_GENERATION_WORD, __ATOMIC_ACQUIRE)};
}

/// The list of one kind that this thread saw last; it holds a reference.
template <class List>
struct Seen {
    std::uint64_t stamp;
    List* list;
};
// Trivial, so that looking at it is a read and no call. What it holds is given back by Farewell.
template <class List>
constinit thread_local Seen<List> seen{};

constinit thread_local bool threadEnds = false;

struct Farewell {
    bool isNeeded = false;

    ~Farewell() {
        threadEnds = true;
        giveBack(seen<DomainNameCountryCodeContainer>);
        giveBack(seen<DomainNameGenericCodeContainer>);
        giveBack(seen<DomainNameInternationalDomainNameCodeContainer>);
    }
    template <class List>
    static void giveBack(Seen<List>& last) {
        if (last.list) last.list->release();
        last = {};
    }
};
thread_local Farewell farewell;

/// What all threads share about one kind of list. Never destroyed: daemons end with threads running.
template <class List>
class Published {
public:
    static bool contains(std::string_view name) {
        Generation const generation = presentGeneration();
        if (!generation.exists) return unchanging().contains(name);
        if (List const* const list = seenLast(generation)) return list->contains(name);
        return instance().present()->contains(name);
    }

    static Ref<List> current() {
        Generation const generation = presentGeneration();
        if (!generation.exists) return {&unchanging(), true};
        if (List* const list = seenLast(generation)) return {list, true};
        return {instance().present().get(), true};
    }

private:
    Published() = default;

    static Published& instance() {
        static Published& only = *new Published;
        return only;
    }

    /// Where there is no configuration area, the list is read once.
    static List& unchanging() {
        static List& only = *new List(::quill_path(path));
        return only;
    }

    static List* seenLast(Generation generation) {
        Seen<List> const& last = seen<List>;
        bool const isPresent = last.list && last.stamp == s_stamp.load(std::memory_order_acquire) &&
                               static_cast<std::uint32_t>(last.stamp) == generation.number;
        return isPresent ? last.list : nullptr;
    }

    Handle<List> present() {
        Synchronized const guard(m_lock);
        std::uint32_t const generation = presentGeneration().number;  // before the file is opened
        std::uint64_t stamp = s_stamp.load(std::memory_order_relaxed);
        if (!m_slots[m_index] || static_cast<std::uint32_t>(stamp) != generation) {
            Handle<List> fresh(new List(::quill_path(path)), false);
            m_index = 1 - m_index;
            m_slots[m_index] = std::move(fresh);
            stamp = ((stamp >> 32) + 1) << 32 | generation;
            s_stamp.store(stamp, std::memory_order_release);
        }
        remember(stamp);
        return m_slots[m_index];
    }

    void remember(std::uint64_t stamp) const {
        if (threadEnds) return;
        farewell.isNeeded = true;
        Handle<List> const list(m_slots[m_index]);
        Farewell::giveBack(seen<List>);
        list->addReference();
        seen<List> = {stamp, list.get()};
    }

    static char const* const path;
    /// How many lists were published, in the upper half, and the generation of the present one.
    static inline constinit std::atomic<std::uint64_t> s_stamp{0};

    Mutex m_lock;
    Handle<List> m_slots[2];  ///< the present list and the one before it
    unsigned int m_index = 0;
};

template <>
char const* const Published<DomainNameCountryCodeContainer>::path = countryCodePath;
template <>
char const* const Published<DomainNameGenericCodeContainer>::path = genericPath;
template <>
char const* const Published<DomainNameInternationalDomainNameCodeContainer>::path = internationalisedPath;

}  // namespace

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
    return Published<DomainNameCountryCodeContainer>::current();
}

Ref<DomainNameGenericCodeContainer> DomainNameGenericCodeContainer::instance() {
    return Published<DomainNameGenericCodeContainer>::current();
}

Ref<DomainNameInternationalDomainNameCodeContainer>
DomainNameInternationalDomainNameCodeContainer::instance() {
    return Published<DomainNameInternationalDomainNameCodeContainer>::current();
}

bool isCountryCodeSuffix(std::string_view name) {
    return Published<DomainNameCountryCodeContainer>::contains(name);
}

bool isGenericSuffix(std::string_view name) {
    return Published<DomainNameGenericCodeContainer>::contains(name);
}

bool isInternationalisedSuffix(std::string_view name) {
    return Published<DomainNameInternationalDomainNameCodeContainer>::contains(name);
}

}  // namespace Quillmark
