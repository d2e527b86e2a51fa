#pragma once

#include "KVOBasException.h"
#include "KVOExport.h"
#include "atr_String.h"

class KVOSimDebugOutString;

/// A failure of the simulation database. Number 500. AsString() says what was being done, on which file, and why it
/// failed. Programs that act on a failure ask FailureKind() and Path(); the words of the text may change.
class KVO_EXPORT KVOSimException : public KVOBasException
{
public:
    /// What a program or its user can act on.
    enum class Kind : int {
        Other,    ///< none of those below, or not known
        Misuse,   ///< the program asked for what cannot be: sizes that do not fit, a write to a reader
        NotFound, ///< the file or its folder does not exist
        Exists,   ///< a file of that name exists
        Denied,   ///< the permissions of the file or of its folder forbid it
        InUse,    ///< the file is open elsewhere, for writing, or for reading where this is to write
        Foreign,  ///< no database of this library's format: a folder, a file of another program or of a newer format
        Damaged,  ///< the file was cut short or contradicts itself, or was never completed
        NoSpace,  ///< the disk is full, or a quota or a limit on file sizes is reached
        NoMemory, ///< the memory does not suffice
        System,   ///< another failure of the system, as of the disk
        Hdf5      ///< HDF5 failed; it does not tell by what kind of fault. Of a file that is only read: mostly damage
    };

    /// @param doing  what was being done, as "Cannot open the database"; copied, null counts as empty
    /// @param path   the file; left out of the text when empty
    /// @param why    the reason, with what a user can do about it where that is known
    /// @param kind   what FailureKind() returns
    KVOSimException(char const* doing, char const* path, char const* why, Kind kind = Kind::Misuse);
    KVOSimException(KVOSimException const&) noexcept = default;
    KVOSimException& operator=(KVOSimException const&) noexcept = default;
    ~KVOSimException() override;

    /// "<doing> <path>: <why>."
    atr_String AsString() const override;
    [[noreturn]] void Raise() const override;
    int ErrorNumber() const override;

    /// The file that failed, named as when it was opened; its journal where that failed; empty where no file is
    /// concerned. Never null; lives as long as this object or a copy of it.
    char const* Path() const noexcept { return m_path.c_str(); }
    /// The kind of failure.
    Kind FailureKind() const noexcept { return m_kind; }

    /// Appends AsString() to `out`, which takes over path and kind.
    void Write(KVOSimDebugOutString& out) const;

protected:
    /// A failure whose whole text is `text`.
    explicit KVOSimException(atr_String const& text) noexcept : m_text(text) {}

    /// The whole text.
    atr_String m_text;

private:
    atr_String m_path;
    Kind m_kind = Kind::Other;
};

/// A text built piece by piece that is then thrown: the caller's own words in front of the database's.
class KVO_EXPORT KVOSimDebugOutString : public KVOSimException
{
public:
    KVOSimDebugOutString() noexcept : KVOSimException(atr_String()) {}
    KVOSimDebugOutString(KVOSimDebugOutString const&) noexcept = default;
    KVOSimDebugOutString& operator=(KVOSimDebugOutString const&) noexcept = default;
    ~KVOSimDebugOutString() override;

    /// Appends `text`; null counts as empty.
    KVOSimDebugOutString& operator<<(char const* text);

    [[noreturn]] void Raise() const override;
};
