#include <dlfcn.h>

#include <algorithm>
#include <functional>
#include <new>
#include <type_traits>
#include <utility>

#include "include2/File"
#include "tests/media/Trees.h"
#include "tests/support/Support.h"

using namespace Quillmark;
using namespace QuillmarkTest;
using Path = File::Path;

namespace {

/// Notes what it is given, and answers as it is told.
class Notes : public File::Processor {
public:
    explicit Notes(std::string const& root) : m_skip(root.size() + 1) {}

    int process(Path const& path) override {
        m_paths.push_back(path.asString().substr(m_skip));
        return answer ? answer(path) : 0;
    }

    std::function<int(Path const&)> answer;

    std::vector<std::string> const& paths() const { return m_paths; }
    /// All paths below the root in one text, in the order of their bytes.
    std::string sorted() const {
        auto paths = m_paths;
        std::sort(paths.begin(), paths.end());
        std::string all;
        for (auto const& path : paths) all += (all.empty() ? "" : " ") + path;
        return all;
    }
    std::size_t indexOf(std::string const& path) const {
        return static_cast<std::size_t>(std::find(m_paths.begin(), m_paths.end(), path) - m_paths.begin());
    }

private:
    std::size_t m_skip;
    std::vector<std::string> m_paths;
};

using Settings = std::function<void(File::Selector&)>;

std::string walked(std::string const& root, Settings const& set = {}) {
    Notes notes(root);
    File::Selector selector(root, notes);
    if (set) set(selector);
    EXPECT_EQ(selector.start(), 0);
    return notes.sorted();
}

/// A directory with a little of everything.
class Sample : public TemporaryDirectory {
public:
    Sample() {
        write("a.eml", "");
        write("b.EML", "");
        write(".hidden", "");
        makeDirectory(file("sub"));
        write("sub/c.eml", "");
        write("sub/d.txt", "");
        makeDirectory(file("sub/deep"));
        write("sub/deep/e.eml", "");
        makeDirectory(file("void"));
        makeFifo(file("fifo.eml"));
        makeSocket(file("socket.eml"));
        makeLink("nothing", file("dangling.eml"));
    }
};

/// A selector that is told of every directory.
class Overriding : public File::Selector {
public:
    using Selector::Selector;

    int process(Path const& directory, File::Processor& processor) override {
        entered.push_back(directory.name());
        int const result = Selector::process(directory, processor);
        return answer ? answer(directory) : result;
    }

    std::vector<std::string> entered;
    std::function<int(Path const&)> answer;
};

/// A selector that does something else first, or instead: it has the walk below as a call.
class Wrapping : public File::Selector {
public:
    using Selector::Selector;
    using Walk = std::function<int(Path const&)>;

    int process(Path const& directory, File::Processor& processor) override {
        Walk const walk = [&](Path const& path) { return Selector::process(path, processor); };
        return wrap(directory, walk);
    }

    std::function<int(Path const&, Walk const&)> wrap;
};

/// How many bytes there is no memory for on this thread; 0 is none.
thread_local std::size_t refusedSize = 0;

}  // namespace

// The library makes its strings with this one.
void* operator new(std::size_t size) {
    using New = void* (*)(std::size_t);
    static New const make = reinterpret_cast<New>(::dlsym(RTLD_NEXT, "_Znwm"));
    if (size != 0 && size == refusedSize) throw std::bad_alloc();
    return make(size);
}

static_assert(!std::is_copy_constructible_v<File::Selector> && !std::is_copy_assignable_v<File::Selector>);
static_assert(std::is_abstract_v<File::Processor> && std::has_virtual_destructor_v<File::Processor>);
static_assert(std::has_virtual_destructor_v<File::Selector>);

TEST(FileSelector, BeginsWithItsDefaults) {
    Notes notes("");
    File::Selector const selector(Path("/d"), notes);
    EXPECT_TRUE(selector.processRegularFiles());
    EXPECT_FALSE(selector.processDirectories());
    EXPECT_EQ(selector.maxRecursionDepth(), -1);
    EXPECT_TRUE(selector.checkFileType());
    EXPECT_TRUE(selector.patterns().empty());
    EXPECT_TRUE(selector.subdirectories().empty());
}

TEST(FileSelector, KeepsItsSettings) {
    Notes notes("");
    File::Selector selector(Path("/d"), notes);
    selector.processRegularFiles(false);
    selector.processDirectories(true);
    selector.maxRecursionDepth(3);
    selector.checkFileType(false);
    selector.patterns({"a", "b"});
    selector.subdirectories({"c"});
    EXPECT_FALSE(selector.processRegularFiles());
    EXPECT_TRUE(selector.processDirectories());
    EXPECT_EQ(selector.maxRecursionDepth(), 3);
    EXPECT_FALSE(selector.checkFileType());
    EXPECT_EQ(selector.patterns(), (std::list<std::string>{"a", "b"}));
    EXPECT_EQ(selector.subdirectories(), (std::list<std::string>{"c"}));
}

TEST(FileSelector, SelectsByItsSettings) {
    Sample const sample;
    struct {
        char const* what;
        Settings set;
        std::string selected;
    } const rows[] = {
        {"defaults", {}, ".hidden a.eml b.EML sub/c.eml sub/d.txt sub/deep/e.eml"},
        {"directories too", [](auto& s) { s.processDirectories(true); },
         ".hidden a.eml b.EML sub sub/c.eml sub/d.txt sub/deep sub/deep/e.eml void"},
        {"directories only", [](auto& s) { s.processDirectories(true), s.processRegularFiles(false); },
         "sub sub/deep void"},
        {"nothing", [](auto& s) { s.processRegularFiles(false); }, ""},
        {"no level below", [](auto& s) { s.maxRecursionDepth(0); }, ".hidden a.eml b.EML"},
        {"one level below", [](auto& s) { s.maxRecursionDepth(1); },
         ".hidden a.eml b.EML sub/c.eml sub/d.txt"},
        {"two levels below", [](auto& s) { s.maxRecursionDepth(2); },
         ".hidden a.eml b.EML sub/c.eml sub/d.txt sub/deep/e.eml"},
        {"less than no level", [](auto& s) { s.maxRecursionDepth(-2); }, ".hidden a.eml b.EML"},
        {"directories that are not entered",
         [](auto& s) { s.maxRecursionDepth(0), s.processDirectories(true); }, ".hidden a.eml b.EML sub void"},
        {"a pattern", [](auto& s) { s.patterns({"*.eml"}); }, "a.eml sub/c.eml sub/deep/e.eml"},
        {"patterns",
         [](auto& s) {
             s.patterns({"x", "?.txt", "[ab].*"});
         },
         "a.eml b.EML sub/d.txt"},
        {"a star takes a point in front", [](auto& s) { s.patterns({"*hidden"}); }, ".hidden"},
        {"a pattern with a directory", [](auto& s) { s.patterns({"sub/*"}); }, ""},
        {"patterns are not for directories",
         [](auto& s) { s.patterns({"*.eml"}), s.processDirectories(true); },
         "a.eml sub sub/c.eml sub/deep sub/deep/e.eml void"},
        {"subdirectories", [](auto& s) { s.subdirectories({"su?"}); },
         ".hidden a.eml b.EML sub/c.eml sub/d.txt"},
        {"other subdirectories",
         [](auto& s) {
             s.subdirectories({"deep", "void"});
         },
         ".hidden a.eml b.EML"},
        {"subdirectories that are handed on",
         [](auto& s) { s.subdirectories({"void"}), s.processDirectories(true); },
         ".hidden a.eml b.EML sub void"},
        {"no look at the type", [](auto& s) { s.checkFileType(false); },
         ".hidden a.eml b.EML dangling.eml fifo.eml socket.eml sub void"},
        {"no look at the type, and a pattern", [](auto& s) { s.checkFileType(false), s.patterns({"*.eml"}); },
         "a.eml dangling.eml fifo.eml socket.eml"},
        {"no look at the type, and no files",
         [](auto& s) { s.checkFileType(false), s.processRegularFiles(false), s.patterns({"s*"}); },
         "socket.eml sub"},
    };
    for (auto const& row : rows) EXPECT_EQ(walked(sample.path(), row.set), row.selected) << row.what;
}

TEST(FileSelector, MatchesNamesAndNeverTheirDirectories) {
    Notes notes("");
    File::Selector selector(Path("/d"), notes);
    EXPECT_TRUE(selector.patternMatch(Path("/x/anything")));
    EXPECT_TRUE(selector.subdirectoryMatch(Path("/x/anything")));
    selector.patterns({"*.eml", "b"});
    selector.subdirectories({"s*"});
    EXPECT_TRUE(selector.patternMatch(Path("/x/a.eml")));
    EXPECT_FALSE(selector.patternMatch(Path("/x/a.EML")));
    EXPECT_TRUE(selector.patternMatch(Path("b")));
    EXPECT_FALSE(selector.patternMatch(Path("/x.eml/a")));
    EXPECT_FALSE(selector.patternMatch(Path("/x/sub")));
    selector.patterns({"\\*.eml"});
    EXPECT_TRUE(selector.patternMatch(Path("*.eml"))) << "a backslash takes the meaning of what follows";
    EXPECT_FALSE(selector.patternMatch(Path("a.eml")));
    EXPECT_TRUE(selector.subdirectoryMatch(Path("/x/sub")));
    EXPECT_FALSE(selector.subdirectoryMatch(Path("/sub/x")));
    EXPECT_FALSE(selector.subdirectoryMatch(Path("b")));
}

TEST(FileSelector, HandsADirectoryOnAfterWhatIsBelowIt) {
    Sample const sample;
    Notes notes(sample.path());
    File::Selector selector(sample.path(), notes);
    selector.processDirectories(true);
    selector.start();
    EXPECT_LT(notes.indexOf("sub/deep/e.eml"), notes.indexOf("sub/deep"));
    EXPECT_LT(notes.indexOf("sub/deep"), notes.indexOf("sub"));
    EXPECT_LT(notes.indexOf("sub/c.eml"), notes.indexOf("sub"));
}

TEST(FileSelector, JoinsPathsWithTheTextOfTheirDirectory) {
    TemporaryDirectory const here;
    here.write("a", "");
    Notes notes(here.path());
    notes.answer = [&](Path const& path) {
        EXPECT_EQ(path.directory(), here.path() + "/");
        EXPECT_EQ(path.name(), "a");
        EXPECT_EQ(path.asString(), here.path() + "//a");
        return 0;
    };
    File::Selector selector(Path(here.path() + "/"), notes);
    selector.start();
    EXPECT_EQ(notes.paths().size(), 1U);
}

TEST(FileSelector, FindsNothingWhereNothingCanBeRead) {
    TemporaryDirectory const here;
    here.write("file", "");
    for (std::string const& root : {here.file("nothing"), here.file("file"), std::string(),
                                    std::string("\0", 1), here.path() + std::string("\0", 1)}) {
        Notes notes("");
        File::Selector selector(Path(root), notes);
        EXPECT_EQ(selector.start(), 0) << root;
        EXPECT_TRUE(notes.paths().empty()) << root;
    }
}

TEST(FileSelector, GivesTheStatusThatItLookedAt) {
    TemporaryDirectory const here;
    std::string const file = here.write("a", "123");
    Notes notes(here.path());
    notes.answer = [&](Path const& path) {
        writeFile(file, "12345");
        EXPECT_EQ(path.status(false).size(), 3);
        EXPECT_EQ(path.status(true).size(), 5);
        return 0;
    };
    File::Selector(here.path(), notes).start();
    EXPECT_EQ(notes.sorted(), "a");
}

// Kept for the daemons: a processor ends the walk of the directory that is being read, and no other.
TEST(FileSelector, EndsOneDirectoryWhenTheProcessorSaysSo) {
    TemporaryDirectory const here;
    for (char const* directory : {"x", "y", "z"}) {
        makeDirectory(here.file(directory));
        for (char const* file : {"/1", "/2", "/3"}) here.write(directory + std::string(file), "");
    }
    Notes notes(here.path());
    notes.answer = [](Path const&) { return 1; };
    File::Selector selector(here.path(), notes);
    EXPECT_EQ(selector.start(), 0);
    ASSERT_EQ(notes.paths().size(), 3U) << "one file of each directory";
    std::string directories;
    for (auto const& path : notes.paths()) directories += path[0];
    std::sort(directories.begin(), directories.end());
    EXPECT_EQ(directories, "xyz");
}

TEST(FileSelector, EndsTheDirectoryThatHoldsTheOneRefused) {
    TemporaryDirectory const here;
    for (char const* directory : {"x", "y", "z"}) {
        makeDirectory(here.file(directory));
        here.write(directory + std::string("/1"), "");
    }
    Notes notes(here.path());
    notes.answer = [](Path const& path) { return path.status(false).isDirectory() ? -1 : 1; };
    File::Selector selector(here.path(), notes);
    selector.processDirectories(true);
    EXPECT_EQ(selector.start(), 0);
    ASSERT_EQ(notes.paths().size(), 2U) << "the first directory, after its file";
    EXPECT_EQ(notes.paths()[0], notes.paths()[1] + "/1");
}

TEST(FileSelector, FollowsLinks) {
    TemporaryDirectory const here;
    TemporaryDirectory const outside;
    outside.write("a", "");
    here.write("file", "");
    makeLink(outside.path(), here.file("directory"));
    makeLink("file", here.file("link"));
    EXPECT_EQ(walked(here.path()), "directory/a file link");
    makeLink(here.path(), outside.file("root"));
    Notes notes(outside.file("root"));
    File::Selector(Path(outside.file("root")), notes).start();
    EXPECT_NE(notes.indexOf("link"), notes.paths().size()) << "the root itself may be a link";
}

// Two links to their own directory double the paths with every level, and would never end.
TEST(FileSelector, DoesNotEnterADirectoryThatItIsReading) {
    TemporaryDirectory const here;
    here.write("a", "");
    makeDirectory(here.file("sub"));
    here.write("sub/b", "");
    makeLink(".", here.file("self"));
    makeLink(here.path(), here.file("again"));
    makeLink("../..", here.file("sub/up"));
    makeLink("..", here.file("sub/root"));
    auto const inside = [](auto& s) { s.subdirectories({"s*", "again", "root"}); };
    EXPECT_EQ(walked(here.path(), inside), "a sub/b");
    EXPECT_EQ(walked(here.path(), [&](auto& s) { inside(s), s.processDirectories(true); }),
              "a again self sub sub/b sub/root sub/up");
    Notes notes(here.path());
    Overriding overriding(here.path(), notes);
    inside(overriding);
    overriding.start();
    EXPECT_EQ(notes.sorted(), "a sub/b");
}

// The limit ends such a walk, so links back are followed like all others.
TEST(FileSelector, FollowsLinksToADirectoryThatItIsReadingAsFarAsALimitAllows) {
    TemporaryDirectory const here;
    makeDirectory(here.file("d"));
    here.write("d/x", "");
    makeLink("..", here.file("d/up"));
    makeLink("d", here.file("l"));
    auto const limited = [&](int levels) {
        return walked(here.path(), [&](auto& s) { s.maxRecursionDepth(levels); });
    };
    EXPECT_EQ(limited(-1), "d/x l/x");
    EXPECT_EQ(limited(0), "");
    EXPECT_EQ(limited(1), "d/x l/x");
    EXPECT_EQ(limited(2), "d/x l/x");
    EXPECT_EQ(limited(3), "d/up/d/x d/up/l/x d/x l/up/d/x l/up/l/x l/x");
    Notes notes(here.path());
    Overriding overriding(here.path(), notes);
    overriding.maxRecursionDepth(3);
    overriding.start();
    EXPECT_EQ(notes.sorted(), limited(3));
}

TEST(FileSelector, CanBeAskedByItsProcessorForADirectoryThatItIsReading) {
    class Asking : public Notes {
    public:
        explicit Asking(std::string const& root) : Notes(root), inner(root), m_root(root) {}
        int process(File::Path const& path) override {
            // While a directory below is read it would not be entered again.
            bool const isInRoot = path.directory() == m_root;
            if (isInRoot && !std::exchange(m_asked, true)) selector->process(File::Path(m_root), inner);
            return Notes::process(path);
        }

        File::Selector* selector = nullptr;
        Notes inner;

    private:
        std::string m_root;
        bool m_asked = false;
    };
    Sample const sample;
    Asking outer(sample.path());
    File::Selector plain(sample.path(), outer);
    outer.selector = &plain;
    plain.start();
    EXPECT_EQ(outer.inner.sorted(), outer.sorted());
    Asking other(sample.path());
    Overriding overriding(sample.path(), other);
    other.selector = &overriding;
    overriding.start();
    EXPECT_EQ(other.inner.sorted(), other.sorted());
}

TEST(FileSelector, EntersADirectoryOnceForEachOfItsNames) {
    TemporaryDirectory const here;
    makeDirectory(here.file("sub"));
    here.write("sub/a", "");
    makeLink("sub", here.file("other"));
    EXPECT_EQ(walked(here.path()), "other/a sub/a");
}

TEST(FileSelector, CanBeUsedAgainAfterTheProcessorHasThrown) {
    Sample const sample;
    for (bool const overridden : {false, true}) {
        Notes notes(sample.path());
        File::Selector plain(sample.path(), notes);
        Overriding overriding(sample.path(), notes);
        File::Selector& selector = overridden ? overriding : plain;
        selector.maxRecursionDepth(2);
        selector.patterns({"e.eml"});
        notes.answer = [](Path const&) -> int { throw 42; };
        std::size_t const open = openDescriptors();
        for (int i = 0; i < 3; ++i) EXPECT_THROW(selector.start(), int);
        EXPECT_EQ(openDescriptors(), open);
        notes.answer = nullptr;
        EXPECT_EQ(selector.start(), 0);
        EXPECT_EQ(notes.paths(), std::vector<std::string>(4, "sub/deep/e.eml")) << "the depth was put back";
    }
}

TEST(FileSelector, CallsWhoeverOverridesItForEveryDirectory) {
    Sample const sample;
    Notes notes(sample.path());
    Overriding selector(sample.path(), notes);
    selector.start();
    auto entered = selector.entered;
    std::sort(entered.begin(), entered.end());
    std::string const root = sample.path().substr(sample.path().rfind('/') + 1);
    std::vector<std::string> expected{root, "sub", "deep", "void"};
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(entered, expected);
    EXPECT_EQ(notes.sorted(), ".hidden a.eml b.EML sub/c.eml sub/d.txt sub/deep/e.eml");
}

TEST(FileSelector, HeedsTheDepthAlsoWhenItIsOverridden) {
    Sample const sample;
    Notes notes(sample.path());
    Overriding selector(sample.path(), notes);
    selector.maxRecursionDepth(1);
    selector.start();
    EXPECT_EQ(notes.sorted(), ".hidden a.eml b.EML sub/c.eml sub/d.txt");
}

TEST(FileSelector, EndsTheDirectoryAboveOneThatAnOverriderRefuses) {
    TemporaryDirectory const here;
    for (char const* directory : {"x", "y", "z"}) makeDirectory(here.file(directory));
    for (bool const processDirectories : {false, true}) {
        Notes notes(here.path());
        Overriding selector(here.path(), notes);
        selector.answer = [&](Path const& path) { return path.asString() == here.path() ? 5 : 1; };
        selector.processDirectories(processDirectories);
        EXPECT_EQ(selector.start(), 5) << "what the outermost returns";
        EXPECT_EQ(selector.entered.size(), processDirectories ? 4U : 2U)
            << "the processor's answer replaces that of the walk";
    }
}

TEST(FileSelector, HoldsAtMost64DescriptorsHoweverDeepItGoes) {
    TemporaryDirectory const here;
    std::string const root = here.file("root");
    makeDeepTree(root, 150, {"a", "b"}, {"x", "z"});
    for (bool const overridden : {false, true}) {
        Notes notes(root);
        File::Selector plain(Path(root), notes);
        Overriding overriding(Path(root), notes);
        File::Selector& selector = overridden ? overriding : plain;
        selector.processDirectories(true);
        std::size_t const before = openDescriptors();
        std::size_t most = 0;
        notes.answer = [&](Path const&) {
            most = std::max(most, openDescriptors() - before);
            return 0;
        };
        selector.start();
        EXPECT_EQ(openDescriptors(), before);
        EXPECT_LE(most, 64U);
        EXPECT_GT(most, 32U) << "a walk of usual depth reads nothing ahead";
        auto paths = notes.paths();
        EXPECT_EQ(paths.size(), 151U * 4 + 150);
        std::sort(paths.begin(), paths.end());
        EXPECT_EQ(std::unique(paths.begin(), paths.end()), paths.end());
    }
}

// The 64th directory from the root is the first that is read ahead, and its names take memory.
TEST(FileSelector, EntersADirectoryByAnotherNameAfterMemoryRanOut) {
    TemporaryDirectory const here;
    std::string const root = here.file("root");
    makeDeepTree(root, 62, {});
    std::string deepest = root;
    for (int level = 0; level < 62; ++level) deepest += "/d";
    std::string const name(200, 'n');
    makeDirectory(deepest + "/x");
    writeFile(deepest + "/x/" + name, "");
    makeLink("x", deepest + "/y");
    Notes notes(root);
    Wrapping selector(Path(root), notes);
    std::size_t const before = openDescriptors();
    int failures = 0;
    selector.wrap = [&](Path const& directory, Wrapping::Walk const& walk) {
        if (directory.name() == "d" || failures != 0) return walk(directory);
        if (directory.asString() == root) return walk(directory);
        refusedSize = name.size() + 1;
        EXPECT_THROW(walk(directory), std::bad_alloc);
        refusedSize = 0;
        return failures++;
    };
    selector.start();
    EXPECT_EQ(failures, 1);
    ASSERT_EQ(notes.paths().size(), 1U) << "by the name that came second";
    EXPECT_EQ(Path(notes.paths()[0]).name(), name);
    EXPECT_EQ(openDescriptors(), before);
}

// Asked for by an override, a directory that is being read is entered; come upon by the walk, it is not.
TEST(FileSelector, KnowsWhoAsksForADirectoryAfterAnOverrideHasThrown) {
    TemporaryDirectory const here;
    here.write("a", "");
    makeDirectory(here.file("outer"));
    makeDirectory(here.file("outer/inner"));
    Notes notes(here.path());
    Wrapping selector(here.path(), notes);
    bool asked = false;
    selector.subdirectories({"outer", "inner"});
    selector.wrap = [&](Path const& directory, Wrapping::Walk const& walk) {
        if (directory.name() == "inner") throw 42;
        if (directory.name() != "outer") return walk(directory);
        EXPECT_THROW(walk(directory), int);
        return std::exchange(asked, true) ? 0 : walk(Path(here.path()));
    };
    selector.start();
    EXPECT_EQ(notes.sorted(), "a a") << "once by the walk, once because the override asked";
}

// The system takes paths of up to 4095 bytes: what lies deeper cannot be read, and is empty.
TEST(FileSelector, NeedsNoStackDownToTheLongestPath) {
    TemporaryDirectory const here;
    std::string const root = here.file("root");
    makeDeepTree(root, 2100, {"a"});
    Notes notes(root);
    File::Selector selector(Path(root), notes);
    onSmallStack(65536, [&] { selector.start(); });
    std::size_t longest = 0;
    for (auto const& path : notes.paths()) longest = std::max(longest, path.size());
    std::size_t const room = 4095 - root.size() - 1;  // for what stands behind "root/"
    EXPECT_EQ(longest, (room - 1) / 2 * 2 + 1) << "d/ and again, and a";
    EXPECT_EQ(notes.paths().size(), (room - 1) / 2 + 1);
    Path(root).unlink(true);
}

TEST(FileSelector, KeepsTheOrderOfItsVirtualOperations) {
    EXPECT_EQ(slotOf(&File::Processor::process), 2U);
    EXPECT_EQ(
        slotOf(static_cast<int (File::Selector::*)(Path const&, File::Processor&)>(&File::Selector::process)),
        2U);
}

TEST(RecursiveDeleteProcessor, RemovesWhatItIsGiven) {
    Sample const sample;
    File::RecursiveDeleteProcessor processor;
    EXPECT_EQ(processor.process(Path(sample.file("sub"))), 0);
    EXPECT_FALSE(isThere(sample.file("sub")));
    EXPECT_EQ(processor.process(Path(sample.file("a.eml"))), 0);
    EXPECT_FALSE(isThere(sample.file("a.eml")));
    EXPECT_EQ(processor.process(Path(sample.file("nothing"))), 0);
    EXPECT_TRUE(isThere(sample.file("b.EML")));
}

TEST(RecursiveDeleteProcessor, RemovesWhatASelectorFinds) {
    Sample const sample;
    File::RecursiveDeleteProcessor processor;
    File::Selector selector(sample.path(), processor);
    selector.patterns({"*.eml"});
    selector.start();
    EXPECT_EQ(walked(sample.path()), ".hidden b.EML sub/d.txt");
    EXPECT_TRUE(isThere(sample.file("fifo.eml"))) << "no regular file";
    selector.processDirectories(true);
    selector.maxRecursionDepth(0);
    selector.start();
    EXPECT_FALSE(isThere(sample.file("sub"))) << "handed on with all that it holds";
    EXPECT_EQ(walked(sample.path()), ".hidden b.EML");
}
