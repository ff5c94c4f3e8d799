#pragma once
// Streams for tests: a sink that writes down what happens to it, a source that deals its bytes in pieces.

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <deque>
#include <string>
#include <string_view>
#include <utility>

#include "include2/Media"

namespace QuillmarkTest {

inline std::string text(Quillmark::Buffer const& buffer) {
    return {reinterpret_cast<char const*>(buffer.data()), buffer.length()};
}

inline Quillmark::Buffer buffer(std::string_view content) {
    return {content.data(), static_cast<unsigned int>(content.size()), false};
}

inline unsigned char const* bytes(std::string_view content) {
    return reinterpret_cast<unsigned char const*>(content.data());
}

/// The place of a virtual operation in its class's table, where the destructor has the places 0 and 1. A
/// pointer to such a member is one more than the distance in bytes.
template <class Class, class Signature>
int slot(Signature Class::*operation) {
    std::ptrdiff_t distance = 0;
    std::memcpy(&distance, &operation, sizeof distance);
    return static_cast<int>((distance - 1) / static_cast<std::ptrdiff_t>(sizeof(void*)));
}

/// Everything that is left to read.
inline std::string rest(Quillmark::MediaIn in) {
    std::string all;
    unsigned char block[1000];
    for (int got; (got = in.read(block, sizeof block)) > 0;)
        all.append(reinterpret_cast<char const*>(block), static_cast<std::size_t>(got));
    return all;
}

/// The lines that are left, read into @p line, each followed by "|", until one is empty.
inline std::string lines(Quillmark::MediaIn in, Quillmark::Buffer line = Quillmark::Buffer()) {
    std::string all;
    for (in.readline(line); !line.isEmpty(); in.readline(line)) all += text(line) + "|";
    return all;
}

/// Writes "abc" down as "[abc]", end() as "end", a character set as "(name)".
class Recorder : public Quillmark::MediaOutImpl {
public:
    explicit Recorder(std::string& log) : m_log(log) {}

    using MediaOutImpl::write;
    void write(unsigned char const* data, unsigned int n) override {
        m_log += "[" + std::string(reinterpret_cast<char const*>(data), n) + "]";
    }
    void end() override { m_log += "end"; }
    void characterSet(std::string const& name) override { m_log += "(" + name + ")"; }

private:
    std::string& m_log;
};

inline Quillmark::MediaOut recorder(std::string& log) {
    return {new Recorder(log), false};
}

/// Gives one piece of its text a read, cut to what was asked for; then 0, or -1 when it is to fail.
class Dealer : public Quillmark::MediaInImpl {
public:
    explicit Dealer(std::deque<std::string> pieces, int atTheEnd = 0)
        : m_pieces(std::move(pieces)), m_result(atTheEnd) {}

    bool atEnd() const override { return m_pieces.empty(); }
    int peek() const override { return static_cast<int>(m_pieces.size()); }
    using MediaInImpl::read;
    int read(unsigned char* data, unsigned int n) override {
        if (m_pieces.empty()) return m_result;
        std::string& piece = m_pieces.front();
        std::size_t const count = std::min<std::size_t>(piece.size(), n);
        std::memcpy(data, piece.data(), count);
        piece.erase(0, count);
        if (piece.empty()) m_pieces.pop_front();
        return static_cast<int>(count);
    }

private:
    std::deque<std::string> m_pieces;
    int m_result;
};

inline Quillmark::MediaIn dealer(std::deque<std::string> pieces, int atTheEnd = 0) {
    return {new Dealer(std::move(pieces), atTheEnd), false};
}

}  // namespace QuillmarkTest
