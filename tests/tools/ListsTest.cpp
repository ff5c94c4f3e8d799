// quillmark lists, run for real.

#include <sys/stat.h>

#include "tests/tools/Tool.h"

using namespace QuillmarkTest;

namespace {

/// Makes lists from rules and keeps the three files.
struct Lists {
    TemporaryDirectory place;
    Ran ran;
    std::string gtld, cctld, idntld;

    explicit Lists(std::string const& rules, std::vector<std::string> const& more = {}) {
        std::vector<std::string> arguments{"lists", "--source", place.write("rules.dat", rules), "--out",
                                           place.file("made/lists")};
        arguments.insert(arguments.end(), more.begin(), more.end());
        ran = quillmark(arguments);
        gtld = readFile(place.file("made/lists/gtld"));
        cctld = readFile(place.file("made/lists/cctld"));
        idntld = readFile(place.file("made/lists/idntld"));
    }
};

char const sections[] =
    "// ===BEGIN ICANN DOMAINS===\n"
    "com\n"
    "uk\n"
    "co.uk\n"
    "// ===END ICANN DOMAINS===\n"
    "// ===BEGIN PRIVATE DOMAINS===\n"
    "shops.com\n"
    "// ===END PRIVATE DOMAINS===\n";

}  // namespace

TEST(ListsCommand, SortsSuffixesByTheirLabels) {
    Lists const made("// a comment\n\nuk\ncom\nco.uk\nORG trailing words\nac.uk\n\xd1\x80\xd1\x84\n");
    EXPECT_EQ(made.ran.status, 0) << made.ran.err;
    EXPECT_EQ(made.gtld, "com\norg\nuk\n");
    EXPECT_EQ(made.cctld, "ac.uk\nco.uk\n");
    EXPECT_EQ(made.idntld, "xn--p1ai\n");
}

TEST(ListsCommand, WritesInternationalisedSuffixesOfTwoLabelsInAscii) {
    Lists const made("hk\n\xe5\x85\xac\xe5\x8f\xb8.hk\n");
    EXPECT_EQ(made.cctld, "xn--55qx5d.hk\n");
}

TEST(ListsCommand, SaysWhatTheListsCannotHold) {
    Lists const made("uk\nck\n*.ck\n!www.ck\njp\ntokyo.jp\nchiyoda.tokyo.jp\nb.c.tokyo.jp\n");
    EXPECT_EQ(made.gtld, "ck\njp\nuk\n");
    EXPECT_EQ(made.cctld, "tokyo.jp\n");
    EXPECT_THAT(made.ran.out,
                testing::HasSubstr("Not expressible in these lists: 2 of three labels and more, "
                                   "1 wildcard, 1 exception, 0 without an ASCII form.\n"));
}

TEST(ListsCommand, LeavesOutWhatHasNoAsciiForm) {
    Lists const made("com\n\xf0\x9f\x93\x9a.com\n");  // a pictogram, younger than the tables of RFC 3490
    EXPECT_EQ(made.ran.status, 0);
    EXPECT_EQ(made.cctld, "");
    EXPECT_THAT(made.ran.out, testing::HasSubstr("0 wildcards, 0 exceptions, 1 without an ASCII form.\n"));
}

TEST(ListsCommand, TakesTheParentOfAWildcardForASuffix) {
    Lists const made("com\n*.er\n*.deep.example\n");
    EXPECT_EQ(made.gtld, "com\ner\n");
    EXPECT_EQ(made.cctld, "");
}

TEST(ListsCommand, LeavesThePrivateSectionOutUnlessAskedForIt) {
    EXPECT_EQ(Lists(sections).cctld, "co.uk\n");
    EXPECT_EQ(Lists(sections, {"--private"}).cctld, "co.uk\nshops.com\n");
}

TEST(ListsCommand, CountsWhatItWrote) {
    Lists const made(sections);
    EXPECT_EQ(linesOf(made.ran.out),
              (std::vector<std::string>{made.place.file("made/lists") + ":",
                                        "  gtld         2  suffixes of one label",
                                        "  cctld        1  suffixes of two labels",
                                        "  idntld       0  internationalised suffixes of one label"}));
}

TEST(ListsCommand, RefusesARuleOf128CharactersAndWritesNothing) {
    std::string const longest(60, 'a');
    std::string const fits = longest + "." + longest + "12345";  // 126
    EXPECT_EQ(Lists("com\n" + fits + "6\n").cctld, fits + "6\n");
    Lists const refused("com\n" + fits + "67\n");
    EXPECT_EQ(refused.ran.status, 2);
    EXPECT_EQ(refused.ran.err,
              "quillmark: " + refused.place.file("rules.dat") +
                  ": line 2: the rule has 128 characters; a line of a list file has at most 127\n");
    EXPECT_EQ(refused.gtld, "");
}

TEST(ListsCommand, RefusesWhatIsNoList) {
    struct {
        char const* rules;
        char const* reason;
    } const rows[] = {
        {"", ": it holds no suffix of one label\n"},
        {"<html>\n", ": line 1: \"<html>\" is no domain name\n"},
        {"com\n\nin/valid\n", ": line 3: \"in/valid\" is no domain name\n"},
    };
    for (auto const& row : rows) {
        Lists const made(row.rules);
        EXPECT_EQ(made.ran.status, 2) << row.rules;
        EXPECT_THAT(made.ran.err, testing::EndsWith(row.reason)) << row.rules;
    }
}

TEST(ListsCommand, SaysWhenThereIsNoSourceOrNoPlace) {
    TemporaryDirectory const place;
    Ran const none = quillmark({"lists", "--source", place.file("none"), "--out", place.file("out")});
    EXPECT_EQ(none.status, 2);
    EXPECT_EQ(none.err, "quillmark: " + place.file("none") + ": No such file or directory\n");

    std::string const file = place.write("file", "");
    Ran const nowhere = quillmark({"lists", "--source", place.write("rules", "com\n"), "--out", file});
    EXPECT_EQ(nowhere.status, 2);
    EXPECT_EQ(nowhere.err, "quillmark: cannot make " + file + ": Not a directory\n");

    ASSERT_EQ(::mkdir(place.file("taken").c_str(), 0700), 0);
    ASSERT_EQ(::mkdir(place.file("taken/gtld").c_str(), 0700), 0);
    Ran const taken = quillmark({"lists", "--source", place.file("rules"), "--out", place.file("taken")});
    EXPECT_EQ(taken.status, 2);
    EXPECT_EQ(taken.err, "quillmark: cannot write " + place.file("taken/gtld") + ": Is a directory\n");

    Ran const homeless = quillmark({"lists", "--source", place.file("rules")}, {"", {{"HOME", ""}}, ""});
    EXPECT_EQ(homeless.status, 2);
    EXPECT_EQ(homeless.err, "quillmark: there is no home directory to write to; name one with --out\n");
}

TEST(ListsCommand, WritesWhereTheOtherCommandsLook) {
    TemporaryDirectory const data;
    Surroundings const ours{"", {{"XDG_DATA_HOME", data.path()}}, ""};
    std::string const rules = data.write("rules", "zz\nqq.zz\n");
    EXPECT_EQ(quillmark({"lists", "--source", rules}, ours).status, 0);
    EXPECT_EQ(readFile(data.file("quillmark/lists/cctld")), "qq.zz\n");
    EXPECT_EQ(linesOf(quillmark({"host", "a.b.qq.zz"}, ours).out),
              (std::vector<std::string>{"a.b.qq.zz", "  name               a.b.qq.zz",
                                        "  host               a", "  registered domain  b.qq.zz"}));

    Surroundings const home{"", {{"HOME", data.path()}}, ""};
    EXPECT_EQ(quillmark({"lists", "--source", rules}, home).status, 0);
    EXPECT_EQ(readFile(data.file(".local/share/quillmark/lists/gtld")), "zz\n");
}

TEST(ListsCommand, MakesListsFromTheSystemsOwnSource) {
    TemporaryDirectory const place;
    Ran const made = quillmark({"lists", "--out", place.path()});
    EXPECT_EQ(made.status, 0) << made.err;
    std::string const gtld = "\n" + readFile(place.file("gtld"));
    for (char const* suffix : {"\ncom\n", "\nuk\n", "\nck\n", "\nmuseum\n"})
        EXPECT_THAT(gtld, testing::HasSubstr(suffix));
    EXPECT_THAT("\n" + readFile(place.file("cctld")), testing::HasSubstr("\nco.uk\n"));
    EXPECT_THAT("\n" + readFile(place.file("idntld")), testing::HasSubstr("\nxn--p1ai\n"));
    for (char const* name : {"gtld", "cctld", "idntld"})
        for (std::string const& line : linesOf(readFile(place.file(name)))) EXPECT_LT(line.size(), 128U);
}
