#include <sstream>
#include <thread>
#include <type_traits>

#include "tests/mail/Addresses.h"
#include "tests/support/Support.h"

using namespace Quillmark;
using namespace QuillmarkTest;

namespace {

EmailAddress header(std::string const& text) {
    return EmailAddress::rfc5322Parse(text, false);
}

}  // namespace

TEST(EmailAddressImpl, KeepsItsPartsAndLowersOnRequest) {
    EmailAddressImpl impl;
    EXPECT_EQ(impl.local() + impl.domain() + impl.displayName() + impl.address() + impl.asString(), "");
    impl.local("John", false);
    EXPECT_EQ(impl.local(), "John");
    impl.local("\"John Ö\"", true);
    EXPECT_EQ(impl.local(), "\"john Ö\"");
    impl.domain("Host.Example");
    EXPECT_EQ(impl.domain(), "host.example");
    impl.displayName("\"Smith, John\"");
    EXPECT_EQ(impl.displayName(), "\"Smith, John\"");
}

TEST(EmailAddressImpl, JoinsLocalPartAndDomain) {
    EmailAddressImpl whole, bare, domainOnly;
    whole.local("a", false);
    whole.domain("b.example");
    EXPECT_EQ(whole.address(), "a@b.example");
    EXPECT_EQ(whole.asString(), "a@b.example");
    bare.local("a", false);
    EXPECT_EQ(bare.address(), "a");
    domainOnly.domain("b.example");
    EXPECT_EQ(domainOnly.address(), "");
    EXPECT_EQ(domainOnly.asString(), "");
    domainOnly.displayName("N");
    EXPECT_EQ(domainOnly.asString(), "N <>");
}

TEST(EmailAddressImpl, MakesEachTextOnce) {
    EmailAddressImpl impl;
    EXPECT_EQ(impl.address(), "");  // nothing is kept of an empty one
    impl.local("a", false);
    EXPECT_EQ(impl.address(), "a");
    impl.domain("b.example");
    impl.displayName("N");
    EXPECT_EQ(impl.address(), "a");
    EXPECT_EQ(impl.asString(), "N <a>");
    impl.displayName("M");
    impl.local("", false);
    EXPECT_EQ(impl.asString(), "N <a>");
    EXPECT_EQ(impl.address(), "a");
}

TEST(EmailAddressImpl, JoinsNothingToPrintATextThatIsMade) {
    EmailAddressImpl impl;
    impl.displayName("N");
    EXPECT_EQ(impl.asString(), "N <>");
    impl.local("a", false);
    EXPECT_EQ(impl.asString(), "N <>");
    impl.domain("b.example");
    EXPECT_EQ(impl.address(), "a@b.example");
}

TEST(EmailAddressImpl, ComparesJoinedAddressesBytewise) {
    EmailAddressImpl a, sameName, longer, high;
    a.local("a", false);
    sameName.local("a", false);
    sameName.displayName("N");
    longer.local("aa", false);
    high.local("\xc3\xa4", false);
    EXPECT_TRUE(a == sameName);
    EXPECT_FALSE(a == longer);
    EXPECT_TRUE(a < longer);
    EXPECT_FALSE(longer < a);
    EXPECT_FALSE(a < sameName);
    EXPECT_TRUE(longer < high);
    EXPECT_FALSE(high < longer);
}

TEST(EmailAddressImpl, IsASharedImplementationThatIsNotCopied) {
    EXPECT_TRUE((std::is_base_of_v<RefImpl, EmailAddressImpl>));
    EXPECT_TRUE((std::is_base_of_v<NonCopyable, EmailAddressImpl>));
    EXPECT_FALSE(std::is_copy_constructible_v<EmailAddressImpl>);
    EXPECT_FALSE(std::is_copy_assignable_v<EmailAddressImpl>);
}

TEST(EmailAddress, PrintsItsParts) {
    EmailAddress const address = header("\"Smith, John\" <john@host.example>");
    EXPECT_EQ(address.asString(), "\"Smith, John\" <john@host.example>");
    EXPECT_EQ(address.address(), "john@host.example");
    EXPECT_EQ(address.local(), "john");
    EXPECT_EQ(address.domain(), "host.example");
    EXPECT_EQ(address.displayName(), "\"Smith, John\"");
    EXPECT_FALSE(address.isNull());
    EXPECT_FALSE(address.isEmptyAddress());
    EXPECT_EQ(header("postmaster").address(), "postmaster");
    EXPECT_EQ(header("postmaster").asString(), "postmaster");
}

TEST(EmailAddress, IsEmptyWhenABounceNamesNobody) {
    EmailAddress const bounce = EmailAddress::rfc5321Parse("<>", true);
    EXPECT_FALSE(bounce.isNull());
    EXPECT_TRUE(bounce.isEmptyAddress());
    EXPECT_EQ(bounce.address() + bounce.asString() + bounce.local() + bounce.domain() + bounce.displayName(),
              "");
}

TEST(EmailAddress, IsNullByDefault) {
    EmailAddress const null;
    EXPECT_TRUE(null.isNull());
    EXPECT_TRUE(null.isEmptyAddress());
    EXPECT_EQ(null.asString(), "");
}

TEST(EmailAddress, NamesThePartThatANullAddressWasAskedFor) {
    EmailAddress const null;
    EXPECT_EQ(failureOf([&] { null.local(); }), "local( 1 ) , EmailAddressImpl");
    EXPECT_EQ(failureOf([&] { null.domain(); }), "domain( 1 ) , EmailAddressImpl");
    EXPECT_EQ(failureOf([&] { null.displayName(); }), "displayName( 1 ) , EmailAddressImpl");
    EXPECT_EQ(failureOf([&] { null.address(); }), "address( 1 ) , EmailAddressImpl");
    std::ostringstream out;
    EXPECT_EQ(failureOf([&] { out << null; }), "address( 1 ) , EmailAddressImpl");
}

TEST(EmailAddress, ComparesByJoinedAddressWithNullFirst) {
    EmailAddress const null, otherNull, a = header("a@x.example"), named = header("N <a@x.example>"),
                                        b = header("b@x.example"), shared = a;
    EXPECT_TRUE(null == otherNull);
    EXPECT_FALSE(null != otherNull);
    EXPECT_FALSE(null < otherNull);
    EXPECT_FALSE(null == a);
    EXPECT_FALSE(a == null);
    EXPECT_TRUE(a != null);
    EXPECT_TRUE(null < a);
    EXPECT_FALSE(a < null);
    EXPECT_TRUE(a == shared);
    EXPECT_FALSE(a < shared);
    EXPECT_TRUE(a == named);
    EXPECT_FALSE(a < named);
    EXPECT_FALSE(named < a);
    EXPECT_TRUE(a != b);
    EXPECT_TRUE(a < b);
    EXPECT_FALSE(b < a);
}

TEST(EmailAddress, SharesItsImplementationWithItsCopies) {
    auto* const impl = new EmailAddressImpl;
    {
        EmailAddress const first(impl, false);
        EmailAddress copy(first), assigned;
        assigned = copy;
        EXPECT_EQ(impl->count(), 3u);
        EmailAddress moved(std::move(copy));
        EXPECT_EQ(impl->count(), 3u);
        EXPECT_TRUE(copy.isNull());  // NOLINT(bugprone-use-after-move)
        assigned = std::move(moved);
        EXPECT_EQ(impl->count(), 2u);
        EmailAddress const own(impl, true);
        EXPECT_EQ(impl->count(), 3u);
        impl->local("a", false);
        EXPECT_EQ(assigned.local(), "a");
        impl->addReference();
    }
    EXPECT_EQ(impl->count(), 1u);
    impl->release();
    EXPECT_TRUE(EmailAddress(nullptr, false).isNull());
    EXPECT_TRUE(std::has_virtual_destructor_v<EmailAddress>);
}

// Addresses are made of those that went before them.
TEST(EmailAddress, ShowsNothingOfAnEarlierOne) {
    std::string many;
    for (int i = 0; i < 300; ++i) many += "\"Last, First\" <a.longer.local.part@a-longer-domain.example>, ";
    for (int round = 0; round < 3; ++round) {
        for (EmailAddress const& address : EmailAddress::rfc5322ParseList(many + "z@y.example", false))
            address.asString();
        for (EmailAddress const& address : EmailAddress::rfc5322ParseList(many, false)) {
            EXPECT_EQ(address.address(), "a.longer.local.part@a-longer-domain.example");
            EXPECT_EQ(address.asString(), "\"Last, First\" <a.longer.local.part@a-longer-domain.example>");
        }
        std::list<EmailAddress> const bare =
            EmailAddress::rfc5322ParseList("a@x.example, <c>, N <d@y.example>", false);
        std::string found;
        for (EmailAddress const& address : bare)
            found += address.displayName() + '|' + address.local() + '|' + address.domain() + '|' +
                     address.address() + '|' + address.asString() + '\n';
        EXPECT_EQ(found,
                  "|a|x.example|a@x.example|a@x.example\n"
                  "|c||c|c\n"
                  "N|d|y.example|d@y.example|N <d@y.example>\n");
        EXPECT_EQ(header("a@x.example").asString(), "a@x.example");
        EXPECT_EQ(EmailAddress::rfc5321Parse("<>", true).asString(), "");
    }
}

TEST(EmailAddress, KeepsItsPartsWhereAnotherIsAssignedOver) {
    EmailAddress first = header("First <a@b.example>");
    EmailAddress const copy = first;
    EmailAddress& same = first;
    first = same;
    first = std::move(same);
    EXPECT_EQ(first.asString(), "First <a@b.example>");
    first = header("Second <c@d.example>");
    EmailAddress const third = header("Third <e@f.example>");
    EXPECT_EQ(copy.asString(), "First <a@b.example>");
    EXPECT_EQ(first.asString(), "Second <c@d.example>");
    first = third;
    EXPECT_EQ(header("Fourth <g@h.example>").asString(), "Fourth <g@h.example>");
    EXPECT_EQ(first.asString(), "Third <e@f.example>");
    EXPECT_EQ(third.asString(), "Third <e@f.example>");
}

TEST(EmailAddress, MayGoInAnotherThreadThanTheOneThatMadeIt) {
    std::string text;
    for (int i = 0; i < 200; ++i) text += "N <user" + std::to_string(i) + "@example.com>,";
    std::list<EmailAddress> made = EmailAddress::rfc5322ParseList(text, false);
    std::list<EmailAddress> const copies = made;
    std::list<EmailAddress> own = EmailAddress::rfc5322ParseList(text, false);
    std::thread([&] {
        made.clear();
        own.clear();
        for (EmailAddress const& address : EmailAddress::rfc5322ParseList("x@y.example, z@y.example", false))
            EXPECT_EQ(address.domain(), "y.example");
    }).join();
    int i = 0;
    for (EmailAddress const& address : copies)
        EXPECT_EQ(address.asString(), "N <user" + std::to_string(i++) + "@example.com>");
}

TEST(EmailAddress, MayOutliveWhatItsThreadKeeps) {
    std::thread([] {
        thread_local EmailAddress late;  // made first, so destroyed behind what is kept
        late = header("Late <late@example.com>");
        EXPECT_EQ(header("a@b.example").address(), "a@b.example");
    }).join();
}

TEST(EmailAddress, WritesItsJoinedAddress) {
    std::ostringstream out;
    out << header("N <a@x.example>") << ' ' << EmailAddress::rfc5321Parse("<>", true) << '.';
    EXPECT_EQ(out.str(), "a@x.example .");
}

TEST(EmailAddress, EscapesSingleQuotes) {
    EXPECT_EQ(emailAddressEscapedWrite(header("o'brien@host.example")), "o\\'brien@host.example");
    EXPECT_EQ(emailAddressEscapedWrite(header("N <'a''>")), "\\'a\\'\\'");
    EXPECT_EQ(emailAddressEscapedWrite(header("a\"\"\\@x.example")), "");
    EXPECT_EQ(emailAddressEscapedWrite(header("\"\\\"\"@x.example")), "\"\\\"\"@x.example");
    EXPECT_EQ(emailAddressEscapedWrite(EmailAddress()), "");
}

TEST(EmailAddress, ReplacesDoubleQuotes) {
    EXPECT_EQ(replaceDoubleQuote("\"a\" 'b'\""), "'a' 'b''");
    EXPECT_EQ(replaceDoubleQuote("plain"), "plain");
}

TEST(EmailAddress, CopiesSetsWithoutReplacingMembers) {
    std::set<EmailAddress> const from{header("New <a@x.example>"), header("b@x.example"), EmailAddress()};
    std::set<EmailAddress> to{header("Old <a@x.example>"), header("c@x.example")};
    emailAddressSetCopy(from, to);
    EXPECT_EQ(parts(to), "null; Old|a|x.example; b|x.example; c|x.example");
    EmailAddressSetInserter const insert(to);
    insert(header("d@x.example"));
    insert(EmailAddress());
    EXPECT_EQ(to.size(), 5u);
}

TEST(EmailAddress, IsReadByManyThreads) {
    auto* const impl = new EmailAddressImpl;
    EmailAddress const byHand(impl, false);
    impl->local("a", false);
    impl->domain("x.example");
    impl->displayName("N");
    EmailAddress const parsed = header("N <a@x.example>");
    std::vector<std::thread> threads;
    std::atomic<int> good{0};
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int round = 0; round < 200; ++round) {
                EmailAddress const one(byHand), other(parsed);
                if (one.asString() == "N <a@x.example>" && one == other && !(one < other) &&
                    other.asString() == one.asString())
                    ++good;
            }
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(good.load(), 800);
}
