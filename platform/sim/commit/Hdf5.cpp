#include "Hdf5.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>

namespace simdb
{

namespace
{

// Few, never changed and never destroyed: databases may fail while the process ends.
struct Name {
    std::string text;
    Name const* next;
};
constinit std::atomic<Name const*> s_names{nullptr};

// KVOBasException keeps the pointer only, and wants the path inside the project without its ending.
char const* SourceName(std::string_view file)
{
    if (auto const begin = file.rfind("platform/sim/"); begin != std::string_view::npos)
        file.remove_prefix(begin);
    file = file.substr(0, file.rfind('.'));
    Name const* const first = s_names.load(std::memory_order_acquire);
    for (Name const* name = first; name != nullptr; name = name->next)
        if (name->text == file)
            return name->text.c_str();
    auto* const name = new Name{std::string(file), first};
    while (!s_names.compare_exchange_weak(name->next, name, std::memory_order_acq_rel)) // two threads may both add it, once
        ;
    return name->text.c_str();
}

struct Reasons {
    std::string text;
    KVOSimException::Kind kind = KVOSimException::Kind::Hdf5;
};

// HDF5 reports from the inside out: the first record is the cause, those after it the callers. Each says less than the one before.
herr_t AppendReason(unsigned depth, H5E_error2_t const* record, void* target)
{
    auto& [reasons, kind] = *static_cast<Reasons*>(target);
    constexpr unsigned kDepths = 3;
    if (depth < kDepths && record->desc != nullptr && *record->desc != '\0')
        reasons.append(reasons.empty() ? "" : ", ").append(record->desc);
    if (depth == 0 && record->file_name != nullptr && std::strcmp(record->file_name, kDriverErrors) == 0)
        kind = KindOf(static_cast<int>(record->line));
    return 0;
}

} // namespace

void ReleaseHid(hid_t id) noexcept
{
    Hdf5Guard const guard(std::nothrow);
    H5Idec_ref(id);
}

void ThrowReason(char const* doing, std::string const& path, std::string const& why, int line, char const* file)
{
    ThrowReason(KVOSimException::Kind::Misuse, doing, path, why, line, file);
}

void ThrowReason(KVOSimException::Kind kind, char const* doing, std::string const& path, std::string const& why, int line, char const* file)
{
    KVOSimException(doing, path.c_str(), why.c_str(), kind).Throw(SourceName(file), line);
}

KVOSimException::Kind KindOf(int error) noexcept
{
    using enum KVOSimException::Kind;
    switch (error) {
    case ENOENT:
    case ENOTDIR:
        return NotFound;
    case EEXIST:
        return Exists;
    case EISDIR:
        return Foreign;
    case EACCES:
    case EPERM:
    case EROFS:
        return Denied;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
        return NoSpace;
    case ENOMEM:
        return NoMemory;
    default:
        return System;
    }
}

void ThrowErrno(char const* doing, std::string const& path, int error, int line, char const* file)
{
    char buffer[128];
    ThrowReason(KindOf(error), doing, path, strerror_r(error, buffer, sizeof buffer), line, file);
}

void ThrowHdf5(char const* doing, std::string const& path, int line, char const* file)
{
    Reasons reasons;
    H5Ewalk2(H5E_DEFAULT, H5E_WALK_UPWARD, AppendReason, &reasons);
    H5Eclear2(H5E_DEFAULT);
    ThrowReason(reasons.kind, doing, path, reasons.text.empty() ? "HDF5 gives no reason" : reasons.text, line, file);
}

} // namespace simdb
