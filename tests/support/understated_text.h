// Text in memory, handed out in pieces like a file, that says it holds fewer
// bytes than it does: as a file that grows while it is read. Readers size
// their buffers by what a source says and must still read it all.
#ifndef HEXBLOCKS_TESTS_UNDERSTATED_TEXT_H
#define HEXBLOCKS_TESTS_UNDERSTATED_TEXT_H

#include "record_scanner.h"

#include <algorithm>
#include <string>

class UnderstatedText : public hexblocks::detail::TextSource {
public:
    UnderstatedText(const std::string& text, uint64_t claimed) : text_(text), claimed_(claimed) {}
    ssize_t read(char* buffer, size_t capacity) override
    {
        const size_t n = std::min(capacity, text_.size() - position_);
        text_.copy(buffer, n, position_);
        position_ += n;
        return static_cast<ssize_t>(n);
    }
    bool canRewind() const override { return true; }
    bool rewind() override
    {
        position_ = 0;
        return true;
    }
    uint64_t sizeLeft() const override { return claimed_; }

private:
    std::string text_;
    uint64_t claimed_;
    size_t position_ = 0;
};

#endif
