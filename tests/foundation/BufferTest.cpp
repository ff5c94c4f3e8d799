#include "include2/Buffer"

#include "tests/support/Support.h"

using namespace Quillmark;
using namespace QuillmarkTest;

namespace {

Buffer bytes(std::string const& text) {
    return {text.data(), static_cast<unsigned int>(text.size()), false};
}

std::string text(Buffer const& buffer) {
    return {reinterpret_cast<char const*>(buffer.data()), buffer.length()};
}

}  // namespace

TEST(Buffer, IsBornEmptyWith1024BytesAndGrowsBy4096) {
    Buffer buffer(0, 0);
    EXPECT_EQ(buffer.length(), 0u);
    EXPECT_EQ(buffer.size(), 1024u);
    std::string const all(1025, 'x');
    buffer.append(bytes(all));
    EXPECT_EQ(text(buffer), all);
    EXPECT_EQ(buffer.size(), 4096u);
}

TEST(Buffer, AtRefusesAnIndexAtTheLength) {
    Buffer const oneByte("x", 1, false);
    EXPECT_EQ(oneByte.at(0), 'x');
    EXPECT_EQ(failureOf([&] { oneByte.at(1); }), "BufferException( 3 ) , BufferImpl:320, ");
}
