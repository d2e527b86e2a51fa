// The start and the end of the layer.

#include "KVOBasUseCount.h"
#include "KVOMtxLinearAlgebra.h"

namespace
{

KVOBasUseCount s_layer;

} // namespace

void blaC_initialize(int& tally)
{
    s_layer.Start(tally);
}

void blaC_finalize(int& tally)
{
    s_layer.End(tally);
}

void blaC_formalize() {}
