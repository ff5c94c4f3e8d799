// GMime and GLib are not built for the thread sanitizer, which sees what they do and not the locks that they
// do it under. Empty in every other build.

#if defined(__has_feature)
#define QUILLMARK_HAS_FEATURE(feature) __has_feature(feature)
#else
#define QUILLMARK_HAS_FEATURE(feature) 0
#endif

#if defined(__SANITIZE_THREAD__) || QUILLMARK_HAS_FEATURE(thread_sanitizer)

extern "C" [[gnu::visibility("default")]] char const* __tsan_default_suppressions();  // NOLINT

char const* __tsan_default_suppressions() {  // NOLINT: the sanitizer's name for it
    return "called_from_lib:libglib-2.0.so\n"
           "called_from_lib:libgobject-2.0.so\n"
           "called_from_lib:libgmime-3.0.so\n";
}

#endif
