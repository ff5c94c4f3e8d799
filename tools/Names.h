#pragma once
// The names in a directory, in order, however many there are.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace QuillmarkTool {

/// Takes names in any order and gives them back in bytewise order. What exceeds the memory is sorted piece by
/// piece into a file without a name, and the pieces are merged. Where no such file can be written the names
/// stay in memory, for none may get lost.
class Names {
public:
    /// @param fileTemplate  for mkstemp
    /// @param memory        bytes of names that are kept in memory
    explicit Names(std::string fileTemplate, std::size_t memory = std::size_t{4} << 20);
    ~Names();
    Names(Names&& other) noexcept;
    Names& operator=(Names&&) = delete;

    /// A name has no NUL. Not to be called after next().
    void add(std::string_view name);
    /// Whether none was added.
    bool empty() const { return m_names.empty() && m_runs.empty(); }
    /// The next name; false when there is none left. Throws std::runtime_error when the file cannot be read.
    bool next(std::string& name);

private:
    /// One sorted piece in the file, from its next name on.
    struct Run {
        std::uint64_t begin;
        std::uint64_t end;
        std::string read{};  // what was read ahead
        std::size_t at = 0;  // in that
        std::string name{};  // the next one
    };
    bool spill();
    bool advance(Run& run);
    void order();

    std::string m_template;
    std::size_t m_memory;
    std::size_t m_bytes = 0;  // of what stands in memory, with its overhead
    std::vector<std::string> m_names;
    std::size_t m_next = 0;   // of m_names, once they are in order
    std::vector<Run> m_runs;  // while they are merged: a heap, the least name first
    std::uint64_t m_fileSize = 0;
    int m_file = -1;
    bool m_inOrder = false;
};

}  // namespace QuillmarkTool
