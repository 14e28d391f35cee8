// The hexblocks commands, one function each. Each gets the parsed options
// and its inputs, already read (see CommandEntry::loading), prints what it
// produces and returns its exit code.
#ifndef HEXBLOCKS_COMMANDS_H
#define HEXBLOCKS_COMMANDS_H

#include "command_line.h"

namespace hexblocks::cli {

int runInfo(const options_t& options, inputs_t& inputs);
int runMap(const options_t& options, inputs_t& inputs);
int runBin(const options_t& options, inputs_t& inputs);
int runDump(const options_t& options, inputs_t& inputs);
int runConvert(const options_t& options, inputs_t& inputs);
int runCrc(const options_t& options, inputs_t& inputs);
int runPlan(const options_t& options, inputs_t& inputs);
int runVerify(const options_t& options, inputs_t& inputs);
int runDiff(const options_t& options, inputs_t& inputs);

} // namespace hexblocks::cli

#endif
