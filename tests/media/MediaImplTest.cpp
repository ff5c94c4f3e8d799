#include "include2/Media"

#include <boost/iostreams/stream.hpp>
#include <type_traits>

#include "include2/MediaInSource"
#include "tests/media/Streams.h"
#include "tests/support/Support.h"

using namespace Quillmark;
using namespace QuillmarkTest;

namespace {

// Nothing but what an input must have.
class BareIn : public MediaInImpl {
public:
    bool atEnd() const override { return true; }
    int peek() const override { return 0; }
};

class BareOut : public MediaOutImpl {
public:
    using MediaOutImpl::write;
    void write(unsigned char const* /*data*/, unsigned int n) override { m_count += n; }
    unsigned int m_count = 0;
};

std::string const nullHandle = "MediaException( 1 ) , MediaImpl";

}  // namespace

static_assert(std::is_nothrow_copy_constructible_v<MediaIn> && std::is_nothrow_move_assignable_v<MediaIn>);
static_assert(std::is_nothrow_copy_constructible_v<MediaOut> &&
              std::is_nothrow_move_constructible_v<MediaOut>);
static_assert(std::is_base_of_v<NonCopyable, MediaInImpl> && !std::is_copy_constructible_v<BareIn>);
static_assert(std::is_base_of_v<NonCopyable, MediaOutImpl> && !std::is_copy_constructible_v<BareOut>);
static_assert(std::is_abstract_v<MediaInImpl> && std::is_abstract_v<MediaOutImpl>);
static_assert(std::is_abstract_v<MediaOutDecoratorImpl>);

TEST(MediaSlots, KeepTheOrderThatCompiledMediaRelyOn) {
    using Bytes = unsigned char*;
    using ConstBytes = unsigned char const*;
    int next = 2;
    EXPECT_EQ(slot(&MediaInImpl::atEnd), next++);
    EXPECT_EQ(slot(&MediaInImpl::peek), next++);
    EXPECT_EQ(slot(&MediaInImpl::readline), next++);
    EXPECT_EQ(slot<MediaInImpl>(static_cast<int (MediaInImpl::*)(Buffer&, uint_t)>(&MediaInImpl::read)),
              next++);
    EXPECT_EQ(slot<MediaInImpl>(static_cast<int (MediaInImpl::*)(Buffer&)>(&MediaInImpl::read)), next++);
    EXPECT_EQ(slot<MediaInImpl>(static_cast<int (MediaInImpl::*)(std::string&)>(&MediaInImpl::read)), next++);
    EXPECT_EQ(slot<MediaInImpl>(static_cast<int (MediaInImpl::*)(Bytes, uint_t)>(&MediaInImpl::read)),
              next++);
    EXPECT_EQ(slot(&MediaInImpl::tell), next++);
    EXPECT_EQ(slot(&MediaInImpl::setpos), next++);
    EXPECT_EQ(slot(&MediaInImpl::write), next++);

    next = 2;
    EXPECT_EQ(slot<MediaOutImpl>(static_cast<void (MediaOutImpl::*)(Buffer const&)>(&MediaOutImpl::write)),
              next++);
    EXPECT_EQ(
        slot<MediaOutImpl>(static_cast<void (MediaOutImpl::*)(ConstBytes, uint_t)>(&MediaOutImpl::write)),
        next++);
    EXPECT_EQ(slot(&MediaOutImpl::end), next++);
    EXPECT_EQ(slot(&MediaOutImpl::characterSet), next++);
    EXPECT_EQ(slot(&MediaOutImpl::tell), next++);
    EXPECT_EQ(slot(&MediaOutImpl::setpos), next++);
    EXPECT_EQ(slot(&MediaOutDecoratorImpl::attach), next++);
    EXPECT_EQ(slot(&MediaOutDecoratorImpl::detach), next++);
}

TEST(MediaSlots, KeepTheOrderThatCompiledHandlesRelyOn) {
    using Bytes = unsigned char*;
    using ConstBytes = unsigned char const*;
    int next = 2;
    EXPECT_EQ(slot(&MediaIn::atEnd), next++);
    EXPECT_EQ(slot(&MediaIn::peek), next++);
    EXPECT_EQ(slot(&MediaIn::readline), next++);
    EXPECT_EQ(slot<MediaIn>(static_cast<int (MediaIn::*)(Bytes, uint_t)>(&MediaIn::read)), next++);
    EXPECT_EQ(slot<MediaIn>(static_cast<int (MediaIn::*)(Buffer&, uint_t)>(&MediaIn::read)), next++);
    EXPECT_EQ(slot(&MediaIn::tell), next++);
    EXPECT_EQ(slot(&MediaIn::setpos), next++);
    EXPECT_EQ(slot(&MediaIn::write), next++);

    next = 2;
    EXPECT_EQ(slot<MediaOut>(static_cast<void (MediaOut::*)(Buffer const&)>(&MediaOut::write)), next++);
    EXPECT_EQ(slot<MediaOut>(static_cast<void (MediaOut::*)(ConstBytes, uint_t)>(&MediaOut::write)), next++);
    EXPECT_EQ(slot(&MediaOut::end), next++);
    EXPECT_EQ(slot(&MediaOut::tell), next++);
    EXPECT_EQ(slot(&MediaOut::setpos), next++);
}

TEST(MediaIn, InheritsAReadThatGivesNothing) {
    BareIn in;
    unsigned char byte = 'x';
    EXPECT_EQ(in.read(&byte, 1), 0);
    EXPECT_EQ(byte, 'x');
    EXPECT_EQ(in.tell(), 0U);
}

TEST(MediaIn, InheritsARefusalOfPositionsAndLines) {
    BareIn in;
    Buffer line;
    EXPECT_EQ(failureOf([&] { in.setpos(1); }), "setpos( 5 ) , MediaImpl:36, ");
    EXPECT_EQ(failureOf([&] { in.readline(line); }),
              "MediaInImpl::readline( 4 ) , MediaImpl:57,  \"Not implemnted in sub class\"");
}

TEST(MediaIn, ReadsUpToTheAllocatedSizeOfABuffer) {
    MediaIn in = dealer({std::string(5000, 'a')});
    Buffer into(100, 0);
    EXPECT_EQ(in.read(into), 100);
    EXPECT_EQ(text(into), std::string(100, 'a'));
}

TEST(MediaIn, SetsTheLengthOfABufferForASingleByte) {
    MediaIn in = dealer({"x", "y"});
    Buffer into = buffer("old");
    EXPECT_EQ(in.read(into), 1);
    EXPECT_EQ(text(into), "x");
    EXPECT_EQ(in.read(into, 3), 1);
    EXPECT_EQ(text(into), "y");
}

TEST(MediaIn, LeavesTheLengthOfABufferWhenNothingComes) {
    for (int result : {0, -1}) {
        MediaIn in = dealer({}, result);
        Buffer into = buffer("old");
        EXPECT_EQ(in.read(into), result);
        EXPECT_EQ(text(into), "old");
    }
}

TEST(MediaIn, EmptiesABufferBeforeACountedRead) {
    for (int result : {0, -1}) {
        MediaIn in = dealer({}, result);
        Buffer into = buffer("old");
        EXPECT_EQ(in.read(into, 3), result);
        EXPECT_EQ(into.length(), 0U);
    }
}

TEST(MediaIn, CutsACountedReadToTheAllocatedSizeAndTakesItForZero) {
    struct Row {
        unsigned int asked, given;
    };
    for (auto const& [asked, given] :
         {Row{0, 100}, {1, 1}, {99, 99}, {100, 100}, {101, 100}, {UINT32_MAX, 100}}) {
        MediaIn in = dealer({std::string(5000, 'a')});
        Buffer into(100, 0);
        EXPECT_EQ(in.read(into, asked), static_cast<int>(given)) << asked;
        EXPECT_EQ(into.length(), given) << asked;
    }
}

TEST(MediaIn, ReadsWordsBetweenWhiteSpace) {
    MediaIn in = dealer({"  ab c\t\n\v\f\r d\xa0\x85 "});
    std::string word;
    unsigned char next = 0;
    in >> word;
    EXPECT_EQ(word, "ab");
    EXPECT_EQ(in.read(&next, 1), 1);
    EXPECT_EQ(next, 'c');
    EXPECT_EQ(in.read(word), 3) << "no white space but these six, whatever the locale";
    EXPECT_EQ(word, "d\xa0\x85");
    EXPECT_EQ(in.read(word), 0);
    EXPECT_EQ(word, "");
}

TEST(MediaIn, EndsAWordOnAFailedRead) {
    MediaIn in = dealer({"ab"}, -1);
    std::string word = "old";
    EXPECT_EQ(in.read(word), 2);
    EXPECT_EQ(word, "ab");
    EXPECT_EQ(in.read(word), 0);
    EXPECT_EQ(word, "");
}

TEST(MediaIn, CopiesItselfInBlocksAndDoesNotEndTheSink) {
    std::string log;
    MediaOut out = recorder(log);
    MediaIn in = dealer({std::string(8192 + 3, 'a'), "bc"}, -1);
    EXPECT_EQ(&in.write(out), &out);
    EXPECT_EQ(log, "[" + std::string(8192, 'a') + "][aaa][bc]");
}

TEST(MediaIn, SharesItsObjectAmongCopies) {
    MediaIn in = dealer({"ab", "cd"});
    MediaIn const copy = in;
    Buffer into;
    in.read(into, 2);
    EXPECT_EQ(copy.peek(), 1);
    MediaIn moved = std::move(in);
    EXPECT_TRUE(in.isNull());
    moved.read(into, 2);
    EXPECT_TRUE(copy.atEnd());
}

TEST(MediaIn, TakesAReferenceOfItsOwnWhenAsked) {
    auto* const impl = new BareIn;
    {
        MediaIn const in(impl, true);
        EXPECT_EQ(impl->count(), 2U);
    }
    EXPECT_EQ(impl->count(), 1U);
    impl->release();
    EXPECT_TRUE(MediaIn(nullptr, true).isNull());
    EXPECT_TRUE(MediaIn(nullptr, false).isNull());
}

TEST(MediaIn, RefusesEverythingWithoutAnObject) {
    MediaIn in;
    MediaOut out;
    Buffer into;
    std::string word;
    unsigned char byte = 0;
    EXPECT_TRUE(in.isNull());
    EXPECT_EQ(failureOf([&] { in.atEnd(); }), nullHandle);
    EXPECT_EQ(failureOf([&] { in.peek(); }), nullHandle);
    EXPECT_EQ(failureOf([&] { in.readline(into); }), nullHandle);
    EXPECT_EQ(failureOf([&] { in.read(&byte, 1); }), nullHandle);
    EXPECT_EQ(failureOf([&] { in.read(into, 1); }), nullHandle);
    EXPECT_EQ(failureOf([&] { in.read(into); }), nullHandle);
    EXPECT_EQ(failureOf([&] { in.read(word); }), nullHandle);
    EXPECT_EQ(failureOf([&] { in.tell(); }), nullHandle);
    EXPECT_EQ(failureOf([&] { in.setpos(0); }), nullHandle);
    EXPECT_EQ(failureOf([&] { in.write(out); }), nullHandle);
}

TEST(MediaOut, InheritsDefaultsThatDoNothing) {
    auto* const impl = new BareOut;
    MediaOut out(impl, false);
    out.end();
    out.characterSet("utf-8");
    out.setpos(7);
    EXPECT_EQ(out.tell(), 0U);
    out.write(buffer("abc"));
    EXPECT_EQ(impl->m_count, 3U) << "a buffer goes through the primitive write";
}

TEST(MediaOut, RefusesEverythingWithoutAnObject) {
    MediaOut out;
    EXPECT_TRUE(out.isNull());
    EXPECT_EQ(failureOf([&] { out.write(buffer("a")); }), nullHandle);
    EXPECT_EQ(failureOf([&] { out.write(bytes("a"), 1); }), nullHandle);
    EXPECT_EQ(failureOf([&] { out.end(); }), nullHandle);
    EXPECT_EQ(failureOf([&] { out.tell(); }), nullHandle);
    EXPECT_EQ(failureOf([&] { out.setpos(0); }), nullHandle);
    EXPECT_EQ(failureOf([&] { out.characterSet("utf-8"); }), nullHandle);
}

TEST(MediaOut, IsMovedAndAssigned) {
    std::string log;
    MediaOut out = recorder(log);
    MediaOut moved = std::move(out);
    EXPECT_TRUE(out.isNull());
    out = moved;
    moved = MediaOut();
    out.write(buffer("a"));
    EXPECT_EQ(log, "[a]");
}

TEST(MediaOutDecorator, PassesTheEndAndTheCharacterSetOn) {
    std::string log;
    HeaderMediaOut header(recorder(log));
    header.characterSet("utf-8");
    header.end();
    EXPECT_EQ(log, "(utf-8)end");
}

TEST(MediaOutDecorator, StopsAtItselfAfterDetach) {
    std::string log;
    HeaderMediaOut header(recorder(log));
    header.detach();
    header.end();
    header.characterSet("utf-8");
    EXPECT_EQ(log, "");
    EXPECT_EQ(failureOf([&] { header.write(buffer("a")); }), nullHandle);
}

TEST(MediaOutDecorator, WritesToTheSinkAttachedLast) {
    std::string first, second;
    HeaderMediaOut header(recorder(first));
    header.write(buffer("a"));
    header.attach(recorder(second));
    header.write(buffer("b"));
    header.end();
    EXPECT_EQ(first, "[a]");
    EXPECT_EQ(second, "[b]end");
}

TEST(MediaOutDecorator, IsEmptiedThroughItsBase) {
    std::string log;
    HeaderMediaOut header(recorder(log));
    static_cast<MediaOut&>(header) = MediaOut();
    EXPECT_EQ(failureOf([&] { header.attach(MediaOut()); }), nullHandle);
    EXPECT_EQ(failureOf([&] { header.detach(); }), nullHandle);
    EXPECT_EQ(failureOf([&] { header.write(buffer("a")); }), nullHandle);
    EXPECT_EQ(failureOf([&] { MediaOutDecorator().detach(); }), nullHandle);
}

TEST(MediaOutDecorator, RefusesToAttachToWhatIsNoDecorator) {
    std::string log;
    HeaderMediaOut header(recorder(log));
    static_cast<MediaOut&>(header) = recorder(log);
    EXPECT_EQ(failureOf([&] { header.attach(MediaOut()); }), nullHandle);
}

TEST(MediaOutDecorator, HoldsTheObjectThatItIsGiven) {
    std::string log;
    MediaOutDecorator decorator(new HeaderMediaOutImpl(MediaOut()), false);
    decorator.attach(recorder(log));
    decorator.write(buffer("a"));
    EXPECT_EQ(log, "[a]");
}

TEST(MediaOutDecorator, TakesTheObjectOfADerivedClassByWhicheverConstructorItUses) {
    struct ByDecorator : MediaOutDecorator {
        explicit ByDecorator(MediaOutDecoratorImpl* impl) : MediaOutDecorator(impl, false) {}
    };
    struct ByBase : MediaOutDecorator {
        explicit ByBase(MediaOutDecoratorImpl* impl) : MediaOut(impl, false) {}
    };
    struct ByBoth : MediaOutDecorator {
        explicit ByBoth(MediaOutDecoratorImpl* impl)
            : MediaOut(impl, false), MediaOutDecorator(impl, false) {}
    };
    std::string log;
    MediaOut const sink = recorder(log);
    ByDecorator(new HeaderMediaOutImpl(sink)).write(buffer("a"));
    ByBase(new HeaderMediaOutImpl(sink)).write(buffer("b"));
    auto* const shared = new HeaderMediaOutImpl(sink);
    ByBoth both(shared);
    both.write(buffer("c"));
    EXPECT_EQ(log, "[a][b][c]");
    EXPECT_EQ(shared->count(), 1U);
    MediaOutDecorator const second(shared, true);
    EXPECT_EQ(shared->count(), 2U);
}

TEST(TeeMediaOut, WritesToTheFirstAndThenToTheSecond) {
    // Two sinks on one log, each of which names itself.
    class Named : public Recorder {
    public:
        Named(std::string& log, char name) : Recorder(log), m_log(log), m_name(name) {}
        using Recorder::write;
        void write(unsigned char const* data, unsigned int n) override {
            m_log += m_name;
            Recorder::write(data, n);
        }
        void end() override {
            m_log += m_name;
            Recorder::end();
        }
        void characterSet(std::string const& name) override {
            m_log += m_name;
            Recorder::characterSet(name);
        }

    private:
        std::string& m_log;
        char m_name;
    };
    std::string log;
    TeeMediaOut tee(MediaOut(new Named(log, '1'), false), MediaOut(new Named(log, '2'), false));
    tee.write(buffer("a"));
    tee.characterSet("utf-8");
    tee.end();
    EXPECT_EQ(log, "1[a]2[a]1(utf-8)2(utf-8)1end2end");
}

TEST(TeeMediaOut, LeavesOutASinkThatIsNotThere) {
    std::string log;
    TeeMediaOut tee;
    tee.write(buffer("lost"));
    tee.second(recorder(log));
    tee.write(buffer("a"));
    tee.characterSet("x");
    tee.end();
    EXPECT_EQ(log, "[a](x)end");
    EXPECT_TRUE(tee.first().isNull());
    tee.second(MediaOut());
    tee.first(recorder(log));
    tee.write(buffer("b"));
    tee.characterSet("y");
    tee.end();
    EXPECT_EQ(log, "[a](x)end[b](y)end");
    EXPECT_TRUE(tee.second().isNull());
}

TEST(TeeMediaOut, IsSharedByItsCopies) {
    std::string log;
    TeeMediaOut tee;
    TeeMediaOut copy = tee;
    copy.first(recorder(log));
    tee.write(buffer("a"));
    EXPECT_EQ(log, "[a]");
    copy = TeeMediaOut();
    EXPECT_TRUE(copy.first().isNull());
}

TEST(TeeMediaOut, RefusesItsOutputsWithoutAnObject) {
    TeeMediaOut tee;
    static_cast<MediaOut&>(tee) = MediaOut();
    EXPECT_EQ(failureOf([&] { tee.first(); }), "MediaException( 1 ) , MediaImpl:663, ");
    EXPECT_EQ(failureOf([&] { tee.second(); }), "MediaException( 1 ) , MediaImpl:682, ");
    EXPECT_EQ(failureOf([&] { tee.first(MediaOut()); }), "MediaException( 1 ) , MediaImpl:654, ");
    EXPECT_EQ(failureOf([&] { tee.second(MediaOut()); }), "MediaException( 1 ) , MediaImpl:673, ");
}

TEST(HeaderMediaOut, FoldsAfterEach128Bytes) {
    auto const a = [](std::size_t n) { return std::string(n, 'a'); };
    struct Row {
        std::vector<std::string> writes;
        std::string log;
    };
    Row const rows[] = {
        {{a(300)}, "[" + a(128) + "][\n ][" + a(128) + "][\n ][" + a(44) + "]"},
        {{a(128)}, "[" + a(128) + "]"},
        {{a(127), "b"}, "[" + a(127) + "][b]"},
        {{a(128), "b"}, "[" + a(128) + "][\n ][b]"},
        {{a(128), "", "b"}, "[" + a(128) + "][\n ][b]"},
        {{a(100) + "\n", a(30)}, "[" + a(100) + "\n][" + a(27) + "][\n ][aaa]"},
    };
    for (auto const& [writes, expected] : rows) {
        std::string log;
        HeaderMediaOut header(recorder(log));
        for (auto const& piece : writes) header.write(buffer(piece));
        EXPECT_EQ(log, expected);
    }
}

TEST(HeaderMediaOut, CopiesTheHandleOfAnotherOne) {
    std::string log;
    HeaderMediaOut a(recorder(log));
    HeaderMediaOut b(a);
    a.write(buffer(std::string(128, 'a')));
    b.write(buffer("b"));
    EXPECT_EQ(log, "[" + std::string(128, 'a') + "][\n ][b]");
}

TEST(MediaOperators, WriteNumbersAsTheirBytes) {
    std::string log;
    MediaOut out = recorder(log);
    auto const written = [&](auto value) {
        log.clear();
        EXPECT_EQ(&(out << value), &out);
        return hex(log);
    };
    EXPECT_EQ(written(true), "5b015d");
    EXPECT_EQ(written('A'), "5b415d");
    EXPECT_EQ(written(static_cast<unsigned char>(0xfe)), "5bfe5d");
    EXPECT_EQ(written(static_cast<short>(-2)), "5bfeff5d");
    EXPECT_EQ(written(static_cast<unsigned short>(0x1234)), "5b34125d");
    EXPECT_EQ(written(1), "5b010000005d");
    EXPECT_EQ(written(0x12345678U), "5b785634125d");
    EXPECT_EQ(written(-2L), "5bfeffffffffffffff5d");
    EXPECT_EQ(written(0x0102030405060708UL), "5b08070605040302015d");
}

TEST(MediaOperators, ReadNumbersFromTheirBytes) {
    MediaIn in =
        dealer({"A", "\xfe", "\x34\x12", "\x78\x56\x34", "\x12", "\xfe\xff\xff\xff",
                std::string("\xfd\xff\xff\xff\xff\xff\xff\xff"), "\x08\x07\x06\x05\x04\x03\x02\x01"});
    char c = 0;
    unsigned char uc = 0;
    unsigned short us = 0;
    unsigned int ui = 0;
    int i = 0;
    long l = 0;
    unsigned long ul = 0;
    EXPECT_EQ(&(in >> c >> uc >> us >> ui >> i >> l >> ul), &in);
    EXPECT_EQ(c, 'A');
    EXPECT_EQ(uc, 0xfe);
    EXPECT_EQ(us, 0x1234);
    EXPECT_EQ(ui, 0x12345678U);
    EXPECT_EQ(i, -2);
    EXPECT_EQ(l, -3);
    EXPECT_EQ(ul, 0x0102030405060708UL);
}

TEST(MediaOperators, LeaveANumberThatIsNotThereWhole) {
    for (int result : {0, -1}) {
        MediaIn in = dealer({"abc"}, result);
        int value = 77;
        in >> value;
        EXPECT_EQ(value, 77);
        char c = 'x';
        in >> c;
        EXPECT_EQ(c, 'x');
    }
}

TEST(MediaOperators, WriteTextsAndBuffers) {
    std::string log;
    MediaOut out = recorder(log);
    out << "ab" << bytes("cd") << std::string("e\0f", 3) << buffer("gh");
    EXPECT_EQ(log, std::string("[ab][cd][e\0f][gh]", 17));
}

TEST(MediaOperators, WriteNothingForANullPointer) {
    std::string log;
    MediaOut out = recorder(log);
    out << static_cast<char const*>(nullptr) << static_cast<unsigned char const*>(nullptr);
    EXPECT_EQ(log, "");
    out << "" << std::string();
    EXPECT_EQ(log, "[][]");
}

TEST(MediaOperators, PassTextsOnAsBuffers) {
    class BufferOnly : public BareOut {
    public:
        using BareOut::write;
        void write(Buffer const& content) override { m_text += text(content) + "|"; }
        std::string m_text;
    };
    auto* const impl = new BufferOnly;
    MediaOut out(impl, false);
    std::string const longText(100000, 'x');
    out << "ab" << std::string("cd") << longText;
    EXPECT_EQ(impl->m_text, "ab|cd|" + longText + "|");
}

TEST(MediaOperators, CopyAnInputToAnOutput) {
    std::string log;
    MediaOut out = recorder(log);
    MediaIn in = dealer({"ab"});
    EXPECT_EQ(&(out << in), &out);
    EXPECT_EQ(log, "[ab]");
}

TEST(MediaOperators, ReadABuffer) {
    MediaIn in = dealer({"ab"});
    Buffer into;
    EXPECT_EQ(&(in >> into), &in);
    EXPECT_EQ(text(into), "ab");
}

TEST(MediaInSource, FeedsAStandardStream) {
    MediaIn in = dealer({"one two\nth", "ree\n"});
    boost::iostreams::stream<MediaInSource> stream(in);
    std::string line;
    std::vector<std::string> lines;
    while (std::getline(stream, line)) lines.push_back(line);
    EXPECT_EQ(lines, (std::vector<std::string>{"one two", "three"}));
}

TEST(MediaInSource, GivesZeroAtTheEndAndWidensFailures) {
    char space[8] = {};
    MediaIn ending = dealer({"abc"});
    MediaInSource source(ending);
    EXPECT_EQ(source.read(space, std::streamsize{1} << 40), 3) << "a count beyond 32 bits is cut";
    EXPECT_EQ(source.read(space, 8), 0);
    MediaIn failing = dealer({}, -1);
    EXPECT_EQ(MediaInSource(failing).read(space, 8), -1);
    MediaIn null;
    EXPECT_EQ(failureOf([&] { MediaInSource(null).read(space, 8); }), nullHandle);
}
