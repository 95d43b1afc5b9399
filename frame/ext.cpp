// The external-function table (memory, streams, environment, clock), the version strings,
// the memory helpers and the digit-counting helpers.
#include "frame/frame.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

nu_extfunc funcptr_arr[NU_EXT_SLOTS];

// The installed function of a slot, cast to the slot's own type, or null when the default
// is to be used.
template <typename Fn>
inline Fn installed(int slot) {
    if (_nu_ext_func == 0) return nullptr;
    return reinterpret_cast<Fn>(funcptr_arr[slot]);
}

} // namespace

// Declared extern "C" and exported in nus.h.
int _nu_ext_func = 0;

// ---- versions ---------------------------------------------------------------------------

NU_EXPORT const char *nu_version(void) { return "nuslib-4.00.UC2"; }
NU_EXPORT const char *nu_cm_version(void) { return "3"; }
NU_EXPORT const char *nu_lc_version(void) { return "11"; }
NU_EXPORT const char *nu_cv_version(void) { return "9"; }

// ---- the table ----------------------------------------------------------------------------

NU_EXPORT nu_extfunc _nu_get_ext_funcptr(int slot) { return funcptr_arr[slot]; }

NU_EXPORT void _nu_set_ext_funcptr(int slot, nu_extfunc fn) {
    _nu_ext_func = 1;
    funcptr_arr[slot] = fn;
}

NU_EXPORT int nu_setextfunc(void *handle, int slot, nu_extfunc fn) {
    if (slot < 0 || slot >= NU_EXT_SLOTS) {
        nus::set_error(handle, NU_EBADVAL);
        return -1;
    }
    _nu_set_ext_funcptr(slot, fn);
    return 0;
}

// ---- defaults -----------------------------------------------------------------------------

NU_EXPORT char *nu_ext_getenv(const char *name) { return std::getenv(name); }
// The handle's first field is its error slot.
NU_EXPORT int *nu_ext_errno(void *handle) { return static_cast<int *>(handle); }
NU_EXPORT int nu_ext_fclose(FILE *stream) { return std::fclose(stream); }
NU_EXPORT int nu_ext_feof(FILE *stream) { return std::feof(stream); }
NU_EXPORT int nu_ext_ferror(FILE *stream) { return std::ferror(stream); }
NU_EXPORT int nu_ext_fgetc(FILE *stream) { return std::fgetc(stream); }
NU_EXPORT char *nu_ext_fgets(char *buffer, int size, FILE *stream) {
    return std::fgets(buffer, size, stream);
}
NU_EXPORT FILE *nu_ext_fopen(const char *path, const char *mode) {
    return std::fopen(path, mode);
}
NU_EXPORT void nu_ext_free(void *p) { std::free(p); }
NU_EXPORT int nu_ext_fseek(FILE *stream, long offset, int whence) {
    return std::fseek(stream, offset, whence);
}
NU_EXPORT long nu_ext_ftell(FILE *stream) { return std::ftell(stream); }
NU_EXPORT size_t nu_ext_fwrite(const void *p, size_t size, size_t count, FILE *stream) {
    return std::fwrite(p, size, count, stream);
}
NU_EXPORT int nu_ext_getc(FILE *stream) { return getc(stream); }
NU_EXPORT void *nu_ext_malloc(size_t size) { return std::malloc(size); }
NU_EXPORT int nu_ext_ungetc(int c, FILE *stream) { return std::ungetc(c, stream); }
NU_EXPORT int nu_ext_putenv(char *assignment) { return putenv(assignment); }

NU_EXPORT void nu_ext_currdate(unsigned short date[3]) {
    std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    date[0] = static_cast<unsigned short>(local.tm_mon + 1);
    date[1] = static_cast<unsigned short>(local.tm_mday);
    date[2] = static_cast<unsigned short>(local.tm_year + 1900);
}

NU_EXPORT void nu_ext_currtime(int record[12]) {
    std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    record[0] = 0;
    record[1] = local.tm_sec;
    record[2] = local.tm_min;
    record[3] = local.tm_hour;
    record[4] = local.tm_mday;
    record[5] = local.tm_mon;
    record[6] = local.tm_year;
    record[7] = local.tm_wday;
    record[8] = local.tm_yday;
    record[9] = local.tm_isdst;
    record[10] = 0;
    record[11] = 0;
}

NU_EXPORT void *nu_ext_calloc(size_t count, size_t size) { return std::calloc(count, size); }
NU_EXPORT void *nu_ext_realloc(void *p, size_t size) { return std::realloc(p, size); }

// ---- dispatchers --------------------------------------------------------------------------

// Each dispatcher calls the installed function of its slot with its own arguments, or the
// default when the slot is empty.
#define NU_DISPATCH(slot, ret, name, params, args)                                          \
    NU_EXPORT ret _nu_ext_##name params {                                                   \
        using Fn = ret(*) params;                                                           \
        if (Fn fn = installed<Fn>(slot)) return fn args;                                    \
        return nu_ext_##name args;                                                          \
    }

NU_DISPATCH(NU_EXT_GETENV, char *, getenv, (const char *name), (name))
NU_DISPATCH(NU_EXT_ERRNO, int *, errno, (void *handle), (handle))
NU_DISPATCH(NU_EXT_FCLOSE, int, fclose, (FILE * stream), (stream))
NU_DISPATCH(NU_EXT_FEOF, int, feof, (FILE * stream), (stream))
NU_DISPATCH(NU_EXT_FERROR, int, ferror, (FILE * stream), (stream))
NU_DISPATCH(NU_EXT_FGETC, int, fgetc, (FILE * stream), (stream))
NU_DISPATCH(NU_EXT_FGETS, char *, fgets, (char *buffer, int size, FILE *stream),
            (buffer, size, stream))
NU_DISPATCH(NU_EXT_FOPEN, FILE *, fopen, (const char *path, const char *mode), (path, mode))
NU_DISPATCH(NU_EXT_FREE, void, free, (void *p), (p))
NU_DISPATCH(NU_EXT_FSEEK, int, fseek, (FILE * stream, long offset, int whence),
            (stream, offset, whence))
NU_DISPATCH(NU_EXT_FTELL, long, ftell, (FILE * stream), (stream))
NU_DISPATCH(NU_EXT_FWRITE, size_t, fwrite,
            (const void *p, size_t size, size_t count, FILE *stream), (p, size, count, stream))
NU_DISPATCH(NU_EXT_GETC, int, getc, (FILE * stream), (stream))
NU_DISPATCH(NU_EXT_MALLOC, void *, malloc, (size_t size), (size))
NU_DISPATCH(NU_EXT_UNGETC, int, ungetc, (int c, FILE *stream), (c, stream))
NU_DISPATCH(NU_EXT_PUTENV, int, putenv, (char *assignment), (assignment))
NU_DISPATCH(NU_EXT_CURRDATE, void, currdate, (unsigned short date[3]), (date))
NU_DISPATCH(NU_EXT_CURRTIME, void, currtime, (int record[12]), (record))
NU_DISPATCH(NU_EXT_CALLOC, void *, calloc, (size_t count, size_t size), (count, size))
NU_DISPATCH(NU_EXT_REALLOC, void *, realloc, (void *p, size_t size), (p, size))

#undef NU_DISPATCH

// ---- memory -------------------------------------------------------------------------------

NU_EXPORT void *_nu_alloc_ptr(size_t size) {
    if (size == 0) return nullptr;
    return _nu_ext_malloc(size);
}

NU_EXPORT void _nu_free_ptr(void *p) {
    if (p != nullptr) _nu_ext_free(p);
}

NU_EXPORT void nu_destroystring(char *s) { _nu_free_ptr(s); }

// ---- arithmetic helpers -------------------------------------------------------------------

// Counts digits by dividing until the quotient falls below 1; the remainder of that last
// division (the leading digit) is the second result. A value whose quotient by the base is
// below 1 counts one digit, deliberately including every negative value: callers deal with
// the sign first.
template <typename T>
static int count_digits(T value, int base, T *remainder) {
    int digits = 1;
    T rem = value;
    if (base >= 2) {
        const T b = static_cast<T>(base);
        for (;;) {
            rem = value % b;
            value /= b;
            if (value < 1) break;
            ++digits;
        }
    }
    if (remainder != nullptr) *remainder = rem;
    return digits;
}

NU_EXPORT int _nu_digits(long long value, int base, long long *remainder) {
    return count_digits(value, base, remainder);
}

NU_EXPORT int _nu_udigits(unsigned long long value, int base, unsigned long long *remainder) {
    return count_digits(value, base, remainder);
}

NU_EXPORT long long _nu_ipow(long long base, int exp) {
    long long result = 1;
    for (int i = 0; i < exp; ++i) result *= base;
    return result;
}

NU_EXPORT double _nu_fpow(double x, int exp) {
    double result = 1.0;
    if (exp >= 0) {
        for (int i = 0; i < exp; ++i) result *= x;
    } else {
        for (int i = 0; i > exp; --i) result /= x;
    }
    return result;
}
