% STRIX_SUMMARY  Statuses, objectives and information items of many files.
%   T = STRIX_SUMMARY(FILES) reads the files of a cell array of names, or
%   of a glob pattern such as 'runs/*.b' (in sorted order), on the library's
%   threads, keeping no vectors and no names, and returns a struct array
%   with one element per file and solution (one without a kind for a file
%   that has none) and the columns of the Python module's strix.summary:
%   file, kind, prosta, solsta, pobj, dobj, numvar, numcon, numcone,
%   numbarvar, numacc, then one field per information item over all the
%   files, sorted by name (made a valid field name; int64 for integer
%   items, double for the others, [] where a file lacks the item).
%
%   The first file that fails raises its error (strix:FormatError, ...),
%   naming the file. STRUCT2TABLE(T) makes a table of it in MATLAB.
%
%   See also STRIX_READ, STRIX_CONVERT.
