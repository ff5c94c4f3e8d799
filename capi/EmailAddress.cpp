#include "include2/EmailAddress"

#include <climits>
#include <cstdlib>
#include <utility>

#include "capi/Guard.h"
#include "include2/quillmark.h"

using Quillmark::EmailAddress;
using Quillmark::guarded;

namespace {

// The opaque type is an address by another name.
EmailAddress* asAddress(quill_emailaddress* address) {
    return reinterpret_cast<EmailAddress*>(address);
}

quill_emailaddress* newHandle(EmailAddress const& address) {
    return reinterpret_cast<quill_emailaddress*>(new EmailAddress(address));
}

char const* textOf(quill_emailaddress* address, std::string const& (EmailAddress::*part)() const) {
    if (!address) return nullptr;
    return guarded<char const*>(nullptr, [&] { return (asAddress(address)->*part)().c_str(); });
}

void setCount(int* count, std::size_t value) {
    if (count) *count = value > INT_MAX ? INT_MAX : static_cast<int>(value);
}

}  // namespace

quill_emailaddress* quill_emailaddress_create(EmailAddress const& address) {
    return guarded<quill_emailaddress*>(nullptr, [&] { return newHandle(address); });
}

quill_emailaddress* quill_emailaddress_create(char const* text) {
    if (!text) return nullptr;
    return guarded<quill_emailaddress*>(nullptr, [&] {
        EmailAddress const address = EmailAddress::rfc5322Parse(text, true);
        return address.isNull() ? nullptr : newHandle(address);
    });
}

void quill_emailaddress_destroy(quill_emailaddress* address) {
    delete asAddress(address);
}

quill_emailaddress** quill_emailaddress_find(char const* text, int* count) {
    // What there is so far goes back if an element cannot be made.
    struct Elements {
        quill_emailaddress** array = nullptr;
        std::size_t size = 0;
        ~Elements() {
            while (size != 0) quill_emailaddress_destroy(array[--size]);
            std::free(array);
        }
        quill_emailaddress** handOver() {
            size = 0;
            return std::exchange(array, nullptr);
        }
    };

    if (!text) return nullptr;
    setCount(count, 0);
    return guarded<quill_emailaddress**>(nullptr, [&]() -> quill_emailaddress** {
        auto const addresses = EmailAddress::rfc5322ParseSet(text, true, false);
        setCount(count, addresses.size());
        if (addresses.empty()) return nullptr;
        Elements made;
        made.array =
            static_cast<quill_emailaddress**>(std::calloc(addresses.size(), sizeof(quill_emailaddress*)));
        if (!made.array) return nullptr;
        for (EmailAddress const& address : addresses) made.array[made.size++] = newHandle(address);
        return made.handOver();
    });
}

char const* quill_emailaddress_get_string(quill_emailaddress* address) {
    return textOf(address, &EmailAddress::asString);
}

char const* quill_emailaddress_get_email_address(quill_emailaddress* address) {
    return textOf(address, &EmailAddress::address);
}

char const* quill_emailaddress_get_local(quill_emailaddress* address) {
    return textOf(address, &EmailAddress::local);
}

char const* quill_emailaddress_to_username(quill_emailaddress* address) {
    return quill_emailaddress_get_local(address);
}

char const* quill_emailaddress_get_domain(quill_emailaddress* address) {
    return textOf(address, &EmailAddress::domain);
}

char const* quill_emailaddress_get_personal(quill_emailaddress* address) {
    return textOf(address, &EmailAddress::displayName);
}

quill_emailaddress_container* quill_emailaddress_container_create(void) {
    return new quill_emailaddress_container{nullptr, nullptr};
}

void quill_emailaddress_container_append(quill_emailaddress_container* list, quill_emailaddress* address) {
    if (!list || !address) return;
    while (list->next) list = list->next;
    if (list->address) {
        list->next = new quill_emailaddress_container{nullptr, nullptr};
        list = list->next;
    }
    list->address = address;
}

void quill_emailaddress_container_destroy(quill_emailaddress_container** list) {
    if (!list) return;
    while (quill_emailaddress_container* const node = *list) {
        *list = node->next;
        quill_emailaddress_destroy(node->address);
        delete node;
    }
}
