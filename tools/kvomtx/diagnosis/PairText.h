#pragma once

struct PairDiagnosis;

/// A screen for a person.
void PrintPair(PairDiagnosis const& pair);
