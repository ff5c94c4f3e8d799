/* The appliance's shared configuration area, and the way to its files. Plain C. */
#ifndef QUILLMARK_PLATFORM_QUILL_CFG_H
#define QUILLMARK_PLATFORM_QUILL_CFG_H

#include <stdint.h>

#include "platform/quill_platform.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The word of the area that counts the configuration's generations, counted from 0. */
#define QUILL_CFG_GENERATION_WORD 296
/** The words that an area has at least. */
#define QUILL_CFG_WORDS 512

/** The area, or null where there is none. The library reads the generation word and nothing else. */
QUILL_PLATFORM_EXPORT extern uint32_t volatile* nCfg_debug_zone;

/** Attaches an area of the process's own on the first call, and begins a new generation on every call:
 *  whoever keeps what a configuration file said reads it again. Safe from any thread.
 *  @return the new generation, never 0. */
QUILL_PLATFORM_EXPORT uint32_t quill_cfg_new_generation(void);

/** Detaches the area that quill_cfg_new_generation attached. For tests: nobody may be reading it. */
QUILL_PLATFORM_EXPORT void quill_cfg_detach(void);

/** Turns an absolute path of the appliance into the one to open. In production that is the same text.
 *  @return a terminated text that stays valid until the process ends. Any thread. */
QUILL_PLATFORM_EXPORT char const* quill_path(char const* path);

/** From now on paths of the appliance lie below @p directory ("/etc/gtld" is "<directory>/etc/gtld");
 *  null goes back to production. For tests and tools, which call it before anything opens a file. */
QUILL_PLATFORM_EXPORT void quill_path_root(char const* directory);

/** From now on the one appliance path @p path is opened at @p instead; null goes back. Stands above
 *  quill_path_root. For tests and tools. */
QUILL_PLATFORM_EXPORT void quill_path_map(char const* path, char const* instead);

#ifdef __cplusplus
}
#endif

#endif
