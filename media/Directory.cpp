#include "media/Directory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <deque>
#include <string_view>

#include "foundation/Descriptor.h"

namespace Quillmark {

Directory::Directory(int at, char const* name, Links links) noexcept {
    Uncancelled const whole;
    int const noLink = links == Links::Refuse ? O_NOFOLLOW : 0;
    m_descriptor = ::openat(at, name, O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC | noLink);
    if (m_descriptor == -1) return;
    m_stream = ::fdopendir(m_descriptor);
    if (!m_stream) close();
}

char const* Directory::next() {
    return m_given < m_ahead.size() ? m_ahead[m_given++].c_str() : read();
}

char const* Directory::read() noexcept {
    while (dirent const* const entry = m_stream ? ::readdir(m_stream) : nullptr) {
        std::string_view const name = entry->d_name;
        if (name != "." && name != "..") return entry->d_name;
    }
    return nullptr;
}

void Directory::readAhead() {
    while (char const* const name = read()) m_ahead.emplace_back(name);
    struct stat status = {};
    if (isOpen() && ::fstat(m_descriptor, &status) == 0) {
        m_device = status.st_dev;
        m_inode = status.st_ino;
    }
    close();
}

bool Directory::reopenAsParentOf(Directory const& child) noexcept {
    Uncancelled const whole;
    m_descriptor = ::openat(child.m_descriptor, "..", O_PATH | O_DIRECTORY | O_CLOEXEC);
    struct stat status = {};
    if (isOpen() && ::fstat(m_descriptor, &status) == 0 && status.st_dev == m_device &&
        status.st_ino == m_inode)
        return true;
    close();
    return false;
}

void Directory::close() noexcept {
    Uncancelled const whole;
    if (m_stream) {
        ::closedir(m_stream);
    } else if (isOpen()) {
        ::close(m_descriptor);
    }
    m_stream = nullptr;
    m_descriptor = -1;
}

namespace {

/// A tree that is being removed: the directories from its root down to the one that is being read.
///
/// The deepest ones are open, at least two of them: one to read and remove in, and its parent, in which
/// it is removed itself. Those above are closed and opened again from below.
class DoomedTree {
public:
    void remove(char const* root) {
        if (enter(AT_FDCWD, root)) {
            while (!m_levels.empty()) {
                if (char const* const name = m_levels.back().directory.next()) {
                    removeEntry(name);
                } else {
                    leave();
                }
            }
        }
        ::rmdir(root);
    }

private:
    struct Level {
        Level(int at, char const* entry) : name(entry), directory(at, entry, Directory::Links::Refuse) {}

        std::string name;  // in the level above
        Directory directory;
    };

    bool enter(int at, char const* name) {
        if (m_levels.size() - m_closed == mostOpenDirectories) m_levels[m_closed++].directory.readAhead();
        m_levels.emplace_back(at, name);
        if (m_levels.back().directory.isOpen()) return true;
        m_levels.pop_back();
        return false;
    }

    // What is no directory goes at once. Asking for its type first would be a question to the system more,
    // and the answer could be wrong by the time it is used.
    void removeEntry(char const* name) {
        int const at = m_levels.back().directory.descriptor();
        if (::unlinkat(at, name, 0) != 0 && !enter(at, name)) ::unlinkat(at, name, AT_REMOVEDIR);
    }

    void leave() {
        std::string const name = std::move(m_levels.back().name);
        m_levels.pop_back();
        if (m_levels.empty()) return;
        ::unlinkat(m_levels.back().directory.descriptor(), name.c_str(), AT_REMOVEDIR);
        std::size_t const depth = m_levels.size();
        if (depth < 2 || m_closed < depth - 1) return;
        if (m_levels[depth - 2].directory.reopenAsParentOf(m_levels.back().directory)) {
            --m_closed;
        } else {  // moved to another place, which is none of ours
            m_levels.clear();
        }
    }

    std::deque<Level> m_levels;
    std::size_t m_closed = 0;  // how many of them, from the root
};

}  // namespace

void removeTree(char const* path) {
    DoomedTree().remove(path);
}

}  // namespace Quillmark
