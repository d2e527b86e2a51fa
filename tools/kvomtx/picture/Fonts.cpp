#include "Fonts.h"

#include <fontconfig/fontconfig.h>

namespace
{

std::string EscapedForXml(std::string const& text)
{
    std::string escaped;
    for (char const c : text)
        escaped += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : std::string(1, c);
    return escaped;
}

} // namespace

void FindFonts(std::string const& folder)
{
    static bool s_found = false;
    if (s_found)
        return;
    s_found = true;
    FcConfig* const config = FcConfigCreate();
    FcConfigParseAndLoad(config, nullptr, FcFalse);
    // The folders are Debian's, for a system without a configuration.
    std::string const more = "<fontconfig><dir>/usr/share/fonts</dir><cachedir>/var/cache/fontconfig</cachedir><cachedir>" +
                             EscapedForXml(folder) + "</cachedir></fontconfig>";
    FcConfigParseAndLoadFromMemory(config, reinterpret_cast<FcChar8 const*>(more.c_str()), FcFalse);
    FcConfigSetCurrent(config); // before pango asks for one
    FcConfigDestroy(config);    // the library holds it now
}
