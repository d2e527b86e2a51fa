#include "cow_Btree.h"

template class cow_Btree<int, KVOSrvDenseMatrix*>;
