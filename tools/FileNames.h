#pragma once
// The name of an attachment, in every way in which mail programs read it.

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace QuillmarkTool {

/// Collects the names that one part is given. There should be one; whoever wants a name to be overlooked writes two,
/// or one that programs read differently, and so all of them are kept.
class FileNames {
public:
    /// Reads the value of a Content-Disposition or Content-Type field, unfolded. Takes linear time.
    void read(std::string_view field);
    /// Each once, in UTF-8 as far as it can be, the one that most programs take first. May hold NULs.
    std::vector<std::string> const& all() const { return m_all; }

    /// A piece of a value that is written in several: name*0, name*1* (RFC 2231).
    struct Piece {
        std::uint64_t number;
        bool isEncoded;  ///< with the star at the end
        std::string_view text;
    };

private:
    void readOnce(std::string_view field, bool knowsEscapes);
    void addJoined(std::vector<Piece> const& pieces);
    void add(std::string_view name);
    void addText(std::string text);
    void addOnce(std::string name);

    std::vector<std::string> m_all;
    std::set<std::string> m_known;
};

}  // namespace QuillmarkTool
