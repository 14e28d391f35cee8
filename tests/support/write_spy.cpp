#include "support/write_spy.h"

#include <cerrno>

#include <sys/syscall.h>
#include <unistd.h>

namespace {
WriteSpy* activeSpy = nullptr;
}

WriteSpy::WriteSpy()
{
    activeSpy = this;
}

WriteSpy::~WriteSpy()
{
    activeSpy = nullptr;
}

void WriteSpy::failNext()
{
    script_.push_back(Action{Action::Fail, 0});
}

void WriteSpy::shortNext(size_t count)
{
    script_.push_back(Action{Action::Short, count});
}

WriteSpy::Action WriteSpy::next(size_t requestedBytes)
{
    requested_.push_back(requestedBytes);
    if (script_.empty())
        return Action{Action::PassThrough, 0};
    const Action action = script_.front();
    script_.pop_front();
    return action;
}

WriteSpy* WriteSpy::active()
{
    return activeSpy;
}

// Replaces the C library's write() for this program; the real work is done
// by the system call itself.
extern "C" ssize_t write(int fd, const void* buf, size_t count)
{
    WriteSpy* spy = WriteSpy::active();
    if (spy != nullptr) {
        const WriteSpy::Action action = spy->next(count);
        if (action.kind == WriteSpy::Action::Fail) {
            errno = EIO;
            return -1;
        }
        if (action.kind == WriteSpy::Action::Short && action.shortCount < count)
            count = action.shortCount;
    }
    return static_cast<ssize_t>(syscall(SYS_write, fd, buf, count));
}
