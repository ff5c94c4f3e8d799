// Base64 text that does its decoder no favour.

#include "bench/support/Bench.h"
#include "bench/support/Growth.h"
#include "include2/Buffer"

namespace {

using namespace Quillmark;
using bench::repeated;

std::string lines(std::size_t size) {
    return repeated(std::string(76, 'A') + "\r\n", size);
}
std::string charactersInLines(std::size_t size) {
    return repeated("A\n", size);
}
std::string blanks(std::size_t size) {
    return repeated(" \t\r\n", size);
}
std::string anyBlanks(std::size_t size) {
    bench::Random random(1);
    std::string text(size, 'A');
    for (char& c : text)
        if (random.below(4) == 0) c = ' ';
    return text;
}
std::string padding(std::size_t size) {
    return "TQ" + std::string(size - 2, '=');
}
void decode(std::string const& text) {
    benchmark::DoNotOptimize(base64Decode(text).length());
}
bench::Growth const cases[] = {
    {"base64 decode: lines", lines, decode},
    {"base64 decode: every character in a line of its own", charactersInLines, decode},
    {"base64 decode: nothing but blanks", blanks, decode},
    {"base64 decode: blanks anywhere", anyBlanks, decode},
    {"base64 decode: nothing but padding", padding, decode},
};

}  // namespace

int main(int argc, char** argv) {
    return bench::growthMain(argc, argv, cases);
}
