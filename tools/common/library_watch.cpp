#include "tools/common/library_watch.h"

#include "platform/os/os_guard.h"

#include <algorithm>
#include <atomic>
#include <cstdio>

static constexpr uint32_t LOOK_MS = 100;

namespace {
// Never destroyed: the thread that looks on lives as long as the process.
struct watch_state {
    library_watch_settings settings;
    // When the thread went in or came back from a pause; 0 while it is outside.
    std::atomic<uint64_t> inside_since{0};
    int depth = 0; // of the one thread that works
    LMutex mutex{};
    std::string output; // guarded by mutex
};
} // namespace

static std::atomic<watch_state *> s_watch;

// The monotonic clock may begin at 0, which means outside.
static uint64_t now()
{
    return os_tick() + 1;
}

static void end_process(watch_state *watch, bool is_stopped)
{
    std::string text = watch->settings.program + ": the media library does not come back";
    {
        os_lock_guard held(&watch->mutex);
        if (!watch->output.empty())
            text += "; what came until then is in " + watch->output;
    }
    std::fputs((text + "\n").c_str(), stderr);
    os_exit(is_stopped ? watch->settings.stopped_status : watch->settings.status);
}

static int watch_run(void *of)
{
    auto watch = static_cast<watch_state *>(of);
    os_thread_name("watch");
    for (uint64_t stopped_at = 0;; os_sleep(LOOK_MS)) {
        bool is_stopped = watch->settings.is_stopped != nullptr && watch->settings.is_stopped();
        uint64_t since = watch->inside_since, time = now();
        stopped_at = is_stopped && stopped_at == 0 ? time : stopped_at;
        if (since == 0)
            continue;
        bool is_late = time - std::min(since, time) >= watch->settings.limit_ms;
        uint64_t last = std::max(since, stopped_at);
        if (is_late || (is_stopped && time - std::min(last, time) >= watch->settings.stopped_limit_ms))
            end_process(watch, is_stopped);
    }
}

void library_watch_install(const library_watch_settings &settings)
{
    auto watch = new watch_state;
    watch->settings = settings;
    LThread thread;
    if (!os_mutex_init(&watch->mutex, 0) || !os_thread_create(&thread, 0, watch_run, watch))
        return;
    os_thread_detach(&thread);
    s_watch = watch;
}

void library_watch_output(const std::string &name)
{
    if (watch_state *watch = s_watch) {
        os_lock_guard held(&watch->mutex);
        watch->output = name;
    }
}

library_work::library_work()
{
    if (watch_state *watch = s_watch; watch != nullptr && watch->depth++ == 0)
        watch->inside_since = now();
}

library_work::~library_work()
{
    if (watch_state *watch = s_watch; watch != nullptr && --watch->depth == 0)
        watch->inside_since = 0;
}

library_pause::library_pause()
{
    if (watch_state *watch = s_watch)
        watch->inside_since = 0;
}

library_pause::~library_pause()
{
    if (watch_state *watch = s_watch; watch != nullptr && watch->depth > 0)
        watch->inside_since = now();
}
