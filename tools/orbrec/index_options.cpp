#include "tools/orbrec/index_options.h"

static const char *const s_index_examples =
    "\nEach recording is entered with its path in full, begin and end, device, channel, type, size and MD5. What is\n"
    "entered already and has not changed is left as it is. One that is still being written is entered without an end.\n"
    "\nExamples:\n"
    "  orbrec index var/rec/*.rec --root /var/lib/win32-vod     into the index of that service\n"
    "  orbrec index clip.rec --host door1 --channel 2           for a name that does not tell\n"
    "  orbrec index var/rec/*.rec --store lmdb:/srv/index --json\n";

static const char *const s_unindex_examples =
    "\nThe recordings stay where they are; searches do not find them any more.\n"
    "\nExamples:\n"
    "  orbrec unindex var/rec/door1_00_0_20240501080000_1.rec\n"
    "  orbrec unindex 'recordings\\door1_00_0_20240501080000_1.rec' --root /var/lib/win32-vod\n";

static const char *const s_reindex_examples =
    "\nLike index, for all recordings below folders. It can be stopped at any time: run again it goes on where it\n"
    "ended, and reads in full only what is new or changed.\n"
    "\nExamples:\n"
    "  orbrec reindex --scan /srv/recordings --root /var/lib/win32-vod\n"
    "  orbrec reindex --scan a --scan b --ending rec --ending orb --md5\n";

static const char *const s_check_examples =
    "\nFinds entries without a file, files without an entry, sizes and times that differ, and entries that do not fit\n"
    "together. --repair enters what is missing, brings up to date what differs, and hides entries whose file is gone\n"
    "from searches. It never deletes a recording.\n"
    "\nExamples:\n"
    "  orbrec check --root /var/lib/win32-vod\n"
    "  orbrec check --scan /srv/recordings --repair\n"
    "  orbrec check --json --md5\n";

void index_store_options(CLI::App *command, store_settings *store)
{
    command->add_option("--store", store->store,
                        "Address of the index: lmdb:DIR or postgresql://... (what the service uses)");
    command->add_option("--root", store->root, "The service's folder (the working directory, where it is one)");
}

static void value_options(CLI::App *command, index_command *settings)
{
    index_store_options(command, &settings->store);
    command->add_option("--host", settings->host, "Device id (what the name says)");
    command->add_option("--channel", settings->channel, "Channel (what the name says)")->check(CLI::Range(0, 999999));
    command->add_option("--type", settings->type, "Recording type, a bit mask (what the name says, 1 for 0)")
        ->check(CLI::Range(1, 65535));
    command->add_flag("--md5", settings->md5, "Read all files in full, also those that look unchanged");
    command->add_flag("--json", settings->json, "Print what was done as JSON");
}

static void ending_option(CLI::App *command, std::vector<std::string> *endings)
{
    command->add_option("--ending", *endings, "Ending of the names below --scan (rec)")->allow_extra_args(false);
}

static void check_options(CLI::App *command, check_command *settings)
{
    index_store_options(command, &settings->store);
    command
        ->add_option("--scan", settings->folders,
                     "Look for files without an entry in this folder, and for files of "
                     "entries only there")
        ->allow_extra_args(false);
    ending_option(command, &settings->endings);
    command->add_option("--host", settings->hosts, "Look for the files of this device's entries only")
        ->allow_extra_args(false);
    command->add_flag("--md5", settings->md5, "Compare MD5 too: reads every file");
    command->add_flag("--repair", settings->repair, "Mend what can be mended");
    command->add_flag("--json", settings->json, "Print what was found as JSON");
}

void index_commands(CLI::App *app, index_settings *settings, const std::string &exit_statuses)
{
    CLI::App *index = app->add_subcommand("index", "Enter recordings in the record index, so that searches find them");
    index->footer(s_index_examples + exit_statuses);
    index->add_option("REC", settings->index.files, "Recordings to enter")->required();
    value_options(index, &settings->index);

    CLI::App *unindex = app->add_subcommand("unindex", "Take recordings out of the record index");
    unindex->footer(s_unindex_examples + exit_statuses);
    unindex->add_option("REC", settings->unindex.files, "Recordings, as files or as searches show them")->required();
    index_store_options(unindex, &settings->unindex.store);
    unindex->add_flag("--json", settings->unindex.json, "Print what was done as JSON");

    CLI::App *reindex = app->add_subcommand("reindex", "Enter all recordings below folders in the record index");
    reindex->footer(s_reindex_examples + exit_statuses);
    reindex->add_option("--scan", settings->reindex.folders, "Folder to look through")
        ->required()
        ->allow_extra_args(false);
    ending_option(reindex, &settings->reindex.endings);
    value_options(reindex, &settings->reindex);

    CLI::App *check = app->add_subcommand("check", "Compare the record index with the files");
    check->footer(s_check_examples + exit_statuses);
    check_options(check, &settings->check);
}

int index_commands_run(const CLI::App &app, const index_settings &settings)
{
    if (app.got_subcommand("index"))
        return orbrec_index(settings.index);
    if (app.got_subcommand("unindex"))
        return orbrec_unindex(settings.unindex);
    if (app.got_subcommand("reindex"))
        return orbrec_reindex(settings.reindex);
    return orbrec_check(settings.check);
}
