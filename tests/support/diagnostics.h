// Texts of the library's own diagnostics that the tests look for.
#ifndef HEXBLOCKS_TESTS_DIAGNOSTICS_H
#define HEXBLOCKS_TESTS_DIAGNOSTICS_H

#include <string>

// The record parser's shape diagnostics begin with its signature.
inline const std::string SIGNATURE = "void IntelHexFile::parseLine(std::string&, IntelHexFile::hexfileline_t&)";
inline const std::string TOO_SHORT = SIGNATURE + ": hexline to short\n";

#endif
