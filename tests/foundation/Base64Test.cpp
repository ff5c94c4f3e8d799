#include "foundation/Base64.h"

#include "include2/Buffer"
#include "tests/support/Support.h"

using namespace Quillmark;
using namespace QuillmarkTest;

namespace {

Buffer bytes(std::string const& text) {
    return {text.data(), static_cast<unsigned int>(text.size()), false};
}

std::string decoded(std::string const& encoded) {
    Buffer const out = base64Decode(encoded);
    return {reinterpret_cast<char const*>(out.data()), out.length()};
}

}  // namespace

TEST(Base64, EncodesWithPadding) {
    EXPECT_EQ(bytes("").toBase64String(), "");
    EXPECT_EQ(bytes("M").toBase64String(), "TQ==");
    EXPECT_EQ(bytes("Ma").toBase64String(), "TWE=");
    EXPECT_EQ(bytes("Man").toBase64String(), "TWFu");
}

TEST(Base64, DecodesAndSkipsWhiteSpace) {
    EXPECT_EQ(decoded("TW Fu\r\n"), "Man");
}
