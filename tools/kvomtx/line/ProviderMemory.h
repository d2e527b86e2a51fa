#pragma once

/// OpenBLAS takes a buffer for each thread that it computes with, and where it gets none it tries again for ever: its own threads from the
/// moment it is loaded, so that not even the end of the process is reached, and the calling thread in its first product. These make sure of
/// the buffers before. With any other provider of BLAS they do nothing.

/// To be called first of all. Where there is no room for the buffers of all threads, starts the program again with a single one.
void FitProviderThreads(char** arguments);

/// To be called before the first computation. Lets the provider take its buffer.
/// @throws std::bad_alloc when there is no room for it, or for those of the other threads that share the work
void RequireProviderMemory();
