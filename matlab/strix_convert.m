% STRIX_CONVERT  Convert a solution file as the strix command does.
%   STRIX_CONVERT(INFILE, OUTFILE) writes INFILE in the form the suffixes of
%   OUTFILE ask for (.json, .jtask, .task, .b, .txt, each optionally
%   followed by .zst or .gz), to the same bytes as `strix INFILE OUTFILE`.
%   Where the command would end abnormally, or lose an output silently,
%   this raises an error: strix:UnknownFormat, strix:UnsupportedInput,
%   strix:IOError, strix:SameFileError, strix:FormatError, ...
%
%   See also STRIX_READ, STRIX_SUMMARY.
