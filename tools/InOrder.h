#pragma once
// What several workers say at once, in the order of their work.

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <string>

namespace QuillmarkTool {

/// A window over numbered pieces of work. The one at its head is written as it speaks; what those behind it say
/// waits, and so do they when that gets too much; and no more work begins when too much is unfinished or
/// unwritten. So memory stays flat however slow the head is, or the one who reads.
///
/// Work must be taken up in the order in which it began, else the head may wait for those that wait for it.
/// Threads: begin() and wait() belong to one thread, say() and failed() to the one that works on the
/// piece.
class InOrder {
public:
    using Write = std::function<void(std::string const& text)>;
    /// @param unfinished  how many pieces may be worked on, or wait for a worker, at once
    /// @param window      how many may be between their beginning and the end of their text
    /// @param write       is called by one thread at a time. When it throws nothing is written any more.
    InOrder(unsigned int unfinished, unsigned int window, Write write);

    /// Begins a piece of work, when there is room. @return its number
    std::uint64_t begin();
    void say(std::uint64_t piece, std::string const& text);
    /// The piece is finished, whatever came of it.
    void end(std::uint64_t piece);
    /// Part of a piece got lost, for this reason. The others are written as ever.
    void failed(std::exception_ptr reason);
    /// Waits until all that began has ended. Throws what write() threw, or else the first reason of failed().
    void wait();

    /// A piece that begins with the object and ends with it, unless somebody else took it over.
    class Begun {
    public:
        explicit Begun(InOrder& order) : m_order(order), m_number(order.begin()) {}
        ~Begun() {
            if (!m_isTakenOver) m_order.end(m_number);
        }
        Begun(Begun const&) = delete;
        Begun& operator=(Begun const&) = delete;

        std::uint64_t number() const { return m_number; }
        /// From now on somebody else calls end().
        void takenOver() { m_isTakenOver = true; }

    private:
        InOrder& m_order;
        std::uint64_t const m_number;
        bool m_isTakenOver = false;
    };

private:
    struct Piece {
        std::string text;
        bool ended = false;
    };
    Piece& at(std::uint64_t piece) { return m_pieces[static_cast<std::size_t>(piece - m_head)]; }
    void write(std::string& text);

    std::mutex m_lock;
    std::condition_variable m_moved;  // the head went on, or there is room
    std::deque<Piece> m_pieces;
    std::uint64_t m_head = 0;  // the number of the first of them
    unsigned int m_unfinished = 0;
    std::exception_ptr m_failure;  // of write()
    std::exception_ptr m_loss;     // of a piece
    unsigned int const m_mostUnfinished;
    unsigned int const m_window;
    Write const m_write;
};

}  // namespace QuillmarkTool
