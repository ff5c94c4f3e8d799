#include "foundation/AddressText.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <random>
#include <string>
#include <vector>

#include "tests/support/Support.h"

using namespace Quillmark;
using QuillmarkTest::hex;

namespace {

using Reader = bool (*)(char const*, std::uint8_t*);

struct Kernel {
    char const* name;
    Reader read;
};

std::vector<Kernel> kernels() {
    std::vector<Kernel> all{{"plain", readDottedQuadPlain}, {"chosen", readDottedQuad}};
    if (dottedQuad::hasAvx2) all.push_back({"AVX2", readDottedQuadAvx2});
    return all;
}

/// What was read, in hexadecimal; "no" leaves the bytes as they were.
std::string readBy(Reader read, char const* text, std::size_t size) {
    std::string bytes(16, '#');
    auto* const place = reinterpret_cast<std::uint8_t*>(bytes.data());
    bool const good = read(text, place);
    std::size_t const written = good ? size : 0;
    if (bytes.substr(written) != std::string(16 - written, '#')) return "wrote beyond";
    return good ? hex(bytes.substr(0, size)) : "no";
}

std::string readBySystem(int family, char const* text) {
    std::string bytes(family == AF_INET ? 4 : 16, '\0');
    return ::inet_pton(family, text, bytes.data()) == 1 ? hex(bytes) : "no";
}

/// Texts that end where a page ends, with nothing to be read behind.
class LastOnItsPage {
public:
    LastOnItsPage() {
        void* const made =
            ::mmap(nullptr, 2 * pageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        m_pages = static_cast<char*>(made);
        ::mprotect(m_pages + pageSize, pageSize, PROT_NONE);
    }
    ~LastOnItsPage() { ::munmap(m_pages, 2 * pageSize); }
    LastOnItsPage(LastOnItsPage const&) = delete;
    LastOnItsPage& operator=(LastOnItsPage const&) = delete;

    char const* operator()(std::string const& text) {
        char* const place = m_pages + pageSize - text.size() - 1;
        std::memcpy(place, text.c_str(), text.size() + 1);
        return place;
    }

private:
    static constexpr std::size_t pageSize = 4096;
    char* m_pages = nullptr;
};

class Texts {
public:
    explicit Texts(unsigned int seed) : m_random(seed) {}

    std::size_t below(std::size_t limit) { return m_random() % limit; }

    /// An address as the system writes it, often with a few characters changed, or something without sense.
    std::string next(int family) {
        std::string const letters =
            family == AF_INET ? "0123456789....:x -\xff" : "0123456789abcdefABCDEF:::::.g/ \xff";
        std::string text;
        if (below(8) == 0) {
            for (std::size_t length = below(family == AF_INET ? 18 : 48); text.size() < length;)
                text += letters[below(letters.size())];
            return text;
        }
        text = printed(family);
        for (std::size_t changes = below(3); changes != 0; --changes) {
            std::size_t const at = below(text.size() + 1);
            char const letter = letters[below(letters.size())];
            switch (below(3)) {
            case 0: text.insert(at, 1, letter); break;
            case 1: text.erase(std::min(at, text.size()), 1); break;
            default: text.replace(at, at < text.size() ? 1 : 0, 1, letter); break;
            }
        }
        return text;
    }

    std::string bytes(int family) {
        std::string made;
        while (made.size() < (family == AF_INET ? 4 : 16)) {
            std::size_t const value = family != AF_INET && below(2) == 0 ? 0 : m_random() >> below(16);
            made += static_cast<char>(value >> 8);
            made += static_cast<char>(value);
        }
        return made;
    }

    std::string printed(int family) {
        std::string const address = bytes(family);
        char text[INET6_ADDRSTRLEN];
        return ::inet_ntop(family, address.data(), text, sizeof text);
    }

private:
    std::mt19937 m_random;
};

TEST(DottedQuad, IsReadByEveryKernelAsTheSystemDoes) {
    Texts texts(1);
    LastOnItsPage lastOnItsPage;
    for (int i = 0; i < 100'000; ++i) {
        std::string const text = texts.next(AF_INET);
        char const* const placed = lastOnItsPage(text);
        std::string const expected = readBySystem(AF_INET, text.c_str());
        for (Kernel const& kernel : kernels()) {
            ASSERT_EQ(readBy(kernel.read, text.c_str(), 4), expected) << kernel.name << ": " << text;
            ASSERT_EQ(readBy(kernel.read, placed, 4), expected)
                << kernel.name << ", last on its page: " << text;
        }
    }
}

TEST(DottedQuad, HasPartsOfOneToThreeDigitsWithoutLeadingZeros) {
    std::vector<std::string> const parts{"",    "0",   "7",   "00",  "01",  "42",  "000",
                                         "010", "099", "100", "255", "256", "999", "1000"};
    for (auto const& a : parts)
        for (auto const& b : parts)
            for (auto const& c : parts)
                for (auto const& d : parts) {
                    std::string const text = a + '.' + b + '.' + c + '.' + d;
                    std::string const expected = readBySystem(AF_INET, text.c_str());
                    for (Kernel const& kernel : kernels())
                        ASSERT_EQ(readBy(kernel.read, text.c_str(), 4), expected)
                            << kernel.name << ": " << text;
                }
}

TEST(DottedQuad, EveryByteBehindOrInsideMakesItAnotherText) {
    for (int byte = 1; byte < 256; ++byte)
        for (std::string const text : {"192.0.2.1", "255.255.255.25"})
            for (std::size_t at = 0; at <= text.size(); ++at) {
                std::string changed = text;
                changed.insert(at, 1, static_cast<char>(byte));
                for (Kernel const& kernel : kernels())
                    ASSERT_EQ(readBy(kernel.read, changed.c_str(), 4), readBySystem(AF_INET, changed.c_str()))
                        << kernel.name << ": " << changed;
            }
}

TEST(DottedQuad, IsWrittenWithItsEndAndNotOneByteMore) {
    for (unsigned int a : {0U, 7U, 10U, 99U, 100U, 255U})
        for (unsigned int number = 0; number < 256 * 256; number += 1 + a % 3) {
            auto const byte = [](unsigned int value) { return static_cast<std::uint8_t>(value); };
            std::uint8_t const bytes[] = {byte(a), byte(number >> 8), byte(number), byte(number * 7)};
            std::string expected(24, '#');
            ::inet_ntop(AF_INET, bytes, expected.data(), 16);
            std::string text(24, '#');
            std::size_t const length = writeDottedQuad(bytes, text.data());
            ASSERT_EQ(text, expected);
            ASSERT_EQ(length, std::strlen(expected.c_str()));
        }
}

TEST(Groups, AreReadAsTheSystemDoes) {
    Texts texts(2);
    LastOnItsPage lastOnItsPage;
    for (int i = 0; i < 200'000; ++i) {
        std::string const text = texts.next(AF_INET6);
        ASSERT_EQ(readBy(readGroups, lastOnItsPage(text), 16), readBySystem(AF_INET6, text.c_str())) << text;
    }
}

TEST(Groups, HaveOneGapThatStandsForSomething) {
    for (char const* const text : {"",
                                   ":",
                                   "::",
                                   ":::",
                                   "1",
                                   "1:",
                                   ":1",
                                   "1::",
                                   "::1",
                                   "1::2",
                                   "1::2::3",
                                   "1:2:3:4:5:6:7",
                                   "1:2:3:4:5:6:7:8",
                                   "1:2:3:4:5:6:7:8:9",
                                   "1:2:3:4:5:6:7::",
                                   "::2:3:4:5:6:7:8",
                                   "1::2:3:4:5:6:7:8",
                                   "1:2:3:4:5:6:7:8::",
                                   "::1:",
                                   "12345::",
                                   "::12345",
                                   "::1.2.3.4",
                                   "1:2:3:4:5:6:1.2.3.4",
                                   "1:2:3:4:5:6:7:1.2.3.4",
                                   "1:2:3:4:5:1.2.3.4",
                                   "::1.2.3.4:1",
                                   "::1.2.3",
                                   "::1.2.3.256",
                                   "::g",
                                   "1.2.3.4",
                                   "::ffff:01.2.3.4"})
        EXPECT_EQ(readBy(readGroups, text, 16), readBySystem(AF_INET6, text)) << text;
}

TEST(Groups, AreWrittenAsTheSystemDoesSaveForDottedQuads) {
    Texts texts(3);
    for (int i = 0; i < 200'000; ++i) {
        std::string const address = texts.bytes(AF_INET6);
        char expected[INET6_ADDRSTRLEN];
        ::inet_ntop(AF_INET6, address.data(), expected, sizeof expected);
        if (std::strchr(expected, '.')) continue;
        std::string text(longestGroups + 1, '#');
        text.resize(writeGroups(reinterpret_cast<std::uint8_t const*>(address.data()), text.data()));
        ASSERT_EQ(text, expected);
    }
}

TEST(Groups, EverySetOfZerosHasItsGap) {
    for (unsigned int zeros = 0; zeros < 256; ++zeros) {
        std::string address;
        for (int i = 0; i < 8; ++i)
            address += (zeros >> i & 1) != 0 ? std::string(2, '\0') : std::string("\0\x0b", 2);
        char expected[INET6_ADDRSTRLEN];
        ::inet_ntop(AF_INET6, address.data(), expected, sizeof expected);
        if (std::strchr(expected, '.')) continue;
        std::string text(longestGroups + 1, '#');
        text.resize(writeGroups(reinterpret_cast<std::uint8_t const*>(address.data()), text.data()));
        EXPECT_EQ(text, expected);
    }
}

}  // namespace
