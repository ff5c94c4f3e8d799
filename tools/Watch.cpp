#include "tools/Watch.h"

#include <sys/stat.h>

#include <exception>
#include <utility>

#include "include2/Exception"
#include "tools/Terminal.h"

namespace QuillmarkTool {
using namespace Quillmark;

void WatchedFiles::watch(std::vector<std::string> const& paths) {
    std::map<std::string, Look> looks;
    for (std::string const& path : paths) looks[path] = lookAt(path);
    m_looks = std::move(looks);
    m_forgotten = false;
}

bool WatchedFiles::changed() const {
    if (m_forgotten) return true;
    for (auto const& [path, look] : m_looks)
        if (lookAt(path) != look) return true;
    return false;
}

WatchedFiles::Look WatchedFiles::lookAt(std::string const& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return {};
    return {status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

EveryMinute::EveryMinute(std::function<void()> work)
    : JobImpl(Cron::Period(Cron::Period::PERIOD_MINUTE, 1, 0)), m_work(std::move(work)) {}

void EveryMinute::task() {
    try {
        m_work();
    } catch (Exception const& e) {
        complain(e.asString());
    } catch (std::exception const& e) {
        complain(e.what());
    }
}

}  // namespace QuillmarkTool
