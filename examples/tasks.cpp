// Work cut into elements, done by the pool's five threads.
#include <include2/QuillTask>

#include <atomic>
#include <iostream>

using namespace Quillmark;

namespace {

std::atomic<int> sum{0};

/// Squares one number.
class Square : public Task::ElementImpl {
public:
    Square(int number, Semaphore& done) : m_number(number), m_done(done) {}
    void process() override {
        sum += m_number * m_number;
        m_done.post();
    }

private:
    int m_number;
    Semaphore& m_done;
};

class Squares : public Task::TaskImpl {
public:
    explicit Squares(Semaphore& done) : m_done(done) { type(Type(7)); }
    void createElements(uint_t taskId) override {
        for (uint_t i = 1; i <= 100; ++i) {
            Ref<Task::ElementImpl> element(new Square(static_cast<int>(i), m_done), false);
            element->id(i);
            element->taskId(taskId);
            Task::TaskMaster::instance()->add(element);
        }
        elementCreationFinished();
    }

private:
    Semaphore& m_done;
};

}  // namespace

int main() {
    static Semaphore done(0);
    Task::TaskMaster::instance()->run(Ref<Task::TaskImpl>(new Squares(done), false));
    done -= 100;  // one unit for each element
    std::cout << "the squares from 1 to 100 sum up to " << sum << '\n';
}
