// When a job runs, and the table of a daemon's jobs.
#include <include2/QuillCron>

#include <cstdlib>
#include <iostream>

using namespace Quillmark;

namespace {

class Cleanup : public Cron::JobImpl {
public:
    Cleanup() : JobImpl(Cron::Period("23:15")) {}
    void task() override { std::cout << "cleaning up\n"; }  // on the manager's thread
};

void show(Cron::Job const& job, void* /*context*/) {
    std::cout << "every " << job.period().length() / 3600 << " hours, after " << job.period().offset() / 60
              << " minutes: ";
    job.task();
}

}  // namespace

int main() {
    ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    long const evening = 1774729800;  // the clock is set forward in the night that follows
    std::cout << "from " << Cron::Period::time2str(&evening) << " on:\n";
    for (Cron::Period const& period :
         {Cron::Period(Cron::Period::PERIOD_MINUTE, 15, 5), Cron::Period(Cron::Period::PERIOD_HOUR, 6, 0),
          Cron::Period("02:30")}) {
        period.reset(evening, false);
        long const next = period.next();
        std::cout << "     " << Cron::Period::time2str(&next) << '\n';
    }

    // A daemon says true, which starts the manager: it wakes every full minute and runs what is due.
    Cron::Crontab* const crontab = Cron::Crontab::instance(false);
    crontab->add(Cron::Job(new Cleanup, false));
    crontab->dump(show, nullptr);
}
