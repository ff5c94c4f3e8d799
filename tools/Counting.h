#pragma once
// Adds up what there is to read, beside the scan, so that progress can say how much is left.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>

#include "include2/QuillThread"
#include "tools/Progress.h"
#include "tools/Sources.h"

namespace QuillmarkTool {

class Counting final : public Quillmark::Thread, private SourceSink {
public:
    /// Hands every source to the sink, as findSources() does.
    using Find = std::function<void(SourceSink& sink)>;
    Counting(Find find, Progress& progress) : m_find(std::move(find)), m_progress(progress) {}

    /// Whatever stands in the way of counting, there is no total then, and nothing worse.
    void run() override;
    /// Nobody wants to know any more.
    void giveUp() { m_isOver = true; }

private:
    bool take(Source source) override;

    Find const m_find;
    Progress& m_progress;
    std::uint64_t m_bytes = 0;
    std::atomic<bool> m_isOver{false};
};

}  // namespace QuillmarkTool
