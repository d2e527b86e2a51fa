#include "MalformedFile.h"

#include "KVOSrvMtxExceptions.h"

#include <algorithm>

void MalformedFile::ThrowFor(char const* path) const
{
    KVOSrvMtxMalformedFile(path, line, byte, what.c_str()).Throw("mtx/impl/MalformedFile", __LINE__);
}

std::string Quoted(std::string_view word)
{
    constexpr std::size_t kShown = 24;
    std::string text(word.substr(0, kShown));
    std::ranges::replace_if(
        text, [](char c) { return c < ' ' || c > '~'; }, '?');
    return "\"" + text + (word.size() > kShown ? "...\"" : "\"");
}
