// vodctl: the command line of the recording-access service.
#include "platform/os/os.h"
#include "tools/vodctl/find_command.h"
#include "tools/vodctl/values.h"
#include "tools/vodctl/vodctl.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <limits>
#include <new>

static constexpr const char *FOOTER =
    "Exit status: 0 done; 1 the service refused; 2 cannot connect; 3 the connection was lost, timed out or is no\n"
    "recording service; 4 a local file cannot be written; 64 wrong usage; 130 stopped by Ctrl-C.\n"
    "A reader that closes the pipe behind \"-o -\" ends vodctl with 0.\n\n"
    "Examples:\n"
    "  vodctl play 'D:\\rec\\ch1_20240501100000_20240501110000_1.rec' -o ch1.rec\n"
    "  vodctl play ch1.rec --seek-time 0:10:00 --duration 60 -o minute.mp4\n"
    "  vodctl play ch1.rec --format mp4 -o - | ffplay -\n"
    "  vodctl find --host recorder-1 --channel 3 --from yesterday --to now\n"
    "  vodctl timeline --date today\n"
    "  vodctl --server recorder:7131 --json links";

namespace {
struct command_line {
    CLI::App app{"Finds and plays recordings of a recording-access service and asks what it is doing.", "vodctl"};
    vodctl_settings settings;
    play_settings play;
    std::string server = "127.0.0.1:7131", format, seek_time, duration, state_name = VODCLIENT_STATE_FROM_NET;
    double timeout_seconds = 10;
    int seek_percent = 0, seek_kilobyte = 0;
    find_command find;
    timeline_command timeline;
    CLI::App *play_command = nullptr, *state_command = nullptr, *links_command = nullptr;
};
} // namespace

static void declare_global(command_line *line)
{
    CLI::App &app = line->app;
    // A name that begins with a slash is a name on every host.
    app.allow_windows_style_options(false);
    app.add_option("--server", line->server, "the service, HOST[:PORT]")->envname("VOD_SERVER")->capture_default_str();
    app.add_flag("--json", line->settings.json, "results as JSON on standard output");
    app.add_option("--timeout", line->timeout_seconds, "seconds to wait for the service")
        ->check(CLI::Range(0.001, 86400.0))
        ->capture_default_str();
    app.add_flag("-q,--quiet", line->settings.quiet, "no progress and no summary");
    app.footer(FOOTER);
    app.require_subcommand(1);
    app.fallthrough();
}

static void declare_play(command_line *line)
{
    CLI::App *play = line->play_command = line->app.add_subcommand("play", "Play a recording into a file or a pipe.");
    play->add_option("FILE", line->play.file, "the recording as the service names it, UTF-8")->required();
    play->add_option("-o,--output", line->play.output, "where to write it; \"-\" is standard output")->required();
    play->add_flag("--force", line->play.force, "replace the output when it is already there");
    play->add_option("--format", line->format, "rec (as recorded), annexb (bare video) or mp4; by the extension of -o");
    auto *percent = play->add_option("--seek-percent", line->seek_percent, "begin at this part of the recording's time")
                        ->check(CLI::Range(0, 100));
    auto *time =
        play->add_option("--seek-time", line->seek_time, "begin at this time, seconds or hh:mm:ss")->excludes(percent);
    auto *byte = play->add_option("--seek-byte", line->seek_kilobyte, "begin at this kilobyte")
                     ->check(CLI::Range(0, std::numeric_limits<int>::max()))
                     ->excludes(percent)
                     ->excludes(time);
    play->add_flag("--reverse", line->play.reverse, "key frames, last to first, from the end or a --seek-time on")
        ->excludes(byte);
    play->add_flag("--abs-time", line->play.insert_abstime, "have absolute time inserted where the recording lacks it");
    play->add_option("--duration", line->duration, "end after this time of the recording, seconds or hh:mm:ss");
    play->add_option("--frames", line->play.frames_max, "end after this many frames")
        ->check(CLI::Range(uint64_t{1}, std::numeric_limits<uint64_t>::max()));
}

static void declare_questions(command_line *line)
{
    line->state_command = line->app.add_subcommand("state", "What is being played and downloaded.");
    line->state_command->add_option("--xml-file", line->state_name,
                                    "have the service write it to a file of this name on its side instead");
    line->links_command = line->app.add_subcommand("links", "How many links of each kind the service has.");
}

static int usage(const std::string &text)
{
    return vodctl_fail(VODCTL_USAGE, text + "; see vodctl --help");
}

// Fills `*to` from a time option that may be absent; false when it is none or longer than the service can be asked for.
static bool take_time(const std::string &text, std::optional<int32_t> *to)
{
    int64_t ms = 0;
    if (text.empty())
        return true;
    if (!time_ms_parse(text, &ms) || ms > std::numeric_limits<int32_t>::max())
        return false;
    *to = static_cast<int32_t>(ms);
    return true;
}

static int take_play(command_line *line)
{
    play_settings &play = line->play;
    std::optional<int32_t> duration;
    if (!take_time(line->seek_time, &play.seek_ms))
        return usage("--seek-time wants seconds or hh:mm:ss, at most 596 hours");
    if (!take_time(line->duration, &duration) || duration == 0)
        return usage("--duration wants seconds or hh:mm:ss, more than 0 and at most 596 hours");
    play.duration_ms = duration.value_or(0);
    if (line->play_command->count("--seek-percent") != 0)
        play.seek_percent = line->seek_percent;
    if (line->play_command->count("--seek-byte") != 0)
        play.seek_kilobyte = line->seek_kilobyte;
    play.format = format_of_name(play.output);
    if (!line->format.empty() && !format_parse(line->format, &play.format))
        return usage("--format is rec, annexb or mp4");
    if (play.output.empty() || play.file.empty())
        return usage("FILE and -o must not be empty");
    if (play.output == "-" && line->settings.json)
        return usage("--json and -o - both want standard output; name a file");
    if (play.output == "-" && os_is_terminal(1))
        return usage("standard output is a terminal; pipe it somewhere or name a file with -o");
    return VODCTL_OK;
}

static int run(command_line *line)
{
    if (!server_parse(line->server, &line->settings.server))
        return usage("--server wants HOST or HOST:PORT");
    line->settings.server.timeout_ms = static_cast<uint32_t>(line->timeout_seconds * 1000);
    if (line->state_command->parsed())
        return vodctl_state(line->settings, line->state_name);
    if (line->links_command->parsed())
        return vodctl_links(line->settings);
    if (line->find.app->parsed())
        return find_command_run(&line->find, line->settings);
    if (line->timeline.app->parsed())
        return timeline_command_run(&line->timeline, line->settings);
    if (int status = take_play(line); status != VODCTL_OK)
        return status;
    return vodctl_play(line->settings, line->play);
}

// Help or what is wrong, in the words of the parser.
static int parse_failed(const CLI::App &app, const CLI::ParseError &error)
{
    if (app.exit(error) == 0)
        return VODCTL_OK;
    return report_note(VODCTL_USAGE, error.what());
}

static int commands_run(int argc, char **argv)
{
    try {
        command_line line;
        declare_global(&line);
        declare_play(&line);
        find_command_declare(&line.find, &line.app);
        timeline_command_declare(&line.timeline, &line.app);
        declare_questions(&line);
        try {
            line.app.parse(argc, argv);
        } catch (const CLI::ParseError &error) {
            return parse_failed(line.app, error);
        }
        return run(&line);
    } catch (const std::bad_alloc &) {
        return vodctl_fail(VODCTL_INCOMPLETE, "out of memory");
    }
}

int main(int argc, char **argv)
{
    argv = os_program_start(argc, argv);
    report_start("vodctl", argc, argv);
    vodctl_signals_install();
    os_log_set_level(LOG_FATAL); // what went wrong is said by the commands, in words
    return report_end(commands_run(argc, argv), VODCTL_LOCAL_FILE);
}
