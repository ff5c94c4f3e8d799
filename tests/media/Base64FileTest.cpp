#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "include2/Base64Media"
#include "include2/FileMedia"
#include "tests/support/Support.h"

using namespace Quillmark;
using namespace QuillmarkTest;

extern "C" {
int encodeInC(char const* input, char* output);
int decodeInC(char const* input, char const* output);
}

namespace {

int encode(std::string const& input, std::string output) {
    return encodeInC(input.c_str(), output.data());
}

int decode(std::string const& input, std::string const& output) {
    return decodeInC(input.c_str(), output.c_str());
}

std::string sample(std::size_t size) {
    std::string result(size, '\0');
    for (std::size_t i = 0; i < size; ++i) result[i] = static_cast<char>(i * 31 >> 2);
    return result;
}

std::string repeated(std::string const& piece, std::size_t times) {
    std::string result;
    for (std::size_t i = 0; i < times; ++i) result += piece;
    return result;
}

/// What a stream decodes a file to, whole blocks only when it fails, and what the C function gives then.
std::pair<std::string, int> streamed(std::string const& path) {
    std::string result;
    FileMediaIn file(path);
    Base64MediaIn decoder(file);
    std::vector<unsigned char> block(16384);
    try {
        while (!decoder.atEnd()) {
            int const got = decoder.read(block.data(), 16384);
            result.append(block.begin(), block.begin() + got);
        }
    } catch (BufferException const&) {
        return {result, -1};
    }
    return {result, 0};
}

/// Keeps what is written to it.
class Text : public MediaOutImpl {
public:
    explicit Text(std::string& text) : m_text(text) {}
    using MediaOutImpl::write;
    void write(unsigned char const* data, unsigned int n) override {
        m_text.append(reinterpret_cast<char const*>(data), n);
    }

private:
    std::string& m_text;
};

/// Descriptors stay closed behind every test.
class Base64File : public testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(openDescriptors(), m_before); }

    TemporaryDirectory directory;
    std::string const out = directory.file("out");

private:
    std::size_t const m_before = openDescriptors();
};

}  // namespace

TEST_F(Base64File, EncodesInLinesAndEndsWithALineFeed) {
    EXPECT_EQ(encode(directory.write("in", "Man"), out), 0);
    EXPECT_EQ(readFile(out), "TWFu\n");
    EXPECT_EQ(encode(directory.write("in", std::string(57, 'a')), out), 0);
    std::string const line = readFile(out);
    EXPECT_EQ(line.size(), 78u);
    EXPECT_EQ(line.substr(76), "\n\n");
    EXPECT_EQ(encode(directory.write("in", ""), out), 0);
    EXPECT_EQ(readFile(out), "\n");
}

TEST_F(Base64File, DecodesWhatItEncodes) {
    for (std::size_t size : {0u, 1u, 57u, 16383u, 16384u, 16385u, 100000u}) {
        std::string const content = sample(size);
        EXPECT_EQ(encode(directory.write("in", content), out), 0);
        EXPECT_EQ(decode(out, directory.file("back")), 0);
        EXPECT_TRUE(readFile(directory.file("back")) == content) << size;
    }
}

TEST_F(Base64File, DecodesALineWithoutLineFeed) {
    EXPECT_EQ(decode(directory.write("in", "TWFu\r\nTWFuTQ=="), out), 0);
    EXPECT_EQ(readFile(out), "ManManM");
}

TEST_F(Base64File, EmptiesAnOutputThatIsLonger) {
    writeFile(out, std::string(1000, 'x'));
    EXPECT_EQ(encode(directory.write("in", "M"), out), 0);
    EXPECT_EQ(readFile(out), "TQ==\n");
    writeFile(out, std::string(1000, 'x'));
    EXPECT_EQ(decode(directory.write("in", "TQ=="), out), 0);
    EXPECT_EQ(readFile(out), "M");
}

TEST_F(Base64File, RefusesFilesThatCannotBeOpened) {
    std::string const in = directory.write("in", "TQ==");
    EXPECT_EQ(encode(directory.file("missing"), out), -1);
    EXPECT_NE(::access(out.c_str(), F_OK), 0) << "the input is opened first";
    EXPECT_EQ(encode(in, directory.file("no/such/directory")), -1);
    EXPECT_EQ(decode(in, directory.file("no/such/directory")), -1);
    EXPECT_EQ(encode(in, directory.path()), -1);
    EXPECT_EQ(decode(in, directory.path()), -1);
}

TEST_F(Base64File, OpensTheOutputFirstWhenItDecodes) {
    writeFile(out, "old");
    EXPECT_EQ(decode(directory.file("missing"), out), -1);
    EXPECT_EQ(readFile(out), "");
}

TEST_F(Base64File, RefusesADirectoryAsInput) {
    EXPECT_EQ(encode(directory.path(), out), -1);
    EXPECT_EQ(decode(directory.path(), out), -1);
}

TEST_F(Base64File, RefusesNullPaths) {
    std::string const in = directory.write("in", "TQ==");
    std::string target = out;
    EXPECT_EQ(encodeInC(nullptr, target.data()), -1);
    EXPECT_EQ(encodeInC(in.c_str(), nullptr), -1);
    EXPECT_EQ(decodeInC(nullptr, target.c_str()), -1);
    EXPECT_EQ(decodeInC(in.c_str(), nullptr), -1);
    EXPECT_NE(::access(out.c_str(), F_OK), 0);
}

TEST_F(Base64File, LeavesAFileAloneThatIsInputAndOutput) {
    std::string const in = directory.write("in", "TWFu\n");
    ASSERT_EQ(::symlink(in.c_str(), directory.file("symbolic").c_str()), 0);
    ASSERT_EQ(::link(in.c_str(), directory.file("hard").c_str()), 0);
    for (std::string const& other :
         {in, directory.path() + "/./in", directory.file("symbolic"), directory.file("hard")}) {
        EXPECT_EQ(encode(in, other), -1) << other;
        EXPECT_EQ(decode(in, other), -1) << other;
        EXPECT_EQ(encode(other, in), -1) << other;
        EXPECT_EQ(decode(other, in), -1) << other;
        EXPECT_EQ(readFile(in), "TWFu\n") << other;
    }
}

TEST_F(Base64File, FailsOnBadTextAndKeepsWhatWasDecodedBefore) {
    std::string good;
    for (int i = 0; i < 10000; ++i) good += "TWFu\n";
    EXPECT_EQ(decode(directory.write("in", good + "T#Fu\n"), out), -1);
    EXPECT_EQ(readFile(out).substr(0, 16384).size(), 16384u);
    EXPECT_EQ(decode(directory.write("in", "=AAA"), out), -1);
    EXPECT_EQ(readFile(out), "");
}

TEST_F(Base64File, DecodesAsAStreamDoesAndKeepsAsMuchWhenItFails) {
    std::string const line = repeated("A", 76) + "\n";
    std::string const crlf = repeated("B", 72) + "\r\n";
    std::string const endless(30000, 'C');
    std::string const texts[] = {
        repeated(line, 2000) + "TQ==\n" + repeated(crlf, 3000) + "TWE=\nTWFu",
        repeated("TQ==\n", 60000),
        repeated(line, 5000) + "T=\n" + repeated(line, 5000),
        repeated(endless, 10) + "TQ= \n= \n",
        repeated(endless, 10) + "TQ= \n",
        repeated(line + endless + "\n", 20) + "TQ==TQ==\n" + line,
        repeated("A\n", 200000),
        repeated(line, 3404) + "T",
        repeated("\n", 300000),
    };
    for (std::string const& text : texts) {
        std::string const in = directory.write("in", text);
        auto const [expected, result] = streamed(in);
        EXPECT_EQ(decode(in, out), result);
        EXPECT_TRUE(readFile(out) == expected) << text.substr(0, 20) << " " << text.size();
    }
    for (std::size_t at = 1; at < 400000; at += 9973) {
        std::string text = repeated(line + endless + "\n", 14);
        text[at % text.size()] = '#';
        std::string const in = directory.write("in", text);
        auto const [expected, result] = streamed(in);
        EXPECT_EQ(decode(in, out), result);
        EXPECT_TRUE(readFile(out) == expected) << at;
    }
}

// About 131,056 characters, sixteen pieces of a long line, are looked at together.
TEST_F(Base64File, KeepsThePaddingOfALineThatIsReadInParts) {
    for (std::size_t length = 131050; length < 131060; ++length) {
        std::string const line =
            std::string(length - length % 4, 'A') + "TQ" + std::string(length % 4, ' ') + "=";
        EXPECT_EQ(decode(directory.write("in", line + "=\nTWFu"), out), 0) << length;
        EXPECT_EQ(readFile(out).size(), length / 4 * 3 + 4) << length;
        EXPECT_EQ(decode(directory.write("in", line + "=T\n"), out), -1) << length;
    }
}

TEST_F(Base64File, EncodesAsAStreamDoes) {
    for (std::size_t size :
         {1u, 2u, 3u, 54u, 55u, 56u, 57u, 58u, 114u, 116735u, 116736u, 116737u, 233472u, 400000u}) {
        std::string const content = sample(size);
        EXPECT_EQ(encode(directory.write("in", content), out), 0);
        std::string expected;
        Base64MediaOut encoder(MediaOut(new Text(expected), false));
        encoder << content;
        encoder.end();
        EXPECT_TRUE(readFile(out) == expected) << size;
    }
}

TEST_F(Base64File, FailsWhenTheOutputIsFull) {
    std::string const in = directory.write("in", std::string(40000, 'A'));
    EXPECT_EQ(encode(in, "/dev/full"), -1);
    EXPECT_EQ(decode(in, "/dev/full"), -1);
    EXPECT_EQ(encode(in, "/dev/null"), 0);
    EXPECT_EQ(decode(in, "/dev/null"), 0);
}
