// The hexblocks commands, one function each. Each gets the parsed options
// and its inputs, already read (see CommandEntry::loading), prints what it
// produces and returns its exit code.
#ifndef HEXBLOCKS_COMMANDS_H
#define HEXBLOCKS_COMMANDS_H

#include "command_line.h"

namespace hexblocks::cli {

int runInfo(const Options& options, Inputs& inputs);
int runMap(const Options& options, Inputs& inputs);
int runBin(const Options& options, Inputs& inputs);
int runDump(const Options& options, Inputs& inputs);
int runConvert(const Options& options, Inputs& inputs);
int runCrc(const Options& options, Inputs& inputs);
int runPlan(const Options& options, Inputs& inputs);
int runVerify(const Options& options, Inputs& inputs);
int runDiff(const Options& options, Inputs& inputs);

} // namespace hexblocks::cli

#endif
