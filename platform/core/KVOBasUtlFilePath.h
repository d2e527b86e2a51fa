#pragma once

/// @file
/// Paths in the file system.

#include "KVOExport.h"
#include "cow_String.h"

/// A path in the file system.
class KVO_EXPORT KVOBasUtlFilePath
{
public:
    /// The path as it is given; the text is shared.
    explicit KVOBasUtlFilePath(cow_String const& path) : m_path(path) {}
    /// The path of `name` in the folder `directory`; just `name` when `directory` is empty.
    KVOBasUtlFilePath(cow_String const& directory, cow_String const& name);

    /// The text of the path.
    cow_String const& Path() const noexcept { return m_path; }

    /// True when something of that name exists, a link without a target included.
    bool Exists() const noexcept;

    /// Removes the file or link. @return false when that failed, with errno telling why
    bool Remove() const noexcept;

private:
    cow_String m_path;
};

/// The current working directory. @throws KVOBasPlatformException when it cannot be had (it was removed, say)
KVO_EXPORT cow_String KVOBasUtlgetcwd();
