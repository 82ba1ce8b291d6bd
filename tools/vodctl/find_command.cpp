#include "tools/vodctl/find_command.h"

#include "platform/os/os.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <limits>
#include <string>
#include <tuple>

static constexpr const char *TIMES = "A time is local to the recorder: YYYY-MM-DD, YYYY-MM-DD HH:MM[:SS], today, "
                                     "yesterday (with or without HH:MM[:SS]),\n"
                                     "now, now-2h (s, m, h, d, w). A day alone means its beginning in --from and its "
                                     "end in --to. Recordings are found by\n"
                                     "their begin; what began before --from is left out even if it runs on. Files up "
                                     "to 512000 bytes are left out by the\n"
                                     "service.";

static void declare_filter(CLI::App *app, vodclient_find_request *request, int32_t *channel)
{
    app->add_option("--host", request->host_id, "only recordings of this device (its id, up to 59 bytes)");
    app->add_option("--channel", *channel, "only this channel; -1: any")
        ->check(CLI::Range(-1, std::numeric_limits<int32_t>::max()));
    app->add_option("--type", request->file_type, "only these recording types, a bit mask; 0: any")
        ->check(CLI::Range(0, std::numeric_limits<int32_t>::max()));
}

void find_command_declare(find_command *command, CLI::App *of)
{
    find_settings &find = command->find;
    CLI::App *app = command->app = of->add_subcommand("find", "Find recordings.");
    declare_filter(app, &find.request, &find.channel);
    app->add_option("--from", command->from, "recordings that begin from this time on")->capture_default_str();
    app->add_option("--to", command->to, "and until this time")->capture_default_str();
    app->add_option("--limit", find.limit, "end after so many")
        ->check(CLI::Range(uint64_t{1}, std::numeric_limits<uint64_t>::max()));
    app->add_option("--count", find.page, "recordings to ask the service for at once")
        ->check(CLI::Range(1, VODCLIENT_PAGE_MAX))
        ->capture_default_str();
    app->add_flag("--with-open", find.with_open, "look up size and end of files that are still being written");
    app->add_flag("--csv", command->csv, "as CSV, with a line of names first");
    app->footer(TIMES);
}

static int usage(const std::string &text)
{
    return vodctl_fail(VODCTL_USAGE, text + "; see vodctl find --help");
}

static auto key_of(const vodclient_time &time)
{
    return std::tuple(time.year, time.month, time.day, time.hour, time.minute, time.second);
}

int find_command_run(find_command *command, const vodctl_settings &settings)
{
    find_settings &find = command->find;
    vodclient_time now = when_now();
    if (!when_parse(command->from, now, false, &find.request.start))
        return usage("--from: \"" + command->from + "\" is no time");
    if (!when_parse(command->to, now, true, &find.request.end))
        return usage("--to: \"" + command->to + "\" is no time");
    if (key_of(find.request.end) < key_of(find.request.start))
        return usage("--to (" + when_text(find.request.end) + ") is before --from (" +
                                   when_text(find.request.start) + ")");
    if (command->csv && settings.json)
        return usage("--csv and --json exclude each other");
    find.format = settings.json ? find_format::json : command->csv ? find_format::csv : find_format::table;
    find.request.channel = find.channel;
    return vodctl_find(settings, find);
}

// ---- Timeline -------------------------------------------------------------------------------------------------------

void timeline_command_declare(timeline_command *command, CLI::App *of)
{
    timeline_settings &timeline = command->timeline;
    CLI::App *app = command->app = of->add_subcommand("timeline", "Draw what of a day each channel has.");
    declare_filter(app, &timeline.request, &timeline.channel);
    app->add_option("--date", command->date, "the day: YYYY-MM-DD, today or yesterday")->capture_default_str();
    app->add_option("--width", timeline.columns, "columns of the terminal; $COLUMNS, else 80")
        ->check(CLI::Range(40, 1000));
    app->add_flag("--ascii", timeline.ascii, "letters instead of blocks; of itself where the locale is not UTF-8");
    app->footer(
        "Blocks: full, more than half, some, nothing recorded. Recordings that began before the day before are\n"
        "not seen.");
}

static uint32_t terminal_columns()
{
    const char *text = os_environment_get("COLUMNS");
    uint32_t columns = 0;
    if (text != nullptr)
        std::from_chars(text, text + std::char_traits<char>::length(text), columns);
    return columns >= 40 && columns <= 1000 ? columns : 80;
}

static bool locale_is_utf8()
{
    for (const char *name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char *value = os_environment_get(name);
        if (value == nullptr || *value == '\0')
            continue;
        std::string locale = value;
        std::ranges::transform(locale, locale.begin(),
                               [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
        return locale.find("utf-8") != std::string::npos || locale.find("utf8") != std::string::npos;
    }
    return false;
}

int timeline_command_run(timeline_command *command, const vodctl_settings &settings)
{
    timeline_settings &timeline = command->timeline;
    vodclient_time begin, end, now = when_now();
    if (!when_parse(command->date, now, false, &begin) || !when_parse(command->date, now, true, &end) ||
        begin.hour != 0 || end.hour != 23 || end.second != 59)
        return vodctl_fail(VODCTL_USAGE,
                           "--date: \"" + command->date + "\" is no day; see vodctl timeline --help");
    timeline.day = begin;
    timeline.request.start = day_before(begin);
    timeline.request.end = end;
    timeline.request.channel = timeline.channel;
    if (command->app->count("--width") == 0)
        timeline.columns = terminal_columns();
    timeline.ascii = timeline.ascii || !locale_is_utf8();
    return vodctl_timeline(settings, timeline);
}
