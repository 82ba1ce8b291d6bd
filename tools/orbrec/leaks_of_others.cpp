// Only in builds that look for leaks: what libraries of others lose at each use and this program cannot give back.

// Called by the leak checker, which lives in another library.
extern "C" __attribute__((visibility("default"))) const char *__lsan_default_suppressions();

const char *__lsan_default_suppressions()
{
    return "leak:libx265\n";
}
