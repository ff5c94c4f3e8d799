// The names of attachments, as senders write them and as programs read them.

#include "tests/tools/Scans.h"

using namespace QuillmarkTest;
using namespace std::string_literals;

namespace {

/// The names in the report on each of several parts with these fields.
std::vector<std::string> namesOf(std::vector<std::string> const& fields) {
    std::string message = "From: a@example.com\nContent-Type: multipart/mixed; boundary=b\n\n";
    for (std::string const& field : fields) message += "--b\n" + field + "\n\nx\n";
    std::vector<std::string> names;
    static constexpr std::string_view digest = "9dd4e461268c8034f5c8564e155c67a6";  // of "x"
    for (std::string const& line : linesOf(scan({}, {message + "--b--\n", {}, ""}).out)) {
        std::size_t const at = line.find(digest);
        if (at == std::string::npos) continue;
        std::string const name = line.substr(at + digest.size());
        names.push_back(name.substr(std::min<std::size_t>(name.size(), 2)));
    }
    return names;
}

struct Row {
    char const* what;
    std::string parameters;
    std::string names;
};

template <std::size_t count>
void expectNames(Row const (&rows)[count], std::string const& before) {
    std::vector<std::string> fields;
    for (Row const& row : rows) fields.push_back(before + row.parameters);
    std::vector<std::string> const found = namesOf(fields);
    ASSERT_EQ(found.size(), count);
    for (std::size_t i = 0; i < count; ++i) EXPECT_EQ(found[i], rows[i].names) << rows[i].what;
}

}  // namespace

TEST(FileNames, AreReadAsTheyAreWritten) {
    static Row const rows[] = {
        {"a token is a name", "filename=a.exe", "a.exe"},
        {"quoted text is a name", "filename=\"my a.exe\"", "my a.exe"},
        {"the case of a parameter counts for nothing", "FileName=A.Exe", "A.Exe"},
        {"blanks around the sign count for nothing", "filename \t= \t\"a.exe\" ; x=y", "a.exe"},
        {"a semicolon in quotes ends nothing", "x=\"; filename=b\"; filename=\"a;b\"", "a;b"},
        {"an escaped character stands for itself", "filename=\"a\\\"b.txt\"",
         "a\"b.txt (also a\\b.txt) (also a\\)"},
        {"a missing name is none", "x=y; filename=; filename", ""},
        {"an empty name is none", "filename=\"\"", ""},
        {"a field may be folded", "\n filename=\"a\n b\"", "a b"},
        {"raw UTF-8 is read", "filename=\"caf\xc3\xa9\"", "café"},
        {"raw ISO 8859-1 is read", "filename=\"caf\xe9\"", "café"},
        {"the name of the type counts here too", "name=a.exe", "a.exe"},
        {"nothing else is a name", "file=a; names=b; filename1=c; xfilename=d; filename**=e; filename*x=f",
         ""},
    };
    expectNames(rows, "Content-Disposition: attachment; ");
}

TEST(FileNames, AreDecodedFromWords) {
    static Row const rows[] = {
        {"padding ends a word and not the name", "name=\"=?UTF-8?B?Y2Fmw6k=?= =?UTF-8?B?LmV4ZQ==?=\"",
         "café.exe"},
        {"words may stand without quotes",
         "name==?UTF-8?B?Y2Fmw6k=?= =?UTF-8?B?LmV4ZQ==?=", "café.exe (also café)"},
        {"words may stand in quotes of their own", "name=\"=?UTF-8?B?Y2Fmw6k=?=\"\n \"=?UTF-8?B?LmV4ZQ==?=\"",
         "café.exe (also café)"},
        {"words without padding may be whole, or the cut pieces of one",
         "name=\"=?UTF-8?B?YQ?= =?UTF-8?B?Yi5leGU?=\"", "ab.exe (also a\\x06\"?W?)"},
        {"the cut pieces of one may be shown wrongly first", "name=\"=?UTF-8?B?YS5le?= =?UTF-8?B?GU=?=\"",
         "a.e\\x19 (also a.exe)"},
        {"words may be in pieces", "name*0=\"=?utf-8?B?Y2Fm\"; name*1=\"w6k=?= =?utf-8?Q?=2Eexe?=\"",
         "café.exe"},
        {"a NUL ends the name for some", "name=\"=?iso-8859-1?Q?a.txt=00.exe?=\"",
         "a.txt\\x00.exe (also a.txt)"},
    };
    expectNames(rows, "Content-Type: a/b; ");
}

TEST(FileNames, AreEncodedByPercentSigns) {
    static Row const rows[] = {
        {"a character set and a language come first", "filename*=iso-8859-1'en'caf%E9.exe", "café.exe"},
        {"both may be empty", "filename*=''caf%C3%A9.exe", "café.exe"},
        {"both may be missing", "filename*=caf%C3%A9.exe", "café.exe"},
        {"one quote is none", "filename*=it's.exe", "it's.exe"},
        {"a later quote is part of the name", "filename*=utf-8''it's.exe", "it's.exe"},
        {"it may stand in quotes", "filename*=\"utf-8''a%2Eexe\"", "a.exe"},
        {"an escape that is none stays", "filename*=utf-8''100%.a%2", "100%.a%2"},
        {"a NUL ends the name for some", "filename*=utf-8''a.txt%00.exe", "a.txt\\x00.exe (also a.txt)"},
        {"a very long character set is unknown", "filename*=" + std::string(1000, 'x') + "''%C3%A9", "é"},
        {"without the star it stands for itself", "filename=a%2Eexe", "a%2Eexe"},
    };
    expectNames(rows, "Content-Disposition: attachment; ");
}

TEST(FileNames, AreJoinedFromPieces) {
    static Row const rows[] = {
        {"pieces are joined", "filename*0=a; filename*1=.exe", "a.exe"},
        {"some join them as they come", "filename*1=.exe; filename*0=a", "a.exe (also .exea)"},
        {"ten come after nine",
         "filename*0=a; filename*1=b; filename*2=c; filename*3=d; filename*4=e; filename*5=f; filename*6=g; "
         "filename*7=h; filename*8=i; filename*9=j; filename*10=k",
         "abcdefghijk"},
        {"zeros may come first", "filename*00=a; filename*01=.exe", "a.exe"},
        {"where one is missing some stop", "filename*0=a.exe; filename*2=.txt", "a.exe.txt (also a.exe)"},
        {"where the first is missing the rest is shown", "filename*1=a; filename*2=.exe", "a.exe"},
        {"one that is there twice counts both times, or one of them",
         "filename*0=a; filename*1=.exe; filename*1=.txt", "a.exe.txt (also a.exe) (also a.txt)"},
        {"a number may be too large", "filename*0=a; filename*99999999999999999999=.exe", "a.exe (also a)"},
        {"a character may be in two pieces", "filename*0*=utf-8''caf%C3; filename*1*=%A9.exe", "café.exe"},
        {"plain pieces stand for themselves", "filename*0*=iso-8859-1''caf%E9; filename*1=\"%2E'a'\"",
         "café%2E'a'"},
        {"the character set is that of the first", "filename*0*=iso-8859-1''%E9; filename*1*=a'b'%E9",
         "éa'b'é"},
        {"nothing follows the number but a star", "filename*0x=a; filename*-1=b", ""},
    };
    expectNames(rows, "Content-Disposition: attachment; ");
}

TEST(FileNames, AreAllKeptWhenThereAreSeveral) {
    static Row const rows[] = {
        {"a name may be there twice", "attachment; filename=a.txt; filename=b.exe", "a.txt (also b.exe)"},
        {"the same name twice is one", "attachment; filename=a.txt; filename=\"a.txt\"", "a.txt"},
        {"the encoded one comes first", "attachment; filename=a.txt; filename*=utf-8''b.exe",
         "b.exe (also a.txt)"},
        {"then comes the one in pieces", "attachment; filename=a.txt; filename*0=b; filename*1=.exe",
         "b.exe (also a.txt)"},
        {"the type may have another", "attachment; filename=a.txt\nContent-Type: a/b; name=b.exe",
         "a.txt (also b.exe)"},
        {"a field may be there twice",
         "attachment; filename=a.txt\nContent-Disposition: inline; filename=b.exe", "a.txt (also b.exe)"},
        {"an empty name hides none", "attachment; filename=\"\"; name=a.exe", "a.exe"},
    };
    expectNames(rows, "Content-Disposition: ");
}

TEST(FileNames, AreFoundInBrokenFields) {
    static Row const rows[] = {
        {"a name may have blanks in it, or end there", "attachment; filename=a b.exe", "a b.exe (also a)"},
        {"quotes may not be closed", "attachment; filename=\"a.exe", "a.exe"},
        {"what follows may be meant or not", "attachment; filename=\"a.exe; x=y", "a.exe; x=y (also a.exe)"},
        {"the next parameter is found", "attachment; x=\"y; filename=a.exe", "a.exe"},
        {"something may follow the quotes", "attachment; filename=\"a.txt\".exe; x=y",
         "a.txt.exe (also a.txt)"},
        {"quotes may only be closed", "attachment; filename=a.exe\"", "a.exe\" (also a.exe)"},
        {"the semicolon may be missing", "attachment filename=a.exe", "a.exe"},
        {"the disposition may be missing", "filename=a.exe", "a.exe"},
        {"a comment may be one or not", "attachment; filename (of (it)) = (x)a.exe", "a.exe"},
        {"a comment may come last", "attachment; filename=a.exe (x; y)", "a.exe (x (also a.exe)"},
        {"a comment in quotes is none", "attachment; filename=\"a(\\\")\".exe(x)",
         "a(\").exe(x) (also a(\")) (also a(\\).exe(x)) (also a(\\) (also a(\").exe)"},
        {"a NUL ends the name for some", "attachment; filename=\"a.txt\0.exe\""s,
         "a.txt\\x00.exe (also a.txt)"},
        {"there may be NULs on several lines", "attachment;\0\n filename=a\0\n .exe"s,
         "a\\x00 .exe (also a) (also a\\x00)"},
    };
    expectNames(rows, "Content-Disposition: ");
}

TEST(FileNames, AreFoundBehindANulWhereverTheFieldStands) {
    std::string const field = "Content-Type: a/b; name=\"a\0.exe\"\n"s;
    std::string const subject = "Subject: a\0b\n"s;
    for (std::string const& message : {"From: a@example.com\n" + subject + field + "\nx\n",
                                       "From: a@example.com\n" + field + subject + "\nx\n",
                                       "From a\nFrom: a@example.com\n" + subject + field + "\nx\n",
                                       "From: a@example.com\n" + subject + field + std::string("X: ") +
                                           std::string(10000, 'x') + "\n\nx\n"}) {
        Ran const ran = scan({}, {message, {}, ""});
        EXPECT_THAT(ran.out, testing::HasSubstr("  a\\x00.exe (also a)\n")) << message;
        EXPECT_THAT(ran.out, testing::HasSubstr("  Subject    a\\x00b\n")) << message;
    }
}
