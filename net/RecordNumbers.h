#pragma once
// The types and classes of records: their numbers on the wire (RFC 1035), our own, and their names.

#include "include2/Resolver"

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>

namespace Quillmark {

struct TypeRow {
    int dns;
    Resolver::RecordType type;
    char const* name;
};

// Number on the wire, our own number, name. The first matching row wins, so the order counts:
// 255 prints as ANY because that row stands above the one for what we do not know.
inline constexpr TypeRow recordTypes[] = {
    {1, Resolver::TypeA, "A"},
    {2, Resolver::TypeNS, "NS"},
    {5, Resolver::TypeCNAME, "CNAME"},
    {12, Resolver::TypePTR, "PTR"},
    {15, Resolver::TypeMX, "MX"},
    {16, Resolver::TypeTXT, "TXT"},
    {6, Resolver::TypeSOA, "SOA"},
    {255, Resolver::TypeANY, "ANY"},
    {28, Resolver::TypeAAAA, "AAAA"},
    {99, Resolver::TypeSPF, "SPF"},
    {255, Resolver::TypeUnknown, "Unknown"},
    {32769, Resolver::TypeUnknown, "DLV"},
    {48, Resolver::TypeUnknown, "DNSKEY"},
    {43, Resolver::TypeUnknown, "DS"},
    {47, Resolver::TypeUnknown, "NSEC"},
    {50, Resolver::TypeUnknown, "NSEC3"},
    {51, Resolver::TypeUnknown, "NSEC3PARAM"},
    {46, Resolver::TypeUnknown, "RRSIG"},
    {32768, Resolver::TypeUnknown, "TA"},
    {3, Resolver::TypeUnknown, "MD"},
    {4, Resolver::TypeUnknown, "MF"},
    {7, Resolver::TypeUnknown, "MB"},
    {8, Resolver::TypeUnknown, "MG"},
    {9, Resolver::TypeUnknown, "MR"},
    {10, Resolver::TypeUnknown, "NULL"},
    {11, Resolver::TypeUnknown, "WKS"},
    {13, Resolver::TypeUnknown, "HINFO"},
    {14, Resolver::TypeUnknown, "MINFO"},
    {17, Resolver::TypeUnknown, "RP"},
    {18, Resolver::TypeUnknown, "AFSDB"},
    {19, Resolver::TypeUnknown, "X25"},
    {20, Resolver::TypeUnknown, "ISDN"},
    {21, Resolver::TypeUnknown, "RT"},
    {22, Resolver::TypeUnknown, "NSAP"},
    {23, Resolver::TypeUnknown, "NSAP_PTR"},
    {24, Resolver::TypeUnknown, "SIG"},
    {25, Resolver::TypeUnknown, "KEY"},
    {26, Resolver::TypeUnknown, "PX"},
    {27, Resolver::TypeUnknown, "GPOS"},
    {29, Resolver::TypeUnknown, "LOC"},
    {30, Resolver::TypeUnknown, "NXT"},
    {31, Resolver::TypeUnknown, "EID"},
    {32, Resolver::TypeUnknown, "NIMLOC"},
    {33, Resolver::TypeUnknown, "SRV"},
    {34, Resolver::TypeUnknown, "ATMA"},
    {35, Resolver::TypeUnknown, "NAPTR"},
    {36, Resolver::TypeUnknown, "KX"},
    {37, Resolver::TypeUnknown, "CERT"},
    {38, Resolver::TypeUnknown, "A6"},
    {39, Resolver::TypeUnknown, "DNAME"},
    {40, Resolver::TypeUnknown, "SINK"},
    {41, Resolver::TypeUnknown, "OPT"},
    {42, Resolver::TypeUnknown, "APL"},
    {249, Resolver::TypeUnknown, "TKEY"},
    {250, Resolver::TypeUnknown, "TSIG"},
    {251, Resolver::TypeUnknown, "IXFR"},
    {252, Resolver::TypeUnknown, "AXFR"},
    {253, Resolver::TypeUnknown, "MAILB"},
    {254, Resolver::TypeUnknown, "MAILA"},
    {256, Resolver::TypeUnknown, "ZXFR"},
    {44, Resolver::TypeUnknown, "SSHFP"},
    {45, Resolver::TypeUnknown, "IPSECKEY"},
    {55, Resolver::TypeUnknown, "HIP"},
    {49, Resolver::TypeUnknown, "DHCID"},
};
static_assert(std::size(recordTypes) == 64);

struct ClassRow {
    int dns;
    Resolver::RecordClass recordClass;
    char const* name;
};

inline constexpr ClassRow recordClasses[] = {
    {1, Resolver::ClassIN, "IN"},           {2, Resolver::ClassCS, "CS"},
    {3, Resolver::ClassCH, "CH"},           {4, Resolver::ClassHS, "HS"},
    {254, Resolver::ClassNONE, "NONE"},     {255, Resolver::ClassANY, "ANY"},
    {1, Resolver::ClassUnknown, "Unknown"},
};

/// The wanted field of the first row whose key is the given one, or the fallback.
template <class Rows, class Row, class Key, class Field>
constexpr Field lookUp(Rows const& rows, Key Row::*key, Key value, Field Row::*field, Field fallback) {
    auto const row = std::find_if(std::begin(rows), std::end(rows),
                                  [&](Row const& candidate) { return candidate.*key == value; });
    return row == std::end(rows) ? fallback : (*row).*field;
}

namespace recordNumbers {

/// Our numbers by those on the wire. The rest of these has none.
template <auto& rows, auto field>
consteval auto makeIndex() noexcept {
    using Number = std::remove_cvref_t<decltype((*std::begin(rows)).*field)>;
    std::array<Number, 256> index{};
    for (auto row = std::rbegin(rows); row != std::rend(rows); ++row) {
        if (static_cast<std::size_t>(row->dns) < index.size())
            index[static_cast<std::size_t>(row->dns)] = (*row).*field;
    }
    return index;
}

inline constexpr auto types = makeIndex<recordTypes, &TypeRow::type>();
inline constexpr auto classes = makeIndex<recordClasses, &ClassRow::recordClass>();
static_assert(std::all_of(std::begin(recordTypes), std::end(recordTypes), [](TypeRow const& row) {
    return row.dns < 256 || row.type == Resolver::TypeUnknown;
}));

}  // namespace recordNumbers

constexpr Resolver::RecordType recordTypeOf(int dnsType) noexcept {
    auto const index = static_cast<std::size_t>(dnsType);
    return index < recordNumbers::types.size() ? recordNumbers::types[index] : Resolver::TypeUnknown;
}

constexpr Resolver::RecordClass recordClassOf(int dnsClass) noexcept {
    auto const index = static_cast<std::size_t>(dnsClass);
    return index < recordNumbers::classes.size() ? recordNumbers::classes[index] : Resolver::ClassUnknown;
}

}  // namespace Quillmark
