#include "tools/ParserStream.h"

#include <algorithm>
#include <array>
#include <cerrno>
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
    ReadFailure* failure;
    bool isMbox;
    bool isInHeader;  // of a message of a mailbox
    bool isHiding;    // in this field
    Charset word;     // behind "=?", up to the next "?"
    Charset value;    // behind "*=", up to the first "'"
    char last;        // the byte before the next one
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

/// The bytes from a place of a block on, and those that follow it in the source, where nothing changes.
class Ahead {
public:
    Ahead(char const* begin, char const* end, GMimeStream* source)
        : m_at(begin), m_end(end), m_source(source) {}
    Ahead(Ahead const&) = delete;
    Ahead& operator=(Ahead const&) = delete;
    ~Ahead() {
        if (m_isBehind) g_mime_stream_seek(m_source, m_behind, GMIME_STREAM_SEEK_SET);
    }

    /// The next byte, or nothing.
    int next() {
        if (m_at == m_end && !more()) return nothing;
        return static_cast<unsigned char>(*m_at++);
    }
    static constexpr int nothing = -1;

private:
    bool more() {
        if (!m_isBehind) m_behind = g_mime_stream_tell(m_source);
        m_isBehind = true;
        ssize_t const count = g_mime_stream_read(m_source, m_block.data(), m_block.size());
        m_at = m_end = m_block.data();
        if (count > 0) m_end += count;
        return count > 0;
    }

    char const* m_at;
    char const* m_end;
    GMimeStream* m_source;
    bool m_isBehind = false;
    gint64 m_behind = 0;
    std::array<char, 256> m_block;  // written before it is read
};

/// What a line is for the parser.
enum class Line {
    Other,
    Empty,
    From,        // begins with "From ", and is no field
    TakenApart,  // a field that the parser would take apart
    FromField,   // is one too, begins with "From " and ends with a line end
};

Line lineAt(char const* begin, char const* end, GMimeStream* source) {
    static constexpr std::string_view initials = "BbCcDdFfMmRrSsTt\r\n";
    static constexpr std::string_view takenApart[] = {"Bcc",      "Cc",     "Date",    "From", "Message-Id",
                                                      "Reply-To", "Sender", "Subject", "To"};
    constexpr std::size_t longest = 10;
    if (initials.find(*begin) == std::string_view::npos) return Line::Other;
    Ahead ahead(begin, end, source);
    std::array<char, longest + 1> name{};
    std::size_t length = 0;
    int c = ahead.next();
    for (; (c == '-' || (c != Ahead::nothing && g_ascii_isalpha(c))) && length <= longest; c = ahead.next())
        name[length++] = static_cast<char>(c);
    if (length == 0) return c == '\n' || (c == '\r' && ahead.next() == '\n') ? Line::Empty : Line::Other;
    bool const isKnown =
        std::any_of(std::begin(takenApart), std::end(takenApart), [&](std::string_view known) {
            return known.size() == length && g_ascii_strncasecmp(known.data(), name.data(), length) == 0;
        });
    bool const isFrom = c == ' ' && std::string_view(name.data(), length) == "From";
    while (isKnown && (c == ' ' || c == '\t')) c = ahead.next();
    if (!isKnown || c != ':') return isFrom ? Line::From : Line::Other;
    while (isFrom && c != '\n' && c != Ahead::nothing) c = ahead.next();
    return c == '\n' ? Line::FromField : Line::TakenApart;
}

void hideFields(ParserStream& stream, char* const begin, char* const end) {
    bool beginsLine = stream.last == '\n';
    for (char* at = begin; at != end; ++at, beginsLine = true) {
        Line const line = beginsLine ? lineAt(at, end, stream.bytes) : Line::Other;
        // In a mailbox any line of a text that begins so begins a message, whose first line it is.
        bool const isMarker = (line == Line::From || line == Line::FromField) && !stream.isInHeader;
        if (line == Line::TakenApart || (line == Line::FromField && !(stream.isMbox && isMarker)))
            *at = hiddenInitial;
        stream.isInHeader = (stream.isInHeader || isMarker) && line != Line::Empty;
        at = static_cast<char*>(std::memchr(at, '\n', static_cast<std::size_t>(end - at)));
        if (at == nullptr) return;
    }
}

ssize_t read(GMimeStream* stream, char* buffer, size_t size) {
    ReadFailure& failure = *own(stream)->failure;
    gint64 const offset = g_mime_stream_tell(own(stream)->bytes);
    ssize_t const count = failure.error == 0 ? g_mime_stream_read(own(stream)->bytes, buffer, size) : -1;
    if (count < 0 && failure.error == 0) failure = {errno, offset};
    if (count > 0) hideFields(*own(stream), buffer, buffer + count);
    if (count > 0) hideLongNames(*own(stream), buffer, static_cast<std::size_t>(count), offset);
    return count;
}

gint64 seek(GMimeStream* stream, gint64 offset, GMimeSeekWhence whence) {
    beginField(*own(stream));
    own(stream)->last = '\n';
    own(stream)->isInHeader = false;
    *own(stream)->failure = {};
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

GMimeStream* newParserStream(GMimeStream* source, bool isMbox, std::vector<std::int64_t>& hidden,
                             ReadFailure& failure) {
    auto* const stream = own(g_object_new(type(), nullptr));
    g_mime_stream_construct(&stream->parent, 0, -1);
    stream->bytes = g_mime_stream_substream(source, 0, -1);
    stream->hidden = &hidden;
    stream->failure = &failure;
    stream->isMbox = isMbox;
    stream->isInHeader = false;
    beginField(*stream);
    stream->last = '\n';
    return &stream->parent;
}

}  // namespace QuillmarkTool::Mime
