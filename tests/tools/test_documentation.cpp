// The manual page and the bash completion: the installed copies are what
// the tool makes from its tables, the manual page names every command and
// option that the help names and groff sets it without a warning, and the
// completion completes commands, options, option values and file names in
// bash.
#include "support/run_tool.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <string>
#include <vector>

namespace {

// The commands the main help lists.
std::vector<std::string> helpCommands()
{
    const std::string help = runTool({"--help"}).out;
    const std::string list = help.substr(help.find("Commands:\n"), help.find("\nOptions:") - help.find("Commands:\n"));
    std::vector<std::string> names;
    const std::regex line("\n  ([a-z]+) ");
    for (std::sregex_iterator m(list.begin(), list.end(), line), end; m != end; ++m)
        names.push_back((*m)[1]);
    return names;
}

// The long and short options a help text lists, as "--name" and "-x".
std::set<std::string> helpOptions(const std::string& help)
{
    std::set<std::string> options;
    const std::regex option("\n  (-[A-Za-z0-9]), (--[a-z0-9-]+)|\n      (--[a-z0-9-]+)");
    for (std::sregex_iterator m(help.begin(), help.end(), option), end; m != end; ++m) {
        for (int group = 1; group <= 3; ++group)
            if ((*m)[group].matched)
                options.insert((*m)[group]);
    }
    return options;
}

// text as roff writes it: every '-' as "\-".
std::string roffed(const std::string& text)
{
    std::string out;
    for (const char c : text)
        out += c == '-' ? std::string("\\-") : std::string(1, c);
    return out;
}

// What bash completes for the words of a command line, the last being the
// one completed, in directory cwd.
std::vector<std::string> complete(const std::vector<std::string>& words, const std::string& cwd)
{
    std::string array;
    for (const std::string& w : words)
        array += " '" + w + "'";
    const std::string script = "cd '" + cwd + "' && source '" + HEXBLOCKS_COMPLETION + "' && COMP_WORDS=(" + array +
                               ") && COMP_CWORD=" + std::to_string(words.size() - 1) +
                               " && _hexblocks && printf '%s\\n' \"${COMPREPLY[@]}\"";
    const ProcessResult r = runProcess("bash", {"--norc", "-c", script});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    std::vector<std::string> lines;
    std::string line;
    for (const char c : r.out) {
        if (c == '\n') {
            if (!line.empty())
                lines.push_back(line);
            line.clear();
        } else {
            line += c;
        }
    }
    return lines;
}

} // namespace

TEST(Documentation, InstalledCopiesAreWhatTheToolMakes)
{
    ProcessResult r = runTool({"--generate", "man"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, readFileText(HEXBLOCKS_MAN_PAGE)) << "run: hexblocks --generate man > tools/hexblocks.1";
    r = runTool({"--generate", "complete-bash"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, readFileText(HEXBLOCKS_COMPLETION))
        << "run: hexblocks --generate complete-bash > tools/hexblocks.bash-completion";

    for (const std::vector<std::string>& args : {std::vector<std::string>{"--generate"},
                                                 std::vector<std::string>{"--generate", "zsh"},
                                                 std::vector<std::string>{"--generate", "man", "extra"}}) {
        r = runTool(args);
        EXPECT_EQ(r.exitCode, 2);
        EXPECT_EQ(r.out, "");
        EXPECT_NE(r.err.find("usage: hexblocks"), std::string::npos);
    }
}

TEST(Documentation, ManualPageNamesEveryCommandAndOption)
{
    const std::string page = readFileText(HEXBLOCKS_MAN_PAGE);
    const std::vector<std::string> commands = helpCommands();
    ASSERT_EQ(commands.size(), 9u);
    for (const std::string& command : commands) {
        EXPECT_NE(page.find(".SS \"hexblocks " + command + " "), std::string::npos) << command;
        const std::string help = runTool({command, "--help"}).out;
        const std::set<std::string> options = helpOptions(help);
        EXPECT_GE(options.size(), 2u) << command;
        // Each option within the command's own section.
        const std::string::size_type start = page.find(".SS \"hexblocks " + command + " ");
        const std::string section = page.substr(start, page.find(".SS", start + 1) - start);
        for (const std::string& option : options)
            EXPECT_NE(section.find("\\fB" + roffed(option) + "\\fR"), std::string::npos) << command << " " << option;
    }
    for (const std::string& option : helpOptions(runTool({"--help"}).out))
        EXPECT_NE(page.find("\\fB" + roffed(option) + "\\fR"), std::string::npos) << option;
    for (const char* section : {".SH NAME", ".SH SYNOPSIS", ".SH DESCRIPTION", ".SH COMMANDS", ".SH OPTIONS",
                                ".SH INPUTS", ".SH \"EXIT STATUS\"", ".SH EXAMPLES"})
        EXPECT_NE(page.find(section), std::string::npos) << section;
    EXPECT_NE(page.find("0 on success, 1 when a file cannot be read or written"), std::string::npos);
    EXPECT_NE(page.find("hexblocks plan fw.hex \\-\\-sectors 0x08000000:4x16K,1x64K,7x128K"), std::string::npos);
    EXPECT_NE(page.find(".TH HEXBLOCKS 1 \"\" \"hexblocks " + std::string(HEXBLOCKS_VERSION) + "\""),
              std::string::npos);
}

TEST(Documentation, GroffSetsTheManualPageWithoutWarnings)
{
    const ProcessResult r = runProcess(GROFF_PATH, {"-man", "-Tutf8", "-ww", "-z", HEXBLOCKS_MAN_PAGE});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.err, "");
    const ProcessResult text = runProcess(GROFF_PATH, {"-man", "-Tascii", HEXBLOCKS_MAN_PAGE});
    EXPECT_NE(text.out.find("--insert-crc 0x08004000:0x0803FFFC@0x0803FFFC"), std::string::npos);
    EXPECT_NE(text.out.find("1 when they differ"), std::string::npos);
}

TEST(Documentation, BashCompletesCommandsOptionsValuesAndFiles)
{
    TempDir dir;
    dir.write("firmware.hex", ":00000001FF\n");
    dir.write("flash.bin", "");
    EXPECT_EQ(complete({"hexblocks", "pl"}, dir.path()), std::vector<std::string>{"plan"});
    EXPECT_EQ(complete({"hexblocks", "d"}, dir.path()), (std::vector<std::string>{"dump", "diff"}));
    EXPECT_EQ(complete({"hexblocks", "help", "con"}, dir.path()), std::vector<std::string>{"convert"});
    EXPECT_EQ(complete({"hexblocks", "plan", "--s"}, dir.path()), std::vector<std::string>{"--sectors"});
    EXPECT_EQ(complete({"hexblocks", "convert", "--crc-"}, dir.path()), std::vector<std::string>{"--crc-endian"});
    EXPECT_EQ(complete({"hexblocks", "convert", "-O", ""}, dir.path()),
              (std::vector<std::string>{"ihex", "srec", "uf2", "ti-txt", "vmem", "mif", "coe", "c", "ihex16", "bin"}));
    EXPECT_EQ(complete({"hexblocks", "diff", "-I", "s"}, dir.path()), std::vector<std::string>{"srec"});
    EXPECT_EQ(complete({"hexblocks", "convert", "--overlap", "i"}, dir.path()), std::vector<std::string>{"identical"});
    EXPECT_EQ(complete({"hexblocks", "crc", "--algorithm", "crc32-"}, dir.path()),
              (std::vector<std::string>{"crc32-mpeg2", "crc32-bzip2"}));
    EXPECT_EQ(complete({"hexblocks", "crc", "--width", "1"}, dir.path()), std::vector<std::string>{"16"});
    EXPECT_TRUE(complete({"hexblocks", "map", "--width", "1"}, dir.path()).empty()) << "a number: nothing";
    EXPECT_EQ(complete({"hexblocks", "info", "fi"}, dir.path()), std::vector<std::string>{"firmware.hex"});
    EXPECT_EQ(complete({"hexblocks", "bin", "firmware.hex", "-o", "fl"}, dir.path()),
              std::vector<std::string>{"flash.bin"});
    EXPECT_EQ(complete({"hexblocks", "--gen"}, dir.path()), std::vector<std::string>{"--generate"});
    EXPECT_EQ(complete({"hexblocks", "--generate", ""}, dir.path()),
              (std::vector<std::string>{"man", "complete-bash"}));

    // Every option of every command's help is offered, and nothing else.
    for (const std::string& command : helpCommands()) {
        const std::set<std::string> expected = helpOptions(runTool({command, "--help"}).out);
        const std::vector<std::string> offered = complete({"hexblocks", command, "-"}, dir.path());
        EXPECT_EQ(std::set<std::string>(offered.begin(), offered.end()), expected) << command;
    }
}
