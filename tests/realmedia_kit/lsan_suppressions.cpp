// Leak-checker settings for this test program.
//
// GLib allocates its first quark table in its library constructor; once more
// quarks are needed (GStreamer loads many plugins for type finding) it moves
// to a bigger table and deliberately never frees the old one, so that
// lock-free readers stay safe. Only allocations made while a library
// initialises are suppressed; seeing that frame needs the full (slow) unwinder
// for allocations, as GLib is built without frame pointers.
extern "C" const char* __asan_default_options() { return "fast_unwind_on_malloc=0"; }
extern "C" const char* __lsan_default_options() { return "print_suppressions=0"; }
//
// GStreamer's playback elements, torn down after one of their sources
// failed, drop a few small GLib allocations made while unreferencing the
// objects kept in their stored messages (32 bytes each); that happens inside
// libgstplayback's finalizer, not in the kit.
extern "C" const char* __lsan_default_suppressions() { return "leak:_dl_init\nleak:libgstplayback.so\n"; }
