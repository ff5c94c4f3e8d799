#pragma once
// Trees of files for the tests of walks and removals, and what is left of them.

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>

namespace QuillmarkTest {

/// Whether there is something at the path, and be it a link to nothing.
inline bool isThere(std::string const& path) {
    struct stat status = {};
    return ::lstat(path.c_str(), &status) == 0;
}

inline void makeDirectory(std::string const& path) {
    ASSERT_EQ(::mkdir(path.c_str(), 0700), 0) << path;
}

inline void makeLink(std::string const& target, std::string const& path) {
    ASSERT_EQ(::symlink(target.c_str(), path.c_str()), 0) << path;
}

inline void makeFifo(std::string const& path) {
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0) << path;
}

inline void makeSocket(std::string const& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.copy(address.sun_path, sizeof address.sun_path - 1), sizeof address.sun_path - 1);
    int const socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(::bind(socket, reinterpret_cast<sockaddr const*>(&address), sizeof address), 0) << path;
    ::close(socket);
}

/// Makes directories named "d", one in the other, down to @p levels, however long the path becomes, and in
/// each the empty files and directories that are listed.
inline void makeDeepTree(std::string const& root, int levels, std::vector<std::string> const& files,
                         std::vector<std::string> const& directories = {}) {
    makeDirectory(root);
    int at = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (int level = 0; level <= levels; ++level) {
        ASSERT_NE(at, -1);
        for (auto const& file : files)
            ::close(::openat(at, file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        for (auto const& directory : directories) ASSERT_EQ(::mkdirat(at, directory.c_str(), 0700), 0);
        if (level == levels) break;
        ASSERT_EQ(::mkdirat(at, "d", 0700), 0);
        int const below = ::openat(at, "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ::close(at);
        at = below;
    }
    ::close(at);
}

}  // namespace QuillmarkTest
