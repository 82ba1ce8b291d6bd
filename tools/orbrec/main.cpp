#include "tools/common/library_watch.h"
#include "tools/orbrec/index_options.h"

extern "C" {
#include <libavutil/log.h>
}

#include <CLI/CLI.hpp>

static const char *const s_exit_statuses = "\nExit status:\n"
                                           "  0    done; verify, check: everything is in order\n"
                                           "  1    verify or check found faults\n"
                                           "  2    an input cannot be read, or is no recording\n"
                                           "  3    an output cannot be written, or is already there\n"
                                           "  4    the media cannot be converted\n"
                                           "  64   wrong arguments\n"
                                           "  130  stopped with Ctrl-C; what came until then stays in NAME.part\n";

static const char *const s_main_examples =
    "\nExamples:\n"
    "  orbrec import street.mp4 -o var/rec/ --host door1     make a recording of a video\n"
    "  orbrec info var/rec/door1_00_0_20240501080000_1.rec   what is in it\n"
    "  orbrec verify --decode var/rec/*.rec                  is all of it sound?\n"
    "  orbrec export door1_00_0_20240501080000_1.rec -o clip.mp4\n"
    "  orbrec reindex --scan var/rec                         let searches find all that is there\n"
    "  orbrec check                                          does the index fit the files?\n";

static const char *const s_import_examples =
    "\nVideo that is H.264 or H.265 without B-frames and has a key frame at least every 10 seconds is taken over as\n"
    "it is; anything else is coded anew. Audio becomes G.711 A-law. Files in a folder are named after host, channel\n"
    "and start time, HOST_CC_0_YYYYMMDDHHMMSS_N.rec; their modification time is the time of the end.\n"
    "\nExamples:\n"
    "  orbrec import street.mp4 -o var/rec/ --host door1 --channel 2\n"
    "  orbrec import *.avi -o var/rec/ --start \"2024-05-01 08:00:00\"     one after the other from eight o'clock\n"
    "  orbrec import day.mkv -o var/rec/ --codec h265 --crf 30 --split 00:10:00\n"
    "  orbrec import big.mov -o var/rec/ --size 1280x720 --fps 15 --no-audio --json\n";

static const char *const s_export_examples =
    "\nThe video is not coded anew; G.711 audio becomes AAC. To \"-\" a fragmented MP4 is written that can be played\n"
    "while it comes.\n"
    "\nExamples:\n"
    "  orbrec export door1_00_0_20240501080000_1.rec -o clip.mp4\n"
    "  orbrec export door1_00_0_20240501080000_1.rec -o - | ffplay -\n"
    "  orbrec export door1_00_0_20240501080000_1.rec -o clip.h264 --format annexb\n";

static const char *const s_info_examples = "\nExamples:\n"
                                           "  orbrec info door1_00_0_20240501080000_1.rec\n"
                                           "  orbrec info door1_00_0_20240501080000_1.rec --keys\n"
                                           "  orbrec info door1_00_0_20240501080000_1.rec --json --frames\n";

static const char *const s_verify_examples =
    "\nEach fault is printed with the offset of the frame in the file. Checked are: the file header and its totals,\n"
    "that frame numbers have no holes, time stamps never fall, sizes lead from frame to frame, key frames carry\n"
    "their parameter sets; with --decode also that each frame can be decoded.\n"
    "\nExamples:\n"
    "  orbrec verify var/rec/*.rec\n"
    "  orbrec verify --decode --json door1_00_0_20240501080000_1.rec\n";

static void import_command(CLI::App *app, import_settings *settings)
{
    CLI::App *command = app->add_subcommand("import", "Make recordings of videos: anything that FFmpeg reads");
    command->footer(std::string(s_import_examples) + s_exit_statuses);
    command->add_option("INPUT", settings->inputs, "Videos to read")->required();
    command->add_option("-o,--output", settings->output, "Folder (named files are made in it) or file to write")
        ->required();
    command->add_option("--codec", settings->codec, "auto, h264, h265, or copy to refuse coding anew (auto)")
        ->check(CLI::IsMember({"auto", "h264", "h265", "copy"}));
    command->add_option("--gop", settings->gop_seconds, "Seconds between key frames when coded anew (2)")
        ->check(CLI::Range(0.1, 10.0));
    command->add_option("--crf", settings->crf, "Quality when coded anew, smaller is better")->check(CLI::Range(0, 51));
    command->add_option("--size", settings->size, "Picture size, WIDTHxHEIGHT");
    command->add_option("--fps", settings->fps, "Pictures a second, by leaving out or repeating")
        ->check(CLI::Range(0.1, 120.0));
    command->add_flag("--no-audio", settings->no_audio, "Leave the audio out");
    command->add_option("--start", settings->start,
                        "Local time of the first picture, \"YYYY-MM-DD HH:MM:SS\" (what the file says, else its date)");
    command->add_option("--host", settings->host, "Device id for the file names (local)");
    command->add_option("--channel", settings->channel, "Channel for the file names (0)")->check(CLI::Range(0, 999));
    command->add_option("--split", settings->split, "Begin a new file after this length, seconds or hh:mm:ss");
    command->add_flag("--force", settings->force, "Replace files that are already there");
    index_store_options(command, &settings->index);
    command->add_flag("--index", settings->wants_index, "Enter what was made in the record index");
    command->add_flag("--json", settings->json, "Print what was made as JSON");
}

static void export_command(CLI::App *app, export_settings *settings)
{
    CLI::App *command = app->add_subcommand("export", "Turn a recording into an MP4 that any player reads");
    command->footer(std::string(s_export_examples) + s_exit_statuses);
    command->add_option("REC", settings->input, "Recording to read")->required();
    command->add_option("-o,--output", settings->output, "File to write, - for standard output")->required();
    command->add_option("--format", settings->format, "mp4 or annexb, the bare video stream (mp4)")
        ->check(CLI::IsMember({"mp4", "annexb"}));
    command->add_flag("--no-audio", settings->no_audio, "Leave the audio out");
    command->add_flag("--force", settings->force, "Replace the file when it is already there");
    command->add_flag("--json", settings->json, "Print what was written as JSON");
}

static void info_command(CLI::App *app, info_settings *settings)
{
    CLI::App *command = app->add_subcommand("info", "Tell what is in a recording");
    command->footer(std::string(s_info_examples) + s_exit_statuses);
    command->add_option("REC", settings->input, "Recording to read")->required();
    CLI::Option *keys = command->add_flag("--keys", settings->keys, "List the key frames");
    command->add_flag("--frames", settings->frames, "List all frames")->excludes(keys);
    command->add_flag("--json", settings->json, "Print as JSON");
}

static void verify_command(CLI::App *app, verify_settings *settings)
{
    CLI::App *command = app->add_subcommand("verify", "Look for faults in recordings");
    command->footer(std::string(s_verify_examples) + s_exit_statuses);
    command->add_option("REC", settings->inputs, "Recordings to read")->required();
    command->add_flag("--decode", settings->decode, "Decode each frame too");
    command->add_option("--max-faults", settings->faults_printed_max, "Faults told for each recording (100)");
    command->add_flag("--json", settings->json, "Print as JSON");
}

struct command_settings {
    bool is_verbose = false;
    import_settings import;
    export_settings output;
    info_settings info;
    verify_settings verify;
    index_settings index;
};

static int command_run(const CLI::App &app, const command_settings &settings)
{
    av_log_set_level(settings.is_verbose ? AV_LOG_INFO : AV_LOG_QUIET);
    os_log_set_level(settings.is_verbose ? LOG_TRACE : LOG_FATAL);
    os_fs_charset_set("UTF-8");
    orbrec_stop_install();
    library_watch_install({.program = "orbrec",
                           .status = ORBREC_MEDIA,
                           .stopped_status = ORBREC_INTERRUPTED,
                           .is_stopped = orbrec_is_stopped});
    if (app.got_subcommand("import"))
        return orbrec_import(settings.import);
    if (app.got_subcommand("export"))
        return orbrec_export(settings.output);
    if (app.got_subcommand("info"))
        return orbrec_info(settings.info);
    if (app.got_subcommand("verify"))
        return orbrec_verify(settings.verify);
    return index_commands_run(app, settings.index);
}

static int commands_run(int argc, char **argv)
try {
    CLI::App app("Makes, converts, inspects and checks recording files.", "orbrec");
    // A name that begins with a slash is a name on every host.
    app.allow_windows_style_options(false);
    command_settings settings;
    app.footer(std::string(s_main_examples) + s_exit_statuses);
    app.require_subcommand(0, 1);
    app.add_flag("-v,--verbose", settings.is_verbose, "Let FFmpeg and the libraries tell what they do");
    import_command(&app, &settings.import);
    export_command(&app, &settings.output);
    info_command(&app, &settings.info);
    verify_command(&app, &settings.verify);
    index_commands(&app, &settings.index, s_exit_statuses);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &wrong) {
        return app.exit(wrong) == 0 ? int{ORBREC_OK} : report_note(ORBREC_USAGE, wrong.what());
    }
    if (app.get_subcommands().empty())
        return orbrec_fail(ORBREC_USAGE,
                           "name a command: import, export, info, verify, index, unindex, reindex or check; --help "
                           "tells more");
    return command_run(app, settings);
} catch (const std::exception &failure) {
    return orbrec_fail(ORBREC_MEDIA, failure.what());
}

int main(int argc, char **argv)
{
    argv = os_program_start(argc, argv);
    report_start("orbrec", argc, argv);
    return report_end(commands_run(argc, argv), ORBREC_UNWRITABLE, ORBREC_FAULTS);
}
