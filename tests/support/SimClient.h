#pragma once

#include "KVOSimCSet.h"
#include "KVOSimCollection.h"
#include "KVOSimContext.h"
#include "KVOSimDatabase.h"
#include "KVOSimDistribution.h"
#include "KVOSimPosition.h"
#include "KVOSimTransaction.h"
#include "KVOSimTransfer.h"
#include "SimFailure.h"
#include "TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

/// A client of the database, for tests.
namespace SimClient
{

/// A database in a fresh folder.
class DatabaseTest : public testing::Test
{
protected:
    /// Makes the file, with one context.
    KVOSimContextID Create()
    {
        database.CreateFile(path.c_str(), 0);
        return database.CreateContext();
    }
    void Reopen(bool readOnly = false)
    {
        database.Close();
        database.OpenFile(path.c_str(), readOnly);
    }
    /// The same object of context 0 once the file was opened again.
    template<class ID>
    ID Again(ID const& id) const
    {
        return {database.ContextID(), id.Index()};
    }

    TemporaryFolder const folder{FolderWithoutDisk()};
    std::string const path = folder / "test.sim";
    KVOSimDatabase database;
};

inline std::vector<int> ToVector(KVOSimArray<int> const& array)
{
    return {array.begin(), array.end()};
}

/// The member numbers of a set.
inline std::vector<int> NumbersOf(KVOSimCSetID const& set)
{
    return ToVector(KVOSimCSet(set).OrderedMembers());
}

inline KVOSimCSetID MakeSet(KVOSimCollectionID const& collection, std::vector<int> const& numbers)
{
    return KVOSimCollection(collection).CreateOrderedCSet(numbers.data(), static_cast<int>(numbers.size()));
}

inline KVOSimCSetID Biggest(KVOSimCollectionID const& collection)
{
    return KVOSimCollection(collection).BiggestCSetID();
}

/// A transfer that is to make a drawer over `sets`, dense unless said otherwise later.
inline KVOSimTransfer NewDrawer(KVOSimDistribution const& distribution, std::vector<KVOSimCSetID> const& sets,
                                std::vector<int> const& chunks)
{
    KVOSimTransfer transfer(distribution);
    if (chunks.empty())
        transfer.SetMakeNewDrawer();
    else
        transfer.SetMakeNewDrawerChunked(KVOSimArray<int>(chunks));
    transfer.SetWrite();
    for (std::size_t d = 0; d < sets.size(); ++d)
        transfer.SetDim(static_cast<int>(d), sets[d]);
    return transfer;
}

inline KVOSimGrid GridOf(std::vector<KVOSimCollectionID> const& collections)
{
    return KVOSimGrid(KVOSimArray<KVOSimCollectionID>(collections));
}

/// A distribution without a drawer over `collections`.
inline KVOSimDistributionID MakeDistribution(KVOSimContextID const& context, std::vector<KVOSimCollectionID> const& collections,
                                             int typeKey = KVOSimDouble)
{
    return KVOSimContext(context).CreateDistribution(GridOf(collections), KVOSimRangeType(typeKey), -1);
}

/// A distribution of doubles over the collections of `sets`, with one dense drawer of zeros.
inline KVOSimDistributionID MakeMatrix(KVOSimContextID const& context, std::vector<KVOSimCSetID> const& sets,
                                       std::vector<int> const& chunks = {}, double initial = 0.0)
{
    std::vector<KVOSimCollectionID> collections;
    for (KVOSimCSetID const& set : sets)
        collections.push_back(set.CollectionID());
    KVOSimDistributionID const id = MakeDistribution(context, collections);
    KVOSimTransfer transfer = NewDrawer(KVOSimDistribution(id), sets, chunks);
    transfer.SetInitializationValue(initial, KVOSimDouble);
    transfer.CheckView();
    transfer.InitializePersistentDrawer();
    return id;
}

inline KVOSimArray<KVOSimDrawer> DrawersOf(KVOSimDistributionID const& id)
{
    KVOSimArray<KVOSimDrawer> drawers;
    KVOSimDistribution(id).QueryDrawers(drawers);
    return drawers;
}
inline KVOSimDrawer Describe(KVOSimDistributionID const& id)
{
    return DrawersOf(id)[0];
}

/// A transfer over all of drawer 0.
inline KVOSimTransfer WholeView(KVOSimDistributionID const& id)
{
    KVOSimTransfer transfer{KVOSimDistribution(id)};
    transfer.SetRead();
    transfer.SetWrite();
    KVOSimDrawer const drawer = Describe(id);
    transfer.SetSerialization(drawer.serialization);
    for (int d = 0; d < drawer.csets.Size(); ++d)
        transfer.SetDim(d, drawer.csets[d]);
    return transfer;
}
/// A transfer over ordinals of drawer 0: of the first and the last, for each dimension.
inline KVOSimTransfer Window(KVOSimDistributionID const& id, std::vector<std::pair<int, int>> const& ranges)
{
    KVOSimTransfer transfer = WholeView(id);
    for (int d = 0; d < static_cast<int>(ranges.size()); ++d)
        transfer.SetDimOrdinalRange(d, Describe(id).csets[d].CollectionID(), ranges[static_cast<std::size_t>(d)].first,
                                    ranges[static_cast<std::size_t>(d)].second);
    return transfer;
}

/// Reads into all of `values`, or writes them.
template<class T>
void Read(KVOSimTransfer transfer, std::vector<T>& values)
{
    transfer.SetBuffer(0, values.data(), values.size() * sizeof(T));
    transfer.ExecRead();
}
template<class T>
void Write(KVOSimTransfer transfer, std::vector<T> const& values)
{
    transfer.SetBuffer(0, values.data(), values.size() * sizeof(T));
    transfer.ExecWrite();
}

inline std::vector<double> ReadAll(KVOSimDistributionID const& id)
{
    std::vector<double> values(static_cast<std::size_t>(KVOSimDistribution(id).DataSizeItems(0, 0)), -99.0);
    Read(WholeView(id), values);
    return values;
}
inline void WriteAll(KVOSimDistributionID const& id, std::vector<double> const& values)
{
    Write(WholeView(id), values);
}

/// Adds members to a dimension of drawer 0.
inline void Extend(KVOSimDistributionID const& id, int dim, KVOSimCSetID const& members)
{
    KVOSimTransfer transfer{KVOSimDistribution(id)};
    transfer.SetWrite();
    transfer.SetDimExtension(dim, members);
    transfer.CheckView();
    transfer.InitializeExtension();
}

/// The drawer of a distribution in two dimensions made sparse: compressed rows, counted from 0; with a diagonal, half of a symmetric
/// matrix.
struct Rows {
    std::vector<double> values;
    std::vector<int> columnIndices, rowStart;
    std::vector<double> diagonal;

    friend bool operator==(Rows const&, Rows const&) = default;

    KVOSimSerializationType Type() const
    {
        KVOSimSerializationType type;
        diagonal.empty() ? type.SetSparse() : type.SetSparseSym();
        return type;
    }
    /// Hands the arrays of `rows`, which may be const, to a transfer.
    template<class Matrix>
    static void SetBuffers(KVOSimTransfer& transfer, Matrix& rows)
    {
        transfer.SetBuffer(2, rows.rowStart.data(), rows.rowStart.size() * 4);
        transfer.SetBuffer(1, rows.columnIndices.data(), rows.columnIndices.size() * 4);
        transfer.SetBuffer(0, rows.values.data(), rows.values.size() * 8);
        if (!rows.diagonal.empty())
            transfer.SetBuffer(3, rows.diagonal.data(), rows.diagonal.size() * 8);
    }
    /// A transfer that is to make the drawer.
    KVOSimTransfer NewDrawer(KVOSimDistributionID const& id, std::vector<KVOSimCSetID> const& sets) const
    {
        KVOSimTransfer transfer = SimClient::NewDrawer(KVOSimDistribution(id), sets, {});
        transfer.SetSparseNNonzero(static_cast<std::int64_t>(values.size()));
        transfer.SetSerialization(Type());
        SetBuffers(transfer, *this);
        return transfer;
    }
    /// A new distribution with the drawer.
    KVOSimDistributionID Store(KVOSimContextID const& context, KVOSimCSetID const& rowSet, KVOSimCSetID const& columnSet) const
    {
        KVOSimDistributionID const id = MakeDistribution(context, {rowSet.CollectionID(), columnSet.CollectionID()});
        KVOSimTransfer transfer = NewDrawer(id, {rowSet, columnSet});
        transfer.CheckView();
        transfer.ExecWrite();
        return id;
    }
};

/// first, first + 1, ...
inline std::vector<double> Ramp(std::size_t count, double first = 1.0)
{
    std::vector<double> values(count);
    std::iota(values.begin(), values.end(), first);
    return values;
}

} // namespace SimClient
