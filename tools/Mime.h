#pragma once
// The structure of a message: its header fields and its leaf parts. The only door to GMime, and used
// for nothing but structure, encodings that the library does not decode, and the names of character sets.

#include <iconv.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace QuillmarkTool::Mime {

/// One header field, unfolded: its line ends are gone, everything else is as it was written.
struct Field {
    std::string name;
    std::string value;
};

/// The encoding in which a part's content is handed over.
enum class Encoding {
    None,    ///< nothing left to undo: 7bit, 8bit, binary, and what was undone already
    Base64,  ///< still Base64
};

/// A part that holds content and no further parts.
struct Leaf {
    std::string number;        ///< "1", "2.1": where it stands, as IMAP counts
    std::string type;          ///< "text/html", lower case; "text/plain" where the field is malformed
    std::string encodingName;  ///< as the message names it, lower case; "7bit" when it does not
    std::string charset;       ///< empty when not given
    bool isText = false;       ///< one of text/*
    Encoding encoding = Encoding::None;
    std::vector<std::string> fileNames;  ///< in every reading, the likeliest first; empty when not given
};

/// Takes the next bytes of a content.
using Sink = std::function<void(unsigned char const* bytes, unsigned int count)>;

/// One message. Its contents are read from the file when they are asked for.
class Message {
public:
    Message();
    ~Message();
    Message(Message&&) noexcept;
    Message& operator=(Message&&) noexcept;

    std::vector<Field> const& fields() const;
    std::vector<Leaf> const& leaves() const;
    /// The names of what holds parts, as a message within this one: some programs offer it whole.
    std::vector<std::string> const& outerNames() const;
    /// What is wrong with the structure, in order of appearance. Empty for most messages.
    std::vector<std::string> const& faults() const;
    /// Where the message begins in its file.
    std::int64_t offset() const;
    /// How many bytes read() hands over at most, as far as that is known before; else the largest number.
    std::uint64_t size(std::size_t leaf) const;
    /// Hands the content of a leaf to @p sink in blocks. Base64 arrives as it stands in the message;
    /// quoted-printable and uuencode arrive decoded, since the library has no decoders for them.
    /// @return false when the file could not be read to the part's end
    bool read(std::size_t leaf, Sink const& sink) const;

private:
    friend class Reader;
    struct State;
    std::unique_ptr<State> m_state;
};

/// Thrown for a file that cannot be read at all.
struct Unreadable {
    int error;  ///< errno
};

/// Reads messages from one file, an mbox when it begins with "From ", else a single message.
class Reader {
public:
    /// Reads the file behind a descriptor, which the reader closes: at once when it has at most @p memory
    /// bytes, else as it needs them. Throws Unreadable.
    Reader(int descriptor, std::size_t memory);
    /// Reads from memory; the bytes are copied.
    explicit Reader(std::string_view bytes);
    ~Reader();
    Reader(Reader const&) = delete;
    Reader& operator=(Reader const&) = delete;

    bool isMbox() const;
    /// The next message. What does not begin with a header comes as a message without fields, whose one
    /// part is the text. False at the end, at once for an empty file.
    bool next(Message& message);

private:
    struct State;
    std::unique_ptr<State> m_state;
};

/// Converts to UTF-8 from a character set as mail names it; -1 for one that is not known.
iconv_t converterFrom(std::string const& charset);

}  // namespace QuillmarkTool::Mime
