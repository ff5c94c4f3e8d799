#include "tools/Sources.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <string_view>

namespace QuillmarkTool {
namespace fs = std::filesystem;
namespace {

bool isMaildir(fs::path const& directory) {
    std::error_code ignored;
    return fs::is_directory(directory / "cur", ignored) && fs::is_directory(directory / "new", ignored);
}

bool hasMailName(std::string name) {
    for (char& c : name)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return name.ends_with(".eml") || name.ends_with(".mbox");
}

/// Whether the file begins with an mbox's "From " or with the name of a header field and a colon.
bool beginsLikeMail(fs::path const& file) {
    std::array<char, 80> start{};
    std::ifstream in(file, std::ios::binary);
    in.read(start.data(), start.size());
    std::string_view const text(start.data(), static_cast<std::size_t>(in.gcount()));
    if (text.starts_with("From ")) return true;
    std::size_t length = 0;
    while (length < text.size() && text[length] > 0x20 && text[length] < 0x7f && text[length] != ':')
        ++length;
    // "http://..." begins no header: a blank, or a line's end, follows the colon of a field.
    if (length == 0 || length + 1 >= text.size() || text[length] != ':') return false;
    return std::string_view(" \t\r\n").find(text[length + 1]) != std::string_view::npos;
}

class Finder {
public:
    void named(std::string const& path);
    SourceList take() { return std::move(m_list); }

private:
    using Entries = std::vector<fs::path>;

    Entries sorted(fs::path const& directory);
    void directory(fs::path const& top);
    void directoryEntries(fs::path const& directory, bool insideMaildir);
    void file(fs::path const& path) {
        std::error_code error;
        std::uintmax_t const bytes = fs::file_size(path, error);
        m_list.sources.push_back({path.string(), error ? 0 : bytes, {}});
    }
    void failed(fs::path const& path, std::error_code const& error) {
        m_list.sources.push_back({path.string(), 0, error.message()});
    }

    SourceList m_list;
    Entries m_waiting;  // directories still to be read, the next one last
};

Finder::Entries Finder::sorted(fs::path const& directory) {
    Entries entries;
    std::error_code error;
    for (fs::directory_iterator i(directory, error), end; !error && i != end; i.increment(error))
        entries.push_back(i->path());
    if (error) failed(directory, error);
    std::sort(entries.begin(), entries.end());
    return entries;
}

void Finder::named(std::string const& path) {
    if (path == "-") return m_list.sources.push_back({path, 0, {}});
    std::error_code error;
    fs::file_status const status = fs::status(path, error);
    if (status.type() == fs::file_type::not_found) {
        return failed(path, std::make_error_code(std::errc::no_such_file_or_directory));
    }
    if (error) return failed(path, error);
    if (fs::is_directory(status)) return directory(path);
    file(path);
}

void Finder::directory(fs::path const& top) {
    m_waiting.assign(1, top);
    while (!m_waiting.empty()) {
        fs::path const next = std::move(m_waiting.back());
        m_waiting.pop_back();
        bool const maildir = isMaildir(next);
        if (maildir) {
            for (char const* part : {"cur", "new"})
                for (fs::path const& path : sorted(next / part)) {
                    std::error_code ignored;
                    bool const hidden = path.filename().string().starts_with('.');
                    if (!hidden && fs::is_regular_file(path, ignored)) file(path);
                }
        }
        directoryEntries(next, maildir);
    }
}

void Finder::directoryEntries(fs::path const& directory, bool insideMaildir) {
    Entries below;
    for (fs::path const& path : sorted(directory)) {
        std::string const name = path.filename().string();
        bool const hidden = name.starts_with('.');
        std::error_code ignored;
        if (fs::is_directory(fs::symlink_status(path, ignored))) {
            // A Maildir's own three directories are read already, its folders begin with a dot.
            bool const own = insideMaildir && (name == "cur" || name == "new" || name == "tmp");
            if (!own && (!hidden || (insideMaildir && isMaildir(path)))) below.push_back(path);
        } else if (!hidden && !insideMaildir && fs::is_regular_file(path, ignored)) {
            if (hasMailName(name) || beginsLikeMail(path))
                file(path);
            else
                ++m_list.skipped;
        }
    }
    m_waiting.insert(m_waiting.end(), below.rbegin(), below.rend());
}

}  // namespace

SourceList findSources(std::vector<std::string> const& paths) {
    Finder finder;
    for (std::string const& path : paths) finder.named(path);
    return finder.take();
}

}  // namespace QuillmarkTool
