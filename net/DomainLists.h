#pragma once
// The top-level-domain lists of the present configuration, asked without a lock and without a copy.

#include <cstdint>
#include <string_view>

#include "include2/TopLevelDomain"

namespace Quillmark {

enum class DomainListKind : std::uint8_t { CountryCode, Generic, Internationalised };

/// One look at the lists. Make it where it is needed: it belongs to its thread, and sees the
/// configuration of the moment when it was made.
class DomainLists {
public:
    DomainLists() noexcept;

    /// True for a suffix of two labels in the list of country codes.
    bool hasCountryCode(std::string_view suffix) const;
    /// True for a label in the internationalised or the generic list.
    bool hasTopLevel(std::string_view label) const;

    /// Stands for the three lists as they are at this moment: what was found in them is good as long as
    /// this stays the same. 0 while one of them has yet to be read.
    static std::uint32_t state() noexcept;

    /// The list itself, read when it has to be.
    Handle<DomainNameList> list(DomainListKind kind) const;

    /// The list of one kind that a thread saw last; it holds a reference.
    struct Seen {
        std::uint64_t stamp;
        DomainNameList* list;
    };

private:
    bool has(DomainListKind kind, std::string_view suffix, std::uint32_t hash) const;
    DomainNameList* seenList(DomainListKind kind) const noexcept;

    std::uint32_t volatile const* m_area;  ///< null where there is no configuration area
    std::uint32_t m_generation;
    Seen const* m_seen;  ///< this thread's, by kind
};

}  // namespace Quillmark
