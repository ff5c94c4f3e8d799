// The paths of the appliance, and where tests and tools find them instead.

#include <atomic>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "platform/quill_cfg.h"

namespace {

// Whether anything was ever redirected: production reads this and nothing else.
std::atomic<bool> redirected{false};

struct Redirections {
    std::mutex lock;
    std::string root;  // without a slash at its end; empty for none
    std::unordered_map<std::string, std::string> instead;
    std::unordered_set<std::string> given;  // a text that was given out stays
};

// Never destroyed, since other objects may ask for a path while the process ends.
Redirections& redirections() {
    static auto* const all = new Redirections;
    return *all;
}

}  // namespace

char const* quill_path(char const* path) {
    if (!path || !redirected.load(std::memory_order_acquire)) return path;
    Redirections& all = redirections();
    std::scoped_lock const guard(all.lock);
    if (auto const entry = all.instead.find(path); entry != all.instead.end())
        return all.given.insert(entry->second).first->c_str();
    if (all.root.empty() || *path != '/') return path;
    return all.given.insert(all.root + path).first->c_str();
}

void quill_path_root(char const* directory) {
    Redirections& all = redirections();
    std::scoped_lock const guard(all.lock);
    all.root = directory ? directory : "";
    while (!all.root.empty() && all.root.back() == '/') all.root.pop_back();
    redirected.store(true, std::memory_order_release);
}

void quill_path_map(char const* path, char const* instead) {
    if (!path) return;
    Redirections& all = redirections();
    std::scoped_lock const guard(all.lock);
    if (instead) {
        all.instead[path] = instead;
    } else {
        all.instead.erase(path);
    }
    redirected.store(true, std::memory_order_release);
}
