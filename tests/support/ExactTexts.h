#pragma once
// Texts that kernels are compared on.

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace QuillmarkTest {

/// Hands texts of all lengths from @p least to 300 bytes to @p check, each at all offsets from 0 to 63, until one
/// fails. The memory ends with the text, so that reading beyond shows under the address sanitizer.
/// @param make  gives as many bytes as it is asked for
template <class Make, class Check>
void onEveryExactText(std::size_t least, Make make, Check check) {
    for (std::size_t size = least; size <= 300; ++size) {
        for (std::size_t offset = 0; offset < 64; ++offset) {
            std::string const held = make(offset + size);
            std::vector<char> const exact(held.begin(), held.end());
            check(std::string_view(exact.data() + offset, size));
            if (testing::Test::HasFatalFailure()) return;
        }
    }
}

}  // namespace QuillmarkTest
