#include "include2/Obfuscator"

#include "tests/media/Streams.h"
#include "tests/support/Support.h"

using namespace Quillmark;
using QuillmarkTest::bytes;
using QuillmarkTest::failureOf;
using QuillmarkTest::hex;
using QuillmarkTest::recorder;

namespace {

/// Collects what is written, without the marks of the Recorder.
class Collector : public MediaOutImpl {
public:
    explicit Collector(std::string& text) : m_text(text) {}
    using MediaOutImpl::write;
    void write(unsigned char const* data, unsigned int n) override {
        m_text.append(reinterpret_cast<char const*>(data), n);
    }

private:
    std::string& m_text;
};

std::string scrambled(unsigned int seed, std::string const& text) {
    std::string result;
    MediaOut sink(new Collector(result), false);
    LightweightObfuscator out(sink, seed);
    out << text;
    return result;
}

}  // namespace

TEST(LightweightObfuscator, MakesItsKeyOfTwoBytesOfTheSeed) {
    struct Row {
        unsigned int seed;
        char const* scrambled;  // of the bytes 00 41 ff
    };
    for (Row const& row : {Row{0, "0041ff"},
                           {0x00420042, "0041ff"},
                           {0x00000001, "0140fe"},
                           {0x0000ff01, "0140fe"},
                           {0xff000001, "0140fe"},
                           {0x00010000, "0140fe"},
                           {0x120034ff, "ffbe00"},
                           {0x000f00f0, "ffbe00"}})
        EXPECT_EQ(hex(scrambled(row.seed, std::string("\0A\xff", 3))), row.scrambled) << row.seed;
}

TEST(LightweightObfuscator, TwoOfOneSeedGiveTheTextBack) {
    std::string result;
    MediaOut sink(new Collector(result), false);
    LightweightObfuscator inner(sink, 0x00990077);
    LightweightObfuscator outer(inner, 0x00990077);
    outer << "Attack at dawn.";
    EXPECT_EQ(result, "Attack at dawn.");
}

// Kept for the daemons: a sink sees one write for each byte.
TEST(LightweightObfuscator, WritesEachByteOnItsOwn) {
    std::string log;
    MediaOut sink = recorder(log);
    LightweightObfuscator out(sink, 0);
    out.write(Buffer("ab", 2, false));
    out.write(bytes("c"), 1);
    EXPECT_EQ(log, "[a][b][c]");
}

TEST(LightweightObfuscator, DropsBytesWithoutASink) {
    LightweightObfuscator out(1);
    EXPECT_EQ(failureOf([&] {
                  out << "lost";
                  out.write(nullptr, 5);
                  out.characterSet("utf-8");
              }),
              "nothing thrown");
}

TEST(LightweightObfuscator, DropsNullBytes) {
    std::string log;
    MediaOut sink = recorder(log);
    LightweightObfuscator out(sink, 0);
    out.write(nullptr, 5);
    out.write(bytes("x"), 0);
    EXPECT_EQ(log, "");
}

TEST(LightweightObfuscator, NeverEndsItsSinkButTellsItTheCharacterSet) {
    std::string log;
    MediaOut sink = recorder(log);
    LightweightObfuscator out(sink, 0);
    out.end();
    out.characterSet("utf-8");
    EXPECT_EQ(log, "(utf-8)");
}

TEST(LightweightObfuscator, WritesToTheSinkThatWasAttachedLast) {
    std::string first;
    std::string second;
    MediaOut a = recorder(first);
    MediaOut b = recorder(second);
    LightweightObfuscator out(a, 0);
    out << "1";
    out.attachOutput(b);
    out << "2";
    out.detachOutput();
    out << "3";
    EXPECT_EQ(first + second, "[1][2]");
}

TEST(LightweightObfuscator, KeepsItsSinkAlive) {
    std::string log;
    LightweightObfuscator out(0);
    {
        MediaOut sink = recorder(log);
        out.attachOutput(sink);
    }
    out << "x";
    EXPECT_EQ(log, "[x]");
}

TEST(LightweightObfuscator, FinishesAWriteWithTheSinkThatItBeganWith) {
    std::string log;
    LightweightObfuscator out(0);
    struct Detaching : MediaOutImpl {
        Detaching(LightweightObfuscator& from, std::string& writes) : filter(from), log(writes) {}
        using MediaOutImpl::write;
        void write(unsigned char const* data, unsigned int n) override {
            filter.detachOutput();
            log.append(reinterpret_cast<char const*>(data), n);
        }
        LightweightObfuscator& filter;
        std::string& log;
    };
    {
        MediaOut sink(new Detaching(out, log), false);
        out.attachOutput(sink);
    }
    out << "ab";
    out << "c";
    EXPECT_EQ(log, "ab");
}

TEST(LightweightObfuscator, AnEmptyHandleDetaches) {
    std::string log;
    MediaOut sink = recorder(log);
    LightweightObfuscator out(sink, 0);
    MediaOut empty;
    out.attachOutput(empty);
    out << "x";
    EXPECT_EQ(log, "");
}

TEST(LightweightObfuscator, RefusesToWriteToItself) {
    std::string log;
    MediaOut sink = recorder(log);
    LightweightObfuscator out(sink, 0);
    MediaOut alias(out);
    EXPECT_EQ(failureOf([&] { out.attachOutput(out); }), "MediaException( 2 ) , Obfuscator");
    EXPECT_EQ(failureOf([&] { out.attachOutput(alias); }), "MediaException( 2 ) , Obfuscator");
    out << "x";
    EXPECT_EQ(log, "[x]");
}

TEST(LightweightObfuscator, ANullHandleRefusesEachCallInItsName) {
    LightweightObfuscator out(7);
    static_cast<MediaOut&>(out) = MediaOut();
    ASSERT_TRUE(out.isNull());
    MediaOut sink;
    Buffer const buffer;
    EXPECT_EQ(failureOf([&] { out.attachOutput(sink); }), "MediaException( 1 ) , Obfuscator:95, ");
    EXPECT_EQ(failureOf([&] { out.detachOutput(); }), "MediaException( 1 ) , Obfuscator:108, ");
    EXPECT_EQ(failureOf([&] { out.write(buffer); }), "MediaException( 1 ) , Obfuscator:121, ");
    EXPECT_EQ(failureOf([&] { out.write(nullptr, 0); }), "MediaException( 1 ) , Obfuscator:130, ");
    EXPECT_EQ(failureOf([&] { out.end(); }), "MediaException( 1 ) , Obfuscator:139, ");
}

TEST(LightweightObfuscator, CopiesShareTheSink) {
    std::string log;
    MediaOut sink = recorder(log);
    LightweightObfuscator out(0);
    LightweightObfuscator copy(out);
    copy.attachOutput(sink);
    out << "x";
    EXPECT_EQ(log, "[x]");
}
