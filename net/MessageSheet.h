#pragma once
// What DNS messages are read on.

#include "foundation/Spares.h"
#include "include2/Resolver"
#include "net/Wipe.h"
#include "net/WireReader.h"

#include <array>
#include <cstddef>
#include <list>
#include <string>

namespace Quillmark {

/// Entries that messages gave back. To allocate one and its texts takes longer than to read it.
template <class Entry>
class SpareEntries {
public:
    /// Appends an entry like a new one.
    void take(std::list<Entry>& entries) {
        if (m_spare.empty()) {
            entries.emplace_back();
        } else {
            renew(m_spare.front());
            entries.splice(entries.end(), m_spare, m_spare.begin());
        }
    }
    void giveBack(std::list<Entry>& entries) noexcept { m_spare.splice(m_spare.begin(), entries); }

private:
    static void renew(ResolverMessage::Query& query) noexcept {
        query.name.clear();
        query.type = Resolver::TypeUnknown;
        query.recordClass = Resolver::ClassUnknown;
        query.dnsType = query.dnsClass = 0;
    }

    static void renew(ResolverMessage::Record& record) noexcept {
        static_assert(sizeof record == 5 * sizeof(std::string) + 48, "every field is dealt with here");
        record.name.clear();
        record.value.clear();
        record.mname.clear();
        record.rname.clear();
        record.rdata.clear();
        record.type = Resolver::TypeUnknown;
        record.recordClass = Resolver::ClassUnknown;
        record.ttl = record.mxRank = 0;
        record.serial = record.refresh = record.retry = record.expire = record.minimum = 0;
        record.dnsType = record.dnsClass = 0;
    }

    std::list<Entry> m_spare;  // never more than one message has
};

/// The bytes of one message, the reader over them, and entries of the messages that were read here before.
struct MessageSheet {
    static constexpr std::size_t size = 8192;
    static constexpr std::size_t longestSpareText = 512;  // longer ones are not worth their memory

    alignas(64) std::array<unsigned char, size + WireReader::slack> bytes{};  // the slack stays 0
    WireReader reader{{bytes.data(), size}};
    SpareEntries<ResolverMessage::Query> queries;
    SpareEntries<ResolverMessage::Record> records;

    /// Makes all but the entries like new.
    void clear() {
        wipe({bytes.data(), size});
        reader.restart();
    }
};

/// The sheets that a thread keeps for the messages that it reads next.
using SpareSheets = Spares<MessageSheet, 2>;

}  // namespace Quillmark
