#pragma once
// Reading directories with few descriptors, and removing trees.

#include <dirent.h>
#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

namespace Quillmark {

/// How many directories one walk or one removal keeps open.
constexpr std::size_t mostOpenDirectories = 64;

/// A directory that is being read: every entry but "." and "..", once, in the system's order.
class Directory {
public:
    enum class Links { Follow, Refuse };

    /// Not open when the system refuses.
    /// @param at  the directory in which @p name is looked up, or AT_FDCWD
    Directory(int at, char const* name, Links links) noexcept;
    Directory(Directory const&) = delete;
    Directory& operator=(Directory const&) = delete;
    ~Directory() { close(); }

    bool isOpen() const noexcept { return m_descriptor != -1; }
    int descriptor() const noexcept { return m_descriptor; }  ///< -1 when it is closed

    /// The name of the next entry, null at the end. It holds until the next call.
    char const* next();
    /// Reads the names that are left, for next() to give, and gives back the descriptor.
    void readAhead();
    /// Opens the parent of @p child, provided that it is the directory that was closed here, and not
    /// another into which the child was moved meanwhile.
    bool reopenAsParentOf(Directory const& child) noexcept;
    void close() noexcept;

private:
    char const* read() noexcept;

    DIR* m_stream = nullptr;  // owns the descriptor while it is read
    int m_descriptor = -1;
    dev_t m_device = 0;  // of what was closed
    ino_t m_inode = 0;
    std::vector<std::string> m_ahead;
    std::size_t m_given = 0;  // of those
};

/// Removes a directory and all that is below it, as far as the system lets. Follows no link, also not at
/// @p path itself. The depth is not limited.
void removeTree(char const* path);

}  // namespace Quillmark
