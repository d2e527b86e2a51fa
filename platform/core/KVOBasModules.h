#pragma once

#include "KVOExport.h"

/// @file
/// Start and end of the platform's libraries. Each counts its users; the first start adds 1 to the caller's tally of
/// running modules, the last end takes 1 off. The stand-alone platform is one shared library whose parts need no
/// further preparation.

/// Starts the core utilities.
KVO_EXPORT void KVOBasCoreUtils_initialize(int& tally);
/// Ends the core utilities.
KVO_EXPORT void KVOBasCoreUtils_finalize(int& tally);
/// Starts what the platform's libraries share.
KVO_EXPORT void KVOBasShared_initialize(int& tally);
/// Ends what the platform's libraries share.
KVO_EXPORT void KVOBasShared_finalize(int& tally);
/// Starts the texts.
KVO_EXPORT void KVOBasDrexa_initialize(int& tally);
/// Ends the texts.
KVO_EXPORT void KVOBasDrexa_finalize(int& tally);
/// Starts the containers of the database.
KVO_EXPORT void KVOSimContainers_initialize(int& tally);
/// Ends the containers of the database.
KVO_EXPORT void KVOSimContainers_finalize(int& tally);
/// Starts the interface of the database.
KVO_EXPORT void KVOSimAPI_initialize(int& tally);
/// Ends the interface of the database.
KVO_EXPORT void KVOSimAPI_finalize(int& tally);
/// Starts the basic services.
KVO_EXPORT void KVOSrvBasic_initialize(int& tally);
/// Ends the basic services.
KVO_EXPORT void KVOSrvBasic_finalize(int& tally);
/// Starts the degrees of freedom.
KVO_EXPORT void KVOFsmShared_initialize(int& tally);
/// Ends the degrees of freedom.
KVO_EXPORT void KVOFsmShared_finalize(int& tally);
