#include "FortranStatus.h"

#include "KVOFortran.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace
{

// Of a fixed size, because it must be had when there is no memory left.
thread_local char s_text[1024] = "";

} // namespace

int FortranStatus::Failed(int status, char const* text) noexcept
{
    std::snprintf(s_text, sizeof s_text, "%s", text);
    return status;
}

int FortranStatus::Failed(KVOBasException const& exception) noexcept
{
    try {
        return Failed(exception.ErrorNumber(), exception.UserReport().c_str());
    } catch (std::exception const&) { // no memory for the text
        return Failed(exception.ErrorNumber(), "");
    }
}

// All that the standard library throws through the classes is exhausted memory.
int FortranStatus::Failed(std::exception const& exception) noexcept
{
    return Failed(kOutOfMemory, exception.what());
}

extern "C" int KVOSRVLASTERROR(char* text, int const* length)
{
    std::size_t const whole = std::strlen(s_text), room = *length > 0 ? static_cast<std::size_t>(*length) : 0;
    std::size_t const copied = std::min(whole, room);
    std::memcpy(text, s_text, copied);
    std::fill(text + copied, text + room, ' ');
    return static_cast<int>(whole);
}
