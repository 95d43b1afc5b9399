// The text form of the multi-level byte table, as embedded in the library's data files:
// a header line with the default descriptor, then run-length-coded 256-entry arrays, one set
// per node (uncompressed) or each distinct array once with per-node indexes (compressed).
#include "frame/frame.h"
#include "frame/multi.h"

#include <algorithm>
#include <cstdarg>

using namespace nus::multi;

namespace {

// ---- writing --------------------------------------------------------------------------------

// Collects formatted text and hands it to the external fwrite in blocks. It is flushed
// before every call of the descriptor printer, which writes to the stream itself.
class Output {
public:
    explicit Output(FILE *stream) : stream_(stream) {}
    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;
    ~Output() { flush(); }

    [[gnu::format(printf, 2, 3)]] void format(const char *fmt, ...) {
        for (int attempt = 0; attempt < 2; ++attempt) {
            va_list args;
            va_start(args, fmt);
            const int n = std::vsnprintf(buffer_ + used_, sizeof buffer_ - used_, fmt, args);
            va_end(args);
            if (n < 0) return;
            if (used_ + static_cast<size_t>(n) < sizeof buffer_) {
                used_ += static_cast<size_t>(n);
                return;
            }
            flush();
        }
    }

    void flush() {
        if (used_ != 0) _nu_ext_fwrite(buffer_, 1, used_, stream_);
        used_ = 0;
    }

    FILE *stream() const { return stream_; }

private:
    FILE *stream_;
    size_t used_ = 0;
    char buffer_[1024];
};

// The elements of a flag array.
struct FlagElements {
    const unsigned char *arr;
    bool significant(int i) const { return arr[i] != MULTI_INVALID; }
    bool equal(int i, int j) const { return arr[i] == arr[j]; }
    void write(Output &out, int i) const { out.format("%02x", arr[i]); }
};

// The slots of a data array; a slot equal to the default descriptor is not significant.
struct DataElements {
    const multi_t *t;
    const unsigned char *arr;
    nu_desc_printer printer;
    const unsigned char *slot(int i) const { return arr + (size_t{unsigned(i)} << t->shift); }
    bool significant(int i) const { return !same_desc(t, slot(i), t->default_desc); }
    bool equal(int i, int j) const { return same_desc(t, slot(i), slot(j)); }
    void write(Output &out, int i) const {
        out.flush();
        printer(out.stream(), slot(i));
    }
};

struct Run {
    int count;  // elements written
    int repeat; // times they stand one after the other
};

// Chooses the record starting at the significant position s: four or more equal leading
// elements become one repeated element; otherwise a literal stretch that stops before the
// fourth of four equal elements, ending with its last significant element.
template <typename Elements>
Run choose_run(const Elements &e, int s) {
    int current = s;
    int same = 0;
    bool mixed = false;
    bool repeating = false;
    int last = s;
    for (int i = s + 1; i < kSlots; ++i) {
        if (e.equal(i, current)) {
            if (++same == 3) {
                if (mixed) break;
                repeating = true;
            }
        } else {
            if (repeating) break;
            current = i;
            same = 0;
        }
        if (!e.equal(i, s)) {
            if (repeating) break;
            mixed = true;
        }
        if (e.significant(i)) last = i;
    }
    if (repeating) return {1, same + 1};
    return {last - s + 1, 1};
}

template <typename Elements>
void write_array(Output &out, const Elements &e) {
    for (int s = 0; s < kSlots;) {
        if (!e.significant(s)) {
            ++s;
            continue;
        }
        const Run run = choose_run(e, s);
        out.format("%02x%03x%03x", s, run.count, run.repeat);
        for (int i = s; i < s + run.count; ++i) e.write(out, i);
        out.format("\n");
        s += run.count * run.repeat;
    }
    out.format("0000000\n");
}

struct Writer {
    Output out;
    const multi_t *t;
    nu_desc_printer printer;

    void flags(const unsigned char *arr) { write_array(out, FlagElements{arr}); }
    void data(const unsigned char *arr) { write_array(out, DataElements{t, arr, printer}); }

    // Depth first, children in increasing byte order; a trie has at most four levels.
    template <typename Record>
    void nodes(const multi_arr_t *node, int depth, Record record) {
        record(node);
        if (node->child_count == 0 || node->flag_arr == nullptr || depth + 1 >= MULTI_MAX_DEPTH) {
            return;
        }
        for (int b = 0; b < kSlots; ++b) {
            if (node->flag_arr[b] == MULTI_MORE) {
                nodes(node->next_arr[node->offset_arr[b]], depth + 1, record);
            }
        }
    }
};

} // namespace

NU_EXPORT void _nu_fprintf_multi(FILE *stream, multi_t *table, nu_desc_printer printer) {
    if (stream == nullptr || table == nullptr || printer == nullptr) return;
    // A table that carries the compressed bit without having been compressed (its
    // compression ran out of memory, or it was created with the bit) is written whole.
    const bool compressed = is_compressed(table);
    const uint32_t flags = compressed ? table->flags : table->flags & ~MULTI_COMPRESSED;
    Writer w{Output(stream), table, printer};
    w.out.format("%d %d %d ", table->max_length, table->min_length, static_cast<int>(flags));
    w.out.flush();
    printer(stream, table->default_desc);
    w.out.format("\n");
    complete_single_byte(table);
    if (!compressed) {
        w.nodes(table->root, 0, [&w](const multi_arr_t *node) {
            w.out.format("%d %d\n", node->flag_arr != nullptr ? 1 : 0,
                         node->data_arr != nullptr ? 1 : 0);
            if (node->flag_arr != nullptr) w.flags(node->flag_arr);
            if (node->data_arr != nullptr) w.data(node->data_arr);
        });
        return;
    }
    w.out.format("%d %d\n", table->flag_count, table->data_count);
    for (int32_t i = 0; i < table->flag_count; ++i) w.flags(table->flag_list[i]);
    for (int32_t i = 0; i < table->data_count; ++i) w.data(table->data_list[i]);
    w.nodes(table->root, 0, [&w](const multi_arr_t *node) {
        const bool has_flags = node->flag_arr != nullptr;
        const bool has_data = node->data_arr != nullptr;
        w.out.format("%d %d %u %u\n", has_flags ? 1 : 0, has_data ? 1 : 0,
                     has_flags ? static_cast<unsigned>(node->flag_index) : 0u,
                     has_data ? static_cast<unsigned>(node->data_index) : 0u);
    });
}

// ---- reading --------------------------------------------------------------------------------

namespace {

struct Reader {
    FILE *stream;
    multi_t *t;
    nu_desc_reader read_desc;
    unsigned char *scratch; // 256 descriptor slots for the elements of one data record
    int error = 0;
    // Compressed form: the array counts announced, and the room in the lists. The lists
    // grow as arrays arrive, so that an absurd count costs no more than the file holds.
    int32_t flag_total = 0;
    int32_t data_total = 0;
    int32_t flag_room = 0;
    int32_t data_room = 0;
    int32_t counts_room = 0;
    // Compressed form: the offset array of each shared flag array, made when a node first
    // takes it (the offsets follow from the flags, so nodes with equal flags share them).
    unsigned char **offsets = nullptr;
    nus::Chars in{stream};     // through the stream's block when it has one
    // The library's own 16-bit reader is read inline, from memory when the block holds it.
    const bool ub2 = read_desc == &nus::ub2_reader;

    bool fail(int code) {
        if (error == 0) error = code;
        return false;
    }
    // The stream ended (or failed) inside the table.
    bool ended() { return fail(_nu_ext_ferror(stream) != 0 ? NU_EIO : NU_EBADFILE); }

    // A decimal field; anything but a number is malformed.
    bool decimal(long *value) {
        if (nus::read_decimal(in, value)) return true;
        return _nu_ext_feof(stream) != 0 || _nu_ext_ferror(stream) != 0 ? ended()
                                                                        : fail(NU_EBADFILE);
    }
    bool flag_bit(long *value) {
        if (!decimal(value)) return false;
        return *value == 0 || *value == 1 ? true : fail(NU_EBADFILE);
    }

    // `digits` hexadecimal digits, no white space skipped.
    bool hex(int digits, uint32_t *value) {
        if (nus::InputBlock *block = in.block(); block != nullptr && block->end - block->pos >= digits) {
            uint32_t v = 0;
            for (int i = 0; i < digits; ++i) {
                const int d = nus::kHexTables.digit[*block->pos++];
                if (d < 0) return fail(NU_EBADFILE);
                v = v * 16 + static_cast<uint32_t>(d);
            }
            *value = v;
            return true;
        }
        uint32_t v = 0;
        for (int i = 0; i < digits; ++i) {
            const int c = in.get();
            if (c == EOF) return ended();
            const int d = nus::c_hexvalue(c);
            if (d < 0) return fail(NU_EBADFILE);
            v = v * 16 + static_cast<uint32_t>(d);
        }
        *value = v;
        return true;
    }

    // One array: run records up to the terminator. `read_elements` reads n elements into a
    // scratch area, `store` copies its n elements to position p, `fill` its first element to
    // r positions from p.
    template <typename ReadElements, typename Store, typename Fill>
    bool records(ReadElements read_elements, Store store, Fill fill) {
        for (;;) {
            uint32_t start, n, r;
            if (!hex(2, &start) || !hex(3, &n)) return false;
            if (n == 0) {
                // The terminator "0000000\n": its last three characters are the repeat
                // count, the newline among them, and mean nothing.
                for (int i = 0; i < 3 && in.get() != EOF; ++i) {
                }
                return true;
            }
            if (!hex(3, &r)) return false;
            if (n > kSlots || start + n * r > kSlots) return fail(NU_EBADFILE);
            if (!read_elements(static_cast<int>(n))) return false;
            nus::skip_whitespace(in);
            if (n == 1) {
                fill(static_cast<int>(start), static_cast<int>(r));
            } else {
                for (uint32_t k = 0; k < r; ++k) store(static_cast<int>(start + k * n), static_cast<int>(n));
            }
        }
    }

    // A flag array read into `arr`; only the values 0, 1 and 4 exist.
    bool flag_array(unsigned char *arr) {
        unsigned char elements[kSlots];
        return records(
            [&](int n) {
                for (int j = 0; j < n; ++j) {
                    uint32_t v;
                    if (!hex(2, &v)) return false;
                    if (v != MULTI_INVALID && v != MULTI_MORE && v != MULTI_LAST) {
                        return fail(NU_EBADFILE);
                    }
                    elements[j] = static_cast<unsigned char>(v);
                }
                return true;
            },
            [&](int p, int n) { std::memcpy(arr + p, elements, static_cast<size_t>(n)); },
            [&](int p, int r) { std::memset(arr + p, elements[0], static_cast<size_t>(r)); });
    }

    // A 16-bit descriptor as the library's reader reads it: four characters, each a
    // hexadecimal digit or counted with its own code; false when the value does not fit.
    static bool ub2_element(const unsigned char *p, unsigned char *slot) {
        const uint16_t *code = nus::kHexTables.or_code;
        const uint32_t value = ((uint32_t{code[p[0]]} * 16 + code[p[1]]) * 16 + code[p[2]]) * 16 + code[p[3]];
        const uint16_t v = static_cast<uint16_t>(value);
        std::memcpy(slot, &v, sizeof v);
        return value <= 0xFFFF;
    }

    bool read_data_elements(int n) {
        const uint32_t shift = t->shift;
        nus::InputBlock *block = in.block();
        if (ub2 && block != nullptr && block->end - block->pos >= 4 * n) {
            for (int j = 0; j < n; ++j) {
                const bool fits = ub2_element(block->pos, scratch + (size_t{unsigned(j)} << shift));
                block->pos += 4;
                if (!fits) return fail(NU_ENOMEM);
            }
            return true;
        }
        for (int j = 0; j < n; ++j) {
            unsigned char *slot = scratch + (size_t{unsigned(j)} << shift);
            if (read_desc(stream, slot, t->desc_size) != 0) return fail(NU_ENOMEM);
        }
        return true;
    }

    bool data_array(unsigned char *arr) {
        const uint32_t shift = t->shift;
        const size_t size = t->desc_size;
        return records(
            [&](int n) { return read_data_elements(n); },
            [&](int p, int n) {
                // Slots are as far apart in the scratch area as in the array; the bytes
                // between descriptors are zero in both.
                std::memcpy(arr + (size_t{unsigned(p)} << shift), scratch,
                            size_t{unsigned(n)} << shift);
            },
            [&](int p, int r) {
                unsigned char *to = arr + (size_t{unsigned(p)} << shift);
                if (shift == 1) {
                    uint16_t v;
                    std::memcpy(&v, scratch, sizeof v);
                    for (int k = 0; k < r; ++k) std::memcpy(to + 2 * k, &v, sizeof v);
                } else {
                    for (int k = 0; k < r; ++k) std::memcpy(to + (size_t{unsigned(k)} << shift), scratch, size);
                }
            });
    }

    // Gives `node` its offset array and `count` empty children, one per byte whose flag is
    // 1, all or nothing. Children are made before the node's flags are set, so that a table
    // whose reading failed never has a flag of 1 without its child.
    bool children(multi_arr_t *node, const unsigned char *flags, int count, int depth) {
        if (count == 0) return true;
        // A child at depth d + 1 holds byte d + 2 of a character.
        if (depth + 2 > t->max_length || depth + 1 >= MULTI_MAX_DEPTH) return fail(NU_EBADFILE);
        if (node->offset_arr == nullptr && (node->offset_arr = make_offset_array(t)) == nullptr) {
            return fail(NU_ENOMEM);
        }
        multi_arr_t **next = nus::alloc_zeroed<multi_arr_t *>(static_cast<size_t>(count));
        if (next == nullptr) return fail(NU_ENOMEM);
        for (int i = 0; i < count; ++i) {
            if ((next[i] = new_node()) == nullptr) {
                for (int k = 0; k < i; ++k) _nu_free_ptr(next[k]);
                _nu_free_ptr(next);
                return fail(NU_ENOMEM);
            }
        }
        int index = 0;
        for (int b = 0; b < kSlots; ++b) {
            if (flags[b] == MULTI_MORE) node->offset_arr[b] = static_cast<unsigned char>(index++);
        }
        node->next_arr = next;
        return true;
    }

    // The compressed form's children of `node`, which takes the shared flag array `index`:
    // the nodes and their pointer array in one piece of the arena, the offsets shared.
    bool shared_children(multi_arr_t *node, int32_t index, int depth) {
        const int count = t->child_counts[index];
        if (count == 0) return true;
        if (depth + 2 > t->max_length || depth + 1 >= MULTI_MAX_DEPTH) return fail(NU_EBADFILE);
        if (offsets == nullptr) {
            offsets = static_cast<unsigned char **>(
                arena_alloc(t, sizeof(unsigned char *) * static_cast<size_t>(t->flag_count)));
            if (offsets == nullptr) return fail(NU_ENOMEM);
        }
        unsigned char *offset_arr = offsets[index];
        if (offset_arr == nullptr) {
            offset_arr = static_cast<unsigned char *>(arena_alloc(t, kSlots));
            if (offset_arr == nullptr) return fail(NU_ENOMEM);
            const unsigned char *flags = t->flag_list[index];
            int next = 0;
            for (int b = 0; b < kSlots; ++b) {
                if (flags[b] == MULTI_MORE) offset_arr[b] = static_cast<unsigned char>(next++);
            }
            offsets[index] = offset_arr;
        }
        const size_t n = static_cast<size_t>(count);
        auto *next = static_cast<multi_arr_t **>(arena_alloc(t, n * sizeof(multi_arr_t *)));
        auto *nodes = static_cast<multi_arr_t *>(arena_alloc(t, n * sizeof(multi_arr_t)));
        if (next == nullptr || nodes == nullptr) return fail(NU_ENOMEM);
        for (size_t i = 0; i < n; ++i) {
            nodes[i].flag_index = -1;
            nodes[i].data_index = -1;
            next[i] = &nodes[i];
        }
        ++t->offset_count;
        node->offset_arr = offset_arr;
        node->next_arr = next;
        return true;
    }

    bool read_children(multi_arr_t *node, int depth, bool compressed) {
        for (int32_t i = 0; i < node->child_count; ++i) {
            multi_arr_t *child = node->next_arr[i];
            if (!(compressed ? shared_node(child, depth + 1) : own_node(child, depth + 1))) {
                return false;
            }
        }
        return true;
    }

    // A node of the uncompressed form with its arrays and children.
    bool own_node(multi_arr_t *node, int depth) {
        long has_flags, has_data;
        if (!flag_bit(&has_flags) || !flag_bit(&has_data)) return false;
        nus::skip_whitespace(in);
        if (has_flags != 0) {
            unsigned char flags[kSlots] = {};
            if (node->flag_arr != nullptr) std::memcpy(flags, node->flag_arr, kSlots);
            if (!flag_array(flags)) return false;
            const int count = static_cast<int>(std::count(flags, flags + kSlots, MULTI_MORE));
            if (node->flag_arr == nullptr && (node->flag_arr = make_flag_array(t)) == nullptr) {
                return fail(NU_ENOMEM);
            }
            if (!children(node, flags, count, depth)) return false;
            std::memcpy(node->flag_arr, flags, kSlots);
            node->child_count = count;
        }
        if (has_data != 0) {
            if (node->data_arr == nullptr && (node->data_arr = make_data_array(t)) == nullptr) {
                return fail(NU_ENOMEM);
            }
            if (!data_array(node->data_arr)) return false;
        }
        return read_children(node, depth, false);
    }

    // A node record of the compressed form: indexes into the shared arrays.
    // The usual node record from memory: four fields of one to nine digits, one space apart,
    // and the white space that ends the last one, inside the block. False (nothing read)
    // for anything else.
    bool quick_record(long *fields) {
        nus::InputBlock *block = in.block();
        if (block == nullptr) return false;
        const unsigned char *p = block->pos;
        const unsigned char *const end = block->end;
        while (p < end && nus::c_isspace(*p)) ++p;
        // Four fields of a separator and nine digits at most, and the byte after the last:
        // 41 bytes, all inside the block, so that the loops need no test of the end.
        if (end - p < 48) return false;
        for (int i = 0; i < 4; ++i) {
            if (i > 0 && *p == ' ') ++p;
            const unsigned char *const first = p;
            long v = 0;
            for (unsigned d; p - first < 9 && (d = *p - unsigned{'0'}) <= 9; ++p) v = v * 10 + d;
            if (p == first || !nus::c_isspace(*p)) return false;
            fields[i] = v;
        }
        block->pos = const_cast<unsigned char *>(p);
        return true;
    }

    bool shared_node(multi_arr_t *node, int depth) {
        long fields[4];
        if (quick_record(fields)) {
            if ((fields[0] != 0 && fields[0] != 1) || (fields[1] != 0 && fields[1] != 1))
                return fail(NU_EBADFILE);
        } else if (!flag_bit(&fields[0]) || !flag_bit(&fields[1]) || !decimal(&fields[2]) ||
                   !decimal(&fields[3])) {
            return false;
        }
        const long has_flags = fields[0], has_data = fields[1], flag_index = fields[2],
                   data_index = fields[3];
        if ((has_flags != 0 && (flag_index < 0 || flag_index >= t->flag_count)) ||
            (has_data != 0 && (data_index < 0 || data_index >= t->data_count))) {
            return fail(NU_EBADFILE);
        }
        if (has_flags != 0) {
            const int count = t->child_counts[flag_index];
            if (!shared_children(node, static_cast<int32_t>(flag_index), depth)) return false;
            node->flag_arr = t->flag_list[flag_index];
            node->flag_index = static_cast<int32_t>(flag_index);
            node->child_count = count;
        }
        if (has_data != 0) {
            node->data_arr = t->data_list[data_index];
            node->data_index = static_cast<int32_t>(data_index);
        }
        return read_children(node, depth, true);
    }

    // Makes room for one more entry in a list that holds `used` of `room`; `total` is the
    // number announced.
    template <typename T>
    bool room_for(T *&list, int32_t used, int32_t &room, int32_t total) {
        if (used < room) return true;
        const int32_t grown = std::min(total, std::max(room * 2, 16));
        T *bigger = nus::alloc_zeroed<T>(static_cast<size_t>(grown));
        if (bigger == nullptr) return fail(NU_ENOMEM);
        if (used > 0) std::memcpy(bigger, list, sizeof(T) * static_cast<size_t>(used));
        _nu_free_ptr(list);
        list = bigger;
        room = grown;
        return true;
    }

    // The compressed form: the distinct arrays, then the node records.
    bool compressed_body() {
        long flags_announced, data_announced;
        if (!decimal(&flags_announced) || !decimal(&data_announced)) return false;
        // No more arrays than nodes of a trie as deep as the table's longest character.
        long nodes = 1;
        for (int d = 1; d < t->max_length; ++d) nodes = nodes * kSlots + 1;
        if (flags_announced < 0 || flags_announced > nodes || data_announced < 0 ||
            data_announced > nodes) {
            return fail(NU_EBADFILE);
        }
        nus::skip_whitespace(in);
        flag_total = static_cast<int32_t>(flags_announced);
        data_total = static_cast<int32_t>(data_announced);
        // The lists exist (with room for one at least) before the root gives up its own
        // flag array, so that from here on the table frees as compressed.
        unsigned char **flag_list = nus::alloc_zeroed<unsigned char *>(1);
        unsigned char **data_list = nus::alloc_zeroed<unsigned char *>(1);
        int32_t *child_counts = nus::alloc_zeroed<int32_t>(1);
        if (flag_list == nullptr || data_list == nullptr || child_counts == nullptr) {
            _nu_free_ptr(flag_list);
            _nu_free_ptr(data_list);
            _nu_free_ptr(child_counts);
            return fail(NU_ENOMEM);
        }
        multi_arr_t *root = t->root;
        _nu_free_ptr(root->flag_arr);
        root->flag_arr = nullptr;
        if (root->data_arr != nullptr) {
            _nu_free_ptr(root->data_arr);
            root->data_arr = nullptr;
        }
        t->flag_list = flag_list;
        t->data_list = data_list;
        t->child_counts = child_counts;
        t->flag_count = 0;
        t->data_count = 0;
        flag_room = data_room = counts_room = 1;
        // The announced arrays (and the offsets of the flag arrays) fill the first block of
        // the arena, the nodes the later ones.
        arena_reserve(t, static_cast<size_t>(flag_total) * (2 * kSlots + sizeof(void *)) +
                             static_cast<size_t>(data_total) * ((data_array_size(t) + 15) & ~size_t{15}));

        while (t->flag_count < flag_total) {
            if (!room_for(t->flag_list, t->flag_count, flag_room, flag_total) ||
                !room_for(t->child_counts, t->flag_count, counts_room, flag_total)) {
                return false;
            }
            auto *arr = static_cast<unsigned char *>(arena_alloc(t, kSlots));
            if (arr == nullptr) return fail(NU_ENOMEM);
            const int32_t i = t->flag_count++;
            t->flag_list[i] = arr;
            if (!flag_array(arr)) return false;
            t->child_counts[i] = static_cast<int32_t>(std::count(arr, arr + kSlots, MULTI_MORE));
        }
        while (t->data_count < data_total) {
            if (!room_for(t->data_list, t->data_count, data_room, data_total)) return false;
            auto *arr = static_cast<unsigned char *>(arena_alloc(t, data_array_size(t)));
            if (arr == nullptr) return fail(NU_ENOMEM);
            fill_default(t, arr);
            t->data_list[t->data_count++] = arr;
            if (!data_array(arr)) return false;
        }
        return shared_node(root, 0);
    }

    bool table() {
        long max_length, min_length, flags;
        if (!decimal(&max_length) || !decimal(&min_length) || !decimal(&flags)) return false;
        if (flags < 0 || flags > static_cast<long>(INT32_MAX)) return fail(NU_EBADFILE);
        t->max_length = static_cast<int32_t>(std::clamp<long>(max_length, INT32_MIN, INT32_MAX));
        t->min_length = static_cast<int32_t>(std::clamp<long>(min_length, INT32_MIN, INT32_MAX));
        t->flags = static_cast<uint32_t>(flags);
        return true;
    }
};

} // namespace

NU_EXPORT int _nu_fscanf_multi(FILE *stream, multi_t *table, int max_length,
                               nu_desc_reader reader) {
    if (table == nullptr) return -1;
    table->err = 0;
    // Only a table that holds no characters of more than one byte and shares no arrays can
    // take a table from a file.
    if (stream == nullptr || reader == nullptr || is_compressed(table) ||
        table->root->child_count != 0) {
        table->err = NU_EBADARG;
        return -1;
    }
    Reader rd{stream, table, reader, nullptr};
    bool ok = rd.table();
    if (ok && table->max_length > std::min(max_length, MULTI_MAX_DEPTH)) {
        table->err = NU_ETOODEEP;
        return -1;
    }
    nus::Scratch<unsigned char, 2048> scratch(data_array_size(table));
    if (ok && !scratch.ok()) ok = rd.fail(NU_ENOMEM);
    rd.scratch = scratch.data();
    if (scratch.ok()) std::memset(rd.scratch, 0, data_array_size(table));
    if (ok) {
        nus::skip_whitespace(rd.in);
        if (reader(stream, table->default_desc, table->desc_size) != 0) ok = rd.fail(NU_ENOMEM);
        nus::skip_whitespace(rd.in);
    }
    if (ok) {
        ok = (table->flags & MULTI_COMPRESSED) != 0 ? rd.compressed_body()
                                                    : rd.own_node(table->root, 0);
    }
    if (!ok) {
        table->err = rd.error;
        return -1;
    }
    return 0;
}
