#include "KVOSimAssert.h"

#include "aio_ostream.h"

#include <cstdlib>

void KVOSimAssert::ReportValidationFailure(char const* expression, char const* file, int line)
{
    (aio_cerr << "Assertion failed: " << expression).put('\n').flush();
    if (file != nullptr)
        (aio_cerr << "File " << file << ", line ").print_int(line).put('\n').flush();
    std::abort();
}
