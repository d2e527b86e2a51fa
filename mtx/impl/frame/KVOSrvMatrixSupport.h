#pragma once

#include "KVOSrvMtxExceptions.h"

/// Refusals, and what all classes tell BLAS and LAPACK alike.
namespace KVOSrvMatrixSupport
{

/// Refuses illegal input; every source of the class has one that carries its name.
class InputCheck
{
public:
    explicit constexpr InputCheck(char const* source) : m_source(source) {}
    /// @throws KVOSrvMtxIllegalInput `operation` unless `valid`
    void operator()(bool valid, char const* operation, int line = __builtin_LINE()) const
    {
        if (!valid)
            KVOSrvMtxIllegalInput(operation).Throw(m_source, line);
    }

private:
    char const* m_source;
};

/// The same for another class than KVOSrvMatrix.
class RefusalCheck
{
public:
    constexpr RefusalCheck(char const* source, char const* className) : m_source(source), m_className(className) {}
    /// @throws KVOSrvMtxRefusedInput unless `valid` @param reason  what does not fit, as in "X has not as many rows as the matrix"
    void operator()(bool valid, char const* operation, char const* reason, int line = __builtin_LINE()) const
    {
        if (!valid)
            KVOSrvMtxRefusedInput(m_className, operation, reason).Throw(m_source, line);
    }

private:
    char const* m_source;
    char const* m_className;
};

/// The leading dimension that BLAS and LAPACK take for `rows` rows: they refuse 0, also for an empty matrix.
constexpr int LeadingDimension(int rows) noexcept
{
    return rows > 0 ? rows : 1;
}

} // namespace KVOSrvMatrixSupport
