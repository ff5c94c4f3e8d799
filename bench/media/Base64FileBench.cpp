// Base64 from file to file as a whole process, 256 MiB in memory: ours is this program called again.

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "bench/support/Bench.h"
#include "include2/quillmark.h"

namespace {

using namespace Quillmark;

constexpr std::size_t size = std::size_t{256} << 20;

/// Runs a program and waits for it. @param output  takes what it prints, if not empty
bool run(std::vector<std::string> arguments, std::string const& output = {}) {
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    if (!output.empty())
        ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(),
                                           O_WRONLY | O_CREAT | O_TRUNC, 0600);
    pid_t child = -1;
    int status = -1;
    bool const started = ::posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ) == 0;
    ::posix_spawn_file_actions_destroy(&actions);
    return started && ::waitpid(child, &status, 0) == child && status == 0;
}

std::string contents(std::string const& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string withoutLineFeeds(std::string text) {
    text.erase(std::remove(text.begin(), text.end(), '\n'), text.end());
    return text;
}

/// A directory in memory, where there is some, that goes with its files.
class Directory {
public:
    Directory() : m_path(::access("/dev/shm", W_OK) == 0 ? "/dev/shm/benchXXXXXX" : "/tmp/benchXXXXXX") {
        if (!::mkdtemp(m_path.data())) std::abort();
    }
    Directory(Directory const&) = delete;
    Directory& operator=(Directory const&) = delete;
    ~Directory() {
        for (char const* name : names) ::unlink(file(name).c_str());
        ::rmdir(m_path.c_str());
    }
    std::string file(char const* name) const { return m_path + "/" + name; }

    static constexpr char const* names[] = {"bytes", "text", "theirs", "back"};

private:
    std::string m_path;
};

int compare(int argc, char** argv) {
    Directory const directory;
    std::string const bytes = directory.file("bytes"), text = directory.file("text"),
                      theirs = directory.file("theirs"), back = directory.file("back");
    {
        std::string const made = bench::Random(1).bytes(size);
        std::ofstream(bytes, std::ios::binary).write(made.data(), static_cast<std::streamsize>(size));
    }
    std::string const self = "/proc/self/exe";
    auto const encode = [=] { return run({self, "encode", bytes, text}); };
    auto const opensslEncode = [=] { return run({"openssl", "base64", "-in", bytes, "-out", theirs}); };
    auto const decode = [=] { return run({self, "decode", text, back}); };
    auto const coreutilsDecode = [=] { return run({"base64", "-d", text}, back); };

    std::string const encoding = "base64 encode a file, 256 MiB, whole process";
    std::string const decoding = "base64 decode a file, 256 MiB, whole process";
    bench::agree(encode() && opensslEncode(), encoding);
    bench::agree(withoutLineFeeds(contents(text)) == withoutLineFeeds(contents(theirs)), encoding);
    ::unlink(theirs.c_str());
    bench::agree(decode() && contents(back) == contents(bytes), decoding);
    bench::agree(coreutilsDecode() && contents(back) == contents(bytes), decoding);

    auto const count = static_cast<std::int64_t>(size);
    bench::contestant(encoding, "quillmark", encode, count);
    bench::contestant(encoding, "openssl base64", opensslEncode, count);
    bench::contestant(decoding, "quillmark", decode, count);
    bench::contestant(decoding, "base64 -d", coreutilsDecode, count);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::string const first = argc == 4 ? argv[1] : "";
    if (first == "encode") return -quill_file_base64_encode(argv[2], argv[3]);
    if (first == "decode") return -quill_file_base64_decode(argv[2], argv[3]);
    return compare(argc, argv);
}
