#include "mail/PlainAddress.h"

#include <immintrin.h>

#include <algorithm>
#include <array>
#include <bit>

#include "foundation/ByteSet.h"
#include "mail/AddressMaker.h"
#include "net/HostNameReader.h"

namespace Quillmark {

namespace {

// What a byte of an address is.
enum Kind : std::uint8_t {
    Atom = 1,
    Dot = 2,
    Capital = 4,     ///< an atom's
    InHostName = 8,  ///< in a common one
    NoAddress = 16,  ///< in no text of an IPv4 address, hexadecimal ones included
};

constexpr std::array<std::uint8_t, 256> kinds = [] {
    constexpr ByteSet noAtom = ByteSet::range(0x00, 0x20) | ByteSet{"<>@,;:\\.()\"[]"};
    constexpr ByteSet inHostName = alphanumericBytes | ByteSet{"-._"};
    constexpr ByteSet inAddress = digitBytes | ByteSet{"abcdefABCDEFxX."};
    std::array<std::uint8_t, 256> table{};
    for (int byte = 0; byte < 256; ++byte) {
        int const atom = noAtom.contains(byte) ? 0 : Atom;
        int const capital = byte >= 'A' && byte <= 'Z' ? Capital : 0;
        int const host = inHostName.contains(byte) ? InHostName : 0;
        int const address = inAddress.contains(byte) ? 0 : NoAddress;
        table[static_cast<std::size_t>(byte)] =
            static_cast<std::uint8_t>(atom | capital | host | address | (byte == '.' ? Dot : 0));
    }
    return table;
}();
constexpr std::uint8_t ofHigh = Atom | NoAddress;
static_assert(kinds[0x80] == ofHigh && kinds[0xff] == ofHigh);

// A name that HostNameReader::isValid() accepts without a second look, from what its bytes are.
bool isCommon(std::string_view domain, bool allInHostName, bool someInNoAddress) noexcept {
    return domain.size() >= 2 && allInHostName && someInNoAddress && domain.front() != '.' &&
           domain[domain.size() - 1] != '.' && domain[domain.size() - 2] != '.';
}

bool scanPlain(std::string_view text, PlainAddress& address) noexcept {
    auto const kindAt = [text](std::size_t at) -> unsigned {
        return at < text.size() ? kinds[static_cast<unsigned char>(text[at])] : 0;
    };
    std::size_t end = 0;
    unsigned some = 0;
    for (unsigned kind, before = 0; ((kind = kindAt(end)) & (Atom | Dot)) != 0; ++end) {
        if ((kind & before & Dot) != 0) return false;
        some |= kind;
        before = kind;
    }
    if (end == 0 || end == text.size() || text[end] != '@') return false;
    bool hasCapitals = (some & Capital) != 0;
    address.sign = end;
    unsigned all = ~0U;
    some = 0;
    for (unsigned kind; ((kind = kindAt(++end)) & (Atom | Dot)) != 0;) {
        some |= kind;
        all &= kind;
    }
    address.text = text.substr(0, end);
    address.hasCapitals = hasCapitals || (some & Capital) != 0;
    address.hasCommonDomain = isCommon(address.domain(), (all & InHostName) != 0, (some & NoAddress) != 0);
    return true;
}

QUILLMARK_AVX512 std::uint64_t firstBits(std::size_t count) noexcept {
    return _bzhi_u64(~std::uint64_t{0}, static_cast<unsigned>(count));
}

QUILLMARK_AVX512 std::uint64_t bitsOf(int wanted, __m512i kind) noexcept {
    return _mm512_test_epi8_mask(kind, _mm512_set1_epi8(static_cast<char>(wanted)));
}

// The same for an address of less than 64 bytes: a bit for each byte, the first byte's the lowest.
QUILLMARK_AVX512 bool scanAvx512(std::string_view text, PlainAddress& address) noexcept {
    std::uint64_t const there = firstBits(std::min<std::size_t>(64, text.size()));
    __m512i const bytes = _mm512_maskz_loadu_epi8(there, text.data());
    __m512i const ofAscii = _mm512_permutex2var_epi8(_mm512_loadu_si512(kinds.data()), bytes,
                                                     _mm512_loadu_si512(kinds.data() + 64));
    __m512i const kind = _mm512_mask_mov_epi8(ofAscii, _mm512_movepi8_mask(bytes), _mm512_set1_epi8(ofHigh));

    std::uint64_t const parts = bitsOf(Atom | Dot, kind);
    auto const sign = static_cast<std::size_t>(std::countr_one(parts));
    if (sign >= 63) return scanPlain(text, address);
    std::size_t const end = sign + 1 + static_cast<std::size_t>(std::countr_one(parts >> (sign + 1)));
    if (end == 64) return scanPlain(text, address);

    std::uint64_t const dots = bitsOf(Dot, kind) & firstBits(sign);
    if (sign == 0 || sign == text.size() || text[sign] != '@' || (dots & dots << 1) != 0) return false;
    std::uint64_t const domain = firstBits(end) & ~firstBits(sign + 1);
    address.text = text.substr(0, end);
    address.sign = sign;
    address.hasCapitals = (bitsOf(Capital, kind) & firstBits(end)) != 0;
    address.hasCommonDomain = isCommon(address.domain(), (bitsOf(InHostName, kind) & domain) == domain,
                                       (bitsOf(NoAddress, kind) & domain) != 0);
    return true;
}

constexpr AddressScan scans[] = {
    {InstructionSet::Avx512, scanAvx512},
    {InstructionSet::Any, scanPlain},
};

EmailAddress makeLowered(PlainAddress const& address, bool lowerLocal, std::string_view name) {
    return AddressMaker::make(AddressMaker::lowered(address.text, address.sign, lowerLocal), address.sign,
                              name);
}

}  // namespace

std::span<AddressScan const> addressScans() noexcept {
    return scans;
}

bool PlainAddress::read(std::string_view from, std::size_t at) {
    static auto const scan = bestKernel(addressScans()).scan;
    return scan(from.substr(at), *this) && (hasCommonDomain || HostNameReader::isValid(domain()));
}

EmailAddress PlainAddress::make(bool lowerLocal, std::string_view name) const {
    return hasCapitals ? makeLowered(*this, lowerLocal, name) : AddressMaker::make(text, sign, name);
}

}  // namespace Quillmark
