// Debian's libutils is not built with ThreadSanitizer, so the atomics of its
// reference counting (RefBase's strong and weak counts behind sp<> and wp<>,
// SharedBuffer's count behind String16) are invisible to it: releasing an
// object or a string on another thread than its last user looks like a race
// with the free that the last release does. Only those functions are named;
// any other report fails the run. Read by ThreadSanitizer at start-up; other
// builds never call it.
extern "C" const char *__tsan_default_suppressions() {
    return "race:android::RefBase::decStrong\n"
           "race:android::RefBase::weakref_type::decWeak\n"
           "race:android::RefBase::~RefBase\n"
           "race:android::SharedBuffer::release\n"
           "race:android::String16::~String16\n";
}
