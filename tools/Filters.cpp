// quillmark encode, decode, md5, dos2unix, unix2dos: files through the library's streams, a block at a
// time, so that a file of any size takes little memory.

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>

#include "include2/Base64Media"
#include "include2/EncoderMedia"
#include "include2/Exception"
#include "include2/File"
#include "include2/FileMedia"
#include "include2/Md5"
#include "include2/Obfuscator"
#include "tools/Commands.h"
#include "tools/Examine.h"

namespace QuillmarkTool {
using namespace Quillmark;
namespace {

/// There is nothing to read under a name, and why.
struct Unreadable {
    int error;
};

/// A file, or standard input for "-".
class Input {
public:
    explicit Input(std::string const& name) {
        if (name == "-") {
            std::ios::sync_with_stdio(false);
            return;
        }
        m_file.open(name, std::ios::binary);
        if (!m_file) throw Unreadable{errno};
        if (File::Path(name).status(false).isDirectory()) throw Unreadable{EISDIR};
        m_stream = &m_file;
    }
    MediaIn media() { return IStreamMediaIn(*m_stream); }

private:
    std::ifstream m_file;
    std::istream* m_stream = &std::cin;
};

/// Standard output as a sink. Collects what comes, however little at a time.
class StandardOutput final : public MediaOutImpl {
public:
    explicit StandardOutput(Output& output) : m_output(output) {}
    using MediaOutImpl::write;
    void write(unsigned char const* data, uint_t n) override {
        m_output.say({reinterpret_cast<char const*>(data), n});
        m_waiting += n;
        if (m_waiting < std::size_t{1} << 16) return;
        m_waiting = 0;
        m_output.flush();
    }

private:
    Output& m_output;
    std::size_t m_waiting = 0;  // bytes said since the last flush
};

std::string shownName(std::string const& name) {
    return name == "-" ? "standard input" : name;
}

/// Runs @p work, and says what stands in its way.
template <class Work>
int withInput(std::string const& name, int otherwise, Work work) {
    try {
        Input input(name);
        MediaIn media = input.media();
        return work(media);
    } catch (Unreadable const& e) {
        complain(shownName(name) + ": " + std::strerror(e.error));
    } catch (Exception const& e) {
        complain(shownName(name) + ": " + detailOf(e));
    }
    return otherwise;
}

MediaOut encoderFor(EncodeOptions const& options, MediaOut& out) {
    if (options.form == "qp") return QuotedPrintableOut(out);
    if (options.form == "base64") return Base64MediaOut(out);
    return LightweightObfuscator(out, options.seed);
}

/// A name as md5sum writes it: one with a line end or a backslash has those written out, and the whole
/// line begins with a backslash.
std::string digestLine(std::string const& digest, std::string const& name) {
    std::string shown;
    for (char const c : name) {
        if (c == '\\')
            shown += "\\\\";
        else if (c == '\n')
            shown += "\\n";
        else if (c == '\r')
            shown += "\\r";
        else
            shown += c;
    }
    return (shown == name ? "" : "\\") + digest + "  " + shown;
}

std::string digestOf(MediaIn& in) {
    Md5Hasher hasher;
    std::array<unsigned char, 65536> block{};
    for (int count = 0; (count = in.read(block.data(), block.size())) > 0;)
        hasher.update(block.data(), static_cast<unsigned int>(count));
    hasher.finalize();
    return hasher.digestAsHexString();
}

int convert(LinesOptions const& options, void (*lines)(File::Path const&, File::Path const&)) {
    // The library does nothing for an empty path, and says nothing.
    if (options.from.empty() || options.to.empty()) {
        complain(std::string(options.from.empty() ? "FROM" : "TO") + ": an empty name names no file");
        return Failed;
    }
    try {
        lines(options.from, options.to);
    } catch (Exception const& e) {
        complain(options.from + " to " + options.to + ": " + detailOf(e));
        return Failed;
    }
    return Fine;
}

}  // namespace

int encode(EncodeOptions const& options, Output& output) {
    return withInput(options.file, Failed, [&](MediaIn& in) {
        MediaOut out(new StandardOutput(output), false);
        MediaOut encoder = encoderFor(options, out);
        in.write(encoder);
        encoder.end();
        return Fine;
    });
}

int decode(EncodeOptions const& options, Output& output) {
    return withInput(options.file, Failed, [&](MediaIn& in) {
        MediaOut out(new StandardOutput(output), false);
        Base64MediaIn decoded(in);
        std::string firstFault;
        std::size_t faults = 0;
        for (bool more = true; more;) {
            try {
                decoded.write(out);
                more = false;
            } catch (BufferException const& e) {
                if (e.error() != BadArgument) throw;
                if (faults++ == 0) firstFault = detailOf(e);  // that line is lost, what follows is not
            }
        }
        if (faults == 0) return Fine;
        complain(shownName(options.file) + ": " +
                 counted(faults, "line is no Base64 and left out: ",
                         "lines are no Base64 and left out; the first: ") +
                 firstFault);
        return Findings;
    });
}

int md5(Md5Options const& options, Output& output) {
    int result = Fine;
    for (std::string const& file : options.files.empty() ? std::vector<std::string>{"-"} : options.files) {
        int const one = withInput(file, Findings, [&](MediaIn& in) {
            output.line(digestLine(digestOf(in), file));
            return Fine;
        });
        output.flush();
        if (one != Fine) result = one;
    }
    return result;
}

int dos2unix(LinesOptions const& options, Output&) {
    return convert(options, &File::dos2unix);
}

int unix2dos(LinesOptions const& options, Output&) {
    return convert(options, &File::unix2dos);
}

}  // namespace QuillmarkTool
