#pragma once
// A set of byte values, computed at compile time from what a reader knows of it.

#include <array>
#include <cstddef>
#include <string_view>

namespace Quillmark {

/// Which of the 256 byte values belong to a class. One table look-up answers.
class ByteSet {
public:
    constexpr ByteSet() noexcept = default;
    constexpr explicit ByteSet(std::string_view members) noexcept {
        for (char const c : members) m_has[static_cast<unsigned char>(c)] = true;
    }
    /// From @p first to @p last, both included.
    static constexpr ByteSet range(unsigned char first, unsigned char last) noexcept {
        ByteSet set;
        for (std::size_t byte = first; byte <= last; ++byte) set.m_has[byte] = true;
        return set;
    }

    constexpr bool contains(char c) const noexcept { return m_has[static_cast<unsigned char>(c)]; }
    constexpr bool contains(unsigned char c) const noexcept { return m_has[c]; }
    constexpr bool contains(int byte) const noexcept { return m_has[static_cast<unsigned char>(byte)]; }

    friend constexpr ByteSet operator|(ByteSet const& a, ByteSet const& b) noexcept {
        ByteSet both;
        for (std::size_t byte = 0; byte < both.m_has.size(); ++byte)
            both.m_has[byte] = a.m_has[byte] || b.m_has[byte];
        return both;
    }
    constexpr ByteSet operator~() const noexcept {
        ByteSet rest;
        for (std::size_t byte = 0; byte < m_has.size(); ++byte) rest.m_has[byte] = !m_has[byte];
        return rest;
    }

private:
    std::array<bool, 256> m_has{};
};

inline constexpr ByteSet digitBytes = ByteSet::range('0', '9');
inline constexpr ByteSet letterBytes = ByteSet::range('A', 'Z') | ByteSet::range('a', 'z');
inline constexpr ByteSet alphanumericBytes = letterBytes | digitBytes;
/// TAB, LF, VT, FF, CR and SPACE, whatever the locale.
inline constexpr ByteSet whiteSpaceBytes{"\t\n\v\f\r "};

}  // namespace Quillmark
