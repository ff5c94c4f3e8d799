#include "media/LineConvert.h"

#include "foundation/Descriptor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string>
#include <utility>

namespace Quillmark {

namespace {

constexpr std::size_t blockSize = 16384;

/// What the system refused, as errno.
struct Refusal {
    int error;
};

/// Throws what the system refused, or gives what it gave.
template <class Number>
Number granted(Number result) {
    if (result == -1) throw Refusal{errno};
    return result;
}

/// An open file.
class TextFile {
public:
    TextFile(char const* name, int flags) : m_file(openFile(name, flags)) { granted(m_file.number()); }

    struct stat status() const {
        struct stat status = {};
        granted(::fstat(m_file.number(), &status));
        return status;
    }

    /// @return the bytes read, 0 at the end
    std::size_t read(char* block, std::size_t n) const {
        ssize_t got;
        do got = ::read(m_file.number(), block, n);
        while (got == -1 && errno == EINTR);
        return static_cast<std::size_t>(granted(got));
    }

    void write(std::string_view bytes) const {
        while (!bytes.empty()) {
            ssize_t const taken = ::write(m_file.number(), bytes.data(), bytes.size());
            if (taken == -1 && errno == EINTR) continue;
            bytes.remove_prefix(static_cast<std::size_t>(granted(taken)));
        }
    }

    void truncate() const { granted(::ftruncate(m_file.number(), 0)); }

    // Some file systems report only here that they could not keep what was written.
    void close() {
        if (!m_file.close()) throw Refusal{errno};
    }

private:
    Descriptor m_file;
};

/// The blocks of a text with other line ends.
class LineEnds {
public:
    explicit LineEnds(std::string_view lineEnd) : m_lineEnd(lineEnd) {}

    /// Appends to @p out what @p block gives. A carriage return at its end waits for the next block.
    void convert(std::string_view block, std::string& out) {
        for (std::size_t lineFeed; (lineFeed = block.find('\n')) != std::string_view::npos;
             block.remove_prefix(lineFeed + 1)) {
            put(block.substr(0, lineFeed), out);
            m_heldBack = false;
            out += m_lineEnd;
        }
        put(block, out);
    }

    void end(std::string& out) {
        if (m_heldBack) out += '\r';
    }

private:
    void put(std::string_view bytes, std::string& out) {
        if (bytes.empty()) return;
        if (m_heldBack) out += '\r';
        m_heldBack = bytes.back() == '\r';
        if (m_heldBack) bytes.remove_suffix(1);
        out += bytes;
    }

    std::string_view m_lineEnd;
    bool m_heldBack = false;  // a carriage return that may belong to a line feed
};

/// Opens the file to write and empties it, unless it is the one that is read.
class Output : public TextFile {
public:
    Output(char const* name, TextFile const& input) : TextFile(name, O_WRONLY | O_CREAT) {
        struct stat const from = input.status();
        struct stat const to = status();
        if (from.st_dev == to.st_dev && from.st_ino == to.st_ino) throw Refusal{bothAreOneFile};
        if (S_ISREG(to.st_mode)) truncate();
    }
};

}  // namespace

int convertLines(char const* from, char const* to, std::string_view lineEnd) try {
    TextFile const input(from, O_RDONLY);
    char block[blockSize];
    std::size_t got = input.read(block, blockSize);  // before anything is emptied
    Output output(to, input);
    LineEnds lines(lineEnd);
    std::string converted;
    for (; got != 0; got = input.read(block, blockSize)) {
        converted.clear();
        lines.convert({block, got}, converted);
        output.write(converted);
    }
    converted.clear();
    lines.end(converted);
    output.write(converted);
    output.close();
    return 0;
} catch (Refusal const& refusal) {
    return refusal.error;
}

}  // namespace Quillmark
