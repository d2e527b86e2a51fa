#pragma once

#include "KVOExport.h"

/// @file
/// Start and end of the library and of its modules.
///
/// Every entry counts its users. The start that takes its count from 0 to 1 adds 1 to `tally`, the caller's count of
/// running modules; the end that takes it from 1 to 0 takes 1 off; nested pairs do nothing else. An end without a start
/// takes the count to -1 and does nothing; the start that follows then does nothing either. Not locked: call them from
/// the host's main thread.

/// Starts the library. The first start also starts, with the same tally, KVOBasCoreUtils, KVOBasShared, KVOBasDrexa,
/// KVOSimContainers, KVOSimAPI, KVOSrvBasic, KVOFsmShared, the BLAS layer and the matrix module, in this order. Call it
/// before any other entry point.
KVO_EXPORT void KVOMtxLinearAlgebra_initialize(int& tally);

/// Ends the library; the last end also ends what the first start started, in reverse order.
KVO_EXPORT void KVOMtxLinearAlgebra_finalize(int& tally);

/// Starts the matrix module. The process timer is not made here but on its first use.
KVO_EXPORT void mtx_initialize(int& tally);

/// Ends the matrix module; the last end destroys the process timer, if there is one.
KVO_EXPORT void mtx_finalize(int& tally);

/// Starts the BLAS layer.
KVO_EXPORT void blaC_initialize(int& tally);

/// Ends the BLAS layer.
KVO_EXPORT void blaC_finalize(int& tally);

/// Does nothing; callers of old still name it.
KVO_EXPORT void blaC_formalize();
