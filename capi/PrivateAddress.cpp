// Private addresses for C callers.

#include "capi/Guard.h"
#include "include2/IPAddress"
#include "include2/quillmark.h"

int quill_int_is_private_ip_address(unsigned int address) {
    using namespace Quillmark;
    return guarded(0, [&] { return IPAddress::isPrivateAddress(IPAddress(address, true)) ? 1 : 0; });
}
