// Addresses out of header values: one at a time, as From holds it, and a hundred at once, as To may.

#include <gmime/gmime.h>
#include <mimetic/rfc822/addresslist.h>
#include <mimetic/rfc822/mailbox.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bench/mail/Dovecot.h"
#include "bench/support/Bench.h"
#include "include2/EmailAddress"

namespace {

using namespace Quillmark;
using Texts = std::vector<std::string>;

// Everybody parses and then reads the three parts, since one of the peers puts off most of its work until then.
std::size_t sizes(EmailAddress const& address) {
    return address.local().size() + address.domain().size() + address.displayName().size();
}
std::size_t sizes(mimetic::Mailbox const& mailbox) {
    return mailbox.mailbox().size() + mailbox.domain().size() + mailbox.label().size();
}

std::string const bare = "john.smith@example.com";
std::string const quoted = "\"Smith, John\" <john.smith@example.com>";

// What From, Sender and Reply-To look like in people's mail, list mail and machines' mail.
Texts const realHeaders{
    "Anna Jansen <anna.jansen@example.org>",
    "\"Jansen, Anna (Sales)\" <anna.jansen@sales.example.org>",
    "billing@pay.example.com",
    "Example Shop <no-reply@mail.shop.example.com>",
    "\"Example Shop\" <bounce+2f7a81c94e@eu-west.mailer.example.net>",
    "=?UTF-8?Q?J=C3=B6rg_M=C3=BCller?= <joerg.mueller@example.de>",
    "=?utf-8?B?5bGx55Sw5aSq6YOO?= <yamada@example.co.jp>",
    "MAILER-DAEMON@mx1.example.net",
    "Build Server <root@build-07.internal.example.com>",
    "\"The Weekly \\\"Digest\\\"\" <weekly@digest.example.org>",
    "Maria da Silva via Announce <announce@lists.example.org>",
    "o'brien@example.ie",
    "<support@example.com>",
    "Dr. K. Weber <k.weber@uni.example.edu>",
    "\"newsletter@example.com\" <newsletter@example.com>",
    "Peter Parker (by way of Ben) <peter@example.org>",
};

// Each address in the manner of those above, on one line as a header reader hands it over.
std::string hundred() {
    std::string text;
    for (int i = 0; i < 100; ++i) {
        std::string const number = std::to_string(i);
        if (i != 0) text += ", ";
        switch (i % 4) {
        case 0: text += "user" + number + "@example.com"; break;
        case 1: text += "First Last " + number + " <first.last" + number + "@mail.example.org>"; break;
        case 2: text += "\"Last, First " + number + "\" <f.last" + number + "@example.net>"; break;
        default: text += "<" + number + ".someone@a-longer-name.example.co.uk>"; break;
        }
    }
    return text;
}

Texts ours(std::string const& text) {
    Texts found;
    for (EmailAddress const& address : EmailAddress::rfc5322ParseList(text, false))
        found.push_back(address.address());
    return found;
}

Texts dovecots(std::string const& text) {
    Texts found;
    dovecot_parse(
        text.data(), text.size(),
        [](void* into, char const*, char const* mailbox, char const* domain) {
            static_cast<Texts*>(into)->push_back(std::string(mailbox) + '@' + domain);
        },
        &found);
    return found;
}

Texts mimetics(std::string const& text) {
    Texts found;
    mimetic::AddressList const list(text);
    for (auto const& address : list)
        found.push_back(address.mailbox().mailbox() + '@' + address.mailbox().domain());
    return found;
}

std::size_t dovecotSizes(std::string const& text) {
    std::size_t sum = 0;
    dovecot_parse(
        text.data(), text.size(),
        [](void* into, char const* name, char const* mailbox, char const* domain) {
            *static_cast<std::size_t*>(into) +=
                (name != nullptr ? std::strlen(name) : 0) + std::strlen(mailbox) + std::strlen(domain);
        },
        &sum);
    return sum;
}

struct Unref {
    void operator()(InternetAddressList* list) const { g_object_unref(list); }
};
std::unique_ptr<InternetAddressList, Unref> gmimeParse(std::string const& text) {
    return std::unique_ptr<InternetAddressList, Unref>(internet_address_list_parse(nullptr, text.c_str()));
}

Texts gmimes(std::string const& text) {
    Texts found;
    auto const list = gmimeParse(text);
    for (int i = 0; i < internet_address_list_length(list.get()); ++i) {
        auto* const address = internet_address_list_get_address(list.get(), i);
        found.emplace_back(internet_address_mailbox_get_addr(INTERNET_ADDRESS_MAILBOX(address)));
    }
    return found;
}

std::size_t gmimeSizes(std::string const& text) {
    std::size_t sum = 0;
    auto const list = gmimeParse(text);
    for (int i = 0; i < internet_address_list_length(list.get()); ++i) {
        auto* const address = internet_address_list_get_address(list.get(), i);
        char const* const name = internet_address_get_name(address);
        sum += name != nullptr ? std::strlen(name) : 0;
        sum += std::strlen(internet_address_mailbox_get_addr(INTERNET_ADDRESS_MAILBOX(address)));
    }
    return sum;
}

void compareAll(std::string const& text, std::size_t count) {
    Texts const found = ours(text);
    bench::agree(found.size() == count, "number of addresses: " + text);
    bench::agree(found == dovecots(text), "Dovecot: " + text);
    bench::agree(found == mimetics(text), "mimetic: " + text);
    bench::agree(found == gmimes(text), "GMime: " + text);
}

// One address each; the texts take their turns.
void single(std::string const& path, Texts const& texts) {
    for (std::string const& text : texts) {
        compareAll(text, 1);
        bench::agree(EmailAddress::rfc5322Parse(text, false).address() == ours(text).front(), text);
    }
    auto const inTurn = [&](std::string const& who, auto parse) {
        std::size_t next = 0;
        bench::contestant(path, who, [=]() mutable {
            std::string const& text = texts[next];
            next = next + 1 == texts.size() ? 0 : next + 1;
            return parse(text);
        });
    };
    inTurn("quillmark",
           [](std::string const& text) { return sizes(EmailAddress::rfc5322Parse(text, false)); });
    inTurn("mimetic", [](std::string const& text) { return sizes(mimetic::Mailbox(text)); });
    inTurn("dovecot", dovecotSizes);
    inTurn("gmime", gmimeSizes);
}

}  // namespace

int main(int argc, char** argv) {
    g_mime_init();
    single("one address, bare", {bare});
    single("one address, quoted name", {quoted});
    single("one address, real headers", realHeaders);

    std::string const path = "a To header of 100 addresses";
    std::string const text = hundred();
    auto const bytes = static_cast<std::int64_t>(text.size());
    compareAll(text, 100);
    auto const all = [&](std::string const& who, auto parse) {
        bench::contestant(
            path, who, [=] { return parse(text); }, bytes, 100);
    };
    all("quillmark", [](std::string const& addresses) {
        std::size_t sum = 0;
        for (EmailAddress const& address : EmailAddress::rfc5322ParseList(addresses, false))
            sum += sizes(address);
        return sum;
    });
    all("mimetic", [](std::string const& addresses) {
        std::size_t sum = 0;
        for (auto const& address : mimetic::AddressList(addresses)) sum += sizes(address.mailbox());
        return sum;
    });
    all("dovecot", dovecotSizes);
    all("gmime", gmimeSizes);

    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
