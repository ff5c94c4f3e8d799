#include "include2/Base64Media"

#include <sstream>

#include "include2/BufferMedia"
#include "include2/FileMedia"
#include "tests/media/Streams.h"
#include "tests/support/Support.h"

using namespace Quillmark;
using namespace QuillmarkTest;

namespace {

constexpr char noCell[] = "MediaException( 1 ) , MediaImpl";

constexpr char theEnd[] = "(end)";

/// What an encoder puts out for these writes, with an end() for each theEnd.
std::string encoded(std::vector<std::string> const& writes) {
    std::string log;
    Buffer out;
    BufferMediaOut sink(out);
    Base64MediaOut encoder(sink);
    for (std::string const& piece : writes)
        piece == theEnd ? encoder.end()
                        : encoder.write(bytes(piece), static_cast<unsigned int>(piece.size()));
    return text(out);
}

/// The text as mail carries it: lines of 76 characters, the last one with a line feed of its own.
std::string inLines(std::string const& content) {
    std::string const characters = buffer(content).toBase64String();
    std::string lines;
    for (std::size_t i = 0; i < characters.size(); i += 76) {
        lines += characters.substr(i, 76);
        if (characters.size() - i >= 76) lines += '\n';
    }
    return lines + "\n";
}

std::string sample(std::size_t size) {
    std::string result(size, '\0');
    for (std::size_t i = 0; i < size; ++i) result[i] = static_cast<char>(i * 131 >> 3);
    return result;
}

/// Lines as they are, whatever their length, and no line feeds.
class LineSource : public MediaInImpl {
public:
    explicit LineSource(std::deque<std::string> lines) : m_lines(std::move(lines)) {}
    bool atEnd() const override { return m_lines.empty(); }
    int peek() const override { return 0; }
    using MediaInImpl::read;
    void readline(Buffer& line) override {
        line.length(0);
        line.append(buffer(m_lines.front()));
        m_lines.pop_front();
    }

private:
    std::deque<std::string> m_lines;
};

/// Everything that a decoder gives, asked for in pieces of @p n bytes, and failures where they come.
std::string readAll(MediaIn source, unsigned int n) {
    Base64MediaIn decoder(source);
    std::string all;
    std::vector<unsigned char> piece(n);
    while (!decoder.atEnd()) {
        int got = 0;
        std::string const failure = failureOf([&] { got = decoder.read(piece.data(), n); });
        if (failure != "nothing thrown") all += "{" + failure.substr(failure.find(",  ") + 3) + "}";
        all.append(reinterpret_cast<char const*>(piece.data()), static_cast<std::size_t>(got));
    }
    return all;
}

std::string decoded(std::string const& encodedText, unsigned int n = 1000) {
    return readAll(BufferMediaIn(buffer(encodedText), 0), n);
}

}  // namespace

TEST(Base64MediaOut, WritesAFullLineAtOnceAndEndAddsALineFeed) {
    std::string const content = sample(57);
    std::string const line = buffer(content).toBase64String();
    EXPECT_EQ(line.size(), 76u);
    EXPECT_EQ(encoded({content}), line + "\n");
    EXPECT_EQ(encoded({content, theEnd}), line + "\n\n");
}

TEST(Base64MediaOut, KeepsBytesUntilTheyMakeAGroup) {
    EXPECT_EQ(encoded({"M"}), "");
    EXPECT_EQ(encoded({"M", "a"}), "");
    EXPECT_EQ(encoded({"M", "a", "n"}), "TWFu");
    EXPECT_EQ(encoded({"Ma", "nM"}), "TWFu");
    EXPECT_EQ(encoded({"M", "anManM", "a"}), "TWFuTWFu");
    EXPECT_EQ(encoded({"", "Man", ""}), "TWFu");
}

TEST(Base64MediaOut, EndPadsWhatIsLeft) {
    EXPECT_EQ(encoded({theEnd}), "\n");
    EXPECT_EQ(encoded({"M", theEnd}), "TQ==\n");
    EXPECT_EQ(encoded({"Ma", theEnd}), "TWE=\n");
    EXPECT_EQ(encoded({"Man", theEnd}), "TWFu\n");
    EXPECT_EQ(encoded({sample(56), theEnd}), buffer(sample(56)).toBase64String() + "\n\n");
    EXPECT_EQ(encoded({sample(55), theEnd}), buffer(sample(55)).toBase64String() + "\n\n");
}

TEST(Base64MediaOut, BeginsANewTextAndANewLineAfterItsEnd) {
    EXPECT_EQ(encoded({"M", theEnd, "Ma", theEnd, theEnd}), "TQ==\nTWE=\n\n");
    std::string const line = buffer(sample(57)).toBase64String();
    EXPECT_EQ(encoded({"Man", theEnd, sample(57)}), "TWFu\n" + line + "\n");
}

TEST(Base64MediaOut, NeverExceedsALineWhateverTheSizesOfTheWrites) {
    std::string const content = sample(20000);
    for (std::size_t size : {1u, 2u, 3u, 4u, 56u, 57u, 58u, 1000u, 5700u, 5701u, 20000u}) {
        std::vector<std::string> writes;
        for (std::size_t i = 0; i < content.size(); i += size) writes.push_back(content.substr(i, size));
        writes.emplace_back(theEnd);
        EXPECT_TRUE(encoded(writes) == inLines(content)) << size;
    }
}

TEST(Base64MediaOut, KeepsItsEndFromTheNextSinkButNotTheCharacterSet) {
    std::string log;
    Base64MediaOut encoder(recorder(log));
    encoder.characterSet("utf-8");
    encoder.write(bytes("Man"), 3);
    encoder.end();
    EXPECT_EQ(log, "(utf-8)[TWFu][\n]");
    EXPECT_EQ(encoder.tell(), 0u);
}

TEST(Base64MediaOut, TakesBuffers) {
    std::string log;
    Base64MediaOut encoder(recorder(log));
    encoder.write(buffer("Man"));
    MediaOut& stream = encoder;
    stream << "Man";
    EXPECT_EQ(log, "[TWFu][TWFu]");
}

TEST(Base64MediaOut, SharesItsStateWithItsCopies) {
    std::string log;
    Base64MediaOut first(recorder(log));
    Base64MediaOut second(first);
    first.write(bytes("M"), 1);
    second.write(bytes("an"), 2);
    EXPECT_EQ(log, "[TWFu]");
}

TEST(Base64MediaOut, WaitsForItsSinkToBeAttached) {
    Base64MediaOut encoder;
    EXPECT_EQ(failureOf([&] { encoder.write(bytes("M"), 1); }), noCell);
    encoder.end();
    std::string log;
    encoder.attach(recorder(log));
    encoder.write(bytes("Ma"), 2);
    encoder.detach();
    EXPECT_EQ(failureOf([&] { encoder.write(bytes("n"), 1); }), noCell);
    encoder.end();
    encoder.attach(recorder(log));
    encoder.write(bytes("n"), 1);
    EXPECT_EQ(log, "[TWFu]") << "nothing was lost meanwhile";
}

TEST(Base64MediaOut, RefusesNullBytesWithALength) {
    std::string log;
    Base64MediaOut encoder(recorder(log));
    encoder.write(static_cast<unsigned char const*>(nullptr), 0);
    EXPECT_EQ(failureOf([&] { encoder.write(static_cast<unsigned char const*>(nullptr), 1); }),
              "BufferException( 2 ) , BufferImpl:70, ");
    EXPECT_EQ(log, "");
    Base64MediaOut loose;
    EXPECT_EQ(failureOf([&] { loose.write(static_cast<unsigned char const*>(nullptr), 1); }),
              "BufferException( 2 ) , BufferImpl:70, ")
        << "before anybody asks for the sink";
}

TEST(Base64MediaOut, CanRepeatAWriteThatTheSinkRefused) {
    class Refusing : public MediaOutImpl {
    public:
        explicit Refusing(std::string& taken) : m_taken(taken) {}
        using MediaOutImpl::write;
        void write(unsigned char const* data, unsigned int n) override {
            if (m_refusals-- > 0) throw MediaException(WriteFailed, nullptr, 0);
            m_taken.append(reinterpret_cast<char const*>(data), n);
        }

    private:
        std::string& m_taken;
        int m_refusals = 2;
    };
    std::string taken;
    Base64MediaOut encoder(MediaOut(new Refusing(taken), false));
    encoder.write(bytes("M"), 1);
    EXPECT_EQ(failureOf([&] { encoder.write(bytes("anMa"), 4); }), "MediaException( 4097 ) ");
    EXPECT_EQ(failureOf([&] { encoder.end(); }), "MediaException( 4097 ) ");
    encoder.write(bytes("anMa"), 4);
    encoder.end();
    EXPECT_EQ(taken, "TWFuTWE=\n");
}

TEST(Base64MediaIn, DecodesLineByLine) {
    EXPECT_EQ(decoded("TWFu\nTWFu\r\nTQ==\n"), "ManManM");
    EXPECT_EQ(decoded(""), "");
    EXPECT_EQ(decoded("\n\r\n \n"), "");
}

TEST(Base64MediaIn, DecodesWhatTheEncoderWrites) {
    for (std::size_t size : {0u, 1u, 2u, 3u, 56u, 57u, 58u, 5000u}) {
        std::string const content = sample(size);
        for (unsigned int n : {1u, 2u, 57u, 100u, 8192u})
            EXPECT_TRUE(decoded(inLines(content), n) == content) << size;
    }
}

TEST(Base64MediaIn, CarriesAnIncompleteGroupToTheNextLine) {
    EXPECT_EQ(decoded("T\nW\nF\nu\nTWF\nuT\nQ==\n"), "ManManM");
    EXPECT_EQ(decoded("TWFuTWF\n"), "ManMa") << "at the end it keeps the bytes that it determines";
}

TEST(Base64MediaIn, DecodesLinesLongerThanItsLineBuffer) {
    std::string const content = sample(100001);
    EXPECT_TRUE(decoded(buffer(content).toBase64String()) == content);
    EXPECT_TRUE(decoded(buffer(content).toBase64String() + "\n", 7) == content);
}

TEST(Base64MediaIn, EndsAGroupWithItsPaddingAndStartsAfreshInTheNextLine) {
    EXPECT_EQ(decoded("TQ==\nTQ==\nTWE=\nTWFu\n"), "MMMaMan");
    EXPECT_EQ(decoded("TQ=\nTWFu\n"), "MMan");
    EXPECT_EQ(decoded("TQ==TQ==\n"), "{\"Invalid Base64 Encoding: Equal expected.\"}");
}

// A buffer gives pieces as long as the line buffer, a stream pieces of one byte less.
TEST(Base64MediaIn, KeepsThePaddingOfALineThatComesInPieces) {
    auto const decodedFromBuffer = +[](std::string const& content) { return decoded(content); };
    auto const decodedFromStream = +[](std::string const& content) {
        std::istringstream stream(content);
        return readAll(IStreamMediaIn(stream), 100000);
    };
    for (std::size_t length : {8189u, 8190u, 8191u, 8192u, 8193u}) {
        std::string const line =
            std::string(length - length % 4, 'A') + "TQ" + std::string(length % 4, ' ') + "=";
        for (auto const decode : {decodedFromBuffer, decodedFromStream}) {
            EXPECT_EQ(decode(line + "=\nTWFu").size(), (length / 4) * 3 + 4) << length;
            EXPECT_NE(decode(line + "=T\n").find("Equal expected."), std::string::npos) << length;
        }
    }
}

TEST(Base64MediaIn, TakesLinesWithoutLineFeeds) {
    std::deque<std::string> const lines = {"TQ==", "", "TWE=", "TW", "Fu"};
    EXPECT_EQ(readAll(MediaIn(new LineSource(lines), false), 100), "MMaMan");
}

TEST(Base64MediaIn, NamesThePositionInTheLineAndKeepsTheLinesBefore) {
    EXPECT_EQ(decoded("TWFu\nTWFu\nTQ#=\nTWFu\n"),
              "{\"Invalid Base64 Encoding at pos 2. Character=0x23\"}ManManMan");
    EXPECT_EQ(decoded("TWFu\nTWFu\nTQ#=\nTWFu\n", 3),
              "ManMan{\"Invalid Base64 Encoding at pos 2. Character=0x23\"}Man");
    std::string longLine(20000, 'A');
    longLine[19000] = '*';
    std::string const all = decoded(longLine + "\nTQ#=");
    EXPECT_NE(all.find("at pos 19000. Character=0x2a"), std::string::npos);
    EXPECT_NE(all.find("at pos 2. Character=0x23"), std::string::npos) << "the next line counts from 0";
}

TEST(Base64MediaIn, ForgetsTheGroupThatABadByteBroke) {
    EXPECT_EQ(decoded("TW\nF#\nTWFu\n"), "{\"Invalid Base64 Encoding at pos 1. Character=0x23\"}MMan");
    EXPECT_EQ(decoded("TQ=#\nTWFu\n"), "{\"Invalid Base64 Encoding at pos 3. Character=0x23\"}Man");
}

TEST(Base64MediaIn, ReadsNothingIntoNull) {
    BufferMediaIn source(buffer("TWFu"), 0);
    Base64MediaIn decoder(source);
    EXPECT_EQ(decoder.read(static_cast<unsigned char*>(nullptr), 3), 0);
    unsigned char byte = 0;
    EXPECT_EQ(decoder.read(&byte, 0), 0);
    EXPECT_EQ(source.tell(), 0u) << "and takes nothing from its source";
}

TEST(Base64MediaIn, IsAtItsEndWhenTheSourceIsAndEverythingWasRead) {
    BufferMediaIn source(buffer("TWFu"), 0);
    Base64MediaIn decoder(source);
    unsigned char piece[2];
    EXPECT_FALSE(decoder.atEnd());
    EXPECT_EQ(decoder.read(piece, 2), 2);
    EXPECT_TRUE(source.atEnd());
    EXPECT_FALSE(decoder.atEnd());
    EXPECT_EQ(decoder.read(piece, 2), 1);
    EXPECT_TRUE(decoder.atEnd());
    EXPECT_EQ(decoder.read(piece, 2), 0);
}

// A daemon's source may give lines of any length.
TEST(Base64MediaIn, RefusesALineBeyond32BitsAndDoesNotGoOnBehindIt) {
    class Endless : public MediaInImpl {
    public:
        explicit Endless(int& lines) : m_lines(lines) {}
        bool atEnd() const override { return false; }
        int peek() const override { return 1; }
        int read(unsigned char*, uint_t) override { return 0; }
        ulong_t tell() const override { return 0; }
        void setpos(ulong_t) override {}
        void readline(Buffer& line) override {
            line = m_lines++ == 0 ? Buffer("QUJD\n", 5, true) : Buffer("QUJD\n", UINT32_MAX, true);
        }

    private:
        int& m_lines;
    };
    int lines = 0;
    MediaIn endless(new Endless(lines), false);
    Base64MediaIn decoder(endless);
    unsigned char into[64];
    std::string const noMemory = "BufferException( 4 ) , BufferImpl:129, ";
    EXPECT_EQ(failureOf([&] { decoder.read(into, 64); }), noMemory);
    EXPECT_EQ(failureOf([&] { decoder.read(into, 64); }), noMemory);
    EXPECT_EQ(lines, 2) << "the line that found no room is not left out";
    EXPECT_FALSE(decoder.atEnd());
    EXPECT_EQ(decoder.read(into, 3), 3);
    EXPECT_EQ(std::string(into, into + 3), "ABC");
}

TEST(Base64MediaIn, RefusesToPeekInTheNameOfReadline) {
    BufferMediaIn source(buffer("TWFu"), 0);
    Base64MediaIn const decoder(source);
    EXPECT_EQ(failureOf([&] { decoder.peek(); }),
              "Base64MediaInImpl::readline( 4 ) , Base64Media:172,  \"Not Implemented yet\"");
}

TEST(Base64MediaIn, LeavesTheOtherOperationsAsTheyAre) {
    BufferMediaIn source(buffer("TWFu"), 0);
    Base64MediaIn decoder(source);
    EXPECT_EQ(failureOf([&] { decoder.setpos(0); }), "setpos( 5 ) , MediaImpl:36, ");
    Buffer line;
    EXPECT_EQ(failureOf([&] { decoder.readline(line); }),
              "MediaInImpl::readline( 4 ) , MediaImpl:57,  \"Not implemnted in sub class\"");
    std::string log;
    MediaOut out = recorder(log);
    decoder.write(out);
    EXPECT_EQ(log, "[Man]");
    EXPECT_EQ(decoder.tell(), 0u);
}

TEST(Base64MediaIn, CountsWhatItHandsOut) {
    BufferMediaIn source(buffer("TWFuTWFu"), 0);
    Handle<Base64MediaInImpl> const decoder(new Base64MediaInImpl(source), false);
    unsigned char piece[4];
    EXPECT_EQ(decoder->read(piece, 4), 4);
    EXPECT_EQ(decoder->delivered(), 4u);
    EXPECT_EQ(decoder->read(piece, 4), 2);
    EXPECT_EQ(decoder->delivered(), 6u);
}

TEST(Base64MediaIn, SharesItsStateWithItsCopies) {
    BufferMediaIn source(buffer("TWFu"), 0);
    Base64MediaIn first(source);
    Base64MediaIn second(first);
    unsigned char byte = 0;
    EXPECT_EQ(first.read(&byte, 1), 1);
    EXPECT_EQ(second.read(&byte, 1), 1);
    EXPECT_EQ(byte, 'a');
}

TEST(Base64MediaIn, WithoutASourceFailsAsAnyNullStream) {
    MediaIn none;
    Base64MediaIn decoder(none);
    EXPECT_EQ(failureOf([&] { decoder.atEnd(); }), noCell);
    unsigned char byte = 0;
    EXPECT_EQ(failureOf([&] { decoder.read(&byte, 1); }), noCell);
}
