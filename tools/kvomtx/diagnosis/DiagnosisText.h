#pragma once

struct MatrixDiagnosis;

/// A screen for a person.
void PrintDiagnosis(MatrixDiagnosis const& facts);
