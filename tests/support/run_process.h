// Runs a program as a child process and collects what it prints.
#ifndef HEXBLOCKS_TESTS_RUN_PROCESS_H
#define HEXBLOCKS_TESTS_RUN_PROCESS_H

#include <string>
#include <vector>

struct ProcessResult {
    int exitCode = -1; // -1 when the child did not exit normally
    std::string out;
    std::string err;
};

// Runs program (searched in PATH when it has no slash) with args in directory cwd (empty: the
// current one), with no standard input. A non-zero fileSizeLimit caps the
// size of any file the child writes (RLIMIT_FSIZE, with SIGXFSZ ignored), so
// that its writes fail part way.
ProcessResult runProcess(const std::string& program, const std::vector<std::string>& args,
                         const std::string& cwd = "", unsigned long fileSizeLimit = 0);

// As runProcess, with input on the child's standard input through a pipe,
// which cannot be rewound.
ProcessResult runProcessWithInput(const std::string& program, const std::vector<std::string>& args,
                                  const std::string& input, const std::string& cwd = "");

#endif
