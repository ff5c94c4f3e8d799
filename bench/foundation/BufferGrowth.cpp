// Buffers that grow in the smallest steps, and lines that are cut out of them.

#include <algorithm>

#include "bench/support/Growth.h"
#include "include2/Buffer"

namespace {

using namespace Quillmark;

std::string bytes(std::size_t size) {
    return std::string(size, 'x');
}
std::string emptyLines(std::size_t size) {
    return std::string(size, '\n');
}

void byByte(std::string const& text) {
    Buffer buffer(1, 1);
    for (char const c : text) buffer.append(static_cast<unsigned char>(c));
}
void terminated(std::string const& text) {
    Buffer buffer(1, 1);
    for (std::size_t at = 0; at < text.size(); at += 7) {
        buffer.append(reinterpret_cast<unsigned char const*>(text.data()) + at,
                      static_cast<unsigned int>(std::min<std::size_t>(7, text.size() - at)));
        buffer.c_str();
    }
}
void sizedByStep(std::string const& text) {
    Buffer buffer(1, 1);
    for (unsigned int size = 0; size < text.size(); size += 16) {
        buffer.size(size);
        buffer.length(size);
    }
}
void sensitively(std::string const& text) {
    Buffer buffer(1, 1);
    buffer.sensitiveData(true);
    for (char const c : text) buffer.append(static_cast<unsigned char>(c));
}
void byLine(std::string const& text) {
    Buffer const source(text.data(), static_cast<unsigned int>(text.size()), true);
    LineBuffer const lines(source);
    Buffer line;
    while (!lines.endOfBuffer()) lines.getLine(line, '\n');
}

Quillmark::bench::Growth const cases[] = {
    {"Buffer: a byte at a time", bytes, byByte},
    {"Buffer: a byte at a time, sensitive", bytes, sensitively},
    {"Buffer: a few bytes and their terminator", bytes, terminated},
    {"Buffer: sized and filled a little at a time", bytes, sizedByStep},
    {"Buffer: nothing but lines", emptyLines, byLine},
};

}  // namespace

int main(int argc, char** argv) {
    return Quillmark::bench::growthMain(argc, argv, cases);
}
