// Removing trees, also against somebody who changes them meanwhile.

#include <dlfcn.h>
#include <sys/resource.h>

#include <functional>
#include <string_view>

#include "include2/File"
#include "tests/media/Trees.h"
#include "tests/support/Support.h"

using namespace Quillmark;
using namespace QuillmarkTest;
using Path = File::Path;

namespace {

// Runs after the system was asked to remove a name, on this thread.
thread_local std::function<void(std::string_view name, int flags)> afterUnlinkat;

/// Lets this process open @p more descriptors, as long as the object lives.
class DescriptorLimit {
public:
    explicit DescriptorLimit(int more) {
        int end = 0;
        for (int free = 0; free != more || isOpen(end); ++end) free += isOpen(end) ? 0 : 1;
        ::getrlimit(RLIMIT_NOFILE, &m_former);
        rlimit limit = m_former;
        limit.rlim_cur = static_cast<rlim_t>(end);
        EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    }
    ~DescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &m_former); }

private:
    static bool isOpen(int descriptor) { return ::fcntl(descriptor, F_GETFD) != -1; }

    rlimit m_former = {};
};

}  // namespace

// Stands in the place of the C library's for this whole program and calls that one.
extern "C" __attribute__((visibility("default"))) int unlinkat(int at, char const* name, int flags) noexcept {
    static auto* const real =
        reinterpret_cast<int (*)(int, char const*, int)>(::dlsym(RTLD_NEXT, "unlinkat"));
    int const result = real(at, name, flags);
    int const error = errno;
    if (afterUnlinkat) afterUnlinkat(name, flags);
    errno = error;
    return result;
}

TEST(FileRemoval, RemovesATreeWithEverythingInIt) {
    TemporaryDirectory const here;
    makeDirectory(here.file("root"));
    here.write("root/a", "");
    here.write("root/.hidden", "");
    makeDirectory(here.file("root/sub"));
    here.write("root/sub/b", "");
    makeDirectory(here.file("root/sub/void"));
    makeFifo(here.file("root/sub/fifo"));
    makeSocket(here.file("root/socket"));
    makeLink("nothing", here.file("root/dangling"));
    makeLink(".", here.file("root/self"));
    here.write("kept", "");
    std::size_t const open = openDescriptors();
    Path const path(here.file("root"));
    path.unlink(true);
    EXPECT_FALSE(isThere(here.file("root")));
    EXPECT_TRUE(isThere(here.file("kept")));
    EXPECT_EQ(openDescriptors(), open);
    EXPECT_NE(failureOf([&] { path.status(false); }), "nothing thrown") << "the status is forgotten";
}

TEST(FileRemoval, TakesAPathWithSlashesAtItsEnd) {
    TemporaryDirectory const here;
    makeDirectory(here.file("root"));
    here.write("root/a", "");
    Path(here.file("root//")).unlink(true);
    EXPECT_FALSE(isThere(here.file("root")));
}

TEST(FileRemoval, LeavesWhatLinksInTheTreePointTo) {
    TemporaryDirectory const here;
    TemporaryDirectory const outside;
    outside.write("precious", "");
    makeDirectory(here.file("root"));
    makeDirectory(here.file("root/sub"));
    makeLink(outside.path(), here.file("root/sub/directory"));
    makeLink(outside.file("precious"), here.file("root/file"));
    Path(here.file("root")).unlink(true);
    EXPECT_FALSE(isThere(here.file("root")));
    EXPECT_TRUE(isThere(outside.file("precious")));
}

TEST(FileRemoval, RemovesALinkToADirectoryAndNotTheDirectory) {
    TemporaryDirectory const here;
    makeDirectory(here.file("target"));
    here.write("target/precious", "");
    for (char const* path : {"link", "link/", "link//"}) {
        makeLink("target", here.file("link"));
        Path(here.file(path)).unlink(true);
        EXPECT_FALSE(isThere(here.file("link"))) << path;
        EXPECT_TRUE(isThere(here.file("target/precious"))) << path;
    }
}

TEST(FileRemoval, RemovesALinkToNothing) {
    TemporaryDirectory const here;
    makeLink("nothing", here.file("link"));
    Path(here.file("link")).unlink(true);
    EXPECT_FALSE(isThere(here.file("link")));
}

TEST(FileRemoval, GoesByTheStatusThatWasTakenBefore) {
    TemporaryDirectory const here;
    Path const directory(here.file("x"));
    makeDirectory(here.file("x"));
    EXPECT_TRUE(directory.status(false).isDirectory());
    ASSERT_EQ(::rmdir(here.file("x").c_str()), 0);
    here.write("x", "");
    directory.unlink(true);
    EXPECT_TRUE(isThere(here.file("x"))) << "a file is not removed as a directory";
    directory.unlink(true);
    EXPECT_FALSE(isThere(here.file("x"))) << "the status was forgotten";

    Path const file(here.write("y", ""));
    EXPECT_TRUE(file.status(false).isRegularFile());
    ASSERT_EQ(::unlink(here.file("y").c_str()), 0);
    makeDirectory(here.file("y"));
    here.write("y/a", "");
    file.unlink(true);
    EXPECT_TRUE(isThere(here.file("y/a"))) << "a directory is not removed as a file";
}

TEST(FileRemoval, LeavesWhatTheSystemDoesNotLetGo) {
    std::size_t const open = openDescriptors();
    EXPECT_EQ(failureOf([] { Path("/proc/self/fdinfo").unlink(true); }), "nothing thrown");
    EXPECT_TRUE(Path("/proc/self/fdinfo").exists());
    EXPECT_EQ(openDescriptors(), open);
}

TEST(FileRemoval, RemovesAnEmptyDirectoryThatCannotBeRead) {
    TemporaryDirectory const here;
    makeDirectory(here.file("root"));
    makeDirectory(here.file("root/locked"));
    ASSERT_EQ(::chmod(here.file("root/locked").c_str(), 0), 0);
    Path(here.file("root")).unlink(true);
    EXPECT_FALSE(isThere(here.file("root")));
}

TEST(FileRemoval, LeavesATreeWhenNoDescriptorIsLeft) {
    TemporaryDirectory const here;
    makeDirectory(here.file("root"));
    here.write("root/a", "");
    Path const path(here.file("root"));
    {
        DescriptorLimit const limit(0);
        EXPECT_EQ(failureOf([&] { path.unlink(true); }), "nothing thrown");
    }
    EXPECT_TRUE(isThere(here.file("root/a")));
}

// Far below the longest path that the system takes, with what is left to do on every level on the way back.
TEST(FileRemoval, HoldsAtMost64DescriptorsAndNeedsNoStackHoweverDeepItGoes) {
    TemporaryDirectory const here;
    std::string const root = here.file("root");
    makeDeepTree(root, 2100, {"a"}, {"x"});
    DescriptorLimit const limit(64);
    onSmallStack(65536, [&] { Path(root).unlink(true); });
    EXPECT_FALSE(isThere(root));
}

TEST(FileRemoval, ComesBackToManyDeepTreesInOneDirectory) {
    TemporaryDirectory const here;
    std::string const root = here.file("root");
    makeDeepTree(root, 70, {"a", "b", "c"}, {"x", "y", "z"});
    std::string middle = root;
    for (int level = 0; level < 40; ++level) middle += "/d";
    for (char const* name : {"/1", "/2", "/3"}) makeDeepTree(middle + name, 70, {"a"});
    DescriptorLimit const limit(64);
    Path(root).unlink(true);
    EXPECT_FALSE(isThere(root));
}

TEST(FileRemoval, FollowsNoLinkThatTakesThePlaceOfADirectory) {
    TemporaryDirectory const here;
    TemporaryDirectory const outside;
    outside.write("precious", "");
    makeDirectory(here.file("root"));
    makeDirectory(here.file("root/sub"));
    here.write("root/sub/a", "");
    bool replaced = false;
    afterUnlinkat = [&](std::string_view name, int flags) {
        if (name != "sub" || flags != 0 || replaced) return;
        replaced = true;  // between the finding that it is a directory and its opening
        ASSERT_EQ(::rename(here.file("root/sub").c_str(), here.file("aside").c_str()), 0);
        makeLink(outside.path(), here.file("root/sub"));
    };
    Path(here.file("root")).unlink(true);
    afterUnlinkat = nullptr;
    EXPECT_TRUE(replaced);
    EXPECT_TRUE(isThere(outside.file("precious")));
    EXPECT_TRUE(isThere(here.file("aside/a")));
}

// On the way back up a directory is found in another place: what stands around it there is not the tree.
TEST(FileRemoval, StopsWhenTheTreeIsTakenApart) {
    TemporaryDirectory const here;
    TemporaryDirectory const outside;
    makeDirectory(outside.file("d"));
    makeDirectory(outside.file("precious"));
    std::string const root = here.file("root");
    makeDeepTree(root, 100, {"a"});
    std::string moved = root;
    for (int level = 0; level < 20; ++level) moved += "/d";
    bool isMoved = false;
    int files = 0;
    afterUnlinkat = [&](std::string_view name, int flags) {
        files += name == "a" ? 1 : 0;
        if (name != "d" || flags != AT_REMOVEDIR || isMoved) return;
        isMoved = true;  // at the deepest level, when the upper ones are closed
        ASSERT_EQ(::rename(moved.c_str(), outside.file("moved").c_str()), 0);
    };
    std::size_t const open = openDescriptors();
    Path(root).unlink(true);
    afterUnlinkat = nullptr;
    EXPECT_TRUE(isMoved);
    EXPECT_TRUE(isThere(outside.file("d")));
    EXPECT_TRUE(isThere(outside.file("precious")));
    EXPECT_TRUE(isThere(root)) << "nothing above the moved part was reached";
    EXPECT_EQ(openDescriptors(), open);
}
