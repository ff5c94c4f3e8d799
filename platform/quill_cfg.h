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

/** The area, or null where there is none. The library reads the generation word and nothing else. The
 *  area may come, and the word may change, at any time: both are read with __atomic_load_n and acquire,
 *  and whoever sees a new generation sees what was written before it began. */
QUILL_PLATFORM_EXPORT extern uint32_t volatile* nCfg_debug_zone;

/** Attaches an area of the process's own on the first call, and begins a new generation on every call:
 *  whoever keeps what a configuration file said reads it again. Where somebody else attached an area, that
 *  one gets the new generation. Any thread.
 *  @return the new generation, never 0. */
QUILL_PLATFORM_EXPORT uint32_t quill_cfg_new_generation(void);

/** Detaches the area that quill_cfg_new_generation attached, and no other. The area stays in memory and
 *  keeps its generation. For tests. Any thread. */
QUILL_PLATFORM_EXPORT void quill_cfg_detach(void);

/** Turns an absolute path of the appliance into the one to open. In production that is @p path itself;
 *  null and a path that does not begin with "/" always are, but for those given to quill_path_map().
 *  @return @p path, or a terminated text that stays valid until the process ends. Any thread. */
QUILL_PLATFORM_EXPORT char const* quill_path(char const* path);

/** From now on paths of the appliance lie below @p directory ("/etc/gtld" is "<directory>/etc/gtld");
 *  null or "" goes back to production. The text is copied. For tests and tools, which call it before
 *  anything opens a file. Any thread. */
QUILL_PLATFORM_EXPORT void quill_path_root(char const* directory);

/** From now on the one appliance path @p path is opened at @p instead; null goes back. Stands above
 *  quill_path_root, and is not put below its directory. The texts are copied. For tests and tools. Any
 *  thread. */
QUILL_PLATFORM_EXPORT void quill_path_map(char const* path, char const* instead);

#ifdef __cplusplus
}
#endif

#endif
