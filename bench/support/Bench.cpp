#include "bench/support/Bench.h"

#include <cstdio>
#include <cstdlib>

namespace Quillmark::bench {

void agree(bool same, std::string_view what) {
    if (!same) {
        std::fprintf(stderr, "ours and the peer differ: %.*s\n", static_cast<int>(what.size()), what.data());
        std::exit(1);
    }
}

std::string Random::bytes(std::size_t size) {
    std::string made(size, '\0');
    for (auto& byte : made) {
        byte = static_cast<char>(below(256));
    }
    return made;
}

}  // namespace Quillmark::bench
