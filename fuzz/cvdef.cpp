// The conversion compiler's inputs: two charmaps (the first ends at its END CHARMAP line)
// paired by character name. A conversion it compiles must open in the library and convert
// the source's characters to the bytes it paired them with.
#include "fuzz/conversion.h"
#include "tools/cvdef/cvdef.h"

NUS_FUZZ_TARGET(cvdef) {
    nus_fuzz::environment();
    const std::string text(reinterpret_cast<const char *>(data), size);
    const std::string marker = "END CHARMAP\n";
    const size_t split = text.find(marker);
    if (split == std::string::npos) return 0;
    const std::string first = text.substr(0, split + marker.size());
    const std::string second = text.substr(split + marker.size());

    nus::tools::Charmap from, to;
    if (nus::tools::read_charmap(nus_fuzz::write_scratch("from.charmap", first), from)) return 0;
    if (nus::tools::read_charmap(nus_fuzz::write_scratch("to.charmap", second), to)) return 0;
    // Names the system's converters do not know: the pairing comes from the charmaps alone
    // (enumerating a real code set through iconv takes far longer than one input may).
    from.code_set_name = "nus-fuzz-from";
    to.code_set_name = "nus-fuzz-to";
    nus::tools::Conversion conversion;
    if (nus::tools::conversion_from_charmaps(from, to, conversion)) return 0;

    char *buffer = nullptr;
    size_t length = 0;
    FILE *out = open_memstream(&buffer, &length);
    if (out == nullptr) std::abort();
    const auto written = nus::tools::write_conversion(out, conversion, {});
    std::fclose(out);
    const std::string object(buffer, length);
    std::free(buffer);
    if (written) return 0;

    const std::string path = nus_fuzz::write_scratch("fuzz.cvo", object);
    nu_cv_t cv = nullptr;
    const int opened = nu_iconv_open1(&cv, path.c_str());
    NUS_FUZZ_CHECK(opened == 0);
    const bool fixed = (conversion.source_min == conversion.source_max &&
                        (conversion.source_max == 2 || conversion.source_max == 4)) ||
                       (conversion.target_min == conversion.target_max &&
                        (conversion.target_max == 2 || conversion.target_max == 4));
    if (!fixed && !conversion.source_stateful && !conversion.target_stateful) {
        size_t checked = 0;
        for (const nus::tools::CvChar &c : conversion.initial) {
            if (!c.listed || c.source.empty() || ++checked > 32) continue;
            const nus_fuzz::Call call = nus_fuzz::convert_piece(cv, nullptr, c.source, 16);
            NUS_FUZZ_CHECK(call.result == 0);
            NUS_FUZZ_CHECK(call.output == c.target);
        }
    }
    nu_cv_unload(cv);
    return 0;
}
