#include "SimFileDriver.h"

#include "DriverFile.h"
#include "Hdf5.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace simdb
{

namespace
{

// HDF5 allocates the driver's part behind its own, and copies what the access list carries with memcpy.
struct OpenFile {
    H5FD_t hdf5;
    std::shared_ptr<DriverFile> file;
    int handle;
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

// What a callback returns, with a record for ThrowHdf5() when it failed.
herr_t Report(int error, hid_t minor, char const* what)
{
    if (error == 0)
        return 0;
    char buffer[128];
    H5Epush2(H5E_DEFAULT, kDriverErrors, "simdb", static_cast<unsigned>(error), H5E_ERR_CLS, H5E_VFL, minor, "%s: %s", what,
             strerror_r(error, buffer, sizeof buffer));
    return -1;
}

H5FD_t* OpenCallback(char const*, unsigned, hid_t accessList, haddr_t)
{
    auto const* const info = static_cast<AccessInfo const*>(H5Pget_driver_info(accessList));
    auto* const open = info != nullptr ? new (std::nothrow) OpenFile{{}, *info->file, (*info->file)->Number()} : nullptr;
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
    return FileOf(hdf5).End();
}

herr_t SetEndOfAllocation(H5FD_t* hdf5, H5FD_mem_t, haddr_t end)
{
    FileOf(hdf5).SetEnd(end);
    return 0;
}

haddr_t Allocate(H5FD_t* hdf5, H5FD_mem_t, hid_t, hsize_t bytes)
{
    std::uint64_t address = 0;
    return FileOf(hdf5).Allocate(bytes, address) ? address : HADDR_UNDEF;
}

haddr_t GetEndOfFile(H5FD_t const* hdf5, H5FD_mem_t)
{
    std::uint64_t length = 0;
    return FileOf(hdf5).FindLength(length) == 0 ? length : HADDR_UNDEF;
}

herr_t GetHandle(H5FD_t* hdf5, hid_t, void** handle)
{
    *handle = &reinterpret_cast<OpenFile*>(hdf5)->handle;
    return 0;
}

herr_t FreeNothing(H5FD_t*, H5FD_mem_t, hid_t, haddr_t, hsize_t)
{
    return 0;
}

herr_t ReadCallback(H5FD_t* hdf5, H5FD_mem_t type, hid_t, haddr_t address, std::size_t bytes, void* data)
{
    DriverFile& file = FileOf(hdf5);
    int const error = type == H5FD_MEM_DRAW ? file.ReadValues(address, data, bytes) : file.ReadCatalogue(address, data, bytes);
    return Report(error, H5E_READERROR, "cannot read the file");
}

herr_t WriteCallback(H5FD_t* hdf5, H5FD_mem_t type, hid_t, haddr_t address, std::size_t bytes, void const* data)
{
    DriverFile& file = FileOf(hdf5);
    if (type == H5FD_MEM_DRAW)
        return Report(file.WriteValues(address, data, bytes), H5E_WRITEERROR, "cannot write the file");
    return Report(file.WriteCatalogue(address, data, bytes), H5E_NOSPACE, "cannot hold a change of the catalogue");
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
