// Every MD5 kernel against the plain one, at every number of blocks and offset that matters.

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "media/Md5Block.h"
#include "tests/support/Support.h"

using namespace Quillmark;

namespace {

/// The kernels of this machine, the plain one among them.
std::vector<Md5Kernel> kernels() {
    std::vector<Md5Kernel> runnable;
    for (Md5Kernel const& kernel : md5Kernels())
        if (cpuHas(kernel.needs)) runnable.push_back(kernel);
    return runnable;
}

std::vector<unsigned char> randomBytes(std::size_t size) {
    static std::mt19937 generator(19920401);
    std::vector<unsigned char> bytes(size);
    for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(generator());
    return bytes;
}

}  // namespace

TEST(Md5Kernel, TheFirstThatTheMachineCanRunIsChosen) {
    EXPECT_STREQ(md5Kernel().name, kernels().front().name);
    EXPECT_STREQ(md5Kernels().back().name, "plain");
}

TEST(Md5Kernel, AllDigestTheBlockOfTheEmptyMessage) {
    unsigned char const block[md5BlockSize] = {0x80};
    Md5State const digest = {0xd98c1dd4, 0x04b2008f, 0x980980e9, 0x7e42f8ec};
    for (Md5Kernel const& kernel : kernels()) {
        Md5State state = md5InitialState;
        kernel.compress(state, block, 1);
        EXPECT_EQ(state, digest) << kernel.name;
    }
}

TEST(Md5Kernel, AllAgreeOnAnyBlocksAtAnyAddress) {
    for (std::size_t count = 0; count <= 5; ++count)
        for (std::size_t offset = 0; offset < 64; ++offset) {
            std::vector<unsigned char> const bytes = randomBytes(offset + count * md5BlockSize);
            Md5State expected = md5InitialState;
            md5Kernels().back().compress(expected, bytes.data() + offset, count);
            for (Md5Kernel const& kernel : kernels()) {
                Md5State state = md5InitialState;
                kernel.compress(state, bytes.data() + offset, count);
                EXPECT_EQ(state, expected) << kernel.name << ", " << count << " blocks at " << offset;
            }
        }
}

TEST(Md5Kernel, AllAgreeFromAnyState) {
    for (int round = 0; round < 300; ++round) {
        std::vector<unsigned char> const begin = randomBytes(sizeof(Md5State));
        std::vector<unsigned char> const block = randomBytes(md5BlockSize);
        Md5State expected;
        std::memcpy(expected.data(), begin.data(), begin.size());
        Md5State const first = expected;
        md5Kernels().back().compress(expected, block.data(), 1);
        for (Md5Kernel const& kernel : kernels()) {
            Md5State state = first;
            kernel.compress(state, block.data(), 1);
            EXPECT_EQ(state, expected) << kernel.name;
        }
    }
}
