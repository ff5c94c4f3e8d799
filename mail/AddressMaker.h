#pragma once
// Addresses out of pieces of a text.

#include <sanitizer/asan_interface.h>  // whose marks are nothing in other builds

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>

#include "foundation/Spares.h"
#include "include2/EmailAddress"
#include "platform/quill_string.h"

namespace Quillmark {

/// Makes addresses whose parts have been checked; each is written once, at its size.
///
/// A thread keeps some of those whose last handle it destroys, with the memory of their texts, and makes its
/// next ones of them: the heap takes longer than everything else that there is to do for an address.
class AddressMaker {
public:
    /// @param address  local@domain, in the case in which it is to be kept
    /// @param sign     where the "@" is; the size of the text for a local part alone
    /// @param name     the display name, as written
    static EmailAddress make(std::string_view address, std::size_t sign, std::string_view name) {
        std::unique_ptr<EmailAddressImpl> impl = blank();
        // They are empty, and to append is faster than to assign.
        impl->m_local += address.substr(0, sign);
        if (sign < address.size()) impl->m_domain += address.substr(sign + 1);
        impl->m_displayName += name;
        impl->m_isPlain = address.size() + name.size() <= longestSpare;
        return {impl.release(), false};
    }

    /// Gives back the reference of a handle.
    [[gnu::noinline]] static void drop(EmailAddressImpl* impl) noexcept {
        // Nobody else can take a reference where this one is all there is.
        if (!impl->m_isPlain || impl->count() != 1) return impl->release();
        forEachText(*impl, [](void const* text, std::size_t size) { ASAN_POISON_MEMORY_REGION(text, size); });
        SpareAddresses::giveBack(std::unique_ptr<EmailAddressImpl>(impl));
    }

    /// Makes the texts of a kept address readable; with an address sanitizer, nobody could read them meanwhile.
    static void show(EmailAddressImpl& impl) noexcept {
        forEachText(impl,
                    [](void const* text, std::size_t size) { ASAN_UNPOISON_MEMORY_REGION(text, size); });
    }

    /// The case in which @p address is kept: the domain's is always lower, the local part's if asked.
    static std::string lowered(std::string_view address, std::size_t sign, bool lowerLocal) {
        std::string kept(address);
        if (!hasCapitals(address)) return kept;
        std::string tail;
        std::size_t const from = lowerLocal ? 0 : sign;
        ::copyStringToLower(kept, tail, from, std::string::npos);
        return kept.replace(from, std::string::npos, tail);
    }

private:
    using SpareAddresses = Spares<EmailAddressImpl, 128>;
    static constexpr std::size_t longestSpare = 256;  // longer ones are not worth their memory

    // Leaves out where the bytes of a text are: those on the heap stay in sight of who looks for leaks.
    template <class Mark>
    static void forEachText(EmailAddressImpl& impl, Mark mark) noexcept {
        for (std::string* const text :
             {&impl.m_asString, &impl.m_address, &impl.m_local, &impl.m_domain, &impl.m_displayName})
            mark(reinterpret_cast<char*>(text) + sizeof(char*), sizeof(std::string) - sizeof(char*));
    }

    static std::unique_ptr<EmailAddressImpl> blank() {
        std::unique_ptr<EmailAddressImpl> impl = SpareAddresses::take();
        if (!impl) return std::make_unique<EmailAddressImpl>();
        show(*impl);
        impl->m_local.clear();
        impl->m_domain.clear();
        impl->m_displayName.clear();
        if (impl->m_made.load(std::memory_order_relaxed) != 0) {
            impl->m_address.clear();
            impl->m_asString.clear();
            impl->m_made.store(0, std::memory_order_relaxed);
        }
        return impl;
    }

    static bool hasCapitals(std::string_view text) {
        return std::any_of(text.begin(), text.end(),
                           [](char c) { return static_cast<unsigned char>(c - 'A') < 26; });
    }
};

}  // namespace Quillmark
