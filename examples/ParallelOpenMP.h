#pragma once

#include "KVOSrvParallel.h"

#include <omp.h>

/// The threads of OpenMP for KVOSrvParallel, for a program that is compiled with OpenMP:
///
///     KVOSrvParallel const parallel(ParallelOpenMP::Run, nullptr, omp_get_max_threads());
struct ParallelOpenMP {
    static void Run(void*, int tasks, KVOSrvParallel::Task task, void* data)
    {
#pragma omp parallel for schedule(dynamic)
        for (int index = 0; index < tasks; ++index)
            task(data, index);
    }
};
