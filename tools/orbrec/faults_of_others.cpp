// Only in builds with a sanitizer: what it must pass over in libraries of others. libx265 loses memory at each use. The
// media libraries are not built with the race checker, so it does not see how their own threads take turns; this
// program has no threads beside theirs.

// Called by the sanitizers, which live in libraries of their own.
extern "C" {
__attribute__((visibility("default"))) const char *__lsan_default_suppressions();
__attribute__((visibility("default"))) const char *__tsan_default_suppressions();
}

const char *__lsan_default_suppressions()
{
    return "leak:libx265\n";
}

const char *__tsan_default_suppressions()
{
    return "race:libavcodec\nrace:libavutil\nrace:libavformat\nrace:libswscale\nrace:libx264\nrace:libx265\n";
}
