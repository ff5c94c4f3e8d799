// Who is in a To header?
#include <include2/EmailAddress>

#include <iostream>

int main() {
    auto const to = R"("Smith, John" <John@Mail.Example.COM>, (on leave) ann@example.org, bad@@example)";
    for (auto const& address : Quillmark::EmailAddress::rfc5322ParseList(to, false)) {
        std::cout << address.local() << " at " << address.domain() << "  " << address.displayName() << '\n';
    }
}
