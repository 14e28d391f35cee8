#include "documentation.h"

#include <hexblocks/checksum.h>
#include "command_table.h"
#include "text_format.h"

#include <cctype>
#include <set>
#include <sstream>
#include <vector>

namespace hexblocks::cli {

namespace {

// The column where option help starts.
const size_t HELP_COLUMN = 28;

// text with every line after the first indented to column.
std::string indentedLines(const std::string& text, size_t column)
{
    std::string out;
    for (const char c : text) {
        out += c;
        if (c == '\n')
            out += std::string(column, ' ');
    }
    return out;
}

// "  -s, --sectors SECTORS" or "      --crlf".
std::string optionLabel(const option_entry_t& entry, const char* value)
{
    std::string label = entry.letter != 0 ? std::string("  -") + entry.letter + ", " : "      ";
    label += std::string("--") + entry.name;
    if (value != nullptr)
        label += std::string(" ") + value;
    return label;
}


// text with roff's special characters escaped: backslashes, hyphens (which
// roff would otherwise set as hyphens, not minus signs), and a '.' or '\''
// that starts a line.
std::string roff(const std::string& text)
{
    std::string out;
    bool lineStart = true;
    for (const char c : text) {
        if (lineStart && (c == '.' || c == '\''))
            out += "\\&";
        if (c == '\\')
            out += "\\e";
        else if (c == '-')
            out += "\\-";
        else
            out += c;
        lineStart = c == '\n';
    }
    return out;
}

// The lines of text.
std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

// Text of filled paragraphs: a blank line starts a new one.
std::string paragraphs(const std::string& text)
{
    std::string out;
    for (const std::string& line : linesOf(text))
        out += line.empty() ? ".PP\n" : roff(line) + "\n";
    return out;
}

// Text set as it is, line by line.
std::string verbatim(const std::string& text)
{
    return ".nf\n" + roff(text) + ".fi\n";
}

// One option of a command as a tagged paragraph.
std::string manualOption(const option_use_t& use)
{
    const option_entry_t& entry = optionEntry(use.id);
    const char* help = use.help != nullptr ? use.help : entry.help;
    if (help == nullptr)
        return "";
    const char* value = use.value != nullptr ? use.value : entry.value;
    std::string tag = entry.letter != 0 ? std::string("\\fB\\-") + entry.letter + "\\fR, " : "";
    tag += "\\fB" + roff(std::string("--") + entry.name) + "\\fR";
    if (value != nullptr)
        tag += " \\fI" + roff(value) + "\\fR";
    std::string joinedHelp;
    for (const std::string& line : linesOf(help))
        joinedHelp += (joinedHelp.empty() ? "" : " ") + line;
    std::string text;
    if (use.heading != nullptr)
        text += ".PP\n" + roff(use.heading) + "\n";
    return text + ".TP\n" + tag + "\n" + roff(joinedHelp) + "\n";
}

// The usage line of a command without "usage: " and its newline.
std::string synopsisOf(const command_entry_t& command)
{
    std::string usage = command.usage;
    const std::string prefix = "usage: ";
    if (usage.compare(0, prefix.size(), prefix) == 0)
        usage.erase(0, prefix.size());
    while (!usage.empty() && usage.back() == '\n')
        usage.pop_back();
    return usage;
}

// The words a value can be, from a value name such as "ihex|srec|bin";
// empty for a name that stands for something else (N, FILE, DIR|OUTPUT|-).
std::vector<std::string> valueWords(const option_use_t& use)
{
    const option_entry_t& entry = optionEntry(use.id);
    if (entry.id == option_t::ALGORITHM) {
        std::vector<std::string> names;
        for (const Checksum::algorithm_t& a : Checksum::algorithms())
            names.push_back(a.name);
        return names;
    }
    const std::string value = use.value != nullptr ? use.value : entry.value != nullptr ? entry.value : "";
    if (value.find('|') == std::string::npos)
        return {};
    for (const char c : value)
        if (std::isupper(static_cast<unsigned char>(c)))
            return {};
    std::vector<std::string> words(1);
    for (const char c : value) {
        if (c == '|')
            words.emplace_back();
        else
            words.back() += c;
    }
    return words;
}

// The spellings of an option: "-o|--output".
std::string spellings(const option_entry_t& entry)
{
    return (entry.letter != 0 ? std::string("-") + entry.letter + "|" : "") + "--" + entry.name;
}

} // namespace

std::string mainHelp()
{
    std::string help = std::string(MAIN_USAGE) + "\n" + MAIN_INTRO + "\nCommands:\n";
    const size_t column = 37;
    for (const command_entry_t& c : commands()) {
        const std::string synopsis = std::string("  ") + c.synopsis;
        help += synopsis.size() + 1 < column ? padRight(synopsis, column) : synopsis + "\n" + std::string(column, ' ');
        help += indentedLines(c.summary, column) + "\n";
    }
    return help + "\n" + MAIN_OPTIONS + "\n" + MAIN_NOTES + "\n" + EXIT_STATUS + "\n" + EXAMPLES;
}

std::string commandHelp(const command_entry_t& command)
{
    std::string help = std::string(command.usage) + "\n" + command.description + "\n";
    for (const option_use_t& use : command.options) {
        const option_entry_t& entry = optionEntry(use.id);
        const char* text = use.help != nullptr ? use.help : entry.help;
        if (text == nullptr)
            continue;
        if (use.heading != nullptr)
            help += std::string("\n") + use.heading + "\n";
        const std::string label = optionLabel(entry, use.value != nullptr ? use.value : entry.value);
        help += label.size() + 2 <= HELP_COLUMN ? padRight(label, HELP_COLUMN)
                                                 : label + "\n" + std::string(HELP_COLUMN, ' ');
        help += indentedLines(text, HELP_COLUMN) + "\n";
    }
    if (*command.notes != '\0')
        help += std::string("\n") + command.notes;
    return help;
}

std::string manualPage(const std::string& version)
{
    std::string page = ".\\\" Made by 'hexblocks --generate man' from the tool's own help.\n";
    page += ".TH HEXBLOCKS 1 \"\" \"hexblocks " + version + "\" \"User Commands\"\n";
    page += ".SH NAME\nhexblocks \\- inspect, convert, merge, check and plan firmware images\n";
    page += ".SH SYNOPSIS\n";
    for (std::string line : linesOf(MAIN_USAGE)) {
        const std::string::size_type start = line.find("hexblocks");
        page += ".br\n" + roff(line.substr(start)) + "\n";
    }
    page += ".SH DESCRIPTION\n" + paragraphs(MAIN_INTRO);
    page += ".SH COMMANDS\n";
    for (const command_entry_t& command : commands()) {
        page += ".SS \"" + roff(synopsisOf(command)) + "\"\n" + paragraphs(command.description);
        for (const option_use_t& use : command.options)
            page += manualOption(use);
        if (*command.notes != '\0')
            page += ".PP\n" + verbatim(command.notes);
    }
    page += ".SH OPTIONS\n";
    page += ".TP\n\\fB\\-h\\fR, \\fB\\-\\-help\\fR\nshow help (after a command: that command's help)\n";
    page += ".TP\n\\fB\\-V\\fR, \\fB\\-\\-version\\fR\nshow the version\n";
    page += ".TP\n\\fB\\-\\-generate\\fR \\fIman|complete\\-bash\\fR\n"
            "print this manual page or the bash completion script\n";
    page += ".SH INPUTS\n" + paragraphs(MAIN_NOTES);
    page += ".SH \"EXIT STATUS\"\n" + paragraphs(std::string(EXIT_STATUS).substr(std::string("Exit status: ").size()));
    page += ".SH EXAMPLES\n" + verbatim(std::string(EXAMPLES).substr(std::string("Examples:\n").size()));
    page += ".SH \"SEE ALSO\"\n\\fBobjcopy\\fR(1), \\fBsrec_cat\\fR(1)\n";
    return page;
}

std::string bashCompletion()
{
    std::string commandNames;
    for (const command_entry_t& command : commands())
        commandNames += (commandNames.empty() ? "" : " ") + std::string(command.name);

    std::string script =
        "# bash completion for hexblocks. Made by 'hexblocks --generate complete-bash'\n"
        "# from the tool's tables of commands and options.\n"
        "_hexblocks()\n"
        "{\n"
        "    local cur=${COMP_WORDS[COMP_CWORD]}\n"
        "    local prev=${COMP_WORDS[COMP_CWORD-1]}\n"
        "    COMPREPLY=()\n"
        "    if [ \"$COMP_CWORD\" -eq 1 ]; then\n"
        "        COMPREPLY=($(compgen -W \"" + commandNames + " help --help --version --generate\" -- \"$cur\"))\n"
        "        return\n"
        "    fi\n"
        "    local options=\n"
        "    case ${COMP_WORDS[1]} in\n"
        "    help)\n"
        "        [ \"$COMP_CWORD\" -eq 2 ] && COMPREPLY=($(compgen -W \"" + commandNames + "\" -- \"$cur\"))\n"
        "        return\n"
        "        ;;\n"
        "    --generate)\n"
        "        [ \"$COMP_CWORD\" -eq 2 ] && COMPREPLY=($(compgen -W \"man complete-bash\" -- \"$cur\"))\n"
        "        return\n"
        "        ;;\n";
    for (const command_entry_t& command : commands()) {
        std::string words;
        std::string values;
        for (const option_use_t& use : command.options) {
            const option_entry_t& entry = optionEntry(use.id);
            if (entry.help == nullptr && use.help == nullptr)
                continue;
            words += (words.empty() ? "" : " ") + std::string("--") + entry.name;
            if (entry.letter != 0)
                words += std::string(" -") + entry.letter;
            if (entry.value == nullptr)
                continue;
            const std::vector<std::string> choices = valueWords(use);
            std::string list;
            for (const std::string& w : choices)
                list += (list.empty() ? "" : " ") + w;
            const bool file = entry.id == option_t::OUTPUT;
            values += "        " + spellings(entry) + ")\n";
            if (!choices.empty())
                values += "            COMPREPLY=($(compgen -W \"" + list + "\" -- \"$cur\"))\n";
            else if (file)
                values += "            COMPREPLY=($(compgen -f -- \"$cur\"))\n";
            values += "            return\n            ;;\n";
        }
        script += "    " + std::string(command.name) + ")\n";
        script += "        case $prev in\n" + values + "        esac\n";
        script += "        options=\"" + words + "\"\n        ;;\n";
    }
    script += "    esac\n"
              "    if [[ $cur == -* ]]; then\n"
              "        COMPREPLY=($(compgen -W \"$options\" -- \"$cur\"))\n"
              "    else\n"
              "        COMPREPLY=($(compgen -f -- \"$cur\"))\n"
              "    fi\n"
              "}\n"
              "complete -o filenames -o bashdefault -F _hexblocks hexblocks\n";
    return script;
}

} // namespace hexblocks::cli
