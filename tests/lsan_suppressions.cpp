// Leak-checker settings for the test programs that load GStreamer (added to
// them by tests/CMakeLists.txt).
//
// GLib allocates its first quark table in its library constructor; once more
// quarks are needed (GStreamer loads many plugins for type finding) it moves
// to a bigger table and deliberately never frees the old one, so that
// lock-free readers stay safe; interned strings, which live as long as the
// process by design, are kept the same way. Otherwise only allocations made
// while a library initialises are suppressed; seeing that frame needs the
// full (slow) unwinder for allocations, as GLib is built without frame
// pointers.
//
// GStreamer's HTTP source shares a libsoup session through a pipeline context
// and tears it down on the session's own thread after the pipeline let go of
// it; what is handed to that thread (and what the thread's loop still holds)
// is not freed when the process ends first.
//
// GStreamer's playback elements, torn down after one of their sources
// failed, drop a few small GLib allocations made while unreferencing the
// objects kept in their stored messages (32 bytes each); that happens inside
// libgstplayback's finalizer, not in our code.
extern "C" const char* __asan_default_options() { return "fast_unwind_on_malloc=0"; }
extern "C" const char* __lsan_default_options() { return "print_suppressions=0"; }
extern "C" const char* __lsan_default_suppressions() {
  return "leak:_dl_init\n"
         "leak:g_intern_string\n"
         "leak:libsoup-3.0.so\n"
         "leak:libgstsoup.so\n"
         "leak:gst_structure_free\n"
         "leak:libgstplayback.so\n";
}
