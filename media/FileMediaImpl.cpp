#include "include2/FileMedia"

#include "foundation/Descriptor.h"
#include "foundation/Fail.h"

#include <cxxabi.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>
#include <ext/stdio_filebuf.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <istream>
#include <limits>
#include <ostream>
#include <vector>

namespace Quillmark {

namespace {

constexpr Site here(unsigned int line) {
    return {"FileMediaImpl", line};
}
constexpr Site nowhere{nullptr, 0};

constexpr std::size_t longestTemplate = 4096;
constexpr uint_t copyBlock = 4096;

using FileBuffer = __gnu_cxx::stdio_filebuf<char>;

/// None, with errno, when it cannot be opened.
Descriptor openNamed(std::string const& name, int flags) {
    if (name.find('\0') == std::string::npos) return openFile(name.c_str(), flags);
    errno = EINVAL;
    return {};
}

[[noreturn]] void cannotOpen(unsigned int line, std::string const& name) {
    fail<MediaException>(CannotOpen, here(line), "Could Not open " + name);
}

[[noreturn]] void writeFailed() {
    fail<MediaException>(WriteFailed, nowhere);
}

void refuseNothingAt(unsigned char const* data, uint_t n) {
    if (!data && n != 0) fail<MediaException>(BadArgument, nowhere);
}

std::streamoff seekable(ulong_t position) {
    constexpr auto last = std::numeric_limits<std::streamoff>::max();
    return static_cast<std::streamoff>(std::min(position, static_cast<ulong_t>(last)));
}

constexpr std::streamoff noPosition = -1;

/// What @p call of a caller's stream gives. Whatever the stream's buffer throws is a refusal: one without
/// positions may well say so in that way. The end of a cancelled thread passes; its handler binds a reference
/// that the system leaves null, so that one check of the sanitizers has to look away.
template <class Result, class Call>
__attribute__((noinline, no_sanitize("null"))) Result unlessItThrows(Result refusal, Call call) {
    try {
        return call();
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        return refusal;
    }
}

/// Asked of the buffer, since the stream itself forgets its position once it has reported the end.
std::streamoff positionIn(std::streambuf* buffer, std::ios::openmode which) {
    if (!buffer) return noPosition;
    return unlessItThrows(noPosition,
                          [&]() -> std::streamoff { return buffer->pubseekoff(0, std::ios::cur, which); });
}

/// A standard stream over a file buffer of its own; Stream is std::istream or std::ostream.
template <class Stream>
class FileStream : public Stream {
public:
    /// When there is no memory, in std::bad_alloc or in a buffer that is not open, the file is closed.
    FileStream(Descriptor& file, std::ios::openmode mode)
        : Stream(nullptr), m_number(file.number()), m_buffer(file.release(), mode | std::ios::binary) {
        if (!m_buffer.is_open()) ::close(m_number);
        this->rdbuf(&m_buffer);
    }

    FileBuffer& buffer() { return m_buffer; }

private:
    int m_number;
    FileBuffer m_buffer;
};

/// Takes the file over, or throws code 4099.
template <class Owner>
std::unique_ptr<Owner> streamOver(Descriptor file, std::ios::openmode mode, unsigned int line,
                                  std::string const& name) {
    if (!file.isOpen()) cannotOpen(line, name);
    auto stream = std::make_unique<Owner>(file, mode);
    if (!stream->buffer().is_open()) cannotOpen(line, name);
    return stream;
}

std::unique_ptr<std::istream> openToRead(std::string const& name) {
    return streamOver<FileStream<std::istream>>(openNamed(name, O_RDONLY), std::ios::in, 208, name);
}

// Whoever may write to the directory can put something else at the name; nothing that is found there is
// waited for, followed or read unless it is the file that was made.
std::unique_ptr<std::istream> openToReadBack(TempFile const& made) {
    Descriptor file = openNamed(made.name(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    if (!file.isOpen() || !made.isMadeFile(file.number())) cannotOpen(208, made.name());
    return streamOver<FileStream<std::istream>>(std::move(file), std::ios::in, 208, made.name());
}

/// Gives a buffer of less than two bytes room for a byte and what getline() puts behind it, if it can grow.
bool hasRoomForLine(Buffer& line) {
    if (line.size() < 2 && line.isResizable()) line.size(2);
    if (line.size() == 0) {  // an empty buffer over nobody's memory gets memory of its own by appending
        line.append(static_cast<unsigned char>(0));
        line.length(0);
    }
    return line.size() >= 2;
}

}  // namespace

TempFile::TempFile(bool removeOnDestroy) : m_removeOnDestroy(removeOnDestroy) {}

TempFile::TempFile(std::string const& prefix)
    : m_name(prefix + std::to_string(::getpid()) + "." + std::to_string(::pthread_self())),
      m_removeOnDestroy(true) {}

TempFile::TempFile(char const* prefix) : TempFile(std::string(prefix ? prefix : "")) {}

TempFile::~TempFile() {
    remove();
}

int TempFile::open(std::string const& nameTemplate) {
    if (nameTemplate.size() > longestTemplate || nameTemplate.find('\0') != std::string::npos) {
        errno = EINVAL;
        return -1;
    }
    std::string name = nameTemplate;
    int const descriptor = ::mkostemp(name.data(), O_CLOEXEC);
    if (descriptor == -1) return -1;
    remove();
    m_name.swap(name);
    struct stat status = {};
    m_made = ::fstat(descriptor, &status) == 0;
    m_device = status.st_dev;
    m_inode = status.st_ino;
    return descriptor;
}

bool TempFile::isMadeFile(int descriptor) const {
    struct stat status = {};
    return m_made && ::fstat(descriptor, &status) == 0 && status.st_dev == m_device &&
           status.st_ino == m_inode;
}

// A name with a NUL byte, which can only come of a prefix, is no file's, and must not become that of another.
void TempFile::remove() const noexcept {
    if (!m_removeOnDestroy || m_name.empty() || m_name.find('\0') != std::string::npos) return;
    KeepErrno const keep;
    ::unlink(m_name.c_str());
}

TempFileMediaOutImpl::TempFileMediaOutImpl(std::string const& nameTemplate, bool removeOnDestroy)
    : m_tmpfile(new TempFile(removeOnDestroy), false) {
    std::string const complaint = "Could Not open tempfile " + nameTemplate;
    int const descriptor = m_tmpfile->open(nameTemplate);
    if (descriptor == -1) fail<MediaException>(CannotOpen, here(519), complaint);
    Descriptor file(descriptor);
    m_stream = ::fdopen(file.number(), "w");
    if (!m_stream) fail<MediaException>(CannotOpen, nowhere, complaint);
    file.release();
    std::setvbuf(m_stream, nullptr, _IONBF, 0);
}

TempFileMediaOutImpl::~TempFileMediaOutImpl() {
    KeepErrno const keep;
    Uncancelled const whole;
    if (!m_stream) return;
    handOver();
    std::fclose(m_stream);
}

/// Writes what is pending.
bool TempFileMediaOutImpl::handOver() {
    std::size_t const count = std::exchange(m_pendingCount, 0);
    return count == 0 || std::fwrite(m_pending->data(), 1, count, m_stream) == count;
}

// Small writes are gathered here, and large ones go to the system whole: the C library would cut them into
// the blocks of its own buffer. What could not be written is gone, so a stream that has failed once is not
// used any more.
void TempFileMediaOutImpl::expect(bool success) {
    if (success) return;
    m_lost = true;
    writeFailed();
}

void TempFileMediaOutImpl::expectOpen() const {
    if (!m_stream || m_lost) writeFailed();
}

void TempFileMediaOutImpl::write(unsigned char const* data, uint_t n) {
    expectOpen();
    if (n == 0) return;
    refuseNothingAt(data, n);
    if (n >= std::tuple_size_v<Block> - m_pendingCount) expect(handOver());
    if (n < std::tuple_size_v<Block>) {
        if (!m_pending) m_pending = std::make_unique<Block>();
        std::memcpy(m_pending->data() + m_pendingCount, data, n);
        m_pendingCount += n;
    } else {
        expect(std::fwrite(data, 1, n, m_stream) == n);
    }
    m_written += std::min(n, UINT32_MAX - m_written);
}

// Whoever reads the file back ends it first, maybe for the second time, and must not take a part for the whole.
void TempFileMediaOutImpl::end() {
    close();
    if (m_lost) writeFailed();
}

ulong_t TempFileMediaOutImpl::tell() const {
    return m_written;
}

void TempFileMediaOutImpl::setpos(ulong_t position) {
    expectOpen();
    expect(handOver());
    if (::fseeko(m_stream, seekable(position), SEEK_SET) != 0) writeFailed();
}

void TempFileMediaOutImpl::flush() {
    expectOpen();
    expect(handOver());
}

void TempFileMediaOutImpl::close() {
    if (!m_stream) return;
    bool const written = handOver();
    bool const closed = std::fclose(std::exchange(m_stream, nullptr)) == 0;
    expect(written && closed && !m_lost);
}

TempFileMediaOut::TempFileMediaOut() noexcept = default;

TempFileMediaOut::TempFileMediaOut(std::string const& nameTemplate, bool removeOnDestroy) {
    adopt(new TempFileMediaOutImpl(nameTemplate, removeOnDestroy));
}

void TempFileMediaOut::flush() {
    as<TempFileMediaOutImpl>().flush();
}

void TempFileMediaOut::close() {
    as<TempFileMediaOutImpl>().close();
}

uint_t TempFileMediaOut::length() const {
    return as<TempFileMediaOutImpl>().length();
}

Ref<TempFile> TempFileMediaOut::tmpfile() const {
    return as<TempFileMediaOutImpl>().tmpfile();
}

IStreamMediaInImpl::IStreamMediaInImpl(std::istream& stream) : m_stream(stream) {}
IStreamMediaInImpl::~IStreamMediaInImpl() = default;

bool IStreamMediaInImpl::atEnd() const {
    if (m_lineFeedOwed) return false;
    if (m_stream.eof()) m_atEndSeen = true;
    return m_atEndSeen;
}

int IStreamMediaInImpl::peek() const {
    return m_lineFeedOwed ? '\n' : m_stream.peek();
}

// Looks at the stream after a read. One that gives nothing and reports nothing (it could not go to a
// position) has ended.
void IStreamMediaInImpl::checkState(bool gotSomething) {
    if (m_stream.bad())
        fail("IStreamMediaInImpl::readline", Refused, here(75), "Stream is state is undefined.");
    if (m_stream.eof() || !gotSomething) m_atEndSeen = true;
}

void IStreamMediaInImpl::readline(Buffer& line) {
    line.length(0);
    if (!hasRoomForLine(line)) return readByteAsLine(line);
    uint_t const room = line.size();
    auto* const bytes = reinterpret_cast<char*>(line.data());
    uint_t count = 1;  // with the line feed, which getline() takes but does not store
    if (m_lineFeedOwed) {
        m_lineFeedOwed = false;
    } else {
        m_stream.getline(bytes, room);
        count = static_cast<uint_t>(m_stream.gcount());
        checkState(count != 0);
        if (count == 0) return;
        bool const complete = m_stream.good();
        m_stream.clear();
        if (!complete) return line.length(count);
    }
    if (!m_convertToCRLF) {
        bytes[count - 1] = '\n';
        return line.length(count);
    }
    if (count == room) {  // both bytes of the line's end have to wait for the next call
        auto const refused = std::istream::traits_type::eof();
        m_lineFeedOwed = unlessItThrows(refused, [&] { return m_stream.rdbuf()->sungetc(); }) == refused;
        return line.length(count - 1);
    }
    bytes[count - 1] = '\r';
    bytes[count] = '\n';
    line.length(count + 1);
}

// The buffer wraps a single byte and cannot grow. Better lines of one byte than none for ever.
void IStreamMediaInImpl::readByteAsLine(Buffer& line) {
    unsigned char byte = 0;
    if (read(&byte, 1) == 1) line.append(byte);
}

int IStreamMediaInImpl::read(unsigned char* data, uint_t n) {
    if (!data || n == 0) return 0;
    uint_t const wanted = std::min<uint_t>(n, INT32_MAX);
    uint_t have = 0;
    if (m_lineFeedOwed) {
        data[have++] = '\n';
        m_lineFeedOwed = false;
    }
    if (have < wanted) {
        m_stream.read(reinterpret_cast<char*>(data) + have, wanted - have);
        have += static_cast<uint_t>(m_stream.gcount());
        checkState(have != 0);
    }
    return static_cast<int>(have);
}

ulong_t IStreamMediaInImpl::tell() const {
    std::streamoff position = positionIn(m_stream.rdbuf(), std::ios::in);
    if (m_lineFeedOwed && position > 0) --position;
    return static_cast<ulong_t>(position);
}

void IStreamMediaInImpl::setpos(ulong_t position) {
    m_atEndSeen = false;
    m_lineFeedOwed = false;
    m_stream.clear();
    m_stream.seekg(seekable(position), std::ios::beg);
}

MediaOut& IStreamMediaInImpl::write(MediaOut& out) {
    unsigned char block[copyBlock];
    while (!atEnd()) {
        int const got = read(block, copyBlock);
        if (got < 1) break;
        out.write(block, static_cast<uint_t>(got));
    }
    return out;
}

IStreamMediaIn::IStreamMediaIn(std::istream& stream) : MediaIn(new IStreamMediaInImpl(stream), false) {}
IStreamMediaIn::IStreamMediaIn(IStreamMediaInImpl* impl, bool addReference) noexcept
    : MediaIn(impl, addReference) {}

bool IStreamMediaIn::convertToCRLF() const {
    return as<IStreamMediaInImpl>().convertToCRLF();
}

void IStreamMediaIn::convertToCRLF(bool convert) {
    as<IStreamMediaInImpl>().convertToCRLF(convert);
}

FileMediaInImpl::FileMediaInImpl(std::string const& name) : FileMediaInImpl(openToRead(name), name) {}
FileMediaInImpl::FileMediaInImpl(TempFile const& made) : FileMediaInImpl(openToReadBack(made), made.name()) {}
FileMediaInImpl::FileMediaInImpl(std::unique_ptr<std::istream> file, std::string const& name)
    : IStreamMediaInImpl(*file), m_file(std::move(file)), m_name(name) {}
FileMediaInImpl::~FileMediaInImpl() = default;

uint_t FileMediaInImpl::length() const {
    struct stat status = {};
    if (::lstat(m_name.c_str(), &status) != 0) fail<MediaException>(CannotStat, nowhere);
    return static_cast<uint_t>(status.st_size);
}

FileMediaIn::FileMediaIn(std::string const& name) : IStreamMediaIn(new FileMediaInImpl(name), false) {}

std::string const& FileMediaIn::name() const {
    return as<FileMediaInImpl>().name();
}

uint_t FileMediaIn::length() const {
    return as<FileMediaInImpl>().length();
}

StreamMediaOutImpl::StreamMediaOutImpl(std::ostream& stream) : m_stream(stream) {}
StreamMediaOutImpl::~StreamMediaOutImpl() = default;

void StreamMediaOutImpl::write(unsigned char const* data, uint_t n) {
    refuseNothingAt(data, n);
    m_stream.write(reinterpret_cast<char const*>(data), n);
    if (m_stream.fail()) writeFailed();
}

void StreamMediaOutImpl::end() {
    m_stream.flush();
    if (m_stream.fail()) writeFailed();
}

void StreamMediaOutImpl::close() {
    end();
}

StreamMediaOut::StreamMediaOut(std::ostream& stream) {
    adopt(new StreamMediaOutImpl(stream));
}

void StreamMediaOut::close() {
    as<StreamMediaOutImpl>().close();
}

class FileMediaOutImpl::OwnFile : public FileStream<std::ostream> {
public:
    using FileStream::FileStream;

    static std::unique_ptr<OwnFile> open(std::string const& name) {
        return streamOver<OwnFile>(openNamed(name, O_WRONLY | O_CREAT | O_TRUNC), std::ios::out, 296, name);
    }
};

FileMediaOutImpl::FileMediaOutImpl(std::string const& name) : FileMediaOutImpl(OwnFile::open(name), name) {}
FileMediaOutImpl::FileMediaOutImpl(std::unique_ptr<OwnFile> file, std::string const& name)
    : StreamMediaOutImpl(*file), m_file(std::move(file)), m_name(name) {}
FileMediaOutImpl::FileMediaOutImpl(std::ostream& stream) : StreamMediaOutImpl(stream) {}
FileMediaOutImpl::~FileMediaOutImpl() {
    KeepErrno const keep;
    Uncancelled const whole;
    m_file.reset();
}

void FileMediaOutImpl::end() {
    if (!m_closed || m_stream.fail()) StreamMediaOutImpl::end();
}

ulong_t FileMediaOutImpl::tell() const {
    return static_cast<ulong_t>(m_stream.fail() ? noPosition : positionIn(m_stream.rdbuf(), std::ios::out));
}

// What is still in the buffer goes out first: bytes that cannot be written must not be forgotten because
// the state of the stream is cleared. A stream that did not go where it should stays failed, so that nobody
// writes to another place by mistake.
void FileMediaOutImpl::setpos(ulong_t position) {
    if (m_closed) return;
    m_stream.clear();
    end();
    if (!unlessItThrows(false, [&] { return m_stream.seekp(seekable(position), std::ios::beg).good(); }))
        m_stream.setstate(std::ios::failbit);
}

void FileMediaOutImpl::close() {
    if (!m_file) return end();
    if (!std::exchange(m_closed, true)) {
        m_stream.flush();
        if (!m_file->buffer().close()) m_stream.setstate(std::ios::badbit);
    }
    if (m_stream.fail()) writeFailed();
}

FileMediaOut::FileMediaOut(std::string const& name) {
    adopt(new FileMediaOutImpl(name));
}

FileMediaOut::FileMediaOut(std::ostream& stream) {
    adopt(new FileMediaOutImpl(stream));
}

void FileMediaOut::close() {
    as<FileMediaOutImpl>().close();
}

std::string const& FileMediaOut::name() const {
    return as<FileMediaOutImpl>().name();
}

}  // namespace Quillmark
