#include "include2/Media"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "foundation/Fail.h"

namespace Quillmark {

namespace {

constexpr Site here(unsigned int line) {
    return {"MediaImpl", line};
}

constexpr std::string_view whiteSpace = "\t\n\v\f\r ";
constexpr uint_t copyBlock = 8192;
constexpr uint_t headerLine = 128;

template <class Number>
MediaOut& writeNumber(MediaOut& out, Number value) {
    unsigned char bytes[sizeof value];
    std::memcpy(bytes, &value, sizeof value);
    out.write(bytes, sizeof value);
    return out;
}

template <class Number>
MediaIn& readNumber(MediaIn& in, Number& value) {
    unsigned char bytes[sizeof value];
    uint_t have = 0;
    while (have < sizeof value) {
        int const got = in.read(bytes + have, static_cast<uint_t>(sizeof value) - have);
        if (got < 1) return in;
        have += static_cast<uint_t>(got);
    }
    std::memcpy(&value, bytes, sizeof value);
    return in;
}

// A buffer counts in 32 bits, a text in 64.
MediaOut& writeText(MediaOut& out, std::string_view text) {
    do {
        auto const n = static_cast<uint_t>(std::min<std::size_t>(text.size(), UINT32_MAX));
        out.write(Buffer(text.data(), n, true));
        text.remove_prefix(n);
    } while (!text.empty());
    return out;
}

}  // namespace

MediaInImpl::~MediaInImpl() = default;

void MediaInImpl::readline(Buffer& /*line*/) {
    fail("MediaInImpl::readline", Refused, here(57), "Not implemnted in sub class");
}

int MediaInImpl::read(Buffer& buffer, uint_t n) {
    buffer.length(0);
    uint_t const wanted = n == 0 ? buffer.size() : std::min(n, buffer.size());
    int const got = read(buffer.data(), wanted);
    if (got > 0) buffer.length(static_cast<uint_t>(got));
    return got;
}

int MediaInImpl::read(Buffer& buffer) {
    int const got = read(buffer.data(), buffer.size());
    if (got > 0) buffer.length(static_cast<uint_t>(got));
    return got;
}

int MediaInImpl::read(std::string& word) {
    word.clear();
    for (unsigned char byte = 0; read(&byte, 1) > 0;) {
        bool const blank = whiteSpace.find(static_cast<char>(byte)) != std::string_view::npos;
        if (!blank) word += static_cast<char>(byte);
        if (blank && !word.empty()) break;
    }
    return static_cast<int>(std::min<std::size_t>(word.size(), INT32_MAX));
}

int MediaInImpl::read(unsigned char* /*data*/, uint_t /*n*/) {
    return 0;
}

ulong_t MediaInImpl::tell() const {
    return 0;
}

void MediaInImpl::setpos(ulong_t /*position*/) {
    fail("setpos", ParseError, here(36));
}

MediaOut& MediaInImpl::write(MediaOut& out) {
    unsigned char block[copyBlock];
    for (int got; (got = read(block, copyBlock)) > 0;) out.write(block, static_cast<uint_t>(got));
    return out;
}

MediaOutImpl::~MediaOutImpl() = default;

void MediaOutImpl::write(Buffer const& buffer) {
    write(buffer.data(), buffer.length());
}

void MediaOutImpl::end() {}

void MediaOutImpl::characterSet(std::string const& /*name*/) {}

ulong_t MediaOutImpl::tell() const {
    return 0;
}

void MediaOutImpl::setpos(ulong_t /*position*/) {}

MediaIn::MediaIn() noexcept = default;
MediaIn::MediaIn(MediaInImpl* impl, bool addReference) noexcept : m_impl(impl, addReference) {}
MediaIn::MediaIn(MediaIn const& other) noexcept = default;
MediaIn::MediaIn(MediaIn&& other) noexcept = default;
MediaIn& MediaIn::operator=(MediaIn const& other) noexcept = default;
MediaIn& MediaIn::operator=(MediaIn&& other) noexcept = default;
MediaIn::~MediaIn() = default;

bool MediaIn::atEnd() const {
    return impl().atEnd();
}

int MediaIn::peek() const {
    return impl().peek();
}

void MediaIn::readline(Buffer& line) {
    impl().readline(line);
}

int MediaIn::read(unsigned char* data, uint_t n) {
    return impl().read(data, n);
}

int MediaIn::read(Buffer& buffer, uint_t n) {
    return impl().read(buffer, n);
}

ulong_t MediaIn::tell() const {
    return impl().tell();
}

void MediaIn::setpos(ulong_t position) {
    impl().setpos(position);
}

MediaOut& MediaIn::write(MediaOut& out) {
    return impl().write(out);
}

int MediaIn::read(Buffer& buffer) {
    return impl().read(buffer);
}

int MediaIn::read(std::string& word) {
    return impl().read(word);
}

void MediaIn::refuseNull() {
    fail<MediaException>(NullHandle, here(0));
}

MediaInImpl& MediaIn::impl() const {
    if (!m_impl) refuseNull();
    return *m_impl;
}

MediaOut::MediaOut() noexcept = default;
MediaOut::MediaOut(MediaOutImpl* impl, bool addReference) noexcept : m_impl(impl, addReference) {}
MediaOut::MediaOut(MediaOut const& other) noexcept = default;
MediaOut::MediaOut(MediaOut&& other) noexcept = default;
MediaOut& MediaOut::operator=(MediaOut const& other) noexcept = default;
MediaOut::~MediaOut() = default;

void MediaOut::write(Buffer const& buffer) {
    impl().write(buffer);
}

void MediaOut::write(unsigned char const* data, uint_t n) {
    impl().write(data, n);
}

void MediaOut::end() {
    impl().end();
}

ulong_t MediaOut::tell() const {
    return impl().tell();
}

void MediaOut::setpos(ulong_t position) {
    impl().setpos(position);
}

void MediaOut::characterSet(std::string const& name) {
    impl().characterSet(name);
}

void MediaOut::adopt(MediaOutImpl* impl, bool addReference) noexcept {
    if (m_impl.get() != impl) m_impl = Handle<MediaOutImpl>(impl, addReference);
}

void MediaOut::refuseNull(uint_t line) {
    fail<MediaException>(NullHandle, here(line));
}

MediaOutImpl& MediaOut::impl() const {
    if (!m_impl) refuseNull(0);
    return *m_impl;
}

MediaOutDecoratorImpl::MediaOutDecoratorImpl(MediaOut const& next) : m_next(next) {}
MediaOutDecoratorImpl::~MediaOutDecoratorImpl() = default;

void MediaOutDecoratorImpl::end() {
    if (!m_next.isNull()) m_next.end();
}

void MediaOutDecoratorImpl::characterSet(std::string const& name) {
    if (!m_next.isNull()) m_next.characterSet(name);
}

void MediaOutDecoratorImpl::attach(MediaOut const& out) {
    m_next = out;
}

void MediaOutDecoratorImpl::detach() {
    m_next = MediaOut();
}

MediaOutDecorator::MediaOutDecorator() noexcept = default;

// In the body, since a class that derives from this one makes the virtual base itself, mostly without an
// object.
MediaOutDecorator::MediaOutDecorator(MediaOutDecoratorImpl* impl, bool addReference) noexcept {
    if (impl) adopt(impl, addReference);
}

void MediaOutDecorator::attach(MediaOut const& out) {
    as<MediaOutDecoratorImpl>().attach(out);
}

void MediaOutDecorator::detach() {
    as<MediaOutDecoratorImpl>().detach();
}

TeeMediaOutImpl::TeeMediaOutImpl() = default;
TeeMediaOutImpl::TeeMediaOutImpl(MediaOut const& first, MediaOut const& second)
    : m_first(first), m_second(second) {}
TeeMediaOutImpl::~TeeMediaOutImpl() = default;

void TeeMediaOutImpl::write(unsigned char const* data, uint_t n) {
    if (!m_first.isNull()) m_first.write(data, n);
    if (!m_second.isNull()) m_second.write(data, n);
}

void TeeMediaOutImpl::end() {
    if (!m_first.isNull()) m_first.end();
    if (!m_second.isNull()) m_second.end();
}

void TeeMediaOutImpl::characterSet(std::string const& name) {
    if (!m_first.isNull()) m_first.characterSet(name);
    if (!m_second.isNull()) m_second.characterSet(name);
}

TeeMediaOut::TeeMediaOut() {
    adopt(new TeeMediaOutImpl);
}

TeeMediaOut::TeeMediaOut(MediaOut const& first, MediaOut const& second) {
    adopt(new TeeMediaOutImpl(first, second));
}

MediaOut TeeMediaOut::first() const {
    return as<TeeMediaOutImpl>(663).first();
}

MediaOut TeeMediaOut::second() const {
    return as<TeeMediaOutImpl>(682).second();
}

void TeeMediaOut::first(MediaOut const& out) {
    as<TeeMediaOutImpl>(654).first(out);
}

void TeeMediaOut::second(MediaOut const& out) {
    as<TeeMediaOutImpl>(673).second(out);
}

HeaderMediaOutImpl::HeaderMediaOutImpl(MediaOut const& next) : MediaOutDecoratorImpl(next) {}
HeaderMediaOutImpl::~HeaderMediaOutImpl() = default;

void HeaderMediaOutImpl::write(unsigned char const* data, uint_t n) {
    static constexpr unsigned char fold[] = {'\n', ' '};
    while (n != 0) {
        if (m_column == headerLine) {
            m_next.write(fold, sizeof fold);
            m_column = 0;
        }
        uint_t const piece = std::min(n, headerLine - m_column);
        m_next.write(data, piece);
        m_column += piece;
        data += piece;
        n -= piece;
    }
}

HeaderMediaOut::HeaderMediaOut(MediaOut const& next) {
    adopt(new HeaderMediaOutImpl(next));
}

MediaOut& operator<<(MediaOut& out, bool value) {
    return writeNumber(out, value);
}

MediaOut& operator<<(MediaOut& out, char value) {
    return writeNumber(out, value);
}

MediaOut& operator<<(MediaOut& out, unsigned char value) {
    return writeNumber(out, value);
}

MediaOut& operator<<(MediaOut& out, short value) {
    return writeNumber(out, value);
}

MediaOut& operator<<(MediaOut& out, unsigned short value) {
    return writeNumber(out, value);
}

MediaOut& operator<<(MediaOut& out, int value) {
    return writeNumber(out, value);
}

MediaOut& operator<<(MediaOut& out, unsigned int value) {
    return writeNumber(out, value);
}

MediaOut& operator<<(MediaOut& out, long value) {
    return writeNumber(out, value);
}

MediaOut& operator<<(MediaOut& out, unsigned long value) {
    return writeNumber(out, value);
}

MediaIn& operator>>(MediaIn& in, char& value) {
    return readNumber(in, value);
}

MediaIn& operator>>(MediaIn& in, unsigned char& value) {
    return readNumber(in, value);
}

MediaIn& operator>>(MediaIn& in, unsigned short& value) {
    return readNumber(in, value);
}

MediaIn& operator>>(MediaIn& in, unsigned int& value) {
    return readNumber(in, value);
}

MediaIn& operator>>(MediaIn& in, int& value) {
    return readNumber(in, value);
}

MediaIn& operator>>(MediaIn& in, long& value) {
    return readNumber(in, value);
}

MediaIn& operator>>(MediaIn& in, unsigned long& value) {
    return readNumber(in, value);
}

MediaOut& operator<<(MediaOut& out, char const* text) {
    return text ? writeText(out, text) : out;
}

MediaOut& operator<<(MediaOut& out, unsigned char const* text) {
    return out << reinterpret_cast<char const*>(text);
}

MediaOut& operator<<(MediaOut& out, std::string const& text) {
    return writeText(out, text);
}

MediaOut& operator<<(MediaOut& out, Buffer const& buffer) {
    out.write(buffer);
    return out;
}

MediaIn& operator>>(MediaIn& in, std::string& word) {
    in.read(word);
    return in;
}

MediaIn& operator>>(MediaIn& in, Buffer& buffer) {
    in.read(buffer);
    return in;
}

MediaOut& operator<<(MediaOut& out, MediaIn& in) {
    in.write(out);
    return out;
}

}  // namespace Quillmark
