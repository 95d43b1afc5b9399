// What the formatter and parser derive from the TIME record, kept per handle: the era spans,
// the names of each kind ready for matching, and compiled formats.
#include "time/category.h"
#include "time/timefmt.h"

#include <algorithm>

namespace nus::tm {

namespace {

struct Derived {
    DerivedHead head;   // the era spans, the names of each kind, the programs used last
    ProgramHeader *programs[kProgramKinds][kProgramSlots];
    int32_t next[kProgramKinds];
};

// The handle's block, made when first asked for; null (nothing stored) when it cannot be had.
Derived *derived(nu_locale_rec *h) {
    if (h->time.era_cache == nullptr) {
        h->time.era_cache = alloc_zeroed<Derived>(1);
        h->time.era_cache_count = 0;
    }
    return static_cast<Derived *>(h->time.era_cache);
}

// The names of each kind, in the order the parser reports them.
int name_count(const TimeFields &t, int kind) {
    switch (kind) {
    case kCacheDays:
        return 14;
    case kCacheMonths:
        return 4 * kMonthSlots;
    case kCacheEras:
        return t.eras != nullptr && t.era_count > 0 ? t.era_count : 0;
    case kCacheAmPm:
        return 2;
    case kCacheDigits:
        return t.alt_digits == nullptr ? 0 : t.alt_digit_count < 100 ? t.alt_digit_count : 100;
    default:
        return 0;
    }
}

const nu_wchar *name_of(const TimeFields &t, int kind, int k) {
    switch (kind) {
    case kCacheDays:   // full names, then abbreviated
        return wide(k < 7 ? t.day[k] : t.abday[k - 7]);
    case kCacheMonths: {   // full, abbreviated, second full, second abbreviated
        const int list = k / kMonthSlots, i = k % kMonthSlots;
        const int months = t.month_count > 0 && t.month_count <= kMonthSlots ? t.month_count : 12;
        const int alt = t.alt_month_count > 0 && t.alt_month_count <= kMonthSlots ? t.alt_month_count : 0;
        if (i >= (list < 2 ? months : alt)) return kEmptyWide;
        const CatString *names = list == 0 ? t.mon : list == 1 ? t.abmon : list == 2 ? t.alt_mon
                                                                                 : t.ab_alt_mon;
        return wide(names[i]);
    }
    case kCacheEras:
        return wide(t.eras[k].name);
    case kCacheAmPm:
        return wide(k == 0 ? t.am : t.pm);
    case kCacheDigits:
        return wide(t.alt_digits[k]);
    default:
        return kEmptyWide;
    }
}

unsigned hash(nu_wchar c) { return (c * 2654435761u) >> 26; }

void add(NameSet &s, int k) { s.bits[k / 64] |= uint64_t{1} << (k % 64); }

} // namespace

NameTable *name_table(nu_locale_rec *h, int kind) {
    Derived *d = derived(h);
    if (d == nullptr) {
        set_error(h, NU_ENOMEM);
        return nullptr;
    }
    if (d->head.names[kind] != nullptr) return d->head.names[kind];
    const TimeFields &t = h->time;
    const int count = name_count(t, kind);
    size_t chars = 0;
    for (int k = 0; k < count; ++k) {
        const nu_wchar *n = name_of(t, kind, k);
        while (*n != 0 && is_space(h, *n)) ++n;
        chars += static_cast<size_t>(wlen(n));
    }
    // One block: the table, its names, then their lower- and upper-cased characters.
    const size_t bytes = sizeof(NameTable) + count * sizeof(Name) + 2 * chars * sizeof(nu_wchar);
    auto *block = alloc_zeroed<unsigned char>(bytes);
    if (block == nullptr) {
        set_error(h, NU_ENOMEM);
        return nullptr;
    }
    auto *table = reinterpret_cast<NameTable *>(block);
    table->count = count;
    table->every = count > kNameBits;
    table->names = reinterpret_cast<Name *>(block + sizeof(NameTable));
    auto *cases = reinterpret_cast<nu_wchar *>(block + sizeof(NameTable) + count * sizeof(Name));
    for (int k = 0; k < count; ++k) {
        const nu_wchar *n = name_of(t, kind, k);
        while (*n != 0 && is_space(h, *n)) ++n;
        Name &name = table->names[k];
        name.text = n;
        name.length = wlen(n);
        name.lower = cases;
        name.upper = cases + name.length;
        for (int i = 0; i < name.length; ++i) {
            cases[i] = to_lower(h, n[i]);
            cases[name.length + i] = to_upper(h, n[i]);
        }
        cases += 2 * name.length;
        if (name.length == 0 || table->every) continue;
        const nu_wchar c = n[0];
        for (nu_wchar x = 1; x < 128; ++x)
            if (eq_fold(h, x, c)) add(table->ascii[x], k);
        add(table->other[hash(c)], k);
        add(table->other[hash(name.lower[0])], k);
        add(table->other[hash(name.upper[0])], k);
    }
    d->head.names[kind] = table;
    return table;
}

NameSet name_candidates(nu_locale_rec *h, NameTable &t, nu_wchar a) {
    NameSet s{};
    if (t.every) return s;   // the caller tries every name
    if (a < 128) return t.ascii[a];
    const unsigned slot = hash(a) & 15;
    if (t.seen[slot] == a) return t.seen_set[slot];
    const NameSet &x = t.other[hash(a)], &y = t.other[hash(to_lower(h, a))],
                  &z = t.other[hash(to_upper(h, a))];
    for (int i = 0; i < kNameBits / 64; ++i) s.bits[i] = x.bits[i] | y.bits[i] | z.bits[i];
    t.seen[slot] = a;
    t.seen_set[slot] = s;
    return s;
}

const ProgramHeader *find_program(nu_locale_rec *h, ProgramKind kind, const void *key,
                                  size_t key_bytes, bool wide) {
    const auto *d = static_cast<const Derived *>(h->time.era_cache);
    if (d == nullptr) return nullptr;
    for (const ProgramHeader *p : d->programs[kind])
        if (p != nullptr && p->key_bytes == key_bytes && (p->wide != 0) == wide &&
            std::memcmp(p->key, key, key_bytes) == 0)
            return p;
    return nullptr;
}

const ProgramHeader *find_program(nu_locale_rec *h, ProgramKind kind, const char *format) {
    auto *d = static_cast<Derived *>(h->time.era_cache);
    if (d == nullptr) return nullptr;
    const auto *f = reinterpret_cast<const unsigned char *>(format);
    for (const ProgramHeader *p : d->programs[kind])
        if (p != nullptr && p->wide == 0 && same_format(p, f)) return d->head.last[kind] = p;
    return nullptr;
}

ProgramHeader *keep_program(nu_locale_rec *h, ProgramKind kind, ProgramHeader *program) {
    Derived *d = program->key_bytes != 0 ? derived(h) : nullptr;
    if (d == nullptr) {
        _nu_free_ptr(program);
        return nullptr;
    }
    ProgramHeader *&slot = d->programs[kind][d->next[kind]];
    if (d->head.last[kind] == slot) d->head.last[kind] = nullptr;
    _nu_free_ptr(slot);
    slot = program;
    if (program->wide == 0) d->head.last[kind] = program;
    d->next[kind] = (d->next[kind] + 1) % kProgramSlots;
    return program;
}

const EraSpan *era_spans(nu_locale_rec *h) {
    TimeFields &t = h->time;
    if (t.era_count <= 0 || t.eras == nullptr) return nullptr;
    Derived *d = derived(h);
    if (d == nullptr) {
        set_error(h, NU_ENOMEM);
        return nullptr;
    }
    if (d->head.spans != nullptr && t.era_cache_count == t.era_count) return d->head.spans;
    _nu_free_ptr(d->head.spans);
    d->head.spans = nullptr;
    t.era_cache_count = 0;
    auto *spans = alloc_array<EraSpan>(static_cast<size_t>(t.era_count));
    if (spans == nullptr) {
        set_error(h, NU_ENOMEM);
        return nullptr;
    }
    // Years are counted astronomically in the record (0 is 1 BC), as the comparisons count.
    auto convert = [](int32_t year, int32_t month, int32_t day, int32_t *out) {
        if (year == kEraOpenBefore) {
            out[0] = INT32_MIN;
            out[1] = 0;
            out[2] = 1;
        } else if (year == kEraOpenAfter) {
            out[0] = INT32_MAX;
            out[1] = 11;
            out[2] = 31;
        } else {
            // Years of a file's segments may be any number: far ones keep their order, short
            // of the open ends.
            out[0] = static_cast<int32_t>(
                std::clamp<int64_t>(int64_t{year} - 1900, INT32_MIN + 1, INT32_MAX - 1));
            out[1] = static_cast<int32_t>(std::max<int64_t>(int64_t{month} - 1, INT32_MIN));
            out[2] = day;
        }
    };
    auto not_after = [](const int32_t *a, const int32_t *b) {
        return a[0] < b[0] || (a[0] == b[0] && (a[1] < b[1] || (a[1] == b[1] && a[2] <= b[2])));
    };
    for (int i = 0; i < t.era_count; ++i) {
        const EraSegment &e = t.eras[i];
        EraSpan &s = spans[i];
        convert(e.start_year, e.start_month, e.start_day, s.start);
        convert(e.end_year, e.end_month, e.end_day, s.stop);
        // The count runs with time when the segment's dates are in order and its direction
        // is "+", or when they are reversed and it is "-".
        const bool ordered = not_after(s.start, s.stop);
        s.absolute_direction = (ordered == (e.direction >= 0)) ? 1 : -1;
        s.name = mb(e.name);
        s.name_bytes = static_cast<int32_t>(std::strlen(s.name));
        s.year_base = int64_t{e.offset} - int64_t{s.start[0]} * s.absolute_direction;
        const int64_t a = date_key(s.start[0], s.start[1], s.start[2]);
        const int64_t b = date_key(s.stop[0], s.stop[1], s.stop[2]);
        s.first = a < b ? a : b;
        s.last = a < b ? b : a;
    }
    // The era of each year that lies whole in one: the first era that holds a date changes
    // only where a segment begins or the day after one ends.
    for (int y = 0; y < kEraYears; ++y) {
        const int64_t first = date_key(y, 0, 1), last = date_key(y, 11, 31);
        bool same = true;
        for (int i = 0; i < t.era_count && same; ++i)
            same = !(spans[i].first > first && spans[i].first <= last) &&
                   !(spans[i].last >= first && spans[i].last < last);
        const int era = same ? era_of(spans, t.era_count, y, 0, 1) : kEraChanges;
        d->head.era_of_year[y] = static_cast<int16_t>(era <= INT16_MAX ? era : kEraChanges);
    }
    d->head.spans = spans;
    t.era_cache_count = t.era_count;
    return spans;
}

} // namespace nus::tm

namespace nus {

void release_time_derived(void *block) {
    auto *d = static_cast<tm::Derived *>(block);
    if (d == nullptr) return;
    _nu_free_ptr(d->head.spans);
    for (tm::NameTable *t : d->head.names) _nu_free_ptr(t);
    for (auto &kind : d->programs)
        for (tm::ProgramHeader *p : kind) _nu_free_ptr(p);
    _nu_free_ptr(d);
}

} // namespace nus
