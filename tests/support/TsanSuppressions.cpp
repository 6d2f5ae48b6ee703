// Debian's libutils is not built with ThreadSanitizer, so the atomics of
// RefBase and SharedBuffer are invisible to it: releasing an sp<> or a
// String16 on another thread than the last user looks like a race. Read by
// ThreadSanitizer at start-up; other builds never call it.
extern "C" const char *__tsan_default_suppressions() {
    return "race:libutils.so\n";
}
