// Lets GoogleTest print statuses by name in its failure messages.
#ifndef HEXBLOCKS_TESTS_RESULT_PRINT_H
#define HEXBLOCKS_TESTS_RESULT_PRINT_H

#include "result.h"

#include <ostream>

namespace hexblocks {

inline void PrintTo(status_t status, std::ostream* out)
{
    *out << statusName(status);
}

} // namespace hexblocks

#endif
