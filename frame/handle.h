// The locale handle record and the category records it holds by value.
//
// The record is internal: callers see only an opaque nu_locale_t and reach the error slot
// through _nu_ext_errno. Field order follows the handle's documented layout; the category
// records grow as their readers arrive.
#pragma once

#include "nus.h"

#include <cstdint>

struct nu_locale_rec;

namespace nus {

using CollateFn = int (*)(nu_locale_t, const unsigned char *, const unsigned char *);
using CountedCollateFn = int (*)(nu_locale_t, const unsigned char *, int, const unsigned char *,
                                 int);
using TransformFn = int (*)(nu_locale_t, unsigned char *, const unsigned char *, int);
using ToWideFn = int (*)(nu_locale_t, nu_wchar *, const unsigned char *, int);
using CountedToWideFn = int (*)(nu_locale_t, nu_wchar *, const unsigned char *, int, int);

inline constexpr int kCategories = NU_CATEGORY_COUNT;
inline constexpr int kCodesetNameSize = 21;
inline constexpr int kLocaleNameSize = 32;

// Index of a category (2..7) in the per-category arrays.
constexpr int cat_index(int category) { return category - NU_CTYPE; }

struct ClassName {
    int32_t number;
    char *name; // owned
};

struct CasePair {
    nu_wchar upper;
    nu_wchar lower;
};

struct CtypeFields {
    multi_t *class_table;      // 16-bit class masks
    int32_t class_name_count;  // locale-defined classes
    ClassName *class_names;    // null when the count is 0
    multi_t *case_table;       // 16-bit indexes into case_pairs
    CasePair *case_pairs;      // count + 1 entries, entry 0 unused
    int32_t case_pair_count;
};

// A collating element: several characters that collate as one unit with their own row.
struct CollElement {
    uint32_t count;
    nu_wchar *chars;
    uint16_t row;
};

// An expansion: characters weighed in place of a weight that references it.
struct CollExpansion {
    uint32_t count;
    nu_wchar *chars;
};

// A character that collates like its class's representative at every level.
struct EquivPair {
    char *member;
    char *representative;
};

inline constexpr int kMaxLevels = 8;

struct CollateFields {
    int32_t method;            // 0 none, 1 table-driven, 2 Thai, 3 companion library
    multi_t *table;            // character -> row
    int32_t weights_only;
    int32_t highest_row;
    int32_t level_count;
    int32_t largest_weight;
    int32_t longest_sequence;
    int32_t level_words[kMaxLevels];        // level directions
    uint16_t *weights[kMaxLevels];          // highest_row + 1 per level
    CollElement *elements;                  // element_count of the handle
    CollExpansion *expansions;              // expansion_count of the handle
    CollExpansion **exp_candidates[kMaxLevels];   // 256 per level: expansion of byte b
    int32_t *elem_candidates;               // 256 flags, null without elements
    int32_t *elements_by_first;             // element indexes by first character, then index
    uint32_t element_starts[32];            // bit (c mod 1024): some element may begin with c
    char **ignorables;                      // null-terminated, or null
    EquivPair *equivalents;                 // ended by a null member, or null
    // Single-byte code sets: the weight of each byte's row, 256 per level (0 for a row out
    // of range), so that the single-byte comparisons need no table walk.
    uint16_t *byte_weights;
    // Wide characters below 256: their weight per level (256 per level) when it is a plain
    // weight and no element begins with them, else 0, for the comparisons' quick paths.
    uint16_t *plain_weights;
    // Single-byte code sets whose first level is walked forward: each byte's first-level
    // weight when the walk takes it as one plain unit (no expansion, no element may begin
    // with it, neither ignorable nor a tie-break weight), else 0; null when not applicable.
    uint16_t *byte_quick;
    // The sort-key digits of every weight up to the largest, as the key writes them.
    unsigned char *weight_keys;
    // Per level, per row: the key digits of the row's weight in the order they are written
    // (one or two bytes), when the weight is plain; 0 otherwise, and null where weights take
    // more than two digits. For the sort keys' runs of plain characters.
    uint16_t *row_keys;
    // The rows of the wide characters below 256 (-1: none), saving the table walk.
    int32_t *low_rows;
    // Derived on first use by the bound functions and owned by this record (never shared
    // with a copy): see collate/bounds.cpp.
    void *bound_cache;
    // The sort-key bytes of the characters below 256, built on the first key and owned by
    // this record like bound_cache (released with it): see collate/multi_level.cpp.
    void *key_cache;
};

// A category string and its wide twin, both owned by the handle.
struct CatString {
    char *mb;
    nu_wchar *wide;
};

struct Grouping {
    int32_t count;
    int32_t sizes[15];
};

inline constexpr int32_t kNotAvailable = 2147483647;

// NUMERIC, MONETARY and MESSAGES, in their documented order.
struct LconvFields {
    CatString decimal_point;
    CatString thousands_sep;
    Grouping grouping;
    CatString int_curr_symbol;
    CatString currency_symbol;
    CatString mon_decimal_point;
    CatString mon_thousands_sep;
    Grouping mon_grouping;
    CatString mon_positive_sign;
    CatString mon_negative_sign;
    CatString positive_sign;
    CatString negative_sign;
    int32_t mon_values[8];     // kNotAvailable when absent
    CatString messages[4];
};

// One segment of a locale's era table (an "era" line of a locale source): the era counts its
// years from `offset` at `start`, upwards (direction +1) or downwards (-1), until `end`.
// Dates are Gregorian: full year, astronomical (0 is 1 BC, the sources' -1), month 1-12,
// day 1-31; an open end is year kEraOpenBefore ("-*") or kEraOpenAfter ("+*") with month and
// day 0.
struct EraSegment {
    int32_t direction;
    int32_t offset;
    int32_t start_year, start_month, start_day;
    int32_t end_year, end_month, end_day;
    CatString name;
    CatString format;          // how a year of the era is written (%EY); may be empty
};
inline constexpr int32_t kEraOpenBefore = INT32_MIN;
inline constexpr int32_t kEraOpenAfter = INT32_MAX;

inline constexpr int kMonthSlots = 20;
inline constexpr int kAltDigitSlots = 100;

// The validation caches of the time parser, one trie pair per kind of name. Values:
// months: list << 8 | index (list 0 full names, 1 abbreviated, 2 the second full list,
// 3 the second abbreviated list); days: list << 8 | day (0 full, 1 abbreviated; day
// 0 = Sunday); eras: segment index; am/pm: 0 am, 1 pm; alternative digits: their value.
enum TimeCache { kCacheMonths, kCacheDays, kCacheEras, kCacheAmPm, kCacheDigits, kTimeCaches };

// TIME, in the order of nu_nl_langinfo's items (0, 1-14, 15-34, 35-54, 61-70) and then
// what no item shows. Strings are multibyte with wide twins made once CTYPE is loaded; an
// absent string is empty, never null, once the section is read (so are the month slots beyond
// the counts). The null locale holds the POSIX locale's values as static texts (see
// time/category.h) and no caches: its cache roots are null.
struct TimeFields {
    CatString date_time_format;            // item 0: the date and time format (%c)
    CatString abday[7];                    // items 1-7: abbreviated day names, Sunday first
    CatString day[7];                      // items 8-14: full day names
    int32_t month_count;                   // 12, or 13/14 for a calendar with a leap month
    CatString mon[kMonthSlots];            // items 15-34: full month names, by name index
    int32_t alt_month_count;               // 0 when the locale has no second list
    CatString alt_mon[kMonthSlots];        // items 35-54: the second (nominative) month list
    // items 61-70, in this order
    CatString date_format;                 // %x
    CatString time_format;                 // %X
    CatString time_format_ampm;            // %r
    CatString am;
    CatString pm;
    CatString date_cmd_format;             // the date(1) format
    CatString era_date_time_format;        // %Ec
    CatString era_date_format;             // %Ex
    CatString era_time_format;             // %EX
    CatString era_year;                    // era_year of the source, usually empty
    // not shown by an item
    CatString abmon[kMonthSlots];          // abbreviated month names
    CatString ab_alt_mon[kMonthSlots];     // abbreviated names of the second list
    EraSegment *eras;                      // era_count segments, in the source's order
    int32_t era_count;
    CatString *alt_digits;                 // alt_digit_count entries, 0 upwards
    int32_t alt_digit_count;
    int32_t calendar;                      // number of the locale's calendar (1 Gregorian)
    int32_t week_days;                     // week: days in a week (7)
    int32_t week_start;                    // week: a date (yyyymmdd) of the week's first day
    int32_t week_min_days;                 // week: days the first week of a year must have
    int32_t first_weekday;                 // 1 = the day of week_start, as in the source
    int32_t first_workday;
    nu_mb_cache_node *mb_cache[kTimeCaches];
    nu_wc_cache_node *wc_cache[kTimeCaches];
    // Per handle, never shared by a copy: whatever the formatter and parser derive from the
    // era table (era_cache_count entries), made when first needed through the allocator.
    void *era_cache;
    int32_t era_cache_count;
};

// The caller-visible conventions: private copies of the strings with wide twins.
struct ConvRecord {
    CatString decimal_point;
    CatString thousands_sep;
    CatString grouping;
    CatString int_curr_symbol;
    CatString currency_symbol;
    CatString mon_decimal_point;
    CatString mon_thousands_sep;
    CatString mon_grouping;
    CatString mon_positive_sign;
    CatString mon_negative_sign;
    CatString positive_sign;
    CatString negative_sign;
    char mon_values[8];
};

} // namespace nus

struct nu_locale_rec {
    int32_t error;                        // must stay first: the default error lookup
    nus::CollateFn collate;
    nus::CountedCollateFn counted_collate;
    nus::TransformFn transform;
    nus::ToWideFn to_wide;
    nus::CountedToWideFn counted_to_wide;
    int32_t reserved1;
    double case_expansion;                // growth of a string under case conversion
    double expansion2;
    unsigned char *sb_upper;              // single-byte code sets only: 256 entries
    unsigned char *sb_lower;
    uint16_t *sb_class;
    int32_t reserved2;
    int32_t single_byte;                  // longest CTYPE character is one byte
    int32_t ascii_direct;                 // bytes 0 to 127 are one-byte characters of CTYPE
    int32_t has_collation;                // COLLATE holds real data
    int32_t element_count;                // multi-character collating elements
    int32_t expansion_count;              // collation expansions
    nus::CtypeFields ctype;
    nus::CollateFields coll;
    nus::LconvFields lc;
    nus::TimeFields time;
    nus::ConvRecord nuconv;
    char codeset[nus::kCategories][nus::kCodesetNameSize];
    nu_wchar wcodeset[nus::kCategories][nus::kCodesetNameSize];
    char locname[nus::kCategories][nus::kLocaleNameSize];
    nu_wchar wlocname[nus::kCategories][nus::kLocaleNameSize];
    void *companion[nus::kCategories];
    int32_t companion_flag[nus::kCategories];
    // Per category: its data was copied from another handle and belongs to that one.
    int32_t borrowed[nus::kCategories];
    // Per category: the process-wide entry whose data it uses with other handles that loaded
    // the same file, or null (locale/shared.cpp).
    void *shared[nus::kCategories];
};
