#pragma once

#include "OutputFile.h"

#include "KVOSimContext.h"
#include "KVOSimDatabase.h"
#include "KVOSimDistribution.h"
#include "KVOSimTransaction.h"

#include <memory>
#include <string>

class KVOSrvSparseMatrix;
struct MatrixName;

/// A database opened for reading.
class InputDatabase
{
public:
    /// @throws ToolError kUnreadable
    explicit InputDatabase(std::string const& path);

    std::string const& Path() const noexcept { return m_path; }
    KVOSimArray<KVOSimContextID> Contexts() const { return m_database.QueryContexts(); }

    /// The distribution that `name` says. Without a number: the only one of the kind.
    /// @throws ToolError kUnreadable when there is no such one, or no single one
    KVOSimDistributionID Find(MatrixName const& name, bool sparse) const;

private:
    KVOSimDistributionID OnlyOne(KVOSimContextID const& context, bool sparse) const;

    std::string m_path;
    KVOSimDatabase m_database;
};

/// A database that is made as a whole, see OutputFile.
class OutputDatabase
{
public:
    /// @throws ToolError kUnwritable
    explicit OutputDatabase(std::string const& path);

    std::string const& Path() const noexcept { return m_file.Path(); }
    KVOSimContext& Context() noexcept { return *m_context; }

    /// The set of all members of a new collection.
    KVOSimCSetID MakeSet(int members);
    /// Stores a matrix over two sets, in half storage when it has that.
    /// @param type  kept with the distribution
    KVOSimDistributionID StoreSparse(KVOSrvSparseMatrix const& matrix, int type, KVOSimCSetID const& rows, KVOSimCSetID const& columns);

    /// @throws ToolError kUnwritable, KVOSimException
    void Commit();

private:
    OutputFile m_file;
    KVOSimDatabase m_database;
    std::unique_ptr<KVOSimContext> m_context;
    std::unique_ptr<KVOSimTransaction> m_transaction;
};

/// The numbers that kvomtx gives to the distributions it makes, which tell later what they are.
enum DistributionType : int { kMatrixType = 1, kStiffnessType = 2, kMassType = 3, kModesType = 4, kEigenvaluesType = 5, kProductType = 6 };

/// As "modes"; empty for others.
std::string DescribeType(int type);
