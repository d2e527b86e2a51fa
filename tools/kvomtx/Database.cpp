#include "Database.h"

#include "Errors.h"
#include "MatrixName.h"

#include "KVOSimCSet.h"
#include "KVOSimCollection.h"
#include "KVOSimException.h"
#include "KVOSrvSparseMatrix.h"
#include "KVOSrvUtilities.h"

InputDatabase::InputDatabase(std::string const& path) : m_path(path)
{
    try {
        m_database.OpenFile(DRXUnicodeString(path.c_str()), true);
    } catch (KVOSimException const& error) {
        throw ToolError(ExitCode::kUnreadable, error.UserReport().c_str());
    }
}

KVOSimDistributionID InputDatabase::OnlyOne(KVOSimContextID const& context, bool sparse) const
{
    KVOSimDistributionID only;
    for (KVOSimDistributionID const& id : KVOSimContext(context).QueryDistributions()) {
        KVOSimDistribution const distribution(id);
        if (!(sparse ? KVOSrvUtilities::IsSparseMatrix(distribution) : KVOSrvUtilities::IsDenseMatrix(distribution)))
            continue;
        if (!only.IsNull())
            throw ToolError(ExitCode::kUnreadable,
                            m_path + ": holds several matrices; name one as " + m_path + ":ID, kvomtx db ls shows the numbers");
        only = id;
    }
    if (only.IsNull())
        throw ToolError(ExitCode::kUnreadable,
                        m_path + ": holds no " + (sparse ? "sparse" : "dense") + " matrix; kvomtx db ls shows what it holds");
    return only;
}

KVOSimDistributionID InputDatabase::Find(MatrixName const& name, bool sparse) const
{
    KVOSimContextID context = m_database.ContextID();
    for (KVOSimContextID const& other : Contexts())
        if (other.Index() == name.context)
            context = other;
    if (context.IsNull() || (name.context >= 0 && context.Index() != name.context))
        throw ToolError(ExitCode::kUnreadable,
                        m_path + ": has no context " + std::to_string(name.context) + "; kvomtx db ls shows what it holds");
    if (name.distribution < 0)
        return OnlyOne(context, sparse);
    for (KVOSimDistributionID const& id : KVOSimContext(context).QueryDistributions())
        if (id.Index() == name.distribution)
            return id;
    throw ToolError(ExitCode::kUnreadable,
                    m_path + ": holds no matrix " + std::to_string(name.distribution) + "; kvomtx db ls shows the numbers");
}

OutputDatabase::OutputDatabase(std::string const& path) : m_file(path)
{
    m_database.CreateFile(DRXUnicodeString(m_file.TemporaryPath().c_str()), 0);
    m_context = std::make_unique<KVOSimContext>(m_database.CreateContext());
    m_transaction = std::make_unique<KVOSimTransaction>(*m_context);
}

KVOSimCSetID OutputDatabase::MakeSet(int members)
{
    return KVOSimCollection(m_context->CreateCollection(members)).BiggestCSetID();
}

KVOSimDistributionID OutputDatabase::StoreSparse(KVOSrvSparseMatrix const& matrix, int type, KVOSimCSetID const& rows,
                                                 KVOSimCSetID const& columns)
{
    KVOSimPosition position(*m_context);
    KVOSimDistributionID const id = KVOSrvUtilities::CreateSparseDistribution(position, type, rows, columns);
    matrix.Export(rows, columns, id);
    return id;
}

void OutputDatabase::Commit()
{
    m_transaction->Commit();
    m_transaction.reset();
    m_context.reset();
    m_database.Close();
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
    case kProductType:
        return "product";
    case kMatrixType:
        return "matrix";
    default:
        return {};
    }
}
