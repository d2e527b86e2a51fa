#pragma once

class KVOSrvDenseMatrix;
class OutputFile;

/// Writes a stored matrix under the file's temporary name as a dense file (format 7), column by column.
/// @throws ToolError kUnwritable
void WriteDenseFile(KVOSrvDenseMatrix const& matrix, OutputFile const& file);
