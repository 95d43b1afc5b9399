// The text form of the multi-level byte table: whatever _nu_fscanf_multi accepts must look up
// within the bytes it is given, write back, and read back to the same text, compressed or not.
#include "fuzz/fuzz.h"
#include "frame/frame.h"
#include "frame/multi.h"
#include "locale/locale.h"

namespace {

using nus_fuzz::Exact;

// Descriptors of the fuzzed size as two hexadecimal digits a byte, the way the conversion
// records and most of the library's descriptors are written.
unsigned g_desc_size = 1;

int hex_reader(FILE *stream, void *dest, unsigned int size) {
    auto *out = static_cast<unsigned char *>(dest);
    for (unsigned i = 0; i < size; ++i) out[i] = static_cast<unsigned char>(_nu_get_hex(stream, 2));
    return 0;
}

void hex_printer(FILE *stream, const void *desc) {
    const auto *p = static_cast<const unsigned char *>(desc);
    char text[2 * 8 + 1];
    for (unsigned i = 0; i < g_desc_size; ++i) std::snprintf(text + 2 * i, 3, "%02x", p[i]);
    _nu_ext_fwrite(text, 1, 2 * g_desc_size, stream);
}

void ub2_printer(FILE *stream, const void *desc) {
    uint16_t v;
    std::memcpy(&v, desc, sizeof v);
    char text[5];
    std::snprintf(text, sizeof text, "%04x", v);
    _nu_ext_fwrite(text, 1, 4, stream);
}

struct Kind {
    unsigned desc_size;
    nu_desc_reader reader;
    nu_desc_printer printer;
};

multi_t *read_table(const std::string &text, const Kind &kind, int *result) {
    static const unsigned char zeros[8] = {};
    multi_t *t = _nu_create_multi(kind.desc_size, 0, zeros);
    if (t == nullptr) return nullptr;
    FILE *f = fmemopen(const_cast<char *>(text.data()), text.size(), "r");
    if (f == nullptr) {
        *result = -1;
        return t;
    }
    *result = _nu_fscanf_multi(f, t, 4, kind.reader);
    std::fclose(f);
    return t;
}

std::string write_table(multi_t *t, const Kind &kind) {
    char *buffer = nullptr;
    size_t length = 0;
    FILE *f = open_memstream(&buffer, &length);
    if (f == nullptr) std::abort();
    _nu_fprintf_multi(f, t, kind.printer);
    std::fclose(f);
    std::string text(buffer, length);
    std::free(buffer);
    return text;
}

// The descriptor (as bytes) or "invalid"/"cut" for every probe, with the length walked.
std::string probe(const multi_t *t, nu_locale_t handle, const std::vector<std::string> &probes) {
    std::string out;
    for (const std::string &p : probes) {
        Exact bytes(p);
        int length = -7;
        *_nu_ext_errno(handle) = 0;
        const auto *desc = static_cast<const unsigned char *>(_nu_retrieve_text_multi_limit(
            bytes.get(), t, static_cast<int>(p.size()), &length, handle));
        NUS_FUZZ_CHECK(length >= 0 && length <= static_cast<int>(p.size()));
        NUS_FUZZ_CHECK(length <= MULTI_MAX_DEPTH);
        if (desc != nullptr) {
            out.append(reinterpret_cast<const char *>(desc), t->desc_size);
            // The length walked names a whole character: the keyed lookup agrees.
            multi_key key{length, {}};
            std::memcpy(key.bytes, p.data(), static_cast<size_t>(length));
            NUS_FUZZ_CHECK(_nu_retrieve_desc_multi(&key, t) == desc);
        } else {
            const int error = *_nu_ext_errno(handle);
            NUS_FUZZ_CHECK(error == NU_EILSEQ || error == NU_EINVAL);
            out += error == NU_EILSEQ ? "invalid" : "cut";
        }
        out += std::to_string(length) + ";";
        if (!p.empty()) {
            nu_wchar wc = 0;
            for (int i = 0; i < length; ++i) wc = wc << 8 | static_cast<unsigned char>(p[i]);
            (void)_nu_retrieve_wchar_multi_nl(handle, wc, t);
        }
    }
    return out;
}

} // namespace

NUS_FUZZ_TARGET(multi_table) {
    nus_fuzz::environment();
    const nu_locale_t handle = nus_fuzz::null_handle();
    nus_fuzz::Input in(data, size);
    const uint8_t mode = in.byte();
    Kind kind{2, nus::ub2_reader, ub2_printer};
    if ((mode & 0x80) == 0) {
        g_desc_size = 1 + (mode & 7);
        kind = Kind{g_desc_size, hex_reader, hex_printer};
    }
    // A few probe strings come first, the table text after them.
    std::vector<std::string> probes;
    const int probe_count = in.range(0, 4);
    for (int i = 0; i < probe_count; ++i) probes.push_back(in.bytes(in.range(0, 5)));
    const std::string text = in.rest();

    int result = -1;
    multi_t *t = read_table(text, kind, &result);
    if (t == nullptr) return 0;
    if (result != 0) {
        NUS_FUZZ_CHECK(t->err != 0);
        _nu_free_multi(t);
        return 0;
    }
    NUS_FUZZ_CHECK(t->err == 0);
    NUS_FUZZ_CHECK(t->max_length >= 0 && t->max_length <= MULTI_MAX_DEPTH);
    const std::string before = probe(t, handle, probes);

    // What was read writes back and reads back to the same text and the same lookups.
    const std::string first = write_table(t, kind);
    const std::string after_write = probe(t, handle, probes);
    int again = -1;
    multi_t *copy = read_table(first, kind, &again);
    NUS_FUZZ_CHECK(copy != nullptr && again == 0);
    NUS_FUZZ_CHECK(write_table(copy, kind) == first);
    NUS_FUZZ_CHECK(probe(copy, handle, probes) == after_write);
    _nu_free_multi(copy);

    // The same after compression (a table read compressed already shares its arrays).
    if ((t->flags & MULTI_COMPRESSED) == 0) {
        if (_nu_compress_multi(t) == 0) {
            NUS_FUZZ_CHECK(probe(t, handle, probes) == after_write);
            const std::string packed = write_table(t, kind);
            multi_t *unpacked = read_table(packed, kind, &again);
            NUS_FUZZ_CHECK(unpacked != nullptr && again == 0);
            NUS_FUZZ_CHECK(write_table(unpacked, kind) == packed);
            NUS_FUZZ_CHECK(probe(unpacked, handle, probes) == after_write);
            _nu_free_multi(unpacked);
        }
    }
    (void)before;
    _nu_free_multi(t);
    return 0;
}
