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

struct TimeFields {
    int32_t calendar;          // number of the locale's calendar
    void *era_cache;
    int32_t era_count;
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
};
