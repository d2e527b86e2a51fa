#pragma once

#include "KVOExport.h"

/// Lets the host end what takes long: while an object of this class lives, operations of the thread that made it call
/// `check` now and then, and end with the exception that it throws.
///
/// In force for the constructing thread only, from construction until destruction; one inside another replaces it
/// meanwhile, so objects of one thread end in the reverse order of their making, as local variables do. Reading and
/// writing of matrix files come by after each 16 MiB at the latest, text after each 256 KiB: the imports and exports of
/// KVOSrvSparseMatrix, the exports of KVOSrvDenseMatrix, and KVOSrvMatrixFile. Not so the ordering of what was read,
/// about a second for 50 million entries, and not the tasks of a KVOSrvParallel.
///
/// What is left behind is what a failure of the disk at that place leaves: a matrix as the operation's description
/// says, a file in part.
class KVO_EXPORT KVOSrvInterrupt
{
public:
    /// The host's function, which returns soon or throws.
    using Check = void (*)(void* context);

    /// @param check    null: the thread's operations ask nobody while this object lives
    /// @param context  handed to `check` as it is; the host's
    KVOSrvInterrupt(Check check, void* context) noexcept;
    ~KVOSrvInterrupt();
    KVOSrvInterrupt(KVOSrvInterrupt const&) = delete;
    KVOSrvInterrupt& operator=(KVOSrvInterrupt const&) = delete;

    /// Asks the innermost one of this thread, where there is one; takes about a nanosecond where there is none.
    static void Ask();

private:
    Check m_formerCheck;
    void* m_formerContext;
};
