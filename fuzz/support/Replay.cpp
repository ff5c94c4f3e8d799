// Feeds a target what is known already, without a fuzzer: every seed, every word of a dictionary, and every
// beginning of the short ones, so that each parser sees each construct broken off at each byte.
//
//     replay-<Target> FILE...
//
// A .txt file holds a seed a line, a .dict file is one of libFuzzer's; any other file is one seed.

#include <sanitizer/common_interface_defs.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/support/Fuzz.h"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t longestCut = 400;  // bytes of a seed whose beginnings are all tried

struct Seed {
    std::string where;
    std::string bytes;
};

std::string const* current = nullptr;
std::size_t currentSize = 0;

void tellCurrent() {
    if (current) std::fprintf(stderr, "Input: %s, its first %zu bytes\n", current->c_str(), currentSize);
    current = nullptr;
}

int digit(char c) {
    std::size_t const at = std::string_view("0123456789abcdef").find(static_cast<char>(c | 0x20));
    return at == std::string_view::npos ? -1 : static_cast<int>(at);
}

/// The bytes that a line stands for: \n, \r, \t, \0 and \xNN as in C, and a backslash before any other
/// byte is dropped.
std::string unescaped(std::string_view line) {
    std::string bytes;
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (line[i] != '\\' || i + 1 == line.size()) {
            bytes += line[i];
            continue;
        }
        char const c = line[++i];
        if (c == 'x' && i + 2 < line.size() && digit(line[i + 1]) >= 0 && digit(line[i + 2]) >= 0) {
            bytes += static_cast<char>(digit(line[i + 1]) * 16 + digit(line[i + 2]));
            i += 2;
        } else {
            std::size_t const at = std::string_view("nrt0").find(c);
            bytes += at == std::string_view::npos ? c : "\n\r\t\0"[at];
        }
    }
    return bytes;
}

std::vector<Seed> seedsIn(fs::path const& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) QuillmarkFuzz::broken(path.string() + " can be read");
    bool const lines = path.extension() == ".txt";
    bool const words = path.extension() == ".dict";
    if (!lines && !words) return {{path.filename(), {std::istreambuf_iterator<char>(in), {}}}};
    std::vector<Seed> seeds;
    std::size_t number = 0;
    for (std::string line; std::getline(in, line);) {
        std::string const where = path.filename().string() + ":" + std::to_string(++number);
        if (line.starts_with('#') || line.empty()) continue;
        if (words) {
            std::size_t const open = line.find('"');
            line = line.substr(open + 1, line.rfind('"') - open - 1);
        }
        seeds.push_back({where, unescaped(line)});
    }
    return seeds;
}

void run(std::string_view bytes) {
    // A copy of exactly this size, so that a read beyond the end is seen.
    std::vector<std::uint8_t> const exact(bytes.begin(), bytes.end());
    currentSize = exact.size();
    LLVMFuzzerTestOneInput(exact.data(), exact.size());
}

}  // namespace

int main(int argc, char** argv) {
    __sanitizer_set_death_callback(tellCurrent);
    std::signal(SIGABRT, [](int) { tellCurrent(); });
    run({});
    std::size_t seeds = 0;
    std::size_t inputs = 1;
    for (int i = 1; i < argc; ++i)
        for (Seed const& seed : seedsIn(argv[i])) {
            current = &seed.where;
            std::size_t const shortest = seed.bytes.size() <= longestCut ? 0 : seed.bytes.size();
            for (std::size_t size = seed.bytes.size() + 1; size-- > shortest; ++inputs)
                run(std::string_view(seed.bytes).substr(0, size));
            ++seeds;
        }
    current = nullptr;
    std::printf("%zu seeds, %zu inputs\n", seeds, inputs);
    return seeds == 0 ? 1 : 0;
}
