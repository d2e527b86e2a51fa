#include "SimFile.h"

#include "KVOSimException.h"

#include <atomic>
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

// HDF5 reports from the inside out: the first record is the cause, those after it the callers. Each says less than the one before.
herr_t AppendReason(unsigned depth, H5E_error2_t const* record, void* text)
{
    auto& reasons = *static_cast<std::string*>(text);
    constexpr unsigned kDepths = 3;
    if (depth < kDepths && record->desc != nullptr && *record->desc != '\0')
        reasons.append(reasons.empty() ? "" : ", ").append(record->desc);
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
