// The configuration area and the paths of the appliance.

#include "platform/quill_cfg.h"

uint32_t volatile* nCfg_debug_zone = nullptr;
