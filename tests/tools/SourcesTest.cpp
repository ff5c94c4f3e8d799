// What is said of files and directories that cannot be looked at.

#include "tools/Sources.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <filesystem>
#include <functional>
#include <utility>

#include "tests/tools/Scans.h"

using namespace QuillmarkTool;
using namespace QuillmarkTest;

namespace {

/// Collects sources: their paths below a directory, and what is wrong with them.
class Found final : public SourceSink {
public:
    explicit Found(std::string directory, std::function<void()> atFirst = {})
        : m_directory(std::move(directory)), m_atFirst(std::move(atFirst)) {
        m_skipped = findSources({{m_directory}, {}, false, {}, m_directory + "/swapXXXXXX"}, *this);
    }
    std::vector<std::string> const& all() const { return m_all; }
    std::size_t skipped() const { return m_skipped; }

private:
    bool take(Source source) override {
        if (m_all.empty() && m_atFirst) m_atFirst();
        std::string const below = source.path.substr(std::min(source.path.size(), m_directory.size() + 1));
        m_all.push_back(source.error.empty() ? below : below + ": " + source.error);
        return true;
    }

    std::string const m_directory;
    std::function<void()> const m_atFirst;
    std::vector<std::string> m_all;
    std::size_t m_skipped = 0;
};

/// Lets the process open no more files, until its end.
class NoDescriptors {
public:
    NoDescriptors() { ::getrlimit(RLIMIT_NOFILE, &m_before); }
    ~NoDescriptors() { ::setrlimit(RLIMIT_NOFILE, &m_before); }
    NoDescriptors(NoDescriptors const&) = delete;
    NoDescriptors& operator=(NoDescriptors const&) = delete;
    void begin() const {
        rlimit const none{0, m_before.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &none);
    }

private:
    rlimit m_before{};
};

/// A directory inside the other, whose path may be longer than the system takes. @return its descriptor
int made(int parent, std::string const& name) {
    if (::mkdirat(parent, name.c_str(), 0700) != 0) return -1;
    int const child = ::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ::close(parent);
    return child;
}

void writeAt(int directory, char const* name, std::string const& text) {
    int const file = ::openat(directory, name, O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    EXPECT_EQ(::write(file, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    ::close(file);
}

}  // namespace

TEST(Sources, SayInItsPlaceWhatCannotBeLookedAtBelowADirectory) {
    TemporaryDirectory const place;
    place.write("a", message("a"));
    std::filesystem::create_symlink("nowhere", place.file("b.eml"));
    std::filesystem::create_symlink("c", place.file("c"));
    std::filesystem::create_symlink("/proc/self/mem",
                                    place.file("d"));  // a file whose first byte nobody reads
    place.write("e", message("e"));
    place.write("f.txt", "no mail\n");
    Found const found(place.path());
    EXPECT_EQ(found.all(), (std::vector<std::string>{"a", "b.eml: No such file or directory",
                                                     "c: Too many levels of symbolic links",
                                                     "d: Input/output error", "e"}));
    EXPECT_EQ(found.skipped(), 1U);
    Ran const ran = scan({place.path()});
    EXPECT_EQ(ran.status, 1);
    EXPECT_EQ(
        linesOf(ran.out).back(),
        "2 messages, 2 parts, 2 links. 1 file that is no mail passed over. 3 bad, see the lines \"Error\".");
}

TEST(Sources, SayWhereAPathGetsTooLong) {
    TemporaryDirectory const place;
    std::string const name(200, 'x');
    int directory = ::open(place.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (int depth = 1; depth <= 25; ++depth) {
        directory = made(directory, name);
        ASSERT_GE(directory, 0);
        if (depth == 1 || depth == 25) writeAt(directory, "m.eml", message("m"));
    }
    ::close(directory);
    // The deepest directory whose path the system takes.
    std::size_t const deepest = (PATH_MAX - 1 - place.path().size()) / (1 + name.size());
    std::string below;
    for (std::size_t depth = 1; depth <= deepest; ++depth) below += name + "/";
    EXPECT_EQ(Found(place.path()).all(),
              (std::vector<std::string>{name + "/m.eml", below + name + ": File name too long"}));
}

TEST(Sources, SayWhatThereIsNoDescriptorFor) {
    TemporaryDirectory const place;
    place.write("a.eml", message("a"));
    place.write("b", message("b"));
    place.write("c.eml", message("c"));
    place.write("deep/d.eml", message("d"));
    NoDescriptors const none;
    Found const found(place.path(), [&] { none.begin(); });
    EXPECT_EQ(found.all(), (std::vector<std::string>{"a.eml", "b: Too many open files", "c.eml",
                                                     "deep: Too many open files"}));
    EXPECT_EQ(found.skipped(), 0U);
}

TEST(Sources, SayWhatCannotBeLookedAtInAMaildirAndItsFolders) {
    TemporaryDirectory const place;
    for (char const* directory : {"cur", "new", "tmp", ".Sent/new", ".Sent/tmp", ".notes"})
        std::filesystem::create_directories(place.file(directory));
    place.write("cur/1", message("one"));
    std::filesystem::create_symlink("nowhere", place.file("cur/2"));
    std::filesystem::create_symlink("cur", place.file(".Sent/cur"));
    place.write(".notes/x.eml", message("hidden"));
    EXPECT_EQ(Found(place.path()).all(),
              (std::vector<std::string>{"cur/1", "cur/2: No such file or directory",
                                        ".Sent/cur: Too many levels of symbolic links"}));
}

TEST(Sources, AreSilentOnWhatIsGoneByNow) {
    TemporaryDirectory const place;
    for (char const* name : {"a.eml", "b.eml", "c", "d.eml"}) place.write(name, message(name));
    Found const found(place.path(), [&] {
        for (char const* name : {"b.eml", "c"}) ::unlink(place.file(name).c_str());
    });
    EXPECT_EQ(found.all(), (std::vector<std::string>{"a.eml", "d.eml"}));
    EXPECT_EQ(found.skipped(), 0U);
}
