// Observes the calls the library makes to POSIX write().
//
// The test program defines write() itself, so every call that the library
// makes is seen here. While a WriteSpy is alive each call is recorded, and
// the spy can be told to fail a call or to write fewer bytes than asked;
// otherwise the call goes to the kernel unchanged.
#ifndef HEXBLOCKS_TESTS_WRITE_SPY_H
#define HEXBLOCKS_TESTS_WRITE_SPY_H

#include <cstddef>
#include <deque>
#include <vector>

class WriteSpy {
public:
    // What the spy does with one call.
    struct Action {
        enum Kind { PassThrough, Fail, Short } kind;
        size_t shortCount; // bytes actually written for Short
    };

    WriteSpy();
    ~WriteSpy();
    WriteSpy(const WriteSpy&) = delete;
    WriteSpy& operator=(const WriteSpy&) = delete;

    // Queues what the next calls do, in order; calls beyond the queue pass
    // through.
    void failNext();
    void shortNext(size_t count);

    // Byte counts requested by the recorded calls, in order.
    const std::vector<size_t>& requested() const { return requested_; }

    // Called by the write() replacement: records the call and says what to do.
    Action next(size_t requestedBytes);

    static WriteSpy* active();

private:
    std::vector<size_t> requested_;
    std::deque<Action> script_;
};

#endif
