#include "include2/File"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <type_traits>

#include "include2/FileMedia"
#include "tests/media/Trees.h"
#include "tests/support/Support.h"
#include "tests/support/Threads.h"

using namespace Quillmark;
using namespace QuillmarkTest;
using Path = File::Path;

namespace {

/// A path as its three texts.
std::string parts(Path const& path) {
    return path.directory() + "|" + path.name() + "|" + path.asString();
}

/// Makes a directory the working directory as long as the object lives.
class WorkingDirectory {
public:
    explicit WorkingDirectory(std::string const& path) : m_former(std::filesystem::current_path()) {
        std::filesystem::current_path(path);
    }
    ~WorkingDirectory() { std::filesystem::current_path(m_former); }

private:
    std::filesystem::path m_former;
};

std::string const withNul("x\0y", 3);

}  // namespace

// The address sanitizer takes the frames that a cancelled thread leaves for live ones.
#ifndef __SANITIZE_ADDRESS__
TEST(FileStreams, LetTheirThreadBeCancelledWhileAFileIsOpened) {
    TemporaryDirectory const here;
    std::string const fifo = here.file("fifo");
    makeFifo(fifo);  // which nobody writes to
    std::size_t const before = openDescriptors();
    EXPECT_TRUE(isCancelledIn([&] { File::basic_ifstream const in{Path(fifo)}; }));
    EXPECT_EQ(openDescriptors(), before);
}
#endif

TEST(Path, IsRemovedWholeByAThreadThatIsCancelled) {
    TemporaryDirectory const here;
    std::filesystem::create_directories(here.file("a/b/c"));
    here.write("a/b/c/d", "");
    EXPECT_FALSE(isCancelledIn([&] { Path(here.file("a")).unlink(true); }));
    EXPECT_FALSE(std::filesystem::exists(here.file("a")));
}

TEST(TempFileMediaOut, IsWrittenOutByAThreadThatIsCancelled) {
    TemporaryDirectory const here;
    auto out = std::make_unique<TempFileMediaOut>(here.file("aXXXXXX"), false);
    *out << "abc";
    std::string const name = out->tmpfile()->name();
    EXPECT_FALSE(isCancelledIn([&] { out.reset(); }));
    EXPECT_EQ(readFile(name), "abc");
}

static_assert(std::is_copy_constructible_v<Path> && std::is_copy_assignable_v<Path>);
static_assert(std::is_convertible_v<std::string, Path>);

TEST(Path, IsSplitAtItsLastSlash) {
    struct {
        std::string text, parts;
    } const rows[] = {
        {"/var/spool/x.eml", "/var/spool|x.eml|/var/spool/x.eml"},
        {"x.eml", "|x.eml|x.eml"},
        {"/tmp/dir/", "/tmp/dir||/tmp/dir/"},
        {"a/b", "a|b|a/b"},
        {"/x", "|x|/x"},
        {"/", "||/"},
        {"//x", "/|x|//x"},
        {"a//", "a/||a//"},
        {".", "|.|."},
        {"", "||"},
    };
    for (auto const& row : rows) EXPECT_EQ(parts(Path(row.text)), row.parts) << row.text;
}

TEST(Path, TakesNothingFromAnEmptyText) {
    File::PathImpl path("/d/x");
    path.parse("");
    EXPECT_EQ(path.directory(), "/d");
    EXPECT_EQ(path.name(), "x");
    EXPECT_EQ(path.path(), "/d/x");
}

TEST(Path, IsJoinedFromDirectoryAndName) {
    struct {
        std::string directory, name, parts;
    } const rows[] = {
        {"/d", "a", "/d|a|/d/a"},    {"", "a", "|a|a"},     {"/d", "", "/d||/d"},        {"", "", "||"},
        {"/d/", "a", "/d/|a|/d//a"}, {"/", "a", "/|a|//a"}, {"d", "a/b", "d|a/b|d/a/b"},
    };
    for (auto const& row : rows)
        EXPECT_EQ(parts(Path(row.directory, row.name)), row.parts) << row.directory << " and " << row.name;
}

TEST(Path, GivesItsTextAsStringAndAsCharacters) {
    Path const path("/d/x");
    std::string const& text = path;
    char const* const characters = path;
    EXPECT_EQ(text, "/d/x");
    EXPECT_STREQ(characters, "/d/x");
    EXPECT_FALSE(path.empty());
    EXPECT_TRUE(Path().empty());
    EXPECT_TRUE(Path("").empty());
    EXPECT_EQ(static_cast<char const*>(Path()), nullptr);
    EXPECT_EQ(parts(Path()), "||");
}

TEST(Path, CopiesShareOneValue) {
    TemporaryDirectory const here;
    Path path(here.write("a", "x"));
    Path const copy(path);
    Path assigned;
    assigned = path;
    path.rename(here.file("b"));
    EXPECT_EQ(copy.asString(), here.file("b"));
    EXPECT_EQ(assigned.name(), "b");
    copy.rename(here.file("c"));  // constant as what a processor is given
    EXPECT_EQ(path.name(), "c");
    copy.autodelete(true);
    EXPECT_TRUE(assigned.autodelete());
    assigned.autodelete(false);
    EXPECT_FALSE(path.autodelete());
}

TEST(Path, IsComparedByteByByte) {
    struct {
        std::string a, b;
        int order;
    } const rows[] = {
        {"/a", "/a", 0}, {"/a", "/b", -1},    {"/a", "/a/b", -1}, {"", "a", -1},
        {"", "", 0},     {"/z", "/\xe4", -1}, {"/a/", "/a", 1},   {std::string("a\0b", 3), "a", 1},
    };
    for (auto const& [a, b, order] : rows) {
        EXPECT_EQ(Path(a) == Path(b), order == 0) << a << " and " << b;
        EXPECT_EQ(Path(a) != Path(b), order != 0) << a << " and " << b;
        EXPECT_EQ(Path(a) < Path(b), order < 0) << a << " and " << b;
        EXPECT_EQ(Path(b) < Path(a), order > 0) << a << " and " << b;
    }
    Path const path("/a");
    Path const copy(path);
    EXPECT_TRUE(path == copy);
    EXPECT_FALSE(path < copy);
    EXPECT_TRUE(Path("/d", "x") == Path("/d/x")) << "the parts do not count";
}

TEST(Path, ExistsWhenAccessFindsIt) {
    TemporaryDirectory const here;
    EXPECT_TRUE(Path(here.path()).exists());
    EXPECT_TRUE(Path(here.write("a", "")).exists());
    EXPECT_FALSE(Path(here.file("b")).exists());
    EXPECT_FALSE(Path().exists());
    ASSERT_EQ(::symlink("nothing", here.file("dangling").c_str()), 0);
    EXPECT_FALSE(Path(here.file("dangling")).exists());
}

TEST(Status, ShowsSizeTypeAndTimes) {
    TemporaryDirectory const here;
    std::string const file = here.write("a", "12345");
    timespec const times[] = {{1000, 0}, {2000, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
    struct stat raw = {};
    ASSERT_EQ(::stat(file.c_str(), &raw), 0);
    File::Status const status{Path(file)};
    EXPECT_EQ(status.size(), 5);
    EXPECT_EQ(status.accessTime(), 1000);
    EXPECT_EQ(status.modificationTime(), 2000);
    EXPECT_EQ(status.creationTime(), raw.st_ctime);
    EXPECT_TRUE(status.isRegularFile());
    EXPECT_FALSE(status.isDirectory());
    File::Status const directory{Path(here.path())};
    EXPECT_TRUE(directory.isDirectory());
    EXPECT_FALSE(directory.isRegularFile());
    ASSERT_EQ(::mkfifo(here.file("fifo").c_str(), 0600), 0);
    File::Status const fifo{Path(here.file("fifo"))};
    EXPECT_FALSE(fifo.isDirectory());
    EXPECT_FALSE(fifo.isRegularFile());
}

TEST(Status, FollowsLinks) {
    TemporaryDirectory const here;
    here.write("a", "123");
    ASSERT_EQ(::symlink("a", here.file("link").c_str()), 0);
    EXPECT_EQ(Path(here.file("link")).status(false).size(), 3);
    EXPECT_TRUE(Path(here.file("link")).status(false).isRegularFile());
}

TEST(Status, OfNothingIsRefusedWithItsPath) {
    std::string const refusal = "File::Status(/nowhere/x)( 4 ) , File:18,  \"No such file or directory\"";
    Path const path("/nowhere/x");
    EXPECT_EQ(failureOf([&] { File::Status const status(path); }), refusal);
    EXPECT_EQ(failureOf([&] { path.status(false); }), refusal);
    EXPECT_EQ(failureOf([&] { path.status(true); }), refusal);
    EXPECT_EQ(failureOf([&] { File::Status const status{Path()}; }),
              "File::Status()( 4 ) , File:18,  \"No such file or directory\"");
    try {
        path.status(false);
        FAIL();
    } catch (Exception const& refused) {
        EXPECT_EQ(refused.intParameter(), ENOENT);
    }
}

TEST(Path, KeepsItsStatusUntilItIsRefreshed) {
    TemporaryDirectory const here;
    std::string const file = here.write("a", "1");
    Path const path(file);
    Path const copy(path);
    EXPECT_EQ(path.status(false).size(), 1);
    writeFile(file, "12");
    EXPECT_EQ(path.status(false).size(), 1);
    EXPECT_EQ(copy.status(false).size(), 1) << "copies share the snapshot";
    EXPECT_EQ(path.status(true).size(), 2);
    EXPECT_EQ(copy.status(false).size(), 2);
    ASSERT_EQ(::unlink(file.c_str()), 0);
    EXPECT_EQ(path.status(false).size(), 2);
    EXPECT_NE(failureOf([&] { path.status(true); }), "nothing thrown");
    EXPECT_NE(failureOf([&] { path.status(false); }), "nothing thrown") << "the old snapshot is gone";
}

TEST(Path, RemovesItsFileWithTheLastCopyWhenAskedTo) {
    TemporaryDirectory const here;
    std::string const file = here.write("a", "");
    std::string const kept = here.write("kept", "");
    {
        Path outer;
        {
            Path inner(file);
            EXPECT_FALSE(inner.autodelete());
            inner.autodelete(true);
            EXPECT_TRUE(inner.autodelete());
            outer = inner;
            Path const other(kept);
        }
        EXPECT_TRUE(isThere(file));
    }
    EXPECT_FALSE(isThere(file));
    EXPECT_TRUE(isThere(kept));
}

TEST(Path, LeavesErrnoAloneWhenItsFileIsGoneAlready) {
    TemporaryDirectory const here;
    {
        Path path(here.file("nothing"));
        path.autodelete(true);
        errno = 42;
    }
    EXPECT_EQ(errno, 42);
}

TEST(Path, RemovesTheNewNameAfterARename) {
    TemporaryDirectory const here;
    {
        Path path(here.write("a", ""));
        path.autodelete(true);
        path.rename(here.file("b"));
        here.write("a", "another");
    }
    EXPECT_TRUE(isThere(here.file("a")));
    EXPECT_FALSE(isThere(here.file("b")));
}

TEST(Path, NeverRemovesADirectoryWithTheLastCopy) {
    TemporaryDirectory const here;
    ASSERT_EQ(::mkdir(here.file("d").c_str(), 0700), 0);
    {
        Path path(here.file("d"));
        path.autodelete(true);
        Path empty;
        empty.autodelete(true);
    }
    EXPECT_TRUE(isThere(here.file("d")));
}

TEST(Path, IsParsedAnewAfterARename) {
    TemporaryDirectory const here;
    Path path(here.write("a", "content"));
    path.rename(here.file("b"));
    EXPECT_EQ(parts(path), here.path() + "|b|" + here.file("b"));
    EXPECT_EQ(readFile(here.file("b")), "content");
    EXPECT_FALSE(isThere(here.file("a")));
}

TEST(Path, KeepsOnRenamingWhatTheNewTextDoesNotName) {
    TemporaryDirectory const here;
    WorkingDirectory const working(here.path());
    Path path(here.write("a", ""));
    path.rename("b");
    EXPECT_EQ(parts(path), here.path() + "|b|b") << "the directory stays";
    ASSERT_EQ(::mkdir("x", 0700), 0);
    Path directory("./x");
    directory.rename("d/");
    EXPECT_EQ(parts(directory), "d|x|d/") << "the name stays";
}

TEST(Path, ToleratesItsOwnTextAsTheNewName) {
    TemporaryDirectory const here;
    Path path(here.write("a", ""));
    path.rename(path);
    EXPECT_EQ(parts(path), here.path() + "|a|" + here.file("a"));
}

TEST(Path, KeepsItsStatusWhenItIsRenamed) {
    TemporaryDirectory const here;
    Path path(here.write("a", "123"));
    EXPECT_EQ(path.status(false).size(), 3);
    path.rename(here.file("b"));
    writeFile(here.file("b"), "12345");
    EXPECT_EQ(path.status(false).size(), 3);
}

TEST(Path, IsRefusedARenameWithTheSystemsReason) {
    TemporaryDirectory const here;
    Path path(here.file("nothing"));
    std::string const refusal = "rename( 4 ) , File:319,  \"No such file or directory\"";
    EXPECT_EQ(failureOf([&] { path.rename(here.file("b")); }), refusal);
    EXPECT_EQ(path.asString(), here.file("nothing"));
    try {
        path.rename(here.file("b"));
        FAIL();
    } catch (Exception const& refused) {
        EXPECT_EQ(refused.intParameter(), ENOENT);
    }
    Path existing(here.write("a", ""));
    EXPECT_EQ(failureOf([&] { existing.rename(""); }), refusal);
    EXPECT_EQ(failureOf([&] { Path().rename(here.file("b")); }), refusal);
    EXPECT_EQ(existing.asString(), here.file("a"));
}

TEST(Path, GetsHardLinks) {
    TemporaryDirectory const here;
    Path const path(here.write("a", "content"));
    EXPECT_EQ(path.link(here.file("b")), 0);
    EXPECT_EQ(readFile(here.file("b")), "content");
    EXPECT_EQ(path.asString(), here.file("a"));
    struct stat status = {};
    ASSERT_EQ(::stat(here.file("b").c_str(), &status), 0);
    EXPECT_EQ(status.st_nlink, 2U);
}

TEST(Path, IsRefusedALinkWithTheSystemsReason) {
    TemporaryDirectory const here;
    Path const path(here.write("a", ""));
    EXPECT_EQ(failureOf([&] { path.link(here.file("a")); }), "link( 4 ) , File:331,  \"File exists\"");
    EXPECT_EQ(failureOf([&] { Path(here.file("b")).link(here.file("c")); }),
              "link( 4 ) , File:331,  \"No such file or directory\"");
    try {
        path.link(here.file("a"));
        FAIL();
    } catch (Exception const& refused) {
        EXPECT_EQ(refused.intParameter(), EEXIST);
    }
}

TEST(Path, WithANulByteNamesNothing) {
    TemporaryDirectory const here;
    WorkingDirectory const working(here.path());
    here.write("x", "");
    Path path(withNul);
    EXPECT_EQ(path.name(), withNul);
    EXPECT_FALSE(path.exists());
    EXPECT_EQ(failureOf([&] { path.status(false); }),
              "File::Status(" + withNul + ")( 4 ) , File:18,  \"Invalid argument\"");
    EXPECT_EQ(failureOf([&] { path.rename("z"); }), "rename( 4 ) , File:319,  \"Invalid argument\"");
    EXPECT_EQ(failureOf([&] { Path("x").rename(withNul); }), "rename( 4 ) , File:319,  \"Invalid argument\"");
    EXPECT_EQ(failureOf([&] { path.link("z"); }), "link( 4 ) , File:331,  \"Invalid argument\"");
    EXPECT_EQ(failureOf([&] { Path("x").link(withNul); }), "link( 4 ) , File:331,  \"Invalid argument\"");
    EXPECT_FALSE(Path::makeDirectory(withNul, 0700));
    EXPECT_FALSE(Path::makeDirectory(std::string("d\0/e", 4), 0700));
    path.unlink(false);
    path.unlink(true);
    { Path(withNul).autodelete(true); }
    EXPECT_TRUE(isThere("x"));
    EXPECT_FALSE(isThere("d"));
    EXPECT_FALSE(isThere("z"));
}

TEST(MakeDirectory, MakesWhatIsMissingOnTheWay) {
    TemporaryDirectory const here;
    WorkingDirectory const working(here.path());
    EXPECT_TRUE(Path::makeDirectory("a/b/c", 0755));
    EXPECT_TRUE(std::filesystem::is_directory("a/b/c"));
    EXPECT_TRUE(Path::makeDirectory("a/b/c", 0755)) << "what exists is fine";
    EXPECT_TRUE(Path::makeDirectory("a/x/y/", 0755)) << "with a slash at its end";
    EXPECT_TRUE(std::filesystem::is_directory("a/x/y"));
    EXPECT_TRUE(Path::makeDirectory("p//q", 0755)) << "with two slashes";
    EXPECT_TRUE(std::filesystem::is_directory("p/q"));
    EXPECT_TRUE(Path::makeDirectory("one", 0755));
    EXPECT_TRUE(std::filesystem::is_directory("one"));
    EXPECT_TRUE(Path::makeDirectory(here.file("abs/b"), 0755));
    EXPECT_TRUE(std::filesystem::is_directory("abs/b"));
    EXPECT_TRUE(Path::makeDirectory("/", 0755));
}

TEST(MakeDirectory, GivesThePermissions) {
    TemporaryDirectory const here;
    mode_t const former = ::umask(022);
    EXPECT_TRUE(Path::makeDirectory(here.file("a/b"), 0771));
    ::umask(former);
    for (char const* name : {"a", "a/b"}) {
        struct stat status = {};
        ASSERT_EQ(::stat(here.file(name).c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0751U) << name;
    }
}

TEST(MakeDirectory, RefusesEmptyAndWhitePaths) {
    TemporaryDirectory const here;
    WorkingDirectory const working(here.path());
    for (char const* path : {"", " ", " \t\n\v\f\r", " /"}) EXPECT_FALSE(Path::makeDirectory(path, 0755));
    EXPECT_TRUE(std::filesystem::is_empty(here.path()));
    ASSERT_EQ(::mkdir(" ", 0755), 0);
    EXPECT_TRUE(Path::makeDirectory(" ", 0755)) << "it exists";
}

// Kept for the daemons: the parents are made without the white space, the directory itself with it.
TEST(MakeDirectory, SkipsWhiteSpaceForTheParentsOnly) {
    TemporaryDirectory const here;
    WorkingDirectory const working(here.path());
    EXPECT_FALSE(Path::makeDirectory("  a/b", 0755));
    EXPECT_TRUE(std::filesystem::is_directory("a"));
    EXPECT_TRUE(std::filesystem::is_empty("a"));
    EXPECT_TRUE(Path::makeDirectory(" c", 0755));
    EXPECT_TRUE(std::filesystem::is_directory(" c"));
}

TEST(MakeDirectory, StopsWhereSomethingElseIsInTheWay) {
    TemporaryDirectory const here;
    WorkingDirectory const working(here.path());
    here.write("file", "");
    EXPECT_TRUE(Path::makeDirectory("file", 0755)) << "it exists";
    EXPECT_FALSE(Path::makeDirectory("file/a", 0755));
    EXPECT_FALSE(Path::makeDirectory("file/a/b", 0755));
    std::string tooLong(300, 'n');
    tooLong += "/a";
    EXPECT_FALSE(Path::makeDirectory(tooLong, 0755));
    ASSERT_EQ(::symlink("nothing", "dangling"), 0);
    EXPECT_TRUE(Path::makeDirectory("dangling", 0755)) << "a name that is taken counts as made";
    EXPECT_FALSE(Path::makeDirectory("dangling/a", 0755));
}

TEST(Unlink, RemovesAFile) {
    TemporaryDirectory const here;
    for (bool const recursive : {false, true}) {
        Path const path(here.write("a", ""));
        path.unlink(recursive);
        EXPECT_FALSE(path.exists()) << recursive;
    }
}

TEST(Unlink, ForgetsTheStatus) {
    TemporaryDirectory const here;
    Path const path(here.write("a", "1"));
    EXPECT_EQ(path.status(false).size(), 1);
    path.unlink(false);
    here.write("a", "12");
    EXPECT_EQ(path.status(false).size(), 2);
    path.unlink(true);
    here.write("a", "123");
    EXPECT_EQ(path.status(false).size(), 3);
}

TEST(Unlink, SaysNothingWhenThereIsNothing) {
    TemporaryDirectory const here;
    for (bool const recursive : {false, true}) {
        EXPECT_EQ(failureOf([&] { Path(here.file("nothing")).unlink(recursive); }), "nothing thrown");
        EXPECT_EQ(failureOf([&] { Path("/nowhere/x/y").unlink(recursive); }), "nothing thrown");
        EXPECT_EQ(failureOf([&] { Path().unlink(recursive); }), "nothing thrown");
    }
}

TEST(Unlink, LeavesADirectoryUnlessItIsRecursive) {
    TemporaryDirectory const here;
    ASSERT_EQ(::mkdir(here.file("d").c_str(), 0700), 0);
    Path const path(here.file("d"));
    path.unlink(false);
    EXPECT_TRUE(path.exists());
    here.write("d/a", "");
    path.unlink(false);
    EXPECT_TRUE(isThere(here.file("d/a")));
}
