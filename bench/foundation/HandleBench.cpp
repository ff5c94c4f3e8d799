// What it costs to hand a value on: copy a handle and let the copy go.

#include <boost/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>
#include <memory>
#include <thread>

#include "bench/support/Bench.h"
#include "include2/QuillRefcounted"

namespace {

struct Ours : Quillmark::RefImpl {
    int value = 7;
};
struct Boosts : boost::intrusive_ref_counter<Boosts> {
    int value = 7;
};

template <typename Pointer>
auto copies(Pointer const& pointer) {
    return [pointer] {
        Pointer copy(pointer);
        benchmark::DoNotOptimize(copy);
    };
}

}  // namespace

int main(int argc, char** argv) {
    using namespace Quillmark;
    std::thread([] {}).join();  // or std::shared_ptr counts without a lock: no daemon has one thread only
    std::string const path = "copy and destroy a handle";
    bench::contestant(path, "quillmark", copies(Handle<Ours>(new Ours, false)));
    bench::contestant(path, "boost::intrusive_ptr", copies(boost::intrusive_ptr<Boosts>(new Boosts)));
    bench::contestant(path, "std::shared_ptr", copies(std::make_shared<Boosts>()));
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
