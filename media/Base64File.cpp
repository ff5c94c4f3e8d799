#include "media/Base64File.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "foundation/Base64.h"
#include "foundation/Descriptor.h"
#include "foundation/Fail.h"
#include "include2/Exception"

namespace Quillmark {

namespace {

constexpr Site nowhere{nullptr, 0};

// So much is read at once: lines as they are encoded, and text of about as many.
constexpr std::size_t linesAtOnce = 2048;
constexpr std::size_t bytesAtOnce = linesAtOnce * base64LineBytes;
constexpr std::size_t textAtOnce = linesAtOnce * 64;

// Kept for the daemons: when the text is bad, the output has only whole blocks of what was decoded before
// the bad line, or the bad piece of a line that is longer than a piece.
constexpr std::size_t outputBlock = 16384;
constexpr std::size_t longestPiece = 8191;

Descriptor opened(char const* path, int flags) {
    Descriptor file = openFile(path, flags);
    if (!file.isOpen()) fail<MediaException>(CannotOpen, nowhere, errnoText(errno));
    return file;
}

struct stat statusOf(Descriptor const& file) {
    struct stat status = {};
    if (::fstat(file.number(), &status) != 0) fail<MediaException>(CannotStat, nowhere, errnoText(errno));
    return status;
}

/// Fills @p bytes as far as the file goes; gives how many that were.
std::size_t readFully(Descriptor const& file, unsigned char* bytes, std::size_t size) {
    std::size_t filled = 0;
    while (filled < size) {
        ssize_t const got = ::read(file.number(), bytes + filled, size - filled);
        if (got == 0) break;
        if (got > 0)
            filled += static_cast<std::size_t>(got);
        else if (errno != EINTR)
            fail<MediaException>(CannotOpen, nowhere, errnoText(errno));
    }
    return filled;
}

/// Where the result goes. The file is opened as it is, and emptied only when it is known not to be the
/// input.
class Output {
public:
    explicit Output(char const* path) : m_file(opened(path, O_WRONLY | O_CREAT)) {}

    /// @param input  all zero for an input that is not there
    void emptyUnlessItIs(struct stat const& input) {
        struct stat const status = statusOf(m_file);
        if (status.st_dev == input.st_dev && status.st_ino == input.st_ino)
            fail<MediaException>(BadArgument, nowhere, "input and output are one file");
        if (S_ISREG(status.st_mode) && ::ftruncate(m_file.number(), 0) != 0)
            fail<MediaException>(WriteFailed, nowhere, errnoText(errno));
    }

    void write(void const* bytes, std::size_t size) {
        auto const* from = static_cast<char const*>(bytes);
        while (size != 0) {
            ssize_t const written = ::write(m_file.number(), from, size);
            if (written < 0 && errno == EINTR) continue;
            if (written < 1) fail<MediaException>(WriteFailed, nowhere, errnoText(errno));
            from += written;
            size -= static_cast<std::size_t>(written);
        }
    }

    /// A file system may say only now that it has not kept the bytes.
    void close() {
        if (!m_file.close()) fail<MediaException>(WriteFailed, nowhere, errnoText(errno));
    }

private:
    Descriptor m_file;
};

void refuseNullPaths(char const* inputPath, char const* outputPath) {
    if (!inputPath || !outputPath) fail<MediaException>(BadArgument, nowhere, "no path");
}

/// Text on its way to a file.
class FileDecoder {
public:
    explicit FileDecoder(Output& output) : m_output(output), m_bytes(outputBlock + textAtOnce) {}

    /// Decodes lines, the last of which may have no end yet.
    void decode(unsigned char const* text, std::size_t size) {
        Base64Decoder const before = m_decoder;
        std::size_t const count = m_count;
        try {
            put(text, size);
        } catch (BufferException const&) {
            m_decoder = before;
            m_count = count;
            decodePieces(text, size);
        }
        flush(m_count / outputBlock * outputBlock);
    }

    void end() { flush(m_count); }

private:
    // Padding ends with its line, which nothing else does.
    void put(unsigned char const* text, std::size_t size) {
        unsigned char const* const end = text + size;
        while (text != end) {
            auto const* const padding =
                static_cast<unsigned char const*>(std::memchr(text, '=', left(text, end)));
            void const* const feed = padding ? std::memchr(padding, '\n', left(padding, end)) : nullptr;
            unsigned char const* const stop = feed ? static_cast<unsigned char const*>(feed) + 1 : end;
            m_count += m_decoder.decode(text, left(text, stop), m_bytes.data() + m_count);
            if (stop[-1] == '\n') m_decoder.endLine();
            text = stop;
        }
    }

    /// Decodes until a piece is bad.
    void decodePieces(unsigned char const* text, std::size_t size) {
        try {
            for (unsigned char const* const end = text + size; text != end;) {
                std::size_t const most = std::min(left(text, end), longestPiece);
                void const* const feed = std::memchr(text, '\n', most);
                std::size_t const piece =
                    feed ? left(text, static_cast<unsigned char const*>(feed)) + 1 : most;
                put(text, piece);
                text += piece;
            }
        } catch (BufferException const&) {
            flush(m_count / outputBlock * outputBlock);
            throw;
        }
    }

    void flush(std::size_t size) {
        m_output.write(m_bytes.data(), size);
        m_count -= size;
        std::memmove(m_bytes.data(), m_bytes.data() + size, m_count);
    }

    static std::size_t left(unsigned char const* from, unsigned char const* to) {
        return static_cast<std::size_t>(to - from);
    }

    Output& m_output;
    Base64Decoder m_decoder;
    std::vector<unsigned char> m_bytes;  // decoded; less than a block stays from text to text
    std::size_t m_count = 0;
};

/// What of @p size characters from the beginning of a line can be decoded before more is read: whole lines,
/// or else whole pieces of a long one.
std::size_t decodable(unsigned char const* text, std::size_t size) {
    void const* const feed = ::memrchr(text, '\n', size);
    if (feed) return static_cast<std::size_t>(static_cast<unsigned char const*>(feed) - text) + 1;
    return size / longestPiece * longestPiece;
}

}  // namespace

void base64EncodeFile(char const* inputPath, char const* outputPath) {
    refuseNullPaths(inputPath, outputPath);
    Descriptor const input = opened(inputPath, O_RDONLY);
    Output output(outputPath);
    output.emptyUnlessItIs(statusOf(input));
    std::vector<unsigned char> bytes(bytesAtOnce);
    std::vector<char> text(linesAtOnce * (base64LineLength + 1));
    std::size_t got = 0;
    while ((got = readFully(input, bytes.data(), bytes.size())) == bytesAtOnce) {
        base64Kernel().encodeLines(bytes.data(), linesAtOnce, text.data());
        output.write(text.data(), text.size());
    }
    std::size_t const lines = got / base64LineBytes;
    base64Kernel().encodeLines(bytes.data(), lines, text.data());
    output.write(text.data(), lines * (base64LineLength + 1));
    // Kept for the daemons: the line feed at the end comes also behind that of a full line.
    std::size_t const rest = got % base64LineBytes;
    std::size_t const length = base64EncodedSize(rest);
    base64Encode(bytes.data() + lines * base64LineBytes, rest, text.data());
    std::memset(text.data() + length, '\n', 2);
    output.write(text.data(), length + (length == base64LineLength ? 2 : 1));
    output.close();
}

void base64DecodeFile(char const* inputPath, char const* outputPath) {
    refuseNullPaths(inputPath, outputPath);
    Output output(outputPath);
    struct stat status = {};
    if (::stat(inputPath, &status) != 0) status = {};  // opening it will say what is wrong
    output.emptyUnlessItIs(status);
    Descriptor const input = opened(inputPath, O_RDONLY);
    FileDecoder decoder(output);
    std::vector<unsigned char> text(textAtOnce);
    for (std::size_t kept = 0;;) {
        std::size_t const size = kept + readFully(input, text.data() + kept, text.size() - kept);
        bool const last = size < text.size();
        std::size_t const count = last ? size : decodable(text.data(), size);
        decoder.decode(text.data(), count);
        if (last) break;
        kept = size - count;
        std::memmove(text.data(), text.data() + count, kept);
    }
    decoder.end();
    output.close();
}

}  // namespace Quillmark
