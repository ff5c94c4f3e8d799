#include "include2/UriSniffer"
#include "tests/support/Support.h"

using namespace Quillmark;
using QuillmarkTest::failureOf;

namespace {

std::string listed(UriContainer const& links) {
    std::string text;
    for (Uri const& uri : links.hrefs(links.currentId())) text += (text.empty() ? "" : " ") + uri.asString();
    return text;
}

TEST(UriContainer, IsEmptyAtBirth) {
    UriContainer const links;
    EXPECT_EQ(links.size(), 0u);
    EXPECT_EQ(links.currentId(), 0u);
    EXPECT_FALSE(links.sourced());
    EXPECT_TRUE(links.hrefs(0).empty());
}

TEST(UriContainer, GivesOneEmptyListForEveryIdentifierWithoutLinks) {
    UriContainer const a;
    UriContainer b;
    b.add(Uri("http://example.com/"), true);
    b.currentId(7);
    EXPECT_EQ(&a.hrefs(0), &b.hrefs(0));
}

TEST(UriContainer, KeepsLinksInTheOrderOfTheirAppearance) {
    UriContainer links;
    for (char const* text : {"http://b.example/", "http://a.example/", "http://c.example/"})
        links.add(Uri(std::string(text)), true);
    EXPECT_EQ(listed(links), "http://b.example/ http://a.example/ http://c.example/");
    EXPECT_EQ(links.size(), 3u);
}

TEST(UriContainer, IgnoresNullLinksAndLinksWithoutAHost) {
    UriContainer links;
    links.add(Uri(), true);
    links.add(Uri("http://nowhere/"), false);
    links.add(Uri("mailto:"), false);
    EXPECT_EQ(links.size(), 0u);
}

TEST(UriContainer, LetsTheFailureOfALinkThatCannotBeParsedOut) {
    UriContainer links;
    EXPECT_EQ(failureOf([&] { links.add(Uri("example.com"), true); }),
              "UriException( 5 ) , UriImpl \"example.com\"");
    EXPECT_EQ(links.size(), 0u);
}

TEST(UriContainer, DropsAnEqualLinkOnlyWhenUniqueIsAsked) {
    UriContainer links;
    links.add(Uri("http://example.com/"), true);
    links.add(Uri("HTTP://EXAMPLE.com/"), true);
    EXPECT_EQ(listed(links), "http://example.com/");
    links.add(Uri("HTTP://EXAMPLE.com/"), false);
    EXPECT_EQ(listed(links), "http://example.com/ HTTP://EXAMPLE.com/");
    links.add(Uri("http://example.com/"), true);
    EXPECT_EQ(links.size(), 2u);
}

TEST(UriContainer, RemembersLinksThatWereAddedWithoutUnique) {
    UriContainer links;
    links.add(Uri("http://example.com/"), false);
    links.add(Uri("http://example.com/"), false);
    links.add(Uri("http://example.com/"), true);
    EXPECT_EQ(links.size(), 2u);
}

TEST(UriContainer, RemembersEveryOneOfManyLinks) {
    for (int round = 0; round < 2; ++round) {  // the second one in memory that the first one gave back
        UriContainer links;
        for (int i = 0; i < 6000; ++i) links.add(Uri("http://example.com/" + std::to_string(i % 3000)), true);
        ASSERT_EQ(links.size(), 3000u);
        int next = 0;
        for (Uri const& link : links.hrefs(0)) ASSERT_EQ(link.path(), '/' + std::to_string(next++));
    }
}

TEST(UriContainer, KeepsTheLinksOfEveryIdentifierApart) {
    UriContainer links;
    links.add(Uri("http://example.com/"), true);
    links.currentId(18446744073709551615u);
    EXPECT_EQ(links.currentId(), 18446744073709551615u);
    links.add(Uri("http://example.com/"), true);
    links.add(Uri("http://example.org/"), true);
    EXPECT_EQ(listed(links), "http://example.com/ http://example.org/");
    links.currentId(0);
    EXPECT_EQ(listed(links), "http://example.com/");
    EXPECT_EQ(links.size(), 3u);
}

TEST(UriContainer, IgnoresTheArgumentOfHrefsForTheDaemons) {
    UriContainer links;
    links.currentId(1);
    links.add(Uri("http://example.com/"), true);
    EXPECT_EQ(links.hrefs(0).size(), 1u);
    links.currentId(0);
    EXPECT_EQ(links.hrefs(1).size(), 0u);
}

TEST(UriContainer, SharesItsListsAmongCopies) {
    UriContainer links;
    UriContainer copy(links);
    UriContainer assigned;
    assigned = copy;
    copy.currentId(3);
    copy.add(Uri("http://example.com/"), true);
    EXPECT_EQ(links.currentId(), 3u);
    EXPECT_EQ(links.size(), 1u);
    EXPECT_EQ(listed(assigned), "http://example.com/");
    UriContainer const fromMove(std::move(copy));  // a container is never null
    EXPECT_EQ(copy.size(), 1u);                    // NOLINT(bugprone-use-after-move)
}

TEST(UriContainer, OutlivesTheLinksThatWereAdded) {
    UriContainer links;
    {
        Uri const uri("http://example.com/");
        links.add(uri, true);
    }
    links.add(Uri("http://example.com/"), true);
    EXPECT_EQ(listed(links), "http://example.com/");
}

}  // namespace
