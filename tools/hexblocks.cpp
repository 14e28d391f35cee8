// hexblocks: inspect, map, dump, extract, convert and check firmware images
// (Intel HEX, S-records, ELF, raw binary), plan flashing, verify read-backs
// and diff images, built on the hexblocks library's public interface. main()
// parses the command line (command_line.cpp), reads the command's inputs
// (input_loading.cpp) and runs the command (commands.cpp).
#include "command_line.h"
#include "documentation.h"
#include "input_loading.h"

#include <iostream>
#include <new>
#include <string>

using namespace hexblocks::cli;

#ifndef HEXBLOCKS_VERSION
#define HEXBLOCKS_VERSION "unknown"
#endif

namespace {

// Reads the inputs of command as its table entry says; false after printing
// why one cannot be read.
bool readCommandInputs(const command_entry_t& command, const options_t& options, inputs_t& inputs)
{
    switch (command.loading) {
    case loading_t::BLOCKS:
        return loadImage(options, inputs);
    case loading_t::MERGED:
        return readInputs(options, inputs.image);
    case loading_t::STREAMED:
        inputs.streamed = streamsBinaryInput(options, inputs.streamedInput);
        return inputs.streamed || readInputs(options, inputs.image);
    case loading_t::FIRST:
        return readOneInput(options, options.inputs[0], inputs.image);
    case loading_t::FIRST_TWO:
        return readOneInput(options, options.inputs[0], inputs.image) &&
               readOneInput(options, options.inputs[1], inputs.other);
    }
    return false;
}

int runCommand(const command_entry_t& command, const options_t& options)
{
    inputs_t inputs;
    if (!readCommandInputs(command, options, inputs))
        return command.unreadable;
    return command.run(options, inputs);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2)
        return usageError("missing command", MAIN_USAGE);

    const std::string first = argv[1];
    if (first == "-h" || first == "--help" || first == "help") {
        if (first == "help" && argc > 2) {
            if (const command_entry_t* c = findCommand(argv[2])) {
                std::cout << commandHelp(*c);
                return EXIT_OK;
            }
            return usageError("unknown command '" + std::string(argv[2]) + "'", MAIN_USAGE);
        }
        std::cout << mainHelp();
        return EXIT_OK;
    }
    if (first == "-V" || first == "--version") {
        std::cout << PROGRAM << " " << HEXBLOCKS_VERSION << "\n";
        return EXIT_OK;
    }
    if (first == "--generate") {
        const std::string what = argc > 2 ? argv[2] : "";
        if (argc > 3)
            return usageError("unexpected argument '" + std::string(argv[3]) + "'", MAIN_USAGE);
        if (what == "man")
            std::cout << manualPage(HEXBLOCKS_VERSION);
        else if (what == "complete-bash")
            std::cout << bashCompletion();
        else
            return usageError("--generate needs 'man' or 'complete-bash'", MAIN_USAGE);
        return EXIT_OK;
    }
    const command_entry_t* command = findCommand(first);
    if (command == nullptr) {
        if (!first.empty() && first[0] == '-')
            return usageError("unknown option '" + first + "'", MAIN_USAGE);
        return usageError("unknown command '" + first + "'", MAIN_USAGE);
    }

    options_t options;
    const int parsed = parseCommandLine(*command, argc - 1, argv + 1, options);
    if (parsed != EXIT_OK)
        return parsed;
    if (options.help) {
        std::cout << commandHelp(*command);
        return EXIT_OK;
    }
    try {
        return runCommand(*command, options);
    } catch (const std::bad_alloc&) {
        std::cerr << PROGRAM << ": out of memory" << std::endl;
        return EXIT_FAILED;
    }
}
