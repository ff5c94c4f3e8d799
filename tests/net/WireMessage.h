#pragma once
// DNS messages put together by hand, and messages as text.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "include2/Resolver"

namespace QuillmarkTest {

inline std::string u8(unsigned int value) {
    return {static_cast<char>(value)};
}
inline std::string u16(unsigned int value) {
    return u8(value >> 8 & 255) + u8(value & 255);
}
inline std::string u32(std::uint32_t value) {
    return u16(value >> 16) + u16(value & 0xffff);
}

/// The labels of a dotted name and the end of the name.
inline std::string name(std::string_view dotted) {
    std::string wire;
    while (!dotted.empty()) {
        std::string_view const label = dotted.substr(0, dotted.find('.'));
        wire += u8(static_cast<unsigned int>(label.size())) + std::string(label);
        dotted.remove_prefix(std::min(dotted.size(), label.size() + 1));
    }
    return wire + '\0';
}

inline std::string pointer(unsigned int offset) {
    return u16(0xc000U | offset);
}

/// A resource record: @p owner is a name on the wire.
inline std::string record(std::string const& owner, unsigned int type, std::string const& data,
                          std::uint32_t ttl = 60, unsigned int recordClass = 1) {
    return owner + u16(type) + u16(recordClass) + u32(ttl) + u16(static_cast<unsigned int>(data.size())) +
           data;
}

inline std::string question(std::string const& wireName, unsigned int type, unsigned int recordClass = 1) {
    return wireName + u16(type) + u16(recordClass);
}

struct Counts {
    unsigned int questions = 0;
    unsigned int answers = 0;
    unsigned int authority = 0;
    unsigned int additional = 0;
};

inline std::string header(Counts counts, unsigned int flags = 0x8180, unsigned int id = 0x1234) {
    return u16(id) + u16(flags) + u16(counts.questions) + u16(counts.answers) + u16(counts.authority) +
           u16(counts.additional);
}

/// A message that holds the bytes; they are not parsed yet.
inline Quillmark::Handle<Quillmark::ResolverMessageImpl> filled(std::string_view bytes) {
    Quillmark::Handle<Quillmark::ResolverMessageImpl> message(new Quillmark::ResolverMessageImpl, false);
    std::memcpy(message->data(), bytes.data(), bytes.size());
    return message;
}

inline Quillmark::ResolverMessage parsed(std::string_view bytes) {
    auto const message = filled(bytes);
    message->length(static_cast<int>(bytes.size()));
    return {message.get(), true};
}

/// A message that stands behind its header, where the bytes begin.
inline Quillmark::Handle<Quillmark::ResolverMessageImpl> behindHeader(std::string const& bytes) {
    std::string const whole = header({}) + bytes;
    auto const message = filled(whole);
    message->length(static_cast<int>(whole.size()));
    return message;
}

/// What a function writes to a stream.
template <class Write>
std::string written(Write write) {
    char* text = nullptr;
    std::size_t size = 0;
    std::FILE* const stream = ::open_memstream(&text, &size);
    write(stream);
    std::fclose(stream);
    std::string const result(text, size);
    std::free(text);
    return result;
}

inline std::string printed(Quillmark::ResolverMessage const& message) {
    return written([&](std::FILE* out) { message.print(out); });
}

}  // namespace QuillmarkTest
