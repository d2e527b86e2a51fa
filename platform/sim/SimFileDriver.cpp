#include "SimFileDriver.h"

#include "SimIo.h"
#include "SimJournal.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <sys/stat.h>

namespace simdb
{

namespace
{

// HDF5 allocates the driver's part behind its own, and copies what the access list carries with memcpy.
struct OpenFile {
    H5FD_t hdf5;
    std::shared_ptr<DriverFile> file;
};
struct AccessInfo {
    std::shared_ptr<DriverFile> const* file;
};

DriverFile& FileOf(H5FD_t* hdf5) noexcept
{
    return *reinterpret_cast<OpenFile*>(hdf5)->file;
}

DriverFile const& FileOf(H5FD_t const* hdf5) noexcept
{
    return *reinterpret_cast<OpenFile const*>(hdf5)->file;
}

herr_t Report(hid_t minor, char const* what, int error)
{
    char buffer[128];
    H5Epush2(H5E_DEFAULT, kDriverErrors, "simdb", static_cast<unsigned>(error), H5E_ERR_CLS, H5E_VFL, minor, "%s: %s", what,
             strerror_r(error, buffer, sizeof buffer));
    return -1;
}

H5FD_t* OpenCallback(char const*, unsigned, hid_t accessList, haddr_t)
{
    auto const* const info = static_cast<AccessInfo const*>(H5Pget_driver_info(accessList));
    auto* const open = info != nullptr ? new (std::nothrow) OpenFile{{}, *info->file} : nullptr;
    return open != nullptr ? &open->hdf5 : nullptr;
}

herr_t CloseCallback(H5FD_t* hdf5)
{
    delete reinterpret_cast<OpenFile*>(hdf5);
    return 0;
}

// No feature of HDF5's is wanted: its accumulator and its blocks of small pieces would only copy once more what is held anyway, and its
// sieve buffer would hide values from the data path.
herr_t QueryCallback(H5FD_t const*, unsigned long* features)
{
    *features = H5FD_FEAT_SUPPORTS_SWMR_IO  // H5Fget_eoa, which the data path asks, insists on it; nothing is opened that way
                | H5FD_FEAT_USE_ALLOC_SIZE; // HDF5 leaves where a piece begins to Allocate()
    return 0;
}

haddr_t GetEndOfAllocation(H5FD_t const* hdf5, H5FD_mem_t)
{
    return FileOf(hdf5).end;
}

herr_t SetEndOfAllocation(H5FD_t* hdf5, H5FD_mem_t, haddr_t end)
{
    DriverFile& file = FileOf(hdf5);
    // The first piece of a new file is the superblock; the mark comes behind it.
    if (file.isNew && file.end == 0)
        end = std::max<haddr_t>(end, FileMark::kEnd);
    file.end = end;
    return 0;
}

// Large pieces begin at a page, so that values are moved and mapped whole; those of the size of a large page at one, so that the system
// can keep and map them as such, unless they would take an eighth more room by it. Small ones would waste what they use.
haddr_t AlignmentOf(hsize_t bytes) noexcept
{
    constexpr hsize_t kLarge = 16384, kPage = 4096, kLargePage = hsize_t(2) << 20;
    if (bytes < kLarge)
        return 1;
    return bytes >= kLargePage && (0 - bytes) % kLargePage <= bytes / 8 ? kLargePage : kPage;
}

haddr_t Allocate(H5FD_t* hdf5, H5FD_mem_t type, hid_t, hsize_t bytes)
{
    haddr_t const alignment = AlignmentOf(bytes), end = FileOf(hdf5).end;
    haddr_t const address = (end + alignment - 1) / alignment * alignment;
    if (address < end || address + bytes < address || address + bytes > INT64_MAX)
        return HADDR_UNDEF;
    SetEndOfAllocation(hdf5, type, address + bytes);
    return address;
}

// HDF5 takes an end of 0 for a file that it has to begin, and refuses a file that ends before its superblock says.
haddr_t GetEndOfFile(H5FD_t const* hdf5, H5FD_mem_t)
{
    DriverFile const& file = FileOf(hdf5);
    if (file.isNew)
        return file.end;
    struct stat status;
    if (fstat(file.descriptor, &status) != 0)
        return HADDR_UNDEF;
    return std::max<haddr_t>(static_cast<haddr_t>(status.st_size), file.held.End());
}

herr_t GetHandle(H5FD_t* hdf5, hid_t, void** handle)
{
    *handle = &FileOf(hdf5).descriptor;
    return 0;
}

herr_t FreeNothing(H5FD_t*, H5FD_mem_t, hid_t, haddr_t, hsize_t)
{
    return 0;
}

herr_t ReadCallback(H5FD_t* hdf5, H5FD_mem_t type, hid_t, haddr_t address, std::size_t bytes, void* data)
{
    DriverFile& file = FileOf(hdf5);
    bool const held = type != H5FD_MEM_DRAW;
    if (!held)
        file.valuesAt = address;
    if (!held && file.finding)
        return 0;
    if (!held || !file.held.Covers(address, bytes)) {
        std::size_t read = 0;
        if (int const error = io::Read(file.descriptor, data, bytes, address, read))
            return Report(H5E_READERROR, "cannot read the file", error);
        std::memset(static_cast<char*>(data) + read, 0, bytes - read);
    }
    if (held)
        file.held.Overlay(address, data, bytes);
    return 0;
}

herr_t WriteCallback(H5FD_t* hdf5, H5FD_mem_t type, hid_t, haddr_t address, std::size_t bytes, void const* data)
{
    DriverFile& file = FileOf(hdf5);
    if (file.discarding)
        return 0;
    auto const fail = [&](hid_t minor, char const* text, int error) -> herr_t {
        if (!file.closing)
            return Report(minor, text, error);
        file.closingError = error;
        return 0;
    };
    if (type == H5FD_MEM_DRAW) {
        file.valuesAt = address;
        int const error = io::Write(file.descriptor, data, bytes, address);
        return error == 0 ? 0 : fail(H5E_WRITEERROR, "cannot write the file", error);
    }
    try {
        file.held.Put(address, data, bytes);
        return 0;
    } catch (std::bad_alloc const&) {
        return fail(H5E_NOSPACE, "cannot hold a change of the catalogue", ENOMEM);
    }
}

// No cmp: every opening is a file of its own for HDF5, also one by its own drivers; flock keeps writers apart. No lock and unlock: File
// holds the lock, whatever HDF5_USE_FILE_LOCKING says. No flush and truncate: that is the commit's.
H5FD_class_t DriverClass() noexcept
{
    H5FD_class_t driver = {};
    driver.name = "kvo_sim";
    driver.maxaddr = INT64_MAX;
    driver.fc_degree = H5F_CLOSE_STRONG;
    driver.fapl_size = sizeof(AccessInfo);
    driver.open = OpenCallback;
    driver.close = CloseCallback;
    driver.query = QueryCallback;
    driver.alloc = Allocate;
    driver.free = FreeNothing;
    driver.get_eoa = GetEndOfAllocation;
    driver.set_eoa = SetEndOfAllocation;
    driver.get_eof = GetEndOfFile;
    driver.get_handle = GetHandle;
    driver.read = ReadCallback;
    driver.write = WriteCallback;
    H5FD_mem_t const map[H5FD_MEM_NTYPES] = H5FD_FLMAP_DEFAULT;
    std::copy(std::begin(map), std::end(map), driver.fl_map);
    return driver;
}

// Registered again when the host has closed and opened HDF5 in between.
hid_t Driver()
{
    static H5FD_class_t const s_class = DriverClass();
    static hid_t s_driver = H5I_INVALID_HID;
    if (H5Iget_type(s_driver) != H5I_VFL)
        s_driver = H5FDregister(&s_class);
    return s_driver;
}

} // namespace

bool SetDriver(hid_t accessList, std::shared_ptr<DriverFile> const& file)
{
    hid_t const driver = Driver();
    AccessInfo const info{&file};
    return driver >= 0 && H5Pset_driver(accessList, driver, &info) >= 0;
}

} // namespace simdb
