#pragma once

#include <string>
#include <vector>

struct MatrixDiagnosis;
struct PairDiagnosis;

/// Words for what may be wrong with a matrix or a pair, so that a pipeline can be told to stop there.
/// @param text  words, separated by commas
/// @return empty when all of them are known, else the complaint with those that are
std::string RequireFailWords(std::string const& text);
/// The words with what they mean, a line each, for the help.
std::string DescribeFailWords();

/// None of the words is of a pair.
/// @throws ToolError kUsage
void RequireWordsOfOne(std::string const& words);

/// Nothing of what the words say is wrong.
/// @throws ToolError kCannot with all that is
void RequireNone(std::string const& words, MatrixDiagnosis const& facts);
/// The same of both matrices and of the pair.
void RequireNone(std::string const& words, PairDiagnosis const& pair);
