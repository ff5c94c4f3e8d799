// Which files the library is pointed to, when some of them are missing or come later.

#include "tools/DomainLists.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <optional>

#include "platform/quill_cfg.h"
#include "tests/tools/Tool.h"

using namespace QuillmarkTool;
using QuillmarkTest::TemporaryDirectory;

namespace {

constexpr char const* names[] = {"gtld", "cctld", "idntld"};

/// An appliance, and the data of a user, without a list to begin with.
class DomainListFiles : public testing::Test {
protected:
    DomainListFiles() {
        if (char const* const data = std::getenv("XDG_DATA_HOME")) m_data = data;
        ::setenv("XDG_DATA_HOME", m_place.file("data").c_str(), 1);
        ::quill_path_root(m_place.file("root").c_str());
    }
    ~DomainListFiles() override {
        for (std::string const& file : files()) ::quill_path_map(file.c_str(), nullptr);
        ::quill_path_root(nullptr);
        if (m_data)
            ::setenv("XDG_DATA_HOME", m_data->c_str(), 1);
        else
            ::unsetenv("XDG_DATA_HOME");
    }

    /// Writes lists below the directory.
    void write(std::string const& directory, std::vector<std::string> const& lists) {
        std::filesystem::create_directories(m_place.file(directory));
        for (std::string const& list : lists) m_place.write(directory + "/" + list, "com\n");
    }
    std::string path(std::string const& file) const { return m_place.file(file); }
    /// Where the library looks for its lists, without the place of the test.
    std::vector<std::string> places() const {
        std::vector<std::string> found;
        for (std::string const& file : files()) {
            std::string const place = ::quill_path(file.c_str());
            bool const isHere = place.starts_with(m_place.path() + "/");
            found.push_back(isHere ? place.substr(m_place.path().size() + 1) : place);
        }
        return found;
    }
    /// The places when all of them are in one directory.
    static std::vector<std::string> allIn(std::string const& directory) {
        std::vector<std::string> all;
        for (char const* name : names) all.insert(all.end(), 2, directory + "/" + name);
        return all;
    }
    /// The places when the library looks where it would without us.
    static std::vector<std::string> onAppliance() {
        std::vector<std::string> all;
        for (std::string const& file : files()) all.push_back("root" + file);
        return all;
    }

private:
    static std::vector<std::string> files() {
        std::vector<std::string> all;
        for (std::string const name : names) {
            all.push_back("/var/spool/etc/antispam/" + name);
            all.push_back("/etc/" + name);
        }
        return all;
    }

    TemporaryDirectory const m_place;
    std::optional<std::string> m_data;
};

}  // namespace

TEST_F(DomainListFiles, OfTheApplianceAreUsedOnceTheyAreThere) {
    for (char const* const directory : {"root/etc", "root/var/spool/etc/antispam"}) {
        write("data/quillmark/lists", {"gtld", "cctld", "idntld"});
        EXPECT_EQ(useDomainLists("").complaint, "");
        EXPECT_EQ(places(), allIn("data/quillmark/lists"));
        write(directory, {"gtld"});
        ListsInUse const lists = useDomainLists("");
        EXPECT_TRUE(lists.good);
        EXPECT_EQ(lists.complaint, "");
        EXPECT_EQ(places(), onAppliance()) << directory;
        std::filesystem::remove_all(path(directory));
    }
}

TEST_F(DomainListFiles, AreWatchedWhereTheApplianceHasThem) {
    EXPECT_THAT(domainListFiles(""), testing::IsSupersetOf({path("root/etc/gtld"), path("root/etc/idntld"),
                                                            path("root/var/spool/etc/antispam/cctld")}));
}

TEST_F(DomainListFiles, AreUsedAllOrNotAtAll) {
    write("one", {"gtld", "cctld", "idntld"});
    ASSERT_EQ(useDomainLists(path("one")).complaint, "");
    for (std::string const missing : names) {
        write("two", {"gtld", "cctld", "idntld"});
        std::filesystem::remove(path("two/" + missing));
        ListsInUse const lists = useDomainLists(path("two"));
        EXPECT_FALSE(lists.good) << missing;
        EXPECT_EQ(lists.complaint, "cannot read the domain list " + path("two/" + missing));
        EXPECT_EQ(lists.error, ENOENT);
        EXPECT_EQ(places(), allIn("one")) << missing;
    }
}

TEST_F(DomainListFiles, AreNotUsedWhenOneIsADirectory) {
    write("lists", {"gtld", "cctld"});
    write("lists/idntld", {});
    ListsInUse const lists = useDomainLists(path("lists"));
    EXPECT_EQ(lists.complaint, "cannot read the domain list " + path("lists/idntld"));
    EXPECT_EQ(lists.error, EISDIR);
    EXPECT_EQ(places(), onAppliance());
}
