#pragma once

#include "GrowingColumns.h"

#include "KVOSimContext.h"
#include "KVOSimDatabase.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

/// The database in which a search is kept, so that it can go on when its process has ended: its state, the columns of its basis, and the
/// modes that it has found.
///
/// Values that are overwritten are not rolled back when a process ends, so what is kept never lies where the last kept state or its basis
/// does: both have two places. The number of the only row of a further matrix is that of the keeping that counts; it is part of the
/// catalogue, which changes at once.
class SearchFile
{
public:
    /// The basis that belongs to a state.
    struct Basis {
        int columns;
        std::uint64_t generation; ///< the same while columns are only added; then they are written once
        std::function<void(int first, KVOSrvMatrix& columns)> read;
    };
    using Take = std::function<void(KVOSrvMatrix const& columns)>;

    /// Makes the file, or opens one to go on.
    /// @throws KVOSrvModesFailure Kept  the file to make is there, the one to open is none of a search, or damaged
    /// @throws KVOSimException  it cannot be made or opened
    SearchFile(std::string path, int order, bool goesOn);
    SearchFile(SearchFile const&) = delete;
    SearchFile& operator=(SearchFile const&) = delete;
    /// Closes the file. One that was made here, in which no search was kept that had begun, goes.
    ~SearchFile();

    std::string const& Path() const noexcept { return m_path; }
    /// As it was kept, given away; empty when nothing was.
    std::vector<double> TakeState() noexcept { return std::move(m_state); }
    /// Gives the kept columns of the basis, some at a time, in order. @param generation  of the basis that they make
    void ReadBasis(std::uint64_t generation, Take const& take);
    /// The same of all modes that were kept.
    void ReadModes(Take const& take) const;

    /// Whether enough time has passed that keeping takes a twentieth of it at most.
    bool IsDue() const noexcept;
    /// Commits a state.
    /// @param basis  null: it has none @param modes  added to those kept; null: none
    /// @throws KVOSimException; the last one stays
    void Keep(std::vector<double> const& state, Basis const* basis, KVOSrvMatrix const* modes);

private:
    using Clock = std::chrono::steady_clock;

    // What stands in front of a state; all words of 64 bits.
    struct Head {
        std::uint64_t form;
        std::uint64_t keeping; // from 1
        std::uint64_t words;
        std::uint64_t sum; // of the head with a sum of 0 and the words
        std::uint64_t basisPlace;
        std::uint64_t basisColumns;
        std::uint64_t basisSum;
        std::uint64_t modes;
        std::uint64_t modesSum;
    };

    void Make(int order);
    static void FillNew(std::string const& path, int order);
    void Open(int order);
    void ReadState(std::uint64_t keeping);
    void ReadColumns(GrowingColumns const& from, std::uint64_t count, std::uint64_t sum, Take const& take) const;
    void KeepBasis(Basis const& basis, Head& head);
    void KeepState(std::vector<double> const& state, Head& head);
    void Mark(std::uint64_t keeping);
    GrowingColumns& Place(int part, std::uint64_t place) { return m_parts[static_cast<std::size_t>(part) + place]; }
    [[noreturn]] void Refuse(std::string const& why, int line = __builtin_LINE()) const;

    std::string m_path;
    bool m_isMade;
    KVOSimDatabase m_database;
    std::unique_ptr<KVOSimContext> m_context;
    KVOSimDistributionID m_mark;
    std::vector<GrowingColumns> m_parts; // two places of the state, two of the basis, the modes
    Head m_head{};
    std::vector<double> m_state;
    std::uint64_t m_generation = 0; // of the basis that was kept
    Clock::time_point m_end;        // of the last keeping, and how long it took
    Clock::duration m_cost{};
};
