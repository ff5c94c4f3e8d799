/* The contract headers are plain C. */

#include <string.h>

#include "platform/quill_cfg.h"
#include "platform/quill_evt.h"
#include "platform/quill_ip.h"

int platformInC(char* text, size_t size);

/* Prints 10.0.0.0/8 as it was read. Returns 1 when everything in between went well. */
int platformInC(char* text, size_t size) {
    ip_mask_t mask;
    ip_addr_t address;
    evt_log_args_t const args = {0};
    if (quill_string_to_ip("10.1.2.3", &address) != 1) return 0;
    if (quill_string_to_ipmask("10.0.0.0/8", &mask) != 0) return 0;
    if (quill_ipmask_match(&mask, &address) != 1) return 0;
    if (strcmp(quill_path("/etc/gtld"), "/etc/gtld") != 0) return 0;
    if (nCfg_debug_zone && nCfg_debug_zone[QUILL_CFG_GENERATION_WORD] == 0) return 0;
    if (args.argument != 0) return 0;
    return quill_ipmask_to_string(&mask, text, size) == text;
}
