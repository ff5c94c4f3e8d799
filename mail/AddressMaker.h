#pragma once
// Finished addresses.

#include <algorithm>
#include <string_view>

#include "foundation/ByteSet.h"
#include "include2/EmailAddress"
#include "platform/quill_string.h"

namespace Quillmark {

/// Makes addresses out of pieces of a text, each of their strings once and at its size. What is given away
/// is complete: no second thread ever has to make a text.
class AddressMaker {
public:
    /// @param domain  may be empty; checked by the caller
    static EmailAddress make(std::string_view local, bool lowerLocal, std::string_view domain,
                             std::string_view name) {
        auto* const impl = new EmailAddressImpl;
        EmailAddress address(impl, false);
        assign(impl->m_local, local, lowerLocal);
        assign(impl->m_domain, domain, true);
        impl->m_displayName = name;
        join(*impl);
        return address;
    }

private:
    static void assign(std::string& to, std::string_view text, bool lower) {
        constexpr ByteSet capitals = ByteSet::range('A', 'Z');
        auto const isCapital = [&](char c) { return capitals.contains(c); };
        to = text;
        if (lower && std::any_of(text.begin(), text.end(), isCapital)) ::copyStringToLower(to, to);
    }

    // What address() and asString() would make. Without a local part there is no address, and it may yet
    // get one.
    static void join(EmailAddressImpl& impl) {
        if (impl.m_local.empty()) return void(impl.asString());
        std::string& address = impl.m_address;
        address.reserve(impl.m_local.size() + 1 + impl.m_domain.size());
        address = impl.m_local;
        if (!impl.m_domain.empty()) (address += '@') += impl.m_domain;
        if (!impl.m_displayName.empty()) {
            std::string& text = impl.m_asString;
            text.reserve(impl.m_displayName.size() + 2 + address.size() + 1);
            (((text = impl.m_displayName) += " <") += address) += '>';
        }
        impl.m_made.store(EmailAddressImpl::MadeAddress | EmailAddressImpl::MadeText,
                          std::memory_order_relaxed);
    }
};

}  // namespace Quillmark
