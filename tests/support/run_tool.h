// Runs the hexblocks tool as a process, through the emulator named in
// HEXBLOCKS_LAUNCHER ('|' between its words) when the tests run on another
// architecture.
#ifndef HEXBLOCKS_TESTS_RUN_TOOL_H
#define HEXBLOCKS_TESTS_RUN_TOOL_H

#include "support/run_process.h"

#include <string>
#include <vector>

ProcessResult runTool(const std::vector<std::string>& args, const std::string& cwd = "");

// With a limit on the size of the files it writes (see runProcess).
ProcessResult runToolLimited(const std::vector<std::string>& args, const std::string& cwd,
                               unsigned long fileSizeLimit);

// With input on its standard input, through a pipe.
ProcessResult runToolWithInput(const std::vector<std::string>& args, const std::string& input,
                                 const std::string& cwd = "");

// Another program of this build (an example), through the same emulator.
ProcessResult runBuilt(const std::string& program, const std::vector<std::string>& args);

// With input on its standard input, through a pipe.
ProcessResult runBuiltWithInput(const std::string& program, const std::vector<std::string>& args,
                                const std::string& input);

#endif
