// Output that moves from memory to a swap file, with files that cannot be made and disks that are full: what was
// written can be read back, or somebody said that it was lost.

#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <optional>

#include "fuzz/support/Fuzz.h"
#include "include2/BufferMedia"

using namespace Quillmark;
using namespace QuillmarkFuzz;

namespace {

/// As long as it lives no file of this process grows beyond some bytes.
class FullDisk {
public:
    explicit FullDisk(std::size_t bytes) {
        static bool const ignored = (std::signal(SIGXFSZ, SIG_IGN), true);
        static_cast<void>(ignored);
        ::getrlimit(RLIMIT_FSIZE, &m_former);
        rlimit limit = m_former;
        limit.rlim_cur = bytes;
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FullDisk() { ::setrlimit(RLIMIT_FSIZE, &m_former); }
    FullDisk(FullDisk const&) = delete;
    FullDisk& operator=(FullDisk const&) = delete;

private:
    rlimit m_former{};
};

std::string textOf(Buffer const& buffer) {
    return {reinterpret_cast<char const*>(buffer.data()), buffer.length()};
}

std::string readBack(SwapBufferMediaOut const& swap) {
    MediaIn in = createMediaInFromSwapBufferMediaOut(swap);
    BufferMediaOut out;
    in.write(out);
    return textOf(out.buffer());
}

std::string repeated(std::string const& piece, std::size_t times) {
    std::string text;
    while (times-- > 0) text += piece;
    return text;
}

constexpr char const good[] = "/tmp/quillmark-fuzz-XXXXXX";
constexpr char const bad[] = "/nonexistent/quillmark-fuzz-XXXXXX";

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Input in(data, size);
    char const* const nameTemplate = in.number(0, 7) == 7 ? bad : good;
    auto const cacheSize = static_cast<uint_t>(in.number(0, 100));
    std::size_t const limit = in.number(0, 3) == 3 ? in.number(0, 300) : 0;
    std::optional<std::size_t> disk;
    if (in.number(0, 1) == 1) disk = in.number(0, 400);
    bool const releases = in.flag();

    std::string name;
    {
        SwapBufferMediaOut swap(cacheSize, nameTemplate);
        swap.maxSize(static_cast<uint_t>(limit));
        swap.autoRelease(releases);
        std::string content;      // of what was written without complaint
        std::size_t offered = 0;  // to a stream that had not had enough
        bool failed = false;      // a write complained
        bool lost = false;        // after the swap file was there
        while (!in.empty()) {
            std::string piece = in.piece(60);
            if (in.number(0, 7) == 7)
                piece = repeated(piece, in.number(1, 100));  // beyond what stdio holds back
            if (piece.empty() && in.left() < 2) break;
            bool const enough = swap.overflow();
            bool const reached = limit != 0 && offered >= limit;
            claim(reached || !enough, "nothing is dropped below the limit");
            claim(enough || !reached || failed, "enough is enough, unless the write that reached it failed");
            if (!enough) offered += piece.size();
            std::string const failure = failureOf([&] {
                std::optional<FullDisk> full;
                if (disk) full.emplace(*disk);
                swap.write(reinterpret_cast<unsigned char const*>(piece.data()),
                           static_cast<uint_t>(piece.size()));
            });
            claimSame("the bytes that were offered", swap.totalBytesWritten(), offered);
            bool const hasFile = !swap.fileMedia().isNull();
            if (hasFile) name = swap.fileMedia().tmpfile()->name();
            if (failure.empty()) {
                claim(!lost || enough, "a stream that lost something takes nothing more");
                if (!enough) content += piece;
            } else {
                claim(failure.starts_with("MediaException( 4099 )") ||
                          failure.starts_with("MediaException( 4097 )"),
                      "a swap file fails as a file does: " + failure);
                claim(nameTemplate == bad || disk.has_value(), "nothing fails without a reason");
                failed = true;
                if (hasFile) lost = true;
                if (!hasFile) claimSame("the cache stays as it was", textOf(swap.cache()), content);
            }
            claim(swap.cache().length() <= cacheSize, "the cache keeps to its size");
            if (hasFile && !lost && !releases)
                claim(content.starts_with(textOf(swap.cache())), "the cache keeps the beginning");
        }
        std::string const failure = failureOf([&] {
            std::optional<FullDisk> full;
            if (disk) full.emplace(*disk);
            swap.end();
        });
        claim(!lost || !failure.empty(), "the end says that something was lost");
        if (failure.empty()) claimSame("what was written", readBack(swap), content);
    }
    claim(name.empty() || ::access(name.c_str(), F_OK) != 0, "no swap file is left behind");
    return 0;
}
