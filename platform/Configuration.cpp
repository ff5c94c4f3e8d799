// The configuration area of a process that has no appliance around it.

#include "platform/quill_cfg.h"

uint32_t volatile* nCfg_debug_zone = nullptr;

namespace {

// Lives as long as the process, and keeps its generation while it is detached, so that a reader that
// remembers the last one notices the next.
uint32_t volatile ownArea[QUILL_CFG_WORDS];

uint32_t volatile* attachedArea() {
    uint32_t volatile* area = nullptr;
    // Another thread may be first, or a real area may stand there: then that one is used.
    if (__atomic_compare_exchange_n(&nCfg_debug_zone, &area, &ownArea[0], false, __ATOMIC_ACQ_REL,
                                    __ATOMIC_ACQUIRE))
        return &ownArea[0];
    return area;
}

}  // namespace

uint32_t quill_cfg_new_generation(void) {
    uint32_t volatile* const word = attachedArea() + QUILL_CFG_GENERATION_WORD;
    uint32_t generation = 0;
    while (generation == 0) generation = __atomic_add_fetch(word, 1, __ATOMIC_ACQ_REL);
    return generation;
}

void quill_cfg_detach(void) {
    uint32_t volatile* area = &ownArea[0];
    __atomic_compare_exchange_n(&nCfg_debug_zone, &area, nullptr, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE);
}
