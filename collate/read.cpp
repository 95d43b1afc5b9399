// The COLLATE category: reading its section into the handle, the structures derived from it,
// and their release.
//
// The section's counts and fields are checked where a wrong value would make a later
// comparison read out of bounds or loop (levels, rows, element and expansion sizes,
// expansion references); a section that fails a check is a malformed file (11).
#include "chars/chars.h"
#include "collate/collate.h"
#include "locale/locale.h"

#include <algorithm>

namespace {

using nus::CollateFields;
using nus::CollElement;
using nus::CollExpansion;
using nus::EquivPair;

constexpr long kMaxRows = 0x10000;          // rows are 16-bit
constexpr long kMaxElements = 0x10000;
constexpr long kMaxExpansions = 0x4000;     // referenced by 14 bits
constexpr int kGrowth = 100;                // work lists grow by this many entries

int fail(nu_locale_rec *h, int code) {
    nus::set_error(h, code);
    return -1;
}

// ---- growable work lists -------------------------------------------------------------------

// A list of T that grows by kGrowth entries at a time: a new block, a copy, the old freed.
// Value-initialise it ({}) before use.
template <typename T>
struct List {
    T *items;
    int count;
    int capacity;

    bool push(const T &value) {
        if (count == capacity) {
            T *grown = nus::alloc_array<T>(static_cast<size_t>(capacity) + kGrowth);
            if (grown == nullptr) return false;
            if (count > 0) std::memcpy(static_cast<void *>(grown), items, sizeof(T) * count);
            _nu_free_ptr(items);
            items = grown;
            capacity += kGrowth;
        }
        items[count++] = value;
        return true;
    }
    void release() {
        _nu_free_ptr(items);
        *this = {};
    }
};

// Rows whose weights are identical at every level, with the characters found for them.
struct RowClass {
    List<int> rows;
    List<char *> chars;
};

// A registered expansion: an expansion index and the row whose weights all reference it.
struct ExpRow {
    int expansion;
    int row;
};

// What the derivation of the ignorable list and the equivalence pairs works on.
struct Work {
    nu_locale_rec *h = nullptr;
    bool *ignorable_row = nullptr;   // per row
    int *class_of_row = nullptr;     // per row: index in classes, or -1
    List<RowClass> classes{};
    List<int> ignorable_rows{};
    List<ExpRow> exps{};
    List<char *> ignorables{};
    bool failed = false;

    ~Work() {
        _nu_free_ptr(ignorable_row);
        _nu_free_ptr(class_of_row);
        for (int i = 0; i < classes.count; ++i) {
            for (int k = 0; k < classes.items[i].chars.count; ++k)
                _nu_free_ptr(classes.items[i].chars.items[k]);
            classes.items[i].chars.release();
            classes.items[i].rows.release();
        }
        classes.release();
        ignorable_rows.release();
        exps.release();
        for (int k = 0; k < ignorables.count; ++k) _nu_free_ptr(ignorables.items[k]);
        ignorables.release();
    }
};

// Adds r to the class whose first row is e, or makes a new class of e and r. With e = -1, r
// becomes a class of its own unless it is in one already.
bool register_class(Work &w, int r, int e) {
    if (e < 0) {
        if (w.class_of_row[r] >= 0) return true;
        RowClass c{};
        if (!c.rows.push(r) || !w.classes.push(c)) {
            c.rows.release();
            return false;
        }
        w.class_of_row[r] = w.classes.count - 1;
        return true;
    }
    if (w.class_of_row[e] >= 0) {
        const int index = w.class_of_row[e];
        if (!w.classes.items[index].rows.push(r)) return false;
        w.class_of_row[r] = index;
        return true;
    }
    RowClass c{};
    if (!c.rows.push(e) || !c.rows.push(r) || !w.classes.push(c)) {
        c.rows.release();
        return false;
    }
    w.class_of_row[e] = w.class_of_row[r] = w.classes.count - 1;
    return true;
}

bool register_exp(Work &w, int expansion, int row) {
    for (int i = 0; i < w.exps.count; ++i)
        if (w.exps.items[i].expansion == expansion) return true;
    return w.exps.push({expansion, row});
}

// Copies n bytes into a block with four zero bytes after them; files it under the ignorable
// list when the row is ignorable and a further copy under the row's class.
void save(Work &w, int row, const unsigned char *bytes, int n) {
    if (w.failed || row < 0 || row > w.h->coll.highest_row) return;
    auto copy = [&]() -> char * {
        char *block = nus::alloc_array<char>(static_cast<size_t>(n) + 4);
        if (block == nullptr) return nullptr;
        std::memcpy(block, bytes, static_cast<size_t>(n));
        std::memset(block + n, 0, 4);
        return block;
    };
    if (w.ignorable_row[row]) {
        char *block = copy();
        if (block == nullptr || !w.ignorables.push(block)) {
            _nu_free_ptr(block);
            w.failed = true;
            return;
        }
    }
    if (w.class_of_row[row] >= 0) {
        char *block = copy();
        if (block == nullptr || !w.classes.items[w.class_of_row[row]].chars.push(block)) {
            _nu_free_ptr(block);
            w.failed = true;
        }
    }
}

// Encodes characters with the collation table's byte structure and saves them under a row.
void save_chars(Work &w, int row, const nu_wchar *chars, uint32_t count) {
    unsigned char buffer[15 * 4];
    int n = 0;
    for (uint32_t i = 0; i < count; ++i) {
        const int length = _nu_sl_wctomb(w.h, buffer + n, chars[i]);
        if (length < 0) return;   // a character the table lacks is not listed
        n += length;
    }
    save(w, row, buffer, n);
}

// The row a node holds for byte b of a complete character.
uint16_t node_row(const multi_t *table, const multi_arr_t *node, unsigned char b) {
    const unsigned char *p = node->data_arr != nullptr
                                 ? node->data_arr + (size_t{b} << table->shift)
                                 : table->default_desc;
    uint16_t row = 0;
    if (p != nullptr) std::memcpy(&row, p, sizeof row);
    return row;
}

// Visits every character of the collation table's code set, depth first, and saves it
// under its row.
void enumerate_codepoints(Work &w, const multi_t *table, const multi_arr_t *node,
                          unsigned char *bytes, int depth) {
    if (node == nullptr || node->flag_arr == nullptr || depth >= MULTI_MAX_DEPTH) return;
    for (int b = 0; b < 256 && !w.failed; ++b) {
        bytes[depth] = static_cast<unsigned char>(b);
        const unsigned char flag = node->flag_arr[b];
        if (flag == MULTI_LAST) {
            save(w, node_row(table, node, static_cast<unsigned char>(b)), bytes, depth + 1);
        } else if (flag == MULTI_MORE && node->next_arr != nullptr &&
                   node->offset_arr != nullptr) {
            enumerate_codepoints(w, table, node->next_arr[node->offset_arr[b]], bytes, depth + 1);
        }
    }
}

// Hash of a row's weights over all levels.
uint32_t row_hash(const uint16_t *const *weights, int levels, int row) {
    uint32_t x = 2166136261u;
    for (int l = 0; l < levels; ++l) x = (x ^ weights[l][row]) * 16777619u;
    return x;
}

bool same_weights(const uint16_t *const *weights, int levels, int a, int b) {
    for (int l = 0; l < levels; ++l)
        if (weights[l][a] != weights[l][b]) return false;
    return true;
}

// Classifies every row (ignorable, equal to an earlier row, all one expansion). The first
// earlier row with equal weights is found through a hash of the rows seen so far, which gives
// the same row as a search from row 0. `Levels` is the level count when it is known when
// compiling (the loops over the levels then unroll), else 0.
template <int Levels>
bool classify_rows(Work &w, int *seen, uint32_t mask) {
    const CollateFields &c = w.h->coll;
    const int levels = Levels > 0 ? Levels : c.level_count;
    const uint16_t *const *weights = c.weights;
    const int rows = c.highest_row + 1;
    for (int r = 0; r < rows; ++r) {
        bool all_one = true, tie_bit = false;
        for (int l = 0; l < levels; ++l) {
            all_one = all_one && weights[l][r] == nus::kIgnorable;
            tie_bit = tie_bit || (weights[l][r] & nus::kCodeTieBit) != 0;
        }
        if (all_one) {
            w.ignorable_row[r] = true;
            if (!w.ignorable_rows.push(r)) return false;
            continue;
        }
        if (!tie_bit) {
            uint32_t s = row_hash(weights, levels, r) & mask;
            while (seen[s] >= 0 && !same_weights(weights, levels, seen[s], r)) s = (s + 1) & mask;
            if (seen[s] >= 0) {
                if (!register_class(w, r, seen[s])) return false;
            } else {
                seen[s] = r;
            }
        }
        const uint16_t first = weights[0][r];
        bool one_expansion = (first & nus::kExpansionBit) != 0;
        for (int l = 1; l < levels && one_expansion; ++l) one_expansion = weights[l][r] == first;
        if (one_expansion) {
            if (!register_exp(w, first & nus::kWeightMask, r) || !register_class(w, r, -1))
                return false;
        }
    }
    return true;
}

// Classifies the rows, then lists the characters of the ignorable rows and of the classes.
int derive_lists(nu_locale_rec *h) {
    CollateFields &c = h->coll;
    const int rows = c.highest_row + 1;
    Work w;
    w.h = h;
    w.ignorable_row = nus::alloc_zeroed<bool>(static_cast<size_t>(rows));
    w.class_of_row = nus::alloc_array<int>(static_cast<size_t>(rows));
    int slots = 1;
    while (slots < 2 * rows) slots <<= 1;
    nus::Owned<int> seen(nus::alloc_array<int>(static_cast<size_t>(slots)));
    if (w.ignorable_row == nullptr || w.class_of_row == nullptr || !seen) return fail(h, NU_ENOMEM);
    for (int r = 0; r < rows; ++r) w.class_of_row[r] = -1;
    for (int s = 0; s < slots; ++s) seen.get()[s] = -1;

    const uint32_t mask = static_cast<uint32_t>(slots - 1);
    const bool classified = c.level_count == 1   ? classify_rows<1>(w, seen.get(), mask)
                            : c.level_count == 5 ? classify_rows<5>(w, seen.get(), mask)
                                                 : classify_rows<0>(w, seen.get(), mask);
    if (!classified) return fail(h, NU_ENOMEM);
    if (w.ignorable_rows.count == 0 && w.classes.count == 0) return 0;

    for (int i = 0; i < h->element_count; ++i)
        save_chars(w, c.elements[i].row, c.elements[i].chars, c.elements[i].count);
    for (int i = 0; i < w.exps.count; ++i) {
        const CollExpansion &e = c.expansions[w.exps.items[i].expansion];
        save_chars(w, w.exps.items[i].row, e.chars, e.count);
    }
    unsigned char bytes[MULTI_MAX_DEPTH];
    if (c.table != nullptr) enumerate_codepoints(w, c.table, c.table->root, bytes, 0);
    if (w.failed) return fail(h, NU_ENOMEM);

    // The ignorable characters: a null-terminated array.
    char **ignorables = nus::alloc_array<char *>(static_cast<size_t>(w.ignorables.count) + 1);
    size_t pairs = 1;
    for (int i = 0; i < w.classes.count; ++i)
        if (w.classes.items[i].chars.count > 1) pairs += w.classes.items[i].chars.count - 1;
    EquivPair *equivalents = nus::alloc_array<EquivPair>(pairs);
    if (ignorables == nullptr || equivalents == nullptr) {
        _nu_free_ptr(ignorables);
        _nu_free_ptr(equivalents);
        return fail(h, NU_ENOMEM);
    }
    for (int i = 0; i < w.ignorables.count; ++i) ignorables[i] = w.ignorables.items[i];
    ignorables[w.ignorables.count] = nullptr;
    w.ignorables.count = 0;   // the strings belong to the result now

    // The pairs: each character of a class with the class's last character, which
    // represents it. A class's strings now belong to the pairs; a lone character is freed.
    size_t p = 0;
    for (int i = 0; i < w.classes.count; ++i) {
        List<char *> &chars = w.classes.items[i].chars;
        if (chars.count > 1) {
            char *representative = chars.items[chars.count - 1];
            for (int k = 0; k + 1 < chars.count; ++k)
                equivalents[p++] = {chars.items[k], representative};
        } else if (chars.count == 1) {
            _nu_free_ptr(chars.items[0]);
        }
        chars.count = 0;
    }
    equivalents[p] = {nullptr, nullptr};
    c.ignorables = ignorables;
    c.equivalents = equivalents;
    return 0;
}

// For each level and byte b: the expansion that the one-byte character b's weight at that
// level references, or null.
int set_exp_candidates(nu_locale_rec *h) {
    CollateFields &c = h->coll;
    for (int l = 0; l < c.level_count; ++l) {
        c.exp_candidates[l] = nus::alloc_zeroed<CollExpansion *>(256);
        if (c.exp_candidates[l] == nullptr) return fail(h, NU_ENOMEM);
        for (int b = 0; b < 256; ++b) {
            const int row = nus::collation_row(h, static_cast<nu_wchar>(b));
            if (row < 0) continue;
            const uint16_t weight = c.weights[l][row];
            if ((weight & nus::kExpansionBit) != 0)
                c.exp_candidates[l][b] = &c.expansions[weight & nus::kWeightMask];
        }
    }
    return 0;
}

// The element indexes ordered by their first character and, for one first character, by
// index: the elements that may start at a character are found by a binary search, in table
// order.
int sort_elements(nu_locale_rec *h) {
    CollateFields &c = h->coll;
    const int n = h->element_count;
    c.elements_by_first = nus::alloc_array<int32_t>(static_cast<size_t>(n));
    if (c.elements_by_first == nullptr) return fail(h, NU_ENOMEM);
    int32_t *order = c.elements_by_first;
    for (int i = 0; i < n; ++i) {
        order[i] = i;
        const nu_wchar first = c.elements[i].chars[0] & 1023u;
        c.element_starts[first / 32] |= 1u << (first % 32);
    }
    const CollElement *e = c.elements;
    std::sort(order, order + n, [e](int32_t a, int32_t b) {
        return e[a].chars[0] != e[b].chars[0] ? e[a].chars[0] < e[b].chars[0] : a < b;
    });
    return 0;
}

// Flag b is set when some element begins with the wide character b.
int set_elem_candidates(nu_locale_rec *h) {
    CollateFields &c = h->coll;
    c.elem_candidates = nus::alloc_zeroed<int32_t>(256);
    if (c.elem_candidates == nullptr) return fail(h, NU_ENOMEM);
    for (int i = 0; i < h->element_count; ++i)
        if (c.elements[i].chars[0] < 256) c.elem_candidates[c.elements[i].chars[0]] = 1;
    return 0;
}

// The rows of the wide characters below 256, looked up once.
int set_low_rows(nu_locale_rec *h) {
    int32_t *rows = nus::alloc_array<int32_t>(256);
    if (rows == nullptr) return fail(h, NU_ENOMEM);
    for (int wc = 0; wc < 256; ++wc) rows[wc] = nus::collation_row(h, static_cast<nu_wchar>(wc));
    h->coll.low_rows = rows;
    return 0;
}

// The weight of each byte's row per level, read from the table's root as the single-byte
// comparisons define a byte's row (its root data entry, or the default).
int set_byte_weights(nu_locale_rec *h) {
    CollateFields &c = h->coll;
    c.byte_weights = nus::alloc_zeroed<uint16_t>(static_cast<size_t>(c.level_count) * 256);
    if (c.byte_weights == nullptr) return fail(h, NU_ENOMEM);
    const multi_t *table = c.table;
    for (int b = 0; b < 256; ++b) {
        const multi_arr_t *root = table->root;
        const unsigned char *p =
            root != nullptr && root->data_arr != nullptr
                ? root->data_arr + (size_t{static_cast<unsigned>(b)} << table->shift)
                : table->default_desc;
        uint16_t row = 0;
        if (p != nullptr) std::memcpy(&row, p, sizeof row);
        if (row > c.highest_row) continue;
        for (int l = 0; l < c.level_count; ++l) c.byte_weights[l * 256 + b] = c.weights[l][row];
    }
    // The first level's plain bytes, for the single-byte comparisons' first look. The back
    // variant walks a level forward only when its direction is exactly 1.
    if (c.level_count < 1 || c.level_words[0] != 1) return 0;
    c.byte_quick = nus::alloc_zeroed<uint16_t>(256);
    if (c.byte_quick == nullptr) return fail(h, NU_ENOMEM);
    for (int b = 0; b < 256; ++b) {
        const uint16_t w = c.byte_weights[b];
        const bool expands = c.exp_candidates[0] != nullptr && c.exp_candidates[0][b] != nullptr;
        const bool element = c.elem_candidates != nullptr && c.elem_candidates[b] != 0;
        if (nus::is_plain(w) && !expands && !element)
            c.byte_quick[b] = w;
    }
    return 0;
}

// The plain weights of the wide characters below 256: a weight that is neither ignorable nor
// an expansion reference nor a tie-break weight, of a character with a row that begins no
// element; 0 otherwise.
int set_plain_weights(nu_locale_rec *h) {
    CollateFields &c = h->coll;
    c.plain_weights = nus::alloc_zeroed<uint16_t>(static_cast<size_t>(c.level_count) * 256);
    if (c.plain_weights == nullptr) return fail(h, NU_ENOMEM);
    for (int b = 0; b < 256; ++b) {
        const int row = nus::collation_row(h, static_cast<nu_wchar>(b));
        if (row < 0 || (c.elem_candidates != nullptr && c.elem_candidates[b] != 0)) continue;
        for (int l = 0; l < c.level_count; ++l) {
            const uint16_t w = c.weights[l][row];
            if (nus::is_plain(w))
                c.plain_weights[l * 256 + b] = w;
        }
    }
    return 0;
}

// One element: white space, a count digit and the row, then the characters.
int read_coll_elem(FILE *stream, nu_locale_rec *h, CollElement &e) {
    _nu_skip_whitespace(stream);
    const uint32_t count = _nu_get_hex(stream, 1);
    const uint32_t row = _nu_get_hex(stream, 4);
    if (count < 1 || count > 15 || row > static_cast<uint32_t>(h->coll.highest_row))
        return fail(h, NU_EBADFILE);
    e.chars = nus::alloc_array<nu_wchar>(count);
    if (e.chars == nullptr) return fail(h, NU_ENOMEM);
    e.count = count;
    e.row = static_cast<uint16_t>(row);
    for (uint32_t i = 0; i < count; ++i)
        if (!nus::read_nu_wchar(stream, &e.chars[i])) return fail(h, NU_EBADFILE);
    return 0;
}

int read_expansion(FILE *stream, nu_locale_rec *h, CollExpansion &e) {
    _nu_skip_whitespace(stream);
    const uint32_t count = _nu_get_hex(stream, 1);
    if (count < 1 || count > 15) return fail(h, NU_EBADFILE);
    e.chars = nus::alloc_array<nu_wchar>(count);
    if (e.chars == nullptr) return fail(h, NU_ENOMEM);
    e.count = count;
    for (uint32_t i = 0; i < count; ++i)
        if (!nus::read_nu_wchar(stream, &e.chars[i])) return fail(h, NU_EBADFILE);
    return 0;
}

// Six counts, the directions, the weight arrays, the records and the weights.
int read_body(FILE *stream, nu_locale_rec *h) {
    CollateFields &c = h->coll;
    long v[6];
    for (long &value : v)
        if (!nus::read_decimal(stream, &value)) return fail(h, NU_EBADFILE);
    const long rows = v[1] + 1;
    if (v[1] < 0 || rows > kMaxRows || v[2] < 1 || v[2] > nus::kMaxLevels || v[3] < 0 ||
        v[3] > kMaxElements || v[4] < 0 || v[4] > kMaxExpansions || v[5] < 0)
        return fail(h, NU_EBADFILE);
    c.weights_only = static_cast<int32_t>(v[0]);
    c.highest_row = static_cast<int32_t>(v[1]);
    c.level_count = static_cast<int32_t>(v[2]);
    c.largest_weight = static_cast<int32_t>(v[5]);

    _nu_skip_whitespace(stream);
    for (int l = 0; l < c.level_count; ++l) {
        c.level_words[l] = static_cast<int32_t>(_nu_get_hex(stream, 4));
        c.weights[l] = nus::alloc_array<uint16_t>(static_cast<size_t>(rows));
        if (c.weights[l] == nullptr) return fail(h, NU_ENOMEM);
    }

    if (v[3] > 0) {
        c.elements = nus::alloc_zeroed<CollElement>(static_cast<size_t>(v[3]));
        if (c.elements == nullptr) return fail(h, NU_ENOMEM);
        h->element_count = static_cast<int32_t>(v[3]);
        for (long i = 0; i < v[3]; ++i) {
            if (read_coll_elem(stream, h, c.elements[i]) != 0) return -1;
            c.longest_sequence = std::max<int32_t>(c.longest_sequence, c.elements[i].count);
        }
    }
    if (v[4] > 0) {
        c.expansions = nus::alloc_zeroed<CollExpansion>(static_cast<size_t>(v[4]));
        if (c.expansions == nullptr) return fail(h, NU_ENOMEM);
        h->expansion_count = static_cast<int32_t>(v[4]);
        for (long i = 0; i < v[4]; ++i) {
            if (read_expansion(stream, h, c.expansions[i]) != 0) return -1;
            c.longest_sequence = std::max<int32_t>(c.longest_sequence, c.expansions[i].count);
        }
    }

    nus::Chars in(stream);
    for (long r = 0; r < rows; ++r) {
        for (int l = 0; l < c.level_count; ++l) {
            const uint32_t weight = nus::spaced_hex4(in);
            // An expansion reference must name an expansion that exists.
            if (weight > 0xFFFF || ((weight & nus::kExpansionBit) != 0 &&
                                    static_cast<long>(weight & nus::kWeightMask) >= v[4]))
                return fail(h, NU_EBADFILE);
            c.weights[l][r] = static_cast<uint16_t>(weight);
        }
    }
    if (c.weights_only != 1 && derive_lists(h) != 0) return -1;
    _nu_skip_whitespace(stream);
    if (set_low_rows(h) != 0) return -1;
    if (set_exp_candidates(h) != 0) return -1;
    nus::set_error(h, NU_SUCCESS);
    if (h->element_count > 0 && (set_elem_candidates(h) != 0 || sort_elements(h) != 0))
        return -1;
    if (set_plain_weights(h) != 0 || nus::build_weight_keys(h) != 0) return -1;
    return set_byte_weights(h);
}

// Everything read_body allocates; the table stays.
void free_fields(nu_locale_rec *h) {
    CollateFields &c = h->coll;
    for (int l = 0; l < nus::kMaxLevels; ++l) {
        _nu_free_ptr(c.weights[l]);
        _nu_free_ptr(c.exp_candidates[l]);
        c.weights[l] = nullptr;
        c.exp_candidates[l] = nullptr;
    }
    if (c.elements != nullptr)
        for (int i = 0; i < h->element_count; ++i) _nu_free_ptr(c.elements[i].chars);
    if (c.expansions != nullptr)
        for (int i = 0; i < h->expansion_count; ++i) _nu_free_ptr(c.expansions[i].chars);
    _nu_free_ptr(c.elements);
    _nu_free_ptr(c.expansions);
    _nu_free_ptr(c.elem_candidates);
    _nu_free_ptr(c.elements_by_first);
    _nu_free_ptr(c.byte_weights);
    _nu_free_ptr(c.plain_weights);
    _nu_free_ptr(c.byte_quick);
    _nu_free_ptr(c.row_keys);
    _nu_free_ptr(c.low_rows);
    _nu_free_ptr(c.weight_keys);
    if (c.ignorables != nullptr)
        for (char **p = c.ignorables; *p != nullptr; ++p) _nu_free_ptr(*p);
    _nu_free_ptr(c.ignorables);
    if (c.equivalents != nullptr) {
        // Representatives are shared by the pairs of one class, which are consecutive.
        const char *previous = nullptr;
        for (EquivPair *p = c.equivalents; p->member != nullptr; ++p) {
            _nu_free_ptr(p->member);
            if (p->representative != previous) _nu_free_ptr(p->representative);
            previous = p->representative;
        }
    }
    _nu_free_ptr(c.equivalents);
    c.elements = nullptr;
    c.expansions = nullptr;
    c.elem_candidates = nullptr;
    c.elements_by_first = nullptr;
    c.byte_weights = nullptr;
    c.plain_weights = nullptr;
    c.byte_quick = nullptr;
    c.row_keys = nullptr;
    c.low_rows = nullptr;
    c.weight_keys = nullptr;
    c.ignorables = nullptr;
    c.equivalents = nullptr;
    h->element_count = 0;
    h->expansion_count = 0;
}

} // namespace

namespace nus {

int collation_row(const nu_locale_rec *h, nu_wchar wc) {
    if (wc < 256 && h->coll.low_rows != nullptr) return h->coll.low_rows[wc];
    unsigned char bytes[4];
    const multi_arr_t *leaf = nullptr;
    if (encode_in(h->coll.table, bytes, wc, &leaf) == 0) return -1;
    const int row = node_row(h->coll.table, leaf, static_cast<unsigned char>(wc));
    return row <= h->coll.highest_row ? row : -1;
}

int read_collate(FILE *stream, nu_locale_rec *h) {
    CollateFields &c = h->coll;
    char line[128];
    if (stream_gets(line, sizeof line, stream) == nullptr) line[0] = '\0';
    if (std::strcmp(line, "as_specified\n") == 0) {
        c.method = 1;
    } else if (std::strcmp(line, "thai_smo\n") == 0) {
        c.method = 2;
        return 0;
    } else {
        c.method = 0;
        return -1;
    }
    if (c.table == nullptr) return fail(h, NU_ENOMEM);
    const int result = _nu_fscanf_multi(stream, c.table, MULTI_MAX_DEPTH, ub2_reader);
    if (result != 0) {
        set_error(h, _nu_multi_err(c.table));
        return result;
    }
    if (read_body(stream, h) != 0) {
        // A section read in part leaves nothing behind but the table.
        free_fields(h);
        c.level_count = 0;
        return -1;
    }
    return 0;
}

void free_collate(nu_locale_rec *h) {
    free_bound_cache(h);
    free_fields(h);
    _nu_free_multi(h->coll.table);
    h->coll.table = nullptr;
}

} // namespace nus

NU_EXPORT int _nu_sl_wctomb(nu_locale_t h, unsigned char *s, nu_wchar wc) {
    if (nus::no_handle(h) || nus::missing(h, s)) return -1;
    const multi_arr_t *leaf = nullptr;
    const int length = nus::encode_in(h->coll.table, s, wc, &leaf);
    return length > 0 ? length : fail(h, NU_EILSEQ);
}
