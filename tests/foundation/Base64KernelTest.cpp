// Every kernel against the plain one, at every length and offset that matters, with nothing but forbidden
// memory behind what it may touch.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "foundation/Base64.h"
#include "tests/support/Support.h"

using namespace Quillmark;

namespace {

constexpr unsigned char guard = 0xa5;

Base64Kernel const& plain() {
    return base64Kernels().back();
}

/// The kernels of this machine, the plain one among them.
std::vector<Base64Kernel> kernels() {
    std::vector<Base64Kernel> runnable;
    for (Base64Kernel const& kernel : base64Kernels())
        if (cpuHas(kernel.needs)) runnable.push_back(kernel);
    return runnable;
}

std::mt19937& random() {
    static std::mt19937 generator(20240229);
    return generator;
}

std::size_t below(std::size_t limit) {
    return random()() % limit;
}

std::string randomBytes(std::size_t size) {
    std::string bytes(size, '\0');
    for (char& c : bytes) c = static_cast<char>(random()());
    return bytes;
}

std::string characters(std::size_t size) {
    static constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text(size, '\0');
    for (char& c : text) c = alphabet[below(64)];
    return text;
}

std::string inLines(std::size_t size, std::size_t length, std::string const& lineEnd) {
    std::string text;
    while (text.size() < size) text += characters(length) + lineEnd;
    text.resize(size);
    return text;
}

std::string withBlanks(std::size_t size, std::size_t rarity) {
    std::string text = characters(size);
    for (char& c : text)
        if (below(rarity) == 0) c = "\t\n\v\f\r "[below(6)];
    return text;
}

/// Texts of one size: clean, in lines, with blanks, and bad somewhere.
std::vector<std::string> textsOf(std::size_t size) {
    std::vector<std::string> texts = {characters(size),          inLines(size, 76, "\n"),
                                      inLines(size, 76, "\r\n"), inLines(size, 64 + below(17), "\n"),
                                      withBlanks(size, 20),      withBlanks(size, 2),
                                      std::string(size, ' ')};
    for (std::size_t i = 0; i < 4 && size != 0; ++i) {
        std::string bad = texts[i];
        bad[below(size)] = "=\x80\xff#\0-_"[below(7)];
        texts.push_back(bad);
    }
    return texts;
}

/// Bytes with guards on both sides, the first at an offset from a cache line's beginning.
class Room {
public:
    Room(std::size_t size, std::size_t offset) : m_size(size), m_memory(size + 256, guard) {
        void* place = m_memory.data() + 64;
        std::size_t space = 192;
        std::align(64, 1, place, space);
        m_begin = static_cast<unsigned char*>(place) + offset;
    }
    unsigned char* begin() { return m_begin; }
    bool intact() const {
        auto const isGuard = [](unsigned char c) { return c == guard; };
        unsigned char const* const begin = m_memory.data();
        unsigned char const* const inside = m_begin;
        return std::all_of(begin, inside, isGuard) &&
               std::all_of(inside + m_size, begin + m_memory.size(), isGuard);
    }

private:
    std::size_t m_size;
    std::vector<unsigned char> m_memory;
    unsigned char* m_begin;
};

/// Two pages between forbidden ones.
class Cage {
public:
    Cage() : m_page(static_cast<std::size_t>(::sysconf(_SC_PAGESIZE))) {
        void* const memory = ::mmap(nullptr, 4 * m_page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        m_memory = static_cast<unsigned char*>(memory);
        if (memory == MAP_FAILED || ::mprotect(m_memory + m_page, 2 * m_page, PROT_READ | PROT_WRITE) != 0)
            throw std::bad_alloc();
    }
    Cage(Cage const&) = delete;
    Cage& operator=(Cage const&) = delete;
    ~Cage() { ::munmap(m_memory, 4 * m_page); }
    unsigned char* first() { return m_memory + m_page; }
    unsigned char* last(std::size_t size) { return m_memory + 3 * m_page - size; }

private:
    std::size_t m_page;
    unsigned char* m_memory;
};

struct Decoded {
    Base64Run run;
    std::string bytes;
};

Decoded decodedAt(Base64Kernel const& kernel, std::string const& text, unsigned char* in,
                  unsigned char* out) {
    std::memcpy(in, text.data(), text.size());
    Base64Run const run = kernel.decode(in, text.size(), out);
    return {run, std::string(reinterpret_cast<char const*>(out), run.written)};
}

Decoded decoded(std::string const& text) {
    std::vector<unsigned char> in(text.size() + 1), out(text.size() + 1);
    return decodedAt(plain(), text, in.data(), out.data());
}

void expectSame(Decoded const& actual, Decoded const& expected, std::string const& what) {
    ASSERT_TRUE(actual.run == expected.run)
        << what << ": read " << actual.run.read << " of " << expected.run.read << ", wrote "
        << actual.run.written << " of " << expected.run.written << ", " << actual.run.place << " bits "
        << actual.run.bits;
    ASSERT_TRUE(actual.bytes == expected.bytes) << what;
}

using Encode = void (*)(unsigned char const*, std::size_t, char*) noexcept;

std::string encodedBy(Encode encode, std::string const& bytes, std::size_t count, std::size_t size) {
    std::string out(size, '!');
    encode(reinterpret_cast<unsigned char const*>(bytes.data()), count, out.data());
    return out;
}

/// How one of the encoders divides its input.
struct Form {
    Encode Base64Kernel::*encode;
    std::size_t bytes, characters, most;
};
constexpr Form forms[] = {
    {&Base64Kernel::encodeGroups, 3, 4, 300},
    {&Base64Kernel::encodeLines, base64LineBytes, base64LineLength + 1, 8},
};

}  // namespace

TEST(Base64Kernel, PlainOneKnowsWhatAGroupIs) {
    EXPECT_EQ(encodedBy(plain().encodeGroups, "Man\xfb\xff\xbf", 2, 8), "TWFu+/+/");
    EXPECT_EQ(encodedBy(plain().encodeLines, std::string(57, 'M'), 1, 78).substr(72), "TU1N\n!");
    Decoded const two = decoded(" T\nWF\ruT\tW");
    EXPECT_EQ(two.bytes, "ManM");
    EXPECT_TRUE(two.run == (Base64Run{10, 4, 2, 0x4d6})) << "0x13 and 0x16, six bits each";
    EXPECT_TRUE(decoded("TWFuTQ==").run == (Base64Run{6, 4, 2, 0x4d0}));
}

TEST(Base64Kernel, ChosenOneIsTheFirstThatTheMachineCanRun) {
    EXPECT_STREQ(base64Kernel().name, kernels().front().name);
    EXPECT_STREQ(plain().name, "plain");
}

TEST(Base64Kernel, EncodesAsThePlainOneAtEveryLengthAndOffset) {
    for (Form const& form : forms)
        for (std::size_t count = 0; count <= form.most; ++count) {
            std::string const bytes = randomBytes(count * form.bytes);
            std::string const expected =
                encodedBy(plain().*form.encode, bytes, count, count * form.characters);
            for (Base64Kernel const& kernel : kernels())
                for (std::size_t offset = 0; offset < 64; ++offset) {
                    Room in(bytes.size(), offset), out(expected.size(), 63 - offset);
                    std::copy(bytes.begin(), bytes.end(), in.begin());
                    (kernel.*form.encode)(in.begin(), count, reinterpret_cast<char*>(out.begin()));
                    ASSERT_TRUE(std::equal(expected.begin(), expected.end(), out.begin(),
                                           [](char a, unsigned char b) { return a == static_cast<char>(b); }))
                        << kernel.name << " " << count << " " << offset;
                    ASSERT_TRUE(out.intact()) << kernel.name << " " << count << " " << offset;
                }
        }
}

TEST(Base64Kernel, EncodesUpToTheEdgesOfItsMemory) {
    Cage from, to;
    for (Form const& form : forms)
        for (std::size_t count = 0; count <= form.most; ++count) {
            std::string const bytes = randomBytes(count * form.bytes);
            std::string const expected =
                encodedBy(plain().*form.encode, bytes, count, count * form.characters);
            for (Base64Kernel const& kernel : kernels())
                for (bool const atEnd : {false, true}) {
                    unsigned char* const in = atEnd ? from.last(bytes.size()) : from.first();
                    unsigned char* const out = atEnd ? to.last(expected.size()) : to.first();
                    std::copy(bytes.begin(), bytes.end(), in);
                    (kernel.*form.encode)(in, count, reinterpret_cast<char*>(out));
                    ASSERT_TRUE(std::memcmp(out, expected.data(), expected.size()) == 0)
                        << kernel.name << " " << count;
                }
        }
}

TEST(Base64Kernel, KnowsEveryByteForWhatItIs) {
    for (Base64Kernel const& kernel : kernels())
        for (unsigned int byte = 0; byte < 256; ++byte)
            for (std::size_t const at : {0u, 31u, 32u, 63u, 64u, 75u, 76u, 140u, 299u}) {
                std::string text = inLines(300, 76, "\n");
                text[at] = static_cast<char>(byte);
                Room in(300, 0), out(225, 0);
                expectSame(decodedAt(kernel, text, in.begin(), out.begin()), decoded(text),
                           kernel.name + (" " + std::to_string(byte)));
            }
}

TEST(Base64Kernel, DecodesAsThePlainOneAtEveryLengthAndOffset) {
    for (std::size_t size = 0; size <= 300; ++size)
        for (std::string const& text : textsOf(size)) {
            Decoded const expected = decoded(text);
            std::size_t const first = below(64);
            for (Base64Kernel const& kernel : kernels())
                for (std::size_t offset = first % 7; offset < 64; offset += 7) {
                    Room in(size, offset), out(size * 3 / 4, 63 - offset);
                    expectSame(decodedAt(kernel, text, in.begin(), out.begin()), expected,
                               kernel.name + (" " + std::to_string(size)));
                    ASSERT_TRUE(out.intact()) << kernel.name << " " << size << " " << offset;
                }
        }
    std::string const text = inLines(300, 76, "\n");
    Decoded const expected = decoded(text);
    for (Base64Kernel const& kernel : kernels())
        for (std::size_t offset = 0; offset < 64; ++offset)
            for (std::size_t other = 0; other < 64; ++other) {
                Room in(text.size(), offset), out(text.size() * 3 / 4, other);
                expectSame(decodedAt(kernel, text, in.begin(), out.begin()), expected, kernel.name);
                ASSERT_TRUE(out.intact()) << kernel.name << " " << offset << " " << other;
            }
}

TEST(Base64Kernel, DecodesUpToTheEdgesOfItsMemory) {
    Cage from, to;
    for (std::size_t size = 0; size <= 2500; size += size < 300 ? 1 : 53)
        for (std::string const& text : textsOf(size)) {
            Decoded const expected = decoded(text);
            for (Base64Kernel const& kernel : kernels())
                for (bool const atEnd : {false, true})
                    expectSame(decodedAt(kernel, text, atEnd ? from.last(size) : from.first(),
                                         atEnd ? to.last(size * 3 / 4) : to.first()),
                               expected, kernel.name + (" " + std::to_string(size)));
        }
}

TEST(Base64Kernel, DecodesInPlace) {
    for (std::size_t size = 0; size <= 6000; size += size < 300 ? 1 : 371)
        for (std::string const& text : textsOf(size)) {
            Decoded const expected = decoded(text);
            for (Base64Kernel const& kernel : kernels())
                for (std::size_t const before : {0u, 1u, 13u, 48u}) {
                    Room room(size + before, 0);
                    expectSame(decodedAt(kernel, text, room.begin() + before, room.begin()), expected,
                               kernel.name + (" " + std::to_string(size)));
                    ASSERT_TRUE(room.intact()) << kernel.name << " " << size;
                }
        }
}

TEST(Base64Kernel, FollowsTextWhoseLinesChange) {
    for (int round = 0; round < 60; ++round) {
        std::string text;
        while (text.size() < 9000) {
            std::size_t const size = below(3000);
            switch (below(4)) {
            case 0: text += inLines(size, 76, "\n"); break;
            case 1: text += inLines(size, 4 * below(30) + 4, "\r\n"); break;
            case 2: text += withBlanks(size, 1 + below(90)); break;
            case 3: text += characters(size); break;
            }
        }
        if (round % 3 == 0) text[below(text.size())] = '=';
        Decoded const expected = decoded(text);
        for (Base64Kernel const& kernel : kernels()) {
            Room in(text.size(), below(64)), out(text.size() * 3 / 4, below(64));
            expectSame(decodedAt(kernel, text, in.begin(), out.begin()), expected, kernel.name);
            ASSERT_TRUE(out.intact()) << kernel.name;
        }
    }
}
