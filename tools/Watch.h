#pragma once
// Files that are looked at every minute, and what is done when one of them changed.

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "include2/QuillCron"

namespace QuillmarkTool {

/// Notices that files change: by their device, number, size and time, without reading them. Appearing and
/// going away are changes too.
class WatchedFiles {
public:
    /// From now on these files are watched, as they are at this moment.
    void watch(std::vector<std::string> const& paths);
    /// Takes every file for a changed one until watch() is called again: it was not read as it is.
    void forget() noexcept { m_forgotten = true; }
    /// Whether a file is not what it was when watch() was called.
    bool changed() const;

private:
    struct Look {
        std::uint64_t device = 0;
        std::uint64_t number = 0;
        std::int64_t size = -1;  // no file
        std::int64_t seconds = 0;
        std::int64_t nanoseconds = 0;
        bool operator==(Look const&) const = default;
    };
    static Look lookAt(std::string const& path);

    std::map<std::string, Look> m_looks;
    bool m_forgotten = false;
};

/// A job of the crontab that does something every minute.
class EveryMinute final : public Quillmark::Cron::JobImpl {
public:
    explicit EveryMinute(std::function<void()> work);
    /// What the work throws is said on standard error: the crontab would forget a job that throws.
    void task() override;

private:
    std::function<void()> const m_work;
};

}  // namespace QuillmarkTool
