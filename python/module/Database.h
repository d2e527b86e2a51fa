#pragma once

#include "Home.h"

#include "KVOSimContext.h"
#include "KVOSimDatabase.h"
#include "KVOSimDistribution.h"
#include "KVOSimTransaction.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// Where a matrix is in a database: numbers that stay the same when the file is opened again.
struct Place {
    int context = 0;
    int distribution = 0;
};

/// What a database holds at one place.
struct Entry {
    Place place;
    int kind = 0;            ///< a KVOSimDrawerKind
    int typeKey = 0;         ///< a KVOSimTypeKey
    int type = -1;           ///< the number that the maker gave it
    std::vector<int> shape;  ///< rows first: the dimensions from the last one to the first
    std::vector<int> chunks; ///< alike; empty: not chunked
    std::int64_t values = 0; ///< stored ones
    std::string title;       ///< empty: none
    std::string unit;
    std::string description;
};

/// What the maker says of a matrix; see KVOSimDistribution::SetTitle().
struct About {
    int type = -1;
    std::string title;
    std::string unit;
    std::string description;

    void Tell(KVOSimDistributionID const& id) const;
};

/// A database file as the classes of Python share it.
class Database : public Home
{
public:
    /// @param create  makes the file, which must not exist
    Database(std::string path, bool create, bool readOnly);
    ~Database() override;

    bool IsClosed() const noexcept override { return !m_database.IsOpen(); }
    bool IsReadOnly() const noexcept { return m_readOnly; }
    std::string const& Path() const noexcept { return m_path; }
    /// How often the file was opened: what was bound to it before has to be bound again.
    int Opened() const noexcept { return m_opened; }

    // Those that follow are called alone in this home.

    void Close();
    /// What there is keeps its place; it is bound anew. The journal of a file that had that name goes with it.
    void CloseAndMoveTo(std::string const& path);
    void Reopen();
    void Begin();
    void Commit();
    void RollBack() noexcept { m_transaction.reset(); }
    bool IsInTransaction() const noexcept { return m_transaction != nullptr; }

    std::vector<Entry> List() const;
    Entry Describe(Place const& place) const;
    /// The matrix of that title, if there is one.
    std::optional<Place> Find(std::string const& title) const;
    KVOSimDistributionID IdOf(Place const& place) const;
    /// Where new matrices are made.
    KVOSimContext FirstContext() const;
    /// Makes a dense matrix of zeros. @param chunks  none: not chunked
    Place CreateDense(std::vector<std::int64_t> const& shape, int typeKey, std::optional<std::vector<int>> const& chunks,
                      About const& about, bool checksums);

    /// The bytes of the file, where another one has not taken its name: for mappings.
    int Descriptor() const;
    std::string Check() const;

private:
    void Open();
    void RememberContexts();

    std::string m_path;
    bool m_readOnly;
    int m_opened = 0;
    int m_descriptor = -1;
    KVOSimDatabase m_database;
    std::vector<KVOSimContextID> m_contexts;
    std::unique_ptr<KVOSimTransaction> m_transaction;
};
