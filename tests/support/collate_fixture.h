// Hand-made COLLATE sections for tests: a small description turned into the section's text
// form, and loaded into a handle in place of its COLLATE category.
#pragma once

#include "collate/collate.h"
#include "frame/handle.h"
#include "locale/locale.h"
#include "support/support.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace nus_test {

struct CollateFixture {
    std::string method = "as_specified";
    int weights_only = 0;
    std::vector<int> directions{1};                          // one word per level
    std::vector<std::pair<std::string, uint16_t>> chars;     // character bytes -> row
    std::vector<std::vector<uint16_t>> rows;                 // per row: a weight per level
    std::vector<std::pair<std::vector<nu_wchar>, uint16_t>> elements;   // characters, row
    std::vector<std::vector<nu_wchar>> expansions;
    int largest = -1;                                        // -1: the largest plain weight

    // Row r gets `weights` (one per level); returns r.
    uint16_t row(std::vector<uint16_t> weights) {
        rows.push_back(std::move(weights));
        return static_cast<uint16_t>(rows.size() - 1);
    }
    // Each byte of `bytes` becomes a one-byte character of row r.
    void map(const std::string &bytes, uint16_t r) {
        for (char c : bytes) chars.emplace_back(std::string(1, c), r);
    }

    std::string text() const {
        std::string out = method + "\n";
        if (method != "as_specified") return out;
        const uint16_t zero = 0;
        multi_t *table = _nu_create_multi(2, 0, &zero);
        for (const auto &[bytes, r] : chars) {
            multi_key key{static_cast<int32_t>(bytes.size()), {}};
            std::memcpy(key.bytes, bytes.data(), bytes.size());
            _nu_insert_desc_multi(&key, &r, table);
        }
        char *buffer = nullptr;
        size_t size = 0;
        FILE *stream = open_memstream(&buffer, &size);
        _nu_fprintf_multi(stream, table, [](FILE *s, const void *desc) {
            uint16_t v;
            std::memcpy(&v, desc, sizeof v);
            std::fprintf(s, "%04x", v);
        });
        std::fclose(stream);
        out.append(buffer, size);
        std::free(buffer);
        _nu_free_multi(table);

        int top = 2;
        for (const auto &weights : rows)
            for (uint16_t w : weights)
                if ((w & nus::kExpansionBit) == 0) top = std::max(top, w & 0x3FFF);
        char line[64];
        std::snprintf(line, sizeof line, "%d %d %d %d %d %d\n", weights_only,
                      static_cast<int>(rows.size()) - 1, static_cast<int>(directions.size()),
                      static_cast<int>(elements.size()), static_cast<int>(expansions.size()),
                      largest >= 0 ? largest : top);
        out += line;
        for (int d : directions) {
            std::snprintf(line, sizeof line, "%04x", d);
            out += line;
        }
        out += "\n";
        for (const auto &[wcs, r] : elements) {
            std::snprintf(line, sizeof line, "%x%04x", static_cast<unsigned>(wcs.size()), r);
            out += line;
            for (nu_wchar wc : wcs) {
                std::snprintf(line, sizeof line, " %08x", wc);
                out += line;
            }
            out += "\n";
        }
        for (const auto &wcs : expansions) {
            std::snprintf(line, sizeof line, "%x", static_cast<unsigned>(wcs.size()));
            out += line;
            for (nu_wchar wc : wcs) {
                std::snprintf(line, sizeof line, " %08x", wc);
                out += line;
            }
            out += "\n";
        }
        for (const auto &weights : rows) {
            for (uint16_t w : weights) {
                std::snprintf(line, sizeof line, " %04x", w);
                out += line;
            }
            out += "\n";
        }
        return out;
    }
};

// Replaces the COLLATE category of `h` by the section `text` (as it follows the section's
// marker line) and brings the handle's derived state up to date; the reader's result.
inline int load_collate(nu_locale_t h, const std::string &text) {
    nu_free_category(h, NU_COLLATE);
    nu_make_null_category(h, NU_COLLATE);
    FILE *stream = text_stream(text);
    const int result = nus::read_collate(stream, h);
    std::fclose(stream);
    const int ctype = nus::cat_index(NU_CTYPE), coll = nus::cat_index(NU_COLLATE);
    std::memcpy(h->codeset[coll], h->codeset[ctype], sizeof h->codeset[coll]);
    std::snprintf(h->locname[coll], sizeof h->locname[coll], "fixture");
    const int32_t error = h->error;
    nus::update_locale(h);
    if (result != 0) h->error = error;
    return result;
}

inline int load_collate(nu_locale_t h, const CollateFixture &f) { return load_collate(h, f.text()); }

} // namespace nus_test
