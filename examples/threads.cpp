// A thread of one's own, a lock and a semaphore.
#include <include2/QuillThread>

#include <iostream>

using namespace Quillmark;

namespace {

class Adder : public Thread {
public:
    Adder(Mutex& mutex, int& sum, Semaphore& done) : m_mutex(mutex), m_sum(sum), m_done(done) {}
    void run() override {
        for (int i = 1; i <= 1000; ++i) {
            Synchronized lock(m_mutex);
            m_sum += i;
        }
        m_done.post();
    }

private:
    Mutex& m_mutex;
    int& m_sum;
    Semaphore& m_done;
};

}  // namespace

int main() {
    Mutex mutex;
    Semaphore done(0);
    int sum = 0;
    Adder first(mutex, sum, done);
    Adder second(mutex, sum, done);
    ThreadJoin joinFirst = first.start();
    ThreadJoin joinSecond = second.start();
    std::cout << "both done within 10 s: " << std::boolalpha
              << (done.timedwait(10000) && done.timedwait(10000)) << '\n';
    joinFirst.join();
    joinSecond.join();
    std::cout << sum << '\n';
}
