/*
 * nus.h: the public interface of nuslib, a globalization library.
 *
 * A caller creates a locale handle, loads a locale into it and then calls the library's
 * functions with that handle. Every function that fails stores an error code (NU_E...) in
 * the handle's error slot, read with *_nu_ext_errno(handle), and returns -1, 0 or null as
 * documented beside it.
 *
 * Usable from C (C99 and later) and C++.
 */
#ifndef NUS_H
#define NUS_H

#include <stddef.h>
#include <stdint.h>
#include <stdarg.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define NU_API __attribute__((visibility("default")))
#else
#define NU_API
#endif

/* ---------------------------------------------------------------------------------------- */
/* Types                                                                                     */
/* ---------------------------------------------------------------------------------------- */

/* A wide character: the big-endian concatenation of a multibyte character's bytes. */
typedef uint32_t nu_wchar;

/* The locale handle. Its first field is the error slot. */
typedef struct nu_locale_rec *nu_locale_t;

/* A character given by its bytes: length 1 to 4, then the bytes, first byte first.
   Used as the key of the multi-level byte table and as a character descriptor. */
typedef struct nu_chardesc {
    int32_t length;
    unsigned char bytes[4];
} nu_chardesc;
typedef nu_chardesc multi_key;

/* The multi-level byte table (opaque). */
typedef struct multi_t multi_t;

/* Callbacks that write and read one descriptor of a multi-level table's text form.
   The reader returns 0 on success and anything else on failure. */
typedef void (*nu_desc_printer)(FILE *stream, const void *desc);
typedef int (*nu_desc_reader)(FILE *stream, void *dest, unsigned int desc_size);

/* A generic function pointer, as stored in the external-function table. */
typedef void (*nu_extfunc)(void);

/* ---------------------------------------------------------------------------------------- */
/* Categories                                                                                */
/* ---------------------------------------------------------------------------------------- */

#define NU_ALL 1
#define NU_CTYPE 2
#define NU_COLLATE 3
#define NU_NUMERIC 4
#define NU_MONETARY 5
#define NU_TIME 6
#define NU_MESSAGES 7
#define NU_CATEGORY_COUNT 6 /* per-category arrays are indexed by category - NU_CTYPE */

/* ---------------------------------------------------------------------------------------- */
/* Error codes                                                                               */
/* ---------------------------------------------------------------------------------------- */

#define NU_SUCCESS 0
#define NU_EILSEQ 1       /* invalid byte sequence, or a character not valid in the code set */
#define NU_EBADARG 2      /* a required pointer is null, or an argument is impossible */
#define NU_ENOMEM 3       /* memory could not be obtained */
#define NU_ENOWIDTH 4     /* no display width; a negative character index or count */
#define NU_EPOSITION 5    /* position not after the start; range end before its start */
#define NU_ERANGE 6       /* numeric conversion without digits or out of range */
#define NU_EINVAL 7       /* incomplete character; malformed locale specification or name */
#define NU_ENOFILE 8      /* data file not found or not opened; installation root too long */
#define NU_EBADVAL 9      /* argument out of its domain */
#define NU_EBADFILE 11    /* data file malformed or truncated */
#define NU_ECODESET 12    /* the categories name different code sets; undefined direction */
#define NU_EIO 13         /* read or write error on a stream */
#define NU_E2BIG 14       /* output buffer too small */
#define NU_EBADFMT 15     /* format ends inside a specification; registry file not opened */
#define NU_EEOF 16        /* end of file before a complete character */
#define NU_EREAD 17       /* stream read ended with neither end-of-file nor error set */
#define NU_ENOCAT 18      /* copy source has no category loaded there */
#define NU_ECOPY 19       /* copy target category is already loaded */
#define NU_EBADCONV 20    /* monetary conversion other than i or n; undefined pass direction */
#define NU_ETOODEEP 21    /* a multi-level table deeper than supported (no public name) */
#define NU_EFORMAT 22     /* format and input disagree; unknown conversion */
#define NU_EFRACTION 23   /* fraction of a second out of range */
#define NU_ESECOND 24     /* seconds out of range */
#define NU_EMINUTE 25     /* minutes out of range */
#define NU_EHOUR 26       /* hour out of range */
#define NU_EMDAY 27       /* day of month out of range */
#define NU_EWDAY 28       /* day of week out of range */
#define NU_EYDAY 29       /* day of year out of range */
#define NU_EMONTH 30      /* month out of range */
#define NU_EYEAR 31       /* year out of range */
#define NU_EPFRACTION 33  /* time parsing: fraction not found */
#define NU_EPSECOND 34    /* time parsing: seconds not found */
#define NU_EPMINUTE 35    /* time parsing: minutes not found */
#define NU_EPHOUR 36      /* time parsing: hour not found */
#define NU_EPMDAY 37      /* time parsing: day of month not found */
#define NU_EPWDAY 38      /* time parsing: day of week not found or inconsistent */
#define NU_EPMONTH 40     /* time parsing: month number not found */
#define NU_EPYEAR 41      /* time parsing: year or century not found */
#define NU_EPERA 42       /* time parsing: era name or year not found */
#define NU_EMODIFIER 45   /* malformed format modifier */
#define NU_ENOMATCH 46    /* input does not match the format's literal text */
#define NU_EPMONNAME 48   /* time parsing: month name not found */
#define NU_EVERSION 51    /* data file of another compiler version */
#define NU_ENOSYM 53      /* no symbol defined for a character */
#define NU_ELOAD 55       /* a category could not be loaded */
#define NU_ELENGTHS 56    /* one length argument is -1 and the other is not */
#define NU_ENOTLOADED 57  /* CTYPE is empty, so another category's strings cannot be widened */
#define NU_ECATCODESET 58 /* a category file names a code set other than the CTYPE one */

/* ---------------------------------------------------------------------------------------- */
/* Versions                                                                                  */
/* ---------------------------------------------------------------------------------------- */

NU_API const char *nu_version(void);    /* "nuslib-4.00.UC2" */
NU_API const char *nu_cm_version(void); /* character-map object files: "3" */
NU_API const char *nu_lc_version(void); /* locale object files: "11" */
NU_API const char *nu_cv_version(void); /* code-set conversion object files: "9" */

/* ---------------------------------------------------------------------------------------- */
/* External functions                                                                        */
/* ---------------------------------------------------------------------------------------- */

/* Slot numbers of the external-function table (fixed by the interface). */
#define NU_EXT_GETENV 0
#define NU_EXT_ERRNO 1
#define NU_EXT_FCLOSE 2
#define NU_EXT_FEOF 3
#define NU_EXT_FERROR 4
#define NU_EXT_FGETC 5
#define NU_EXT_FGETS 6
#define NU_EXT_FOPEN 7
#define NU_EXT_FREE 8
#define NU_EXT_FSEEK 9
#define NU_EXT_FTELL 10
#define NU_EXT_FWRITE 11
#define NU_EXT_GETC 12
#define NU_EXT_MALLOC 13
#define NU_EXT_UNGETC 14
#define NU_EXT_PUTENV 15
#define NU_EXT_CURRDATE 16
#define NU_EXT_CURRTIME 17
#define NU_EXT_CALLOC 18
#define NU_EXT_REALLOC 19
#define NU_EXT_SLOTS 20

/* 1 once any slot has been set. */
NU_API extern int _nu_ext_func;

/* Installs fn in a slot (0 <= slot < 20; else NU_EBADVAL and -1). A null fn restores the
   default of that slot. */
NU_API int nu_setextfunc(void *handle, int slot, nu_extfunc fn);
NU_API nu_extfunc _nu_get_ext_funcptr(int slot);
NU_API void _nu_set_ext_funcptr(int slot, nu_extfunc fn);

/* The defaults. */
NU_API char *nu_ext_getenv(const char *name);
NU_API int *nu_ext_errno(void *handle);
NU_API int nu_ext_fclose(FILE *stream);
NU_API int nu_ext_feof(FILE *stream);
NU_API int nu_ext_ferror(FILE *stream);
NU_API int nu_ext_fgetc(FILE *stream);
NU_API char *nu_ext_fgets(char *buffer, int size, FILE *stream);
NU_API FILE *nu_ext_fopen(const char *path, const char *mode);
NU_API void nu_ext_free(void *p);
NU_API int nu_ext_fseek(FILE *stream, long offset, int whence);
NU_API long nu_ext_ftell(FILE *stream);
NU_API size_t nu_ext_fwrite(const void *p, size_t size, size_t count, FILE *stream);
NU_API int nu_ext_getc(FILE *stream);
NU_API void *nu_ext_malloc(size_t size);
NU_API int nu_ext_ungetc(int c, FILE *stream);
NU_API int nu_ext_putenv(char *assignment);
/* date[0] month 1-12, date[1] day of month, date[2] four-digit year. */
NU_API void nu_ext_currdate(unsigned short date[3]);
/* record[0] 0, record[1..9] sec, min, hour, mday, mon 0-11, year-1900, wday, yday, isdst,
   record[10..11] 0. */
NU_API void nu_ext_currtime(int record[12]);
NU_API void *nu_ext_calloc(size_t count, size_t size);
NU_API void *nu_ext_realloc(void *p, size_t size);

/* The dispatchers: the installed function of the slot, or the default. */
NU_API char *_nu_ext_getenv(const char *name);
NU_API int *_nu_ext_errno(void *handle);
NU_API int _nu_ext_fclose(FILE *stream);
NU_API int _nu_ext_feof(FILE *stream);
NU_API int _nu_ext_ferror(FILE *stream);
NU_API int _nu_ext_fgetc(FILE *stream);
NU_API char *_nu_ext_fgets(char *buffer, int size, FILE *stream);
NU_API FILE *_nu_ext_fopen(const char *path, const char *mode);
NU_API void _nu_ext_free(void *p);
NU_API int _nu_ext_fseek(FILE *stream, long offset, int whence);
NU_API long _nu_ext_ftell(FILE *stream);
NU_API size_t _nu_ext_fwrite(const void *p, size_t size, size_t count, FILE *stream);
NU_API int _nu_ext_getc(FILE *stream);
NU_API void *_nu_ext_malloc(size_t size);
NU_API int _nu_ext_ungetc(int c, FILE *stream);
NU_API int _nu_ext_putenv(char *assignment);
NU_API void _nu_ext_currdate(unsigned short date[3]);
NU_API void _nu_ext_currtime(int record[12]);
NU_API void *_nu_ext_calloc(size_t count, size_t size);
NU_API void *_nu_ext_realloc(void *p, size_t size);

/* ---------------------------------------------------------------------------------------- */
/* Memory and small helpers                                                                  */
/* ---------------------------------------------------------------------------------------- */

/* Size 0 gives null without allocating; sets no error code. */
NU_API void *_nu_alloc_ptr(size_t size);
NU_API void _nu_free_ptr(void *p);
/* Releases a string the library returned to the caller. */
NU_API void nu_destroystring(char *s);

/* Number of base-`base` digits; any value below the base (and every negative value)
   counts 1. The remainder of the last division goes to *remainder when it is not null. */
NU_API int _nu_digits(long long value, int base, long long *remainder);
NU_API int _nu_udigits(unsigned long long value, int base, unsigned long long *remainder);
/* Integer power (1 for exp <= 0) and double power by repeated multiplication or division. */
NU_API long long _nu_ipow(long long base, int exp);
NU_API double _nu_fpow(double x, int exp);

/* ---------------------------------------------------------------------------------------- */
/* Handles                                                                                   */
/* ---------------------------------------------------------------------------------------- */

/* Creates a handle holding the built-in null locale. -1 when memory runs out (then *handle
   is a static handle whose error code is NU_ENOMEM). */
NU_API int nu_create_null_locale_4(nu_locale_t *handle);
NU_API void nu_make_null_category(nu_locale_t handle, int category);
/* Creates a handle and reads "default.lco" from `directory` (a prefix, no separator added)
   or along the data-file search. -1 on failure; *handle then always points at a handle
   whose error code tells why. */
NU_API int nu_createlocale2_4(nu_locale_t *handle, const char *directory);
NU_API int nu_createlocale_4(nu_locale_t *handle);
/* Frees a handle and everything it owns; null and the static failure handles are ignored. */
NU_API void nu_lc_unload(nu_locale_t handle);
NU_API void nu_free_category(nu_locale_t handle, int category);

/* ---------------------------------------------------------------------------------------- */
/* Diagnostics and data-file search                                                          */
/* ---------------------------------------------------------------------------------------- */

/* NUSLOG=on appends messages to ./nus.log; NUSDEBUG=on prints them on standard output. */
NU_API void nu_init_debug(void);
NU_API void nu_message(const char *text);
NU_API void _nu_exit_utilities(void);

/* Finds a data file: along NU_PATH when set, else under $TESSARONDIR (or /usr/tessaron/) in
   nus/<subdir><version>, then nus/<subdir>. `handle` may be null (no error code then). */
NU_API FILE *nu_path_search1(void *handle, const char *name, char **directory,
                             const char *subdir, const char *version, int plain);
NU_API FILE *nu_path_search(void *handle, const char *name, const char *subdir,
                            const char *version);
NU_API FILE *nu_path_search_no_ext(void *handle, const char *name, const char *subdir,
                                   const char *version);
NU_API char *nu_path_search_rpath(char **directory, void *handle, const char *name,
                                  const char *subdir, const char *version);
NU_API char *nu_path_search_no_ext_rpath(char **directory, void *handle, const char *name,
                                         const char *subdir, const char *version);
/* Opens a name in which the byte 0xFF stands for "/". */
NU_API FILE *nu_open_file(void *handle, const char *name);
/* The external getenv, with an empty value treated as unset. */
NU_API char *_nu_get_env_var(const char *name);

/* ---------------------------------------------------------------------------------------- */
/* Text-field readers and character descriptors                                              */
/* ---------------------------------------------------------------------------------------- */

/* Skips white space; returns the next character (pushed back) or EOF. */
NU_API int _nu_skip_whitespace(FILE *stream);
NU_API long _nu_get_int(FILE *stream);
NU_API double _nu_get_dbl(FILE *stream);
NU_API uint32_t _nu_get_hex(FILE *stream, int n);
NU_API int _nu_get_hex_digit(FILE *stream);
NU_API int _nu_get_hex_byte(FILE *stream);
NU_API int _nu_get_str(char *buffer, int size, FILE *stream);

NU_API int _nu_desc_eq(const nu_chardesc *a, const nu_chardesc *b);
NU_API nu_wchar _nu_desc_to_nu_wchar(const nu_chardesc *d);
NU_API void _nu_desc_offset(const nu_chardesc *src, long delta, nu_chardesc *dst);

/* ---------------------------------------------------------------------------------------- */
/* Multi-level byte table                                                                    */
/* ---------------------------------------------------------------------------------------- */

#define MULTI_MARK_END 1u
#define MULTI_COMPRESSED 2u
#define MULTI_MAX_DEPTH 4

NU_API multi_t *_nu_create_multi(unsigned int desc_size, unsigned int flags,
                                 const void *default_desc);
NU_API int _nu_insert_desc_multi(const multi_key *key, const void *desc, multi_t *table);
NU_API void *_nu_retrieve_desc_multi(const multi_key *key, const multi_t *table);
NU_API void *_nu_retrieve_text_multi(const multi_t *table, const unsigned char *s, int *length,
                                     void *handle);
NU_API void *_nu_retrieve_text_multi_nl(const multi_t *table, const unsigned char *s,
                                        void *handle);
NU_API int _nu_retrieve_text_multi_nv(const multi_t *table, const unsigned char *s,
                                      void *handle);
NU_API void *_nu_retrieve_text_multi_limit(const unsigned char *s, const multi_t *table,
                                           int count, int *length, void *handle);
NU_API void *_nu_retrieve_text_multi_limit_nl(const multi_t *table, const unsigned char *s,
                                              int count, void *handle);
NU_API void *_nu_retrieve_little_endian_unicode_limit(const unsigned char *s,
                                                      const multi_t *table, int count,
                                                      void *conversion);
NU_API void *_nu_retrieve_wchar_multi_nl(void *handle, nu_wchar wc, const multi_t *table);
NU_API void _nu_fprintf_multi(FILE *stream, multi_t *table, nu_desc_printer printer);
NU_API int _nu_fscanf_multi(FILE *stream, multi_t *table, int max_length,
                            nu_desc_reader reader);
NU_API int _nu_compress_multi(multi_t *table);
NU_API void _nu_free_multi(multi_t *table);
NU_API int _nu_multi_max_length(const multi_t *table);
NU_API int _nu_multi_min_length(const multi_t *table);
NU_API int _nu_multi_err(const multi_t *table);
NU_API int _nu_multi_node_count(const multi_t *table, int *data_count, int *flag_count,
                                int *offset_count);

/* ---------------------------------------------------------------------------------------- */
/* Code-set registry                                                                         */
/* ---------------------------------------------------------------------------------------- */

/* Code-set numbers are unsigned 16-bit values (CCSIDs where one exists, a private range above
   0xE000 otherwise). This one means "unknown code set". */
#define NU_UNKNOWN_CODESET 0xE000u
/* Size of a code-set name buffer: at most 21 characters and the terminating zero. */
#define NU_CS_NAME_SIZE 22

/* An entry of the built-in registry table; a null name ends the table. */
typedef struct nu_registry_entry {
    const char *name;   /* lower case */
    uint32_t number;    /* 16-bit code-set number */
} nu_registry_entry;

/* An entry of the registry cache read from the registry file, in the order of the file.
   The entries and their names come from the standard allocator (malloc). */
typedef struct nu_registry_node {
    char *name;         /* NU_CS_NAME_SIZE bytes */
    uint32_t number;
    struct nu_registry_node *next;
} nu_registry_node;

/* A calendar of the built-in calendar table; an all-null entry ends it. */
typedef struct nu_calendar_entry {
    const char *name;       /* the name followed by a newline, e.g. "gregorian\n" */
    const nu_wchar *wname;  /* the same text as wide characters */
    int32_t number;         /* 1 Gregorian, 2 Hebrew, 3 Islamic, 4 Arabic */
} nu_calendar_entry;

NU_API extern const nu_registry_entry nus_canned_registry[];
NU_API extern const nu_calendar_entry nus_canned_calendars[];
/* The caches in force: the list read from the file takes precedence over the table. Both
   are process-wide and unlocked: set them up before concurrent use. */
NU_API extern nu_registry_node *nus_registry_list_cache;
NU_API extern const nu_registry_entry *nus_registry_array_cache;

/* The number of a code-set name (any case; its first 21 characters count) or of a decimal
   number below 0x10000. Looks in the cache in force, else reads the registry file (found by
   the data-file search, or `registry` when that is not null or empty). NU_UNKNOWN_CODESET
   with NU_EINVAL (unknown), NU_EBADFILE (malformed file) or NU_EBADFMT (file not opened;
   not set when `handle` is null or its error code is already NU_ENOMEM). `handle` may be
   null or any error slot. */
NU_API unsigned int nu_cs_name2cs_num(void *handle, const char *name, const char *registry);
/* Reads the registry file into the list cache and returns &nus_registry_list_cache. When the
   file cannot be opened (NU_EBADFMT), is malformed (NU_EBADFILE) or memory runs out
   (NU_ENOMEM), installs nus_canned_registry as the array cache and returns it. */
NU_API const void *nu_cache_registry(void *handle, const char *registry);
/* Frees the list cache and clears both caches; returns &nus_registry_array_cache. */
NU_API const nu_registry_entry **nu_free_registry_cache(void);
/* Reads the next code-set name of a registry stream, lower-cased, into `buffer` (size bytes;
   NU_CS_NAME_SIZE in the library): 1, or 0 when no name is left or the name is too long. */
NU_API int _nu_next_cs_name_from_registry(FILE *stream, char *buffer, int size);
/* Reads the number after a name (16 bits, wrapping); NU_UNKNOWN_CODESET and NU_EBADFILE when
   it is missing or ends the file. */
NU_API unsigned int _nu_next_cs_number_from_registry(void *handle, FILE *stream);
/* 1 NU_CTYPE, 2 NU_COLLATE, 3 NU_TIME, 4 NU_MONETARY, 5 NU_NUMERIC, 6 NU_MESSAGES when `text`
   begins with that keyword (its length goes to *length), else 0. */
NU_API int _nu_is_category(const char *text, int *length);
/* 1 when `text` is non-empty and all decimal digits. */
NU_API int _nu_all_decimal_digits(const char *text);

/* ---------------------------------------------------------------------------------------- */
/* Locale and conversion file names                                                          */
/* ---------------------------------------------------------------------------------------- */

/* Byte that stands for a directory separator in the file names built here. */
#define NU_PATH_MARK 0xFF
/* Output size of nu_lc_spec2lc_fname: six per-category items, each with the directory. */
#define NU_LC_FNAME_SIZE(directory_length) (6 * (36 + (directory_length)) + 1)
/* Output size of nu_lc_pieces2lc_spec and _nu_lc_short_spec2lc_short_norm. */
#define NU_LC_SPEC_SIZE 17

/* The locale object file name of a specification ("de_de.8859-1@euro" gives
   "de_de/0333euro.lco"), or of a per-category specification ("NU_CTYPE = de_de.819 ; ..."
   keeps its structure, each item's file name preceded by `directory` and NU_PATH_MARK).
   A locale specification counts up to its first 285 characters. 0, or -1 with NU_EINVAL. */
NU_API int nu_lc_spec2lc_fname(void *handle, const char *spec, char *out, const char *registry,
                               const char *directory);
/* Converts one "ll_tt.codeset[@mod]" piece at *spec into its file name at *out, stores the
   code-set number and advances both pointers: 1, or 0 (no error code of its own). */
NU_API int _nu_is_xopen_spec(void *handle, const char **spec, char **out, unsigned int *number,
                             const char *registry);
/* The message directory of a specification: "ll_tt/xxxx" (11 bytes with the zero). 0, or -1
   with NU_EINVAL. The directory does not change the result. */
NU_API int nu_lc_spec2msg_dname(void *handle, const char *spec, char *out, const char *registry,
                                const char *directory);
/* Splits "ll_tt/xxxx[mod].lco" into "ll_TT" (6 bytes), the decimal code-set number (6 bytes)
   and the modifier (5 bytes). 0, or -1 (NU_EINVAL when a handle is given). */
NU_API int nu_lc_fname2lc_pieces(void *handle, const char *fname, char *lang_terr, char *codeset,
                                 char *modifier);
/* Joins pieces into "ll_TT.number[@mod]" (NU_LC_SPEC_SIZE bytes). 0, or -1 (NU_EINVAL when a
   handle is given). */
NU_API int nu_lc_pieces2lc_spec(void *handle, const char *lang_terr, const char *codeset,
                                const char *modifier, char *out);
/* The normalised form of a plain specification: de_de.8859-1@euro gives de_DE.819@euro. */
NU_API int _nu_lc_short_spec2lc_short_norm(void *handle, const char *spec, char *out,
                                           const char *registry);
/* The code-set number of a specification, of a per-category specification whose items all
   name one code set (every item, the last included, followed by " ; "), or of a bare code-set
   name or number. NU_UNKNOWN_CODESET on failure (NU_EINVAL when a handle is given, or the
   registry lookup's own code). */
NU_API unsigned int nu_lc_spec2cs_num(void *handle, const char *spec, const char *registry);
/* The registry's name of a code-set number: the first name the registry lists for it, "c"
   and "posix" (names of locales) left out, into out (NU_CS_NAME_SIZE bytes): 819 gives
   "8859-1". 0, or -1 with NU_EINVAL (no name) or NU_EBADFMT (registry unreadable). */
NU_API int nu_cs_num2cs_name(void *handle, unsigned int number, char *out, const char *registry);
/* The conversion object file name: `directory` and NU_PATH_MARK when a directory is given,
   the two numbers as eight hexadecimal digits (first, then second), ".cvo". `out` needs the
   directory's length plus 14 bytes. The handle is not used. */
NU_API void nu_cs_nums2cv_fname(void *handle, unsigned int first, unsigned int second, char *out,
                                const char *directory);

/* ---------------------------------------------------------------------------------------- */
/* Characters: decoding and encoding                                                        */
/* ---------------------------------------------------------------------------------------- */

/* Byte length of the first character of s (at most n bytes looked at); 0 for a null s or the
   null character; -1 with NU_EILSEQ (illegal) or NU_EINVAL (n ends inside a character). */
NU_API int nu_full_mblen(nu_locale_t handle, const unsigned char *s, int n);
/* The same, but the null character has its length too. */
NU_API int _tsn_nu_full_mblen(nu_locale_t handle, const unsigned char *s, int n);
/* Decodes one character into *pwc; n below 1 is NU_EINVAL. Bytes consumed, 0 for the null
   character or a null s, -1 on error. */
NU_API int nu_full_mbtowc(nu_locale_t handle, nu_wchar *pwc, const unsigned char *s, int n);
/* The same; n = -1 means up to the string's terminator. */
NU_API int _tsn_nu_full_mbtowc(nu_locale_t handle, nu_wchar *pwc, const unsigned char *s, int n);
/* Encodes wc into s (1 to 4 bytes); the byte count, or -1 with NU_EILSEQ. */
NU_API int nu_full_wctomb(nu_locale_t handle, unsigned char *s, nu_wchar wc);
/* Bytes that wc needs in the handle's code set. */
NU_API int nu_wclen(nu_locale_t handle, nu_wchar wc);
/* Multibyte to wide: at most n characters; slen in bytes or -1 (null-terminated). */
NU_API int _tsn_nu_im_mbfstowcfs(nu_locale_t handle, nu_wchar *wcs, const unsigned char *s,
                                 int slen, int n);
NU_API int _nu_im_mbstowcs(nu_locale_t handle, nu_wchar *wcs, const unsigned char *s, int n);
NU_API int _tsn_nu_is_mbfstowcfs(nu_locale_t handle, nu_wchar *wcs, const unsigned char *s,
                                 int slen, int n);
NU_API int _nu_is_mbstowcs(nu_locale_t handle, nu_wchar *wcs, const unsigned char *s, int n);
/* Wide to multibyte into n bytes; wlen in characters or -1 (null-terminated). */
NU_API int _tsn_nu_full_wcstombs(nu_locale_t handle, unsigned char *s, const nu_wchar *wcs,
                                 int wlen, int n);
NU_API int nu_full_wcstombs(nu_locale_t handle, unsigned char *s, const nu_wchar *wcs, int n);
NU_API int _tsn_nu_is_wcstombs(nu_locale_t handle, unsigned char *s, const nu_wchar *wcs,
                               int wlen, int n);
NU_API int _nu_is_wcstombs(nu_locale_t handle, unsigned char *s, const nu_wchar *wcs, int n);
/* Characters before the terminator; -1 on an illegal or incomplete character. */
NU_API int _nu_im_mbslen(nu_locale_t handle, const unsigned char *s);
NU_API int _tsn_nu_im_mbfslen(nu_locale_t handle, const unsigned char *s, int slen);
/* Bytes of s with its terminator; 0 for a null s or an illegal string. */
NU_API int nu_mbsbytes(nu_locale_t handle, const unsigned char *s);
NU_API int nu_wcslen(const nu_wchar *wcs);
/* 4 * (characters + 1). */
NU_API int nu_wcsbytes(const nu_wchar *wcs);
/* Writes the terminator (as many zero bytes as the shortest character) and returns its length. */
NU_API int nu_mbsterm(nu_locale_t handle, unsigned char *p);
NU_API int nu_mb_loc_min(nu_locale_t handle);
NU_API int nu_mb_loc_max(nu_locale_t handle);

/* ---------------------------------------------------------------------------------------- */
/* Locales: loading, copying, querying                                                       */
/* ---------------------------------------------------------------------------------------- */

/* Loads categories (NU_ALL or one of NU_CTYPE..NU_MESSAGES) from a locale file name, a list
   "NU_CTYPE = name ; NU_NUMERIC = name ; ...", the environment (empty text: NU_ALL, the
   category's own variable, NU_LANG, else "default.lco") or "native"; a null text only asks.
   Returns the categories' names (release with nu_destroystring), or null. */
NU_API char *nu_setlocale_4(nu_locale_t handle, int category, const char *spec);
/* Creates a handle and loads every category from a specification or file name. */
NU_API int nu_lc_load(nu_locale_t *handle, const char *spec, const char *registry,
                      const char *directory);
/* Shares loaded categories of `source` with the empty ones of `destination`. */
NU_API int nu_copy_cat(nu_locale_t destination, nu_locale_t source, int category);
/* Frees a handle that shares categories with another: its own parts only. */
NU_API void nu_free_nonshared_loc(nu_locale_t handle);
/* Prepares the companion Unicode library when NU_USENUU asks for it (see "Companion Unicode
   library" below): 0 when it is loaded, not asked for, or not installed (no "dllregistry"
   entry for this build), the handle then staying table-driven; -1 with NU_ELOAD when the
   companion that "dllregistry" names cannot be loaded or lacks an entry point. */
NU_API int nu_init_nuu(nu_locale_t handle);

/* The caller-visible conventions: each string with its wide twin, then the eight monetary
   values as characters (CHAR_MAX when not available). */
typedef struct nu_lconv {
    char *decimal_point;
    nu_wchar *w_decimal_point;
    char *thousands_sep;
    nu_wchar *w_thousands_sep;
    char *grouping; /* one byte per group size, zero-terminated */
    nu_wchar *w_grouping;
    char *int_curr_symbol;
    nu_wchar *w_int_curr_symbol;
    char *currency_symbol;
    nu_wchar *w_currency_symbol;
    char *mon_decimal_point;
    nu_wchar *w_mon_decimal_point;
    char *mon_thousands_sep;
    nu_wchar *w_mon_thousands_sep;
    char *mon_grouping;
    nu_wchar *w_mon_grouping;
    char *mon_positive_sign;
    nu_wchar *w_mon_positive_sign;
    char *mon_negative_sign;
    nu_wchar *w_mon_negative_sign;
    char *positive_sign;
    nu_wchar *w_positive_sign;
    char *negative_sign;
    nu_wchar *w_negative_sign;
    char int_frac_digits;
    char frac_digits;
    char p_cs_precedes;
    char p_sep_by_space;
    char n_cs_precedes;
    char n_sep_by_space;
    char p_sign_posn;
    char n_sign_posn;
} nu_lconv;

NU_API const nu_lconv *nu_localeconv(nu_locale_t handle);
/* One item (0 to 73) as text, or null. */
NU_API const char *nu_nl_langinfo(nu_locale_t handle, int item);
NU_API const nu_wchar *nu_wc_nl_langinfo(nu_locale_t handle, int item);
/* The TIME items (the locale source's keyword in brackets; the null locale answers the
   values of the POSIX locale):
      0       the date and time format, %c (d_t_fmt)
      1-7     abbreviated day names, Sunday first (abday)
      8-14    full day names, Sunday first (day)
      15-34   full month names by month-name index (mon); 12 in a Gregorian locale, 14 in a
              Hebrew one, whose names 12 and 13 are the two Adars of a leap year (see word 6 of
              nu_time_rec). An item beyond the locale's count: null with NU_EBADVAL.
      35-54   the second list of full month names, the nominative where mon holds the
              genitive (alt_mon); its own count, 0 when the locale has no second list: null
              with NU_EBADVAL then
      61      the date format, %x (d_fmt)        66  the date(1) format (date_fmt)
      62      the time format, %X (t_fmt)        67  the era date and time format, %Ec
      63      the 12-hour time format, %r                (era_d_t_fmt)
              (t_fmt_ampm)                       68  the era date format, %Ex (era_d_fmt)
      64      the morning string, %p (am_pm)     69  the era time format, %EX (era_t_fmt)
      65      the afternoon string (am_pm)       70  era_year, usually empty
      73      the calendar's name from nus_canned_calendars ("gregorian\n", ...)
   An item the locale does not define is the empty string, never null. The abbreviated month
   names, the era table and the alternative digits are read by the time functions only. */
/* The TIME section reader: 0, or -1 with the code (NU_EBADFILE, NU_ENOMEM) in *error and the
   handle's TIME record unchanged. */
NU_API int _nu_read_time(FILE *stream, nu_locale_t handle, int *error);
/* The TIME values no item shows. nu_time_name: list 0 the full month names, 1 the abbreviated
   ones, 2 and 3 the same of the second list, 4 the alternative digits (the text of the value
   `index`, 0 upwards); null with NU_EBADVAL past the list's end. nu_time_era: the number of
   era segments, with segment `index` (in the locale's order) in *segment when index is below
   it; -1 for a null handle or segment. Era dates are Gregorian with astronomical years (0 is
   1 BC); an open end is the year INT32_MIN (towards the past) or INT32_MAX (the future) with
   month and day 0. nu_time_week: days in a week, a date (yyyymmdd) of a first day of the
   week, the days the first week of a year must have, the first weekday and the first workday
   (1 is the day of that date), in week[0..4]; 0, or -1 for a null handle or array. */
typedef struct nu_era_segment {
    int32_t direction;   /* 1: the era's years count up from its start, -1: down */
    int32_t offset;      /* the era's year at its start */
    int32_t start_year, start_month, start_day;
    int32_t end_year, end_month, end_day;
    const char *name;    /* the era's name, %EC */
    const char *format;  /* how a year of the era is written, %EY; may be empty */
    const nu_wchar *wname, *wformat;
} nu_era_segment;
NU_API const char *nu_time_name(nu_locale_t handle, int list, int index);
NU_API int nu_time_era(nu_locale_t handle, int index, nu_era_segment *segment);
NU_API int nu_time_week(nu_locale_t handle, int32_t week[5]);

/* Section readers and category records of NUMERIC, MONETARY and MESSAGES. */
NU_API int _nu_read_numeric(FILE *stream, nu_locale_t handle, int *error);
NU_API int _nu_read_monetary(FILE *stream, nu_locale_t handle, int *error);
NU_API int _nu_read_messages(FILE *stream, nu_locale_t handle, int *error);
NU_API void _nu_init_numeric(nu_locale_t handle);
NU_API void _nu_init_monetary(nu_locale_t handle);
NU_API void _nu_init_messages(nu_locale_t handle);
NU_API void _nu_copy_numeric(nu_locale_t destination, nu_locale_t source);
NU_API void _nu_copy_monetary(nu_locale_t destination, nu_locale_t source);
NU_API void _nu_copy_messages(nu_locale_t destination, nu_locale_t source);

/* ---------------------------------------------------------------------------------------- */
/* Character classes and case                                                                */
/* ---------------------------------------------------------------------------------------- */

/* Class masks. */
#define NU_CLASS_UPPER 1
#define NU_CLASS_LOWER 2
#define NU_CLASS_ALPHA 4
#define NU_CLASS_DIGIT 8
#define NU_CLASS_SPACE 16
#define NU_CLASS_CNTRL 32
#define NU_CLASS_PUNCT 64
#define NU_CLASS_GRAPH 128
#define NU_CLASS_PRINT 256
#define NU_CLASS_XDIGIT 512
#define NU_CLASS_BLANK 1024
#define NU_CLASS_ALNUM 12

/* The mask of a class name ("alpha", ..., or a class the locale defines); 0 if unknown. */
NU_API int nu_ctype(nu_locale_t handle, const char *name);
NU_API int _nu_im_iswctype(nu_locale_t handle, nu_wchar wc, int mask);
NU_API int _nu_im_ismctype(nu_locale_t handle, const unsigned char *mbchar, int mask);
NU_API int _tsn_nu_im_ismctype(nu_locale_t handle, const unsigned char *mbchar, int length,
                               int mask);
NU_API nu_wchar _nu_im_towupper(nu_locale_t handle, nu_wchar wc);
NU_API nu_wchar _nu_im_towlower(nu_locale_t handle, nu_wchar wc);
/* One character: input length * 256 + output length, or -1. */
NU_API int _nu_im_tomupper(nu_locale_t handle, unsigned char *out, const unsigned char *mbchar);
NU_API int _nu_im_tomlower(nu_locale_t handle, unsigned char *out, const unsigned char *mbchar);
NU_API int _tsn_nu_im_tomupper(nu_locale_t handle, unsigned char *out,
                               const unsigned char *mbchar, int length);
NU_API int _tsn_nu_im_tomlower(nu_locale_t handle, unsigned char *out,
                               const unsigned char *mbchar, int length);
/* Whole strings; the output length in bytes, or -1. */
NU_API int nu_tombsupper(nu_locale_t handle, unsigned char *out, const unsigned char *in);
NU_API int nu_tombslower(nu_locale_t handle, unsigned char *out, const unsigned char *in);
NU_API int nu_towcsupper(nu_locale_t handle, nu_wchar *out, const nu_wchar *in);
NU_API int nu_towcslower(nu_locale_t handle, nu_wchar *out, const nu_wchar *in);
/* The output size to provide for case-converting `length` bytes. */
NU_API int nu_case_conv_outbuflen(nu_locale_t handle, int length);

/* ---------------------------------------------------------------------------------------- */
/* String operations                                                                         */
/* ---------------------------------------------------------------------------------------- */

/* Forms: nu_ and nu_full_ take null-terminated strings; _tsn_nu_ take each string with a
   length (bytes for multibyte strings, characters for wide ones), -1 meaning null-terminated.
   Two lengths must both be -1 or both be given (else NU_ELENGTHS); a length below -1 is
   NU_EBADVAL; a null string is NU_EBADARG. Searches that find nothing clear the error slot,
   so that 0 there tells absence from failure. */

/* Stepping and positions. */
NU_API unsigned char *nu_full_mbsnext(nu_locale_t handle, const unsigned char *s);
NU_API unsigned char *_tsn_nu_full_mbsnext(nu_locale_t handle, const unsigned char *s, int n);
NU_API unsigned char *nu_full_mbsprev(nu_locale_t handle, const unsigned char *start,
                                      const unsigned char *pos);
NU_API unsigned char *nu_full_getmbsi(nu_locale_t handle, const unsigned char *s, int i);
NU_API unsigned char *nu_getmbsinull(nu_locale_t handle, const unsigned char *s, int i);
NU_API unsigned char *nu_full_putmbsi(nu_locale_t handle, unsigned char *s, int i,
                                      const unsigned char *c);
NU_API unsigned char *nu_mbcreplace(nu_locale_t handle, unsigned char *p, const unsigned char *c);
NU_API int nu_ismbsterm(nu_locale_t handle, const unsigned char *p);
NU_API int nu_mbsbytes_nt(nu_locale_t handle, const unsigned char *s);

/* Lengths without trailing blanks, display widths, truncation. */
NU_API int nu_mbsntslen(nu_locale_t handle, const unsigned char *s);
NU_API int _tsn_nu_mbsntslen(nu_locale_t handle, const unsigned char *s, int n);
NU_API int nu_mbsntsbytes(nu_locale_t handle, const unsigned char *s);
NU_API int _tsn_nu_mbsntsbytes(nu_locale_t handle, const unsigned char *s, int n);
NU_API int nu_wcsntslen(nu_locale_t handle, const nu_wchar *ws);
NU_API int _tsn_nu_wcsntslen(nu_locale_t handle, const nu_wchar *ws, int n);
NU_API nu_wchar *nu_wcsntstrunc(nu_locale_t handle, nu_wchar *ws);
NU_API unsigned char *nu_mbsp(nu_locale_t handle, const unsigned char *s);
NU_API unsigned char *nu_mbsntstrunc(nu_locale_t handle, unsigned char *s);
NU_API int nu_wcwidth(nu_locale_t handle, nu_wchar wc);
NU_API int nu_mbwidth(nu_locale_t handle, const unsigned char *s);
NU_API int nu_wcswidth(nu_locale_t handle, const nu_wchar *ws, int n);
NU_API int nu_mbswidth(nu_locale_t handle, const unsigned char *s, int n);
NU_API int nu_wcspwidth(nu_locale_t handle, const nu_wchar *start, const nu_wchar *end);
NU_API int nu_mbspwidth(nu_locale_t handle, const unsigned char *start, const unsigned char *end);

/* Copy and concatenate. The counted forms return bytes (characters for wide strings). */
NU_API unsigned char *nu_full_mbscpy(nu_locale_t handle, unsigned char *d, const unsigned char *s);
NU_API int _tsn_nu_mbscpy(nu_locale_t handle, unsigned char *d, const unsigned char *s, int n);
NU_API unsigned char *nu_full_mbscat(nu_locale_t handle, unsigned char *d, const unsigned char *s);
NU_API int _tsn_nu_mbscat(nu_locale_t handle, unsigned char *d, int dn, const unsigned char *s,
                          int sn);
NU_API unsigned char *nu_mbsncpy(nu_locale_t handle, unsigned char *d, const unsigned char *s,
                                 int n);
NU_API int _tsn_nu_mbsncpy(nu_locale_t handle, unsigned char *d, const unsigned char *s, int sn,
                           int n);
NU_API unsigned char *nu_mbsncat(nu_locale_t handle, unsigned char *d, const unsigned char *s,
                                 int n);
NU_API int _tsn_nu_mbsncat(nu_locale_t handle, unsigned char *d, int dn, const unsigned char *s,
                           int sn, int n);
NU_API nu_wchar *nu_wcscpy(nu_wchar *d, const nu_wchar *s);
NU_API int _tsn_nu_wcscpy(nu_locale_t handle, nu_wchar *d, const nu_wchar *s, int n);
NU_API nu_wchar *nu_wcscat(nu_wchar *d, const nu_wchar *s);
NU_API int _tsn_nu_wcscat(nu_locale_t handle, nu_wchar *d, int dn, const nu_wchar *s, int sn);
NU_API nu_wchar *nu_wcsncpy(nu_wchar *d, const nu_wchar *s, int n);
NU_API int _tsn_nu_wcsncpy(nu_locale_t handle, nu_wchar *d, const nu_wchar *s, int sn, int n);
NU_API nu_wchar *nu_wcsncat(nu_wchar *d, const nu_wchar *s, int n);
NU_API int _tsn_nu_wcsncat(nu_locale_t handle, nu_wchar *d, int dn, const nu_wchar *s, int sn,
                           int n);

/* Search and span. */
NU_API unsigned char *nu_full_mbschr(nu_locale_t handle, const unsigned char *s,
                                     const unsigned char *c);
NU_API unsigned char *_tsn_nu_mbschr(nu_locale_t handle, const unsigned char *s, int sn,
                                     const unsigned char *c, int cn);
NU_API unsigned char *nu_full_mbsrchr(nu_locale_t handle, const unsigned char *s,
                                      const unsigned char *c);
NU_API unsigned char *_tsn_nu_mbsrchr(nu_locale_t handle, const unsigned char *s, int sn,
                                      const unsigned char *c, int cn);
NU_API unsigned char *nu_full_mbsmbs(nu_locale_t handle, const unsigned char *s,
                                     const unsigned char *t);
NU_API unsigned char *_tsn_nu_mbsmbs(nu_locale_t handle, const unsigned char *s, int sn,
                                     const unsigned char *t, int tn);
NU_API int nu_full_mbsspn(nu_locale_t handle, const unsigned char *s, const unsigned char *set);
NU_API int nu_full_mbscspn(nu_locale_t handle, const unsigned char *s, const unsigned char *set);
NU_API unsigned char *nu_full_mbspbrk(nu_locale_t handle, const unsigned char *s,
                                      const unsigned char *set);
NU_API int _tsn_nu_mbsspn(nu_locale_t handle, const unsigned char *s, int sn,
                          const unsigned char *set, int setn);
NU_API int _tsn_nu_mbscspn(nu_locale_t handle, const unsigned char *s, int sn,
                           const unsigned char *set, int setn);
NU_API unsigned char *_tsn_nu_mbspbrk(nu_locale_t handle, const unsigned char *s, int sn,
                                      const unsigned char *set, int setn);
NU_API nu_wchar *nu_wcschr(nu_locale_t handle, const nu_wchar *ws, nu_wchar wc);
NU_API nu_wchar *nu_wcsrchr(nu_locale_t handle, const nu_wchar *ws, nu_wchar wc);
NU_API nu_wchar *_tsn_nu_wcschr(nu_locale_t handle, const nu_wchar *ws, int n, nu_wchar wc);
NU_API nu_wchar *_tsn_nu_wcsrchr(nu_locale_t handle, const nu_wchar *ws, int n, nu_wchar wc);
NU_API int nu_wcsspn(nu_locale_t handle, const nu_wchar *ws, const nu_wchar *set);
NU_API int nu_wcscspn(nu_locale_t handle, const nu_wchar *ws, const nu_wchar *set);
NU_API nu_wchar *nu_wcswcs(nu_locale_t handle, const nu_wchar *ws, const nu_wchar *set);
NU_API nu_wchar *nu_wcspbrk(nu_locale_t handle, const nu_wchar *ws, const nu_wchar *set);
NU_API int _tsn_nu_wcsspn(nu_locale_t handle, const nu_wchar *ws, int n, const nu_wchar *set,
                          int setn);
NU_API int _tsn_nu_wcscspn(nu_locale_t handle, const nu_wchar *ws, int n, const nu_wchar *set,
                           int setn);
NU_API nu_wchar *_tsn_nu_wcswcs(nu_locale_t handle, const nu_wchar *ws, int n,
                                const nu_wchar *set, int setn);
NU_API nu_wchar *_tsn_nu_wcspbrk(nu_locale_t handle, const nu_wchar *ws, int n,
                                 const nu_wchar *set, int setn);

/* Code-order comparisons of wide strings. */
NU_API int nu_wcscmp(const nu_wchar *ws1, const nu_wchar *ws2);
NU_API int _tsn_nu_wcfscmp(const nu_wchar *ws1, int len1, const nu_wchar *ws2, int len2);
NU_API int nu_wcsncmp(const nu_wchar *ws1, const nu_wchar *ws2, int n);

/* ---------------------------------------------------------------------------------------- */
/* Collation                                                                                 */
/* ---------------------------------------------------------------------------------------- */

/* Comparisons return negative, 0 or positive; 0 is also the result of a failure, which the
   error slot tells apart. Sort keys return the bytes the whole key needs (without its
   terminating 0 byte, which is stored only when there is room), or -1; a result of n or more
   means the key was cut. Through the handle, callers normally use nu_mbscoll-style pointers
   chosen per locale: the functions below are those candidates. */

/* Multi-level comparison and sort keys by the locale's tables. */
NU_API int nu_wcsxfrm(nu_locale_t handle, unsigned char *out, const nu_wchar *ws, int n);
NU_API int nu_full_mbsxfrm(nu_locale_t handle, unsigned char *out, const unsigned char *s,
                           int n);
NU_API int _tsn_nu_full_wcscoll(nu_locale_t handle, const nu_wchar *ws1, int len1,
                                const nu_wchar *ws2, int len2);
NU_API int nu_full_wcscoll(nu_locale_t handle, const nu_wchar *ws1, const nu_wchar *ws2);
NU_API int _tsn_nu_im_mbfscoll(nu_locale_t handle, const unsigned char *s1, int len1,
                               const unsigned char *s2, int len2);
NU_API int _nu_im_mbscoll(nu_locale_t handle, const unsigned char *s1, const unsigned char *s2);
/* Through the comparison functions chosen for the handle's locale. */
NU_API int nu_full_mbscoll(nu_locale_t handle, const unsigned char *s1, const unsigned char *s2);
NU_API int _tsn_nu_full_mbscoll(nu_locale_t handle, const unsigned char *s1, int len1,
                                const unsigned char *s2, int len2);
/* A wide character encoded by the collation table's byte structure; bytes or -1. */
NU_API int _nu_sl_wctomb(nu_locale_t handle, unsigned char *s, nu_wchar wc);

/* Single-byte code sets: comparisons straight from the bytes, one per feature set. */
NU_API int _nu_is_mbscoll_back(nu_locale_t handle, const unsigned char *s1,
                               const unsigned char *s2);
NU_API int _tsn_nu_is_mbfscoll_back(nu_locale_t handle, const unsigned char *s1, int len1,
                                    const unsigned char *s2, int len2);
NU_API int _nu_is_mbscoll_exp(nu_locale_t handle, const unsigned char *s1,
                              const unsigned char *s2);
NU_API int _tsn_nu_is_mbfscoll_exp(nu_locale_t handle, const unsigned char *s1, int len1,
                                   const unsigned char *s2, int len2);
NU_API int _nu_is_mbscoll_elem(nu_locale_t handle, const unsigned char *s1,
                               const unsigned char *s2);
NU_API int _tsn_nu_is_mbfscoll_elem(nu_locale_t handle, const unsigned char *s1, int len1,
                                    const unsigned char *s2, int len2);
NU_API int _nu_is_mbscoll_exp_elem(nu_locale_t handle, const unsigned char *s1,
                                   const unsigned char *s2);
NU_API int _tsn_nu_is_mbfscoll_exp_elem(nu_locale_t handle, const unsigned char *s1, int len1,
                                        const unsigned char *s2, int len2);

/* Code order of multibyte strings. */
NU_API int nu_full_mbscmp(nu_locale_t handle, const unsigned char *s1, const unsigned char *s2);
NU_API int _tsn_nu_mbscmp(nu_locale_t handle, const unsigned char *s1, int len1,
                          const unsigned char *s2, int len2);
NU_API int nu_full_mbsncmp(nu_locale_t handle, const unsigned char *s1, const unsigned char *s2,
                           int n);

/* The Thai method. _nu_thaismoxfrm takes the source first and the destination second. */
NU_API int _nu_thaismocoll(nu_locale_t handle, const unsigned char *s1, const unsigned char *s2);
NU_API int _tsn_nu_thaismoncoll(nu_locale_t handle, const unsigned char *s1, int len1,
                                const unsigned char *s2, int len2);
NU_API int _nu_thaismoxfrm(nu_locale_t handle, unsigned char *src, const unsigned char *dst,
                           int n);
NU_API int nu_iscompchar_thai(nu_locale_t handle, const unsigned char *s);
/* The Thai neighbour in primary order: direction 1 next, 2 previous; as nu_nextprimweight. */
NU_API int nu_primweight_thai(nu_locale_t handle, const unsigned char *s, int whole,
                              unsigned char *out, int direction);

/* Primary weights and bounds for prefix searches. */
NU_API int nu_getpassdirection(nu_locale_t handle, int level);
NU_API int nu_IsSpecialLocale(nu_locale_t handle);
NU_API int nu_iscompchar(nu_locale_t handle, const unsigned char *s);
NU_API int nu_get_prim_coll_weight(unsigned char *key);
NU_API int nu_nextprimweight(nu_locale_t handle, const unsigned char *s, int whole,
                             unsigned char *out);
NU_API int nu_prevprimweight(nu_locale_t handle, const unsigned char *s, int whole,
                             unsigned char *out);
NU_API int nu_mbsCollBound(nu_locale_t handle, const unsigned char *s, int upper,
                           unsigned char *out, int size);
NU_API int nu_mbsSortKeyCollBound(nu_locale_t handle, const unsigned char *s, int upper,
                                  unsigned char *key, int size);

/* ---------------------------------------------------------------------------------------- */
/* Calendars                                                                                 */
/* ---------------------------------------------------------------------------------------- */

/* A time value of the time and calendar functions: thirteen 32-bit words. The calendar
   conversions copy words 0 to 2 and 10 to 12 unchanged and compute the others. */
typedef struct nu_time_rec {
    int32_t fraction;    /*  0: fraction of a second, 0 to 999999 */
    int32_t second;      /*  1 */
    int32_t minute;      /*  2 */
    int32_t hour;        /*  3 */
    int32_t mday;        /*  4: day of month, from 1 */
    int32_t month;       /*  5: from 0; a Hebrew leap year has months 0 to 12 */
    int32_t month_name;  /*  6: which of the locale's month names the month carries: the
                                month itself, except in a Hebrew leap year, whose months 5
                                and 6 carry names 12 and 13 and whose later months the name
                                of the month before */
    int32_t year;        /*  7: year - 1900, of the value's own calendar */
    int32_t wday;        /*  8: day of week, 0 = Sunday */
    int32_t yday;        /*  9: day of year, from 0 */
    int32_t carried[3];  /* 10 to 12: carried through every conversion */
} nu_time_rec;

/* The Gregorian month lengths of a common year, 31, 28, 31, ... (writable, as it always
   was; the library itself only reads it). */
NU_API extern int32_t _nu_greg_month_length[12];

/* Day of year from 0 and day of week (0 = Sunday) of a Gregorian date: full year, month
   from 0. Both are -1 for a month outside 0 to 11. */
NU_API int _nu_gregorian_yearday(int mday, int month, int year);
NU_API int _nu_gregorian_weekday(int mday, int month, int year);

/* Conversions of one time value between the Gregorian calendar and the Hebrew or Islamic
   (arithmetic, 30-year cycle, Thursday epoch) calendar. 0, or -1 for a date outside the
   supported range, with the output then all zero. Gregorian to Hebrew: 0001-01-01 to
   10000-02-23; Hebrew years 3761 (from the 18th of month 3) to 14213; Gregorian to Islamic:
   0622-07-18 to 10323-10-20; Islamic years 1 to 9999. A local month of -1 is taken from the
   month-name word; when that is -1 too (or, Hebrew, names no month of the year) the result
   is -1 with the output holding only the copied words. No error code is stored. In and out
   may be the same record. */
NU_API int nu_cal_gregorian_to_hebrew(const nu_time_rec *in, nu_time_rec *out);
NU_API int nu_cal_hebrew_to_gregorian(const nu_time_rec *in, nu_time_rec *out);
NU_API int nu_cal_gregorian_to_islamic(const nu_time_rec *in, nu_time_rec *out);
NU_API int nu_cal_islamic_to_gregorian(const nu_time_rec *in, nu_time_rec *out);

/* By the calendar of the handle's TIME category (1 Gregorian: a plain copy, 2 Hebrew,
   3 Islamic): a Gregorian value to the local calendar and back. -1 for any other calendar,
   the output untouched; no error code is stored. */
NU_API int nu_cal_gregorian_to_local(nu_locale_t handle, const nu_time_rec *in,
                                     nu_time_rec *out);
NU_API int nu_cal_local_to_gregorian(nu_locale_t handle, const nu_time_rec *in,
                                     nu_time_rec *out);

/* The century that two-digit years of the handle's calendar belong to: 57 Hebrew,
   14 Islamic, 0 any other. */
NU_API int nu_alt_getcentury(nu_locale_t handle);

/* ---------------------------------------------------------------------------------------- */
/* Time formatting, parsing and date information                                             */
/* ---------------------------------------------------------------------------------------- */

/* Formats a Gregorian time value under the handle's TIME category (converted first to the
   locale's calendar) into out: size counts characters (wide) or bytes (multibyte) with the
   terminator, which is as many zero bytes as the code set's shortest character. Returns what
   was written without the terminator, or -1 with the error set (NU_E2BIG when it does not
   fit: a character is never split and nothing is written past size). A null out or a size
   of 0 only measures: the result is then what a large enough buffer would receive.
   Conversions: every one of POSIX strftime (%a %A %b %B %c %C %d %D %e %F %g %G %h %H %I %j
   %m %M %n %p %r %R %S %t %T %u %U %V %w %W %x %X %y %Y %z %Z %%) and %k %l %P %s; flags
   "_" (pad numbers with spaces), "-" (no padding), "0" (zeros), "^" (upper case), "#" (names
   upper case, am/pm lower case), a field width in characters after the flags; E (%Ec %EC %Ex
   %EX %Ey %EY: the era table) and O (%Od %Oe %OH %OI %Om %OM %OS %Ou %OU %OV %Ow %OW %Oy:
   alternative digits; %Ob %OB: the second month-name list). %f is the fraction of a second:
   %f six digits (microseconds), %.Nf the first N digits (1 to 9, truncated). A time value
   carries no time zone: %z writes nothing and %Z the empty string; %s counts the value as UTC.
   Errors: NU_EBADFMT the format ends inside a specification, NU_EFORMAT unknown conversion,
   NU_EMODIFIER a modifier, precision or flag the conversion does not take, NU_EFRACTION to
   NU_EYEAR a field the format needs out of range (years 1 to 9999; a date outside the
   locale's calendar is NU_EYEAR). */
NU_API int nu_wcsftime(nu_locale_t handle, nu_wchar *out, int size, const nu_wchar *format,
                       const nu_time_rec *t);
NU_API int nu_mbsftime(nu_locale_t handle, char *out, int size, const char *format,
                       const nu_time_rec *t);
/* Parses text by a format of the same conversions into *t (a Gregorian value with day of
   week, day of year and month-name index filled; fields the format does not set are 0, the
   day of month 1, the year 1900). White space in the format matches any white space (none
   too); names, am/pm strings, era names and alternative digits are matched without regard to
   case, the longest name first; %y is 1969 to 2068 (in a local calendar, the century of
   nu_alt_getcentury); %z and %Z accept and ignore an offset or a zone name. Returns where
   parsing stopped (the first character not consumed), or null with the error set: NU_ENOMATCH
   literal text, NU_EPFRACTION to NU_EPMONNAME a field not found (NU_EPWDAY also a day of week
   that contradicts the date), NU_EMDAY .. NU_EYEAR a date that does not exist, and the format
   errors of the formatter. */
NU_API nu_wchar *nu_wcsptime(nu_locale_t handle, const nu_wchar *text, const nu_wchar *format,
                             nu_time_rec *t);
NU_API char *nu_mbsptime(nu_locale_t handle, const char *text, const char *format,
                         nu_time_rec *t);
/* Checks the Gregorian date and time of *t (errors NU_EFRACTION to NU_EYEAR) and fills its
   day of week, day of year and month-name index. 0 or -1. */
NU_API int nu_time_normalize(nu_locale_t handle, nu_time_rec *t);
/* The ISO 8601 week (1 to 53) of a Gregorian date, its week-based year in *year (may be
   null); -1 with NU_EMDAY, NU_EMONTH or NU_EYEAR for a date that does not exist. */
NU_API int nu_time_isoweek(nu_locale_t handle, const nu_time_rec *t, int *year);
/* The week of the year by the locale's week rule (its first weekday, and the days that the
   first week must have in the year), with the week's year in *year; -1 as above. */
NU_API int nu_time_localweek(nu_locale_t handle, const nu_time_rec *t, int *year);
/* The locale's first day of the week, 0 = Sunday. */
NU_API int nu_time_first_weekday(nu_locale_t handle);
/* The full year of a two-digit year (0 to 99): in a local calendar the century of
   nu_alt_getcentury, else 1969 to 2068 as POSIX asks. -1 with NU_EYEAR outside 0 to 99. */
NU_API int nu_time_expand_year(nu_locale_t handle, int two_digit_year);

/* ---------------------------------------------------------------------------------------- */
/* Code-set conversion                                                                       */
/* ---------------------------------------------------------------------------------------- */

/* A conversion descriptor, loaded from a conversion object file (".cvo"). Its first field is
   the error slot, read with *_nu_ext_errno(cv). */
typedef struct nu_cv_rec *nu_cv_t;

/* The caller's state of a conversion that involves shift states. Set reset on the first
   piece of a text and flush on the last (which holds a character at least: a shifted target
   is shifted back after the last character); the shift words carry over between calls. */
typedef struct nu_cv_state {
    int32_t reset;        /* nonzero: both sides start this call in their initial state */
    int32_t flush;        /* nonzero: this call ends the text; a shifted target shifts back */
    int32_t source_shift; /* 1 while the source is in its shifted state */
    int32_t target_shift; /* 1 while the target is in its shifted state */
} nu_cv_state;

/* Opening. The first argument names the target, the second the source. Results: 1 a
   descriptor was made; 0 the two sides share one code set (*cv is null: copy the bytes);
   -1 failure, with *cv pointing at a descriptor whose error slot says why (a fixed one with
   NU_ENOMEM, NU_ENOFILE or NU_EINVAL, or the allocated descriptor whose reading failed, which
   the caller unloads). nu_cv_load finds "<source number><target number>.cvo" (four
   hexadecimal digits each) in `directory` or along the data-file search; nu_cv_open and
   nu_iconv_open find "<source name>_<target name>.cvo"; nu_iconv_open1 (0 or -1) finds the
   file name given. */
NU_API int nu_cv_load(nu_cv_t *cv, const char *target_spec, const char *source_spec,
                      const char *registry, const char *directory);
NU_API int nu_cv_open(nu_cv_t *cv, const char *target_spec, const char *source_spec);
NU_API int nu_iconv_open(nu_cv_t *cv, const char *target_name, const char *source_name);
NU_API int nu_iconv_open1(nu_cv_t *cv, const char *file_name);
/* Frees a descriptor; the fixed failure descriptors are left alone. 0, or -1 for null. */
NU_API int nu_cv_unload(nu_cv_t cv);

/* Converts *in (*inlen bytes, or up to and including the terminating character when inlen is
   null) into *out (*room bytes; with a null out only counts). Advances *in past what was
   converted, lowers *inlen and *room, advances *out; sets *irreversible to 1 when a character
   had no exact equivalent and was substituted. 0, or -1 with NU_EILSEQ (invalid character),
   NU_EINVAL (character cut off by *inlen; resubmit it with more input) or NU_E2BIG (room);
   *in then points at the character that stopped the conversion. The state may be null (the
   text is then converted in one piece). */
NU_API int nu_cv_mconv(nu_cv_t cv, nu_cv_state *state, unsigned char **in, int *inlen,
                       unsigned char **out, int *room, int *irreversible);
NU_API int nu_miconv(nu_cv_t cv, unsigned char **in, int *inlen, unsigned char **out, int *room,
                     int *irreversible);
/* Counts without writing: *room is lowered by the bytes the conversion of `in` needs (inlen -1:
   up to and including the terminating character). 0 or -1 as nu_cv_mconv. */
NU_API int nu_mconvlen(nu_cv_t cv, nu_cv_state *state, const unsigned char *in, int inlen,
                       int *room, int *irreversible);
/* The largest number of target bytes per source byte. */
NU_API double nu_iconv_expansion(nu_cv_t cv);
/* An output size sufficient for `length` input bytes: the expansion rounded up, times length. */
NU_API int nu_cv_outbuflen(nu_cv_t cv, int length);

/* ---------------------------------------------------------------------------------------- */
/* Characters on streams                                                                     */
/* ---------------------------------------------------------------------------------------- */

/* Byte sources and sinks of the generic reader and writer: a byte (0 to 255) or -1. */
typedef int (*nu_getbyte_fn)(void *stream);
typedef int (*nu_putbyte_fn)(int byte, void *stream);

NU_API int nu_getmb(nu_locale_t handle, unsigned char *buf, nu_getbyte_fn getbyte, void *stream,
                    int *len);
NU_API int nu_full_fgetmb(nu_locale_t handle, unsigned char *buf, FILE *stream);
/* The character read, or (nu_wchar)-1 on failure. */
NU_API nu_wchar nu_full_fgetwc(nu_locale_t handle, FILE *stream);
NU_API unsigned char *nu_fgetmbs(nu_locale_t handle, unsigned char *buf, int size, FILE *stream);
NU_API nu_wchar *nu_fgetwcs(nu_locale_t handle, nu_wchar *ws, int size, FILE *stream);
NU_API int nu_putmb(nu_locale_t handle, const unsigned char *s, int n, nu_putbyte_fn putbyte,
                    void *stream, int *written);
NU_API int _tsn_nu_putmb(nu_locale_t handle, const unsigned char *s, int n,
                         nu_putbyte_fn putbyte, void *stream, int *written);
NU_API const unsigned char *nu_fputmb(nu_locale_t handle, const unsigned char *s, FILE *stream);
/* wc, or (nu_wchar)-1 on failure. */
NU_API nu_wchar nu_fputwc(nu_locale_t handle, nu_wchar wc, FILE *stream);
NU_API int nu_fputmbs(nu_locale_t handle, const unsigned char *s, FILE *stream);
NU_API int nu_fputwcs(nu_locale_t handle, const nu_wchar *ws, FILE *stream);
NU_API int nu_full_charoffset(nu_locale_t handle, const unsigned char *s, const unsigned char *p,
                              int *len);

/* ---------------------------------------------------------------------------------------- */
/* Validation caches: case-insensitive prefix lookups of a locale's strings                  */
/* ---------------------------------------------------------------------------------------- */

typedef struct nu_mb_cache_node {
    uint8_t key;                        /* a byte of a lower-cased character */
    uint32_t value;                     /* the caller's value of the string ending here */
    int32_t terminal;                   /* 1 when a cached string ends here */
    struct nu_mb_cache_node *across;    /* next position */
    struct nu_mb_cache_node *down;      /* next alternative at this position */
} nu_mb_cache_node;

typedef struct nu_wc_cache_node {
    uint32_t key;                       /* a lower-cased wide character */
    uint32_t value;
    int32_t terminal;
    struct nu_wc_cache_node *across;
    struct nu_wc_cache_node *down;
} nu_wc_cache_node;

NU_API int _nu_cache_mb_string(nu_locale_t handle, nu_mb_cache_node **root,
                               const unsigned char *s, uint32_t value);
NU_API int _nu_cache_wc_string(nu_locale_t handle, nu_wc_cache_node **root,
                               const unsigned char *s, uint32_t value);
NU_API int _nu_validate_mb_string(nu_locale_t handle, const nu_mb_cache_node *root,
                                  const unsigned char *s, int *len, uint32_t *value);
NU_API int _nu_validate_wc_string(nu_locale_t handle, const nu_wc_cache_node *root,
                                  const nu_wchar *ws, int *len, uint32_t *value);
NU_API void _nu_free_mb_cache(nu_locale_t handle, nu_mb_cache_node *root);
NU_API void _nu_free_wc_cache(nu_locale_t handle, nu_wc_cache_node *root);

/* ---------------------------------------------------------------------------------------- */
/* Numbers and money                                                                         */
/* ---------------------------------------------------------------------------------------- */

/* The flags of one conversion specification, as the scanner reports them. */
typedef enum nu_fmt_flags {
    NU_FMT_GROUP = 0x001,     /* "'": thousands grouping */
    NU_FMT_LEFT = 0x002,      /* "-" */
    NU_FMT_PLUS = 0x004,      /* "+" */
    NU_FMT_SPACE = 0x008,     /* " " */
    NU_FMT_ZERO = 0x010,      /* "0", unless NU_FMT_LEFT is already set */
    NU_FMT_UPPER = 0x080,     /* conversion X */
    NU_FMT_ALT = 0x100,       /* "#" */
    NU_FMT_STAR_ARG = 0x200,  /* set by the caller: a "*" width comes from the argument list */
    NU_FMT_STAR_SEEN = 0x400  /* a "*" width was seen while NU_FMT_STAR_ARG was clear */
} nu_fmt_flags;

/* printf-like formatting of numbers, characters and strings under the NUMERIC category.
   Conversions d i u o x X b q (integers, "l" and "h" modifiers), e E f g G (doubles),
   c s ("l" for wide arguments); flags ' - + space # 0; widths in display columns. Sizes
   count the terminator. The characters (bytes) written without the terminator, or -1. Flags
   and the negative sign are kept from one conversion to the next within a call. */
NU_API int nu_wcsfnum(nu_locale_t handle, nu_wchar *out, int size, const nu_wchar *format, ...);
NU_API int nu_mbsfnum(nu_locale_t handle, char *out, int size, const char *format, ...);
NU_API int nu_wcsfnum1(nu_locale_t handle, nu_wchar *out, int size, const nu_wchar *format,
                       va_list args);
/* Scans the flags, width and precision of a specification after its "%"; advances *format.
   A "*" width is taken from *args when NU_FMT_STAR_ARG is set and args is not null. The
   position of "%n$" goes to *position when that is not null. 0, or -1. */
NU_API int _nu_scan_format_modifiers(nu_locale_t handle, const nu_wchar **format, int *justify,
                                     nu_wchar *pad, int *width, int *precision,
                                     unsigned int *flags, unsigned int *position,
                                     va_list *args);
/* Writes a magnitude in a base (2 to 36) at *out, advancing *out and *count. 0, or -1. */
NU_API int _nu_format_decimal(nu_locale_t handle, uint32_t magnitude, int negative, int base,
                              int *count, int size, nu_wchar **out, int width, int precision,
                              unsigned int flags);
/* Encodes a wide string into out (size bytes, terminator included): the bytes, or -1. */
NU_API int _nu_get_mbstring(nu_locale_t handle, char *out, const nu_wchar *ws, int size);
/* Index of the "." or "," after optional blanks, a sign and digits; -1 when there is none. */
NU_API int nu_getDecimalCharIndex(const char *text);

/* Text to numbers with the locale's blanks, signs and (grouping 1) thousands separators.
   Failures give 2147483647 (all bits set for an empty string given to nu_mbstoul). */
NU_API long nu_wcstol(nu_locale_t handle, const nu_wchar *ws, nu_wchar **end, int base,
                      int grouping);
NU_API unsigned long nu_wcstoul(nu_locale_t handle, const nu_wchar *ws, nu_wchar **end, int base,
                                int grouping);
NU_API long nu_mbstol(nu_locale_t handle, const char *s, char **end, int base, int grouping);
NU_API unsigned long nu_mbstoul(nu_locale_t handle, const char *s, char **end, int base,
                                int grouping);
/* Numbers to text in a base (2 to 36); an impossible base or too small an output leaves the
   empty string. The multibyte forms return the bytes written. */
NU_API void nu_ltowcs(nu_locale_t handle, nu_wchar *out, int size, long value, int base,
                      int grouping);
NU_API void nu_ultowcs(nu_locale_t handle, nu_wchar *out, int size, unsigned long value,
                       int base, int grouping);
NU_API int nu_ltombs(nu_locale_t handle, char *out, int size, long value, int base,
                     int grouping);
NU_API int nu_ultombs(nu_locale_t handle, char *out, int size, unsigned long value, int base,
                      int grouping);
/* Length in characters of the thousands separator (which 0 numeric, 1 monetary) or decimal
   point standing at pos (direction 0) or ending there (direction 1); 0 when it does not. */
NU_API int nu_iswgrpsymb(nu_locale_t handle, const nu_wchar *pos, int direction, int which);
NU_API int nu_iswcdecml(nu_locale_t handle, const nu_wchar *pos, int direction, int which);
/* 0 no exponent mark at pos, 1 "e" or "E", 2 followed by a sign. */
NU_API int nu_iswcexponent(const nu_wchar *pos);
/* Text to double with the NUMERIC (monetary 0) or MONETARY (1) symbols. 2147483647.0 is the
   failure value of nu_mbstod. */
NU_API double nu_wcstod_num_mon(nu_locale_t handle, const nu_wchar *ws, nu_wchar **end,
                                int grouping, int monetary);
NU_API double nu_wcstod(nu_locale_t handle, const nu_wchar *ws, nu_wchar **end, int grouping);
NU_API double nu_mbstod(nu_locale_t handle, const char *s, char **end, int grouping);

/* Monetary formatting: conversions %i (international) and %n (national) of doubles, flags
   + ( = ^ ! -, width, "#" left precision, "." right precision. As nu_wcsfnum. */
NU_API int nu_wcsfmon(nu_locale_t handle, nu_wchar *out, int size, const nu_wchar *format, ...);
NU_API int nu_mbsfmon(nu_locale_t handle, char *out, int size, const char *format, ...);
NU_API int nu_wcsfmon1(nu_locale_t handle, nu_wchar *out, int size, const nu_wchar *format,
                       va_list args);
/* Monetary parsing: each %i or %n stores a double through the next pointer argument. The
   first input character not consumed, or null. */
NU_API nu_wchar *nu_wcspmon(nu_locale_t handle, const nu_wchar *input, const nu_wchar *format,
                            ...);
NU_API char *nu_mbspmon(nu_locale_t handle, const char *input, const char *format, ...);
NU_API nu_wchar *nu_wcspmon1(nu_locale_t handle, const nu_wchar *input, const nu_wchar *format,
                             va_list args);
/* Characters of the multibyte string s matched at pos (0 for a null or empty s), or -1. */
NU_API int _nu_compare_wc_to_mb(nu_locale_t handle, const nu_wchar *pos, const char *s);

/* ---------------------------------------------------------------------------------------- */
/* Character maps                                                                            */
/* ---------------------------------------------------------------------------------------- */

/* A character map: the symbolic names of a code set's characters, as POSIX charmaps give
   them ("U00C4"), read from a character map object file "xxxx.cmo" (the code-set number in
   four lower-case hexadecimal digits) made by nus-cmdef. Each character of the map has one
   symbol and each symbol names one character. The map is data only: it is shared by any
   number of calls and threads once loaded, and freed by nu_cm_unload. */
typedef struct nu_cm_rec *nu_cm_t;
/* The longest symbol, without its angle brackets. */
#define NU_CM_SYMBOL_MAX 64

/* Loads the map of a code set from `directory` (with the path mark) when it is given and not
   empty, else along the data-file search (NU_PATH, or nus/cm3 under TESSARONDIR). 0 and *cm,
   or -1 with the error in the handle: NU_EBADARG (null cm, an unknown code set), NU_ENOFILE,
   NU_EVERSION (a file of another format version), NU_EBADFILE (malformed: a line out of order,
   a character twice, a symbol twice, a count that does not match), NU_ENOMEM. */
NU_API int nu_cm_load(nu_locale_t handle, nu_cm_t *cm, unsigned int codeset,
                      const char *directory);
NU_API void nu_cm_unload(nu_cm_t cm);
/* The number of characters of the map, with its shortest and longest character in bytes
   (either pointer may be null); -1 for a null map. */
NU_API int nu_cm_info(nu_cm_t cm, int *min_length, int *max_length);
/* Writes the multibyte string mbs (length bytes; -1: up to its terminator, as many zero bytes
   as the map's shortest character) as the symbols of its characters, "<U00C4><U0042>", into
   out (size bytes, the terminating zero included). The bytes written without the zero, or -1:
   NU_ENOSYM at a byte sequence the map has no character (so no symbol) for, NU_E2BIG when the
   output is full, NU_EBADARG, NU_EBADVAL (size below 1, length below -1). On failure out
   holds the symbols of the characters before the fault, terminated. */
NU_API int nu_mbstosyms(nu_locale_t handle, nu_cm_t cm, char *out, int size, const char *mbs,
                        int length);
/* Reads symbols ("<U00C4><U0042>", nothing between them) back into the characters' bytes,
   ended by the code set's terminator, into out (size bytes, the terminator included). The
   bytes written without the terminator, or -1: NU_ENOSYM for a symbol that names no character,
   NU_EINVAL for text that is not a symbol, NU_E2BIG, NU_EBADARG, NU_EBADVAL (size below the
   terminator). On failure out holds the characters before the fault and as much of the
   terminator as fits. */
NU_API int nu_symstombs(nu_locale_t handle, nu_cm_t cm, char *out, int size, const char *syms);

/* ---------------------------------------------------------------------------------------- */
/* Forms of locale specifications                                                            */
/* ---------------------------------------------------------------------------------------- */

/* The functions below read a locale name exactly as nu_lc_spec2lc_fname does: a plain one
   "ll_tt.codeset[@mod]" (code set by registry name in any case, or by decimal number) or a
   per-category list "NU_CTYPE = name ; NU_TIME = name" (each keyword once, all items of one
   code-set number, a trailing " ; " allowed). The handle may be null; with one, a failure
   stores NU_EINVAL, or the registry lookup's own code where it says so. Outputs of the list
   forms need NU_LC_SPEC_LIST_SIZE bytes. */
#define NU_LC_SPEC_LIST_SIZE 300

/* 1 when `spec` is a well-formed locale name or list whose code sets the registry knows, else 0. */
NU_API int nu_is_lc_spec(void *handle, const char *spec, const char *registry);
/* The short form: every code set written as its decimal number, the rest as given
   ("de_de.8859-1@euro" gives "de_de.819@euro"); a list keeps its items in the order written,
   joined by " ; " without a trailing one. 0, or -1. */
NU_API int nu_lc_spec2lc_short(void *handle, const char *spec, char *out, const char *registry);
/* The long form: every code set written as its registry name (nu_cs_num2cs_name), the rest
   as given ("de_de.819@euro" gives "de_de.8859-1@euro"). Takes any form, so short and long
   convert both ways. 0, or -1 (also when a number has no registry name). */
NU_API int nu_lc_short2lc_long(void *handle, const char *spec, char *out, const char *registry);
/* The normal form, the same for every way of writing one locale: language lower case,
   territory upper case, code set as its number, modifier as given ("DE_de.Latin-1@euro"
   gives "de_DE.819@euro", the form of nu_lc_fname2lc_spec and nu_lc_pieces2lc_spec). A list
   is written in category order (CTYPE, COLLATE, NUMERIC, MONETARY, TIME, MESSAGES); a list
   that names all six categories with one locale is that locale's plain form. 0, or -1. */
NU_API int nu_lc_spec2lc_norm(void *handle, const char *spec, char *out, const char *registry);
/* The six per-category locale names of a locale name or per-category list, in normal form,
   indexed by category number less 2 (NU_CTYPE first, NU_MESSAGES last): a plain name fills
   all six, a list the categories it names, the others the empty string. 0, or -1. */
NU_API int nu_lc_spec2category(void *handle, const char *spec, char (*out)[NU_LC_SPEC_SIZE],
                               const char *registry);
/* The locale name, in normal form, of a locale object file name: "de_de/0333euro.lco" (after
   any directory, its "/" or NU_PATH_MARK) gives "de_DE.819@euro"; a per-category file name
   as nu_lc_spec2lc_fname writes it gives the normal list. The code set must be one the
   registry accepts. 0, or -1. */
NU_API int nu_lc_fname2lc_spec(void *handle, const char *fname, char *out, const char *registry);

/* ---------------------------------------------------------------------------------------- */
/* Formatted number parsing                                                                  */
/* ---------------------------------------------------------------------------------------- */

/* Reads numbers by a format, the inverse of nu_wcsfnum / nu_mbsfnum, storing each value
   through the next pointer argument as scanf does.
   - White space in the format matches any run of the locale's blanks in the input, none
     included; "%%" and every other character must stand in the input as they are
     (NU_ENOMATCH otherwise).
   - A conversion skips the blanks before its field, then reads: a sign (the locale's negative
     or positive sign string, or an ASCII "-" or "+"); for x and X an optional "0x" or "0X"
     (after any zeros that pad the field); the digits of the conversion's base (d i u 10,
     o 8, x X 16, b 2, q 4); for e E f g G a decimal number with the locale's decimal point
     and an optional exponent ("e" or "E", a sign string or ASCII sign, digits), or "inf",
     "infinity", "nan" in any case.
   - With the "'" flag (integers and f) the integer digits may be grouped by the locale's
     thousands separator; the longest stretch whose groups are right, checked group by group
     from the units as nu_mbstol does, is taken, and NU_EINVAL is stored when no stretch is.
     Without the flag separators end the number.
   - A width is the field's minimum width in display columns as the formatter writes it:
     blanks padding a left-justified field up to the width are consumed too; a longer number
     is read whole. Precisions and the flags - + space # 0 are accepted and change nothing.
   - Targets: int * (unsigned int * for u); with "h" short * (unsigned short *), with "l" or
     "L" long * (unsigned long *); the floating conversions always store a double *, with or
     without "l". Every integer conversion but u is signed (the formatter writes a negative
     argument to x as "-ff"). A value outside its target's range stores NU_ERANGE, as does a
     floating value beyond the double range; u with a negative sign is out of range.
   - A "*" in place of the width reads the field and stores nothing (no argument is taken).
     A null target pointer is skipped. c, s and other conversions are NU_EFORMAT; a format that
     ends inside a specification NU_EBADFMT.
   Returns the first input character not consumed, or null with the error stored: NU_EBADARG
   (null input or format), NU_ENOMATCH (literal text), NU_EFORMAT (no number where the format
   asks for one, the input ends first, unknown conversion), NU_ERANGE, NU_EINVAL (grouping, or
   more than 256 integer digits), NU_EBADFMT, NU_EMODIFIER. *converted (when not null) gets the
   number of values stored, also when the call fails partway; it counts neither "*" fields nor
   null targets. The multibyte form returns a pointer into its input. */
NU_API nu_wchar *nu_wcspnum(nu_locale_t handle, const nu_wchar *input, int *converted,
                            const nu_wchar *format, ...);
NU_API char *nu_mbspnum(nu_locale_t handle, const char *input, int *converted,
                        const char *format, ...);
NU_API nu_wchar *nu_wcspnum1(nu_locale_t handle, const nu_wchar *input, int *converted,
                             const nu_wchar *format, va_list args);

/* ---------------------------------------------------------------------------------------- */
/* Companion Unicode library                                                                 */
/* ---------------------------------------------------------------------------------------- */

/* With NU_USENUU set (to anything but "0"), nu_init_nuu loads the companion library that the
   data file "dllregistry" (found by the data-file search in nus/cm3) names for this build's
   word size, through the tsrn_ wrappers of the dynamic loader. The data file "locmap" maps
   locale file names to the companion's locales ("de_de/e01c.lco de_DE"). A CTYPE or COLLATE
   category loaded from a Unicode (UTF-8) locale that locmap lists is then served by the
   companion: characters are decoded to UTF-32 code points, widths, classes and case come
   from Unicode's properties, collation and sort keys from the companion's collator
   (collation kind 3), and nu_cv_open / nu_cv_load hand every pair of code sets that the
   companion converts to it. */

/* An entry point of the companion, as resolved (null until it is loaded). */
typedef void (*nu_nuu_entry)(void);
/* The loaded "locmap" (null until the companion is loaded). */
struct nu_nuu_map;

NU_API extern int unicode_collate;        /* 1: descriptors may convert through the companion */
NU_API extern int nuu_capable;            /* 1: the companion is loaded */
NU_API extern struct nu_nuu_map *pMap;
NU_API extern nu_nuu_entry fn_nuu_init;
NU_API extern nu_nuu_entry fn_nuu_open;
NU_API extern nu_nuu_entry fn_nuu_close;
NU_API extern nu_nuu_entry fn_nuu_mblen;
NU_API extern nu_nuu_entry fn_nuu_mbtouc32;
NU_API extern nu_nuu_entry fn_nuu_uc32tomb;
NU_API extern nu_nuu_entry fn_nuu_mbstoucs32;
NU_API extern nu_nuu_entry fn_nuu_ucs32tombs;
NU_API extern nu_nuu_entry fn_nuu_mb_loc_min;
NU_API extern nu_nuu_entry fn_nuu_mb_loc_max;
NU_API extern nu_nuu_entry fn_nuu_mbsnext;
NU_API extern nu_nuu_entry fn_nuu_mbsprev;
NU_API extern nu_nuu_entry fn_nuu_putmbsi;
NU_API extern nu_nuu_entry fn_nuu_mbschr;
NU_API extern nu_nuu_entry fn_nuu_mbsntsbytes;
NU_API extern nu_nuu_entry fn_nuu_getmb;
NU_API extern nu_nuu_entry fn_nuu_fgetuc32;
NU_API extern nu_nuu_entry fn_nuu_uc32width;
NU_API extern nu_nuu_entry fn_nuu_mbwidth;
NU_API extern nu_nuu_entry fn_nuu_ucs32width;
NU_API extern nu_nuu_entry fn_nuu_mbswidth;
NU_API extern nu_nuu_entry fn_nuu_ucs32pwidth;
NU_API extern nu_nuu_entry fn_nuu_mbspwidth;
NU_API extern nu_nuu_entry fn_nuu_iswctype;
NU_API extern nu_nuu_entry fn_nuu_towupper;
NU_API extern nu_nuu_entry fn_nuu_towlower;
NU_API extern nu_nuu_entry fn_nuu_mbscoll;
NU_API extern nu_nuu_entry fn_nuu_mbsxfrm;
NU_API extern nu_nuu_entry fn_nuu_ucs32coll;
NU_API extern nu_nuu_entry fn_nuu_ucs32xfrm;
NU_API extern nu_nuu_entry fn_nuu_mbsCollBound;
NU_API extern nu_nuu_entry fn_nuu_mbsSortKeyCollBound;
NU_API extern nu_nuu_entry fn_nuu_useIcuCvtCall;
NU_API extern nu_nuu_entry fn_nuu_cv_open;
NU_API extern nu_nuu_entry fn_nuu_cv_conv;
NU_API extern nu_nuu_entry fn_nuu_cv_close;
NU_API extern nu_nuu_entry fn_nuu_iconv_expansion;

/* The dynamic loader, for the bridge and for programs that load the companion themselves. */
NU_API void *tsrn_dlopen(const char *file, int mode);
NU_API void *tsrn_dlsym(void *library, const char *name);
NU_API int tsrn_dlclose(void *library);
NU_API char *tsrn_dlerror(void);

/* The collation functions of kind 3 (the companion collates): as nu_full_mbscoll,
   _tsn_nu_full_mbscoll and nu_full_mbsxfrm. */
NU_API int _nuu_mbscoll(nu_locale_t handle, const unsigned char *s1, const unsigned char *s2);
NU_API int _nuu_mbfscoll(nu_locale_t handle, const unsigned char *s1, int len1,
                         const unsigned char *s2, int len2);
NU_API int _nuu_mbsxfrm(nu_locale_t handle, unsigned char *out, const unsigned char *s, int n);

/* The companion's locale serving a category (2 CTYPE or 3 COLLATE) of the handle, or null when
   the category is table-driven. */
NU_API const char *nu_nuu_locale(nu_locale_t handle, int category);
/* Closes the companion and forgets locmap; for a process that has released every handle and
   descriptor the companion serves. The next nu_init_nuu loads it again. */
NU_API void nu_free_nuu(void);

#ifdef __cplusplus
}
#endif

#endif /* NUS_H */
