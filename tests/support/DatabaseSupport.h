#pragma once

#include "KVOSrvDenseMatrix.h"
#include "KVOSrvUtilities.h"
#include "MatrixSupport.h"
#include "SimClient.h"

/// A database in a fresh folder, with one context, and matrices in it.
class TestDatabase
{
public:
    TestDatabase()
    {
        m_database.SetScratch(); // nothing here is about syncing
        m_database.CreateFile(DRXUnicodeString(Path().c_str()), 0);
        m_database.CreateContext();
    }

    std::string Path() const { return m_folder / "test.sim"; }
    KVOSimContext Context() const
    {
        KVOSimContext context(m_database.ContextID());
        context.Open();
        return context;
    }

    /// A new set of `count` members, numbered from `first` on in steps of `step`, in a collection of its own.
    KVOSimCSetID Members(int count, int first = 0, int step = 1) const
    {
        std::vector<int> numbers;
        for (int i = 0; i < count; ++i)
            numbers.push_back(first + i * step);
        return Members(numbers);
    }
    KVOSimCSetID Members(std::vector<int> const& numbers) const
    {
        return SimClient::MakeSet(Context().CreateCollection(static_cast<int>(numbers.size())), numbers);
    }

    /// A new matrix of zeros; chunk sizes as Create2DDistribution takes them.
    KVOSimDistributionID Matrix(int rows, int columns, int rowChunk, int columnChunk) const
    {
        return KVOSrvUtilities::Create2DDistribution(Members(rows), Members(columns), rowChunk, columnChunk);
    }

private:
    TemporaryFolder m_folder;
    KVOSimDatabase m_database;
};

using SimClient::NumbersOf;
using SimClient::ToVector;

/// All values of a stored matrix.
inline Dense ValuesOf(KVOSrvDenseMatrix const& matrix)
{
    Dense values(matrix.NumberOfRows(), matrix.NumberOfColumns());
    matrix.GetAllValues(values.data());
    return values;
}

/// Stores random values in all of a matrix and returns them.
inline Dense Randomize(KVOSrvDenseMatrix& matrix)
{
    KVOSrvMatrix const values = RandomMatrix(matrix.NumberOfRows(), matrix.NumberOfColumns());
    matrix.SetRows(0, matrix.NumberOfRows() - 1, values);
    return Dense(values);
}
