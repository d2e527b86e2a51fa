#pragma once

struct MatrixDiagnosis;
struct PairDiagnosis;

/// All that is known, as one object.
void PrintDiagnosisJson(MatrixDiagnosis const& facts);
/// The same of two matrices and what they are together.
void PrintPairJson(PairDiagnosis const& pair);
