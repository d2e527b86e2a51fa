#include "SimFile.h"

#include "Descriptor.h"
#include "DriverFile.h"
#include "Hdf5.h"
#include "ScratchMark.h"
#include "SimFileDriver.h"
#include "SimIo.h"
#include "SimPersistence.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace simdb
{

struct File::State {
    std::string path; // as the caller gave it
    std::shared_ptr<DriverFile> driver;
    std::optional<Persistence> persistence; // of a persistent file that may be written
    hid_t file = H5I_INVALID_HID;
    bool readOnly = false;
    bool scratch = false;
    pid_t owner = getpid();
};

namespace
{

constexpr char const* kOpening = "Cannot open the database";
constexpr char const* kCreating = "Cannot create the database";
constexpr char const* kCommitting = "Cannot commit to the database";
constexpr char const* kClosing = "Cannot close the database";

// What others may see of a database is decided by the umask; work space is nobody else's.
constexpr mode_t kDatabaseMode = 0666, kScratchMode = 0600;

// Attempts at a file that others remove or replace at the same time.
constexpr int kAttempts = 100;

// 0 or an errno.
int FindWhetherStillNamed(Descriptor const& file, std::string const& path, bool& named) noexcept
{
    struct stat opened, found;
    if (fstat(file.Number(), &opened) != 0)
        return errno;
    named = stat(path.c_str(), &found) == 0 && opened.st_dev == found.st_dev && opened.st_ino == found.st_ino;
    return 0;
}

int Lock(Descriptor const& file, int operation) noexcept
{
    int result;
    do
        result = flock(file.Number(), operation);
    while (result != 0 && errno == EINTR);
    return result;
}

Descriptor MakeLocked(std::string const& path, mode_t mode)
{
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        Descriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, mode));
        if (!file.IsOpen() && errno == EEXIST)
            ThrowReason(KVOSimException::Kind::Exists, kCreating, path, "a file of that name exists");
        if (!file.IsOpen() && errno == ENOENT)
            ThrowReason(KVOSimException::Kind::NotFound, kCreating, path, "its folder does not exist");
        if (!file.IsOpen())
            ThrowErrno(kCreating, path, errno);
        // Waits: whoever opened the file before the lock was on it finds it empty, and soon leaves it or removes it as left behind.
        int error = Lock(file, LOCK_EX) == 0 ? 0 : errno;
        char const* const doing = error != 0 ? "Cannot lock the database" : kCreating;
        bool named = false;
        if (error == 0)
            error = FindWhetherStillNamed(file, path, named);
        if (error != 0) {
            unlink(path.c_str());
            ThrowErrno(doing, path, error);
        }
        if (named)
            return file;
    }
    ThrowReason(KVOSimException::Kind::InUse, kCreating, path, "it is removed again and again");
}

void LockOpened(std::string const& path, Descriptor const& file, bool readOnly)
{
    if (Lock(file, (readOnly ? LOCK_SH : LOCK_EX) | LOCK_NB) == 0)
        return;
    if (errno != EWOULDBLOCK)
        ThrowErrno("Cannot lock the database", path, errno);
    bool const isOnlyRead = !readOnly && Lock(file, LOCK_SH | LOCK_NB) == 0;
    Lock(file, LOCK_UN); // said aloud: see File::Release()
    ThrowReason(KVOSimException::Kind::InUse, kOpening, path,
                isOnlyRead ? "it is open for reading elsewhere" : "it is open for writing elsewhere");
}

Descriptor OpenLocked(std::string const& path, bool readOnly)
{
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        // Not blocking: a named pipe would wait for its other end.
        Descriptor file(open(path.c_str(), (readOnly ? O_RDONLY : O_RDWR) | O_CLOEXEC | O_NONBLOCK));
        struct stat status;
        if (!file.IsOpen() || fstat(file.Number(), &status) != 0)
            ThrowErrno(kOpening, path, errno);
        if (!S_ISREG(status.st_mode))
            ThrowReason(KVOSimException::Kind::Foreign, kOpening, path,
                        S_ISDIR(status.st_mode) ? "it is a folder" : "it is no regular file");
        LockOpened(path, file, readOnly);
        bool named = false;
        if (int const error = FindWhetherStillNamed(file, path, named))
            ThrowErrno(kOpening, path, error);
        if (named)
            return file;
    }
    ThrowReason(KVOSimException::Kind::InUse, kOpening, path, "it is replaced again and again");
}

std::string RealPath(std::string const& path)
{
    struct Free {
        void operator()(char* memory) const noexcept { std::free(memory); }
    };
    std::unique_ptr<char, Free> const real(realpath(path.c_str(), nullptr));
    if (!real)
        ThrowErrno(kOpening, path, errno);
    return real.get();
}

// HDF5 would say only that it finds no signature.
void CheckBeginning(DriverFile const& driver, std::string const& path, bool readOnly)
{
    constexpr unsigned char kSignature[8] = {0x89, 'H', 'D', 'F', '\r', '\n', 0x1a, '\n'};
    std::byte begin[FileMark::kEnd] = {};
    std::size_t read = 0;
    if (int const error = io::Read(driver.Number(), begin, sizeof begin, 0, read))
        ThrowErrno(kOpening, path, error);
    if (read == 0)
        ThrowReason(KVOSimException::Kind::Damaged, kOpening, path, "it is empty; if it is being created, that was not completed");
    driver.Held().Overlay(0, begin, sizeof begin);

    if (std::memcmp(begin, kSignature, sizeof kSignature) != 0) {
        // Of a file that was never committed, not even the mark need have reached the disk when the power went.
        bool const isBlank = std::all_of(begin, begin + FileMark::kOffset, [](std::byte byte) { return byte == std::byte{0}; });
        ThrowReason(isBlank ? KVOSimException::Kind::Damaged : KVOSimException::Kind::Foreign, kOpening, path,
                    isBlank ? "nothing was ever committed to it, it holds nothing and can be removed" : "it is no database");
    }
    constexpr std::byte kOurVersion{2};
    if (begin[sizeof kSignature] == kOurVersion) {
        constexpr std::size_t kEndAt = 28; // in the superblock, as the format's description has it
        std::uint64_t expected;
        std::memcpy(&expected, begin + kEndAt, sizeof expected);
        struct stat status;
        if (fstat(driver.Number(), &status) != 0)
            ThrowErrno(kOpening, path, errno);
        if (auto const length = static_cast<std::uint64_t>(status.st_size); length < expected)
            ThrowReason(KVOSimException::Kind::Damaged, kOpening, path,
                        "it was cut short: " + std::to_string(length) + " of " + std::to_string(expected) + " bytes are left");
    }
    // From this version on, HDF5 marks a file while it is written, and refuses it after a kill.
    constexpr std::byte kFirstMarkingVersion{3};
    if (!readOnly && begin[sizeof kSignature] >= kFirstMarkingVersion)
        ThrowReason(KVOSimException::Kind::Foreign, kOpening, path,
                    "it is in a newer format of HDF5 that does not survive a kill; it can be read only");
}

Hid AccessList(std::string const& path, std::shared_ptr<DriverFile> const& driver, char const* doing)
{
    Hid list(Checked(H5Pcreate(H5P_FILE_ACCESS), doing, path));
    // Up to 1.10, because the file-space strategy is stored as of there; all else is in the format of 1.8.
    if (H5Pset_libver_bounds(list, H5F_LIBVER_V18, H5F_LIBVER_V110) < 0 || H5Pset_cache(list, 0, 0, 0, 0.0) < 0 || !SetDriver(list, driver))
        ThrowHdf5(doing, path);
    return list;
}

hid_t OpenHdf5(std::string const& path, bool readOnly, std::shared_ptr<DriverFile> const& driver)
{
    Hdf5Guard const guard;
    Hid const access = AccessList(path, driver, kOpening);
    return Checked(H5Fopen(path.c_str(), readOnly ? H5F_ACC_RDONLY : H5F_ACC_RDWR, access), kOpening, path);
}

// With the other strategies HDF5 would use space again that the last commit refers to.
void CheckSpaceStrategy(hid_t file, std::string const& path)
{
    Hdf5Guard const guard;
    Hid const creation(Checked(H5Fget_create_plist(file), kOpening, path));
    H5F_fspace_strategy_t strategy;
    hbool_t persists;
    hsize_t threshold;
    if (H5Pget_file_space_strategy(creation, &strategy, &persists, &threshold) < 0)
        ThrowHdf5(kOpening, path);
    if (strategy != H5F_FSPACE_STRATEGY_NONE)
        ThrowReason(KVOSimException::Kind::Foreign, kOpening, path,
                    "its space is managed by HDF5, so it can be read only; h5repack -S NONE makes it writable");
}

hid_t BeginFile(std::string const& path, std::shared_ptr<DriverFile> const& driver)
{
    Hdf5Guard const guard;
    Hid const access = AccessList(path, driver, kCreating);
    Hid const creation(Checked(H5Pcreate(H5P_FILE_CREATE), kCreating, path));
    if (H5Pset_file_space_strategy(creation, H5F_FSPACE_STRATEGY_NONE, false, 1) < 0)
        ThrowHdf5(kCreating, path);
    driver->Enter(DriverFile::Phase::Begin);
    hid_t const file = Checked(H5Fcreate(path.c_str(), H5F_ACC_TRUNC, creation, access), kCreating, path);
    driver->Enter(DriverFile::Phase::Use);
    return file;
}

// What a flush takes: an image of each entry of the catalogue's cache that has changed, and that is held by the driver then.
std::size_t BytesToFlush(hid_t file) noexcept
{
    std::size_t cached = 0;
    return H5Fget_mdc_size(file, nullptr, nullptr, &cached, nullptr) < 0 ? 0 : 3 * cached;
}

void Flush(hid_t file, std::string const& path)
{
    Hdf5Guard const outer;
    Hdf5Guard const guard(Hdf5Guard::kReserve + BytesToFlush(file));
    if (H5Fflush(file, H5F_SCOPE_GLOBAL) < 0)
        ThrowHdf5(kCommitting, path);
}

void CloseHdf5(hid_t file, std::string const& path)
{
    Hdf5Guard const guard(std::nothrow);
    if (H5Fclose(file) < 0)
        ThrowHdf5(kClosing, path);
}

} // namespace

File::File(std::unique_ptr<State> state) noexcept : m_state(std::move(state)) {}

std::shared_ptr<File> File::Create(std::string const& path, Kind kind)
{
    std::shared_ptr<File> file(new File(std::make_unique<State>()));
    State& state = *file->m_state;
    state.path = path;
    state.scratch = kind == Kind::Scratch;
    ::Descriptor made = MakeLocked(path, state.scratch ? kScratchMode : kDatabaseMode);
    struct Undo {
        std::string const& path;
        bool done = false;
        ~Undo()
        {
            if (!done)
                unlink(path.c_str());
        }
    } undo{path};
    state.driver = std::make_shared<DriverFile>(std::move(made));
    if (!state.scratch)
        state.persistence.emplace(path, RealPath(path), state.driver).Begin();
    else if (int const error = scratch_mark::Write(state.driver->Number()))
        ThrowErrno(kCreating, path, error);
    state.file = BeginFile(path, state.driver);
    undo.done = true;
    return file;
}

std::shared_ptr<File> File::Open(std::string const& path, bool readOnly)
{
    std::shared_ptr<File> file(new File(std::make_unique<State>()));
    State& state = *file->m_state;
    state.path = path;
    state.readOnly = readOnly;
    state.driver = std::make_shared<DriverFile>(OpenLocked(path, readOnly));
    Persistence& persistence = state.persistence.emplace(path, RealPath(path), state.driver);
    persistence.Recover(readOnly);
    CheckBeginning(*state.driver, path, readOnly);
    state.file = OpenHdf5(path, readOnly, state.driver);
    if (readOnly) {
        state.persistence.reset();
    } else {
        CheckSpaceStrategy(state.file, path);
        persistence.BeginChanges();
    }
    return file;
}

File::~File()
{
    Release();
}

void File::Release() noexcept
{
    State& state = *m_state;
    if (state.driver == nullptr)
        return;
    state.driver->Enter(DriverFile::Phase::Discard);
    if (state.file >= 0) {
        Hdf5Guard const guard(std::nothrow);
        H5Fclose(state.file);
    }
    state.file = H5I_INVALID_HID;
    state.persistence.reset();
    // Said aloud, because a child of fork() that lives on would keep the lock.
    if (state.driver->Number() >= 0 && state.owner == getpid())
        flock(state.driver->Number(), LOCK_UN);
    state.driver->Close();
}

void File::Commit()
{
    State& state = *m_state;
    if (!IsOpen())
        ThrowReason(kCommitting, state.path, "it is closed");
    RequireWritable(kCommitting);
    if (state.scratch)
        return;
    Flush(state.file, state.path);
    state.persistence->Commit();
}

void File::Close()
{
    if (!IsOpen())
        return;
    struct Releasing {
        File& file;
        ~Releasing() { file.Release(); }
    } const releasing{*this};
    State& state = *m_state;
    if (!state.persistence || !IsWritable())
        return;
    // Closing may change what is held once more, so the commit comes after it; but not when HDF5 could not flush all.
    Flush(state.file, state.path);
    state.driver->Enter(DriverFile::Phase::Close);
    CloseHdf5(std::exchange(state.file, H5I_INVALID_HID), state.path);
    if (int const error = state.driver->ClosingError())
        ThrowErrno(kClosing, state.path, error);
    state.persistence->Commit();
    state.persistence->Finish();
}

FileMark File::MarkForWriters()
{
    return m_state->persistence->MarkForWriters();
}

bool File::IsOpen() const noexcept
{
    return m_state->file >= 0;
}

bool File::IsReadOnly() const noexcept
{
    return m_state->readOnly;
}

bool File::IsWritable() const noexcept
{
    return !m_state->readOnly && m_state->owner == getpid();
}

void File::RequireWritable(char const* doing) const
{
    if (m_state->readOnly)
        ThrowReason(doing, m_state->path, "the database is open for reading only");
    if (m_state->owner != getpid())
        ThrowReason(doing, m_state->path, "it was opened by another process, of which this one is a child; here it can be read only");
}

bool File::IsScratch() const noexcept
{
    return m_state->scratch;
}

std::string const& File::Path() const noexcept
{
    return m_state->path;
}

hid_t File::Hdf5() const noexcept
{
    return m_state->file;
}

int File::Descriptor() const noexcept
{
    return m_state->driver->Number();
}

std::uint64_t File::End() const noexcept
{
    return m_state->driver->End();
}

void File::ReadMetadata(std::uint64_t address, void* data, std::size_t bytes) const
{
    if (int const error = m_state->driver->ReadCatalogue(address, data, bytes))
        ThrowErrno("Cannot read the catalogue of the database", Path(), error);
}

void File::SetLeavingZeros(bool leaving) noexcept
{
    m_state->driver->SetLeavingZeros(leaving);
}

void File::SetFinding(bool finding) noexcept
{
    m_state->driver->SetFinding(finding);
}

std::uint64_t File::ValuesAddress() const noexcept
{
    return m_state->driver->ValuesAddress();
}

} // namespace simdb
