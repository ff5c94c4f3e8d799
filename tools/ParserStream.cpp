#include "tools/ParserStream.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace QuillmarkTool::Mime {
namespace {

/// Counts the bytes from a sign in front of a character set, and stops at what ends it.
struct Charset {
    bool isOpen = false;
    std::size_t length = 0;

    void open() {
        if (!isOpen) length = 0;
        isOpen = true;
    }
    /// @return whether this is the end of one that is too long
    bool add(char c, char end) {
        if (!isOpen) return false;
        if (c != end) ++length;
        bool const isTooLong = length > longestCharset;
        if (c == end && !isTooLong) isOpen = false;
        return c == end && isTooLong;
    }
};

struct ParserStream {
    GMimeStream parent;
    GMimeStream* bytes;
    std::vector<std::int64_t>* hidden;
    bool isMbox;
    bool isHiding;  // in this field
    Charset word;   // behind "=?", up to the next "?"
    Charset value;  // behind "*=", up to the first "'"
    char last;      // the byte before the next one
};

struct ParserStreamClass {
    GMimeStreamClass parent;
};

ParserStream* own(void* stream) {
    return static_cast<ParserStream*>(stream);
}

void beginField(ParserStream& stream) {
    stream.isHiding = stream.word.isOpen = stream.value.isOpen = false;
}

void hideLongNames(ParserStream& stream, char* bytes, std::size_t count, gint64 offset) {
    for (std::size_t i = 0; i < count; ++i) {
        if (!stream.word.isOpen && !stream.value.isOpen && stream.last != '=') {
            // Most of a message is far from any sign.
            void const* const sign = std::memchr(bytes + i, '=', count - i);
            auto const at =
                sign != nullptr ? static_cast<std::size_t>(static_cast<char const*>(sign) - bytes) : count;
            if (at > i) stream.last = bytes[at - 1];
            if (at == count) return;
            i = at;
        }
        char& c = bytes[i];
        if (stream.last == '\n' && c != ' ' && c != '\t') beginField(stream);
        bool const endsWord = stream.word.add(c, '?');
        bool const endsValue = stream.value.add(c, '\'');
        if (stream.last == '=' && c == '?') stream.word.open();
        if (stream.last == '*' && c == '=') stream.value.open();
        stream.last = c;
        if (!endsWord && !endsValue) continue;
        c = '_';
        if (!stream.isHiding) stream.hidden->push_back(offset + static_cast<gint64>(i));
        stream.isHiding = true;
    }
}

constexpr std::string_view takenApart[] = {"Bcc",      "Cc",     "Date",    "From", "Message-Id",
                                           "Reply-To", "Sender", "Subject", "To"};
constexpr std::size_t longestTakenApart = 10;
constexpr std::string_view initials = "BbCcDdFfMmRrSsTt";

/// Whether a line, of which the beginning is given, is a field of these.
bool isTakenApart(std::string_view line, bool isMbox) {
    return std::any_of(std::begin(takenApart), std::end(takenApart), [&](std::string_view name) {
        if (line.size() <= name.size() || g_ascii_strncasecmp(line.data(), name.data(), name.size()) != 0)
            return false;
        char const behind = line[name.size()];
        bool const isMarker = isMbox && behind == ' ' && line.starts_with("From");
        return behind == ':' || behind == '\t' || (behind == ' ' && !isMarker);
    });
}

/// As much of a line as tells which field it is, though there be less of it in the block.
std::string_view beginningOf(char const* line, std::size_t inBlock, GMimeStream* behind,
                             std::array<char, longestTakenApart + 1>& room) {
    if (inBlock >= room.size()) return {line, room.size()};
    std::copy_n(line, inBlock, room.begin());
    gint64 const here = g_mime_stream_tell(behind);
    ssize_t const more = g_mime_stream_read(behind, room.data() + inBlock, room.size() - inBlock);
    g_mime_stream_seek(behind, here, GMIME_STREAM_SEEK_SET);
    return {room.data(), inBlock + static_cast<std::size_t>(std::max<ssize_t>(more, 0))};
}

void hideFields(ParserStream& stream, char* bytes, std::size_t count) {
    std::array<char, longestTakenApart + 1> room;  // written before it is read
    std::size_t at = 0;
    bool beginsLine = stream.last == '\n';
    while (at < count) {
        if (beginsLine && initials.find(bytes[at]) != std::string_view::npos &&
            isTakenApart(beginningOf(bytes + at, count - at, stream.bytes, room), stream.isMbox))
            bytes[at] = hiddenInitial;
        void const* const end = std::memchr(bytes + at, '\n', count - at);
        if (end == nullptr) return;
        at = static_cast<std::size_t>(static_cast<char const*>(end) - bytes) + 1;
        beginsLine = true;
    }
}

ssize_t read(GMimeStream* stream, char* buffer, size_t size) {
    gint64 const offset = g_mime_stream_tell(own(stream)->bytes);
    ssize_t const count = g_mime_stream_read(own(stream)->bytes, buffer, size);
    if (count > 0) hideFields(*own(stream), buffer, static_cast<std::size_t>(count));
    if (count > 0) hideLongNames(*own(stream), buffer, static_cast<std::size_t>(count), offset);
    return count;
}

gint64 seek(GMimeStream* stream, gint64 offset, GMimeSeekWhence whence) {
    beginField(*own(stream));
    own(stream)->last = '\n';
    return g_mime_stream_seek(own(stream)->bytes, offset, whence);
}

void finalize(GObject* object) {
    g_object_unref(own(object)->bytes);
    G_OBJECT_CLASS(g_type_class_peek(GMIME_TYPE_STREAM))->finalize(object);
}

void initClass(void* kind, void* /*data*/) {
    G_OBJECT_CLASS(kind)->finalize = finalize;
    GMimeStreamClass* const calls = GMIME_STREAM_CLASS(kind);
    calls->read = read;
    calls->seek = seek;
    calls->write = [](GMimeStream*, char const*, size_t) -> ssize_t { return -1; };
    calls->flush = [](GMimeStream*) { return 0; };
    calls->close = [](GMimeStream*) { return 0; };
    calls->eos = [](GMimeStream* stream) { return g_mime_stream_eos(own(stream)->bytes); };
    calls->reset = [](GMimeStream* stream) { return seek(stream, 0, GMIME_STREAM_SEEK_SET) == 0 ? 0 : -1; };
    calls->tell = [](GMimeStream* stream) { return g_mime_stream_tell(own(stream)->bytes); };
    calls->length = [](GMimeStream* stream) { return g_mime_stream_length(own(stream)->bytes); };
    // Called by GMime's function of that name, which sets what the piece belongs to: once, or it never lets go.
    calls->substream = [](GMimeStream* stream, gint64 start, gint64 end) {
        GMimeStream* const bytes = own(stream)->bytes;
        return GMIME_STREAM_GET_CLASS(bytes)->substream(bytes, start, end);
    };
}

GType type() {
    static GType const known = [] {
        GTypeInfo info{};
        info.class_size = sizeof(ParserStreamClass);
        info.class_init = initClass;
        info.instance_size = sizeof(ParserStream);
        return g_type_register_static(GMIME_TYPE_STREAM, "QuillmarkParserStream", &info, GTypeFlags{});
    }();
    return known;
}

}  // namespace

GMimeStream* newParserStream(GMimeStream* source, bool isMbox, std::vector<std::int64_t>& hidden) {
    auto* const stream = own(g_object_new(type(), nullptr));
    g_mime_stream_construct(&stream->parent, 0, -1);
    stream->bytes = g_mime_stream_substream(source, 0, -1);
    stream->hidden = &hidden;
    stream->isMbox = isMbox;
    beginField(*stream);
    stream->last = '\n';
    return &stream->parent;
}

}  // namespace QuillmarkTool::Mime
