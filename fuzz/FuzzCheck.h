// A property a fuzz target holds for every input: its failure stops the run on that input.
#pragma once

#include <cstdlib>

inline void fuzzCheck(bool ok) {
    if (!ok)
        std::abort();
}
