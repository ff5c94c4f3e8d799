// The addresses of a host for C callers.

#include "include2/quillmark.h"

#include "capi/Guard.h"
#include "include2/Host"
#include "platform/quill_string.h"

#include <string_view>

namespace {

using namespace Quillmark;

constexpr std::string_view localhost{"localhost"};

bool isLocalhost(std::string_view name) {
    return name.size() == localhost.size() &&
           ::stringCompareNoCase(name.data(), localhost.data(), name.size()) == 0;
}

}  // namespace

int quill_hostname_to_ipaddress_list(char const* name, ip_addr_t* addresses, int max, int family) {
    return guarded(0, [&] {
        if (!name || !addresses) return 0;
        // Kept for the daemons: it has an address whatever room they say there is.
        if (isLocalhost(name)) {
            quill_string_to_ip("127.0.0.1", addresses);
            return 1;
        }
        if (max <= 0) return 0;

        int count = 0;
        Host const host(name, false);
        for (IPAddress const& address : host.addressList()) {
            if (count >= max) break;
            addresses[count] = address.asIpAddr();
            if (family < 0 || static_cast<std::uint32_t>(family) == addresses[count].family) ++count;
        }
        return count;
    });
}
