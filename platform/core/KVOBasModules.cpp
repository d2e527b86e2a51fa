#include "KVOBasModules.h"

#include "KVOBasUseCount.h"

namespace
{

KVOBasUseCount s_basCoreUtils, s_basShared, s_basDrexa, s_simContainers, s_simAPI, s_srvBasic, s_fsmShared;

} // namespace

void KVOBasCoreUtils_initialize(int& tally)
{
    s_basCoreUtils.Start(tally);
}
void KVOBasCoreUtils_finalize(int& tally)
{
    s_basCoreUtils.End(tally);
}
void KVOBasShared_initialize(int& tally)
{
    s_basShared.Start(tally);
}
void KVOBasShared_finalize(int& tally)
{
    s_basShared.End(tally);
}
void KVOBasDrexa_initialize(int& tally)
{
    s_basDrexa.Start(tally);
}
void KVOBasDrexa_finalize(int& tally)
{
    s_basDrexa.End(tally);
}
void KVOSimContainers_initialize(int& tally)
{
    s_simContainers.Start(tally);
}
void KVOSimContainers_finalize(int& tally)
{
    s_simContainers.End(tally);
}
void KVOSimAPI_initialize(int& tally)
{
    s_simAPI.Start(tally);
}
void KVOSimAPI_finalize(int& tally)
{
    s_simAPI.End(tally);
}
void KVOSrvBasic_initialize(int& tally)
{
    s_srvBasic.Start(tally);
}
void KVOSrvBasic_finalize(int& tally)
{
    s_srvBasic.End(tally);
}
void KVOFsmShared_initialize(int& tally)
{
    s_fsmShared.Start(tally);
}
void KVOFsmShared_finalize(int& tally)
{
    s_fsmShared.End(tally);
}
