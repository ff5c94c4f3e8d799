#include "include2/Resolver"

#include "foundation/AddressText.h"
#include "foundation/Caught.h"
#include "foundation/Fail.h"
#include "net/WireReader.h"

#include <arpa/inet.h>
#include <netdb.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <tuple>
#include <unordered_set>
#include <utility>

namespace Quillmark {

namespace {

using Query = ResolverMessage::Query;
using Record = ResolverMessage::Record;

constexpr Site here{"Resolver", 0};

constexpr int largestMessage = 8192;
constexpr std::size_t headerSize = 12;
constexpr unsigned char authoritative = 0x04;  // bits of the header's third byte
constexpr unsigned char truncated = 0x02;

std::string v4Text(std::string_view bytes) {
    std::array<char, longestDottedQuad + 1> text;
    return {text.data(), writeDottedQuad(reinterpret_cast<std::uint8_t const*>(bytes.data()), text.data())};
}

std::string v6Text(std::string_view bytes) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    // The system writes some addresses that begin with zeros with a dotted quad.
    if (bytes[0] == '\0' && bytes[1] == '\0') {
        ::inet_ntop(AF_INET6, bytes.data(), text.data(), text.size());
        return text.data();
    }
    return {text.data(), writeGroups(reinterpret_cast<std::uint8_t const*>(bytes.data()), text.data())};
}

/// Records that messages gave back, for those that the thread parses next: to allocate a record and its
/// texts takes longer than to read it.
class SpareRecords {
public:
    SpareRecords() noexcept = default;
    SpareRecords(SpareRecords const&) = delete;
    SpareRecords& operator=(SpareRecords const&) = delete;
    ~SpareRecords() { s_threadEnds = true; }

    /// Null at the end of a thread, when others still destroy their messages.
    static SpareRecords* ofThread() {
        thread_local SpareRecords spare;
        return s_threadEnds ? nullptr : &spare;
    }

    /// Appends a record that is like a new one, if there is any.
    bool take(std::list<Record>& records) noexcept {
        if (m_records.empty()) return false;
        records.splice(records.end(), m_records, m_records.begin());
        return true;
    }

    void giveBack(std::list<Record>& records) noexcept {
        while (!records.empty() && m_records.size() < most) {
            renew(records.front());
            m_records.splice(m_records.begin(), records, records.begin());
        }
    }

private:
    static constexpr std::size_t most = 512;
    static constexpr std::size_t longestText = 256;  // that is worth to be kept

    static void renew(std::string& text) noexcept {
        if (text.capacity() > longestText)
            std::string().swap(text);
        else
            text.clear();
    }

    static void renew(Record& record) noexcept {
        static_assert(sizeof(Record) == 5 * sizeof(std::string) + 48, "every field is dealt with here");
        renew(record.name);
        renew(record.value);
        renew(record.mname);
        renew(record.rname);
        renew(record.rdata);
        record.type = Resolver::TypeUnknown;
        record.recordClass = Resolver::ClassUnknown;
        for (auto const number : {&Record::ttl, &Record::mxRank, &Record::serial, &Record::refresh,
                                  &Record::retry, &Record::expire, &Record::minimum})
            record.*number = 0;
        record.dnsType = record.dnsClass = 0;
    }

    static thread_local constinit bool s_threadEnds;

    std::list<Record> m_records;
};

thread_local constinit bool SpareRecords::s_threadEnds = false;

/// Parses the last entry of a list. One that fails is no part of the list.
template <class Entry, class Parse>
void parseLast(std::list<Entry>& entries, Parse parse) {
    try {
        parse(entries.back());
    } catch (...) {
        entries.pop_back();
        throw;
    }
}

// The layout of print(). Log readers and scripts go by it.

void appendText(std::string& out, std::string const& text) {
    out.append(text, 0, text.find('\0'));
}

void appendNumber(std::string& out, char const* title, std::uint32_t number) {
    out += title;
    out += std::to_string(number);
}

void appendText(std::string& out, char const* title, std::string const& text) {
    out += title;
    appendText(out, text);
}

void appendBytes(std::string& out, std::string const& bytes) {
    constexpr std::string_view digits{"0123456789ABCDEF"};
    char const* separator = "";
    for (char const c : bytes) {
        auto const byte = static_cast<unsigned char>(c);
        out += separator;
        out += digits[byte >> 4];
        out += digits[byte & 15];
        separator = " ";
    }
}

template <class Entry>
void appendStart(std::string& out, int number, Entry const& entry) {
    out += std::to_string(number);
    out += ": type=";
    out += Resolver::recordTypeName(entry.type);
    out += ", class=";
    out += Resolver::recordClassName(entry.recordClass);
    appendText(out, ", name=", entry.name);
}

void appendEntry(std::string& out, int number, Query const& query) {
    appendStart(out, number, query);
    out += '\n';
}

void appendEntry(std::string& out, int number, Record const& record) {
    appendStart(out, number, record);
    appendNumber(out, ", ttl=", record.ttl);
    switch (record.type) {
    case Resolver::TypeA:
    case Resolver::TypeNS:
    case Resolver::TypeCNAME:
    case Resolver::TypePTR:
    case Resolver::TypeTXT:
    case Resolver::TypeAAAA: appendText(out, ", value=", record.value); break;
    case Resolver::TypeSOA:
        appendText(out, ", mname=", record.mname);
        appendText(out, ", rname=", record.rname);
        appendNumber(out, ", serial=", record.serial);
        appendNumber(out, ", refresh=", record.refresh);
        appendNumber(out, ", retry=", record.retry);
        appendNumber(out, ", expire=", record.expire);
        appendNumber(out, ", minimum=", record.minimum);
        break;
    case Resolver::TypeMX:
        appendText(out, ", value=", record.value);
        appendNumber(out, ", mx-rank=", record.mxRank);
        break;
    case Resolver::TypeSPF:
    case Resolver::TypeANY:
    case Resolver::TypeUnknown:
        out += ", rdata=[";
        appendBytes(out, record.rdata);
        out += ']';
        break;
    }
    out += '\n';
}

template <class Entry>
void appendSection(std::string& out, char const* heading, std::list<Entry> const& entries) {
    if (entries.empty()) return;
    out += heading;
    int number = 0;
    for (Entry const& entry : entries) appendEntry(out, ++number, entry);
}

std::string asText(ResolverMessage const& message) {
    std::string out;
    if (message.isNull()) return "DNS query response is NULL\n";
    if (message.isEmpty())
        return "DNS query failed: error=" + std::to_string(message.resolve_error()) + "(" +
               message.errorAsString() + ")\n";
    appendSection(out, "Queries:\n", message.queries());
    appendSection(out, "Answers:\n", message.answers());
    appendSection(out, "Name Server Records:\n", message.nameserverRecords());
    appendSection(out, "Additional Records:\n", message.additionalRecords());
    return out;
}

}  // namespace

bool ResolverMessage::RecordCompare::operator()(Record const& a, Record const& b) const noexcept {
    return a.value != b.value && std::tie(a.mxRank, a.value) < std::tie(b.mxRank, b.value);
}

ResolverMessage::ResolverMessage(ResolverMessageImpl* impl, bool addReference) noexcept
    : m_impl(impl, addReference) {}

ResolverMessageImpl& ResolverMessage::impl() const {
    if (!m_impl) fail("ResolverMessage", NullHandle, here);
    m_impl->parse();
    return *m_impl;
}

std::list<Query> const& ResolverMessage::queries() const {
    return impl().queries();
}

std::list<Record> const& ResolverMessage::answers() const {
    return impl().answers();
}

std::list<Record> const& ResolverMessage::nameserverRecords() const {
    return impl().nameserverRecords();
}

std::list<Record> const& ResolverMessage::additionalRecords() const {
    return impl().additionalRecords();
}

ResolverMessage::MxRecords const& ResolverMessage::mxRecords() const {
    return impl().mxRecords();
}

HostName const& ResolverMessage::getCanonicalName() const {
    return impl().canonicalName();
}

HostName const& ResolverMessage::getHostname() const {
    return impl().hostname();
}

IPAddress ResolverMessage::getIPAddress() const {
    for (Record const& answer : answers())
        if (answer.type == Resolver::TypeA || answer.type == Resolver::TypeAAAA)
            return IPAddress(answer.value);
    return IPAddress();
}

bool ResolverMessage::isAuthouritativeAnswer() const {
    return impl().hasFlag(authoritative);
}

bool ResolverMessage::isTruncated() const {
    return impl().hasFlag(truncated);
}

bool ResolverMessage::isEmpty() const {
    return impl().length() == 0;
}

int ResolverMessage::resolve_error() const {
    return impl().resolve_error();
}

char const* ResolverMessage::errorAsString() const {
    return ::hstrerror(resolve_error());
}

void ResolverMessage::print(std::FILE* out) const {
    if (!out) return;
    std::string const text = asText(*this);
    std::fwrite(text.data(), 1, text.size(), out);
}

ResolverMessageImpl::ResolverMessageImpl() : m_buffer(largestMessage, 0) {
    m_buffer.maxSize(largestMessage);
    m_reader = std::make_unique<WireReader>(std::span<unsigned char const>(data(), size()));
}

ResolverMessageImpl::~ResolverMessageImpl() {
    SpareRecords* const spare = SpareRecords::ofThread();
    if (!spare) return;
    for (auto* const records : {&m_answers, &m_nameservers, &m_additional}) spare->giveBack(*records);
}

void ResolverMessageImpl::length(int n) {
    m_buffer.length(static_cast<uint_t>(std::clamp(n, 0, largestMessage)));
    m_reader->length(length());
    parse();
}

void ResolverMessageImpl::parse() {
    if (m_parsed) return;
    m_parsed = true;
    if (length() == 0) return;
    try {
        parseHeader();
        parseSections();
    } catch (Exception const& e) {
        logCaught("void Quillmark::ResolverMessageImpl::parse()", e);
    }
}

void ResolverMessageImpl::parseHeader() {
    if (length() < headerSize) fail("ResolverMessage", Refused, here, "Truncated packet");
    m_header = data();
    for (unsigned int const at : {0U, 4U, 6U, 8U, 10U}) {
        unsigned char* const field = data() + at;
        auto const value = static_cast<std::uint16_t>(field[0] << 8 | field[1]);
        std::memcpy(field, &value, sizeof value);
    }
    m_reader->skip(headerSize);
}

void ResolverMessageImpl::parseSections() {
    std::array<std::uint16_t, 4> counts{};
    std::memcpy(counts.data(), m_header + 4, sizeof counts);
    for (unsigned int i = 0; i < counts[0]; ++i) {
        m_queries.emplace_back();
        parseLast(m_queries, [this](Query& query) { queryParse(query); });
    }
    parseRecords(counts[1], m_answers);
    parseRecords(counts[2], m_nameservers);
    parseRecords(counts[3], m_additional);
}

void ResolverMessageImpl::parseRecords(unsigned int count, std::list<Record>& records) {
    SpareRecords* const spare = SpareRecords::ofThread();
    for (unsigned int i = 0; i < count && !m_reader->atEnd(); ++i) {
        if (!spare || !spare->take(records)) records.emplace_back();
        parseLast(records, [this](Record& record) { resourceRecordParse(record); });
    }
}

void ResolverMessageImpl::parseName(std::string& name) {
    m_reader->name(name);
}

void ResolverMessageImpl::queryParse(Query& query) {
    parseName(query.name);
    // Kept for the daemons: a question may break off before its class.
    m_reader->need(2, "Resolver::queryParse");
    query.dnsType = m_reader->u16();
    query.type = Resolver::convertRecordType(query.dnsType);
    query.dnsClass = m_reader->u16();
    query.recordClass = Resolver::convertRecordClass(query.dnsClass);
}

void ResolverMessageImpl::resourceRecordParse(Record& record) {
    constexpr char const* operation = "Resolver::resourceRecordParse";
    parseName(record.name);
    m_reader->need(10, operation);
    record.dnsType = m_reader->u16();
    record.type = Resolver::convertRecordType(record.dnsType);
    record.dnsClass = m_reader->u16();
    record.recordClass = Resolver::convertRecordClass(record.dnsClass);
    record.ttl = m_reader->u32();
    unsigned int const dataLength = m_reader->u16();
    m_reader->need(dataLength, operation);
    record.rdata = m_reader->peek(dataLength);

    // Kept for the daemons: the next record begins behind what was read of this one, whatever its data
    // length says.
    switch (record.type) {
    case Resolver::TypeA: parseAddress(record); break;
    case Resolver::TypeAAAA: parseAAAA(record); break;
    case Resolver::TypeNS:
    case Resolver::TypeCNAME:
    case Resolver::TypePTR: parseName(record.value); break;
    case Resolver::TypeMX: parseMX(record); break;
    case Resolver::TypeTXT: parseTxt(record, dataLength); break;
    case Resolver::TypeSOA: parseSOA(record, dataLength); break;
    case Resolver::TypeSPF:
    case Resolver::TypeANY:
    case Resolver::TypeUnknown: m_reader->skip(dataLength); break;
    }
}

void ResolverMessageImpl::parseAddress(Record& record) {
    m_reader->need(sizeof(in_addr), "Resolver::parseAddress");
    record.value = v4Text(m_reader->bytes(sizeof(in_addr)));
}

void ResolverMessageImpl::parseAAAA(Record& record) {
    m_reader->need(sizeof(in6_addr), "Resolver::parseAAAA");
    record.value = v6Text(m_reader->bytes(sizeof(in6_addr)));
}

void ResolverMessageImpl::parseMX(Record& record) {
    // Kept for log readers: the title, and that an exchange of one byte may not be the last of a message.
    m_reader->need(4, "Resolver::parseMx");
    record.mxRank = m_reader->u16();
    parseName(record.value);
}

void ResolverMessageImpl::parseTxt(Record& record, unsigned int dataLength) {
    constexpr char const* operation = "Resolver::parseTxt";
    while (dataLength != 0) {
        m_reader->need(1, operation);
        unsigned int const count = m_reader->u8();
        --dataLength;
        if (count > dataLength) WireReader::failCorrupt(operation);
        m_reader->need(count, operation);
        record.value += m_reader->bytes(count);
        dataLength -= count;
    }
}

void ResolverMessageImpl::parseSOA(Record& record, unsigned int /*dataLength*/) {
    parseName(record.mname);
    parseName(record.rname);
    m_reader->need(20, "Resolver::parseSOA");
    record.serial = m_reader->u32();
    record.refresh = m_reader->u32();
    record.retry = m_reader->u32();
    record.expire = m_reader->u32();
    record.minimum = m_reader->u32();
}

ResolverMessage::MxRecords const& ResolverMessageImpl::mxRecords() {
    if (m_hasMxRecords) return m_mxRecords;
    std::unordered_set<std::string_view> exchanges;
    for (Record const& answer : m_answers)
        if (answer.type == Resolver::TypeMX && exchanges.insert(answer.value).second)
            m_mxRecords.insert(answer);
    m_hasMxRecords = true;
    return m_mxRecords;
}

HostName ResolverMessageImpl::firstHostName(Resolver::RecordType type) const {
    for (Record const& answer : m_answers) {
        if (answer.type != type) continue;
        if (HostName name(answer.value, true, false); !name.isNull()) return name;
    }
    return HostName();
}

HostName const& ResolverMessageImpl::canonicalName() {
    if (m_canonicalName.isNull()) m_canonicalName = firstHostName(Resolver::TypeCNAME);
    return m_canonicalName;
}

HostName const& ResolverMessageImpl::hostname() {
    if (m_hostname.isNull()) m_hostname = firstHostName(Resolver::TypePTR);
    return m_hostname;
}

}  // namespace Quillmark
