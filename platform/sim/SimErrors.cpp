#include "SimFile.h"

#include "KVOSimException.h"

#include <cstdlib>
#include <cstring>
#include <set>
#include <string_view>

namespace simdb
{

namespace
{

// KVOBasException keeps the pointer only, and wants the path inside the project without its ending.
char const* SourceName(std::string_view file)
{
    static std::set<std::string> s_names;
    if (auto const begin = file.rfind("platform/sim/"); begin != std::string_view::npos)
        file.remove_prefix(begin);
    return s_names.emplace(file.substr(0, file.rfind('.'))).first->c_str();
}

// HDF5 reports from the inside out: the first record is the cause, those after it the callers. Each says less than the one before.
herr_t AppendReason(unsigned depth, H5E_error2_t const* record, void* text)
{
    auto& reasons = *static_cast<std::string*>(text);
    constexpr unsigned kDepths = 3;
    if (depth < kDepths && record->desc != nullptr && *record->desc != '\0')
        reasons.append(reasons.empty() ? "" : ", ").append(record->desc);
    return 0;
}

void SilenceClosing()
{
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
}

// Called where HDF5 would print. It loses memory in some failures, a chunk that it could not write for one, and when the process ends it
// complains of that ("infinite loop closing library") to whoever has its printing on. HDF5 is in use here, so its own exit handler is
// registered already, and this one runs before it.
herr_t NoteFailure(hid_t, void*)
{
    [[maybe_unused]] static int const s_registered = std::atexit(SilenceClosing);
    return 0;
}

} // namespace

SilentErrors::SilentErrors() noexcept
{
    if (s_depth++ == 0) {
        H5Eget_auto2(H5E_DEFAULT, &s_report, &s_reportData);
        H5Eset_auto2(H5E_DEFAULT, NoteFailure, nullptr);
    }
}

SilentErrors::~SilentErrors()
{
    if (--s_depth == 0)
        H5Eset_auto2(H5E_DEFAULT, s_report, s_reportData);
}

int SilentErrors::s_depth = 0;
H5E_auto2_t SilentErrors::s_report = nullptr;
void* SilentErrors::s_reportData = nullptr;

void ReleaseHid(hid_t id) noexcept
{
    SilentErrors const silent;
    H5Idec_ref(id);
}

void ThrowReason(char const* doing, std::string const& path, std::string const& why, int line, char const* file)
{
    KVOSimException(doing, path.c_str(), why.c_str()).Throw(SourceName(file), line);
}

void ThrowErrno(char const* doing, std::string const& path, int error, int line, char const* file)
{
    char buffer[128];
    ThrowReason(doing, path, strerror_r(error, buffer, sizeof buffer), line, file);
}

void ThrowHdf5(char const* doing, std::string const& path, int line, char const* file)
{
    std::string reasons;
    H5Ewalk2(H5E_DEFAULT, H5E_WALK_UPWARD, AppendReason, &reasons);
    H5Eclear2(H5E_DEFAULT);
    ThrowReason(doing, path, reasons.empty() ? "HDF5 gives no reason" : reasons, line, file);
}

} // namespace simdb
