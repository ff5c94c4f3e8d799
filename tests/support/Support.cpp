#include "tests/support/Support.h"

#include <pthread.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

namespace QuillmarkTest {

std::string failureOf(std::function<void()> const& action) {
    try {
        action();
    } catch (Quillmark::Exception& e) {
        return e.asString();
    } catch (std::exception const&) {
        return "another exception";
    }
    return "nothing thrown";
}

TemporaryDirectory::TemporaryDirectory() {
    std::string path = std::filesystem::temp_directory_path() / "quillmark-test-XXXXXX";
    if (!::mkdtemp(path.data())) throw std::runtime_error("no temporary directory");
    m_path = path;
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::string TemporaryDirectory::write(std::string_view name, std::string_view content) const {
    writeFile(file(name), content);
    return file(name);
}

std::string readFile(std::string const& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void writeFile(std::string const& path, std::string_view content) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream out(path, std::ios::binary);
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
    if (!out.flush()) throw std::runtime_error("cannot write " + path);
}

std::size_t openDescriptors() {
    std::size_t count = 0;
    for ([[maybe_unused]] auto const& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
    return count - 1;  // the iterator's own
}

void onSmallStack(std::size_t bytes, std::function<void()> const& action) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    if (pthread_attr_setstacksize(&attributes, bytes) != 0) throw std::runtime_error("stack size refused");
    pthread_t thread{};
    auto const entry = [](void* argument) -> void* {
        (*static_cast<std::function<void()> const*>(argument))();
        return nullptr;
    };
    int const made = pthread_create(&thread, &attributes, entry, const_cast<std::function<void()>*>(&action));
    pthread_attr_destroy(&attributes);
    if (made != 0) throw std::runtime_error("no thread");
    pthread_join(thread, nullptr);
}

std::string taken(char* text) {
    std::unique_ptr<char, decltype(&std::free)> const owner(text, &std::free);
    return text;
}

std::string hex(std::string_view bytes) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (char const c : bytes) {
        auto const byte = static_cast<unsigned char>(c);
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

}  // namespace QuillmarkTest
