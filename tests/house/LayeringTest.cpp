// Arrows point down only: reads every #include of ours and keeps the house's floors in order.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/Support.h"

namespace fs = std::filesystem;

namespace {

/// A place in the house: how high, and in which room. Rooms of one floor do not see each other.
struct Place {
    int floor;
    std::string room;
};

fs::path const house = QUILLMARK_SOURCE_DIR;

/// Files that stand on another floor than their folder.
std::map<std::string, Place> const placesOfFiles = {
    {"foundation/AddressText", {0, "platform"}}, {"foundation/RefCounted", {1, "foundation"}},
    {"foundation/Exception", {1, "foundation"}}, {"foundation/Fail", {1, "foundation"}},
    {"foundation/Caught", {1, "foundation"}},    {"sched/Thread", {2, "sched"}},
    {"sched/ThreadSpecific", {2, "sched"}},
};

std::map<std::string, Place> const placesOfFolders = {
    {"platform", {0, "platform"}}, {"foundation", {3, "foundation"}},
    {"net", {4, "net"}},           {"media", {4, "media"}},
    {"mail", {5, "mail"}},         {"sched", {5, "sched"}},
    {"uri", {6, "uri"}},           {"capi", {7, "capi"}},
    {"tools", {8, "tools"}},       {"examples", {8, "examples"}},
};

/// Where the public headers belong.
std::map<std::string, Place> const placesOfHeaders = {
    {"QuillTypes", {0, "platform"}},
    {"QuillRefcounted", {1, "foundation"}},
    {"Exception", {1, "foundation"}},
    {"QuillThread", {2, "sched"}},
    {"Logger", {3, "foundation"}},
    {"Buffer", {3, "foundation"}},
    {"Time", {3, "foundation"}},
    {"Media", {4, "media"}},
    {"MediaInSource", {4, "media"}},
    {"BufferMedia", {4, "media"}},
    {"FileMedia", {4, "media"}},
    {"Base64Media", {4, "media"}},
    {"EncoderMedia", {4, "media"}},
    {"Md5", {4, "media"}},
    {"Obfuscator", {4, "media"}},
    {"File", {4, "media"}},
    {"IPAddress", {4, "net"}},
    {"IPAddressMask", {4, "net"}},
    {"HostName", {4, "net"}},
    {"TopLevelDomain", {4, "net"}},
    {"Host", {4, "net"}},
    {"Resolver", {4, "net"}},
    {"SocketAddress", {4, "net"}},
    {"Socket", {4, "net"}},
    {"Rfc822Lex", {5, "mail"}},
    {"EmailAddress", {5, "mail"}},
    {"TypeAndValue", {5, "mail"}},
    {"StringContainer", {5, "mail"}},
    {"PatternContainer", {5, "mail"}},
    {"ClassifierDetail", {5, "mail"}},
    {"QuillTask", {5, "sched"}},
    {"QuillCron", {5, "sched"}},
    {"QuillProcess", {5, "sched"}},
    {"QuillIPC", {5, "sched"}},
    {"Uri", {6, "uri"}},
    {"UriSniffer", {6, "uri"}},
    {"quillmark.h", {7, "capi"}},
};

/// The place of a file by its path below the house; none for what has no floor (tests, benchmarks).
std::optional<Place> placeOf(std::string const& path) {
    fs::path const p(path);
    std::string const folder = p.begin()->string();
    if (folder == "include2") {
        auto const found = placesOfHeaders.find(p.filename().string());
        return found == placesOfHeaders.end() ? std::nullopt : std::optional(found->second);
    }
    auto const file = placesOfFiles.find((p.parent_path() / p.stem()).string());
    if (file != placesOfFiles.end()) return file->second;
    auto const found = placesOfFolders.find(folder);
    return found == placesOfFolders.end() ? std::nullopt : std::optional(found->second);
}

bool isSource(fs::path const& path) {
    std::string const extension = path.extension().string();
    return path.parent_path().filename() == "include2" || extension == ".cpp" || extension == ".h";
}

/// What stands between the quotes or brackets of an #include; empty for any other line.
std::string includedBy(std::string const& line) {
    std::size_t const hash = line.find_first_not_of(" \t");
    if (hash == std::string::npos || line[hash] != '#') return {};
    std::size_t const word = line.find_first_not_of(" \t", hash + 1);
    if (word == std::string::npos || line.compare(word, 7, "include") != 0) return {};
    std::size_t const begin = line.find_first_of("<\"", word);
    std::size_t const end = begin == std::string::npos ? begin : line.find_first_of(">\"", begin + 1);
    return end == std::string::npos ? std::string() : line.substr(begin + 1, end - begin - 1);
}

/// Path below the house -> the paths of ours that it includes.
std::map<std::string, std::vector<std::string>> readIncludes() {
    std::map<std::string, std::vector<std::string>> includes;
    for (char const* folder : {"include2", "platform", "foundation", "media", "mail", "net", "uri", "sched",
                               "capi", "tools", "examples"})
        for (auto const& entry : fs::recursive_directory_iterator(house / folder)) {
            if (!entry.is_regular_file() || !isSource(entry.path())) continue;
            std::string const path = fs::relative(entry.path(), house).string();
            auto& found = includes[path];
            std::istringstream lines(QuillmarkTest::readFile(entry.path()));
            for (std::string line; std::getline(lines, line);) {
                std::string const target = includedBy(line);
                if (!target.empty() && fs::exists(house / target)) found.push_back(target);
            }
        }
    return includes;
}

/// What is wrong with one arrow, or nothing.
std::string wrongWith(std::string const& from, std::string const& to) {
    auto const a = placeOf(from);
    auto const b = placeOf(to);
    if (!a) return from + " has no place in the house";
    if (!b) return from + " includes " + to + ", which has no place in the house";
    if (b->floor > a->floor) return from + " includes " + to + ", which is above it";
    if (b->floor == a->floor && a->room != b->room)
        return from + " includes " + to + " of the room next door";
    return {};
}

}  // namespace

TEST(Layering, EveryIncludePointsDown) {
    auto const includes = readIncludes();
    ASSERT_GT(includes.size(), 100U);
    for (auto const& [from, targets] : includes)
        for (auto const& to : targets) EXPECT_EQ(wrongWith(from, to), "");
}

TEST(Layering, AnArrowThatPointsUpIsFound) {
    EXPECT_EQ(wrongWith("net/Hostname.cpp", "include2/Uri"),
              "net/Hostname.cpp includes include2/Uri, which is above it");
    EXPECT_EQ(wrongWith("foundation/Exception.cpp", "include2/Logger"),
              "foundation/Exception.cpp includes include2/Logger, which is above it");
    EXPECT_EQ(wrongWith("media/Md5.cpp", "include2/IPAddress"),
              "media/Md5.cpp includes include2/IPAddress of the room next door");
    EXPECT_EQ(wrongWith("uri/UriImpl.cpp", "include2/HostName"), "");
}

// Headers that include each other cannot be understood, moved or tested one by one.
TEST(Layering, NoFileIncludesItselfByAnyPath) {
    auto const includes = readIncludes();
    for (auto const& [start, direct] : includes) {
        std::set<std::string> seen;
        std::vector<std::string> open(direct.begin(), direct.end());
        while (!open.empty()) {
            std::string const path = open.back();
            open.pop_back();
            if (!seen.insert(path).second) continue;
            auto const next = includes.find(path);
            if (next != includes.end()) open.insert(open.end(), next->second.begin(), next->second.end());
        }
        EXPECT_FALSE(seen.contains(start)) << start;
    }
}

TEST(Layering, EveryPublicHeaderHasAPlace) {
    for (auto const& entry : fs::directory_iterator(house / "include2")) {
        std::string const name = entry.path().filename().string();
        EXPECT_TRUE(placesOfHeaders.contains(name)) << name;
    }
}

// The command and the examples are users like any other.
TEST(Layering, ToolsAndExamplesSeePublicHeadersOnly) {
    for (auto const& [from, targets] : readIncludes()) {
        if (!from.starts_with("tools/") && !from.starts_with("examples/")) continue;
        for (auto const& to : targets)
            EXPECT_TRUE(to.starts_with("include2/") || to.starts_with("platform/") ||
                        to.starts_with("tools/"))
                << from << " includes " << to;
    }
}
