#pragma once

#include <string>

struct EntryPlace;
struct MatrixDiagnosis;

/// A screen for a person.
void PrintDiagnosis(MatrixDiagnosis const& facts);

/// As "(3, 4) line 17".
std::string PlaceText(EntryPlace const& place);
/// The shortest of at most six digits.
std::string NumberText(double value);
