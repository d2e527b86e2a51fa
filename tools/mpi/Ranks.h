#pragma once

#include "Errors.h"

#include <cstddef>
#include <functional>
#include <mpi.h>
#include <string>
#include <vector>

/// All ranks end: one of them has told why.
struct EndedTogether {
    int code; ///< to exit with
};

/// The processes that share the work, from MPI_Init to MPI_Finalize. One object lives in main().
///
/// A failure is told once, in one line. What a rank does alone stands in Together(). What throws elsewhere, in the middle of calls that all
/// ranks make, is for main(), which hands it to End(): the others may wait for this rank in such a call.
class Ranks
{
public:
    Ranks();
    ~Ranks();
    Ranks(Ranks const&) = delete;
    Ranks& operator=(Ranks const&) = delete;

    int Rank() const noexcept { return m_rank; }
    int Size() const noexcept { return m_size; }
    bool IsFirst() const noexcept { return m_rank == 0; }

    /// Runs `work` on every rank; it communicates with no other one. To be called by all.
    /// @throws EndedTogether on all of them when it threw on any
    void Together(std::function<void()> const& work) const;
    /// The same of a work that is rank 0's.
    void OnFirst(std::function<void()> const& work) const;

    /// Gives all ranks what rank 0 has.
    void Share(void* memory, std::size_t bytes) const;
    void Share(std::string& text) const;
    template<class T>
    void Share(std::vector<T>& values) const
    {
        std::size_t count = values.size();
        Share(&count, sizeof count);
        values.resize(count);
        Share(values.data(), count * sizeof(T));
    }

    /// To be called in a handler. Tells what the exception at hand says, and ends the other ranks where they do not come here, too.
    /// @return the code to exit with
    int End() const noexcept;

private:
    int Agree(bool failed) const;

    MPI_Comm m_steps = MPI_COMM_NULL; // of Together()
    MPI_Comm m_end = MPI_COMM_NULL;   // of End(), which may meet ranks that are in Together()
    int m_rank = 0;
    int m_size = 1;
};
