// Internal interface of the locale objects: category records' life cycle.
#pragma once

#include "frame/frame.h"

namespace nus {

inline constexpr size_t kResumeNameSize = 512;

// Empty states and releases of the NUMERIC, MONETARY and MESSAGES fields and of the
// caller-visible conventions record.
void init_numeric(nu_locale_rec *h);
void init_monetary(nu_locale_rec *h);
void init_messages(nu_locale_rec *h);
void free_numeric(nu_locale_rec *h);
void free_monetary(nu_locale_rec *h);
void free_messages(nu_locale_rec *h);
void init_nuconv_numeric(nu_locale_rec *h);
void init_nuconv_monetary(nu_locale_rec *h);
void free_nuconv_numeric(nu_locale_rec *h);
void free_nuconv_monetary(nu_locale_rec *h);

// Releases a category string and its wide twin, leaving both null.
void free_string(CatString &s);

// The wide twin of a category string (its old twin freed); false when the string does not
// decode or memory runs out (3 stored).
bool widen_string(nu_locale_rec *h, CatString &s);
// Whether category strings can be widened: 1 yes; 0 CTYPE empty (NU_ENOTLOADED stored);
// -1 no class table, or the function pointers could not be set.
int can_widen(nu_locale_rec *h);

// Reading the NUMERIC, MONETARY and MESSAGES sections' pieces.
char *str_readallc(FILE *stream, int *error);
int read_group(FILE *stream, Grouping &group, int *error);
// After a section is read: wide twins and the conventions record. 1 on success; 0 with
// NU_ENOTLOADED when CTYPE is empty; -1 otherwise.
int init_numeric_info(nu_locale_rec *h);
int init_monetary_info(nu_locale_rec *h);
int init_message_info(nu_locale_rec *h);
// Shares the category's fields with another handle, and rebuilds the conventions record.
// One category's part of the NUMERIC, MONETARY and MESSAGES record (the fields a load of
// that category sets), copied from one record to another.
void copy_lconv(int category, LconvFields &to, const LconvFields &from);
void copy_numeric(nu_locale_rec *dst, const nu_locale_rec *src);
void copy_monetary(nu_locale_rec *dst, const nu_locale_rec *src);
void copy_messages(nu_locale_rec *dst, const nu_locale_rec *src);
int load_nuconv_numeric(nu_locale_rec *h);
int load_nuconv_monetary(nu_locale_rec *h);

// Table descriptor reader: four hexadecimal digits into a 16-bit value, no white space
// skipped.
int ub2_reader(FILE *stream, void *dest, unsigned int size);
// White space, then up to eight hexadecimal digits; false when there is none.
bool read_nu_wchar(FILE *stream, nu_wchar *wc);

// The CTYPE section; 0 on success, the handle's error set otherwise.
int read_ctype(FILE *stream, nu_locale_rec *h);
// The single-byte upper, lower and class tables from the CTYPE tables, and their release.
void free_single_byte_tables(nu_locale_rec *h);
int build_single_byte_tables(nu_locale_rec *h);

// The locale object file: header, a whole file, one category's section.
int read_file_header(FILE *stream, char *codeset_out, int *error);
int read_locale_file(FILE *stream, nu_locale_rec *h);
// Where the sections of a locale file read during one load end, so that loading its later
// categories starts after them instead of passing over long sections (a UTF-8 CTYPE table)
// again. A resume position is checked on use: the marker must follow it.
struct SectionResume {
    char name[kResumeNameSize];   // the name the file was opened by, "" when none yet
    long after[kCategories];      // offset after each category's section, 0 when unknown
};
int read_one_category(nu_locale_rec *h, int category, FILE *stream,
                      SectionResume *resume = nullptr, const char *name = nullptr);

// Sharing of loaded categories between handles that load the same unchanged file
// (locale/shared.cpp).
struct FileKey {
    uint64_t device;
    uint64_t inode;
    int64_t size;
    int64_t mtime_sec;
    int64_t mtime_nsec;
};
// The identity of an open locale file; false when its categories are not to be shared (the
// file functions are the embedding program's own, or the stream is no regular file).
bool file_key(FILE *stream, FileKey *key);
// Installs the category from an entry of the same file: 1 done, 0 none there, -1 failed with
// the handle's error set (the code set disagrees with CTYPE's, or memory ran out).
int take_shared(nu_locale_rec *h, int category, const FileKey &key);
// Moves a category just read into a new entry that the handle references.
void offer_shared(nu_locale_rec *h, int category, const FileKey &key);
// Drops the handle's reference to a shared category (its fields are left as they are).
void release_shared(nu_locale_rec *h, int category);
void release_entry(void *entry);
// Makes the categories that no other handle shares the handle's own again, for code that
// changes a loaded category's fields in place (tests do).
void own_unshared(nu_locale_rec *h);
// Entries alive in the process, for tests.
long shared_entries();
// The category's code set has CTYPE's number (scratch error slot for the lookups).
bool same_codeset_as_ctype(nu_locale_rec *h, int category);

// Derived state after every load or copy.
int update_locale(nu_locale_rec *h);
int set_flags(nu_locale_rec *h);
int check_codesets(nu_locale_rec *h);
int set_function_pointers(nu_locale_rec *h);
void init_locale_info(nu_locale_rec *h);

} // namespace nus
