#include "tools/Names.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <utility>

namespace QuillmarkTool {
namespace {

constexpr std::size_t readAtOnce = 16384;
// What a text costs beside its bytes, about: the string, and the allocator's own.
constexpr std::size_t overhead = sizeof(std::string) + 16;

bool writeAt(int file, std::uint64_t offset, std::string_view bytes) {
    while (!bytes.empty()) {
        ssize_t const count = ::pwrite(file, bytes.data(), bytes.size(), static_cast<off_t>(offset));
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
        offset += static_cast<std::uint64_t>(count);
    }
    return true;
}

// The standard heap has its greatest on top.
constexpr auto laterName = [](auto const& a, auto const& b) { return a.name > b.name; };

}  // namespace

Names::Names(std::string fileTemplate, std::size_t memory)
    : m_template(std::move(fileTemplate)), m_memory(memory) {}

Names::~Names() {
    if (m_file >= 0) ::close(m_file);
}

Names::Names(Names&& other) noexcept
    : m_template(std::move(other.m_template)),
      m_memory(other.m_memory),
      m_bytes(other.m_bytes),
      m_names(std::move(other.m_names)),
      m_next(other.m_next),
      m_runs(std::move(other.m_runs)),
      m_fileSize(other.m_fileSize),
      m_file(std::exchange(other.m_file, -1)),
      m_inOrder(other.m_inOrder) {}

void Names::add(std::string_view name) {
    m_names.emplace_back(name);
    m_bytes += name.size() + overhead;
    if (m_bytes > m_memory && !spill()) m_memory = SIZE_MAX;
}

/// Moves what is in memory to the file, as one more run.
bool Names::spill() {
    if (m_file < 0) {
        std::string made = m_template;
        m_file = ::mkostemp(made.data(), O_CLOEXEC);
        if (m_file < 0) return false;
        ::unlink(made.c_str());
    }
    std::sort(m_names.begin(), m_names.end());
    std::string bytes;
    for (std::string const& name : m_names) bytes.append(name).push_back('\0');
    if (!writeAt(m_file, m_fileSize, bytes)) return false;
    m_runs.push_back({m_fileSize, m_fileSize + bytes.size()});
    m_fileSize += bytes.size();
    m_names.clear();
    m_bytes = 0;
    return true;
}

/// Reads the next name of a run; false at its end.
bool Names::advance(Run& run) {
    run.name.clear();
    for (;;) {
        std::size_t const end = run.read.find('\0', run.at);
        run.name.append(run.read, run.at, std::min(end, run.read.size()) - run.at);
        run.at = end + 1;
        if (end != std::string::npos) return true;
        if (run.begin == run.end) return false;
        run.at = 0;
        run.read.resize(static_cast<std::size_t>(std::min<std::uint64_t>(run.end - run.begin, readAtOnce)));
        ssize_t count = 0;
        do {
            count = ::pread(m_file, run.read.data(), run.read.size(), static_cast<off_t>(run.begin));
        } while (count < 0 && errno == EINTR);
        if (count <= 0) throw std::runtime_error("cannot read back the names of a large directory");
        run.read.resize(static_cast<std::size_t>(count));
        run.begin += run.read.size();
    }
}

/// Puts in order what is in memory, and the runs by their first names.
void Names::order() {
    m_inOrder = true;
    std::sort(m_names.begin(), m_names.end());
    for (Run& run : m_runs) advance(run);  // none is empty
    std::make_heap(m_runs.begin(), m_runs.end(), laterName);
}

bool Names::next(std::string& name) {
    if (!m_inOrder) order();
    bool const inMemory = m_next < m_names.size();
    if (inMemory && (m_runs.empty() || m_names[m_next] < m_runs.front().name)) {
        name = std::move(m_names[m_next++]);
        return true;
    }
    if (m_runs.empty()) return false;
    std::pop_heap(m_runs.begin(), m_runs.end(), laterName);
    name = m_runs.back().name;
    if (advance(m_runs.back()))
        std::push_heap(m_runs.begin(), m_runs.end(), laterName);
    else
        m_runs.pop_back();
    return true;
}

}  // namespace QuillmarkTool
