#include "sched/PatientWait.h"

#include <boost/interprocess/exceptions.hpp>
#include <cerrno>

namespace Quillmark {

void waitThroughSignals(Semaphore& semaphore) {
    for (;;) {
        try {
            return semaphore.wait();
        } catch (boost::interprocess::interprocess_exception const& e) {
            if (e.get_native_error() != EINTR) throw;
        }
    }
}

}  // namespace Quillmark
