// The charmap reader of the data tools (plain or gzip-compressed text); a charmap it accepts
// answers lookups of every entry it holds.
#include "fuzz/fuzz.h"
#include "tools/common/charmap.h"

NUS_FUZZ_TARGET(charmap) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    const std::string path = nus_fuzz::write_scratch("fuzz.charmap", text);
    nus::tools::Charmap map;
    if (nus::tools::read_charmap(path, map)) return 0;
    NUS_FUZZ_CHECK(map.mb_cur_min >= 1 && map.mb_cur_min <= map.mb_cur_max);
    size_t checked = 0;
    for (const nus::tools::CharmapEntry &e : map.entries) {
        NUS_FUZZ_CHECK(!e.bytes.empty() && e.bytes.size() <= 4);
        if (++checked > 64) continue;
        NUS_FUZZ_CHECK(map.find(e.symbol) != nullptr);
        if (e.ucs) {
            NUS_FUZZ_CHECK(map.find_ucs(*e.ucs) != nullptr);
            (void)map.width(*e.ucs);
        }
    }
    return 0;
}
