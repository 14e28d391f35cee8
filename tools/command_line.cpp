#include "command_line.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <initializer_list>
#include <iostream>
#include <optional>
#include <utility>

#include <getopt.h>

namespace hexblocks::cli {

int usageError(const std::string& message, const char* usage)
{
    std::cerr << PROGRAM << ": " << message << "\n"
              << usage << "Try 'hexblocks --help' for more information." << std::endl;
    return EXIT_USAGE;
}

namespace {

bool parseCount(const char* text, size_t low, size_t high, size_t& value)
{
    if (text == nullptr || *text == '\0' || *text == '-' || *text == '+')
        return false;
    char* end = nullptr;
    errno = 0;
    const unsigned long long parsed = std::strtoull(text, &end, 10);
    if (errno != 0 || *end != '\0' || parsed < low || parsed > high)
        return false;
    value = static_cast<size_t>(parsed);
    return true;
}

// The option getopt_long just refused, as the user wrote it.
std::string offendingOption(char** argv)
{
    const std::string last = argv[optind - 1];
    if (last.compare(0, 2, "--") == 0)
        return last.substr(0, last.find('='));
    if (optopt != 0)
        return std::string("-") + static_cast<char>(optopt);
    return last;
}

// Checks convert's operands and output. Returns EXIT_OK, or the exit code of
// a usage error after printing it.
int checkConvertLine(const command_entry_t& command, const std::vector<std::string>& operands, options_t& options)
{
    if (options.output.empty())
        return usageError("missing -o OUTPUT", command.usage);
    for (const std::string& operand : operands) {
        input_spec_t input;
        std::string error;
        if (!parseInput(operand, options.hasInputFormat ? &options.inputFormat : nullptr, options.reading, input, error))
            return usageError(error, command.usage);
    }
    if (!options.hasOutputFormat) {
        if (options.output == "-")
            return usageError("--output-format is needed to write to standard output", command.usage);
        const std::optional<file_format_t> named = formatByExtension(options.output);
        if (!named || !formatInfo(*named).writable)
            return usageError("cannot tell the output format from '" + options.output + "': use --output-format " +
                                  formatWords(true, "|"),
                              command.usage);
        options.outputFormat = *named;
    }
    options.save.format = options.outputFormat;
    return EXIT_OK;
}

// The checksum options as given: a named algorithm, or the parameters of a
// CRC of the user's own.
struct crc_choice_t {
    bool named = false;
    bool custom = false;
    bool hasWidth = false;
    bool hasPoly = false;
    Checksum::crc_model_t model{32, 0, 0, false, false, 0};
};

// The value text names in names; false when it names none.
template <typename Value>
bool valueByName(const std::string& text, std::initializer_list<std::pair<const char*, Value>> names, Value& value)
{
    for (const auto& n : names) {
        if (text == n.first) {
            value = n.second;
            return true;
        }
    }
    return false;
}

// START:END, END exclusive: START up to 0xFFFFFFFF, END above START and up
// to 0x100000000.
bool parseRange(const std::string& text, range_t& range)
{
    const std::string::size_type colon = text.find(':');
    uint64_t start = 0, end = 0;
    if (colon == std::string::npos || !parseNumber(text.substr(0, colon), 0, 0xFFFFFFFF, start) ||
        !parseNumber(text.substr(colon + 1), 1, 0x100000000ull, end) || end <= start)
        return false;
    range = range_t{static_cast<uint32_t>(start), end};
    return true;
}

// A number with an optional sign, of at most 0xFFFFFFFF either way.
bool parseSigned(const std::string& text, int64_t& value)
{
    const bool negative = !text.empty() && text[0] == '-';
    const bool sign = !text.empty() && (text[0] == '-' || text[0] == '+');
    uint64_t magnitude = 0;
    if (!parseNumber(text.substr(sign ? 1 : 0), 0, 0xFFFFFFFF, magnitude))
        return false;
    value = negative ? -static_cast<int64_t>(magnitude) : static_cast<int64_t>(magnitude);
    return true;
}

const char RANGE_FORM[] = " (START:END, END exclusive, above START and at most 0x100000000)";

// Parses an edit option of convert into options.edits. Returns EXIT_OK, or
// the exit code of a usage error after printing it.
int parseEdit(option_t option, const std::string& text, bool followsCrop, const command_entry_t& command,
              options_t& options)
{
    edit_t edit;
    range_t range{0, 0};
    switch (option) {
    case option_t::OFFSET:
        edit.kind = edit_t::kind_t::OFFSET;
        edit.option = "--offset " + text;
        if (!parseSigned(text, edit.delta))
            return usageError("invalid offset '" + text + "' (-0xFFFFFFFF to 0xFFFFFFFF)", command.usage);
        break;
    case option_t::CROP:
    case option_t::EXCLUDE:
    case option_t::FILL_RANGE: {
        const std::string name = std::string("--") + optionEntry(option).name;
        if (!parseRange(text, range))
            return usageError("invalid range '" + text + "' for " + name + RANGE_FORM, command.usage);
        if (option == option_t::CROP && followsCrop) {
            options.edits.back().ranges.push_back(range);
            options.edits.back().option += " " + name + " " + text;
            return EXIT_OK;
        }
        edit.kind = option == option_t::CROP      ? edit_t::kind_t::CROP
                  : option == option_t::EXCLUDE   ? edit_t::kind_t::EXCLUDE
                                                  : edit_t::kind_t::FILL_RANGE;
        edit.option = name + " " + text;
        edit.ranges.push_back(range);
        break;
    }
    case option_t::SWAP:
        edit.kind = edit_t::kind_t::SWAP;
        edit.option = "--swap " + text;
        if (text != "2" && text != "4")
            return usageError("invalid word size '" + text + "' for --swap (2 or 4)", command.usage);
        edit.wordSize = text == "2" ? 2 : 4;
        break;
    default: {
        const bool digest = option == option_t::INSERT_DIGEST;
        const std::string name = digest ? "--insert-digest" : "--insert-crc";
        edit.kind = digest ? edit_t::kind_t::INSERT_DIGEST : edit_t::kind_t::INSERT_CRC;
        edit.option = name + " " + text;
        const std::string::size_type at = text.find('@');
        uint64_t address = 0;
        if (at == std::string::npos || !parseRange(text.substr(0, at), range) ||
            !parseNumber(text.substr(at + 1), 0, 0xFFFFFFFF, address))
            return usageError("invalid " + name + " '" + text +
                                  "' (START:END@ADDRESS, END exclusive and at most 0x100000000)",
                              command.usage);
        edit.ranges.push_back(range);
        edit.address = static_cast<uint32_t>(address);
        break;
    }
    }
    options.edits.push_back(edit);
    return EXIT_OK;
}

// Parses the parameters of a CRC of the user's own. Returns EXIT_OK, or the
// exit code of a usage error after printing it.
int parseCrcParameter(option_t option, const std::string& text, const command_entry_t& command, crc_choice_t& crc)
{
    const bool width = option == option_t::CRC_WIDTH;
    const char* name = width                    ? "width"
                     : option == option_t::POLY ? "polynomial"
                     : option == option_t::INIT ? "initial value"
                                                : "final XOR";
    uint64_t number = 0;
    if (!parseNumber(text, width ? 8 : 0, width ? 32 : 0xFFFFFFFF, number) ||
        (width && number != 8 && number != 16 && number != 32))
        return usageError(std::string("invalid CRC ") + name + " '" + text + "'" + (width ? " (8, 16 or 32)" : ""),
                          command.usage);
    crc.custom = true;
    const uint32_t v = static_cast<uint32_t>(number);
    if (width) {
        crc.model.width = v;
        crc.hasWidth = true;
    } else if (option == option_t::POLY) {
        crc.model.poly = v;
        crc.hasPoly = true;
    } else {
        (option == option_t::INIT ? crc.model.init : crc.model.xorOut) = v;
    }
    return EXIT_OK;
}

// The state of parsing besides the options: what is read once everything
// is known, and what joins options that follow each other.
struct parse_state_t {
    crc_choice_t crc;
    std::string sectors; // plan --sectors, read once the page size is known
    bool hasAt = false;
    option_t previous = option_t::HELP; // the option before, to join --crop options that follow each other
};

// Applies one option with its value (nullptr for a flag). Returns EXIT_OK,
// or the exit code of a usage error after printing it.
int applyOption(option_t option, const char* value, const command_entry_t& command, options_t& options, parse_state_t& state)
{
    const std::string text = value != nullptr ? value : "";
    uint64_t number = 0;
    switch (option) {
    case option_t::HELP: options.help = true; break;
    case option_t::ONE_BLOCK: options.oneBlock = true; break;
    case option_t::STRICT: options.strict = true; break;
    case option_t::FULL_FORMAT: break;
    case option_t::JSON: options.json = true; break;
    case option_t::SVG: options.svg = true; break;
    case option_t::REVERSE: options.reverse = true; break;
    case option_t::OUTPUT: options.output = text; break;
    case option_t::CRLF: options.save.crlf = true; break;
    case option_t::KEEP_BLANK: options.keepBlank = true; break;
    case option_t::REFLECT_IN: state.crc.custom = state.crc.model.reflectIn = true; break;
    case option_t::REFLECT_OUT: state.crc.custom = state.crc.model.reflectOut = true; break;
    case option_t::SECTORS: state.sectors = text; break;
    case option_t::WIDTH:
        if (!parseCount(value, 16, 1000, options.width))
            return usageError("invalid width '" + text + "' (16 to 1000)", command.usage);
        break;
    case option_t::BLOCK:
        if (!parseCount(value, 0, static_cast<size_t>(-1), options.block))
            return usageError("invalid block number '" + text + "'", command.usage);
        options.hasBlock = true;
        break;
    case option_t::OFFSET:
    case option_t::CROP:
    case option_t::EXCLUDE:
    case option_t::FILL_RANGE:
    case option_t::SWAP:
    case option_t::INSERT_CRC:
    case option_t::INSERT_DIGEST:
        return parseEdit(option, text, state.previous == option_t::CROP, command, options);
    case option_t::OUTPUT_FORMAT:
    case option_t::INPUT_FORMAT: {
        const bool output = option == option_t::OUTPUT_FORMAT;
        const std::optional<file_format_t> named = formatByName(text);
        if (!named || !(output ? formatInfo(*named).writable : formatInfo(*named).readable))
            return usageError(std::string("invalid ") + (output ? "output" : "input") + " format '" + text + "' (" +
                                  formatWords(output, ", ", " or ") + ")",
                              command.usage);
        (output ? options.outputFormat : options.inputFormat) = *named;
        (output ? options.hasOutputFormat : options.hasInputFormat) = true;
        break;
    }
    case option_t::WORD_WIDTH:
        if (!parseNumber(text, 8, 64, number) || (number != 8 && number != 16 && number != 32 && number != 64))
            return usageError("invalid word width '" + text + "' (8, 16, 32 or 64)", command.usage);
        options.save.wordWidth = static_cast<unsigned>(number);
        options.reading.wordWidth = options.save.wordWidth;
        break;
    case option_t::FAMILY: {
        const std::optional<uint32_t> family = uf2FamilyByName(text);
        if (!family)
            return usageError("invalid UF2 family '" + text + "' (a name such as rp2040, or a number such as 0xE48BFF56)",
                              command.usage);
        options.save.family = *family;
        options.reading.family = *family;
        break;
    }
    case option_t::ARRAY_NAME:
        options.save.name = text;
        break;
    case option_t::RECORD_SIZE:
        if (!parseNumber(text, 1, 255, number))
            return usageError("invalid record size '" + text + "' (1 to 255)", command.usage);
        options.save.recordSize = static_cast<unsigned>(number);
        break;
    case option_t::ADDRESSING:
        if (!valueByName(text, {{"linear", addressing_t::LINEAR}, {"segment", addressing_t::SEGMENT}},
                         options.save.addressing))
            return usageError("invalid addressing '" + text + "' (linear or segment)", command.usage);
        break;
    case option_t::ADDRESS_SIZE:
        if (!parseNumber(text, 2, 4, number))
            return usageError("invalid address size '" + text + "' (2, 3 or 4)", command.usage);
        options.save.addressSize = static_cast<unsigned>(number);
        break;
    case option_t::FILL:
        if (!parseNumber(text, 0, 255, number))
            return usageError("invalid fill byte '" + text + "' (0 to 255, or 0x00 to 0xFF)", command.usage);
        options.save.fill = static_cast<uint8_t>(number);
        break;
    case option_t::OVERLAP: {
        using policy_t = overlap_policy_t;
        if (!valueByName(text, {{"error", policy_t::ERROR}, {"first", policy_t::FIRST}, {"last", policy_t::LAST},
                                {"identical", policy_t::IDENTICAL}},
                         options.merge.overlap))
            return usageError("invalid overlap policy '" + text + "' (error, first, last or identical)", command.usage);
        options.reading.overlap = options.merge.overlap;
        break;
    }
    case option_t::START_ADDRESS: {
        using policy_t = start_policy_t;
        if (!valueByName(text, {{"error", policy_t::ERROR}, {"first", policy_t::FIRST}, {"last", policy_t::LAST},
                                {"drop", policy_t::DROP}},
                         options.merge.start))
            return usageError("invalid start address policy '" + text + "' (error, first, last or drop)",
                              command.usage);
        break;
    }
    case option_t::ALGORITHM:
        options.digest = Digest::findAlgorithm(text);
        if (!options.digest && !Checksum::findAlgorithm(text, options.algorithm))
            return usageError("unknown algorithm '" + text + "' (see 'hexblocks crc --help')", command.usage);
        state.crc.named = true;
        break;
    case option_t::CRC_ENDIAN:
        if (!valueByName(text, {{"little", Checksum::byte_order_t::LITTLE}, {"big", Checksum::byte_order_t::BIG}},
                         options.crcOrder))
            return usageError("invalid byte order '" + text + "' for --crc-endian (little or big)", command.usage);
        break;
    case option_t::RANGE:
        if (!parseRange(text, options.range))
            return usageError("invalid range '" + text + "'" + RANGE_FORM, command.usage);
        options.hasRange = true;
        break;
    case option_t::CRC_WIDTH:
    case option_t::POLY:
    case option_t::INIT:
    case option_t::XOROUT:
        return parseCrcParameter(option, text, command, state.crc);
    case option_t::PAGE_SIZE:
        if (!FlashPlan::parseSize(text, options.geometry.pageSize))
            return usageError("invalid page size '" + text + "' (1 to 0xFFFFFFFF, K or M allowed)", command.usage);
        break;
    case option_t::ERASED:
        if (!parseNumber(text, 0, 255, number))
            return usageError("invalid erased value '" + text + "' (0 to 255, or 0x00 to 0xFF)", command.usage);
        options.geometry.erased = static_cast<uint8_t>(number);
        break;
    case option_t::AT:
        if (!parseNumber(text, 0, 0xFFFFFFFF, number))
            return usageError("invalid address '" + text + "' for --at (0 to 0xFFFFFFFF)", command.usage);
        options.dumpAddress = static_cast<uint32_t>(number);
        state.hasAt = true;
        break;
    case option_t::JOIN:
        if (!parseNumber(text, 0, 0xFFFFFFFF, number))
            return usageError("invalid --join '" + text + "' (0 to 0xFFFFFFFF)", command.usage);
        options.diff.join = static_cast<uint32_t>(number);
        break;
    }
    return EXIT_OK;
}

// Settles the checksum: the named one, crc32 by default, or a CRC of the
// user's own. Returns EXIT_OK, or the exit code of a usage error after
// printing it.
int chooseChecksum(const crc_choice_t& crc, const command_entry_t& command, options_t& options)
{
    // --algorithm serves both kinds of stored value: each must find its own.
    const auto stores = [&options](edit_t::kind_t kind) {
        return std::any_of(options.edits.begin(), options.edits.end(), [kind](const edit_t& e) { return e.kind == kind; });
    };
    if (options.digest && stores(edit_t::kind_t::INSERT_CRC))
        return usageError(std::string("--insert-crc stores a CRC or sum, and --algorithm names the digest ") +
                              Digest::algorithmName(*options.digest),
                          command.usage);
    if (crc.named && !options.digest && stores(edit_t::kind_t::INSERT_DIGEST))
        return usageError("--insert-digest stores a digest, and --algorithm names the checksum " +
                              options.algorithm.name + " (sha256 or sha512)",
                          command.usage);
    if (!crc.custom)
        return EXIT_OK;
    if (crc.named)
        return usageError("--algorithm and a CRC of your own (--width, --poly, ...) exclude each other", command.usage);
    if (!crc.hasWidth || !crc.hasPoly)
        return usageError("a CRC of your own needs --width and --poly", command.usage);
    std::string reason;
    if (!Checksum::checkModel(crc.model, reason))
        return usageError(reason, command.usage);
    options.algorithm = Checksum::algorithm_t{"custom", Checksum::kind_t::CRC, crc.model, 0};
    return EXIT_OK;
}

// Checks the operands against the command's, and what needs all options
// known. Returns EXIT_OK, or the exit code of a usage error after printing it.
int checkOperands(const command_entry_t& command, const std::vector<std::string>& operands, const parse_state_t& state,
                  options_t& options)
{
    const size_t wanted = command.operands.size();
    if (operands.size() < wanted)
        return usageError(std::string("missing ") + command.operands[operands.size()], command.usage);
    if (!command.variadic && operands.size() > wanted)
        return usageError("unexpected argument '" + operands[wanted] + "'", command.usage);
    if (std::count(operands.begin(), operands.end(), "-") > 1)
        return usageError("standard input ('-') can be read only once", command.usage);
    options.file = operands[0];
    options.inputs = operands;
    const std::string name = command.name;
    if (name == "convert")
        return checkConvertLine(command, operands, options);
    if (name == "map" && !options.output.empty() && !options.svg)
        return usageError("-o writes the SVG picture: add --svg", command.usage);
    if (name == "verify" && !state.hasAt)
        return usageError("missing --at ADDRESS", command.usage);
    if (name == "plan") {
        if (state.sectors.empty())
            return usageError("missing --sectors", command.usage);
        const result_t parsed = FlashPlan::parseSectors(state.sectors, options.geometry);
        if (!parsed)
            return usageError("invalid --sectors '" + state.sectors + "': " + parsed.reason, command.usage);
    }
    return EXIT_OK;
}

} // namespace

int parseCommandLine(const command_entry_t& command, int argc, char** argv, options_t& options)
{
    // A leading ':' makes getopt report a missing value apart from an unknown
    // option; without '+' options may also follow the file name. Options
    // with a letter come back as it, the others as 256 + their id.
    std::string shortOptions = ":";
    std::vector<option> longOptions;
    for (const option_use_t& use : command.options) {
        const option_entry_t& entry = optionEntry(use.id);
        const int hasValue = entry.value != nullptr ? required_argument : no_argument;
        if (entry.letter != 0)
            shortOptions += std::string(1, entry.letter) + (hasValue == required_argument ? ":" : "");
        longOptions.push_back({entry.name, hasValue, nullptr, entry.letter != 0 ? entry.letter : 256 + static_cast<int>(entry.id)});
    }
    longOptions.push_back({nullptr, 0, nullptr, 0});

    Checksum::findAlgorithm("crc32", options.algorithm);
    parse_state_t state;
    optind = 0; // restart getopt for the command's own arguments
    opterr = 0;
    for (;;) {
        const int c = getopt_long(argc, argv, shortOptions.c_str(), longOptions.data(), nullptr);
        if (c == -1)
            break;
        if (c == ':')
            return usageError("option '" + offendingOption(argv) + "' needs a value", command.usage);
        const auto use = std::find_if(command.options.begin(), command.options.end(), [c](const option_use_t& u) {
            const option_entry_t& entry = optionEntry(u.id);
            return c < 256 ? entry.letter == c : static_cast<int>(entry.id) == c - 256;
        });
        if (c == '?' || use == command.options.end())
            return usageError("unknown option '" + offendingOption(argv) + "'", command.usage);
        const int applied = applyOption(use->id, optarg, command, options, state);
        if (applied != EXIT_OK)
            return applied;
        state.previous = use->id;
    }
    if (options.help)
        return EXIT_OK;
    const int chosen = chooseChecksum(state.crc, command, options);
    if (chosen != EXIT_OK)
        return chosen;
    return checkOperands(command, std::vector<std::string>(argv + optind, argv + argc), state, options);
}

} // namespace hexblocks::cli
