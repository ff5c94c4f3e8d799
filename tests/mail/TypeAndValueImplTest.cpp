#include "include2/TypeAndValue"

#include <type_traits>

#include "tests/support/Support.h"

using namespace Quillmark;
using QuillmarkTest::failureOf;

namespace {

template <class Pair>
std::string shown(Pair const& pair) {
    return pair.type() + "=" + pair.value();
}

char const* const none = nullptr;

}  // namespace

TEST(TypeAndValue, KeepsBothTextsExactlyAsGiven) {
    EXPECT_EQ(shown(TypeAndValue(std::string(" Subject\t"), std::string("Hi There "))),
              " Subject\t=Hi There ");
    EXPECT_EQ(shown(TypeAndValue("cc", "a@x.example")), "cc=a@x.example");
    EXPECT_EQ(shown(TypeAndValue(std::string("to"), "B@x.example")), "to=B@x.example");
    TypeAndValue const withNul(std::string("a\0b", 3), std::string("c\0", 2));
    EXPECT_EQ(withNul.type(), std::string("a\0b", 3));
    EXPECT_EQ(withNul.value(), std::string("c\0", 2));
}

TEST(TypeAndValue, TakesANullValueForTheEmptyText) {
    EXPECT_EQ(shown(TypeAndValue("subject", none)), "subject=");
    EXPECT_EQ(shown(TypeAndValue("subject", NULL)), "subject=");
    EXPECT_EQ(shown(TypeAndValue(std::string("subject"), none)), "subject=");
    EXPECT_EQ(shown(TypeAndValueImpl("subject", none)), "subject=");
    EXPECT_EQ(shown(TypeAndValueImpl(std::string("subject"), none)), "subject=");
}

TEST(TypeAndValue, RefusesANullType) {
    EXPECT_EQ(failureOf([] { TypeAndValue(none, "x"); }), "TypeAndValue( 2 ) , TypeAndValueImpl");
    EXPECT_EQ(failureOf([] { TypeAndValueImpl(none, none); }), "TypeAndValue( 2 ) , TypeAndValueImpl");
}

TEST(TypeAndValue, IsNullByDefaultOnly) {
    EXPECT_TRUE(TypeAndValue().isNull());
    EXPECT_FALSE(TypeAndValue("", "").isNull());
}

TEST(TypeAndValue, NullFailsWhenReadOrComparedForInequality) {
    TypeAndValue const null;
    TypeAndValue const pair("a", "b");
    EXPECT_EQ(failureOf([&] { (void)null.type(); }), "TypeAndValue( 1 ) , TypeAndValueImpl");
    EXPECT_EQ(failureOf([&] { (void)null.value(); }), "value( 1 ) , TypeAndValueImpl");
    EXPECT_EQ(failureOf([&] { (void)(null != pair); }), "TypeAndValue( 1 ) , TypeAndValueImpl");
    EXPECT_EQ(failureOf([&] { (void)(null != null); }), "TypeAndValue( 1 ) , TypeAndValueImpl");
    EXPECT_EQ(failureOf([&] { (void)(null != TypeAndValue()); }), "TypeAndValue( 1 ) , TypeAndValueImpl");
    EXPECT_TRUE(pair != null);
}

TEST(TypeAndValue, NullEqualsNullAndNothingElse) {
    TypeAndValue const null;
    TypeAndValue const empty("", "");
    EXPECT_TRUE(null == null);
    EXPECT_TRUE(null == TypeAndValue());
    EXPECT_FALSE(null == empty);
    EXPECT_FALSE(empty == null);
}

TEST(TypeAndValue, ComparesBytewiseAndByCase) {
    TypeAndValue const pair("Subject", "Hi");
    EXPECT_TRUE(pair == pair);
    struct {
        char const* type;
        char const* value;
        bool equal;
    } const rows[] = {
        {"Subject", "Hi", true},   {"subject", "Hi", false}, {"Subject", "hi", false},
        {"Subject", "Hi ", false}, {"Hi", "Subject", false},
    };
    for (auto const& [type, value, equal] : rows) {
        EXPECT_EQ(pair == TypeAndValue(type, value), equal) << type << "=" << value;
        EXPECT_EQ(pair != TypeAndValue(type, value), !equal) << type << "=" << value;
    }
}

TEST(TypeAndValue, CopiesShareTheTexts) {
    TypeAndValue const pair("a", "b");
    TypeAndValue const copy(pair);
    TypeAndValue assigned("c", "d");
    assigned = pair;
    EXPECT_EQ(&copy.type(), &pair.type());
    EXPECT_EQ(&assigned.value(), &pair.value());
    assigned = TypeAndValue();
    EXPECT_TRUE(assigned.isNull());
    EXPECT_TRUE(TypeAndValue(assigned).isNull());
    EXPECT_EQ(shown(pair), "a=b");
}

TEST(TypeAndValue, TextsLiveAsLongAsAnyCopy) {
    TypeAndValue copy;
    std::string const* type = nullptr;
    {
        TypeAndValue const pair("a", "b");
        copy = pair;
        type = &pair.type();
    }
    EXPECT_EQ(*type, "a");
}

TEST(TypeAndValueImpl, IsEmptyByDefault) {
    EXPECT_EQ(shown(TypeAndValueImpl()), "=");
}

TEST(TypeAndValueImpl, ReplacesItsTexts) {
    TypeAndValueImpl pair("a", "b");
    pair.type("c");
    EXPECT_EQ(shown(pair), "c=b");
    pair.value("d");
    EXPECT_EQ(shown(pair), "c=d");
}

TEST(TypeAndValueImpl, CopiesBothTextsAndNotTheCount) {
    TypeAndValueImpl pair(std::string("a"), std::string("b"));
    pair.addReference();
    TypeAndValueImpl const copy(pair);
    TypeAndValueImpl assigned;
    assigned = pair;
    pair.type("changed");
    EXPECT_EQ(shown(copy), "a=b");
    EXPECT_EQ(shown(assigned), "a=b");
    EXPECT_EQ(copy.count(), 1U);
    EXPECT_EQ(assigned.count(), 1U);
    pair.release();
}

TEST(TypeAndValueImpl, ComparesTheTypeAndTheValue) {
    TypeAndValueImpl const pair("a", "b");
    EXPECT_TRUE(pair == TypeAndValueImpl("a", "b"));
    EXPECT_FALSE(pair != TypeAndValueImpl("a", "b"));
    EXPECT_TRUE(pair != TypeAndValueImpl("A", "b"));
    EXPECT_FALSE(pair == TypeAndValueImpl("a", "B"));
}

TEST(TypeAndValueImpl, IsASharedImplementation) {
    RefImpl* const shared = new TypeAndValueImpl("a", "b");
    EXPECT_EQ(shared->count(), 1U);
    shared->release();
}
