/* The MEX functions strix_read, strix_summary and strix_convert for Octave
 * and MATLAB: one source, built once per function, each call telling which
 * it is by its name. Only the C interface of strix and the documented MEX
 * API are used; the help text is in strix_read.m and the others. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "mex.h"
#include "strix/strix.h"

/* What a call holds from the library. A MEX error ends the call where it
 * is, so what it left is freed at the next call or when the file is
 * unloaded. */
static strix_solution* held_solution;
static strix_solution* held_pass;
static strix_solution* held_before;
static strix_files* held_files;

static void release_held(void) {
  strix_solution_free(held_solution);
  strix_solution_free(held_pass);
  strix_solution_free(held_before);
  strix_files_free(held_files);
  held_solution = NULL;
  held_pass = NULL;
  held_before = NULL;
  held_files = NULL;
}

/* Raises a failure as the MATLAB error strix:NAME with the library's
 * message, freeing what the call holds first: `owned` if it is not NULL,
 * the error of a call. */
static void raise_error(const strix_error* error, strix_error* owned) {
  char id[64];
  const char* name = strix_status_name(strix_error_code(error));
  const char* text = strix_error_message(error);
  char* message = (char*)mxMalloc(strlen(text) + 1);
  strcpy(message, text);
  snprintf(id, sizeof id, "strix:%s", name != NULL ? name : "Error");
  strix_error_free(owned);
  release_held();
  mexErrMsgIdAndTxt(id, "%s", message);
}

static void fail(strix_error* error) {
  raise_error(error, error);
}

static void usage(const char* message) {
  release_held();
  mexErrMsgIdAndTxt("strix:InvalidArgument", "%s", message);
}

/* The text of a char argument, as the locale reads it (file names). */
static char* string_of(const mxArray* value, const char* what) {
  char* text = mxIsChar(value) ? mxArrayToString(value) : NULL;
  if (text == NULL) usage(what);
  return text;
}

/* Bytes as a char row, one character per byte (codes 0 to 255) whatever
 * the locale: what mxCreateString would decode is copied as it is. */
static mxArray* text(const char* bytes, size_t n) {
  mwSize dims[2];
  mxArray* out;
  mxChar* chars;
  size_t i;
  dims[0] = n != 0 ? 1 : 0;
  dims[1] = n;
  out = mxCreateCharArray(2, dims);
  chars = mxGetChars(out);
  for (i = 0; i < n; ++i) chars[i] = (mxChar)(unsigned char)bytes[i];
  return out;
}

/* An n-by-1 column of class `type` holding n elements of `width` bytes
 * from `data`. It is made by zeros() and filled in place: Octave copies an
 * array made with mxCreate... when the call returns, and takes one that a
 * called function made as it is, so the vectors exist once. */
static mxArray* column(size_t n, const char* type, const void* data, size_t width) {
  mxArray* args[3];
  mxArray* out;
  int i;
  args[0] = mxCreateDoubleScalar((double)n);
  args[1] = mxCreateDoubleScalar(1);
  args[2] = mxCreateString(type);
  mexCallMATLAB(1, &out, 3, args, "zeros");
  for (i = 0; i < 3; ++i) mxDestroyArray(args[i]);
  if (n != 0) memcpy(mxGetData(out), data, n * width);
  return out;
}

static mxArray* scalar(double value) {
  return mxCreateDoubleScalar(value);
}

/* ------------------------------------------------------------ strix_read */

/* The bits of the names in `value` (one char row or a cell of them). */
static uint32_t selection(const mxArray* value, int (*named)(const char*), const char* what) {
  uint32_t bits = 0;
  size_t i;
  const size_t n = mxIsCell(value) ? mxGetNumberOfElements(value) : 1;
  for (i = 0; i < n; ++i) {
    const mxArray* item = mxIsCell(value) ? mxGetCell(value, i) : value;
    char* name = item != NULL && mxIsChar(item) ? mxArrayToString(item) : NULL;
    const int id = name != NULL ? named(name) : -1;
    if (id < 0) {
      char message[128];
      snprintf(message, sizeof message, "unknown %s '%.60s'", what, name != NULL ? name : "?");
      usage(message);
    }
    bits |= 1u << id;
  }
  return bits;
}

static strix_read_options read_options(int nrhs, const mxArray* prhs[]) {
  strix_read_options options = {STRIX_ALL_KINDS, STRIX_ALL_VECTORS, 1};
  int i;
  if (nrhs % 2 != 1) usage("strix_read(FILE, NAME, VALUE, ...): names and values come in pairs");
  for (i = 1; i < nrhs; i += 2) {
    char* name = string_of(prhs[i], "strix_read: option names are 'solutions', 'vectors', 'names'");
    if (strcmp(name, "solutions") == 0) {
      options.kinds = selection(prhs[i + 1], strix_kind_named, "solution kind");
    } else if (strcmp(name, "vectors") == 0) {
      options.vectors = selection(prhs[i + 1], strix_vector_named, "vector");
    } else if (strcmp(name, "names") == 0 && mxGetNumberOfElements(prhs[i + 1]) == 1 &&
               (mxIsLogical(prhs[i + 1]) || mxIsNumeric(prhs[i + 1]))) {
      options.names = mxGetScalar(prhs[i + 1]) != 0;
    } else {
      usage("strix_read: options are 'solutions' {kinds}, 'vectors' {names}, 'names' true/false");
    }
  }
  return options;
}

/* One solution: its statuses and objectives, and a field for each vector,
 * set later. */
static mxArray* solution_item(const strix_solution* s, strix_kind kind) {
  static const char* fields[] = {"kind", "prosta", "solsta", "pobj", "dobj"};
  mxArray* item = mxCreateStructMatrix(1, 1, 5, fields);
  size_t n;
  const char* status;
  int v;
  mxSetField(item, 0, "kind", mxCreateString(strix_kind_name(kind)));
  status = strix_prosta(s, kind, &n);
  mxSetField(item, 0, "prosta", text(status, n));
  status = strix_solsta(s, kind, &n);
  mxSetField(item, 0, "solsta", text(status, n));
  mxSetField(item, 0, "pobj", scalar(strix_pobj(s, kind)));
  mxSetField(item, 0, "dobj", scalar(strix_dobj(s, kind)));
  for (v = 0; v < STRIX_VECTOR_COUNT; ++v) mxAddField(item, strix_vector_name((strix_vector)v));
  return item;
}

static double pattern_sum(const uint64_t* pattern, size_t n) {
  double sum = 0;
  size_t i;
  for (i = 0; i < n; ++i) sum += (double)pattern[i];
  return sum;
}

/* The vectors, those likely to be largest first (by the sizes and the
 * patterns, as the file's own lengths are not known before they are read). */
static void vector_order(const strix_solution* s, int order[STRIX_VECTOR_COUNT]) {
  double bytes[STRIX_VECTOR_COUNT];
  size_t n;
  int v, i;
  const double vars = (double)strix_solution_count(s, STRIX_NUMVAR);
  const double cons = (double)strix_solution_count(s, STRIX_NUMCON);
  const double cones = (double)strix_solution_count(s, STRIX_NUMCONE);
  const uint64_t* pattern = strix_barvar_pattern(s, &n);
  const double bar = pattern_sum(pattern, n);
  pattern = strix_acc_pattern(s, &n);
  for (v = 0; v < STRIX_VECTOR_COUNT; ++v) {
    order[v] = v;
    bytes[v] = v == STRIX_SKX    ? vars
               : v == STRIX_SKC  ? cons
               : v == STRIX_SKN  ? cones
               : v <= STRIX_SNX  ? 8 * vars
               : v <= STRIX_SUC  ? 8 * cons
               : v <= STRIX_BARS ? 8 * bar
                                 : 8 * pattern_sum(pattern, n);
  }
  for (v = 1; v < STRIX_VECTOR_COUNT; ++v) {
    const int at = order[v];
    for (i = v; i > 0 && bytes[order[i - 1]] < bytes[at]; --i) order[i] = order[i - 1];
    order[i] = at;
  }
}

/* Each vector of each solution in `solutions` as a column, so that only
 * one or two vectors exist twice at a time: a file that can be read again
 * is read once per vector, the largest first (the rest passed over by
 * seeking), and a vector's read is given back once the next one is read,
 * so that Octave's next array takes the memory just given back (already
 * touched, where fresh memory would cost more than the read) rather than
 * the library's next read. Standard input and Zstandard input are read
 * once for all the vectors, each given back as soon as it is copied. */
static void vectors(const char* path, const strix_read_options* options, mxArray* solutions) {
  const size_t length = strlen(path);
  const int again =
      strncmp(path, "-.", 2) != 0 && (length < 4 || strcmp(path + length - 4, ".zst") != 0);
  int order[STRIX_VECTOR_COUNT];
  int o, k;
  vector_order(held_solution, order);
  if (!again && options->vectors != 0) {
    strix_read_options all = *options;
    strix_error* error;
    all.names = 0;
    if (strix_read_file(path, &all, &held_pass, &error) != STRIX_OK) fail(error);
  }
  for (o = 0; o < STRIX_VECTOR_COUNT; ++o) {
    const strix_vector v = (strix_vector)order[o];
    if (again && (options->vectors & (1u << v)) != 0) {
      const strix_read_options one = {options->kinds, 1u << v, 0};
      strix_error* error;
      held_before = held_pass;
      held_pass = NULL;
      if (strix_read_file(path, &one, &held_pass, &error) != STRIX_OK) fail(error);
      strix_solution_free(held_before);
      held_before = NULL;
    }
    for (k = 0; k < STRIX_KIND_COUNT; ++k) {
      mxArray* item = mxGetField(solutions, 0, strix_kind_name((strix_kind)k));
      size_t n = 0;
      if (item == NULL) continue;
      if (STRIX_IS_KEYS(v)) {
        const uint8_t* keys = strix_keys(held_pass, (strix_kind)k, v, &n);
        mxSetField(item, 0, strix_vector_name(v), column(n, "uint8", keys, 1));
      } else {
        const double* values = strix_values(held_pass, (strix_kind)k, v, &n);
        mxSetField(item, 0, strix_vector_name(v), column(n, "double", values, sizeof(double)));
      }
      if (!again) strix_release(held_pass, (strix_kind)k, v);
    }
  }
}

static mxArray* name_list(const strix_solution* s, strix_names list) {
  const size_t n = strix_name_count(s, list);
  mxArray* out = mxCreateCellMatrix(n, 1);
  size_t i;
  for (i = 0; i < n; ++i) {
    size_t length;
    const char* name = strix_name(s, list, i, &length);
    mxSetCell(out, i, text(name, length));
  }
  return out;
}

/* Information items of one type: names (a cell column) and values. */
static mxArray* info_items(const strix_solution* s, strix_info type) {
  static const char* fields[] = {"names", "values"};
  static const mxClassID classes[] = {mxINT32_CLASS, mxINT64_CLASS, mxDOUBLE_CLASS};
  const size_t n = strix_info_count(s, type);
  mxArray* out = mxCreateStructMatrix(1, 1, 2, fields);
  mxArray* names = mxCreateCellMatrix(n, 1);
  mxArray* values = mxCreateNumericMatrix(n, 1, classes[type], mxREAL);
  size_t i;
  for (i = 0; i < n; ++i) {
    size_t length;
    const char* name = strix_info_name(s, type, i, &length);
    mxSetCell(names, i, text(name, length));
    if (type == STRIX_INFO_I32)
      ((int32_t*)mxGetData(values))[i] = (int32_t)strix_info_int(s, type, i);
    if (type == STRIX_INFO_I64) ((int64_t*)mxGetData(values))[i] = strix_info_int(s, type, i);
    if (type == STRIX_INFO_F64) ((double*)mxGetData(values))[i] = strix_info_f64(s, i);
  }
  mxSetField(out, 0, "names", names);
  mxSetField(out, 0, "values", values);
  return out;
}

static const char* kCounts[] = {"numvar", "numcon", "numcone", "numbarvar", "numacc"};

static void read_file(int nlhs, mxArray* plhs[], int nrhs, const mxArray* prhs[]) {
  static const char* names[] = {"var_names", "barvar_names", "con_names", "cone_names",
                                "acc_names"};
  static const char* infos[] = {"info_i32", "info_i64", "info_f64"};
  strix_read_options options, first;
  strix_error* error;
  strix_solution* s;
  char* path;
  mxArray *out, *solutions, *version;
  int32_t numbers[3];
  const uint64_t* pattern;
  size_t n;
  int i;
  (void)nlhs;
  if (nrhs < 1) usage("strix_read(FILE, ...) needs a file name");
  path = string_of(prhs[0], "strix_read: FILE is a file name");
  options = read_options(nrhs, prhs);
  /* Everything but the vectors, which come after. */
  first = options;
  first.vectors = 0;
  if (strix_read_file(path, &first, &held_solution, &error) != STRIX_OK) fail(error);
  s = held_solution;
  out = mxCreateStructMatrix(1, 1, 0, NULL);
  strix_solution_version(s, numbers);
  version = mxCreateDoubleMatrix(1, 3, mxREAL);
  for (i = 0; i < 3; ++i) mxGetPr(version)[i] = numbers[i];
  mxSetFieldByNumber(out, 0, mxAddField(out, "version"), version);
  for (i = 0; i < 5; ++i) {
    const double count = (double)strix_solution_count(s, (strix_count)i);
    mxSetFieldByNumber(out, 0, mxAddField(out, kCounts[i]), scalar(count));
  }
  solutions = mxCreateStructMatrix(1, 1, 0, NULL);
  for (i = 0; i < STRIX_KIND_COUNT; ++i) {
    if (!strix_has_solution(s, (strix_kind)i)) continue;
    mxSetFieldByNumber(solutions, 0, mxAddField(solutions, strix_kind_name((strix_kind)i)),
                       solution_item(s, (strix_kind)i));
  }
  vectors(path, &options, solutions);
  mxSetFieldByNumber(out, 0, mxAddField(out, "solutions"), solutions);
  pattern = strix_barvar_pattern(s, &n);
  mxSetFieldByNumber(out, 0, mxAddField(out, "barvar_pattern"), column(n, "uint64", pattern, 8));
  pattern = strix_acc_pattern(s, &n);
  mxSetFieldByNumber(out, 0, mxAddField(out, "acc_pattern"), column(n, "uint64", pattern, 8));
  for (i = 0; i < 5; ++i) {
    mxSetFieldByNumber(out, 0, mxAddField(out, names[i]), name_list(s, (strix_names)i));
  }
  for (i = 0; i < 3; ++i) {
    mxSetFieldByNumber(out, 0, mxAddField(out, infos[i]), info_items(s, (strix_info)i));
  }
  release_held();
  plhs[0] = out;
}

/* --------------------------------------------------------- strix_summary */

/* An information item over all the files: its name and whether every
 * value of it is an integer. */
typedef struct {
  const char* name;
  size_t length;
  int integer;
} item_column;

static int by_bytes(const void* a, const void* b) {
  const item_column* x = (const item_column*)a;
  const item_column* y = (const item_column*)b;
  const int c = memcmp(x->name, y->name, x->length < y->length ? x->length : y->length);
  return c != 0 ? c : (x->length > y->length) - (x->length < y->length);
}

static int by_path(const void* a, const void* b) {
  return strcmp(*(char* const*)a, *(char* const*)b);
}

/* The value of item `name` in a file, as the Python module merges the
 * types (an integer item wins over a double of the same name): 1 for an
 * integer, 2 for a double, 0 where the file lacks it. */
static int item_value(const strix_solution* s, const char* name, size_t length, int64_t* integer,
                      double* real) {
  static const strix_info order[] = {STRIX_INFO_I32, STRIX_INFO_I64, STRIX_INFO_F64};
  int t;
  for (t = 0; t < 3; ++t) {
    const size_t n = strix_info_count(s, order[t]);
    size_t i;
    for (i = 0; i < n; ++i) {
      size_t l;
      const char* other = strix_info_name(s, order[t], i, &l);
      if (l != length || memcmp(other, name, l) != 0) continue;
      if (order[t] == STRIX_INFO_F64) {
        *real = strix_info_f64(s, i);
        return 2;
      }
      *integer = strix_info_int(s, order[t], i);
      return 1;
    }
  }
  return 0;
}

/* A MATLAB field name for an item: other characters than letters, digits
 * and '_' become '_', and one that does not start with a letter starts
 * with 'x', cut to 63 characters. */
static void field_name(const char* name, size_t length, char out[64]) {
  size_t i, at = 0;
  const int letter = length > 0 && ((name[0] | 32) >= 'a' && (name[0] | 32) <= 'z');
  if (!letter) out[at++] = 'x';
  for (i = 0; i < length && at < 63; ++i) {
    const char c = name[i];
    const int word = ((c | 32) >= 'a' && (c | 32) <= 'z') || (c >= '0' && c <= '9') || c == '_';
    out[at++] = word ? c : '_';
  }
  out[at] = '\0';
}

/* The paths of a cell array, or of a glob pattern in sorted order. */
static char** summary_paths(const mxArray* value, size_t* count) {
  char** paths;
  size_t i;
  if (mxIsCell(value)) {
    *count = mxGetNumberOfElements(value);
    paths = (char**)mxCalloc(*count + 1, sizeof(char*));
    for (i = 0; i < *count; ++i) {
      const mxArray* cell = mxGetCell(value, i);
      paths[i] = string_of(cell != NULL ? cell : value, "strix_summary: files are file names");
    }
    return paths;
  }
  {
    char* pattern = string_of(value, "strix_summary(FILES): a cell array of names or a glob");
    /* dir() matches the names, as MATLAB and Octave do on every system; the
     * folder comes from the pattern. */
    mxArray* listing;
    mxArray* arg = mxCreateString(pattern);
    const char* slash = strrchr(pattern, '\\');
    const char* other = strrchr(pattern, '/');
    const size_t folder = other > slash   ? (size_t)(other - pattern + 1)
                          : slash != NULL ? (size_t)(slash - pattern + 1)
                                          : 0;
    size_t found = 0;
    mexCallMATLAB(1, &listing, 1, &arg, "dir");
    *count = mxGetNumberOfElements(listing);
    paths = (char**)mxCalloc(*count + 1, sizeof(char*));
    for (i = 0; i < *count; ++i) {
      const mxArray* isdir = mxGetField(listing, i, "isdir");
      char* name = mxArrayToString(mxGetField(listing, i, "name"));
      if (name == NULL || (isdir != NULL && mxIsLogicalScalarTrue(isdir))) continue;
      paths[found] = (char*)mxMalloc(folder + strlen(name) + 1);
      memcpy(paths[found], pattern, folder);
      strcpy(paths[found] + folder, name);
      ++found;
    }
    *count = found;
    qsort(paths, *count, sizeof(char*), by_path);
  }
  return paths;
}

/* The union of the files' information items, sorted by name, each an
 * integer column if every file that has it has an integer; returns their
 * count. */
static size_t summary_items(size_t count, item_column** columns) {
  size_t f, i, all = 0, unique = 0;
  item_column* items;
  for (f = 0; f < count; ++f) {
    int k;
    for (k = 0; k < 3; ++k)
      all += strix_info_count(strix_files_solution(held_files, f), (strix_info)k);
  }
  items = (item_column*)mxCalloc(all + 1, sizeof(item_column));
  for (f = 0; f < count; ++f) {
    const strix_solution* s = strix_files_solution(held_files, f);
    int k;
    for (k = 0; k < 3; ++k) {
      for (i = 0; i < strix_info_count(s, (strix_info)k); ++i) {
        item_column* c = &items[unique++];
        int64_t integer;
        double real;
        c->name = strix_info_name(s, (strix_info)k, i, &c->length);
        c->integer = item_value(s, c->name, c->length, &integer, &real) == 1;
      }
    }
  }
  qsort(items, unique, sizeof(item_column), by_bytes);
  for (i = 0, all = 0; i < unique; ++i) {
    if (all > 0 && by_bytes(&items[all - 1], &items[i]) == 0) {
      items[all - 1].integer &= items[i].integer;
    } else {
      items[all++] = items[i];
    }
  }
  *columns = items;
  return all;
}

/* One row of the table: a file and one of its solutions (`kind` -1 for a
 * file without solutions). */
static void summary_row(mxArray* out, size_t row, const char* path, const strix_solution* s,
                        int kind, const item_column* items, const int* field_of, size_t nitems) {
  size_t i, n;
  int c;
  /* A file name as the locale reads it, as it was given. */
  mxSetField(out, row, "file", mxCreateString(path));
  if (kind >= 0) {
    const char* status;
    mxSetField(out, row, "kind", mxCreateString(strix_kind_name((strix_kind)kind)));
    status = strix_prosta(s, (strix_kind)kind, &n);
    mxSetField(out, row, "prosta", text(status, n));
    status = strix_solsta(s, (strix_kind)kind, &n);
    mxSetField(out, row, "solsta", text(status, n));
    mxSetField(out, row, "pobj", scalar(strix_pobj(s, (strix_kind)kind)));
    mxSetField(out, row, "dobj", scalar(strix_dobj(s, (strix_kind)kind)));
  }
  for (c = 0; c < 5; ++c) {
    mxSetField(out, row, kCounts[c], scalar((double)strix_solution_count(s, (strix_count)c)));
  }
  for (i = 0; i < nitems; ++i) {
    int64_t integer = 0;
    double real = 0;
    const int got = item_value(s, items[i].name, items[i].length, &integer, &real);
    mxArray* value = NULL;
    if (field_of[i] < 0 || got == 0) continue;
    if (items[i].integer) {
      value = mxCreateNumericMatrix(1, 1, mxINT64_CLASS, mxREAL);
      *(int64_t*)mxGetData(value) = integer;
    } else {
      value = scalar(got == 1 ? (double)integer : real);
    }
    mxSetFieldByNumber(out, row, field_of[i], value);
  }
}

static void summary(int nlhs, mxArray* plhs[], int nrhs, const mxArray* prhs[]) {
  static const char* fields[] = {"file",   "kind",   "prosta",  "solsta",    "pobj",  "dobj",
                                 "numvar", "numcon", "numcone", "numbarvar", "numacc"};
  const strix_read_options options = {STRIX_ALL_KINDS, 0, 0};
  strix_error* error;
  item_column* items;
  size_t count, f, i, rows = 0, row = 0, nitems;
  char** paths;
  mxArray* out;
  int* field_of;
  (void)nlhs;
  if (nrhs != 1) usage("strix_summary(FILES) takes a cell array of file names or a glob");
  paths = summary_paths(prhs[0], &count);
  if (strix_read_files((const char* const*)paths, count, &options, 0, 1, &held_files, &error) !=
      STRIX_OK) {
    fail(error);
  }
  for (f = 0; f < count; ++f) {
    const strix_solution* s = strix_files_solution(held_files, f);
    int k, kinds = 0;
    if (strix_files_error(held_files, f) != NULL)
      raise_error(strix_files_error(held_files, f), NULL);
    for (k = 0; k < STRIX_KIND_COUNT; ++k) kinds += strix_has_solution(s, (strix_kind)k);
    rows += kinds > 0 ? (size_t)kinds : 1;
  }
  nitems = summary_items(count, &items);
  out = mxCreateStructMatrix(rows, 1, 11, fields);
  field_of = (int*)mxCalloc(nitems + 1, sizeof(int));
  for (i = 0; i < nitems; ++i) {
    char name[64];
    field_name(items[i].name, items[i].length, name);
    /* A name made the same as an earlier field keeps the earlier one. */
    field_of[i] = mxGetFieldNumber(out, name) >= 0 ? -1 : mxAddField(out, name);
  }
  for (f = 0; f < count; ++f) {
    const strix_solution* s = strix_files_solution(held_files, f);
    int k, kinds = 0;
    for (k = 0; k < STRIX_KIND_COUNT; ++k) {
      if (!strix_has_solution(s, (strix_kind)k)) continue;
      summary_row(out, row++, paths[f], s, k, items, field_of, nitems);
      ++kinds;
    }
    if (kinds == 0) summary_row(out, row++, paths[f], s, -1, items, field_of, nitems);
  }
  release_held();
  plhs[0] = out;
}

/* --------------------------------------------------------- strix_convert */

static void convert(int nlhs, mxArray* plhs[], int nrhs, const mxArray* prhs[]) {
  strix_error* error;
  char *in, *out;
  (void)nlhs;
  (void)plhs;
  if (nrhs != 2) usage("strix_convert(INFILE, OUTFILE) takes two file names");
  in = string_of(prhs[0], "strix_convert: INFILE is a file name");
  out = string_of(prhs[1], "strix_convert: OUTFILE is a file name");
  if (strix_convert(in, out, 0, &error) != STRIX_OK) fail(error);
}

void mexFunction(int nlhs, mxArray* plhs[], int nrhs, const mxArray* prhs[]) {
  const char* name = mexFunctionName();
  static int registered = 0;
  if (!registered) registered = mexAtExit(release_held) == 0;
  release_held();
  if (strcmp(name, "strix_summary") == 0) {
    summary(nlhs, plhs, nrhs, prhs);
  } else if (strcmp(name, "strix_convert") == 0) {
    convert(nlhs, plhs, nrhs, prhs);
  } else {
    read_file(nlhs, plhs, nrhs, prhs);
  }
}
