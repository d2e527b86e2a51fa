#include "aio_ostream.h"

#include <cstdio>

// The C stream underneath, so that a host that redirects stderr redirects the reports too.

constinit aio_ostream aio_cerr;

aio_ostream& aio_ostream::operator<<(char const* text)
{
    if (text != nullptr)
        std::fputs(text, stderr);
    return *this;
}

aio_ostream& aio_ostream::put(char character)
{
    std::fputc(character, stderr);
    return *this;
}

aio_ostream& aio_ostream::print_int(long long number)
{
    std::fprintf(stderr, "%lld", number);
    return *this;
}

aio_ostream& aio_ostream::flush()
{
    std::fflush(stderr);
    return *this;
}
