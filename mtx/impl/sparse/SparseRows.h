#pragma once

#include "Arrays.h"
#include "KVOSrvMatrixSupport.h"
#include "KVOSrvMtxExceptions.h"

/// What the sources of KVOSrvSparseMatrix share.
namespace KVOSrvSparseSupport
{

constexpr char const* kSource = "mtx/impl/KVOSrvSparseMatrix";

/// Refuses illegal input. @throws KVOSrvMtxRefusedInput unless what is asked for is valid
constexpr KVOSrvMatrixSupport::RefusalCheck RequireFitting(kSource, "KVOSrvSparseMatrix");

using Arrays::AllocateArray;
using Arrays::AllocateList;
using Arrays::Array;
using Arrays::GrowArray;
using Arrays::ShrinkArray;
using Arrays::UseLargePages;

} // namespace KVOSrvSparseSupport
