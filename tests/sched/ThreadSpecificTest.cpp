#include <atomic>
#include <cerrno>
#include <thread>
#include <type_traits>
#include <vector>

#include "include2/QuillThread"
#include "tests/support/Support.h"

using namespace Quillmark;
using QuillmarkTest::failureOf;

namespace {

struct Value {
    explicit Value(std::atomic<int>& counter) : destroyed(counter) {}
    virtual ~Value() = default;
    std::atomic<int>& destroyed;
};

/// More than its base, so that only its own destructor does it justice.
struct LargeValue : Value {
    using Value::Value;
    ~LargeValue() override { ++destroyed; }
    std::string text = std::string(100, 'x');
};

}  // namespace

TEST(ThreadSpecificKey, HoldsAValueForEachThread) {
    ThreadSpecificKey key;
    int mine = 0;
    EXPECT_EQ(key.value(), nullptr);
    EXPECT_EQ(key.value(&mine), 0);
    EXPECT_EQ(key.value(), &mine);
    EXPECT_EQ(::pthread_getspecific(key.key()), &mine);
    void* others = &mine;
    std::thread([&] { others = key.value(); }).join();
    EXPECT_EQ(others, nullptr);
    EXPECT_EQ(key.value(nullptr), 0);
    EXPECT_EQ(key.value(), nullptr);
}

TEST(ThreadSpecificKey, DeletesAValueThroughItsVirtualDestructorWhenItsThreadEnds) {
    std::atomic<int> destroyed{0};
    ThreadSpecificKey key;
    std::thread([&] {
        key.value(new LargeValue(destroyed));
        EXPECT_EQ(destroyed, 0);
    }).join();
    EXPECT_EQ(destroyed, 1);
    std::thread([&] {
        key.value(new LargeValue(destroyed));
        delete static_cast<Value*>(key.value());
        key.value(nullptr);
    }).join();
    EXPECT_EQ(destroyed, 2);
}

TEST(ThreadSpecificKey, NamesTheSameKeyWhenCopied) {
    int mine = 0;
    ThreadSpecificKey key;
    key.value(&mine);
    {
        ThreadSpecificKey const copy(key);
        EXPECT_EQ(copy.key(), key.key());
        EXPECT_EQ(copy.value(), &mine);
    }
    // Kept for the daemons: the copy has taken the key with it.
    EXPECT_EQ(key.value(&mine), EINVAL);
    EXPECT_FALSE(std::is_copy_assignable_v<ThreadSpecificKey>);
}

TEST(ThreadSpecificKey, GivesItsKeyBack) {
    for (int i = 0; i < 3000; ++i) ThreadSpecificKey const key;
}

TEST(ThreadSpecificKey, KeptForLogReadersTellsErrnoWhenThereAreNoKeysLeft) {
    std::vector<pthread_key_t> all;
    for (pthread_key_t key = 0; ::pthread_key_create(&key, nullptr) == 0;) all.push_back(key);
    errno = EDOM;
    EXPECT_EQ(failureOf([] { ThreadSpecificKey const oneTooMany; }),
              "ThreadSpecificKey::ThreadSpecificKey( 4 ) , ThreadSpecific:25,  "
              "\"Numerical argument out of domain\"");
    for (pthread_key_t const key : all) ::pthread_key_delete(key);
}
