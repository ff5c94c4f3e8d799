// What takes too long for the tests, with figures as it goes. ./tests/load/run says how to call it.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>

#include "tests/load/Corpus.h"
#include "tests/load/Soak.h"
#include "tests/load/Storm.h"

namespace QuillmarkLoad {
namespace {

struct Options {
    std::string name;
    std::string word;  // of a name in the corpus
    long minutes = 30;
    double rate = 0;
};

bool tell(char const* what, Soaked const& soaked) {
    for (std::string const& wrong : soaked.wrong) say("wrong: %s", wrong.c_str());
    // The allocator keeps some of what was freed; a leak of a byte in each of the many would be more than this.
    constexpr unsigned long slackKib = 2048;
    bool const isFlat = soaked.end.residentKib <= soaked.warm.residentKib + slackKib &&
                        soaked.end.descriptors <= soaked.warm.descriptors + 1;
    say("%s: %s done, VmRSS %lu KiB when warm and %lu KiB at the end (most: %lu), descriptors %zu and %zu, "
        "files left: %zu: %s",
        what, grouped(soaked.done).c_str(), soaked.warm.residentKib, soaked.end.residentKib,
        soaked.end.peakKib, soaked.warm.descriptors, soaked.end.descriptors, soaked.filesLeft,
        isFlat ? "flat" : "NOT FLAT");
    return isFlat && soaked.wrong.empty() && soaked.filesLeft == 0;
}

bool requests() {
    StormOptions options;
    options.isTold = true;
    Stormed const stormed = storm(options);
    for (std::string const& wrong : stormed.wrong) say("wrong: %s", wrong.c_str());
    say("requests: %s of %s from %u clients answered in %.1f s; lost %lu, handled twice %lu, turned away and "
        "made "
        "again %s",
        grouped(stormed.answered).c_str(), grouped(options.requests).c_str(), options.clients,
        stormed.seconds, stormed.lost, stormed.twice, grouped(stormed.turnedAway).c_str());
    return stormed.wrong.empty() && stormed.answered == options.requests &&
           stormed.lost + stormed.twice == 0 && isFlat(stormed.samples, 2048);
}

bool slow() {
    SlowOptions options;
    options.isTold = true;
    Delays const delays = askBesideSlowClients(options);
    for (std::string const& wrong : delays.wrong) say("wrong: %s", wrong.c_str());
    say("slow: %lu asks beside %u silent clients and %u that sent %lu bytes (%lu of them were closed): "
        "median %.6f s, "
        "95 in 100 within %.6f s, longest %.6f s",
        delays.asked, options.silent, options.slow, delays.slowBytes, delays.sentAway, delays.median,
        delays.most95, delays.longest);
    return delays.wrong.empty() && delays.median < 1;
}

bool elements() {
    ElementOptions options;
    options.isTold = true;
    Worked const worked = workElements(options);
    say("elements: %s in %s tasks in %.1f s; never worked on %lu, twice %lu",
        grouped(options.elements).c_str(), grouped(worked.tasks).c_str(), worked.seconds, worked.never,
        worked.twice);
    return worked.never + worked.twice == 0 && isFlat(worked.samples, 4096);
}

Options read(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        std::string_view const word = argv[i];
        if (word == "--minutes" && i + 1 < argc)
            options.minutes = std::atol(argv[++i]);
        else if (word == "--rate" && i + 1 < argc)
            options.rate = std::atof(argv[++i]);
        else
            (options.name.empty() ? options.name : options.word) = word;
    }
    return options;
}

bool run(Options const& options) {
    Pace const pace{std::chrono::minutes(options.minutes), 0, options.rate, true};
    if (options.name == "serve") return tell("serve", soakServe(pace));
    if (options.name == "scan") return tell("scan", soakScan(pace));
    if (options.name == "corpus") return measureCorpus(options.word);
    if (options.name == "requests") return requests();
    if (options.name == "slow") return slow();
    if (options.name == "elements") return elements();
    throw std::runtime_error("no such run: " + options.name);
}

}  // namespace
}  // namespace QuillmarkLoad

int main(int argc, char** argv) {
    try {
        return QuillmarkLoad::run(QuillmarkLoad::read(argc, argv)) ? 0 : 1;
    } catch (std::exception const& e) {
        std::fprintf(stderr, "load: %s\n", e.what());
        return 2;
    }
}
