#include "tools/Sources.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "include2/Md5"
#include "tools/Names.h"
#include "tools/Stop.h"

namespace QuillmarkTool {
using namespace Quillmark;
namespace {

// More than the system takes. What is no list may have no end of a path at all.
constexpr std::size_t longestPath = 8192;

std::string joined(std::string const& directory, std::string_view name) {
    std::string path = directory;
    if (!path.empty() && path.back() != '/') path += '/';
    return path.append(name);
}

bool isDirectory(std::string const& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool isMaildir(std::string const& directory) {
    return isDirectory(joined(directory, "cur")) && isDirectory(joined(directory, "new"));
}

/// Whether the system neither shows what is there nor says that nothing is.
bool isConcealed(std::string const& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) != 0 && errno != ENOENT && errno != ENOTDIR;
}

bool isHidden(std::string_view name) {
    return name.starts_with('.');
}

bool hasMailName(std::string name) {
    for (char& c : name)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return name.ends_with(".eml") || name.ends_with(".mbox");
}

/// Whether the text begins with an mbox's "From " or with the name of a header field and a colon.
bool isStartOfMail(std::string_view text) {
    if (text.starts_with("From ")) return true;
    std::size_t length = 0;
    while (length < text.size() && text[length] > 0x20 && text[length] < 0x7f && text[length] != ':')
        ++length;
    // "http://..." begins no header: a blank, or a line's end, follows the colon of a field.
    if (length == 0 || length + 1 >= text.size() || text[length] != ':') return false;
    return std::string_view(" \t\r\n").find(text[length + 1]) != std::string_view::npos;
}

/// Whether the file begins as mail does; nothing, with errno, when it cannot be read.
std::optional<bool> beginsLikeMail(std::string const& file) {
    int const descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) return std::nullopt;
    std::array<char, 80> start{};
    ssize_t count = 0;
    do {
        count = ::read(descriptor, start.data(), start.size());
    } while (count < 0 && errno == EINTR);
    int const error = errno;
    ::close(descriptor);
    errno = error;
    if (count < 0) return std::nullopt;
    return isStartOfMail({start.data(), static_cast<std::size_t>(count)});
}

struct CloseDirectory {
    void operator()(DIR* directory) const { ::closedir(directory); }
};

/// Hands on the names in one directory, as the system has them, for as long as the command goes on.
/// The library's walker takes a directory that cannot be read, or not to its end, for one that ends there. People
/// want to know.
/// @return 0, or what stood in the way, as errno
int forEachName(std::string const& directory, std::function<void(std::string const& name)> const& take) {
    std::unique_ptr<DIR, CloseDirectory> const opened(::opendir(directory.c_str()));
    if (!opened) return errno;
    while (!Stop::isWanted()) {
        errno = 0;
        dirent const* const entry = ::readdir(opened.get());
        if (entry == nullptr) return errno;
        std::string const name = entry->d_name;
        if (name != "." && name != "..") take(name);
    }
    return 0;
}

class Finder {
public:
    Finder(SourceOptions const& options, SourceSink& sink) : m_options(options), m_sink(sink) {}
    void named(std::string const& path);
    void listed();
    std::size_t skipped() const { return m_skipped; }
    bool isDone() const { return !m_wanted || Stop::isWanted(); }

private:
    /// A directory that is read, and those below it that are still to be.
    struct Level {
        std::string directory;
        Names below;
    };

    Names names() const { return Names(m_options.swapTemplate); }
    void standardInput();
    void directory(std::string const& top);
    std::optional<Level> enter(std::string const& directory);
    void maildirPart(std::string const& directory);
    void found(std::string const& path, bool anyRegularFile);
    void hand(std::string const& path, std::uint64_t bytes, std::string const& error = {}) {
        m_wanted = m_wanted && m_sink.take({path, bytes, error});
    }
    void failed(std::string const& path, int error) {
        if (m_options.shard.holds(path)) hand(path, 0, std::strerror(error));
    }
    void failedUnlessGone(std::string const& path, int error);

    SourceOptions const& m_options;
    SourceSink& m_sink;
    bool m_wanted = true;
    bool m_inputIsTaken = false;  // standard input
    std::size_t m_skipped = 0;
};

void Finder::named(std::string const& path) {
    struct stat status {};
    if (path == "-") return standardInput();
    if (path.find('\0') != std::string::npos) return failed(path, EINVAL);
    if (::stat(path.c_str(), &status) != 0) return failed(path, errno);
    if (S_ISDIR(status.st_mode)) return directory(path);
    if (m_options.shard.holds(path)) hand(path, static_cast<std::uint64_t>(status.st_size));
}

/// It can be read once: two readers would share the bytes of one message, or of the list.
void Finder::standardInput() {
    if (!m_options.shard.holds("-")) return;
    char const* const readBy = m_options.list == "-" ? "is the list of paths" : "has been named before";
    bool const isFree = m_options.list != "-" && !std::exchange(m_inputIsTaken, true);
    hand("-", 0, isFree ? "" : readBy);
}

/// What was in a directory, and is not there any more, was never asked for. A link to nothing is still there.
void Finder::failedUnlessGone(std::string const& path, int error) {
    struct stat status {};
    if (error == ENOENT && ::lstat(path.c_str(), &status) != 0 && errno == ENOENT) return;
    failed(path, error);
}

void Finder::directory(std::string const& top) {
    std::vector<Level> levels;
    std::string next = top;
    for (;;) {
        if (std::optional<Level> level = enter(next)) levels.push_back(std::move(*level));
        std::string name;
        while (!levels.empty() && !levels.back().below.next(name)) levels.pop_back();
        if (levels.empty() || isDone()) return;
        next = joined(levels.back().directory, name);
    }
}

/// Reads one directory: hands on its files, and gives back the directories in it, if any.
std::optional<Finder::Level> Finder::enter(std::string const& directory) {
    bool const maildir = isMaildir(directory);
    if (maildir)
        for (char const* part : {"cur", "new"}) maildirPart(joined(directory, part));
    Names files = names();
    Level level{directory, names()};
    int const error = forEachName(directory, [&](std::string const& name) {
        // A Maildir's own three directories are read already, its folders begin with a dot.
        if (maildir && (name == "cur" || name == "new" || name == "tmp")) return;
        if (isHidden(name) && !maildir) return;
        std::string const path = joined(directory, name);
        struct stat status {};
        if (::lstat(path.c_str(), &status) != 0) {
            if (errno != ENOENT) files.add(name);  // why it cannot be looked at is said in its place
        } else if (S_ISDIR(status.st_mode)) {
            if (!isHidden(name) || isMaildir(path) || isConcealed(joined(path, "cur"))) level.below.add(name);
        } else if (!maildir && (S_ISREG(status.st_mode) || S_ISLNK(status.st_mode))) {
            files.add(name);
        }
    });
    if (error != 0) failed(directory, error);
    for (std::string name; !isDone() && files.next(name);) found(joined(directory, name), false);
    if (level.below.empty()) return std::nullopt;
    return level;
}

void Finder::maildirPart(std::string const& directory) {
    Names files = names();
    int const error = forEachName(directory, [&](std::string const& name) {
        if (!isHidden(name)) files.add(name);
    });
    if (error != 0) failed(directory, error);
    for (std::string name; !isDone() && files.next(name);) found(joined(directory, name), true);
}

void Finder::found(std::string const& path, bool anyRegularFile) {
    if (!m_options.shard.holds(path)) return;
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return failedUnlessGone(path, errno);
    if (!S_ISREG(status.st_mode)) return;
    std::optional<bool> const isMail = anyRegularFile || hasMailName(path) ? true : beginsLikeMail(path);
    if (!isMail) return failedUnlessGone(path, errno);
    if (*isMail)
        hand(path, static_cast<std::uint64_t>(status.st_size));
    else
        ++m_skipped;
}

/// Goes through the list of paths as it comes, and says when it does not come.
void Finder::listed() {
    bool const isInput = m_options.list == "-";
    int const descriptor =
        isInput ? STDIN_FILENO : ::open(m_options.list.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) throw UnreadableList{m_options.list + ": " + std::strerror(errno)};
    char const separator = m_options.nulSeparated ? '\0' : '\n';
    std::array<char, 65536> block{};
    std::string begun;
    auto const append = [&](std::string_view text) {
        begun.append(text.substr(0, longestPath - std::min(longestPath, begun.size())));
    };
    auto const take = [&] {
        if (!begun.empty()) named(begun);
        begun.clear();
    };
    int error = 0;
    while (!isDone()) {
        if (!Stop::canRead(descriptor)) m_sink.pause();
        if (!Stop::waitToRead(descriptor)) break;
        ssize_t const count = ::read(descriptor, block.data(), block.size());
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (count < 0) error = errno;
        if (count <= 0) {
            take();  // the last path may lack its end
            break;
        }
        std::string_view text(block.data(), static_cast<std::size_t>(count));
        for (std::size_t end = 0; (end = text.find(separator)) != std::string_view::npos && !isDone();) {
            append(text.substr(0, end));
            text.remove_prefix(end + 1);
            take();
        }
        append(text);
    }
    if (!isInput) ::close(descriptor);
    if (error != 0) throw UnreadableList{m_options.list + ": " + std::strerror(error)};
}

template <class Number>
bool isNumber(std::string_view text, Number& number) {
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return !text.empty() && error == std::errc() && end == text.data() + text.size();
}

}  // namespace

bool Shard::holds(std::string_view path) const {
    if (count < 2) return true;
    Md5Hasher hasher;
    hasher.update(reinterpret_cast<unsigned char const*>(path.data()),
                  static_cast<unsigned int>(path.size()));
    hasher.finalize();
    Buffer const digest = hasher.digest();
    std::uint64_t first = 0;
    for (unsigned int i = 0; i < 8; ++i) first = first << 8U | digest.data()[i];
    return first % count == number - 1;
}

bool Shard::read(std::string const& text) {
    std::size_t const slash = text.find('/');
    if (slash == std::string::npos) return false;
    std::string_view const all(text);
    return isNumber(all.substr(0, slash), number) && isNumber(all.substr(slash + 1), count) && number >= 1 &&
           number <= count;
}

std::size_t findSources(SourceOptions const& options, SourceSink& sink) {
    Finder finder(options, sink);
    for (std::string const& path : options.paths) {
        if (finder.isDone()) break;
        finder.named(path);
    }
    if (!options.list.empty() && !finder.isDone()) finder.listed();
    return finder.skipped();
}

}  // namespace QuillmarkTool
