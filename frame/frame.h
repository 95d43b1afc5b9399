// Internal interface of the library frame: what every other folder of the library uses.
#pragma once

#include "nus.h"
#include "frame/handle.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

// Exported definitions carry this (the declarations in nus.h already do; it documents intent).
#define NU_EXPORT extern "C" __attribute__((visibility("default")))

// The static handles handed out when creation fails; never freed.
extern nu_locale_rec loc_nomem;
extern nu_locale_rec loc_filer;

namespace nus {

// Stores an error code in the error slot of a handle or conversion descriptor. A null handle
// has no slot unless an installed error lookup gives one: then the code goes nowhere.
inline void set_error(void *handle, int code) {
    if (int *slot = _nu_ext_errno(handle)) *slot = code;
}

// True for a null handle, after storing NU_EBADARG where an installed error lookup gives such
// a call a slot: the caller returns its failure value.
inline bool no_handle(const void *handle) {
    if (handle != nullptr) return false;
    set_error(nullptr, NU_EBADARG);
    return true;
}

// Stores NU_EBADARG (a required pointer is null) and answers true, for the caller's test.
inline bool bad_argument(void *handle) {
    set_error(handle, NU_EBADARG);
    return true;
}

// True when any of the pointers is null, after storing NU_EBADARG in the handle.
template <typename... P>
bool missing(void *handle, const P *...pointers) {
    return !((pointers != nullptr) && ...) && bad_argument(handle);
}

// Stores an error code when a handle was given (search functions accept a null handle).
inline void set_error_if(void *handle, int code) {
    if (handle != nullptr) set_error(handle, code);
}

// Allocates `count` objects of T through the library allocator; null on failure or count 0.
template <typename T>
T *alloc_array(size_t count) {
    static_assert(std::is_trivially_default_constructible_v<T>);
    if (count > SIZE_MAX / sizeof(T)) return nullptr;
    return static_cast<T *>(_nu_alloc_ptr(count * sizeof(T)));
}

// Like alloc_array, zero-filled.
template <typename T>
T *alloc_zeroed(size_t count) {
    T *p = alloc_array<T>(count);
    if (p != nullptr) std::memset(static_cast<void *>(p), 0, count * sizeof(T));
    return p;
}

// Owns memory from the library allocator; frees it through the frame.
template <typename T>
class Owned {
public:
    Owned() = default;
    explicit Owned(T *p) : p_(p) {}
    Owned(const Owned &) = delete;
    Owned &operator=(const Owned &) = delete;
    Owned(Owned &&o) noexcept : p_(o.release()) {}
    ~Owned() { _nu_free_ptr(const_cast<std::remove_const_t<T> *>(p_)); }
    T *get() const { return p_; }
    T *release() { return std::exchange(p_, nullptr); }
    explicit operator bool() const { return p_ != nullptr; }

private:
    T *p_ = nullptr;
};

// A buffer that lives on the stack up to N elements and comes from the library allocator
// above that. Check ok() before use.
template <typename T, size_t N>
class Scratch {
public:
    explicit Scratch(size_t count) : size_(count) {
        if (count > N) heap_ = alloc_array<T>(count);
    }
    Scratch(const Scratch &) = delete;
    Scratch &operator=(const Scratch &) = delete;
    ~Scratch() {
        if (heap_ != nullptr) _nu_free_ptr(heap_);
    }
    bool ok() const { return size_ <= N || heap_ != nullptr; }
    T *data() { return size_ <= N ? local_ : heap_; }
    size_t size() const { return size_; }

private:
    size_t size_;
    T *heap_ = nullptr;
    T local_[N];
};

// ---- buffered input of data files ---------------------------------------------------------
//
// While a locale file is loaded, its lines come through the external-function table's fgets
// into a block, and the readers take their characters from there instead of one fgetc call
// per character. A block is attached to one stream for the calling thread (BlockInput); the
// readers given that stream read from it, any other stream is read through fgetc as before.
// Only streams of the default file functions get a block (an embedding program that installs
// its own sees the calls it always saw); detaching seeks the stream back to the first byte
// not consumed, so the stream is left where the characters read leave it.
struct InputBlock {
    FILE *stream;
    unsigned char *pos;     // next byte
    unsigned char *end;     // end of the bytes read
    unsigned char *data;    // the block, after a byte of room for a pushed-back character
    size_t size;
    long offset;            // file offset of `end`
    size_t dirty;           // bytes at the start that may differ from a newline
    bool done;              // fgets met the end of the file or an error
    InputBlock *outer;      // the block attached before this one, restored on detach
};

// The block attached to `stream` for this thread, or null.
InputBlock *attached_input(FILE *stream);
// The next byte once the block is used up, or EOF.
int refill_input(InputBlock *in);

class BlockInput {
public:
    explicit BlockInput(FILE *stream);
    ~BlockInput();
    BlockInput(const BlockInput &) = delete;
    BlockInput &operator=(const BlockInput &) = delete;

private:
    InputBlock block_{};
    bool attached_ = false;
};

// Characters of one stream, through its block when it has one.
class Chars {
public:
    explicit Chars(FILE *stream) : stream_(stream), in_(attached_input(stream)) {}
    int get() {
        if (in_ == nullptr) return _nu_ext_fgetc(stream_);
        if (in_->pos < in_->end) return *in_->pos++;
        return refill_input(in_);
    }
    // Pushes back the character just read.
    void unget(int c) {
        if (c == EOF) return;
        if (in_ == nullptr) _nu_ext_ungetc(c, stream_);
        else *--in_->pos = static_cast<unsigned char>(c);
    }
    FILE *stream() const { return stream_; }
    // The stream's block, or null: readers parse a field straight from its unread bytes
    // when the field ends inside them.
    InputBlock *block() const { return in_; }

private:
    FILE *stream_;
    InputBlock *in_;
};

// fgets, ftell and fseek (SEEK_SET) of a stream that may have a block.
char *stream_gets(char *buffer, int size, FILE *stream);
long stream_tell(FILE *stream);
int stream_seek(FILE *stream, long offset);

// Field readers over Chars; the exported FILE forms call them.
inline int skip_whitespace(Chars &in) {
    int c;
    while ((c = in.get()) == ' ' || (c >= '\t' && c <= '\r')) {
    }
    in.unget(c);
    return c;
}

// A character that is no hexadecimal digit contributes its own code: data files rely on
// this (a table terminator's newline lands in a count).
inline uint32_t get_hex(Chars &in, int n) {
    uint32_t value = 0;
    if (n > 8) n = 8;
    for (int i = 0; i < n; ++i) {
        const int c = in.get();
        const int digit = c >= '0' && c <= '9'   ? c - '0'
                          : c >= 'a' && c <= 'f' ? c - 'a' + 10
                          : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                                 : -1;
        value = value * 16 + static_cast<uint32_t>(digit >= 0 ? digit : c);
    }
    return value;
}

// A decimal field read the way _nu_get_int reads it, reporting whether any digit was seen,
// so that readers of data files can tell garbage from a number.
bool read_decimal_field(Chars &in, long *value);
bool read_decimal(FILE *stream, long *value);

// The same; the usual field of data files (white space and up to nine digits, ending inside
// the block) is read here from memory.
inline bool read_decimal(Chars &in, long *value) {
    if (InputBlock *block = in.block()) {
        unsigned char *p = block->pos;
        unsigned char *const end = block->end;
        while (p < end && (*p == ' ' || (*p >= '\t' && *p <= '\r'))) ++p;
        if (p < end && *p >= '0' && *p <= '9') {
            unsigned char *const first = p;
            long v = 0;
            while (p < end && *p >= '0' && *p <= '9' && p - first < 9) v = v * 10 + (*p++ - '0');
            if (p < end && !(*p >= '0' && *p <= '9')) {
                block->pos = p;
                *value = v;
                return true;
            }
        }
    }
    return read_decimal_field(in, value);
}

// Table descriptor reader: four hexadecimal digits into a 16-bit value, no white space
// skipped (get_hex's rule for other characters); -1 when the value does not fit.
int ub2_reader(FILE *stream, void *dest, unsigned int size);

// Header lines of data files hold at most 127 characters.
inline constexpr int kHeaderLineSize = 128;
// One header line without its last character (the newline); false at the end of the file.
bool header_line(FILE *stream, char (&line)[kHeaderLineSize]);
// Reads and discards one whole line, however long; false when the file ends first.
bool skip_line(FILE *stream);

// Character classes of the "C" locale, independent of the process locale.
constexpr bool c_isspace(int c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
constexpr bool c_isdigit(int c) { return c >= '0' && c <= '9'; }

// "00" to "99", for writing numbers two digits at a time.
inline constexpr char kDigitPairs[201] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";
constexpr int c_hexvalue(int c) {
    return c >= '0' && c <= '9'   ? c - '0'
           : c >= 'a' && c <= 'f' ? c - 'a' + 10
           : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                  : -1;
}

// For each byte: its value as a hexadecimal digit, or -1 (kHexDigit); the digit's value
// or the byte's own code, get_hex's rule (kHexOrCode).
struct HexTables {
    int8_t digit[256];
    uint16_t or_code[256];
};
inline constexpr HexTables kHexTables = [] {
    HexTables t{};
    for (int c = 0; c < 256; ++c) {
        t.digit[c] = static_cast<int8_t>(c_hexvalue(c));
        t.or_code[c] = static_cast<uint16_t>(c_hexvalue(c) >= 0 ? c_hexvalue(c) : c);
    }
    return t;
}();

// White space, then get_hex(in, 4): from memory when the block holds the field.
[[gnu::always_inline]] inline uint32_t spaced_hex4(Chars &in) {
    if (InputBlock *block = in.block()) {
        unsigned char *p = block->pos;
        unsigned char *const end = block->end;
        while (p < end && c_isspace(*p)) ++p;
        if (end - p >= 4) {
            const uint16_t *code = kHexTables.or_code;
            const uint32_t value = ((uint32_t{code[p[0]]} * 16 + code[p[1]]) * 16 + code[p[2]]) * 16 + code[p[3]];
            block->pos = p + 4;
            return value;
        }
    }
    skip_whitespace(in);
    return get_hex(in, 4);
}

// Installation root used when TESSARONDIR is not set.
inline constexpr const char kDefaultRoot[] = "/usr/tessaron/";

} // namespace nus

namespace nus {
// Diagnostics read NUSLOG and NUSDEBUG once; tests and long-lived callers may ask for a
// fresh read.
void reset_debug_state();
// Formats a message into a stack buffer and passes it to nu_message.
void messagef(const char *format, ...) __attribute__((format(printf, 1, 2)));
} // namespace nus

namespace nus {
// 1 when a name holds the byte 0xFF, which stands for "/".
bool has_path_cookie(const char *name);
} // namespace nus
