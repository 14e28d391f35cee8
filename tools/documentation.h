// The manual page and the bash completion script of hexblocks, both made
// from the tables of commands and options, so that neither can drift from
// the help. 'hexblocks --generate man|complete-bash' prints them; the copies
// in tools/ that are installed are what it prints (a test checks).
#ifndef HEXBLOCKS_DOCUMENTATION_H
#define HEXBLOCKS_DOCUMENTATION_H

#include <string>

// The manual page hexblocks.1, in roff with the man macros.
std::string manualPage(const std::string& version);

// A bash completion script: commands, each command's options, the values of
// options that take one of a few words, and file names.
std::string bashCompletion();

#endif
