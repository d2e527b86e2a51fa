#pragma once

#include "KVOExport.h"

/// Lends threads of the host to the library, which has none of its own: while an object of this class lives, long
/// operations of the thread that made it cut their work into tasks and hand these to `run`.
///
/// In force for the constructing thread only, from construction until destruction; one inside another replaces it
/// meanwhile, so objects of one thread end in the reverse order of their making, as local variables do. Without one,
/// and where an operation is too small to gain, everything runs on the calling thread and `run` is not called.
///
/// **Results** are equal to the bit whatever the number of tasks, of threads and the order of the tasks.
///
/// **Errors.** What a task throws is kept, the other tasks are run all the same, and after the last one has ended the
/// operation throws the exception of the task with the lowest index; what is then left behind is what the operation's
/// own description says. `run` itself is not left by an exception of a task.
///
/// **Objects.** The operation, with all its tasks, is one use of its objects by one thread: docs/reliability.md,
/// "Threads". A task starts no tasks. What takes longer in the database engine stays on the calling thread.
///
/// The BLAS provider is called from several tasks at once where products are cut; it must be built for that and its own
/// threads are best turned off (docs/blas-providers.md).
class KVO_EXPORT KVOSrvParallel
{
public:
    /// A task of the library. It throws nothing.
    using Task = void (*)(void* data, int index);

    /// The host's function: calls task(data, index) once for each index from 0 to tasks - 1, on whatever threads and in
    /// whatever order it likes, also all of them on the calling one, and returns when all calls have returned. What the
    /// calling thread did before is to be seen by the tasks, and what they did by the calling thread afterwards, as
    /// starting and joining threads gives it.
    using Run = void (*)(void* context, int tasks, Task task, void* data);

    /// @param run      null: the thread's operations are not cut while this object lives
    /// @param context  handed to `run` as it is; the host's
    /// @param threads  how many threads `run` has for tasks, the calling one included if it works too: an operation is
    ///                 cut into that many tasks, or into a few times as many where that costs nothing and evens out
    ///                 their lengths. 0 or less: as many as the processors that this process may use, 2 at least. 256
    ///                 at the most count. 1 cuts nothing
    ///
    /// An operation refuses a `run` that returned before every task had ended or called one twice or not at all, by
    /// KVOSrvMtxRefusedInput "KVOSrvParallel::run": after the last task ended, those left out having been run by the
    /// calling thread. What `run` itself throws is thrown on in the same way.
    KVOSrvParallel(Run run, void* context, int threads = 0) noexcept;
    ~KVOSrvParallel();
    KVOSrvParallel(KVOSrvParallel const&) = delete;
    KVOSrvParallel& operator=(KVOSrvParallel const&) = delete;

private:
    Run m_formerRun;
    void* m_formerContext;
    int m_formerThreads;
};
