// The worst that pointers can do to a parser of messages, up to the limit of a message. Each message is
// parsed many times over, since even the largest takes no time to speak of. Where names share one long end
// the text of all of them together is what the lists hold, so that is not measured here.

#include <cstring>
#include <string>

#include "bench/support/Bench.h"
#include "bench/support/Growth.h"
#include "include2/Resolver"

namespace {

using namespace Quillmark;

constexpr std::size_t headerSize = 12;

std::string pointer(std::size_t at) {
    return {static_cast<char>(0xc0 | at >> 8), static_cast<char>(at)};
}

/// A message of answers of a type that is not looked into (NULL, 10).
class Answers {
public:
    /// Gives the place of the data.
    std::size_t add(std::string const& owner, std::string const& data) {
        auto const length = data.size();
        m_bytes += owner + std::string("\0\x0a\0\1\0\0\0\0", 8) + static_cast<char>(length >> 8) +
                   static_cast<char>(length) + data;
        ++m_count;
        m_bytes[6] = static_cast<char>(m_count >> 8);
        m_bytes[7] = static_cast<char>(m_count);
        return m_bytes.size() - length;
    }
    std::string const& bytes() const { return m_bytes; }

private:
    std::string m_bytes = std::string(headerSize, '\0');
    unsigned int m_count = 0;
};

std::string const root(1, '\0');

// Every name is the one before it, up to the first.
std::string chain(std::size_t size) {
    Answers answers;
    answers.add("\1a" + root, "");
    std::size_t before = headerSize;
    while (answers.bytes().size() + 12 <= size) {
        std::size_t const at = answers.bytes().size();
        answers.add(pointer(before), "");
        before = at;
    }
    return answers.bytes();
}

// One ladder of pointers through half of the message, and every name goes all the way down.
std::string ladder(std::size_t size) {
    Answers answers;
    std::size_t const begin = headerSize + 11;
    std::string rungs = root;
    std::size_t last = begin;
    while (rungs.size() < size / 2) {
        std::size_t const at = begin + rungs.size();
        rungs += pointer(last);
        last = at;
    }
    bench::agree(answers.add(root, rungs) == begin, "the place of the ladder");
    while (answers.bytes().size() + 12 <= size) answers.add(pointer(last), "");
    return answers.bytes();
}

// Another name for every place of the message.
std::string everywhere(std::size_t size) {
    Answers answers;
    std::string const labels = "\1a\1b\1c\1d" + root;
    while (answers.bytes().size() + labels.size() + 22 <= size) {
        std::size_t const at = answers.add(root, labels) + 2 * (answers.bytes().size() % 4);
        answers.add(pointer(at), "");
    }
    return answers.bytes();
}

// The smallest records that there are.
std::string roots(std::size_t size) {
    Answers answers;
    while (answers.bytes().size() + 11 <= size) answers.add(root, "");
    return answers.bytes();
}

void parse(std::string const& bytes) {
    for (int i = 0; i < 200; ++i) {
        Handle<ResolverMessageImpl> const message(new ResolverMessageImpl, false);
        std::memcpy(message->data(), bytes.data(), bytes.size());
        message->length(static_cast<int>(bytes.size()));
        auto const count = static_cast<std::size_t>(static_cast<unsigned char>(bytes[6]) << 8 |
                                                    static_cast<unsigned char>(bytes[7]));
        bench::agree(message->answers().size() == count, "a message that is read to its end");
    }
}

bench::Growth const cases[] = {
    {"DNS: each name points to the one before", chain, parse, 512, 8192},
    {"DNS: every name goes down one ladder of pointers", ladder, parse, 512, 8192},
    {"DNS: pointers to ever new places", everywhere, parse, 512, 8192},
    {"DNS: nothing but records of the root", roots, parse, 512, 8192},
};

}  // namespace

int main(int argc, char** argv) {
    return bench::growthMain(argc, argv, cases);
}
