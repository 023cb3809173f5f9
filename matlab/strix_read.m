% STRIX_READ  Read a solution file into a struct.
%   S = STRIX_READ(FILE) reads FILE (Zstandard when its name ends in .zst)
%   and returns a struct with the fields of the Python module's strix.read:
%   version, numvar, numcon, numcone, numbarvar, numacc, solutions,
%   barvar_pattern, acc_pattern (uint64 columns), var_names, barvar_names,
%   con_names, cone_names, acc_names (cell columns of char) and info_i32,
%   info_i64, info_f64 (structs of names and values).
%
%   S.solutions has a field per kind of solution the file holds
%   (interior, basic, integer), each a struct of kind, prosta, solsta,
%   pobj, dobj (NaN when absent), the status keys skx, skc, skn (uint8
%   columns) and the vectors xx, slx, sux, snx, xc, y, slc, suc, barx,
%   bars, doty (double columns, empty where the file has no such section).
%   Text from the file has one character per byte (codes 0 to 255).
%
%   S = STRIX_READ(FILE, 'solutions', KINDS, 'vectors', NAMES, 'names', TF)
%   keeps only the kinds and vectors named (a cell array of char, or one
%   name) and the name lists or not; the rest is not read, and a bad file
%   fails as a full read of it fails.
%
%   Failures are errors with the identifiers strix:FormatError,
%   strix:IncompatibleFileError, strix:InconsistentSolution, strix:IOError,
%   strix:CompressionError, strix:UnsupportedInput, strix:InvalidArgument.
%
%   Example:
%     s = strix_read('run.b', 'solutions', {'basic'}, 'vectors', {'xx'});
%     x = s.solutions.basic.xx;
%
%   See also STRIX_SUMMARY, STRIX_CONVERT.
