#include "include2/File"

#include <fcntl.h>
#include <fnmatch.h>
#include <unistd.h>
#include <ext/stdio_filebuf.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <deque>
#include <istream>
#include <new>
#include <typeinfo>
#include <vector>

#include "foundation/ByteSet.h"
#include "foundation/Descriptor.h"
#include "foundation/Fail.h"
#include "media/Directory.h"
#include "media/LineConvert.h"

namespace Quillmark {

namespace {

[[noreturn]] void refuse(std::string const& title, unsigned int line, int error, std::string const& text) {
    Exception failure(title, Refused, "File", line);
    failure.intParameter(error);
    failure.stringParameter(text);
    throw failure;
}

[[noreturn]] void refuse(std::string const& title, unsigned int line, int error) {
    refuse(title, line, error, errnoText(error));
}

/// What to hand to the system. A path with a NUL byte must not become the shorter path before it.
char const* nameFor(std::string const& path) noexcept {
    if (path.find('\0') == std::string::npos) return path.c_str();
    return nullptr;
}

/// Gives the system's answer for a path, or -1 with errno.
template <class Call>
int ask(std::string const& path, Call call) noexcept {
    if (char const* const name = nameFor(path)) return call(name);
    errno = EINVAL;
    return -1;
}

bool takeStatus(std::string const& path, struct stat& status) noexcept {
    return ask(path, [&](char const* name) { return ::stat(name, &status); }) == 0;
}

bool exists(std::string const& path) noexcept {
    return ask(path, [](char const* name) { return ::access(name, F_OK); }) == 0;
}

bool makeOne(std::string const& path, unsigned int mode) noexcept {
    return ask(path, [&](char const* name) { return ::mkdir(name, mode); }) == 0 || errno == EEXIST;
}

void removeFile(std::string const& path) noexcept {
    ask(path, [](char const* name) { return ::unlink(name); });
}

// A "/" at the end would lead through a link to what it points to.
std::string withoutSlashesAtEnd(std::string const& path) {
    std::size_t const last = path.find_last_not_of('/');
    return last == std::string::npos ? path : path.substr(0, last + 1);
}

/// Removes what has been a directory when it was last looked at.
void removeDirectory(std::string const& path) {
    std::string const bare = withoutSlashesAtEnd(path);
    struct stat status = {};
    if (::lstat(bare.c_str(), &status) == 0 && S_ISLNK(status.st_mode)) return removeFile(bare);
    removeTree(bare.c_str());
}

bool matchesAny(std::list<std::string> const& patterns, std::string const& name) {
    return patterns.empty() || std::any_of(patterns.begin(), patterns.end(), [&](std::string const& pattern) {
               return ::fnmatch(pattern.c_str(), name.c_str(), 0) == 0;
           });
}

/// Opens a file without handing it down to the programs that the process starts.
bool openInto(std::filebuf& buffer, std::string const& path, int flags, std::ios::openmode mode) {
    char const* const name = nameFor(path);
    if (!name) return false;
    Descriptor descriptor = openFile(name, flags);
    if (!descriptor.isOpen()) return false;
    __gnu_cxx::stdio_filebuf<char> file(descriptor.number(), mode);
    if (file.is_open()) descriptor.release();
    buffer = std::move(file);
    return buffer.is_open();
}

/// A line, or the beginning of one, that lies in a buffer.
struct Line {
    int length;     // bytes in the buffer
    bool lineFeed;  // comes next in the stream

    bool endsInCarriageReturn(char const* buffer) const { return length != 0 && buffer[length - 1] == '\r'; }
};

// The line feed stays in the stream until it is known that there is room for the line's end: not every
// stream takes a byte back.
Line readLine(std::istream& stream, char* buffer, int size) {
    if (!buffer || size < 1) {
        stream.setstate(std::ios::failbit);
        return {0, false};
    }
    *buffer = '\0';
    if (stream.peek() == '\n') return {0, true};  // which get() would take for a failure
    stream.get(buffer, size, '\n');
    int const length = static_cast<int>(stream.gcount());
    return {length, stream.good() && stream.peek() == '\n'};
}

void lineConvert(std::string const& from, std::string const& to, std::string_view lineEnd) {
    if (from.empty() || to.empty()) return;
    int error = EINVAL;
    if (nameFor(from) && nameFor(to)) error = convertLines(from.c_str(), to.c_str(), lineEnd);
    if (error == bothAreOneFile) refuse("_lineConvert", 349, EINVAL, "Both paths lead to one file");
    if (error != 0) refuse("_lineConvert", 349, error);
}

}  // namespace

File::Status::Status(Path const& path) : m_stat() {
    if (takeStatus(path.asString(), m_stat)) return;
    int const error = errno;
    refuse("File::Status(" + path.asString() + ")", 18, error);
}

File::PathImpl::PathImpl() = default;

File::PathImpl::PathImpl(std::string const& text) {
    parse(text);
}

File::PathImpl::PathImpl(std::string const& directory, std::string const& name)
    : m_directory(directory), m_name(name), m_path(directory) {
    if (name.empty()) return;
    if (!m_path.empty()) m_path += '/';
    m_path += name;
}

File::PathImpl::~PathImpl() {
    KeepErrno const keep;
    if (m_autodelete && !m_path.empty()) removeFile(m_path);
}

void File::PathImpl::parse(std::string const& text) {
    if (text.empty()) return;
    std::string path = text;  // which may be one of the texts that change here
    std::size_t const slash = path.rfind('/');
    if (slash == std::string::npos) {
        m_name = path;
    } else {
        if (slash + 1 != path.size()) m_name = path.substr(slash + 1);
        m_directory = path.substr(0, slash);
    }
    m_path = std::move(path);
}

File::Status const* File::PathImpl::status() {
    struct stat taken = {};
    if (!m_status && takeStatus(m_path, taken)) m_status.reset(new Status(taken));
    return m_status.get();
}

File::Path::Path() : m_impl(new PathImpl, false) {}
File::Path::Path(std::string const& text) : m_impl(new PathImpl(text), false) {}
File::Path::Path(std::string const& directory, std::string const& name)
    : m_impl(new PathImpl(directory, name), false) {}

File::Path::operator char const*() const noexcept {
    return empty() ? nullptr : asString().c_str();
}

bool File::Path::exists() const noexcept {
    return Quillmark::exists(asString());
}

File::Status const& File::Path::status(bool refresh) const {
    if (refresh) m_impl->forgetStatus();
    if (Status const* const status = m_impl->status()) return *status;
    int const error = errno;
    refuse("File::Status(" + asString() + ")", 18, error);
}

void File::Path::unlink(bool recursive) const noexcept {
    try {
        Status const* const status = recursive ? m_impl->status() : nullptr;
        if (status && status->isDirectory()) {
            removeDirectory(asString());
        } else {
            removeFile(asString());
        }
    } catch (std::bad_alloc const&) {  // what could not be reached stays, as what the system refuses
    }
    m_impl->forgetStatus();
}

void File::Path::rename(std::string const& to) const {
    auto const from = [&](char const* newName) {
        return ask(asString(), [&](char const* name) { return ::rename(name, newName); });
    };
    PathImpl renamed(m_impl->directory(),
                     m_impl->name());  // first, since it may take memory that is not there
    renamed.parse(to);
    if (ask(to, from) != 0) refuse("rename", 319, errno);
    m_impl->swapTexts(renamed);
}

int File::Path::link(std::string const& to) const {
    auto const from = [&](char const* newName) {
        return ask(asString(), [&](char const* name) { return ::link(name, newName); });
    };
    if (ask(to, from) != 0) refuse("link", 331, errno);
    return 0;
}

bool File::Path::makeDirectory(std::string const& path, unsigned int mode) noexcept try {
    if (Quillmark::exists(path)) return true;
    auto const isSpace = [](char c) { return whiteSpaceBytes.contains(c); };
    auto const begin = std::find_if_not(path.begin(), path.end(), isSpace);
    if (begin == path.end()) return false;
    auto search = begin;
    if (*search == '/' && ++search == path.end()) return false;
    while ((search = std::find(search, path.end(), '/')) != path.end())
        if (!makeOne(std::string(begin, search++), mode)) return false;
    return makeOne(path, mode);
} catch (std::bad_alloc const&) {
    return false;
}

bool File::Path::operator==(Path const& other) const noexcept {
    return m_impl == other.m_impl || asString() == other.asString();
}

bool File::Path::operator<(Path const& other) const noexcept {
    return m_impl != other.m_impl && asString() < other.asString();
}

File::Processor::~Processor() = default;

File::RecursiveDeleteProcessor::~RecursiveDeleteProcessor() = default;

int File::RecursiveDeleteProcessor::process(Path const& path) {
    path.unlink(true);
    return 0;
}

/// What all levels of one walk share.
struct File::Selector::Walk {
    struct Identity {
        dev_t device;
        ino_t inode;
        bool operator==(Identity const& other) const = default;
    };

    bool isBeingRead(struct stat const& directory) const {
        return std::find(path.begin(), path.end(), Identity{directory.st_dev, directory.st_ino}) !=
               path.end();
    }

    std::vector<Identity> path;  // from the root to the deepest level
    std::size_t open = 0;        // descriptors
    bool descends = false;       // process() is called by the walk, not by a processor or whoever else
};

/// While the walk calls process() for a directory below. Whoever overrides that may throw before the walk
/// has seen the call.
class File::Selector::Descent {
public:
    explicit Descent(Walk& walk) : m_walk(walk) { m_walk.descends = true; }
    Descent(Descent const&) = delete;
    Descent& operator=(Descent const&) = delete;
    ~Descent() { m_walk.descends = false; }

private:
    Walk& m_walk;
};

/// One directory of a walk, from its first entry to its last.
class File::Selector::Level {
public:
    /// @param onlyOnce  do not enter a directory that the walk is reading
    Level(Walk& walk, Path const& path, bool onlyOnce)
        : m_walk(walk), m_path(path), m_entries(AT_FDCWD, nameOrNothing(path), Directory::Links::Follow) {
        struct stat status = {};
        if (!m_entries.isOpen() || ::fstat(m_entries.descriptor(), &status) != 0 ||
            (onlyOnce && m_walk.isBeingRead(status)))
            return;
        if (m_walk.open + 1 == mostOpenDirectories) m_entries.readAhead();
        m_walk.path.push_back({status.st_dev, status.st_ino});
        m_entered = true;  // from here on nothing throws, and the destructor takes it all back
        m_holds = m_entries.isOpen();
        m_walk.open += m_holds ? 1 : 0;
    }
    Level(Level const&) = delete;
    Level& operator=(Level const&) = delete;
    ~Level() {
        if (m_entered) m_walk.path.pop_back();
        if (m_holds) --m_walk.open;
    }

    bool isEntered() const noexcept { return m_entered; }
    Path const& path() const noexcept { return m_path; }
    /// The name of the next entry; null at the end and after stop().
    char const* next() { return m_stopped ? nullptr : m_entries.next(); }
    void stop() noexcept { m_stopped = true; }

private:
    static char const* nameOrNothing(Path const& path) noexcept {
        char const* const name = nameFor(path.asString());
        return name ? name : "";
    }

    Walk& m_walk;
    Path m_path;
    Directory m_entries;
    bool m_entered = false;
    bool m_holds = false;  // one of the walk's descriptors
    bool m_stopped = false;
};

/// One call of process(). The outermost brings the state of the walk; each leaves the depth as it was.
class File::Selector::Frame {
public:
    explicit Frame(Selector& selector) : m_selector(selector), m_depth(selector.m_depth) {
        if (!selector.m_walk) selector.m_walk = &m_walk;
    }
    Frame(Frame const&) = delete;
    Frame& operator=(Frame const&) = delete;
    ~Frame() {
        m_selector.m_depth = m_depth;
        if (m_selector.m_walk == &m_walk) m_selector.m_walk = nullptr;
    }

    /// Begins to read the directory that process() was asked for.
    void begin(Path const& directory) { enter(directory, std::exchange(m_selector.m_walk->descends, false)); }

    /// Begins to read a directory below, if the system and the links let it. A limit ends also a walk that
    /// goes round in links; without one, no directory is entered from within itself.
    bool enter(Path const& directory, bool descends = true) {
        m_levels.emplace_back(*m_selector.m_walk, directory,
                              descends && m_selector.m_maxRecursionDepth == -1);
        if (m_levels.back().isEntered()) return true;
        m_levels.pop_back();
        return false;
    }

    std::deque<Level>& levels() noexcept { return m_levels; }

private:
    Selector& m_selector;
    int m_depth;
    Walk m_walk;
    std::deque<Level> m_levels;
};

File::Selector::Selector(Path const& root, Processor& processor) : m_root(root), m_processor(processor) {}

File::Selector::~Selector() = default;

int File::Selector::start() {
    return process(m_root, m_processor);
}

// A class that overrides process() is called for every directory, one call inside the other. Nobody can see
// the difference when there is none, so then the levels are a list, and depth costs no stack.
int File::Selector::process(Path const& directory, Processor& processor) {
    bool const isOverridden = typeid(*this) != typeid(Selector);
    Frame frame(*this);
    auto& levels = frame.levels();
    frame.begin(directory);
    while (!levels.empty()) {
        int result = 0;
        if (char const* const name = levels.back().next()) {
            Path const child(levels.back().path().asString(), name);
            Kind const kind = kindOf(child);
            if (kind == Kind::Directory) {
                if (isToBeEntered(child)) {
                    ++m_depth;
                    if (isOverridden) {
                        Descent const descent(*m_walk);
                        result = process(child, processor);
                    } else if (frame.enter(child)) {
                        continue;
                    }
                    --m_depth;
                }
                if (m_processDirectories) result = processor.process(child);
            } else if (kind == Kind::File && patternMatch(child)) {
                result = processor.process(child);
            }
        } else {
            Path const walked = levels.back().path();
            levels.pop_back();
            if (levels.empty()) break;
            --m_depth;
            if (m_processDirectories) result = processor.process(walked);
        }
        if (result != 0) levels.back().stop();
    }
    return 0;
}

bool File::Selector::patternMatch(Path const& path) const {
    return matchesAny(m_patterns, path.name());
}

bool File::Selector::subdirectoryMatch(Path const& path) const {
    return matchesAny(m_subdirectories, path.name());
}

// The status stays with the path, so that a processor that asks for it does not ask the system again.
File::Selector::Kind File::Selector::kindOf(Path const& child) const {
    if (!m_checkFileType) return Kind::File;
    Status const* const status = child.m_impl->status();
    if (!status) return Kind::Other;
    if (status->isDirectory()) return Kind::Directory;
    return status->isRegularFile() && m_processRegularFiles ? Kind::File : Kind::Other;
}

bool File::Selector::isToBeEntered(Path const& directory) const {
    return (m_maxRecursionDepth == -1 || m_maxRecursionDepth > m_depth) && subdirectoryMatch(directory);
}

File::basic_ifstream::basic_ifstream(Path const& path) {
    if (!openInto(*rdbuf(), path.asString(), O_RDONLY, std::ios::in)) setstate(std::ios::failbit);
}

File::basic_ofstream::basic_ofstream(Path const& path) {
    if (!openInto(*rdbuf(), path.asString(), O_WRONLY | O_CREAT | O_TRUNC, std::ios::out))
        setstate(std::ios::failbit);
}

int File::getline(std::istream& stream, char* buffer, int size) {
    Line const line = readLine(stream, buffer, size);
    if (line.lineFeed) stream.get();
    int const taken = line.length + (line.lineFeed ? 1 : 0);
    if (taken < 2 || !line.endsInCarriageReturn(buffer)) return taken;
    buffer[line.length - 1] = '\0';
    return taken - 1;
}

int File::getlinecrlf(std::istream& stream, char* buffer, int size) {
    Line const line = readLine(stream, buffer, size);
    char* end = buffer + line.length;
    bool const hasCarriageReturn = line.lineFeed && line.endsInCarriageReturn(buffer);
    bool const wantsEnd = line.lineFeed || line.length >= 2;
    int const wanted = hasCarriageReturn ? 1 : 2;
    if (!wantsEnd || size - line.length < wanted) {
        if (line.length == 0) stream.setstate(std::ios::failbit);  // or it would never end
        return line.length;
    }
    if (line.lineFeed) stream.get();
    if (!hasCarriageReturn) *end++ = '\r';
    *end = '\n';
    return line.length + wanted;
}

void File::unix2dos(Path const& from, Path const& to) {
    lineConvert(from.asString(), to.asString(), "\r\n");
}

void File::dos2unix(Path const& from, Path const& to) {
    lineConvert(from.asString(), to.asString(), "\n");
}

}  // namespace Quillmark
