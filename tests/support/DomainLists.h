#pragma once
// Top-level-domain lists of a test's own.

#include <string>
#include <string_view>

#include "platform/quill_cfg.h"
#include "tests/support/Support.h"

namespace QuillmarkTest {

/// As long as it lives, the library splits host names with these lists. Each is the content of a file:
/// one name a line.
class DomainLists {
public:
    explicit DomainLists(std::string_view countryCodes = "co.uk\ncom.au\n",
                         std::string_view generic = "com\nexample\norg\nuk\nau\n",
                         std::string_view internationalised = "xn--p1ai\n") {
        map("cctld");
        map("gtld");
        map("idntld");
        replace(countryCodes, generic, internationalised);
    }
    ~DomainLists() {
        ::quill_path_map("/var/spool/etc/antispam/cctld", nullptr);
        ::quill_path_map("/var/spool/etc/antispam/gtld", nullptr);
        ::quill_path_map("/var/spool/etc/antispam/idntld", nullptr);
    }
    DomainLists(DomainLists const&) = delete;
    DomainLists& operator=(DomainLists const&) = delete;

    /// Other lists, which the library sees with its next look.
    void replace(std::string_view countryCodes, std::string_view generic,
                 std::string_view internationalised) const {
        m_directory.write("cctld", countryCodes);
        m_directory.write("gtld", generic);
        m_directory.write("idntld", internationalised);
        ::quill_cfg_new_generation();
    }

private:
    void map(std::string const& name) const {
        ::quill_path_map(("/var/spool/etc/antispam/" + name).c_str(), m_directory.file(name).c_str());
    }

    TemporaryDirectory m_directory;
};

}  // namespace QuillmarkTest
