/* Quillmark's flat C interface. Plain C11; the sections follow the C++ headers that do the work.
 *
 * No function lets an exception out: a failure is the value that each comment names. Whatever a
 * function allocates for the caller goes back through the function that its comment names.
 */
#ifndef QUILLMARK_QUILLMARK_H
#define QUILLMARK_QUILLMARK_H

#include <stddef.h>
#include <stdint.h>

#include "platform/quill_ip.h"

#if defined(__GNUC__)
#define QUILL_EXPORT __attribute__((visibility("default")))
#else
#define QUILL_EXPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- MD5 ------------------------------------------------------------------------------------ */

/* ---- Base64 files --------------------------------------------------------------------------- */

/* ---- Mail addresses ------------------------------------------------------------------------- */

/* ---- Private addresses ---------------------------------------------------------------------- */

/* ---- DNS ------------------------------------------------------------------------------------ */

/* ---- Host addresses ------------------------------------------------------------------------- */

/* ---- The local request/response protocol ---------------------------------------------------- */

#ifdef __cplusplus
}
#endif

#endif
