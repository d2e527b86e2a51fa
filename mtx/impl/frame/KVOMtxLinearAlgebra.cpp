#include "KVOMtxLinearAlgebra.h"

#include "KVOBasModules.h"
#include "KVOBasUseCount.h"
#include "KVOSrvTimer.h"

namespace
{

KVOBasUseCount s_library;
KVOBasUseCount s_matrixModule;

} // namespace

void KVOMtxLinearAlgebra_initialize(int& tally)
{
    if (!s_library.Start(tally))
        return;
    KVOBasCoreUtils_initialize(tally);
    KVOBasShared_initialize(tally);
    KVOBasDrexa_initialize(tally);
    KVOSimContainers_initialize(tally);
    KVOSimAPI_initialize(tally);
    KVOSrvBasic_initialize(tally);
    KVOFsmShared_initialize(tally);
    blaC_initialize(tally);
    mtx_initialize(tally);
}

void KVOMtxLinearAlgebra_finalize(int& tally)
{
    if (!s_library.End(tally))
        return;
    mtx_finalize(tally);
    blaC_finalize(tally);
    KVOFsmShared_finalize(tally);
    KVOSrvBasic_finalize(tally);
    KVOSimAPI_finalize(tally);
    KVOSimContainers_finalize(tally);
    KVOBasDrexa_finalize(tally);
    KVOBasShared_finalize(tally);
    KVOBasCoreUtils_finalize(tally);
}

void mtx_initialize(int& tally)
{
    s_matrixModule.Start(tally);
}

void mtx_finalize(int& tally)
{
    if (s_matrixModule.End(tally))
        delete omi_SingletonBase<KVOSrvTimer>::Instance();
}
