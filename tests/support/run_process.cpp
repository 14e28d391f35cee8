#include "support/run_process.h"

#include "support/temp_dir.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include <csignal>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

ProcessResult spawn(const std::string& program, const std::vector<std::string>& args, const std::string& cwd,
                    unsigned long fileSizeLimit, const std::string* input)
{
    int inputPipe[2] = {-1, -1};
    if (input != nullptr && pipe(inputPipe) != 0)
        throw std::runtime_error("pipe failed");
    const int outFd = openAnonymousFile();
    const int errFd = openAnonymousFile();
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const std::string& a : args)
        argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);

    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid < 0)
        throw std::runtime_error("fork failed");
    if (pid == 0) {
        if (input != nullptr) {
            dup2(inputPipe[0], STDIN_FILENO);
            close(inputPipe[0]);
            close(inputPipe[1]);
        } else {
            const int devNull = open("/dev/null", O_RDONLY);
            dup2(devNull, STDIN_FILENO);
        }
        dup2(outFd, STDOUT_FILENO);
        dup2(errFd, STDERR_FILENO);
        if (!cwd.empty() && chdir(cwd.c_str()) != 0)
            _exit(126);
        if (fileSizeLimit != 0) {
            signal(SIGXFSZ, SIG_IGN);
            struct rlimit limit;
            limit.rlim_cur = limit.rlim_max = fileSizeLimit;
            setrlimit(RLIMIT_FSIZE, &limit);
        }
        execvp(program.c_str(), argv.data());
        _exit(127);
    }
    if (input != nullptr) {
        // The child's output goes to files, so it never waits for us.
        close(inputPipe[0]);
        void (*previous)(int) = signal(SIGPIPE, SIG_IGN);
        for (size_t done = 0; done < input->size();) {
            const ssize_t written = write(inputPipe[1], input->data() + done, input->size() - done);
            if (written <= 0)
                break; // the child stopped reading
            done += static_cast<size_t>(written);
        }
        close(inputPipe[1]);
        signal(SIGPIPE, previous);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    ProcessResult result;
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.out = readDescriptor(outFd);
    result.err = readDescriptor(errFd);
    close(outFd);
    close(errFd);
    return result;
}

} // namespace

ProcessResult runProcess(const std::string& program, const std::vector<std::string>& args, const std::string& cwd,
                         unsigned long fileSizeLimit)
{
    return spawn(program, args, cwd, fileSizeLimit, nullptr);
}

ProcessResult runProcessWithInput(const std::string& program, const std::vector<std::string>& args,
                                  const std::string& input, const std::string& cwd)
{
    return spawn(program, args, cwd, 0, &input);
}
