#include "support/run_tool.h"

namespace {

// The program to run and its arguments: program itself, or the launcher
// with program as its first argument.
std::vector<std::string> commandFor(const std::string& program, const std::vector<std::string>& args)
{
    std::vector<std::string> command;
    const std::string launcher = HEXBLOCKS_LAUNCHER;
    for (std::string::size_type start = 0; start < launcher.size();) {
        const std::string::size_type bar = launcher.find('|', start);
        const std::string::size_type end = bar == std::string::npos ? launcher.size() : bar;
        command.push_back(launcher.substr(start, end - start));
        start = end + 1;
    }
    command.push_back(program);
    command.insert(command.end(), args.begin(), args.end());
    return command;
}

} // namespace

ProcessResult runToolLimited(const std::vector<std::string>& args, const std::string& cwd,
                               unsigned long fileSizeLimit)
{
    std::vector<std::string> command = commandFor(HEXBLOCKS_PATH, args);
    const std::string program = command.front();
    command.erase(command.begin());
    return runProcess(program, command, cwd, fileSizeLimit);
}

ProcessResult runTool(const std::vector<std::string>& args, const std::string& cwd)
{
    return runToolLimited(args, cwd, 0);
}

ProcessResult runToolWithInput(const std::vector<std::string>& args, const std::string& input,
                                 const std::string& cwd)
{
    std::vector<std::string> command = commandFor(HEXBLOCKS_PATH, args);
    const std::string program = command.front();
    command.erase(command.begin());
    return runProcessWithInput(program, command, input, cwd);
}

ProcessResult runBuilt(const std::string& program, const std::vector<std::string>& args)
{
    std::vector<std::string> command = commandFor(program, args);
    const std::string launcher = command.front();
    command.erase(command.begin());
    return runProcess(launcher, command);
}

ProcessResult runBuiltWithInput(const std::string& program, const std::vector<std::string>& args,
                                const std::string& input)
{
    std::vector<std::string> command = commandFor(program, args);
    const std::string launcher = command.front();
    command.erase(command.begin());
    return runProcessWithInput(launcher, command, input);
}
