#pragma once
// A clock that a test sets, in the place of the system's, for the threads that ask for it.

#include <atomic>
#include <functional>
#include <string>

namespace QuillmarkTest {

/// While it lives, time() gives now on the thread that made it, and sleeping passes at once by moving now
/// ahead. Other threads share it through Share.
class FakeClock {
public:
    explicit FakeClock(long start);
    ~FakeClock();
    FakeClock(FakeClock const&) = delete;
    FakeClock& operator=(FakeClock const&) = delete;

    /// The calling thread goes by @p clock as long as this lives.
    class Share {
    public:
        explicit Share(FakeClock& clock);
        ~Share();
        Share(Share const&) = delete;
        Share& operator=(Share const&) = delete;

    private:
        FakeClock* m_former;
    };

    std::atomic<long> now;
    std::function<void()> afterSleep;  ///< is called when somebody slept; may change now, and throw

private:
    Share m_share;
};

// How many of the next calls of this thread the C library refuses, and how many it lets pass before.
extern thread_local int refuseMktime;
extern thread_local int allowMktime;
extern thread_local int refuseLocaltime;

// How many threads were at once in the C library's questions about the zone, at most, since it was set to 0.
extern std::atomic<int> mostZoneReaders;

/// The zone of the process as long as it lives.
class Zone {
public:
    explicit Zone(std::string const& tz);
    ~Zone();
    Zone(Zone const&) = delete;
    Zone& operator=(Zone const&) = delete;
    static void set(std::string const& tz);

private:
    std::string m_former;
    bool m_wasSet;
};

}  // namespace QuillmarkTest
