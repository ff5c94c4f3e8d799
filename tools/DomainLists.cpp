#include "tools/DomainLists.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <vector>

#include "include2/HostName"
#include "platform/quill_cfg.h"

namespace QuillmarkTool {
namespace fs = std::filesystem;
namespace {

// A list file's reader takes lines of up to this many bytes, and stops for good at a longer one.
constexpr std::size_t longestLine = 127;

std::string placed(std::size_t line, std::string const& what) {
    return "line " + std::to_string(line) + ": " + what;
}

/// The name in the form that the library compares with, or empty when it has none.
std::string asciiForm(std::string const& name) {
    Quillmark::HostName const host(name, false, true);
    return host.isNull() ? std::string() : host.asString();
}

class Rules {
public:
    explicit Rules(bool withPrivate) : m_withPrivate(withPrivate) {}
    void line(std::size_t number, std::string_view text);
    DomainLists take() { return std::move(m_lists); }

private:
    void rule(std::size_t number, std::string const& text);
    void suffix(std::size_t number, std::string const& name);

    bool const m_withPrivate;
    bool m_inPrivate = false;
    DomainLists m_lists;
};

void Rules::line(std::size_t number, std::string_view text) {
    if (text.starts_with("//")) {
        if (text.find("===BEGIN PRIVATE DOMAINS===") != std::string_view::npos) m_inPrivate = true;
        if (text.find("===END PRIVATE DOMAINS===") != std::string_view::npos) m_inPrivate = false;
        return;
    }
    text = text.substr(0, text.find_first_of(" \t\r"));
    if (!text.empty() && (m_withPrivate || !m_inPrivate)) rule(number, std::string(text));
}

void Rules::rule(std::size_t number, std::string const& text) {
    if (text.size() > longestLine) {
        throw UnusableList(placed(number, "the rule has " + std::to_string(text.size()) +
                                              " characters; a line of a list file has at most 127"));
    }
    if (text.starts_with("!")) {
        ++m_lists.exceptions;
    } else if (text.starts_with("*.")) {
        // Below "*.ck" every name is a suffix, which a list cannot say. That "ck" is one it can.
        ++m_lists.wildcards;
        std::string const parent = text.substr(2);
        if (parent.find('.') == std::string::npos) suffix(number, parent);
    } else {
        suffix(number, text);
    }
}

void Rules::suffix(std::size_t number, std::string const& name) {
    auto const dots = std::count(name.begin(), name.end(), '.');
    if (dots > 1) {
        ++m_lists.deeper;
        return;
    }
    bool const ascii = std::all_of(name.begin(), name.end(), [](char c) { return (c & 0x80) == 0; });
    std::string const entry = asciiForm(name);
    if (entry.empty()) {
        if (ascii) throw UnusableList(placed(number, "\"" + name + "\" is no domain name"));
        ++m_lists.unconvertible;
        return;
    }
    // A label that was converted has at most 63 bytes, so two of them fit in a line.
    if (dots == 1)
        m_lists.cctld.insert(entry);
    else
        (entry.starts_with("xn--") ? m_lists.idntld : m_lists.gtld).insert(entry);
}

void writeList(std::set<std::string> const& names, fs::path const& path) {
    fs::path const made = path.string() + ".new";
    errno = 0;
    std::ofstream out(made, std::ios::binary | std::ios::trunc);
    for (std::string const& name : names) out << name << '\n';
    out.close();
    std::error_code error(errno, std::generic_category());
    if (out) fs::rename(made, path, error);
    if (out && !error) return;
    std::error_code ignored;
    fs::remove(made, ignored);
    throw UnusableList("cannot write " + path.string() + ": " + error.message());
}

struct ListFile {
    char const* name;
    char const* primary;
    char const* fallback;
};
constexpr std::array<ListFile, 3> listFiles{{
    {"gtld", "/var/spool/etc/antispam/gtld", "/etc/gtld"},
    {"cctld", "/var/spool/etc/antispam/cctld", "/etc/cctld"},
    {"idntld", "/var/spool/etc/antispam/idntld", "/etc/idntld"},
}};

bool readable(fs::path const& path) {
    return ::access(path.c_str(), R_OK) == 0;
}

/// 0, or why the list cannot be read: one that is there may be a directory, and descriptors may be lacking.
int obstacleTo(fs::path const& path) {
    int const list = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (list < 0) return errno;
    char byte = 0;
    int const error = ::pread(list, &byte, 1, 0) < 0 ? errno : 0;
    ::close(list);
    return error;
}

/// Where the appliance has a file, whatever the library opens instead: nobody redirects the directory.
fs::path onAppliance(fs::path const& file) {
    return ::quill_path(file.parent_path().c_str()) / file.filename();
}

bool applianceHasLists() {
    return readable(onAppliance(listFiles[0].primary)) || readable(onAppliance(listFiles[0].fallback));
}

/// Has the library open its three lists at these places; null is the appliance's own.
using Places = std::array<char const*, listFiles.size()>;
void point(Places const& places) {
    for (std::size_t i = 0; i < listFiles.size(); ++i)
        for (char const* const file : {listFiles[i].primary, listFiles[i].fallback})
            ::quill_path_map(file, places[i]);
}

fs::path programDirectory() {
    std::error_code ignored;
    return fs::read_symlink("/proc/self/exe", ignored).parent_path();
}

/// Where lists are looked for when nobody names a directory and the appliance has none.
std::array<fs::path, 2> usualDirectories() {
    return {ownListsDirectory(), programDirectory() / "../share/quillmark/lists"};
}

}  // namespace

DomainLists readPublicSuffixes(std::istream& in, bool withPrivate) {
    Rules rules(withPrivate);
    std::string text;
    for (std::size_t number = 1; std::getline(in, text); ++number) rules.line(number, text);
    if (in.bad()) throw UnusableList("cannot read it");
    DomainLists lists = rules.take();
    if (lists.gtld.empty()) throw UnusableList("it holds no suffix of one label");
    return lists;
}

void writeDomainLists(DomainLists const& lists, std::string const& directory) {
    std::error_code error;
    fs::create_directories(directory, error);
    if (error) throw UnusableList("cannot make " + directory + ": " + error.message());
    writeList(lists.gtld, fs::path(directory) / "gtld");
    writeList(lists.cctld, fs::path(directory) / "cctld");
    writeList(lists.idntld, fs::path(directory) / "idntld");
}

std::string ownListsDirectory() {
    char const* const data = std::getenv("XDG_DATA_HOME");
    if (data != nullptr && *data == '/') return (fs::path(data) / "quillmark/lists").string();
    char const* const home = std::getenv("HOME");
    if (home != nullptr && *home == '/') return (fs::path(home) / ".local/share/quillmark/lists").string();
    return {};
}

ListsInUse useDomainLists(std::string const& directory) {
    fs::path chosen = directory;
    if (directory.empty()) {
        if (applianceHasLists()) {
            point({});  // others may have been in use until these came
            return {};
        }
        for (fs::path const& candidate : usualDirectories()) {
            if (!candidate.empty() && readable(candidate / "gtld")) {
                chosen = candidate;
                break;
            }
        }
        if (chosen.empty()) {
            // The library need not look for what is not there, and log that it found nothing.
            point({"/dev/null", "/dev/null", "/dev/null"});
            return {true,
                    "no domain lists: links are found by their address only; \"quillmark lists\" makes them"};
        }
    }
    // All three or none: a list of the appliance beside two of ours would split names in a way of its own.
    std::array<std::string, listFiles.size()> paths;
    Places places{};
    for (std::size_t i = 0; i < listFiles.size(); ++i) {
        paths[i] = (chosen / listFiles[i].name).string();
        if (int const error = obstacleTo(paths[i]); error != 0)
            return {false, "cannot read the domain list " + paths[i], error};
        places[i] = paths[i].c_str();
    }
    point(places);
    return {};
}

std::vector<std::string> domainListFiles(std::string const& directory) {
    std::vector<std::string> files;
    for (ListFile const& file : listFiles) {
        if (!directory.empty()) {
            files.push_back((fs::path(directory) / file.name).string());
            continue;
        }
        for (char const* path : {file.primary, file.fallback}) files.push_back(onAppliance(path).string());
        for (fs::path const& usual : usualDirectories()) files.push_back((usual / file.name).string());
    }
    return files;
}

}  // namespace QuillmarkTool
