#include <atomic>
#include <iomanip>
#include <locale>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <type_traits>

#include "capi/Guard.h"
#include "foundation/Fail.h"
#include "include2/Exception"
#include "tests/support/Support.h"

using namespace Quillmark;
using QuillmarkTest::failureOf;
using QuillmarkTest::onSmallStack;
using QuillmarkTest::slotOf;

namespace {

template <class T>
std::string printed(T& exception) {
    std::ostringstream out;
    out << exception;
    return out.str();
}

Exception named(std::string const& title) {
    return {title, 1, nullptr, 0};
}

}  // namespace

TEST(Exception, PrintsTitleCodePlaceAndDetail) {
    BufferException e(2, "BufferImpl", 121);
    e.stringParameter("Can't change the size of a fixed size buffer.");
    EXPECT_EQ(e.asString(),
              "BufferException( 2 ) , BufferImpl:121,  \"Can't change the size of a fixed size buffer.\"");
}

TEST(Exception, LeavesOutWhatIsNotSet) {
    struct Row {
        char const* file;
        unsigned int line;
        char const* detail;
        char const* text;
    };
    Row const rows[] = {
        {nullptr, 0, "", "T( -3 ) "},
        {"", 0, "", "T( -3 ) "},
        {nullptr, 0, "why", "T( -3 )  \"why\""},
        {"File", 0, "", "T( -3 ) , File"},
        {"File", 0, "why", "T( -3 ) , File \"why\""},
        {nullptr, 12, "", "T( -3 ) :12, "},
        {"File", 4294967295U, "", "T( -3 ) , File:4294967295, "},
        {"File", 12, "why", "T( -3 ) , File:12,  \"why\""},
    };
    for (Row const& row : rows) {
        Exception e("T", -3, row.file, row.line);
        e.stringParameter(row.detail);
        e.intParameter(99);
        EXPECT_EQ(e.asString(), row.text);
        EXPECT_EQ(printed(e), row.text);
        EXPECT_EQ(printed(std::as_const(e)), row.text);
    }
}

TEST(Exception, KeepsWhatItIsGiven) {
    Exception e("Title", -7, "File", 9);
    EXPECT_FALSE(e.isNull());
    EXPECT_NE(e.impl(), nullptr);
    EXPECT_EQ(e.title(), "Title");
    EXPECT_EQ(e.error(), -7);
    EXPECT_EQ(e.fileName(), "File");
    EXPECT_EQ(e.lineNumber(), 9U);
    EXPECT_EQ(e.stringParameter(), "");
    EXPECT_EQ(e.intParameter(), 0);
    EXPECT_FALSE(e.hasCause());
    EXPECT_EQ(e.cause(), nullptr);

    e.stringParameter("detail");
    e.intParameter(-5);
    e.lineNumber(10);
    e.fileName(std::string("Other"));
    EXPECT_EQ(e.stringParameter(), "detail");
    EXPECT_EQ(e.intParameter(), -5);
    EXPECT_EQ(e.lineNumber(), 10U);
    EXPECT_EQ(e.fileName(), "Other");
    e.fileName("Third");
    EXPECT_EQ(e.fileName(), "Third");
    e.fileName(static_cast<char const*>(nullptr));
    EXPECT_EQ(e.fileName(), "Third");
}

TEST(Exception, IsNullByDefaultAndIgnoresSetters) {
    Exception e;
    e.stringParameter("x");
    e.intParameter(1);
    e.fileName("x");
    e.fileName(std::string("x"));
    e.lineNumber(1);
    e.cause(named("x"));
    EXPECT_TRUE(e.isNull());
    EXPECT_EQ(e.impl(), nullptr);
    EXPECT_EQ(e.title(), "");
    EXPECT_EQ(e.stringParameter(), "");
    EXPECT_EQ(e.fileName(), "");
    EXPECT_EQ(e.error(), 0);
    EXPECT_EQ(e.intParameter(), 0);
    EXPECT_EQ(e.lineNumber(), 0U);
    EXPECT_EQ(e.cause(), nullptr);
    EXPECT_FALSE(e.hasCause());
    EXPECT_EQ(e.asString(), "");
    EXPECT_EQ(printed(e), "");
}

TEST(Exception, IsNoStandardException) {
    EXPECT_FALSE((std::is_base_of_v<std::exception, Exception>));
}

TEST(Exception, SharesItsRecordBetweenCopies) {
    Exception a = named("a");
    Exception b(a);
    Exception c;
    c = b;
    EXPECT_EQ(a.impl(), c.impl());
    EXPECT_EQ(a.impl()->count, 3U);
    c.stringParameter("seen by all");
    EXPECT_EQ(a.stringParameter(), "seen by all");

    Exception const& same = c;
    c = same;
    EXPECT_EQ(a.impl()->count, 3U);
    c = named("c");
    EXPECT_EQ(a.impl()->count, 2U);
    c = Exception();
    EXPECT_TRUE(c.isNull());

    Exception moved(std::move(b));
    c = std::move(moved);
    EXPECT_EQ(a.impl(), c.impl());
    EXPECT_EQ(a.impl()->count, 2U);
}

TEST(Exception, CopiesAndDestroysOnAnyThread) {
    Exception shared = named("shared");
    std::thread other([copy = shared] {
        for (int i = 0; i < 1000; ++i) Exception const again(copy);
    });
    for (int i = 0; i < 1000; ++i) Exception const again(shared);
    other.join();
    EXPECT_EQ(shared.impl()->count, 1U);
}

TEST(ExceptionDeathTest, AbortsWhenTheCountWraps) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    Exception const e = named("e");
    e.impl()->count = UINT32_MAX;
    EXPECT_EXIT(Exception{e}, testing::KilledBySignal(SIGABRT), "");
    e.impl()->count = 1;
}

TEST(Exception, TitlesTheSubclassesWithTheirNames) {
    BufferException const buffer(1, "B", 1);
    MediaException const media(WriteFailed, nullptr, 0);
    EmailAddressException const address(5, "E", 3);
    SocketException const socket(ECONNREFUSED, "S", 4);
    UriException const uri(5, "", 5);
    EXPECT_EQ(buffer.asString(), "BufferException( 1 ) , B:1, ");
    EXPECT_EQ(media.asString(), "MediaException( 4097 ) ");
    EXPECT_EQ(address.asString(), "EmailAddressException( 5 ) , E:3, ");
    EXPECT_EQ(socket.asString(), "SocketException( 111 ) , S:4, ");
    EXPECT_EQ(uri.asString(), "UriException( 5 ) :5, ");
    EXPECT_EQ(sizeof(UriException), sizeof(Exception));
}

TEST(Exception, IsThrownByValueAndCaughtAsItsBase) {
    EXPECT_EQ(failureOf([] {
                  fail<MediaException>(OutOfRange, Site{"Here", 8}, "why");
              }),
              "MediaException( 3 ) , Here:8,  \"why\"");
    EXPECT_EQ(failureOf([] { fail("Who", BadArgument, Site{"Here", 8}); }), "Who( 2 ) , Here:8, ");
    EXPECT_EQ(failureOf([] { throw std::runtime_error("x"); }), "another exception");
}

TEST(Exception, KeepsTheOrderOfItsVirtualOperations) {
    using Get = std::string (Exception::*)() const;
    using Set = void (Exception::*)(std::string const&);
    EXPECT_EQ(slotOf(static_cast<Get>(&Exception::stringParameter)), 2U);
    EXPECT_EQ(slotOf(static_cast<Set>(&Exception::stringParameter)), 3U);
    EXPECT_EQ(slotOf(static_cast<int (Exception::*)() const>(&Exception::intParameter)), 4U);
    EXPECT_EQ(slotOf(static_cast<void (Exception::*)(int)>(&Exception::intParameter)), 5U);
    EXPECT_EQ(slotOf(static_cast<Get>(&Exception::fileName)), 6U);
    EXPECT_EQ(slotOf(static_cast<Set>(&Exception::fileName)), 7U);
    EXPECT_EQ(slotOf(static_cast<void (Exception::*)(char const*)>(&Exception::fileName)), 8U);
    EXPECT_EQ(slotOf(static_cast<unsigned int (Exception::*)() const>(&Exception::lineNumber)), 9U);
    EXPECT_EQ(slotOf(static_cast<void (Exception::*)(unsigned int)>(&Exception::lineNumber)), 10U);
    EXPECT_EQ(slotOf(static_cast<void (Exception::*)(Exception const&)>(&Exception::cause)), 11U);
    EXPECT_EQ(slotOf(static_cast<Exception const* (Exception::*)() const>(&Exception::cause)), 12U);
    EXPECT_EQ(slotOf(&Exception::hasCause), 13U);
}

TEST(ExceptionCause, IsPrintedFirstOldestFirst) {
    Exception root("Root", 1, "R", 1);
    root.stringParameter("first");
    Exception middle = named("Middle");
    middle.cause(root);
    BufferException top(3, "BufferImpl", 320);
    top.cause(middle);
    EXPECT_TRUE(top.hasCause());
    EXPECT_EQ(top.cause()->title(), "Middle");
    EXPECT_EQ(top.asString(),
              "Root( 1 ) , R:1,  \"first\"Middle( 1 ) BufferException( 3 ) , BufferImpl:320, ");
    EXPECT_EQ(printed(top), top.asString());
}

TEST(ExceptionCause, IsACopyThatSharesTheRecord) {
    Exception e = named("e");
    Exception cause = named("cause");
    e.cause(cause);
    EXPECT_NE(e.cause(), &cause);
    cause.stringParameter("later");
    EXPECT_EQ(e.cause()->stringParameter(), "later");
    Exception const copy(e);
    EXPECT_EQ(copy.cause(), e.cause());
}

TEST(ExceptionCause, MayBeANullException) {
    Exception e = named("e");
    e.cause(Exception());
    EXPECT_TRUE(e.hasCause());
    EXPECT_TRUE(e.cause()->isNull());
    EXPECT_EQ(e.asString(), "e( 1 ) ");
    Exception other = named("other");
    Exception f = named("f");
    other.cause(f);
    f.cause(e);
    EXPECT_EQ(other.asString(), "e( 1 ) f( 1 ) other( 1 ) ") << "the chain ends at it";
}

TEST(ExceptionCause, KeptForTheDaemonsTheFirstOneLivesWhenASecondReplacesIt) {
    Exception const first = named("first");
    Exception const second = named("second");
    {
        Exception e = named("e");
        e.cause(first);
        Exception const* const shown = e.cause();
        e.cause(second);
        EXPECT_EQ(e.cause()->title(), "second");
        EXPECT_EQ(e.asString(), "second( 1 ) e( 1 ) ");
        EXPECT_EQ(shown->title(), "first");
        EXPECT_EQ(first.impl()->count, 2U);
    }
    EXPECT_EQ(first.impl()->count, 1U);
    EXPECT_EQ(second.impl()->count, 1U);
}

TEST(ExceptionCause, IsNotStoredWhenItLeadsBackToTheExceptionItself) {
    Exception a = named("a");
    Exception b = named("b");
    Exception c = named("c");
    a.cause(a);
    EXPECT_FALSE(a.hasCause());
    a.cause(b);
    b.cause(c);
    c.cause(a);
    EXPECT_FALSE(c.hasCause());
    b.cause(a);
    EXPECT_EQ(b.cause()->title(), "c");
    EXPECT_EQ(a.asString(), "c( 1 ) b( 1 ) a( 1 ) ");

    // A replaced cause is still held, so it may not lead back either.
    a.cause(named("d"));
    b.cause(a);
    EXPECT_EQ(b.cause()->title(), "c");
    a.cause(c);
    EXPECT_EQ(a.asString(), "c( 1 ) a( 1 ) ");
}

TEST(ExceptionCause, CanTakeThePlaceOfItsException) {
    Exception e = named("e");
    e.cause(named("cause"));
    e = *e.cause();
    EXPECT_EQ(e.asString(), "cause( 1 ) ");
    EXPECT_EQ(e.impl()->count, 1U);
}

TEST(ExceptionCause, MayBeTheEndOfAVeryLongChain) {
    constexpr std::size_t length = 300'000;
    std::size_t printedBytes = 0;
    onSmallStack(65536, [&] {
        Exception top = named("e");
        for (std::size_t i = 1; i < length; ++i) {
            Exception next = named("e");
            next.cause(top);
            top = next;
        }
        printedBytes = top.asString().size();
    });
    EXPECT_EQ(printedBytes, length * std::string_view("e( 1 ) ").size());
}

TEST(ExceptionCause, MayGrowAtTheFarEndOfItsChain) {
    Exception const top = named("0");
    Exception last(top);
    for (int i = 1; i < 20'000; ++i) {
        Exception const next = named("x");
        last.cause(next);
        last = next;
    }
    EXPECT_EQ(top.asString().size(), 20'000 * std::string_view("0( 1 ) ").size());
}

TEST(ExceptionPrinting, IgnoresTheFlagsAndTheLocaleOfTheStream) {
    struct Grouped : std::numpunct<char> {
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };
    std::ostringstream out;
    out.imbue(std::locale(std::locale(), new Grouped));
    out << std::hex << std::showbase << std::showpos << std::setfill('*') << std::setw(60);
    Exception e("T", 70000, "F", 12345);
    out << e;
    EXPECT_EQ(out.str(), "T( 70000 ) , F:12345, ");
}

TEST(ExceptionPrinting, WritesTheTextOfAStandardException) {
    std::runtime_error standard("what it says");
    std::ostringstream out;
    Quillmark::operator<<(out, static_cast<std::exception&>(standard));
    EXPECT_EQ(out.str(), "what it says");
}

TEST(ExceptionCodes, HaveTheNumbersThatPeopleKnow) {
    EXPECT_EQ(NullHandle, 1);
    EXPECT_EQ(BadArgument, 2);
    EXPECT_EQ(OutOfRange, 3);
    EXPECT_EQ(Refused, 4);
    EXPECT_EQ(ParseError, 5);
    EXPECT_EQ(WriteFailed, 4097);
    EXPECT_EQ(CannotOpen, 4099);
    EXPECT_EQ(CannotStat, 4100);
}

TEST(KeepErrno, RestoresWhatTheCallerHad) {
    errno = ENOENT;
    {
        KeepErrno const kept;
        errno = EINVAL;
    }
    EXPECT_EQ(errno, ENOENT);
}

TEST(Guarded, TurnsOurExceptionsAndNoOthersIntoTheFailureValue) {
    EXPECT_EQ(guarded(-1, [] { return 7; }), 7);
    EXPECT_EQ(guarded(-1, []() -> int { throw UriException(5, "UriImpl", 1); }), -1);
    EXPECT_THROW(guarded(-1, []() -> int { throw std::bad_alloc(); }), std::bad_alloc);
}
