#pragma once

#include "MatrixDiagnosis.h"

#include <vector>

/// Gathers what single entries tell, which may come in any order.
class EntryTally
{
public:
    EntryTally(int rows, int columns);

    /// An entry of a sparse matrix, or a value of a dense one that is not 0.
    void Add(int row, int column, double value);
    /// A 0 of a dense matrix.
    void AddZero();

    /// Of the finite values so far; 1 when all of them are 0.
    double LargestSize() const;

    /// What was found. Nothing can be added any more.
    MatrixDiagnosis Finish();

private:
    enum : char { kNothing, kZeros, kValues };

    /// @param stored  each row or column, by what it holds
    static void List(std::vector<char> const& stored, Found<int>& empty, Found<int>& zero);
    void JudgeRows();
    void JudgeNorms();

    MatrixDiagnosis m_facts;
    std::vector<char> m_rows, m_columns; // what they hold
    std::vector<int> m_rowCounts;
    std::vector<int> m_first;                    // of a square matrix: the first unknown that shares an entry with each, itself at last
    std::vector<double> m_rowSums, m_columnSums; // of sizes, the rows of a square matrix without the diagonal
    long double m_squares = 0.0;                 // its range holds the square of any double
};
