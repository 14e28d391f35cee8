// The help texts, the manual page and the bash completion script of
// hexblocks, all made from the tables of commands and options, so that none
// can drift from another. 'hexblocks --generate man|complete-bash' prints
// the last two; the copies in tools/ that are installed are what it prints
// (a test checks).
#ifndef HEXBLOCKS_DOCUMENTATION_H
#define HEXBLOCKS_DOCUMENTATION_H

#include "command_table.h"

#include <string>

namespace hexblocks::cli {

// The main help: the usage, the commands, the general notes, exit status.
std::string mainHelp();

// A command's help: its usage, description, options and notes.
std::string commandHelp(const command_entry_t& command);

// The manual page hexblocks.1, in roff with the man macros.
std::string manualPage(const std::string& version);

// A bash completion script: commands, each command's options, the values of
// options that take one of a few words, and file names.
std::string bashCompletion();

} // namespace hexblocks::cli

#endif
