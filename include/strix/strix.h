/* strix from C: read solution files, summarise many of them, convert as the
 * strix command does. Plain C (C99 or later); the library is libstrix.so.0
 * (strix.dll on Windows), found by `pkg-config --cflags --libs strix`.
 *
 * Objects are opaque and each has one owner and one free function:
 * strix_solution (strix_solution_free), strix_files (strix_files_free) and
 * strix_error (strix_error_free); the free functions take NULL. Calls on
 * different objects may run on different threads at once; one object is
 * not to be used by two threads while one of them frees or changes it
 * (strix_release).
 *
 * A call that can fail returns STRIX_OK or the code of its failure and,
 * where `error` is not NULL, stores there a new strix_error (NULL on
 * success) whose message names the file and the failed check, in the words
 * of the C++ library. No call prints, aborts or lets a C++ exception out.
 *
 * Paths are bytes on POSIX systems and UTF-8 on Windows.
 *
 * Text from a file (statuses, names, information item names) is bytes, not
 * terminated and possibly holding NUL: every such call gives a pointer and
 * stores its length. Pointers into a solution stay valid until the solution
 * is freed (or the vector released). */
#ifndef STRIX_STRIX_H
#define STRIX_STRIX_H

#include <stddef.h> /* size_t */
#include <stdint.h> /* fixed-width integers */

#if defined(_WIN32) || defined(__CYGWIN__)
#if defined(STRIX_BUILDING_LIBRARY)
#define STRIX_API __declspec(dllexport)
#else
#define STRIX_API __declspec(dllimport)
#endif
#elif defined(__GNUC__)
#define STRIX_API __attribute__((visibility("default")))
#else
#define STRIX_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* How a call ended. strix_status_name() gives each its name. */
typedef enum strix_status {
  STRIX_OK = 0,
  STRIX_FORMAT_ERROR,          /* "FormatError": a malformed section */
  STRIX_INCOMPATIBLE_FILE,     /* "IncompatibleFileError": not a solution file */
  STRIX_INCONSISTENT_SOLUTION, /* "InconsistentSolution": a length disagrees with the sizes */
  STRIX_IO_ERROR,              /* "IOError": a file cannot be opened, created, read or written */
  STRIX_SAME_FILE,             /* "SameFileError": the output names the input file */
  STRIX_UNSUPPORTED_INPUT,     /* "UnsupportedInput": a ".gz" input name */
  STRIX_UNKNOWN_FORMAT,        /* "UnknownFormat": an output name of no known form */
  STRIX_COMPRESSION_ERROR,     /* "CompressionError": corrupt Zstandard input */
  STRIX_GZIP_ERROR,            /* "GZipError": the deflate engine failed */
  STRIX_REPORT_ERROR,          /* "ReportError": a text report of bar variables */
  STRIX_INVALID_ARGUMENT,      /* "InvalidArgument": NULL where a value is needed */
  STRIX_OUT_OF_MEMORY,         /* "OutOfMemory" */
  STRIX_ERROR                  /* "Error": any other failure */
} strix_status;

/* The kinds of solution, in the order a file holds them. */
typedef enum strix_kind { STRIX_INTERIOR, STRIX_BASIC, STRIX_INTEGER } strix_kind;
#define STRIX_KIND_COUNT 3

/* The vectors of a solution: the first three are status keys (bytes), the
 * others doubles. barx and bars have sum(barvar_pattern) values, doty
 * sum(acc_pattern). */
typedef enum strix_vector {
  STRIX_SKX,
  STRIX_SKC,
  STRIX_SKN,
  STRIX_XX,
  STRIX_SLX,
  STRIX_SUX,
  STRIX_SNX,
  STRIX_XC,
  STRIX_Y,
  STRIX_SLC,
  STRIX_SUC,
  STRIX_BARX,
  STRIX_BARS,
  STRIX_DOTY
} strix_vector;
#define STRIX_VECTOR_COUNT 14
#define STRIX_IS_KEYS(vector) ((vector) <= STRIX_SKN)

typedef enum strix_count {
  STRIX_NUMVAR,
  STRIX_NUMCON,
  STRIX_NUMCONE,
  STRIX_NUMBARVAR,
  STRIX_NUMACC
} strix_count;
typedef enum strix_names {
  STRIX_VAR_NAMES,
  STRIX_BARVAR_NAMES,
  STRIX_CON_NAMES,
  STRIX_CONE_NAMES,
  STRIX_ACC_NAMES
} strix_names;
typedef enum strix_info { STRIX_INFO_I32, STRIX_INFO_I64, STRIX_INFO_F64 } strix_info;

/* What a read keeps: bit (1u << kind) of `kinds`, bit (1u << vector) of
 * `vectors`, and the name lists when `names` is not 0. What is not kept is
 * not stored (an empty vector, an absent solution, no names) and, where the
 * source can seek, not read; a file fails exactly as a full read of it.
 * Statuses, objectives, counts, patterns and information items are always
 * kept. A NULL options pointer keeps everything. */
typedef struct strix_read_options {
  unsigned kinds;
  uint32_t vectors;
  int names;
} strix_read_options;
#define STRIX_ALL_KINDS 0x7u
#define STRIX_ALL_VECTORS 0x3fffu

/* A source read through the caller's functions. `read` stores up to `size`
 * bytes at `buffer` and returns how many (0 at the end of the data), or a
 * negative value when it fails. `skip`, which may be NULL, passes over up
 * to `size` bytes and returns how many there were, or a negative value. */
typedef struct strix_reader {
  void* context;
  int64_t (*read)(void* context, void* buffer, size_t size);
  int64_t (*skip)(void* context, uint64_t size);
} strix_reader;

typedef struct strix_error strix_error;
typedef struct strix_solution strix_solution;
typedef struct strix_files strix_files;

/* The library's version, "MAJOR.MINOR.PATCH". */
STRIX_API const char* strix_version(void);

/* ------------------------------------------------------------- errors */

STRIX_API strix_status strix_error_code(const strix_error* error);
/* The message: what failed, naming the file where the caller named one
 * ("in.b: malformed solution file: Expected section 'numvar'"). */
STRIX_API const char* strix_error_message(const strix_error* error);
/* The system's error number of an STRIX_IO_ERROR, 0 where none is known. */
STRIX_API int strix_error_errno(const strix_error* error);
/* The file the failure concerns, "" where unknown. */
STRIX_API const char* strix_error_path(const strix_error* error);
STRIX_API void strix_error_free(strix_error* error);
/* "FormatError", "IOError", ... as listed at strix_status; NULL for others. */
STRIX_API const char* strix_status_name(strix_status status);

/* ------------------------------------------------------------ reading */

/* A path as the strix command names its input: Zstandard when it ends in
 * ".zst", refused when it ends in ".gz", "-.b" and "-.b.zst" standard input. */
STRIX_API strix_status strix_read_file(const char* path, const strix_read_options* options,
                                       strix_solution** solution, strix_error** error);
/* `size` bytes at `data`, which the caller keeps until the call returns. */
STRIX_API strix_status strix_read_memory(const void* data, size_t size,
                                         const strix_read_options* options,
                                         strix_solution** solution, strix_error** error);
STRIX_API strix_status strix_read_callbacks(const strix_reader* reader,
                                            const strix_read_options* options,
                                            strix_solution** solution, strix_error** error);
STRIX_API void strix_solution_free(strix_solution* solution);

/* The file's version (three numbers) and counts. */
STRIX_API void strix_solution_version(const strix_solution* solution, int32_t version[3]);
STRIX_API int64_t strix_solution_count(const strix_solution* solution, strix_count count);
/* What the read kept. */
STRIX_API strix_read_options strix_solution_kept(const strix_solution* solution);

/* Whether the file holds (and the read kept) that kind of solution; the
 * calls below give NULL, 0 or NaN for a solution it does not hold. */
STRIX_API int strix_has_solution(const strix_solution* solution, strix_kind kind);
STRIX_API const char* strix_prosta(const strix_solution* solution, strix_kind kind, size_t* length);
STRIX_API const char* strix_solsta(const strix_solution* solution, strix_kind kind, size_t* length);
/* The objective values, NaN when the file has none. */
STRIX_API double strix_pobj(const strix_solution* solution, strix_kind kind);
STRIX_API double strix_dobj(const strix_solution* solution, strix_kind kind);
/* A vector in place (no copy) and its length; an absent section, or a
 * vector not kept, has length 0. strix_keys takes the status keys,
 * strix_values the others, and each gives NULL for the other sort. */
STRIX_API const uint8_t* strix_keys(const strix_solution* solution, strix_kind kind,
                                    strix_vector vector, size_t* length);
STRIX_API const double* strix_values(const strix_solution* solution, strix_kind kind,
                                     strix_vector vector, size_t* length);
/* Frees a vector's memory, for a caller that has copied it and wants the
 * room back at once; the vector then reads as empty. */
STRIX_API void strix_release(strix_solution* solution, strix_kind kind, strix_vector vector);

/* The bar variable and ACC patterns (length 0 when absent). */
STRIX_API const uint64_t* strix_barvar_pattern(const strix_solution* solution, size_t* length);
STRIX_API const uint64_t* strix_acc_pattern(const strix_solution* solution, size_t* length);

/* Name lists: how many names there are, and name i. */
STRIX_API size_t strix_name_count(const strix_solution* solution, strix_names list);
STRIX_API const char* strix_name(const strix_solution* solution, strix_names list, size_t i,
                                 size_t* length);

/* Information items: how many of a type, the name and the value of item i
 * (strix_info_int for STRIX_INFO_I32 and STRIX_INFO_I64). */
STRIX_API size_t strix_info_count(const strix_solution* solution, strix_info type);
STRIX_API const char* strix_info_name(const strix_solution* solution, strix_info type, size_t i,
                                      size_t* length);
STRIX_API int64_t strix_info_int(const strix_solution* solution, strix_info type, size_t i);
STRIX_API double strix_info_f64(const strix_solution* solution, size_t i);

/* The names of kinds ("interior", "basic", "integer") and of vectors ("skx"
 * ... "doty"), and back: -1 for an unknown name, NULL for an unknown value. */
STRIX_API const char* strix_kind_name(strix_kind kind);
STRIX_API int strix_kind_named(const char* name);
STRIX_API const char* strix_vector_name(strix_vector vector);
STRIX_API int strix_vector_named(const char* name);

/* ---------------------------------------------------------- many files */

/* Reads `count` paths (each as strix_read_file does) on at most `threads`
 * threads, the caller's among them (0: as many as the machine gives the
 * process, capped by STRIX_THREADS). A file
 * that fails does not fail the call: its entry has an error. With
 * `stop_at_failure`, files after the first failing one (in the given
 * order) are not read and have neither. For a summary, keep no vectors
 * and no names. */
STRIX_API strix_status strix_read_files(const char* const* paths, size_t count,
                                        const strix_read_options* options, unsigned threads,
                                        int stop_at_failure, strix_files** files,
                                        strix_error** error);
STRIX_API size_t strix_files_count(const strix_files* files);
/* File i's solution or failure, owned by `files` (NULL where there is none). */
STRIX_API const strix_solution* strix_files_solution(const strix_files* files, size_t i);
STRIX_API const strix_error* strix_files_error(const strix_files* files, size_t i);
STRIX_API void strix_files_free(strix_files* files);

/* ---------------------------------------------------------- conversion */

/* What `strix INFILE OUTFILE` does, to the same bytes, on at most `threads`
 * threads, the caller's among them (0: as many as the machine gives the
 * process, capped by STRIX_THREADS). Where the command ends with status 2 or 7 this fails with
 * STRIX_UNSUPPORTED_INPUT or STRIX_UNKNOWN_FORMAT and the command's line;
 * where it would lose an output silently, with STRIX_IO_ERROR. */
STRIX_API strix_status strix_convert(const char* infile, const char* outfile, unsigned threads,
                                     strix_error** error);

#ifdef __cplusplus
}
#endif

#endif /* STRIX_STRIX_H */
