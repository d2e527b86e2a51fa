#include "Ranks.h"

#include "Failures.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string_view>
#include <thread>

namespace
{

// Of this rank. Not allocated: the memory may be exhausted.
struct {
    ExitCode code;
    std::size_t length;
    char text[4096];
} g_failure;

int Remember(ExitCode code, std::string_view text)
{
    g_failure.code = code;
    g_failure.length = std::min(text.size(), sizeof g_failure.text);
    std::memcpy(g_failure.text, text.data(), g_failure.length);
    return static_cast<int>(code);
}

int Tell(int rank)
{
    char prefix[64];
    int const length = rank == 0 ? std::snprintf(prefix, sizeof prefix, "kvomtx-mpi: ")
                                 : std::snprintf(prefix, sizeof prefix, "kvomtx-mpi: rank %d: ", rank);
    return WriteFailure({prefix, static_cast<std::size_t>(length)}, g_failure.code, {g_failure.text, g_failure.length});
}

} // namespace

Ranks::Ranks()
{
    int provided = 0;
    MPI_Init_thread(nullptr, nullptr, MPI_THREAD_FUNNELED, &provided); // other threads draw and watch, and never call MPI
    MPI_Comm_dup(MPI_COMM_WORLD, &m_steps);
    MPI_Comm_dup(MPI_COMM_WORLD, &m_end);
    MPI_Comm_rank(m_steps, &m_rank);
    MPI_Comm_size(m_steps, &m_size);
}

Ranks::~Ranks()
{
    MPI_Comm_free(&m_steps);
    MPI_Comm_free(&m_end);
    MPI_Finalize();
}

// @return the code that all end with, 0 when none has failed
int Ranks::Agree(bool failed) const
{
    int const mine = failed ? m_rank : m_size;
    int lowest = m_size;
    MPI_Allreduce(&mine, &lowest, 1, MPI_INT, MPI_MIN, m_steps);
    if (lowest == m_size)
        return 0;
    int code = m_rank == lowest ? Tell(m_rank) : 0;
    MPI_Bcast(&code, 1, MPI_INT, lowest, m_steps);
    return code;
}

void Ranks::Together(std::function<void()> const& work) const
{
    bool failed = false;
    try {
        work();
    } catch (...) {
        TellFailure(Remember);
        failed = true;
    }
    if (int const code = Agree(failed); code != 0)
        throw EndedTogether{code};
}

void Ranks::OnFirst(std::function<void()> const& work) const
{
    Together([&] {
        if (IsFirst())
            work();
    });
}

void Ranks::Share(void* memory, std::size_t bytes) const
{
    constexpr std::size_t kMost = std::size_t{1} << 30; // MPI counts in int
    auto* at = static_cast<char*>(memory);
    for (; bytes > 0; bytes -= std::min(bytes, kMost), at += kMost)
        MPI_Bcast(at, static_cast<int>(std::min(bytes, kMost)), MPI_BYTE, 0, m_steps);
}

void Ranks::Share(std::string& text) const
{
    std::size_t length = text.size();
    Share(&length, sizeof length);
    text.resize(length);
    Share(text.data(), length);
}

int Ranks::End() const noexcept
{
    using namespace std::chrono_literals;
    try {
        throw;
    } catch (EndedTogether const& end) {
        return end.code;
    } catch (...) {
        TellFailure(Remember);
    }
    // What fails for all ranks is told by one of them. Where some do not come, they wait for this one elsewhere.
    MPI_Request arrival = MPI_REQUEST_NULL;
    MPI_Ibarrier(m_end, &arrival);
    int arrived = 0;
    for (int tries = 0; tries < 200 && arrived == 0; ++tries) {
        MPI_Test(&arrival, &arrived, MPI_STATUS_IGNORE);
        if (arrived == 0)
            std::this_thread::sleep_for(10ms);
    }
    if (arrived != 0)
        return Agree(true);
    int const code = Tell(m_rank);
    MPI_Abort(m_end, code);
    return code;
}
