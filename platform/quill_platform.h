/* What the contract headers of the platform share. */
#ifndef QUILLMARK_PLATFORM_QUILL_PLATFORM_H
#define QUILLMARK_PLATFORM_QUILL_PLATFORM_H

#if defined(__GNUC__)
#define QUILL_PLATFORM_EXPORT __attribute__((visibility("default")))
#else
#define QUILL_PLATFORM_EXPORT
#endif

#endif
