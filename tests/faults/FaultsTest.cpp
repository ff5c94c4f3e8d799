// Every call to the allocator and to the system fails once, and from there on, in a tour of every service:
// each case ends with the right result or with a stated failure, and leaves nothing behind.

#include "tests/faults/Faults.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <boost/interprocess/exceptions.hpp>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <fstream>
#include <new>
#include <string>

#include <gtest/gtest.h>

#include "include2/Buffer"
#include "include2/Exception"
#include "tests/faults/Tour.h"
#include "tests/support/DomainLists.h"
#include "tests/support/Support.h"

namespace QuillmarkTest {

namespace {

struct Fault {
    FaultKind kind = FaultNothing;
    long first = 0;
    bool onwards = false;
    bool mustSucceed = false;  // what slows a service down is no reason to fail
    int resource = -1;         // of setrlimit(), and how much of it there is
    rlim_t limit = 0;
    int rounds = 4;
};

struct Outcome {
    std::string wrong;  // "" when all is well
    bool refused = false;
    long calls = 0;
};

/// One visit. What comes out wrong is told with the call that failed.
Outcome visit(Service const& service, Fault const& fault, std::string const& directory) {
    Outcome outcome;
    std::string thrown;
    thrown.reserve(4096);  // before memory becomes scarce
    auto const begin = std::chrono::steady_clock::now();
    faultsArm(fault.kind, fault.first, fault.onwards);
    try {
        std::string const wrong = service.run(directory);
        outcome.calls = faultsDisarm();
        outcome.wrong = wrong;
        if (fault.mustSucceed && std::chrono::steady_clock::now() - begin > std::chrono::seconds(20))
            outcome.wrong += "it took its time";
    } catch (Quillmark::Exception const& exception) {
        outcome.calls = faultsDisarm();
        outcome.refused = true;
        thrown = exception.asString();
        if (exception.isNull()) outcome.wrong = "an exception without a text";
    } catch (std::bad_alloc const&) {
        outcome.calls = faultsDisarm();
        outcome.refused = true;
        thrown = "no memory";
    } catch (boost::interprocess::interprocess_exception const&) {
        outcome.calls = faultsDisarm();
        outcome.refused = true;
        thrown = "a semaphore";
    } catch (Refused const&) {
        outcome.calls = faultsDisarm();
        outcome.refused = true;
        thrown = "refused";
    } catch (std::exception const& exception) {
        outcome.calls = faultsDisarm();
        outcome.wrong = std::string("a foreign exception: ") + exception.what();
    }
    if (outcome.refused && fault.mustSucceed) outcome.wrong = "failed: " + thrown;
    return outcome;
}

std::size_t entriesOf(char const* directory) {
    std::size_t count = 0;
    for ([[maybe_unused]] auto const& entry : std::filesystem::directory_iterator(directory)) ++count;
    return count;
}

/// What is left in the directory of temporary files, which is then emptied.
std::string leftOvers(std::string const& directory) {
    std::string found;
    for (auto const& entry : std::filesystem::directory_iterator(directory)) {
        if (entry.path().filename().string().starts_with("swap."))
            found += entry.path().filename().string() + " ";
        std::filesystem::remove_all(entry.path());
    }
    return found;
}

/// In a child: the service in a world that fails as told, four times over, so that what it leaves behind
/// each time shows. Gives "" or what is wrong, and the number of calls.
Outcome ordeal(Service const& service, Fault const& fault, std::string const& directory) {
    if (service.once) {
        Outcome outcome = visit(service, fault, directory);
        if (service.after != nullptr && outcome.wrong.empty()) {
            std::string const reason = failureOf([&] { outcome.wrong = service.after(); });
            if (reason != "nothing thrown") outcome.wrong = reason;
            if (!outcome.wrong.empty()) outcome.wrong.insert(0, "afterwards: ");
        }
        return outcome;
    }
    visit(service, {}, directory);  // what is made once and kept is made now
    leftOvers(directory);
    Outcome outcome;
    std::size_t descriptors = 0;
    long live = 0;
    int growth = 0;
    for (int round = 0; round < fault.rounds && outcome.wrong.empty(); ++round) {
        outcome = visit(service, fault, directory);
        bool const mayStay = std::string_view(faultsLast()) == "unlink";  // the file could not be removed
        if (std::string const left = leftOvers(directory);
            !left.empty() && !mayStay && outcome.wrong.empty()) {
            outcome.wrong = "left behind: " + left;
        }
        std::size_t const nowOpen = entriesOf("/proc/self/fd");
        long const nowLive = faultsLiveAllocations() - static_cast<long>(outcome.wrong.size() > 15);
        if (round > 1 && outcome.wrong.empty()) {
            if (nowOpen != descriptors)
                outcome.wrong =
                    "descriptors: " + std::to_string(descriptors) + " and then " + std::to_string(nowOpen);
            // A leak shows in every round. What a thread keeps for its next objects comes and goes.
            growth += nowLive > live ? 1 : 0;
            if (growth == fault.rounds - 2)
                outcome.wrong =
                    "allocations: " + std::to_string(live) + " and then " + std::to_string(nowLive);
        }
        descriptors = nowOpen;
        live = nowLive;
    }
    return outcome;
}

/// The same in a process of its own: what crashes or hangs there is told as well.
class Apart {
public:
    Apart(Service const& service, Fault const& fault, std::string const& directory)
        : m_fault(fault), m_directory(directory), m_report(directory + ".report") {
        std::filesystem::create_directories(directory);
        m_child = ::fork();
        if (m_child != 0) return;
        ::alarm(30);
        std::signal(SIGXFSZ, SIG_IGN);
        if (std::freopen("/dev/null", "w", stderr) == nullptr) ::_exit(3);  // what the library logs
        if (fault.resource != -1) {
            rlimit const limit = {fault.limit, fault.limit};
            if (::setrlimit(fault.resource, &limit) != 0) ::_exit(3);
        }
        Outcome const outcome = ordeal(service, fault, directory);
        {
            std::ofstream file(m_report);
            file << outcome.calls << ' ' << outcome.refused << ' ' << outcome.wrong;
            if (!outcome.wrong.empty() && *faultsLast() != '\0') file << " (" << faultsLast() << ')';
        }
        ::_exit(0);
    }

    Fault const& fault() const { return m_fault; }

    Outcome outcome() const {
        int status = 0;
        ::waitpid(m_child, &status, 0);
        Outcome outcome;
        if (WIFSIGNALED(status)) {
            outcome.wrong = std::string("ended by ") + ::strsignal(WTERMSIG(status));
        } else {
            std::ifstream file(m_report);
            if (!(file >> outcome.calls >> outcome.refused)) outcome.wrong = "no report";
            file.ignore(1);
            std::getline(file, outcome.wrong, '\0');
        }
        std::filesystem::remove_all(m_directory);
        std::filesystem::remove(m_report);
        return outcome;
    }

private:
    Fault m_fault;
    std::string m_directory;
    std::string m_report;
    pid_t m_child = -1;
};

class Faults : public testing::TestWithParam<Service> {
protected:
    Apart begin(Fault const& fault) const {
        return {GetParam(), fault, m_directory.file("d" + std::to_string(fault.first))};
    }
    Outcome with(Fault const& fault) const { return begin(fault).outcome(); }

    /// Each call of the kind in turn; several at a time, since some services wait more than they work.
    void failEach(FaultKind kind, bool onwards) const {
        // Whatever the clock says, everything goes well, and in time.
        bool const isClock = kind == FaultAhead || kind == FaultBack;
        auto const counted = with({kind, 0, false, true});
        ASSERT_EQ(counted.wrong, "");
        // The longest tours are walked in strides.
        long const stride = 1 + counted.calls / 400;
        std::deque<Apart> running;
        auto const finish = [&] {
            EXPECT_EQ(running.front().outcome().wrong, "")
                << "call " << running.front().fault().first << " of " << counted.calls
                << (onwards ? " and on" : "");
            running.pop_front();
        };
        std::size_t const most = GetParam().once ? 12 : 2;
        for (long first = 1; first <= counted.calls; first += stride) {
            running.push_back(begin({kind, first, onwards, isClock}));
            if (running.size() == most) finish();
        }
        while (!running.empty()) finish();
    }

private:
    TemporaryDirectory m_directory;
    DomainLists m_lists;
};

}  // namespace

TEST_P(Faults, MemoryIsRefusedOnce) {
    failEach(FaultMemory, false);
}
TEST_P(Faults, MemoryIsRefusedFromThereOn) {
    failEach(FaultMemory, true);
}
TEST_P(Faults, ACallFailsOnce) {
    failEach(FaultCall, false);
}
TEST_P(Faults, ACallFailsFromThereOn) {
    failEach(FaultCall, true);
}

TEST_P(Faults, SignalsInterruptEverySecondCall) {
    EXPECT_EQ(with({FaultInterrupt, 0, false, true}).wrong, "");
}

TEST_P(Faults, BytesComeAndGoOneByOne) {
    EXPECT_EQ(with({FaultTrickle, 0, false, true}).wrong, "");
}

TEST_P(Faults, TheClockIsSetAheadByAnHour) {
    failEach(FaultAhead, false);
    failEach(FaultAhead, true);
}

TEST_P(Faults, TheClockIsSetBackByAnHour) {
    failEach(FaultBack, false);
    failEach(FaultBack, true);
}

/// A disk of a mebibyte, with so many bytes left.
TEST_P(Faults, TheDiskFills) {
    for (long const left : {0L, 1L, 100L, 4095L, 40'000L, 65'536L, 150'000L, 299'999L, 1L << 20}) {
        bool const isEnough = left == 1L << 20;
        EXPECT_EQ(with({FaultDisk, left, false, isEnough, -1, 0, isEnough ? 1 : 4}).wrong, "") << left;
    }
}

TEST_P(Faults, FilesAreFullAfterSixtyThousandBytes) {
    EXPECT_EQ(with({FaultNothing, 0, false, false, RLIMIT_FSIZE, 60000}).wrong, "");
}

TEST_P(Faults, ThirtyTwoDescriptorsAreEnoughForEver) {
    EXPECT_EQ(with({FaultNothing, 0, false, true, RLIMIT_NOFILE, 32, 100}).wrong, "");
}

INSTANTIATE_TEST_SUITE_P(, Faults, testing::ValuesIn(tour().begin(), tour().end()),
                         [](auto const& service) { return std::string(service.param.name); });

// A buffer asks for twice the memory that it has; to be refused that much is no failure yet.
TEST(FaultsOfBuffers, GrowsByWhatIsNeededWhenTwiceAsMuchIsRefused) {
    std::string const bytes(8192, 'x');
    Quillmark::Buffer buffer(8192, 0);
    buffer.append(reinterpret_cast<unsigned char const*>(bytes.data()), 8192);
    faultsArm(FaultMemory, 1, false);
    buffer.append('y');
    EXPECT_EQ(faultsDisarm(), 2) << "asked once more";
    EXPECT_EQ(buffer.size(), 12288U);
    EXPECT_EQ(std::string(buffer.c_str()), bytes + "y");
}

}  // namespace QuillmarkTest
