#include "include2/QuillTask"

#include <cxxabi.h>
#include <immintrin.h>

#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

#include "foundation/Caught.h"
#include "foundation/Fail.h"
#include "foundation/TryToLog.h"
#include "sched/ElementQueue.h"
#include "sched/OutstandingElements.h"

namespace Quillmark {
namespace Task {

namespace {

constexpr uint_t workers = 5;

constexpr char const doThread[] = "virtual void Quillmark::Task::TaskMaster::do_thread(Quillmark::uint_t)";

/// What a handle holds. One that holds null is refused like one that holds nothing.
template <class T>
T& held(Ref<T> const& handle) {
    T* const impl = handle.operator->();
    if (!impl) refuseEmptyRef();
    return *impl;
}

/// Holds the pool's lock for a scope. What is done under it is short, so a look or two more is cheaper than
/// to sleep.
class PoolGuard {
public:
    explicit PoolGuard(Mutex& mutex) : m_mutex(mutex) {
        // Each look takes the lock's cache line from whoever has the lock: they come ever more seldom.
        for (int pauses = 16; pauses <= 256; pauses *= 2) {
            if (m_mutex.trylock()) return;
            for (int i = pauses; i != 0; --i) _mm_pause();
        }
        m_mutex.lock();  // at once if this thread has it
    }
    PoolGuard(PoolGuard const&) = delete;
    PoolGuard& operator=(PoolGuard const&) = delete;
    ~PoolGuard() { m_mutex.unlock(); }

private:
    Mutex& m_mutex;
};

/// Runs the body of a worker; true when an exception ended it, which is logged. When the thread itself
/// ends, that has to go its way, and @p replace is called before.
///
/// The handler for the end of a thread binds a reference that the system leaves null, so that one check
/// of the sanitizers has to look away.
__attribute__((noinline, no_sanitize("null"))) bool failed(std::function<void()> const& body,
                                                           std::function<bool()> const& replace) {
    try {
        body();
        return false;
    } catch (Exception const& e) {
        logCaught(doThread, e);
    } catch (abi::__forced_unwind&) {
        replace();
        throw;
    } catch (...) {
        logUnknown(doThread);
    }
    return true;
}

}  // namespace

ElementImpl::ElementImpl() noexcept = default;
ElementImpl::~ElementImpl() = default;

void ElementImpl::do_work() {
    m_started = ::time(nullptr);
    process();
}

TaskImpl::TaskImpl() : m_outstanding(std::make_unique<OutstandingElements>()) {}
TaskImpl::~TaskImpl() = default;

bool TaskImpl::finished() const {
    return m_elementCreationFinished && m_outstanding->empty();
}

void TaskImpl::add(Ref<ElementImpl> const& element) {
    m_outstanding->add(held(element));
}

void TaskImpl::remove(Ref<ElementImpl> const& element) {
    m_outstanding->remove(held(element).id());
}

void TaskImpl::do_work(uint_t taskId) {
    m_elementCreationFinished = false;
    m_started = ::time(nullptr);
    createElements(taskId);
}

template <class Element, class Work, class Queue>
Scheduler<Element, Work, Queue>::ElementContainer::ElementContainer()
    : elements(std::make_unique<ElementQueue>()) {}

template <class Element, class Work, class Queue>
Scheduler<Element, Work, Queue>::ElementContainer::~ElementContainer() = default;

template <class Element, class Work, class Queue>
Scheduler<Element, Work, Queue>::Scheduler() = default;

template <class Element, class Work, class Queue>
Scheduler<Element, Work, Queue>::~Scheduler() = default;

template <class Element, class Work, class Queue>
void Scheduler<Element, Work, Queue>::addQueue(uint_t queueId, uint_t threads) {
    if (m_queues.count(queueId) != 0)
        fail("Task::Scheduler", Refused, Site{"include2/QuillTask", 0},
             "A task queue with that id already exists.");
    m_queues.emplace(queueId, Ref<ElementContainer>(new ElementContainer, false));
    for (; threads != 0; --threads)
        if (!startThread({queueId, this}))
            fail("Task::Scheduler", Refused, Site{"include2/QuillTask", 318}, "pthread_create failed");
}

template <class Element, class Work, class Queue>
bool Scheduler<Element, Work, Queue>::startThread(Start const& start) noexcept {
    std::unique_ptr<Start> record(new (std::nothrow) Start(start));
    pthread_t thread = 0;
    if (!record || ::pthread_create(&thread, nullptr, drone, record.get()) != 0) return false;
    (void)record.release();  // the thread owns it
    ::pthread_detach(thread);
    return true;
}

template <class Element, class Work, class Queue>
void* Scheduler<Element, Work, Queue>::drone(void* argument) {
    if (argument) {
        std::unique_ptr<Start> record(static_cast<Start*>(argument));
        Start const start = *record;
        record.reset();
        serve(start);
    } else {
        tryToLog(EventThreadWithoutArgument, nullptr, "%s", " ");
    }
    ::pthread_exit(nullptr);
}

/// Works until the worker's body ends. When it ends by an exception somebody has to go on: a new thread,
/// or this one where no other can be made.
template <class Element, class Work, class Queue>
void Scheduler<Element, Work, Queue>::serve(Start const& start) {
    auto const work = [&start] { start.scheduler->do_thread(start.queueId); };
    auto const replace = [&start] { return startThread(start); };
    while (failed(work, replace) && !replace()) {
    }
}

template class Scheduler<Ref<ElementImpl>, Ref<TaskImpl>, std::deque<Ref<ElementImpl>>>;

std::atomic<TaskMaster*> TaskMaster::s_instance{nullptr};

TaskMaster::TaskMaster() = default;
TaskMaster::~TaskMaster() = default;

TaskMaster* TaskMaster::instance() {
    static std::mutex making;
    if (TaskMaster* const made = s_instance) return made;
    std::lock_guard const guard(making);
    if (TaskMaster* const made = s_instance) return made;
    // Its workers wait in it while the process ends, so nobody ever destroys it. Others see it when its queue is
    // there, with however many workers.
    struct Fresh {
        TaskMaster* const pool = new TaskMaster;
        ~Fresh() { s_instance = pool; }
    } const fresh;
    fresh.pool->addQueue(0, workers);
    return fresh.pool;
}

void TaskMaster::add(Ref<ElementImpl> const& element) {
    constexpr char const title[] = "Task::TaskMaster::add element";
    ElementImpl& added = held(element);
    PoolGuard const guard(m_mutex);
    auto const queue = m_queues.find(added.queueId());
    if (queue == m_queues.end())
        fail(title, Refused, Site{"Task", 181}, "Could not find the defined task queue.");
    auto const task = m_running.find(added.taskId());
    if (task == m_running.end()) fail(title, Refused, Site{"Task", 189}, "Could not find the running task.");
    task->second->add(element);
    // The destructor of an element that it replaces may have asked the pool, which unlocks it.
    m_mutex.lock();
    // All or nothing: an element that is outstanding but not queued would keep its task for ever.
    try {
        queue->second->elements->push(Handle<ElementImpl>(&added, true));
    } catch (...) {
        if (auto const still = m_running.find(added.taskId()); still != m_running.end())
            still->second->remove(element);
        throw;
    }
}

/// Whether a task of this type may start now. Tasks of the type that finished without being noticed leave
/// the book; the caller destroys them when the pool is unlocked.
bool TaskMaster::mayRun(TaskImpl::Type type, std::vector<Ref<TaskImpl>>& dropped) {
    // Kept for the daemons: the oldest task of the type decides alone. One that finished unnoticed lets
    // every later one through, also those that come when it has left the book, unless it was run again
    // itself and has not finished yet.
    bool decided = m_decided.count(type) != 0;
    for (auto entry = m_running.begin(); entry != m_running.end();) {
        uint_t const id = entry->first;
        if (entry->second->type() == type) {
            Ref<TaskImpl> const task(entry->second);
            bool const finished = task->finished();
            m_mutex.lock();  // the daemon's own finished() may have asked the pool, which unlocks it
            if (!finished && (!decided || task->m_decidesAlone)) return false;
            if (finished) {
                dropped.push_back(task);
                if (!decided) task->m_decidesAlone = true;
                m_decided.insert(type);
                decided = true;
                m_running.erase(id);
            }
        }
        entry = m_running.upper_bound(id);
    }
    return true;
}

void TaskMaster::run(Ref<TaskImpl> const& task) {
    TaskImpl& started = held(task);
    std::vector<Ref<TaskImpl>> dropped;
    Synchronized const guard(m_mutex);
    if (!mayRun(started.type(), dropped)) {
        tryToLog(EventTaskAlreadyRunning, nullptr, "%u", static_cast<uint_t>(started.type()));
        return;
    }
    uint_t id = m_nextTaskId++;
    while (!m_running.emplace(id, task).second) id = m_nextTaskId++;  // they wrap one day
    try {
        started.do_work(id);
    } catch (...) {
        Synchronized const again(m_mutex);
        m_running.erase(id);
        throw;
    }
}

void TaskMaster::do_thread(uint_t queueId) {
    ElementQueue* queue = nullptr;  // once it is found: it stays where it is
    for (;;) {
        Handle<ElementImpl> element;
        try {
            if (!queue) queue = &queueToPop(queueId);
            element = queue->pop();
            element->do_work();
        } catch (Exception const& e) {
            logCaught(doThread, e);
        } catch (...) {
            settle(element.get());
            throw;
        }
        settle(element.get());
    }
}

/// Completes what was taken, if anything was. It is the daemon's finished() that may throw here.
__attribute__((noinline, no_sanitize("null")))  // see failed()
void TaskMaster::settle(ElementImpl const* element) {
    if (!element) return;
    try {
        complete(*element);
    } catch (Exception const& e) {
        logCaught(doThread, e);
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        logUnknown(doThread);
    }
}

ElementQueue& TaskMaster::queueToPop(uint_t queueId) const {
    auto const found = m_queues.find(queueId);
    if (found == m_queues.end())
        fail("Task::TaskMaster::pop", Refused, Site{"Task", 207}, "Could not find the defined task queue.");
    return *found->second->elements;
}

Ref<ElementImpl> TaskMaster::pop(uint_t queueId) {
    Handle<ElementImpl> const first = queueToPop(queueId).pop();
    return {first.get(), true};
}

void TaskMaster::completed(Ref<ElementImpl> const& element) {
    complete(held(element));
}

void TaskMaster::complete(ElementImpl const& element) {
    // The book's own reference may be the last one, and the task's destructor is the daemon's: it goes
    // when the pool is unlocked.
    Handle<TaskImpl> task;
    std::map<uint_t, Ref<TaskImpl>>::node_type finished;
    uint_t const taskId = element.taskId();
    PoolGuard const guard(m_mutex);
    auto entry = m_running.find(taskId);
    if (entry == m_running.end()) return;
    task = Handle<TaskImpl>(entry->second.operator->(), true);
    task->m_outstanding->remove(element.id());
    m_mutex.lock();  // it may have been another with the same id, whose destructor asked the pool
    if (!task->finished()) return;
    m_mutex.lock();  // the daemon's own finished() may have asked the pool, which unlocks it
    entry = m_running.find(taskId);
    if (entry == m_running.end() || entry->second.operator->() != task.get()) return;
    m_lastRun[task->type()] = task->started();
    finished = m_running.extract(entry);
}

std::time_t TaskMaster::lastRun(TaskImpl::Type type) const {
    Synchronized const guard(m_mutex);
    auto const found = m_lastRun.find(type);
    return found == m_lastRun.end() ? 0 : found->second;
}

}  // namespace Task
}  // namespace Quillmark
