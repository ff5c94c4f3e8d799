#include "include2/EncoderMedia"

#include "tests/media/Streams.h"
#include "tests/support/Support.h"

using namespace Quillmark;
using QuillmarkTest::bytes;
using QuillmarkTest::failureOf;
using QuillmarkTest::recorder;

namespace {

/// What arrives at the sink, each write in brackets.
std::string quoted(std::initializer_list<std::string> pieces) {
    std::string log;
    QuotedPrintableOut out(recorder(log));
    for (std::string const& piece : pieces) out << piece;
    return log;
}

std::string letters(std::size_t n) {
    return std::string(n, 'x');
}

}  // namespace

TEST(QuotedPrintableOut, WritesEachByteByItsRule) {
    struct Row {
        std::string text;
        std::string encoded;
    };
    for (auto const& [text, encoded] :
         {Row{"a=b", "a=3Db"},
          {"\xe9", "=E9"},
          {"\x7f", "=7F"},
          {"\x80\xff", "=80=FF"},
          {std::string("\0\x01\x1f", 3), "=00=01=1F"},
          {"!\"#$%&'()*+,-./09:;<>?@AZ[\\]^_`az{|}~", "!\"#$%&'()*+,-./09:;<>?@AZ[\\]^_`az{|}~"},
          {"a \r\n", "a \r\n"},
          {"\t\v\f \n", "\t\v\f \n"},
          {"\x08\x0e", "=08=0E"}})
        EXPECT_EQ(quoted({text}), "[" + encoded + "]") << encoded;
}

TEST(QuotedPrintableOut, BreaksALineSoftlyOnceItHoldsMoreThan72Characters) {
    struct Row {
        std::string text;
        std::string encoded;
    };
    for (auto const& [text, encoded] : {Row{letters(73), letters(73)},
                                        {letters(80), letters(73) + "=\n" + letters(7)},
                                        {letters(72) + "=x", letters(72) + "=3D=\nx"},
                                        {letters(73) + "\n", letters(73) + "=\n\n"},
                                        {letters(72) + "\n" + letters(72), letters(72) + "\n" + letters(72)},
                                        {letters(70) + "\n" + letters(70), letters(70) + "\n" + letters(70)},
                                        {letters(146) + "y", letters(73) + "=\n" + letters(73) + "=\ny"}})
        EXPECT_EQ(quoted({text}), "[" + encoded + "]") << text.size();
}

TEST(QuotedPrintableOut, CountsOnFromOneWriteToTheNext) {
    EXPECT_EQ(quoted({letters(40), letters(33), "ab"}), "[" + letters(40) + "][" + letters(33) + "][=\nab]");
}

TEST(QuotedPrintableOut, MakesOneWriteOfALongOne) {
    std::string const encoded = quoted({std::string(1 << 21, '=')});
    EXPECT_EQ(std::count(encoded.begin(), encoded.end(), '['), 1);
    EXPECT_EQ(encoded.size(), 2U + 3U * (1U << 21) + 2U * ((1U << 21) / 25 - (((1U << 21) % 25) == 0)));
}

TEST(QuotedPrintableOut, WritesNothingForNothingAndEndsTheNextSink) {
    std::string log;
    QuotedPrintableOut out(recorder(log));
    out.write(Buffer());
    out.characterSet("utf-8");
    out.end();
    EXPECT_EQ(log, "(utf-8)end");
}

TEST(QuotedPrintableOut, CanBeAttachedLater) {
    std::string log;
    QuotedPrintableOut out;
    EXPECT_EQ(failureOf([&] { out << "lost?"; }), "MediaException( 1 ) , MediaImpl");
    out.end();
    out.attach(recorder(log));
    out << "=";
    out.detach();
    out.end();
    EXPECT_EQ(log, "[=3D]");
}

template <class Encoder>
class SilentEncoder : public testing::Test {};
using SilentEncoders = testing::Types<UUEncodeOut, BinHex40Out>;
TYPED_TEST_SUITE(SilentEncoder, SilentEncoders);

TYPED_TEST(SilentEncoder, TakesEveryByteAndReachesNothing) {
    std::string log;
    TypeParam out(recorder(log));
    out << "text";
    out.write(Buffer("more", 4, false));
    out.write(bytes("again"), 5);
    out.end();
    EXPECT_EQ(log, "");
}

TYPED_TEST(SilentEncoder, PassesTheCharacterSetOn) {
    std::string log;
    TypeParam out;
    out.attach(recorder(log));
    out.characterSet("utf-8");
    EXPECT_EQ(log, "(utf-8)");
}

TYPED_TEST(SilentEncoder, NeedsNoSink) {
    TypeParam out;
    EXPECT_EQ(failureOf([&] {
                  out << "text";
                  out.end();
              }),
              "nothing thrown");
}

TYPED_TEST(SilentEncoder, RefusesNullBytesWithALength) {
    TypeParam out;
    EXPECT_EQ(failureOf([&] { out.write(nullptr, 1); }), "BufferException( 2 ) , BufferImpl:70, ");
}

TEST(QuotedPrintableOut, CountsNoColumnThatItsSinkDidNotTake) {
    class Refusing : public MediaOutImpl {
    public:
        explicit Refusing(std::string& taken) : m_taken(taken) {}
        using MediaOutImpl::write;
        void write(unsigned char const* data, uint_t n) override {
            if (m_writes++ == 1) throw MediaException(WriteFailed, nullptr, 0);
            m_taken.append(reinterpret_cast<char const*>(data), n);
        }
        void end() override {}

    private:
        int m_writes = 0;
        std::string& m_taken;
    };
    std::string taken;
    QuotedPrintableOut out(MediaOut(new Refusing(taken), false));
    out << std::string(70, 'a');
    EXPECT_EQ(failureOf([&] { out << "\n"; }), "MediaException( 4097 ) ");
    out << std::string(70, 'b');
    EXPECT_EQ(taken, std::string(70, 'a') + "bbb=\n" + std::string(67, 'b'));
}

TEST(QuotedPrintableOut, RefusesNullBytesWithALength) {
    QuotedPrintableOut out;
    EXPECT_EQ(failureOf([&] { out.write(nullptr, 1); }), "BufferException( 2 ) , BufferImpl:70, ");
}
