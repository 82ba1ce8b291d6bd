// The manuals against the programs: what `--help` offers stands in the manual's table, and nothing else does.
#include "tests/support/child_process.h"
#include "tests/support/document.h"
#include "tests/support/temp_folder.h"

#include <gtest/gtest.h>

#include <regex>
#include <set>

namespace {

using words = std::set<std::string>;

// Everything that looks like an option, but for those of "help", which every command has.
words options_in(const std::string &text)
{
    static const std::regex option("(^|[^\\w-])(--?[a-z][a-z0-9-]*)");
    words found;
    for (auto match = std::sregex_iterator(text.begin(), text.end(), option); match != std::sregex_iterator(); ++match)
        found.insert((*match)[2]);
    found.erase("-h");
    found.erase("--help");
    return found;
}

std::string help_of(const std::string &program, const std::string &command)
{
    temp_folder folder(temp_folder::working_directory::enter);
    std::vector<std::string> run{program_beside(program)};
    if (!command.empty())
        run.push_back(command);
    run.push_back("--help");
    child_result result = child_run(run);
    EXPECT_EQ(result.status, 0) << program << " " << command << ": " << result.err;
    return result.out;
}

// An option stands at the beginning of its line, or behind its short form there.
words options_of_help(const std::string &program, const std::string &command)
{
    static const std::regex line("\\n  (-[a-z](?:,(--[a-z][a-z0-9-]*))?|--[a-z][a-z0-9-]*)");
    std::string help = help_of(program, command);
    words found;
    for (auto match = std::sregex_iterator(help.begin(), help.end(), line); match != std::sregex_iterator(); ++match)
        found.merge(options_in((*match)[1].str().substr(0, 2) == "--" ? (*match)[1].str()
                                                                      : (*match)[1].str().substr(0, 2) + " " +
                                                                            (*match)[2].str()));
    return found;
}

words options_of_tables(const std::string &section, const std::vector<std::string> &headers)
{
    words found;
    for (const std::string &header : headers)
        for (const std::vector<std::string> &row : table_of(section, header))
            found.merge(options_in(row[0]));
    return found;
}

struct manual_row {
    const char *program, *command, *document, *section;
    std::vector<std::string> headers = {"| option | meaning |"};
};

const manual_row ROWS[] = {
    {"vodctl", "", "vodctl.md", "## Options of every command"},
    {"vodctl", "play", "vodctl.md", "## play"},
    {"vodctl", "find", "vodctl.md", "## find"},
    {"vodctl", "timeline", "vodctl.md", "## timeline"},
    {"vodctl", "links", "vodctl.md", "## links"},
    {"vodctl", "state", "vodctl.md", "## state"},
    {"orbrec", "", "orbrec.md", "## Options of every command"},
    {"orbrec", "import", "orbrec.md", "## import", {"| option | meaning | usual |"}},
    {"orbrec", "export", "orbrec.md", "## export"},
    {"orbrec", "info", "orbrec.md", "## info"},
    {"orbrec", "verify", "orbrec.md", "## verify"},
    {"orbrec", "index", "orbrec.md", "### index and reindex"},
    {"orbrec", "reindex", "orbrec.md", "### index and reindex", {"| option | meaning |", "| option of reindex | meaning |"}},
    {"orbrec", "unindex", "orbrec.md", "### unindex"},
    {"orbrec", "check", "orbrec.md", "### check"},
    {"vod_svr", "", "operations.md", "### Starting and stopping", {"| option of `vod_svr` | effect |"}},
};

bool is_built([[maybe_unused]] const std::string &program)
{
    return MANUAL_HAS_ORBREC != 0 || program != "orbrec";
}

} // namespace

TEST(Manual, TablesOfOptionsAreThoseOfHelp)
{
    for (const manual_row &row : ROWS) {
        if (!is_built(row.program))
            continue;
        SCOPED_TRACE(testing::Message() << row.program << " " << row.command);
        std::string section = section_of(document(row.document), row.section);
        EXPECT_FALSE(section.empty());
        EXPECT_EQ(options_of_tables(section, row.headers), options_of_help(row.program, row.command));
    }
}

TEST(Manual, EveryCommandOfHelpHasARow)
{
    static const std::regex command("\n  ([a-z]+) ");
    for (const char *program : {"vodctl", "orbrec"}) {
        if (!is_built(program))
            continue;
        std::string help = help_of(program, "");
        size_t begin = help.find("Subcommands:"), end = help.find("\n\n", begin);
        ASSERT_NE(begin, std::string::npos);
        std::string list = help.substr(begin, end - begin);
        words commands, rows;
        for (auto match = std::sregex_iterator(list.begin(), list.end(), command); match != std::sregex_iterator(); ++match)
            commands.insert((*match)[1]);
        for (const manual_row &row : ROWS)
            if (row.program == std::string(program) && *row.command != '\0')
                rows.insert(row.command);
        EXPECT_EQ(commands, rows) << program;
    }
}

// Anywhere in a manual, not only in its tables: an option that no program has is an old name or a slip.
TEST(Manual, NamesNoOptionThatThereIsNot)
{
    words known = {"--install", "--preset", "--prefix"}; // of programs that the manuals call
    for (const manual_row &row : ROWS)
        if (is_built(row.program))
            known.merge(options_of_help(row.program, row.command));
    for (const char *name : {"vodctl.md", "orbrec.md"})
        for (const std::string &option : options_in(document(name)))
            if (is_built("orbrec") && option.starts_with("--")) {
                EXPECT_TRUE(known.contains(option)) << name << ": " << option;
            }
}

TEST(Manual, ExitStatusesAreThoseOfHelp)
{
    static const std::regex status("(?:^|[;:,]|\n) *(\\d+) +[a-z]");
    const struct {
        const char *program, *document, *section;
    } rows[] = {{"vodctl", "vodctl.md", "## Exit status"},
                {"orbrec", "orbrec.md", "## Exit status"},
                {"vod_svr", "operations.md", "### Starting and stopping"}};
    for (const auto &row : rows) {
        if (!is_built(row.program))
            continue;
        std::string help = help_of(row.program, "");
        size_t begin = help.find("Exit status");
        ASSERT_NE(begin, std::string::npos) << row.program;
        std::string text = help.substr(begin, help.find("\n\n", begin) - begin);
        words of_help, of_manual;
        for (auto match = std::sregex_iterator(text.begin(), text.end(), status); match != std::sregex_iterator(); ++match)
            of_help.insert((*match)[1]);
        for (const std::vector<std::string> &cells :
             table_of(section_of(document(row.document), row.section), "| status | meaning |"))
            of_manual.insert(cells[0]);
        EXPECT_EQ(of_manual, of_help) << row.program;
        EXPECT_FALSE(of_help.empty()) << row.program;
    }
}
