#include "tools/Mime.h"

#include <gmime/gmime.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <optional>
#include <utility>

#include "tools/Charset.h"
#include "tools/FileNames.h"
#include "tools/ParserStream.h"

namespace QuillmarkTool::Mime {
namespace {

struct Unref {
    void operator()(void* object) const { g_object_unref(object); }
};
template <class T>
using Owned = std::unique_ptr<T, Unref>;

struct Free {
    void operator()(void* memory) const { g_free(memory); }
};
using OwnedText = std::unique_ptr<char, Free>;

/// GMime is made ready by the first use and left to the end of the process.
void ready() {
    static bool const done = (g_mime_init(), true);
    (void)done;
}

/// A stay within those functions of GMime that look up charsets by name. GMime keeps what it found under each name
/// for good, 64 bytes and more, and senders think of new names: so it forgets them all when it has read some text
/// and nobody stays there.
class CharsetLookup {
public:
    CharsetLookup() { ::pthread_rwlock_rdlock(&s_lock); }
    ~CharsetLookup() {
        ::pthread_rwlock_unlock(&s_lock);
        std::int64_t const read = s_read.fetch_add(m_bytes) + m_bytes;
        if (read < much) return;
        int const locked =
            read < tooMuch ? ::pthread_rwlock_trywrlock(&s_lock) : ::pthread_rwlock_wrlock(&s_lock);
        if (locked != 0) return;  // the next one will
        if (s_read.exchange(0) >= much) {
            g_mime_charset_map_shutdown();
            g_mime_charset_map_init();
        }
        ::pthread_rwlock_unlock(&s_lock);
    }
    CharsetLookup(CharsetLookup const&) = delete;
    CharsetLookup& operator=(CharsetLookup const&) = delete;

    void hasRead(std::int64_t bytes) { m_bytes += bytes; }

private:
    static constexpr std::int64_t much = 1 << 18, tooMuch = 16 * much;  // bytes

    std::int64_t m_bytes = 0;
    // Who wants to write gets in before new readers, so a stay within a stay might wait for itself.
    static inline pthread_rwlock_t s_lock = PTHREAD_RWLOCK_WRITER_NONRECURSIVE_INITIALIZER_NP;
    static inline std::atomic<std::int64_t> s_read{0};
};

std::string textOf(char const* text) {
    return text != nullptr ? text : "";
}

std::string lower(std::string text) {
    for (char& c : text)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return text;
}

std::string unfolded(std::string_view raw) {
    std::size_t const first = raw.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) return {};
    raw = raw.substr(first, raw.find_last_not_of(" \t\r\n") - first + 1);
    std::string text;
    text.reserve(raw.size());
    for (std::size_t end = 0; (end = raw.find('\n')) != std::string_view::npos; raw.remove_prefix(end + 1))
        text.append(raw.substr(0, end));
    text.append(raw);
    std::erase(text, '\r');
    return text;
}

/// A field of a header as it stands there.
struct RawField {
    std::size_t begin = 0;
    std::size_t colon = 0;
    std::size_t end = 0;  // behind its last line end
};

/// The fields of a header and where its empty line begins, when there is nothing unusual about any of its
/// lines: what is has to be read by GMime, which knows what others make of it.
std::optional<std::vector<RawField>> plainHeader(std::string_view text) {
    std::vector<RawField> fields;
    for (std::size_t at = 0;;) {
        std::size_t const lineEnd = text.find('\n', at);
        if (lineEnd == std::string_view::npos) return std::nullopt;
        std::string_view line = text.substr(at, lineEnd - at);
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (line.empty()) break;
        if (line.find('\r') != std::string_view::npos || line.find('\0') != std::string_view::npos)
            return std::nullopt;
        if (line.front() == ' ' || line.front() == '\t') {
            if (fields.empty() || line.find_first_not_of(" \t") == std::string_view::npos)
                return std::nullopt;
        } else {
            std::size_t length = 0;
            while (length < line.size() && line[length] > 0x20 && line[length] < 0x7f && line[length] != ':')
                ++length;
            if (length == 0 || length == line.size() || line[length] != ':') return std::nullopt;
            fields.push_back({at, at + length, 0});
        }
        at = lineEnd + 1;
        fields.back().end = at;
    }
    if (fields.empty()) return std::nullopt;
    return fields;
}

/// GMime decodes every field that it meets, and needs those about the content only. So these are moved to the end
/// of the header, and it starts there. @return where
std::size_t gatherContentFields(char* text, std::vector<RawField> const& fields) {
    std::size_t begin = fields.back().end;
    std::size_t const end = begin;
    for (auto field = fields.rbegin(); field != fields.rend(); ++field) {
        static constexpr std::string_view prefix = "content-";
        bool const isAboutContent =
            field->colon - field->begin > prefix.size() &&
            g_ascii_strncasecmp(text + field->begin, prefix.data(), prefix.size()) == 0;
        if (!isAboutContent) continue;
        std::size_t const length = field->end - field->begin;
        begin -= length;
        std::memmove(text + begin, text + field->begin, length);
    }
    return begin == end ? fields.back().begin : begin;  // no header is no message: any field, then
}

/// The findings of the parser that mean a reader may not see what the sender wrote, or the reverse.
char const* faultText(GMimeParserWarning finding) {
    switch (static_cast<int>(finding)) {
    case GMIME_WARN_TRUNCATED_MESSAGE: return "a multipart breaks off before its end";
    case GMIME_CRIT_INVALID_HEADER_NAME: return "a line among the header fields is no header field";
    case GMIME_CRIT_MULTIPART_WITHOUT_BOUNDARY: return "a multipart names no boundary";
    case GMIME_CRIT_NESTING_OVERFLOW: return "multiparts are nested too deep";
    default: return nullptr;
    }
}

/// Each is said once, however many parts have it.
void addFault(std::vector<std::string>& texts, char const* text) {
    if (std::find(texts.begin(), texts.end(), text) == texts.end()) texts.emplace_back(text);
}

struct Faults {
    std::vector<std::string> texts;

    static void collect(gint64 /*offset*/, GMimeParserWarning finding, gchar const* /*item*/, gpointer user) {
        if (char const* const text = faultText(finding)) addFault(static_cast<Faults*>(user)->texts, text);
    }
};

struct FreeOptions {
    void operator()(GMimeParserOptions* options) const { g_mime_parser_options_free(options); }
};

/// The value of a field as it is written. GMime knows it up to a NUL, behind which there may be more, and does not see
/// all of a long one; every value ends with its line.
std::string rawValue(GMimeHeader* header, GMimeStream* source) {
    std::string known = textOf(g_mime_header_get_raw_value(header));
    gint64 const offset = g_mime_header_get_offset(header);
    bool const isWhole = known.ends_with('\n') && known.size() <= longestCharset;
    if (isWhole || offset < 0) return known;
    Owned<GMimeStream> const rest(g_mime_stream_substream(source, offset, -1));
    std::string field;
    std::array<char, 4096> block;  // written before it is read
    for (std::size_t at = 0;;) {
        ssize_t const count = g_mime_stream_read(rest.get(), block.data(), block.size());
        if (count > 0) field.append(block.data(), static_cast<std::size_t>(count));
        for (; (at = field.find('\n', at)) != std::string::npos && at + 1 < field.size(); ++at)
            if (field[at + 1] != ' ' && field[at + 1] != '\t') break;
        bool const isEnd = at != std::string::npos && at + 1 < field.size();
        if (isEnd) field.resize(at + 1);
        if (isEnd || count <= 0) return field.substr(std::min(field.size(), field.find(':') + 1));
        if (at == std::string::npos) at = field.size();
    }
}

/// The name of a field as it is written.
std::string nameOf(GMimeHeader* header, GMimeStream* source) {
    std::string name = textOf(g_mime_header_get_name(header));
    gint64 const offset = g_mime_header_get_offset(header);
    if (!name.starts_with(hiddenInitial) || offset < 0) return name;
    Owned<GMimeStream> const field(g_mime_stream_substream(source, offset, offset + 1));
    g_mime_stream_read(field.get(), name.data(), 1);
    return name;
}

/// The fields of an object that say what its content is, each as often as it is there.
struct ContentFields {
    std::vector<std::string> types, encodings, dispositions;

    ContentFields(GMimeObject* object, GMimeStream* source) {
        GMimeHeaderList* const list = g_mime_object_get_header_list(object);
        for (int i = 0; i < g_mime_header_list_get_count(list); ++i) {
            GMimeHeader* const header = g_mime_header_list_get_header_at(list, i);
            if (auto* const values = named(g_mime_header_get_name(header)))
                values->push_back(unfolded(rawValue(header, source)));
        }
    }

    /// The names that they give the object.
    std::vector<std::string> fileNames() const {
        FileNames names;
        for (std::string const& value : dispositions) names.read(value);
        for (std::string const& value : types) names.read(value);
        return names.all();
    }
    /// Of fields that differ one counts here, and another one elsewhere.
    void findFaults(std::vector<std::string>& faults) const {
        auto const differ = [](std::vector<std::string> const& values) {
            return std::adjacent_find(values.begin(), values.end(), std::not_equal_to<>()) != values.end();
        };
        if (differ(types)) addFault(faults, "a part has several fields Content-Type, which differ");
        if (differ(encodings))
            addFault(faults, "a part has several fields Content-Transfer-Encoding, which differ");
    }

private:
    std::vector<std::string>* named(char const* name) {
        if (g_ascii_strcasecmp(name, "Content-Type") == 0) return &types;
        if (g_ascii_strcasecmp(name, "Content-Transfer-Encoding") == 0) return &encodings;
        if (g_ascii_strcasecmp(name, "Content-Disposition") == 0) return &dispositions;
        return nullptr;
    }
};

/// Behind the blanks and comments that a text begins with.
std::string_view pastComments(std::string_view text) {
    int depth = 0;
    std::size_t at = 0;
    for (; at < text.size() && (depth > 0 || text[at] == '(' || text[at] == ' ' || text[at] == '\t'); ++at) {
        if (text[at] == '(') ++depth;
        if (text[at] == ')') --depth;
        if (text[at] == '\\') ++at;
    }
    return text.substr(std::min(at, text.size()));
}

/// Behind the token that a text begins with.
std::string_view pastToken(std::string_view text) {
    static constexpr std::string_view specials = "()<>@,;:\\\"/[]?=";
    std::size_t length = 0;
    while (length < text.size() && text[length] > 0x20 && text[length] < 0x7f &&
           specials.find(text[length]) == std::string_view::npos)
        ++length;
    return text.substr(length);
}

/// Whether the value of a Content-Type begins with a type and a subtype.
bool namesType(std::string_view value) {
    value = pastComments(value);
    std::string_view const type = value;
    value = pastToken(type);
    if (value.size() == type.size()) return false;
    value = pastComments(value);
    if (!value.starts_with('/')) return false;
    std::string_view const subtype = pastComments(value.substr(1));
    return pastToken(subtype).size() < subtype.size();
}

Leaf describe(GMimePart* part, std::string number, ContentFields const& fields,
              std::vector<std::string>& faults) {
    Leaf leaf;
    leaf.number = std::move(number);
    GMimeContentType* const type = g_mime_object_get_content_type(GMIME_OBJECT(part));
    OwnedText const name(g_mime_content_type_get_mime_type(type));
    leaf.type = lower(textOf(name.get()));
    // GMime makes application/octet-stream of what it cannot read, and programs show the text (RFC 2045, 5.2).
    bool const isKnown = leaf.type != "application/octet-stream" && !leaf.type.starts_with('/');
    if (!isKnown && !fields.types.empty() && !namesType(fields.types.back())) {
        addFault(faults, "a field Content-Type is malformed");
        leaf.type = "text/plain";
    }
    leaf.isText = leaf.type.starts_with("text/");
    leaf.charset = lower(textOf(g_mime_content_type_get_parameter(type, "charset")));
    leaf.fileNames = fields.fileNames();
    if (!fields.encodings.empty()) leaf.encodingName = lower(fields.encodings.back());
    if (leaf.encodingName.empty()) leaf.encodingName = "7bit";
    if (g_mime_part_get_content_encoding(part) == GMIME_CONTENT_ENCODING_BASE64)
        leaf.encoding = Encoding::Base64;
    return leaf;
}

/// The number of a part below another. Very deep in, where numbers say nothing to anybody, they keep
/// their ends only, lest a thousand levels over a hundred thousand parts fill the memory with digits.
std::string numbered(std::string const& above, int number) {
    std::string text = above.empty() ? std::to_string(number) : above + "." + std::to_string(number);
    if (text.size() > 64) text = "..." + text.substr(text.find('.', text.size() - 32));
    return text;
}

/// The file in memory, and its descriptor closed; null for one that has more bytes than that, or that does
/// not say how many.
GMimeStream* readAtOnce(int descriptor, std::size_t memory) {
    struct stat status {};
    if (::fstat(descriptor, &status) != 0 || status.st_size <= 0) return nullptr;
    auto const size = static_cast<std::size_t>(status.st_size);
    if (size > memory) return nullptr;
    GByteArray* const bytes = g_byte_array_sized_new(static_cast<guint>(size));
    g_byte_array_set_size(bytes, static_cast<guint>(size));
    ssize_t count = 0;
    do {
        count = ::pread(descriptor, bytes->data, size, 0);
    } while (count < 0 && errno == EINTR);
    if (count != status.st_size) {  // it changes, or it cannot be read: as it comes, then
        g_byte_array_free(bytes, TRUE);
        return nullptr;
    }
    ::close(descriptor);
    GMimeStream* const stream = g_mime_stream_mem_new_with_byte_array(bytes);
    g_mime_stream_mem_set_owner(GMIME_STREAM_MEM(stream), TRUE);
    return stream;
}

}  // namespace

struct Message::State {
    Owned<GMimeMessage> message;  // from an mbox
    Owned<GMimeObject> root;      // the only one of its file, read as a part, or text that is no message
    std::vector<Field> fields;
    std::vector<Leaf> leaves;
    std::vector<GMimePart*> parts;  // of the leaves, owned by the message or the root
    std::vector<std::string> outerNames;
    std::vector<std::string> faults;
    std::int64_t offset = 0;
    GMimePart* brokenOff = nullptr;  // the part that ends where the file could not be read on, if any

    void readFields(GMimeStream* source);
    void readLeaves(GMimeStream* source);
    void takeAsText(GMimeStream* text);
};

void Message::State::readFields(GMimeStream* source) {
    // A message leaves the fields about its content to its content.
    std::vector<GMimeObject*> const objects =
        message ? std::vector{GMIME_OBJECT(message.get()), g_mime_message_get_mime_part(message.get())}
                : std::vector{root.get()};
    for (GMimeObject* const object : objects) {
        if (object == nullptr) continue;
        GMimeHeaderList* const list = g_mime_object_get_header_list(object);
        int const count = g_mime_header_list_get_count(list);
        for (int i = 0; i < count; ++i) {
            GMimeHeader* const header = g_mime_header_list_get_header_at(list, i);
            fields.push_back({nameOf(header, source), unfolded(rawValue(header, source))});
        }
    }
}

// The parts from left to right. What waits stands in a list of our own: the depth is the sender's choice.
void Message::State::readLeaves(GMimeStream* source) {
    struct Waiting {
        GMimeObject* object;
        std::string number;  // of the object itself; empty for the outermost
    };
    std::vector<Waiting> waiting{{message ? g_mime_message_get_mime_part(message.get()) : root.get(), ""}};
    while (!waiting.empty()) {
        Waiting const next = std::move(waiting.back());
        waiting.pop_back();
        GMimeObject* const object = next.object;
        if (object == nullptr) continue;
        ContentFields const about(object, source);
        about.findFaults(faults);
        if (!GMIME_IS_PART(object))
            for (std::string& name : about.fileNames()) outerNames.push_back(std::move(name));
        if (GMIME_IS_MULTIPART(object)) {
            GMimeMultipart* const multipart = GMIME_MULTIPART(object);
            for (int i = g_mime_multipart_get_count(multipart); i > 0; --i)
                waiting.push_back({g_mime_multipart_get_part(multipart, i - 1), numbered(next.number, i)});
        } else if (GMIME_IS_MESSAGE_PART(object)) {
            GMimeMessage* const inner = g_mime_message_part_get_message(GMIME_MESSAGE_PART(object));
            if (inner == nullptr) continue;
            GMimeObject* const content = g_mime_message_get_mime_part(inner);
            std::string const number = next.number.empty() ? "1" : next.number;
            bool const opens = content != nullptr && GMIME_IS_MULTIPART(content);
            waiting.push_back({content, opens ? number : numbered(number, 1)});
        } else if (GMIME_IS_PART(object)) {
            parts.push_back(GMIME_PART(object));
            leaves.push_back(describe(parts.back(), next.number.empty() ? "1" : next.number, about, faults));
        }
    }
}

// What begins with no header is read as text all the same: it may be a message that lost its beginning.
void Message::State::takeAsText(GMimeStream* text) {
    GMimePart* const whole = g_mime_part_new_with_type("text", "plain");
    root.reset(GMIME_OBJECT(whole));
    Owned<GMimeDataWrapper> const content(
        g_mime_data_wrapper_new_with_stream(text, GMIME_CONTENT_ENCODING_DEFAULT));
    g_mime_part_set_content(whole, content.get());
    parts.push_back(whole);
    leaves.push_back(describe(whole, "1", ContentFields(root.get(), text), faults));
}

Message::Message() : m_state(std::make_unique<State>()) {}
Message::~Message() = default;
Message::Message(Message&&) noexcept = default;
Message& Message::operator=(Message&&) noexcept = default;

std::vector<Field> const& Message::fields() const {
    return m_state->fields;
}
std::vector<Leaf> const& Message::leaves() const {
    return m_state->leaves;
}
std::vector<std::string> const& Message::outerNames() const {
    return m_state->outerNames;
}
std::vector<std::string> const& Message::faults() const {
    return m_state->faults;
}
std::int64_t Message::offset() const {
    return m_state->offset;
}

std::uint64_t Message::size(std::size_t leaf) const {
    GMimeDataWrapper* const content = g_mime_part_get_content(m_state->parts.at(leaf));
    if (content == nullptr) return 0;
    std::int64_t const length = g_mime_stream_length(g_mime_data_wrapper_get_stream(content));
    return length < 0 ? UINT64_MAX : static_cast<std::uint64_t>(length);
}

bool Message::read(std::size_t leaf, Sink const& sink) const {
    GMimePart* const part = m_state->parts.at(leaf);
    GMimeDataWrapper* const content = g_mime_part_get_content(part);
    bool const isBrokenOff = part == m_state->brokenOff;
    if (content == nullptr) return !isBrokenOff;  // a part without content is an empty part
    GMimeContentEncoding const encoding = g_mime_data_wrapper_get_encoding(content);
    // The library encodes quoted-printable but does not decode it, and knows no uuencode: for these two
    // GMime's filters stand in. Base64 is the library's own.
    Owned<GMimeFilter> filter;
    if (encoding == GMIME_CONTENT_ENCODING_QUOTEDPRINTABLE || encoding == GMIME_CONTENT_ENCODING_UUENCODE)
        filter.reset(g_mime_filter_basic_new(encoding, FALSE));

    GMimeStream* const stream = g_mime_data_wrapper_get_stream(content);
    if (g_mime_stream_reset(stream) != 0) return false;
    std::array<char, 16384> block;  // written before it is read
    for (;;) {
        // At the end of a range of its file a stream gives -1, as it does for a read that fails.
        bool const end = g_mime_stream_eos(stream) != FALSE;
        ssize_t const count = end ? 0 : g_mime_stream_read(stream, block.data(), block.size());
        if (count < 0) return false;
        char* bytes = block.data();
        auto length = static_cast<std::size_t>(count);
        if (filter) {
            std::size_t prespace = 0;
            auto const step = count > 0 ? g_mime_filter_filter : g_mime_filter_complete;
            step(filter.get(), block.data(), length, 0, &bytes, &length, &prespace);
        }
        if (length != 0)
            sink(reinterpret_cast<unsigned char const*>(bytes), static_cast<unsigned int>(length));
        if (count == 0) return !isBrokenOff;
    }
}

struct Reader::State {
    Owned<GMimeStream> stream;
    std::vector<std::int64_t> hidden;  // places that the parser does not see
    ReadFailure failure;               // what the parser took for the end
    Owned<GMimeStream> parsed;         // the same for the parser
    Owned<GMimeParser> parser;
    std::unique_ptr<GMimeParserOptions, FreeOptions> options;
    Faults faults;
    std::vector<Field> fields;  // of a message whose header was read already
    bool mbox = false;
    bool done = false;

    explicit State(GMimeStream* source) : stream(source), options(g_mime_parser_options_new()) {
        g_mime_parser_options_set_warning_callback(options.get(), Faults::collect, &faults);
        // Every field is decoded, needed or not, and what only looks like an encoded word is followed to the
        // end of its field: one of a megabyte that is full of them would take minutes. Strictly, words stand
        // by themselves, and that is looked at once.
        g_mime_parser_options_set_rfc2047_compliance_mode(options.get(), GMIME_RFC_COMPLIANCE_STRICT);
        std::array<char, 5> start{};
        ssize_t const count = g_mime_stream_read(stream.get(), start.data(), start.size());
        if (count < 0) throw Unreadable{errno};
        done = count == 0;
        mbox = count == 5 && std::string_view(start.data(), 5) == "From ";
        g_mime_stream_reset(stream.get());
        parsed.reset(newParserStream(stream.get(), mbox, hidden, failure));
        if (!mbox && GMIME_IS_STREAM_MEM(stream.get())) readHeader();
        parser.reset(g_mime_parser_new_with_stream(parsed.get()));
        g_mime_parser_set_format(parser.get(), mbox ? GMIME_FORMAT_MBOX : GMIME_FORMAT_MESSAGE);
        // Contents stay in the file until they are read: a large message costs no memory.
        g_mime_parser_set_persist_stream(parser.get(), TRUE);
    }
    void readHeader();
    void parse(Message::State& next);
    void addHidden(Message::State const& message);
    void addFailure(Message::State& message);
    std::int64_t nextMarker(std::int64_t from);
    std::unique_ptr<Message::State> pastTheParser();
};

/// Reads the header of a message that stands in memory, if it is plain.
void Reader::State::readHeader() {
    GByteArray* const bytes = g_mime_stream_mem_get_byte_array(GMIME_STREAM_MEM(stream.get()));
    auto* const text = reinterpret_cast<char*>(bytes->data);
    auto const raw = plainHeader({text, bytes->len});
    if (!raw) return;
    fields.reserve(raw->size());
    for (RawField const& field : *raw)
        fields.push_back({std::string(text + field.begin, field.colon - field.begin),
                          unfolded({text + field.colon + 1, field.end - field.colon - 1})});
    g_mime_stream_seek(parsed.get(), static_cast<gint64>(gatherContentFields(text, *raw)),
                       GMIME_STREAM_SEEK_SET);
}

/// Adds a fault when the parser did not see all of a header: what it then makes of the message may be wrong.
void Reader::State::addHidden(Message::State const& message) {
    std::int64_t const end = g_mime_parser_tell(parser.get());
    auto const next = std::lower_bound(hidden.begin(), hidden.end(), end);
    auto part = message.parts.begin();
    bool isInHeader = false;
    for (auto at = hidden.begin(); at != next; ++at) {
        GMimeStream const* content = nullptr;
        for (; part != message.parts.end(); ++part) {
            GMimeDataWrapper* const wrapper = g_mime_part_get_content(*part);
            content = wrapper != nullptr ? g_mime_data_wrapper_get_stream(wrapper) : nullptr;
            if (content != nullptr && (content->bound_end < 0 || content->bound_end > *at)) break;
            content = nullptr;
        }
        isInHeader = isInHeader || content == nullptr || *at < content->bound_start;
    }
    hidden.erase(hidden.begin(), next);
    if (isInHeader) faults.texts.emplace_back("a header field names a character set of more than 16 KiB");
}

/// Adds a fault when the message seems to end where the file could not be read on. It is the last one then.
void Reader::State::addFailure(Message::State& message) {
    bool const isHere = done || g_mime_parser_tell(parser.get()) >= failure.offset;
    if (failure.error == 0 || !isHere) return;
    done = true;
    faults.texts.emplace_back(std::string("the file cannot be read to the end of the message: ") +
                              std::strerror(failure.error));
    if (message.parts.empty()) return;
    // All parts but the last one have an end.
    GMimeDataWrapper* const wrapper = g_mime_part_get_content(message.parts.back());
    GMimeStream const* const content = wrapper != nullptr ? g_mime_data_wrapper_get_stream(wrapper) : nullptr;
    if (content == nullptr || content->bound_end < 0 || content->bound_end >= failure.offset)
        message.brokenOff = message.parts.back();
}

/// Where the next line that begins with "From " begins, or -1.
std::int64_t Reader::State::nextMarker(std::int64_t from) {
    static constexpr std::string_view marker = "\nFrom ";
    if (g_mime_stream_seek(stream.get(), from, GMIME_STREAM_SEEK_SET) != from) return -1;
    std::array<char, 16384> block{};
    std::string text;
    for (;;) {
        ssize_t const count = g_mime_stream_read(stream.get(), block.data(), block.size());
        if (count < 0) failure = {errno, from + static_cast<std::int64_t>(text.size())};
        if (count <= 0) return -1;
        text.append(block.data(), static_cast<std::size_t>(count));
        std::size_t const found = text.find(marker);
        if (found != std::string::npos) return from + static_cast<std::int64_t>(found) + 1;
        std::size_t const keep = std::min(text.size(), marker.size() - 1);
        from += static_cast<std::int64_t>(text.size() - keep);
        text.erase(0, text.size() - keep);
    }
}

// The parser stops for good where a message does not begin with a header. What stands there becomes a
// message of its own, and the parser starts again behind it.
std::unique_ptr<Message::State> Reader::State::pastTheParser() {
    std::int64_t const begin = g_mime_parser_tell(parser.get());
    std::int64_t const end = mbox ? nextMarker(begin) : -1;
    auto piece = std::make_unique<Message::State>();
    Owned<GMimeStream> const text(g_mime_stream_substream(stream.get(), begin, end));
    piece->takeAsText(text.get());
    piece->offset = begin;
    done = end < 0;
    if (!done) {
        g_mime_stream_seek(parsed.get(), end, GMIME_STREAM_SEEK_SET);
        g_mime_parser_init_with_stream(parser.get(), parsed.get());
    }
    return piece;
}

Reader::Reader(int descriptor, std::size_t memory) {
    ready();
    GMimeStream* const whole = readAtOnce(descriptor, memory);
    m_state = std::make_unique<State>(whole != nullptr ? whole : g_mime_stream_fs_new(descriptor));
}

Reader::Reader(std::string_view bytes) {
    ready();
    m_state = std::make_unique<State>(g_mime_stream_mem_new_with_buffer(bytes.data(), bytes.size()));
}

Reader::~Reader() = default;

bool Reader::isMbox() const {
    return m_state->mbox;
}

// What is no mailbox is read as a part, which keeps all of the header.
void Reader::State::parse(Message::State& next) {
    CharsetLookup lookup;
    std::int64_t const begin = g_mime_parser_tell(parser.get());
    if (mbox)
        next.message.reset(g_mime_parser_construct_message(parser.get(), options.get()));
    else
        next.root.reset(g_mime_parser_construct_part(parser.get(), options.get()));
    lookup.hasRead(g_mime_parser_tell(parser.get()) - begin);
}

bool Reader::next(Message& message) {
    State& state = *m_state;
    if (state.done) return false;
    state.faults.texts.clear();
    auto next = std::make_unique<Message::State>();
    state.parse(*next);
    if (!next->message && !next->root) {
        next = state.pastTheParser();
    } else {
        if (state.mbox) next->offset = g_mime_parser_get_mbox_marker_offset(state.parser.get());
        state.done = !state.mbox || g_mime_parser_eos(state.parser.get()) != FALSE;
        next->fields = std::move(state.fields);
        if (next->fields.empty()) next->readFields(state.stream.get());
        next->readLeaves(state.stream.get());
        state.addHidden(*next);
    }
    state.addFailure(*next);
    next->faults.insert(next->faults.begin(), state.faults.texts.begin(), state.faults.texts.end());
    message.m_state = std::move(next);
    return true;
}

iconv_t converterFrom(std::string const& charset) {
    ready();
    // GMime keeps the name on the stack. An empty one would stand for the terminal's, and what is behind a slash
    // says how to convert.
    constexpr std::size_t longest = 64;
    bool const isName =
        !charset.empty() && charset.size() <= longest && charset.find('/') == std::string::npos;
    if (!isName) return noConverter();
    CharsetLookup lookup;
    lookup.hasRead(longest);
    return g_mime_iconv_open("UTF-8", charset.c_str());
}

}  // namespace QuillmarkTool::Mime
