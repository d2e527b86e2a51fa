#include "Database.h"

#include "Errors.h"
#include "MatrixName.h"
#include "StandardStreams.h"

#include "KVOSimCSet.h"
#include "KVOSimCollection.h"
#include "KVOSrvSparseMatrix.h"
#include "KVOSrvUtilities.h"

namespace
{

constexpr char kJournal[] = ".journal"; // behind the path of the file itself, not that of a symbolic link

bool IsOfKind(KVOSimDistribution const& distribution, MatrixKind kind)
{
    return (kind != MatrixKind::kDense && KVOSrvUtilities::IsSparseMatrix(distribution)) ||
           (kind != MatrixKind::kSparse && KVOSrvUtilities::IsDenseMatrix(distribution));
}

} // namespace

InputDatabase::InputDatabase(std::string const& path) : m_path(path)
{
    m_database.OpenFile(DRXUnicodeString(path.c_str()), true);
}

KVOSimDistributionID InputDatabase::OnlyOne(KVOSimContextID const& context, MatrixKind kind) const
{
    KVOSimDistributionID only;
    for (KVOSimDistributionID const& id : KVOSimContext(context).QueryDistributions()) {
        if (!IsOfKind(KVOSimDistribution(id), kind))
            continue;
        if (!only.IsNull())
            throw ToolError(ExitCode::kUnreadable,
                            m_path + ": holds several matrices; name one as " + m_path + ":ID, kvomtx db ls shows the numbers");
        only = id;
    }
    if (only.IsNull()) {
        char const* const wanted = kind == MatrixKind::kSparse ? "sparse matrix" : kind == MatrixKind::kDense ? "dense matrix" : "matrix";
        throw ToolError(ExitCode::kUnreadable, m_path + ": holds no " + wanted + "; kvomtx db ls shows what it holds");
    }
    return only;
}

KVOSimDistributionID InputDatabase::Find(MatrixName const& name, MatrixKind kind) const
{
    KVOSimContextID context = m_database.ContextID();
    for (KVOSimContextID const& other : Contexts())
        if (other.Index() == name.context)
            context = other;
    if (context.IsNull() || (name.context >= 0 && context.Index() != name.context))
        throw ToolError(ExitCode::kUnreadable,
                        m_path + ": has no context " + std::to_string(name.context) + "; kvomtx db ls shows what it holds");
    if (name.distribution < 0)
        return OnlyOne(context, kind);
    for (KVOSimDistributionID const& id : KVOSimContext(context).QueryDistributions())
        if (id.Index() == name.distribution)
            return id;
    throw ToolError(ExitCode::kUnreadable,
                    m_path + ": holds no matrix " + std::to_string(name.distribution) + "; kvomtx db ls shows the numbers");
}

OutputDatabase::OutputDatabase(std::string const& path) : m_file(path, kJournal)
{
    if (path == kStandardStream)
        throw ToolError(ExitCode::kUsage, "a database cannot be written to the standard output; name a file");
    m_database.CreateFile(DRXUnicodeString(m_file.TemporaryPath().c_str()), 0);
    m_context = std::make_unique<KVOSimContext>(m_database.CreateContext());
    m_transaction = std::make_unique<KVOSimTransaction>(*m_context);
}

KVOSimCSetID OutputDatabase::MakeSet(int members)
{
    return KVOSimCollection(m_context->CreateCollection(members)).BiggestCSetID();
}

KVOSimDistributionID OutputDatabase::StoreSparse(KVOSrvSparseMatrix const& matrix, int type, KVOSimCSetID const& rows,
                                                 KVOSimCSetID const& columns, bool checksums)
{
    KVOSimPosition position(*m_context);
    KVOSimDistributionID const id = KVOSrvUtilities::CreateSparseDistribution(position, type, rows, columns);
    matrix.Export(rows, columns, id, checksums);
    return id;
}

void OutputDatabase::Describe(KVOSimDistributionID const& id, std::string const& title, std::string const& unit,
                              std::string const& description)
{
    KVOSimDistribution distribution(id);
    try {
        distribution.SetTitle(title.c_str(), unit.c_str(), description.c_str());
    } catch (KVOSimException const&) {
        distribution.SetTitle(DescribeType(distribution.Type()).c_str(), unit.c_str());
    }
}

void OutputDatabase::Finish()
{
    m_transaction->Commit();
    m_transaction.reset();
    m_context.reset();
    m_database.Close();
}

void OutputDatabase::Resume()
{
    m_database.OpenFile(DRXUnicodeString(m_file.TemporaryPath().c_str()), false);
    m_context = std::make_unique<KVOSimContext>(m_database.ContextID());
    m_transaction = std::make_unique<KVOSimTransaction>(*m_context);
}

void OutputDatabase::Commit()
{
    if (m_transaction)
        Finish();
    m_file.Commit();
}

std::string DescribeType(int type)
{
    switch (type) {
    case kStiffnessType:
        return "stiffness";
    case kMassType:
        return "mass";
    case kModesType:
        return "modes";
    case kEigenvaluesType:
        return "eigenvalues";
    case kParticipationType:
        return "participation factors";
    case kProductType:
        return "product";
    case kMatrixType:
        return "matrix";
    default:
        return {};
    }
}
