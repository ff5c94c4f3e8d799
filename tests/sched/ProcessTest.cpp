#include "include2/QuillProcess"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <type_traits>

#include "platform/quill_cfg.h"
#include "tests/support/Support.h"

using namespace Quillmark;
using namespace QuillmarkTest;
using Process::Entry;
using Process::Tree;

namespace {

/// A /proc of our own making, as long as the object lives.
class ProcOfOurs {
public:
    ProcOfOurs() { quill_path_map("/proc", m_directory.path().c_str()); }
    ~ProcOfOurs() { quill_path_map("/proc", nullptr); }

    void directory(std::string const& name) const {
        ASSERT_TRUE(File::Path::makeDirectory(m_directory.file(name), 0700));
    }
    void write(std::string const& pid, std::string const& file, std::string const& content) const {
        directory(pid);
        m_directory.write(pid + "/" + file, content);
    }
    /// Opens a descriptor: a link in the directory of the process.
    void open(std::string const& pid, std::string const& number, std::string const& target) const {
        directory(pid + "/fd");
        ASSERT_EQ(::symlink(target.c_str(), m_directory.file(pid + "/fd/" + number).c_str()), 0);
    }
    std::string file(std::string const& name) const { return m_directory.file(name); }

private:
    TemporaryDirectory m_directory;
};

/// A process of our own that waits until it is killed. It says when it has done what it was to do first.
class Child {
public:
    explicit Child(std::function<void()> const& first) {
        int ready[2];
        if (::pipe(ready) != 0) return;
        m_pid = ::fork();
        if (m_pid == 0) {
            first();
            if (::write(ready[1], "", 1) != 1) ::_exit(1);
            for (;;) ::pause();
        }
        char byte = 0;
        EXPECT_EQ(::read(ready[0], &byte, 1), 1);
        ::close(ready[0]);
        ::close(ready[1]);
    }
    ~Child() {
        if (m_ended) return;
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }

    int pid() const { return m_pid; }
    /// Waits for the end and tells which signal brought it.
    int endedBy() {
        int status = 0;
        EXPECT_EQ(::waitpid(m_pid, &status, 0), m_pid);
        m_ended = true;
        return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    }
    bool isRunning() const { return ::waitpid(m_pid, nullptr, WNOHANG) == 0; }

private:
    pid_t m_pid = -1;
    bool m_ended = false;
};

/// Another program, cat, with the arguments it is given. It waits for the end of its input.
class Program {
public:
    explicit Program(std::vector<std::string> arguments) {
        int input[2], output[2];
        if (::pipe2(input, O_CLOEXEC) != 0 || ::pipe2(output, O_CLOEXEC) != 0) return;
        std::vector<char*> argv;
        for (std::string& argument : arguments) argv.push_back(argument.data());
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_adddup2(&actions, input[0], 0);
        ::posix_spawn_file_actions_adddup2(&actions, output[1], 1);
        char* environment[] = {nullptr};
        EXPECT_EQ(::posix_spawn(&m_pid, "/bin/cat", &actions, nullptr, argv.data(), environment), 0);
        ::posix_spawn_file_actions_destroy(&actions);
        ::close(input[0]);
        ::close(output[1]);
        // The system shows the arguments a little later than the name; a program that answers has them.
        char byte = 'x';
        EXPECT_EQ(::write(input[1], &byte, 1), 1);
        EXPECT_EQ(::read(output[0], &byte, 1), 1);
        ::close(output[0]);
        m_input = input[1];
    }
    ~Program() {
        ::close(m_input);
        ::waitpid(m_pid, nullptr, 0);
    }

    int pid() const { return m_pid; }

private:
    pid_t m_pid = -1;
    int m_input = -1;
};

std::string joined(std::list<std::string> const& texts) {
    std::string all;
    for (std::string const& text : texts) all += "<" + text + ">";
    return all;
}

std::string joined(std::map<int, std::string> const& descriptors) {
    std::string all;
    for (auto const& [number, target] : descriptors) all += std::to_string(number) + "=" + target + ";";
    return all;
}

/// The ids of all processes, in ascending order, and once each.
std::vector<int> ids() {
    Tree tree;
    Process::Visitor::for_each(tree);
    std::vector<int> ids;
    for (Entry const& entry : tree.entries()) ids.push_back(entry.id());
    std::sort(ids.begin(), ids.end());
    return ids;
}

bool contains(std::vector<int> const& ids, int id) {
    return std::count(ids.begin(), ids.end(), id) == 1;
}

std::string const null(1, '\0');

std::string const emptyEntry = "operator->( 1 ) , include2/QuillRefcounted:359, ";

}  // namespace

static_assert(std::has_virtual_destructor_v<Entry>);
static_assert(std::is_base_of_v<File::Processor, Process::Selector>);
static_assert(std::is_base_of_v<Process::Selector, Tree>);
static_assert(std::is_base_of_v<File::Processor, Process::FdExpansion>);
static_assert(std::is_empty_v<Process::Visitor>);
static_assert(std::is_abstract_v<Process::Selector>);

TEST(ProcessEntry, OfNothingRefusesEveryQuestion) {
    Entry const entry;
    EXPECT_TRUE(entry.isNull());
    EXPECT_EQ(failureOf([&] { entry.id(); }), emptyEntry);
    EXPECT_EQ(failureOf([&] { entry.kill(0); }), emptyEntry);
    EXPECT_EQ(failureOf([&] { entry.name(); }), emptyEntry);
    EXPECT_EQ(failureOf([&] { entry.cmdline(); }), emptyEntry);
    EXPECT_EQ(failureOf([&] { entry.args(); }), emptyEntry);
    EXPECT_EQ(failureOf([&] { entry.fd(); }), emptyEntry);
    Entry const copy(entry);
    EXPECT_TRUE(copy.isNull());
}

TEST(ProcessEntry, SharesWhatWasReadWithItsCopies) {
    ProcOfOurs const proc;
    proc.write("7", "stat", "7 (first) S\n");
    Entry const entry(7);
    Entry const copy(entry);
    EXPECT_EQ(entry.name(), "first");
    proc.write("7", "stat", "7 (second) S\n");
    EXPECT_EQ(copy.name(), "first");
    EXPECT_EQ(Entry(7).name(), "second");
    EXPECT_EQ(copy.id(), 7);
}

TEST(ProcessName, StandsBetweenTheFirstBrackets) {
    struct {
        std::string stat, name;
    } const rows[] = {
        {"7 (cat) S 1\n", "cat"},
        {"7 (my)proc) S 1\n", "my"},
        {"7 (a (b) S\n", "a (b"},
        {"7 ) (x) S\n", "x"},
        {"7 () S\n", ""},
        {"7 () (x) S\n", ""},
        {"7 (open S\n", ""},
        {"7 no brackets\n", ""},
        {"7 (x)", ""},  // the last byte is not looked at
        {"7 (x) ", "x"},
        {"(x)\n", "x"},
        {"", ""},
        {"(", ""},
        {"7 (with space) S\n", "with space"},
        {"7 (" + null + ") S\n", null},
        // 64 bytes are read and 63 kept, so the bracket must be the 63rd at the latest.
        {"7 (" + std::string(59, 'n') + ")SSSS", std::string(59, 'n')},
        {"7 (" + std::string(60, 'n') + ")SSSS", ""},
    };
    for (auto const& [stat, name] : rows) {
        ProcOfOurs const proc;
        proc.write("7", "stat", stat);
        EXPECT_EQ(Entry(7).name(), name) << stat;
    }
}

TEST(ProcessName, IsReadAgainWhileItIsEmpty) {
    ProcOfOurs const proc;
    Entry const entry(7);
    EXPECT_EQ(entry.name(), "");
    proc.write("7", "stat", "7 (late) S\n");
    EXPECT_EQ(entry.name(), "late");
}

TEST(ProcessArguments, StandBetweenTheNulBytes) {
    struct {
        std::string file, args;
    } const rows[] = {
        {"cat" + null, "<cat>"},
        {"cat" + null + "-n" + null + "file" + null, "<cat><-n><file>"},
        {"a" + null + null + "b" + null, "<a><><b>"},
        {null + "a" + null, "<><a>"},
        {"a" + null + null, "<a><>"},
        {null + null, "<><>"},
        {null, ""},
        {"", ""},
        {"title", "<titl>"},  // the last byte goes, whatever it is
        {"x", ""},
        {"with space" + null, "<with space>"},
    };
    for (auto const& [file, args] : rows) {
        ProcOfOurs const proc;
        proc.write("7", "cmdline", file);
        Entry const entry(7);
        EXPECT_EQ(joined(entry.args()), args) << hex(file);
        EXPECT_EQ(entry.cmdline(), file.substr(0, file.empty() ? 0 : file.size() - 1)) << hex(file);
        EXPECT_EQ(joined(entry.args()), args) << hex(file) << " once more";
    }
}

TEST(ProcessArguments, AreReadWithTheCommandLine) {
    ProcOfOurs const proc;
    proc.write("7", "cmdline", "a" + null + "b" + null);
    Entry const entry(7);
    EXPECT_EQ(entry.cmdline(), "a" + null + "b");
    proc.write("7", "cmdline", "c" + null);
    EXPECT_EQ(entry.cmdline(), "a" + null + "b") << "kept";
    EXPECT_EQ(joined(entry.args()), "<a><b>") << "kept";
}

TEST(ProcessArguments, AreReadAgainWhileThereAreNone) {
    ProcOfOurs const proc;
    Entry const entry(7);
    EXPECT_EQ(joined(entry.args()), "");
    proc.write("7", "cmdline", "late" + null);
    EXPECT_EQ(joined(entry.args()), "<late>");
}

TEST(ProcessArguments, EndAfter4095Bytes) {
    ProcOfOurs const proc;
    proc.write("7", "cmdline", std::string(4095, 'a') + null);
    EXPECT_EQ(Entry(7).cmdline(), std::string(4095, 'a'));
    proc.write("7", "cmdline", std::string(4094, 'a') + null + "bcd" + null);
    EXPECT_EQ(Entry(7).cmdline(), std::string(4094, 'a') + null);
    EXPECT_EQ(joined(Entry(7).args()), "<" + std::string(4094, 'a') + "><>");
}

TEST(ProcessDescriptors, AreThoseOfRegularFilesByNumber) {
    ProcOfOurs const proc;
    TemporaryDirectory const here;
    std::string const a = here.write("a", "");
    std::string const b = here.write("b", "");
    ASSERT_EQ(::mkfifo(here.file("fifo").c_str(), 0600), 0);
    proc.open("7", "10", a);
    proc.open("7", "9", b);
    proc.open("7", "0", a);
    proc.open("7", "1", "/dev/null");
    proc.open("7", "2", here.path());
    proc.open("7", "3", here.file("fifo"));
    proc.open("7", "4", here.file("nothing"));
    proc.open("7", "x", a);
    proc.write("7/fd", "5", "no link");
    EXPECT_EQ(joined(Entry(7).fd()), "0=" + a + ";9=" + b + ";10=" + a + ";");
}

TEST(ProcessDescriptors, AreOnlyEverAdded) {
    ProcOfOurs const proc;
    TemporaryDirectory const here;
    std::string const a = here.write("a", "");
    std::string const b = here.write("b", "");
    proc.open("7", "3", a);
    Entry const entry(7);
    EXPECT_EQ(joined(entry.fd()), "3=" + a + ";");
    ASSERT_EQ(::unlink(proc.file("7/fd/3").c_str()), 0);
    proc.open("7", "3", b);
    proc.open("7", "4", b);
    EXPECT_EQ(joined(entry.fd()), "3=" + a + ";4=" + b + ";");
    File::Path(proc.file("7")).unlink(true);
    EXPECT_EQ(joined(entry.fd()), "3=" + a + ";4=" + b + ";");
}

TEST(ProcessDescriptors, CutTheirTargetsAt512Bytes) {
    ProcOfOurs const proc;
    TemporaryDirectory const here;
    std::string const name(250, 'n');
    ASSERT_TRUE(File::Path::makeDirectory(here.file(name + "/" + name), 0700));
    std::string const target = here.write(name + "/" + name + "/" + name, "");
    proc.open("7", "3", target);
    EXPECT_EQ(joined(Entry(7).fd()), "3=" + target.substr(0, 512) + ";");
}

TEST(ProcessDescriptors, OfThisProcessAreRead) {
    TemporaryDirectory const here;
    std::string const a = here.write("a", "");
    int const file = ::open(a.c_str(), O_RDONLY | O_CLOEXEC);
    int const directory = ::open(here.path().c_str(), O_RDONLY | O_CLOEXEC);
    int const socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    Entry const self(::getpid());
    std::size_t const open = openDescriptors();
    auto const descriptors = self.fd();
    EXPECT_EQ(openDescriptors(), open);
    ASSERT_EQ(descriptors.count(file), 1U);
    EXPECT_EQ(descriptors.at(file), a);
    EXPECT_EQ(descriptors.count(directory), 0U);
    EXPECT_EQ(descriptors.count(socket), 0U);
    for (int const descriptor : {file, directory, socket}) ::close(descriptor);
}

TEST(ProcessEntry, ShowsARealProcess) {
    Program const program({"a cat", "-u", "-"});
    Entry const entry(program.pid());
    EXPECT_EQ(entry.name(), "cat");
    EXPECT_EQ(joined(entry.args()), "<a cat><-u><->");
}

TEST(ProcessEntry, ShowsANameWithABracketUpToIt) {
    Child const child([] { ::prctl(PR_SET_NAME, "my)proc"); });
    EXPECT_EQ(Entry(child.pid()).name(), "my");
}

TEST(ProcessEntry, OfAProcessThatHasGoneIsEmpty) {
    std::optional<Child> child([] {});
    Entry const gone(child->pid());
    child.reset();
    EXPECT_EQ(gone.name(), "");
    EXPECT_EQ(gone.cmdline(), "");
    EXPECT_TRUE(gone.args().empty());
    EXPECT_TRUE(gone.fd().empty());
    EXPECT_EQ(gone.kill(0), -1);
    EXPECT_EQ(errno, ESRCH);
}

TEST(ProcessEntry, SendsSignals) {
    Child child([] {});
    Entry const entry(child.pid());
    EXPECT_EQ(entry.kill(0), 0);
    EXPECT_TRUE(child.isRunning());
    EXPECT_EQ(entry.kill(999), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(entry.kill(SIGUSR1), 0);
    EXPECT_EQ(child.endedBy(), SIGUSR1);
}

// To the system 0 is this process's group, -1 everybody and less than that another group. The child is the
// leader of a group of its own and alone in it.
TEST(ProcessEntry, SendsNothingToGroups) {
    Child const child([] { ::setpgid(0, 0); });
    for (int const id : {0, -1, -child.pid()}) {
        errno = 0;
        EXPECT_EQ(Entry(id).kill(0), -1) << id;
        EXPECT_EQ(errno, ESRCH) << id;
    }
    EXPECT_EQ(Entry(-child.pid()).kill(SIGTERM), -1);
    EXPECT_TRUE(child.isRunning());
}

TEST(ProcessWalk, FindsThisProcessAndItsChildren) {
    Child const child([] {});
    auto const found = ids();
    EXPECT_TRUE(contains(found, ::getpid()));
    EXPECT_TRUE(contains(found, child.pid()));
    EXPECT_TRUE(std::is_sorted(found.begin(), found.end(), std::less_equal<>())) << "each once";
    EXPECT_GT(found.front(), 0);
}

TEST(ProcessWalk, TakesDirectoriesWhoseNamesBeginWithANumber) {
    ProcOfOurs const proc;
    for (char const* name : {"1", "007", "12abc", "self", "0", "abc12", "-5", "4294967296", "4294967298"})
        proc.directory(name);
    proc.directory("1/99");
    proc.write("self", "44", "");
    ASSERT_EQ(::symlink("1", proc.file("33").c_str()), 0);
    ASSERT_EQ(::symlink("nothing", proc.file("34").c_str()), 0);
    writeFile(proc.file("55"), "a file");
    EXPECT_EQ(ids(), (std::vector<int>{-5, 1, 2, 7, 12, 33}));
}

TEST(ProcessWalk, GivesTheSameAsAnOperator) {
    ProcOfOurs const proc;
    proc.directory("3");
    Tree tree;
    Process::Visitor const visitor;
    visitor(tree);
    visitor.for_each(tree);
    ASSERT_EQ(tree.entries().size(), 2U) << "a tree keeps what it has";
    EXPECT_EQ(tree.entries().front().id(), 3);
    EXPECT_EQ(tree.entries().back().id(), 3);
}

TEST(ProcessWalk, LetsExceptionsOfTheSelectorThrough) {
    struct Thrower : Process::Selector {
        using Selector::process;
        void process(Entry const& entry) override { throw entry.id(); }
    } thrower;
    std::size_t const open = openDescriptors();
    EXPECT_THROW(Process::Visitor::for_each(thrower), int);
    EXPECT_EQ(openDescriptors(), open);
}

TEST(ProcessTree, KeepsCopiesOfWhatItIsGiven) {
    ProcOfOurs const proc;
    proc.write("7", "stat", "7 (x) S\n");
    Tree tree;
    Entry const entry(7);
    tree.process(entry);
    EXPECT_EQ(tree.process(File::Path("/proc/8")), 0);
    EXPECT_EQ(tree.process(File::Path("/proc/self")), 0);
    ASSERT_EQ(tree.entries().size(), 2U);
    EXPECT_EQ(tree.entries().back().id(), 8);
    EXPECT_EQ(entry.name(), "x");
    proc.write("7", "stat", "7 (y) S\n");
    EXPECT_EQ(tree.entries().front().name(), "x") << "the copy shares what was read";
}

// The names are this process's own: the test may run several times on one machine.
TEST(ProcessTree, KillsAllOfAName) {
    std::string const name = "qm" + std::to_string(::getpid());
    auto const named = [](std::string const& own) { return [own] { ::prctl(PR_SET_NAME, own.c_str()); }; };
    Child first(named(name));
    Child second(named(name));
    Child const longer(named(name + "s"));
    Child const other(named("Q" + name.substr(1)));
    Tree tree;
    tree.killAllByName(name, SIGTERM);
    EXPECT_TRUE(first.isRunning()) << "an empty tree knows nobody";
    Process::Visitor::for_each(tree);
    tree.killAllByName(name.substr(0, name.size() - 1) + "x", SIGTERM);
    tree.killAllByName(name, 0);
    EXPECT_TRUE(first.isRunning());
    tree.killAllByName(name, SIGTERM);
    EXPECT_EQ(first.endedBy(), SIGTERM);
    EXPECT_EQ(second.endedBy(), SIGTERM);
    EXPECT_TRUE(longer.isRunning());
    EXPECT_TRUE(other.isRunning());
}

// Whoever has no name has the empty one: processes that are gone or not readable.
TEST(ProcessTree, KillsNobodyByTheEmptyName) {
    Child const child([] {});
    ProcOfOurs const proc;
    Tree tree;
    tree.process(Entry(child.pid()));
    ASSERT_EQ(tree.entries().front().name(), "");
    tree.killAllByName("", SIGKILL);
    EXPECT_TRUE(child.isRunning());
}

TEST(ProcessFdExpansion, LeavesANumberThatItHas) {
    TemporaryDirectory const here;
    ASSERT_EQ(::symlink("target", here.file("3").c_str()), 0);
    ASSERT_EQ(::symlink("target", here.file("4").c_str()), 0);
    std::map<int, std::string> descriptors{{3, "former"}};
    Process::FdExpansion expansion(descriptors);
    EXPECT_EQ(expansion.process(File::Path(here.file("3"))), 0);
    EXPECT_EQ(expansion.process(File::Path(here.file("4"))), 0);
    EXPECT_EQ(expansion.process(File::Path(here.file("5"))), 0);
    EXPECT_EQ(joined(descriptors), "3=former;4=target;");
}

TEST(ProcessFdExpansion, ReadsNumbersAsStreamsDo) {
    TemporaryDirectory const here;
    std::map<int, std::string> descriptors;
    Process::FdExpansion expansion(descriptors);
    for (char const* name : {"12", " 13", "+14", "-15", "16abc", "abc", "99999999999"}) {
        ASSERT_EQ(::symlink("target", here.file(name).c_str()), 0);
        EXPECT_EQ(expansion.process(File::Path(here.file(name))), 0) << name;
    }
    EXPECT_EQ(joined(descriptors), "-15=target;12=target;13=target;14=target;16=target;");
}

TEST(ProcessSelector, KeepsTheOrderOfItsVirtualOperations) {
    EXPECT_EQ(slotOf(static_cast<int (Process::Selector::*)(File::Path const&)>(&Process::Selector::process)),
              2U);
    EXPECT_EQ(slotOf(static_cast<void (Process::Selector::*)(Entry const&)>(&Process::Selector::process)),
              3U);
}
