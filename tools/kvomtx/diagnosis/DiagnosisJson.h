#pragma once

struct MatrixDiagnosis;

/// All that is known, as one object.
void PrintDiagnosisJson(MatrixDiagnosis const& facts);
