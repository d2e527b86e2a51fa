#pragma once

#include "OutputFile.h"

#include "KVOSimContext.h"
#include "KVOSimDatabase.h"
#include "KVOSimDistribution.h"
#include "KVOSimException.h"
#include "KVOSimTransaction.h"

#include <memory>
#include <string>

class KVOSrvSparseMatrix;
struct MatrixName;

/// Which matrices of a database are meant.
enum class MatrixKind { kSparse, kDense, kAny };

/// A database opened for reading. What goes wrong with it later, too, is a KVOSimException with its path or its journal's: products read
/// and write in one call of the library.
class InputDatabase
{
public:
    /// @throws KVOSimException
    explicit InputDatabase(std::string const& path);

    std::string const& Path() const noexcept { return m_path; }
    KVOSimArray<KVOSimContextID> Contexts() const { return m_database.QueryContexts(); }

    KVOSimCheckReport Check() const { return m_database.Check(); }

    /// The distribution that `name` says, of whatever kind. Without a number: the only one of `kind`.
    /// @throws ToolError kUnreadable when there is no such one, or no single one
    KVOSimDistributionID Find(MatrixName const& name, MatrixKind kind) const;

private:
    KVOSimDistributionID OnlyOne(KVOSimContextID const& context, MatrixKind kind) const;

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
    std::string const& TemporaryPath() const noexcept { return m_file.TemporaryPath(); }
    KVOSimContext& Context() noexcept { return *m_context; }

    /// The set of all members of a new collection.
    KVOSimCSetID MakeSet(int members);
    /// Stores a matrix over two sets, in half storage when it has that.
    /// @param type  kept with the distribution  @param checksums  of its values
    KVOSimDistributionID StoreSparse(KVOSrvSparseMatrix const& matrix, int type, KVOSimCSetID const& rows, KVOSimCSetID const& columns,
                                     bool checksums);
    /// Says what a matrix is, see KVOSimDistribution::SetTitle(). A text that is no UTF-8, as a file's name may be, is left out.
    static void Describe(KVOSimDistributionID const& id, std::string const& title, std::string const& unit, std::string const& description);

    /// Completes the database under its temporary name; nothing in it can be used any more. Commit() does so where it was not done.
    /// @throws KVOSimException
    void Finish();
    /// After Finish(): opens it again under its temporary name, to add to it. Identifiers are to be asked for anew.
    /// @throws KVOSimException
    void Resume();
    /// @throws ToolError kUnwritable, KVOSimException, Interrupted, see OutputFile::Commit()
    void Commit();

private:
    OutputFile m_file;
    KVOSimDatabase m_database;
    std::unique_ptr<KVOSimContext> m_context;
    std::unique_ptr<KVOSimTransaction> m_transaction;
};

/// The numbers that kvomtx gives to the distributions it makes, which tell later what they are.
enum DistributionType : int {
    kMatrixType = 1,
    kStiffnessType = 2,
    kMassType = 3,
    kModesType = 4,
    kEigenvaluesType = 5,
    kProductType = 6,
    kParticipationType = 7
};

/// As "modes"; empty for others.
std::string DescribeType(int type);
