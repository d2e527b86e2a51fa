#pragma once

#include <cstdint>

/// The begin of a dense matrix file; the elements follow column by column.
struct DenseFileHeader {
    std::int32_t rows;
    std::int32_t columns;
    std::int32_t rowsAgain;
    std::int32_t columnsAgain;
};
static_assert(sizeof(DenseFileHeader) == 16);
