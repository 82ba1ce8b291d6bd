// vodctl play: one recording from the service into a file or a pipe.
#include "platform/os/os_guard.h"
#include "tools/vodctl/frame_counter.h"
#include "tools/vodctl/output.h"
#include "tools/vodctl/progress.h"
#include "tools/vodctl/vodctl.h"

#include <algorithm>
#include <cstdio>
#include <limits>

enum class play_end { running, complete, limit, interrupted, write_failed };

// Only a saved recording has sizes, and without inserted time those that came are true.
static frame_sizes sizes_of(const play_settings &play)
{
    return play.insert_abstime && play.format == play_format::rec ? frame_sizes::true_ones : frame_sizes::as_they_came;
}

namespace {
struct play_run {
    const vodctl_settings &settings;
    const play_settings &play;
    vodclient_playback session;
    tool_output file;
    std::unique_ptr<play_output> output;
    frame_counter counter;
    vodclient_play_info info;
    uint64_t bytes = 0, started_at = 0;
    bool waits_for_position = false; // what comes before the mark belongs to the start of the recording
    play_end end = play_end::running;

    play_run(const vodctl_settings &of_settings, const play_settings &of_play)
        : settings(of_settings), play(of_play), counter({of_play.frames_max, of_play.duration_ms}, sizes_of(of_play))
    {
    }
};
} // namespace

// Before anything is asked of the service. The recording may lie on this very machine, under the name that the service
// knows it by.
static int open_output(play_run &run)
{
    const play_settings &play = run.play;
    std::string here = play.file, error;
    std::ranges::replace(here, '\\', '/');
    if (run.file.open({.name = play.output, .force = play.force, .inputs = {play.file, here}}) != OS_OUTPUT_OPENED)
        return vodctl_fail(vodctl_is_stopped() ? VODCTL_INTERRUPTED : VODCTL_LOCAL_FILE, run.file.error());
    run.output = play_output_open(play, &run.file, &error);
    return run.output != nullptr ? VODCTL_OK : vodctl_fail(VODCTL_LOCAL_FILE, error);
}

static vodclient_result open_session(play_run &run)
{
    vodclient_play_request request;
    request.file = run.play.file;
    request.insert_abstime = run.play.insert_abstime;
    vodclient_result result = run.session.open(run.settings.server, request);
    run.info = run.session.info();
    return result;
}

static int32_t clamp_to_int32(int64_t value)
{
    return static_cast<int32_t>(std::clamp<int64_t>(value, 0, std::numeric_limits<int32_t>::max()));
}

// A percent is one of the time. That of the service's own control code is one of the bytes, which a busy hour has more of.
static int32_t percent_ms(const play_run &run)
{
    return clamp_to_int32(int64_t{run.info.total_seconds} * 10 * *run.play.seek_percent);
}

// Reverse play begins at the end, or where a seek option says.
static vodclient_result reverse(play_run &run)
{
    if (run.play.seek_ms)
        return run.session.reverse_from_ms(*run.play.seek_ms);
    // The service adds 999 ms to a second, which reaches the last frame of the last one.
    if (!run.play.seek_percent)
        return run.session.reverse_from_second(clamp_to_int32(std::min<int64_t>(run.info.total_seconds, 2'000'000)));
    return run.session.reverse_from_ms(percent_ms(run));
}

static vodclient_result set_position(play_run &run)
{
    const play_settings &play = run.play;
    run.waits_for_position = play.reverse || play.seek_percent || play.seek_ms || play.seek_kilobyte;
    if (play.reverse)
        return reverse(run);
    if (play.seek_percent)
        return run.session.seek_ms(percent_ms(run));
    if (play.seek_ms)
        return run.session.seek_ms(*play.seek_ms);
    return play.seek_kilobyte ? run.session.seek_kilobyte(*play.seek_kilobyte) : vodclient_result{};
}

static vodclient_result start_session(play_run &run)
{
    run.started_at = os_tick();
    if (vodclient_result result = run.session.start(); !result)
        return result;
    return set_position(run);
}

static void take_event(play_run &run, const vodclient_event &event)
{
    auto write = [&run](byte_span bytes) { return run.output->write(bytes); };
    byte_span bytes(event.data, event.size);
    bool written = true;
    if (event.type == VODCLIENT_EVENT_HEAD) {
        written = run.counter.head(bytes, write);
        run.bytes += event.size;
    } else if (event.type == VODCLIENT_EVENT_SEEK_DONE) {
        run.waits_for_position = false;
    } else if (event.type == VODCLIENT_EVENT_STREAM && !run.waits_for_position) {
        written = run.counter.push(bytes, write);
        run.bytes += event.size;
    } else if (event.type == VODCLIENT_EVENT_END && !run.waits_for_position) {
        run.end = play_end::complete;
    }
    if (!written)
        run.end = play_end::write_failed;
    else if (run.counter.limit_reached())
        run.end = play_end::limit;
}

// Until the end of the recording, a limit, Ctrl-C, or a failure of the connection (which is what is answered).
static vodclient_result receive(play_run &run)
{
    static constexpr uint32_t LOOK_AROUND_MS = 200;
    progress_line progress(!run.settings.quiet, run.waits_for_position ? 0 : run.info.total_size);
    uint64_t last_data_at = os_tick();
    while (run.end == play_end::running) {
        if (vodctl_is_stopped()) {
            run.end = play_end::interrupted;
            break;
        }
        vodclient_event event;
        vodclient_result result = run.session.next(&event, std::min(LOOK_AROUND_MS, run.settings.server.timeout_ms));
        if (result) {
            take_event(run, event);
            last_data_at = os_tick();
            progress.show(run.bytes, run.counter.totals().frames);
        } else if (result.status != VODCLIENT_TIMEOUT) {
            return result;
        } else if (os_tick() - last_data_at >= run.settings.server.timeout_ms) {
            result.text = "the service has sent nothing for " + std::to_string(run.settings.server.timeout_ms)
                + " ms; try again, or wait longer with --timeout";
            return result;
        }
    }
    return {};
}

// With inserted time a saved recording is longer than its header says: totals that are there are made true, where the
// output can be gone back in.
static bool write_totals(play_run &run)
{
    static constexpr uint64_t TOTALS_OFFSET = 80;
    recording_head head;
    if (sizes_of(run.play) == frame_sizes::as_they_came || run.file.is_stream() || !run.counter.recording(&head)
        || (head.total_size == 0 && head.frame_count == 0))
        return true;
    uint8_t totals[2 * sizeof(uint32_t)];
    wire_store(totals, static_cast<uint32_t>(std::min<uint64_t>(run.file.size(), UINT32_MAX)));
    wire_store(totals + sizeof(uint32_t), static_cast<uint32_t>(run.counter.totals().frames));
    return run.file.write(totals, TOTALS_OFFSET);
}

// What came is made playable also after a break; only what came as a whole gets its name.
static void finish_output(play_run &run, bool is_whole)
{
    auto write = [&run](byte_span bytes) { return run.output->write(bytes); };
    if (run.end == play_end::write_failed)
        return;
    if (!run.counter.end(write) || !run.output->complete() || !write_totals(run) || (is_whole && !run.file.finish()))
        run.end = play_end::write_failed;
}

static void report(const play_run &run)
{
    const frame_totals &totals = run.counter.totals();
    uint64_t elapsed_ms = os_tick() - run.started_at;
    if (!run.settings.json) {
        if (!run.settings.quiet)
            std::fprintf(stderr, "vodctl: %llu frames (%llu key), %llu bytes in %.1f s\n",
                         static_cast<unsigned long long>(totals.frames),
                         static_cast<unsigned long long>(totals.key_frames), static_cast<unsigned long long>(run.bytes),
                         static_cast<double>(elapsed_ms) / 1000);
        return;
    }
    json_ref object(json_object_new_object());
    json_add(object.get(), "file", run.play.file);
    json_add(object.get(), "output", run.play.output);
    json_add(object.get(), "bytes_received", static_cast<int64_t>(run.bytes));
    json_add(object.get(), "bytes_written", static_cast<int64_t>(run.file.size()));
    json_add(object.get(), "frames", static_cast<int64_t>(totals.frames));
    json_add(object.get(), "key_frames", static_cast<int64_t>(totals.key_frames));
    json_add(object.get(), "damaged_bytes", static_cast<int64_t>(totals.damaged_bytes));
    json_add(object.get(), "first_frame_ms", totals.first_ms);
    json_add(object.get(), "last_frame_ms", totals.last_ms);
    if (run.info.total_size > INT64_MAX)
        json_add_null(object.get(), "recording_bytes");
    else
        json_add(object.get(), "recording_bytes", static_cast<int64_t>(run.info.total_size));
    json_add(object.get(), "recording_frames", run.info.total_frames);
    json_add(object.get(), "recording_seconds", run.info.total_seconds);
    json_add(object.get(), "elapsed_ms", static_cast<int64_t>(elapsed_ms));
    json_add_flag(object.get(), "reached_end", run.end == play_end::complete);
    report_json(object.get());
}

static int interrupted(play_run &run)
{
    return vodctl_fail(VODCTL_INTERRUPTED, "stopped; " + run.file.leave());
}

static int write_failure(play_run &run)
{
    if (vodctl_is_stopped()) // which also ends a write that waits for a slow reader
        return interrupted(run);
    if (run.file.reader_has_gone())
        return VODCTL_OK;
    std::string reason = !run.file.error().empty() ? run.file.error() + "; check space and rights"
                                                   : "cannot write " + run.play.output + ": " + run.output->error();
    return vodctl_fail(VODCTL_LOCAL_FILE, reason + "; " + run.file.leave());
}

static int outcome(play_run &run, const vodclient_result &result)
{
    if (!result)
        return vodctl_fail({result.status, result.error_code, result.text + "; " + run.file.leave()});
    if (run.end == play_end::write_failed)
        return write_failure(run);
    if (run.end == play_end::interrupted)
        return interrupted(run);
    report(run);
    return VODCTL_OK;
}

int vodctl_play(const vodctl_settings &settings, const play_settings &play)
{
    play_run run(settings, play);
    if (int status = open_output(run); status != VODCTL_OK)
        return status;
    if (vodclient_result result = open_session(run); !result)
        return vodctl_fail(result);
    vodclient_result result = start_session(run);
    if (result)
        result = receive(run);
    finish_output(run, static_cast<bool>(result) && run.end != play_end::interrupted);
    run.session.stop();
    run.session.close();
    return outcome(run, result);
}
