// Streams that decode and encode: texts without favour to them, and writes of one byte.

#include "bench/support/Bench.h"
#include "bench/support/Growth.h"
#include "include2/Base64Media"
#include "include2/BufferMedia"
#include "include2/EncoderMedia"

namespace {

using namespace Quillmark;
using bench::repeated;

std::string control(std::size_t size) {
    return std::string(size, '\x01');
}
std::string lineFeeds(std::size_t size) {
    return std::string(size, '\n');
}
std::string blanks(std::size_t size) {
    return std::string(size, ' ');
}
std::string equals(std::size_t size) {
    return repeated("=x", size);
}
std::string paddedLines(std::size_t size) {
    return repeated("TQ==\n", size);
}
std::string oneLine(std::size_t size) {
    return std::string(size, 'A');
}
std::string charactersInLines(std::size_t size) {
    return repeated("A\n", size);
}

unsigned char const* raw(std::string const& text) {
    return reinterpret_cast<unsigned char const*>(text.data());
}

template <class Encoder>
void atOnce(std::string const& text) {
    BufferMediaOut sink;
    Encoder encoder(sink);
    encoder.write(raw(text), static_cast<unsigned int>(text.size()));
    encoder.end();
}

template <class Encoder>
void byByte(std::string const& text) {
    BufferMediaOut sink;
    Encoder encoder(sink);
    for (std::size_t at = 0; at < text.size(); ++at) encoder.write(raw(text) + at, 1);
    encoder.end();
}

template <unsigned int Piece>
void decode(std::string const& text) {
    BufferMediaIn source(Buffer(text.data(), static_cast<unsigned int>(text.size()), true), 0);
    Base64MediaIn decoder(source);
    unsigned char piece[Piece];
    while (!decoder.atEnd()) benchmark::DoNotOptimize(decoder.read(piece, Piece));
}

bench::Growth const cases[] = {
    {"quoted-printable: nothing but control bytes", control, atOnce<QuotedPrintableOut>},
    {"quoted-printable: nothing but line feeds", lineFeeds, atOnce<QuotedPrintableOut>},
    {"quoted-printable: nothing but blanks", blanks, atOnce<QuotedPrintableOut>},
    {"quoted-printable: every other byte escaped", equals, atOnce<QuotedPrintableOut>},
    {"quoted-printable: a byte at a time", equals, byByte<QuotedPrintableOut>},
    {"Base64 stream, writing: a byte at a time", control, byByte<Base64MediaOut>},
    {"Base64 stream, reading: every line padded", paddedLines, decode<8192>},
    {"Base64 stream, reading: one line", oneLine, decode<8192>},
    {"Base64 stream, reading: every character in a line of its own", charactersInLines, decode<8192>},
    {"Base64 stream, reading: a few bytes at a time", oneLine, decode<7>},
};

}  // namespace

int main(int argc, char** argv) {
    return bench::growthMain(argc, argv, cases);
}
