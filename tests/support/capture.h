// Captures what a piece of code writes to standard output and standard error
// at the file-descriptor level, so that the streams a diagnostic goes to are
// observed as a user of the process would see them.
#ifndef HEXBLOCKS_TESTS_CAPTURE_H
#define HEXBLOCKS_TESTS_CAPTURE_H

#include <functional>
#include <string>

struct CapturedOutput {
    std::string out; // what reached descriptor 1
    std::string err; // what reached descriptor 2
};

// Runs fn with descriptors 1 and 2 redirected to temporary files and returns
// what was written to each. The descriptors are restored even when fn throws;
// the exception is then passed on (and the captured text is lost).
CapturedOutput captureOutput(const std::function<void()>& fn);

// As captureOutput, and stores the captured text in *captured before passing
// on an exception thrown by fn.
CapturedOutput captureOutputKeeping(const std::function<void()>& fn, CapturedOutput* captured);

#endif
