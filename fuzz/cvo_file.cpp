// Conversion object files: opened from a file of the fuzzer's bytes; a file that opens is then
// used for conversions in pieces.
#include "fuzz/conversion.h"

NUS_FUZZ_TARGET(cvo_file) {
    nus_fuzz::environment();
    nus_fuzz::Input in(data, size);
    const uint8_t mode = in.byte();
    // The conversion text to try comes first, behind its length.
    const std::string sample = in.piece();
    const std::string path = nus_fuzz::write_scratch("fuzz.cvo", in.rest());

    nu_cv_t cv = nullptr;
    const int result = nu_iconv_open1(&cv, path.c_str());
    if (result != 0) {
        NUS_FUZZ_CHECK(result == -1);
        NUS_FUZZ_CHECK(cv != nullptr);
        nu_cv_unload(cv);
        return 0;
    }
    (void)nu_iconv_expansion(cv);
    (void)nu_cv_outbuflen(cv, 100);
    nus_fuzz::Input text(reinterpret_cast<const uint8_t *>(sample.data()), sample.size());
    nus_fuzz::convert_in_pieces(cv, text, (mode & 1) != 0, (mode & 2) != 0);
    NUS_FUZZ_CHECK(nu_cv_unload(cv) == 0);
    return 0;
}
