#include "tools/InOrder.h"

#include <utility>

namespace QuillmarkTool {
namespace {

// What a piece may say before it has to wait for its turn.
constexpr std::size_t mostText = 1U << 20;

}  // namespace

InOrder::InOrder(unsigned int unfinished, unsigned int window, Write write)
    : m_mostUnfinished(unfinished), m_window(window), m_write(std::move(write)) {}

std::uint64_t InOrder::begin() {
    std::unique_lock lock(m_lock);
    m_moved.wait(lock, [&] { return m_unfinished < m_mostUnfinished && m_pieces.size() < m_window; });
    m_pieces.emplace_back();
    ++m_unfinished;
    return m_head + m_pieces.size() - 1;
}

void InOrder::say(std::uint64_t piece, std::string const& text) {
    std::unique_lock lock(m_lock);
    at(piece).text += text;
    if (piece != m_head && at(piece).text.size() > mostText)
        m_moved.wait(lock, [&] { return piece == m_head; });
    if (piece == m_head) write(at(piece).text);
}

void InOrder::end(std::uint64_t piece) {
    std::unique_lock const lock(m_lock);
    at(piece).ended = true;
    --m_unfinished;
    while (!m_pieces.empty() && m_pieces.front().ended) {
        write(m_pieces.front().text);
        m_pieces.pop_front();
        ++m_head;
    }
    m_moved.notify_all();
}

void InOrder::failed(std::exception_ptr reason) {
    std::lock_guard const guard(m_lock);
    if (!m_loss) m_loss = std::move(reason);
}

void InOrder::wait() {
    std::unique_lock lock(m_lock);
    m_moved.wait(lock, [&] { return m_pieces.empty(); });
    if (m_failure) std::rethrow_exception(m_failure);
    if (m_loss) std::rethrow_exception(m_loss);
}

void InOrder::write(std::string& text) {
    try {
        if (!m_failure && !text.empty()) m_write(text);
    } catch (...) {
        m_failure = std::current_exception();
    }
    text.clear();
}

}  // namespace QuillmarkTool
