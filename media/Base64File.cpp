#include "media/Base64File.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/Descriptor.h"
#include "foundation/Fail.h"
#include "include2/Base64Media"
#include "include2/FileMedia"

namespace Quillmark {

namespace {

constexpr Site nowhere{nullptr, 0};
constexpr uint_t copyBlock = 16384;

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

/// Where the result goes. The file is opened as it is, and emptied only when it is known not to be the
/// input.
class Output : public MediaOutImpl {
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

    using MediaOutImpl::write;
    void write(unsigned char const* data, uint_t n) override {
        while (n != 0) {
            ssize_t const written = ::write(m_file.number(), data, n);
            if (written < 0 && errno == EINTR) continue;
            if (written < 1) fail<MediaException>(WriteFailed, nowhere, errnoText(errno));
            data += written;
            n -= static_cast<uint_t>(written);
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

}  // namespace

void base64EncodeFile(char const* inputPath, char const* outputPath) {
    refuseNullPaths(inputPath, outputPath);
    Descriptor const input = opened(inputPath, O_RDONLY);
    Handle<Output> const output(new Output(outputPath), false);
    output->emptyUnlessItIs(statusOf(input));
    Base64MediaOut encoder(MediaOut(output.get(), true));
    unsigned char block[copyBlock];
    for (;;) {
        ssize_t const got = ::read(input.number(), block, sizeof block);
        if (got == 0) break;
        if (got > 0)
            encoder.write(block, static_cast<uint_t>(got));
        else if (errno != EINTR)
            fail<MediaException>(CannotOpen, nowhere, errnoText(errno));
    }
    encoder.end();
    output->close();
}

void base64DecodeFile(char const* inputPath, char const* outputPath) {
    refuseNullPaths(inputPath, outputPath);
    Handle<Output> const output(new Output(outputPath), false);
    struct stat status = {};
    if (::stat(inputPath, &status) != 0) status = {};  // opening it will say what is wrong
    output->emptyUnlessItIs(status);
    FileMediaIn file{std::string(inputPath)};
    Base64MediaIn decoder(file);
    unsigned char block[copyBlock];
    while (!decoder.atEnd()) {
        int const got = decoder.read(block, copyBlock);
        if (got > 0) output->write(block, static_cast<uint_t>(got));
    }
    output->close();
}

}  // namespace Quillmark
