#include <atomic>
#include <new>
#include <thread>
#include <type_traits>

#include "include2/QuillRefcounted"
#include "tests/support/Support.h"

using namespace Quillmark;
using QuillmarkTest::failureOf;
using QuillmarkTest::slotOf;

namespace {

/// Counts how many of it live.
struct Node : virtual RefImpl {
    Node() { ++alive; }
    Node(Node const& other) : RefImpl(other), value(other.value) { ++alive; }
    Node& operator=(Node const&) = default;
    ~Node() override { --alive; }
    int value = 0;
    Handle<Node> next;
    static inline std::atomic<int> alive{0};
};

/// Reached over two paths.
struct Left : virtual RefImpl {};
struct Right : virtual RefImpl {};
struct Both : Left, Right {};

using Cell = RefCounted<Node>;

// The language lets an explicit instantiation name a private member; only so can a count come near
// its end before the test does.
template <auto Count>
struct CountAccess {
    friend std::atomic<std::uint32_t>& countOf(RefImpl& object) { return object.*Count; }
};
std::atomic<std::uint32_t>& countOf(RefImpl& object);
template struct CountAccess<&RefImpl::m_count>;

/// Its cells cannot be made.
struct Homeless : virtual RefImpl {
    ~Homeless() override { ++destroyed; }
    static inline int destroyed = 0;
};

}  // namespace

namespace Quillmark {
template <>
RefCounted<Homeless>::RefCounted(Homeless*, bool) : m_impl(nullptr) {
    throw std::bad_alloc();
}
}  // namespace Quillmark

TEST(NonCopyable, IsEmptyAndCannotBeCopied) {
    struct Lonely : NonCopyable {
        int field = 0;
    };
    EXPECT_EQ(sizeof(Lonely), sizeof(int));
    EXPECT_FALSE(std::is_copy_constructible_v<Lonely>);
    EXPECT_FALSE(std::is_copy_assignable_v<Lonely>);
    EXPECT_EQ(Lonely{}.field, 0);
}

TEST(RefImpl, IsBornWithOneReference) {
    Handle<Node> const node(new Node, false);
    EXPECT_EQ(node->count(), 1U);
}

TEST(RefImpl, HasOneCountHoweverManyPathsLeadToIt) {
    Handle<Both> const both(new Both, false);
    static_cast<Left*>(both.get())->addReference();
    EXPECT_EQ(static_cast<Right*>(both.get())->count(), 2U);
    static_cast<Right*>(both.get())->release();
    EXPECT_EQ(both->count(), 1U);
}

TEST(RefImpl, StartsAtOneWhenCopiedAndKeepsItsCountWhenAssigned) {
    Handle<Node> const a(new Node, false);
    Handle<Node> const again(a);
    Handle<Node> const copy(new Node(*a), false);
    EXPECT_EQ(copy->count(), 1U);
    a->value = 7;
    *copy = *a;
    EXPECT_EQ(copy->value, 7);
    EXPECT_EQ(a->count(), 2U);
    EXPECT_EQ(copy->count(), 1U);
}

TEST(RefImplDeathTest, AbortsWhenTheCountWraps) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    Handle<Node> const node(new Node, false);
    countOf(*node) = UINT32_MAX - 1;
    node->addReference();
    EXPECT_EQ(node->count(), UINT32_MAX);
    EXPECT_EXIT(node->addReference(), testing::KilledBySignal(SIGABRT), "");
    EXPECT_EXIT(Handle<Node>{node}, testing::KilledBySignal(SIGABRT), "");
    countOf(*node) = 1;
}

TEST(Handle, IsNullByDefault) {
    Handle<Node> const none;
    EXPECT_FALSE(none);
    EXPECT_EQ(none.get(), nullptr);
    EXPECT_EQ(none, Handle<Node>(none));
    EXPECT_EQ(none, Handle<Node>(nullptr, true));
}

TEST(Handle, SharesWhenCopiedAndDestroysWithTheLastCopy) {
    int const before = Node::alive;
    {
        Handle<Node> a(new Node, false);
        Handle<Node> b(a);
        Handle<Node> c;
        c = b;
        EXPECT_EQ(a->count(), 3U);
        EXPECT_EQ(a, c);
        EXPECT_NE(a, Handle<Node>());
        (*b).value = 5;
        EXPECT_EQ(c->value, 5);
        a = Handle<Node>();
        b = a;
        EXPECT_EQ(c->count(), 1U);
        EXPECT_EQ(Node::alive, before + 1);
    }
    EXPECT_EQ(Node::alive, before);
}

TEST(Handle, TakesAReferenceOfItsOwnWhenAsked) {
    Node* const node = new Node;
    {
        Handle<Node> const second(node, true);
        EXPECT_EQ(node->count(), 2U);
    }
    EXPECT_EQ(node->count(), 1U);
    node->release();
}

TEST(Handle, MovesWithoutTouchingTheCount) {
    Handle<Node> a(new Node, false);
    Handle<Node> b(std::move(a));
    Handle<Node> c;
    c = std::move(b);
    EXPECT_EQ(c->count(), 1U);
    EXPECT_FALSE(b);
}

TEST(Handle, HandsItsReferenceOver) {
    Handle<Node> a(new Node, false);
    Node* const node = a.detach();
    EXPECT_FALSE(a);
    EXPECT_EQ(a.detach(), nullptr);
    EXPECT_EQ(node->count(), 1U);
    node->release();
}

TEST(Handle, SurvivesAssignmentToItselfAndFromItsOwnInside) {
    Handle<Node> list(new Node, false);
    Handle<Node> const& same = list;
    list = same;
    EXPECT_EQ(list->count(), 1U);
    list->next = Handle<Node>(new Node, false);
    list->next->value = 2;
    list = list->next;
    EXPECT_EQ(list->value, 2);
    EXPECT_EQ(list->count(), 1U);
}

TEST(Handle, DestroysItsObjectOnceWhenTwoThreadsLetGo) {
    int const before = Node::alive;
    for (int round = 0; round < 200; ++round) {
        Handle<Node> a(new Node, false);
        Handle<Node> b(a);
        std::atomic<int> ready{0};
        auto const letGo = [&ready](Handle<Node>& mine) {
            ++ready;
            while (ready < 2) std::this_thread::yield();
            for (int i = 0; i < 20; ++i) Handle<Node> const copy(mine);
            mine = Handle<Node>();
        };
        std::thread other([&] { letGo(b); });
        letGo(a);
        other.join();
        ASSERT_EQ(Node::alive, before);
    }
}

TEST(RefCounted, AdoptsTheNewbornsReference) {
    int const before = Node::alive;
    auto* const cell = new Cell(new Node, false);
    EXPECT_EQ(cell->impl()->count(), 1U);
    delete cell;
    EXPECT_EQ(Node::alive, before);
}

TEST(RefCounted, AddsAReferenceWhenAsked) {
    Cell const first(new Node, false);
    {
        Cell const second(first.impl(), true);
        EXPECT_EQ(first.impl()->count(), 2U);
        EXPECT_TRUE(first == second);
    }
    EXPECT_EQ(first.impl()->count(), 1U);
}

TEST(RefCounted, HoldsNullOnlyWhenItAddsNoReference) {
    Cell const empty(nullptr, false);
    EXPECT_EQ(empty.impl(), nullptr);
    EXPECT_EQ(failureOf([] { Cell const refused(nullptr, true); }),
              "RefCounted constructor for RefImpl failed.( 4 ) ");
}

TEST(RefCounted, ComparesByIdentity) {
    Cell const a(new Node, false);
    Cell const b(new Node, false);
    Cell const none(nullptr, false);
    Cell const nothing(nullptr, false);
    EXPECT_TRUE(a == a);
    EXPECT_FALSE(a == b);
    EXPECT_FALSE(a == none);
    EXPECT_TRUE(none == nothing);
}

TEST(RefCounted, DestroysThroughTheVirtualDestructor) {
    struct Derived : Node {
        explicit Derived(bool& flag) : m_flag(flag) {}
        ~Derived() override { m_flag = true; }
        bool& m_flag;
    };
    bool destroyed = false;
    { Cell const cell(new Derived(destroyed), false); }
    EXPECT_TRUE(destroyed);
    EXPECT_TRUE(std::has_virtual_destructor_v<Cell>);
    EXPECT_TRUE(std::has_virtual_destructor_v<Ref<Node>>);
}

TEST(RefCountedImplCopy, SharesInANewCell) {
    Cell const source(new Node, false);
    Cell* destination = nullptr;
    RefCountedImplCopy(destination, &source);
    ASSERT_NE(destination, nullptr);
    EXPECT_NE(destination, &source);
    EXPECT_TRUE(*destination == source);
    EXPECT_EQ(source.impl()->count(), 2U);
    delete destination;
}

TEST(RefCountedImplCopy, LeavesTheSameCellAlone) {
    auto* cell = new Cell(new Node, false);
    Cell* const before = cell;
    RefCountedImplCopy(cell, before);
    EXPECT_EQ(cell, before);
    EXPECT_EQ(cell->impl()->count(), 1U);
    Cell* none = nullptr;
    RefCountedImplCopy<Node>(none, nullptr);
    EXPECT_EQ(none, nullptr);
    delete cell;
}

TEST(RefCountedImplCopy, ReplacesTheCellThatWasThere) {
    int const before = Node::alive;
    Cell const source(new Node, false);
    auto* destination = new Cell(new Node, false);
    RefCountedImplCopy(destination, &source);
    EXPECT_EQ(Node::alive, before + 1);
    EXPECT_TRUE(*destination == source);
    RefCountedImplCopy<Node>(destination, nullptr);
    EXPECT_EQ(destination, nullptr);
    EXPECT_EQ(source.impl()->count(), 1U);
}

TEST(RefCountedImplCopy, GivesACellOfNullForACellOfNull) {
    Cell const source(nullptr, false);
    Cell* destination = nullptr;
    RefCountedImplCopy(destination, &source);
    ASSERT_NE(destination, nullptr);
    EXPECT_EQ(destination->impl(), nullptr);
    delete destination;
}

TEST(Ref, HasNoCellByDefault) {
    Ref<Node> none;
    Ref<Node> const constant(none);
    EXPECT_TRUE(none.isNull());
    EXPECT_TRUE(constant.isNull());
    EXPECT_EQ(failureOf([&] { none.operator->(); }), "operator->( 1 ) , include2/QuillRefcounted:359, ");
    EXPECT_EQ(failureOf([&] { constant.operator->(); }), "operator->( 1 ) , include2/QuillRefcounted:359, ");
}

TEST(Ref, TellsACellOfNullFromNoCell) {
    Ref<Node> holdsNull(nullptr, false);
    Ref<Node> const copy(holdsNull);
    EXPECT_FALSE(copy.isNull());
    EXPECT_EQ(holdsNull.operator->(), nullptr);
    EXPECT_EQ(copy.operator->(), nullptr);
}

TEST(Ref, RefusesANullReference) {
    EXPECT_EQ(failureOf([] { Ref<Node> const refused(nullptr, true); }),
              "RefCounted constructor for RefImpl failed.( 4 ) ");
}

TEST(Ref, SharesWhenCopiedAndDestroysWithTheLast) {
    int const before = Node::alive;
    {
        Ref<Node> a(new Node, false);
        Ref<Node> b(a);
        Ref<Node> c;
        c = b;
        EXPECT_EQ(a->count(), 3U);
        c = *&c;
        EXPECT_EQ(a->count(), 3U);
        Ref<Node> d(std::move(c));
        Ref<Node> e;
        e = std::move(d);
        EXPECT_EQ(e->count(), 3U);
        a = Ref<Node>();
        EXPECT_TRUE(a.isNull());
        Ref<Node> const second(b.operator->(), true);
        EXPECT_EQ(second->count(), 3U);
    }
    EXPECT_EQ(Node::alive, before);
}

TEST(Ref, FollowsItsOwnList) {
    struct Link : virtual RefImpl {
        explicit Link(int n) : number(n) {}
        int number;
        Ref<Link> next;
    };
    Ref<Link> list(new Link(1), false);
    list->next = Ref<Link>(new Link(2), false);
    list->next->next = Ref<Link>(new Link(3), false);
    list = list->next;
    EXPECT_EQ(list->number, 2);
    list = list->next;
    EXPECT_EQ(list->number, 3);
    EXPECT_EQ(list->count(), 1U);
}

TEST(Ref, ReleasesTheNewbornWhenThereIsNoCellForIt) {
    Homeless::destroyed = 0;
    EXPECT_THROW(Ref<Homeless>(new Homeless, false), std::bad_alloc);
    EXPECT_EQ(Homeless::destroyed, 1);

    auto* const shared = new Homeless;
    EXPECT_THROW(Ref<Homeless>(shared, true), std::bad_alloc);
    EXPECT_EQ(Homeless::destroyed, 1);
    EXPECT_EQ(shared->count(), 1U);
    shared->release();
}
