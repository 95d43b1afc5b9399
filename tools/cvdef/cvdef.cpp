// The conversion compiler's pairing (from charmaps or iconv) and its writer.
#include "tools/cvdef/cvdef.h"

#include "nus.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <iconv.h>
#include <unordered_set>

namespace nus::tools {

namespace {

// ---- records and the writer --------------------------------------------------------------

void print_record(FILE *stream, const void *desc) {
    const unsigned char *rec = static_cast<const unsigned char *>(desc);
    std::fprintf(stream, "%02x", rec[0]);
    for (int i = 1; i <= (rec[0] & 7); ++i) std::fprintf(stream, "%02x", rec[i]);
}

struct TableOwner {
    multi_t *t;
    ~TableOwner() { _nu_free_multi(t); }
};

std::optional<std::string> write_table(FILE *out, const std::vector<CvChar> &chars,
                                       int target_max) {
    const unsigned char zero[5] = {};
    TableOwner table{_nu_create_multi(static_cast<unsigned>(target_max) + 1, 0, zero)};
    if (table.t == nullptr) return "out of memory";
    for (const CvChar &c : chars) {
        if (c.source.empty() || c.source.size() > 4 || c.target.size() > 4)
            return "a character of " + std::to_string(c.source.size()) + " bytes to " +
                   std::to_string(c.target.size()) + " cannot be written";
        multi_key key{static_cast<int32_t>(c.source.size()), {0, 0, 0, 0}};
        std::memcpy(key.bytes, c.source.data(), c.source.size());
        unsigned char rec[5] = {};
        rec[0] = static_cast<unsigned char>(c.flags | c.target.size());
        std::memcpy(rec + 1, c.target.data(), c.target.size());
        if (_nu_insert_desc_multi(&key, rec, table.t) != 0 && c.listed)
            return "a character is also the start of a longer one";
    }
    if (_nu_compress_multi(table.t) != 0) return "out of memory";
    _nu_fprintf_multi(out, table.t, print_record);
    return std::nullopt;
}

std::string hex_sequence(const std::string &bytes) {
    char text[16];
    std::snprintf(text, sizeof text, "%zx", bytes.size());
    std::string out = text;
    for (unsigned char b : bytes) {
        std::snprintf(text, sizeof text, "%02x", b);
        out += text;
    }
    return out;
}

// Lengths and flags that follow from the characters.
void finish(Conversion &c) {
    int smin = 4, smax = 0, tmin = 4, tmax = 0;
    for (const auto *list : {&c.initial, &c.shifted}) {
        for (const CvChar &ch : *list) {
            const int s = static_cast<int>(ch.source.size());
            const int t = static_cast<int>(ch.target.size());
            smin = std::min(smin, s);
            smax = std::max(smax, s);
            if (t > 0) {
                tmin = std::min(tmin, t);
                tmax = std::max(tmax, t);
            }
        }
    }
    c.source_min = smax == 0 ? 1 : smin;
    c.source_max = std::max(smax, 1);
    c.target_min = tmax == 0 ? 1 : tmin;
    c.target_max = std::max(tmax, 1);
}

std::string lower_alnum(const std::string &name) {
    std::string out;
    for (char ch : name)
        if (std::isalnum(static_cast<unsigned char>(ch)))
            out += static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    return out;
}

// ---- iconv -------------------------------------------------------------------------------

enum class Outcome { ok, illegal, incomplete };

class Iconv {
public:
    Iconv(const std::string &to, const std::string &from)
        : cd_(iconv_open(to.c_str(), from.c_str())) {}
    ~Iconv() {
        if (ok()) iconv_close(cd_);
    }
    Iconv(const Iconv &) = delete;
    Iconv &operator=(const Iconv &) = delete;
    bool ok() const { return cd_ != reinterpret_cast<iconv_t>(-1); }

    // Converts `in` from the initial state and returns the target to its initial state.
    Outcome convert(const std::string &in, std::string &out) {
        iconv(cd_, nullptr, nullptr, nullptr, nullptr);
        char buffer[64];
        char *src = const_cast<char *>(in.data());
        size_t src_left = in.size();
        char *dst = buffer;
        size_t dst_left = sizeof buffer;
        if (iconv(cd_, &src, &src_left, &dst, &dst_left) == static_cast<size_t>(-1)) {
            return errno == EINVAL ? Outcome::incomplete : Outcome::illegal;
        }
        if (iconv(cd_, nullptr, nullptr, &dst, &dst_left) == static_cast<size_t>(-1)) {
            return Outcome::illegal;
        }
        out.assign(buffer, static_cast<size_t>(dst - buffer));
        return Outcome::ok;
    }

private:
    iconv_t cd_;
};

enum class Kind { utf8, fixed2, fixed4, mixed, other };

std::optional<std::string> kind_of(const std::string &name, Kind &kind) {
    const std::string n = lower_alnum(name);
    if (n == "utf8") {
        kind = Kind::utf8;
        return std::nullopt;
    }
    const bool two = n.rfind("ucs2", 0) == 0 || n.rfind("utf16", 0) == 0;
    const bool four = n.rfind("ucs4", 0) == 0 || n.rfind("utf32", 0) == 0;
    if (two || four) {
        if (n.size() < 2 || n.compare(n.size() - 2, 2, "le") != 0)
            return name + ": fixed-width Unicode forms are read and written little-endian; name the LE form";
        kind = two ? Kind::fixed2 : Kind::fixed4;
        return std::nullopt;
    }
    Iconv probe("UTF-8", name);
    if (!probe.ok()) return "iconv does not know the code set \"" + name + "\"";
    std::string out;
    // Shift-out and shift-in alone convert to nothing in a mixed code set.
    kind = probe.convert("\x0e\x0f", out) == Outcome::ok && out.empty() ? Kind::mixed : Kind::other;
    return std::nullopt;
}

uint32_t code_point_of(const std::string &key) {
    uint32_t cp = 0;
    for (unsigned char b : key) cp = (cp << 8) | b;
    return cp;
}

std::string unit(uint32_t value, int width, bool little) {
    std::string s;
    for (int i = width - 1; i >= 0; --i) s += static_cast<char>((value >> (8 * i)) & 0xFF);
    if (little) std::reverse(s.begin(), s.end());
    return s;
}

// A source character as iconv sees it and as the table is keyed.
struct SourceChar {
    std::string bytes;   // what iconv converts
    std::string key;     // the table's key
    bool shifted = false;
};

// Every candidate character of the source code set.
std::vector<SourceChar> candidates(Kind kind, const Charmap *utf8) {
    std::vector<SourceChar> out;
    switch (kind) {
    case Kind::utf8:
        if (utf8 != nullptr) {
            for (const CharmapEntry &e : utf8->entries) out.push_back({e.bytes, e.bytes});
            break;
        }
        for (uint32_t cp = 0; cp <= 0x10FFFF; ++cp) {
            if (cp >= 0xD800 && cp <= 0xDFFF) continue;
            const std::string s = utf8_bytes(cp);
            out.push_back({s, s});
        }
        break;
    case Kind::fixed2:
        for (uint32_t u = 0; u <= 0xFFFF; ++u) out.push_back({unit(u, 2, true), unit(u, 2, false)});
        break;
    case Kind::fixed4:
        for (uint32_t u = 0; u <= 0x10FFFF; ++u) {
            if (u >= 0xD800 && u <= 0xDFFF) continue;
            out.push_back({unit(u, 4, true), unit(u, 4, false)});
        }
        break;
    case Kind::mixed:
        for (unsigned b = 0; b < 256; ++b) {
            if (b == 0x0E || b == 0x0F) continue;
            const std::string s(1, static_cast<char>(b));
            out.push_back({s, s});
        }
        for (unsigned b1 = 0; b1 < 256; ++b1) {
            if (b1 == 0x0E || b1 == 0x0F) continue;
            for (unsigned b2 = 0; b2 < 256; ++b2) {
                if (b2 == 0x0E || b2 == 0x0F) continue;
                const std::string key{static_cast<char>(b1), static_cast<char>(b2)};
                out.push_back({"\x0e" + key, key, true});
            }
        }
        break;
    case Kind::other:
        break;
    }
    return out;
}

} // namespace

double expansion_of(const Conversion &c) {
    double most = 0.0;
    for (const auto *list : {&c.initial, &c.shifted}) {
        for (const CvChar &ch : *list) {
            if (ch.source.empty()) continue;
            double bytes = static_cast<double>(ch.target.size());
            if (ch.flags & kRecTargetShifted) bytes += c.shift_out.size() + c.shift_in.size();
            most = std::max(most, bytes / static_cast<double>(ch.source.size()));
        }
    }
    return most;
}

std::optional<std::string> conversion_from_charmaps(const Charmap &from, const Charmap &to,
                                                    Conversion &out) {
    out = Conversion{};
    const CharmapEntry *sub = to.find_ucs(0x1A);
    if (sub == nullptr) sub = to.find_ucs('?');
    if (sub == nullptr) return "the target code set has neither SUB nor \"?\" to substitute";
    // The system's converters, when they know both code sets, give what the charmaps leave
    // open: their own mappings of characters the target lacks by name (U+005C to Shift-JIS
    // 5c, U+FFE0 to 8191), and characters of the source that its charmap does not list.
    Iconv forth(to.code_set_name, from.code_set_name);
    Iconv back(from.code_set_name, to.code_set_name);
    const bool consult = forth.ok() && back.ok();
    // Source characters met, by their bytes (at most four) and length.
    std::unordered_set<uint64_t> seen;
    seen.reserve(from.entries.size() * 2);
    auto key_of = [](const std::string &bytes) {
        uint64_t k = bytes.size();
        for (unsigned char b : bytes) k = (k << 8) | b;
        return k | (uint64_t{bytes.size()} << 40);
    };
    auto add = [&](const std::string &bytes, const CharmapEntry *target, bool listed) {
        CvChar c;
        c.source = bytes;
        c.listed = listed;
        std::string converted, returned;
        if (target != nullptr) {
            c.target = target->bytes;
        } else if (consult && forth.convert(bytes, converted) == Outcome::ok) {
            c.target = converted;
            // Irreversible unless the reverse conversion gives the character back.
            if (back.convert(converted, returned) != Outcome::ok || returned != bytes)
                c.flags |= kRecSubstitute;
        } else {
            c.target = sub->bytes;
            c.flags |= kRecSubstitute;
            ++out.substituted;
        }
        if (bytes.find_first_not_of('\0') == std::string::npos &&
            static_cast<int>(bytes.size()) == from.mb_cur_min) {
            c.flags |= kRecEnd;
        }
        out.initial.push_back(std::move(c));
    };
    for (const CharmapEntry &e : from.entries) {
        if (!seen.insert(key_of(e.bytes)).second) continue;
        const CharmapEntry *t = e.ucs ? to.find_ucs(*e.ucs) : nullptr;
        if (t == nullptr) t = to.find(e.symbol);
        add(e.bytes, t, true);
    }
    // UTF-8 has the characters of its charmap; the other multibyte code sets may have more.
    Iconv to32("UTF-32LE", from.code_set_name);
    if (consult && to32.ok() && from.mb_cur_max > 1 && lower_alnum(from.code_set_name) != "utf8") {
        std::string ignored;
        auto single = [&](const std::string &s) {
            return to32.convert(s, ignored) == Outcome::ok && ignored.size() == 4;
        };
        for (unsigned b1 = 0x80; b1 < 0x100; ++b1) {
            for (unsigned b2 = 0; b2 < 0x100; ++b2) {
                const std::string two{static_cast<char>(b1), static_cast<char>(b2)};
                if (from.mb_cur_max >= 3 && (b1 == 0x8E || b1 == 0x8F) && b2 >= 0xA1) {
                    for (unsigned b3 = 0xA1; b3 < 0xFF; ++b3) {
                        const std::string three = two + static_cast<char>(b3);
                        if (!seen.count(key_of(three)) && single(three)) {
                            seen.insert(key_of(three));
                            add(three, nullptr, false);
                        }
                    }
                }
                if (!seen.count(key_of(two)) && single(two)) {
                    seen.insert(key_of(two));
                    add(two, nullptr, false);
                }
            }
        }
    }
    if (out.initial.empty()) return "the source charmap has no characters";
    finish(out);
    return std::nullopt;
}

std::optional<std::string> conversion_from_iconv(const std::string &from, const std::string &to,
                                                 Conversion &out, const Charmap *utf8) {
    out = Conversion{};
    Kind source_kind, target_kind;
    if (auto e = kind_of(from, source_kind)) return e;
    if (auto e = kind_of(to, target_kind)) return e;
    if (source_kind == Kind::other)
        return from + ": only UTF-8, fixed-width Unicode forms and mixed shift-out/shift-in code sets can be enumerated";
    Iconv cd(to, from);
    Iconv reverse(from, to);
    Iconv valid("UTF-8", from);
    if (!cd.ok() || !reverse.ok() || !valid.ok()) return "iconv cannot convert from " + from + " to " + to;

    const bool fixed_target = target_kind == Kind::fixed2 || target_kind == Kind::fixed4;
    const bool mixed_target = target_kind == Kind::mixed;
    // The target's substitute: its SUB control.
    Iconv from_utf8(to, "UTF-8");
    std::string sub;
    if (!from_utf8.ok() || from_utf8.convert("\x1a", sub) != Outcome::ok || sub.empty())
        return to + " has no SUB control to substitute";
    if (fixed_target) std::reverse(sub.begin(), sub.end());

    out.source_stateful = source_kind == Kind::mixed;
    out.target_stateful = mixed_target;
    if (mixed_target) {
        out.shift_out = "\x0e";
        out.shift_in = "\x0f";
    }
    std::string converted, check;
    for (const SourceChar &s : candidates(source_kind, utf8)) {
        // Every scalar value is a character of UTF-8; other sources are asked.
        if (source_kind != Kind::utf8 && valid.convert(s.bytes, check) != Outcome::ok) continue;
        // Unicode forms have the characters UTF-8 has.
        if ((source_kind == Kind::fixed2 || source_kind == Kind::fixed4) && utf8 != nullptr &&
            utf8->find_ucs(code_point_of(s.key)) == nullptr) {
            continue;
        }
        CvChar c;
        c.source = s.key;
        if (cd.convert(s.bytes, converted) == Outcome::ok) {
            // Irreversible unless the reverse conversion gives the character back (a
            // shifted character comes back closed by its shift-in).
            const std::string back = s.shifted ? s.bytes + '\x0f' : s.bytes;
            if (reverse.convert(converted, check) != Outcome::ok || check != back)
                c.flags |= kRecSubstitute;
            if (mixed_target && converted.size() >= 3 && converted.front() == '\x0e' &&
                converted.back() == '\x0f') {
                converted = converted.substr(1, converted.size() - 2);
                c.flags |= kRecTargetShifted;
            }
            if (fixed_target) std::reverse(converted.begin(), converted.end());
            c.target = converted;
            // A fixed-width target writes one unit for every character: what iconv drops
            // becomes the substitute.
            if (fixed_target && converted.empty()) {
                c.target = sub;
                c.flags |= kRecSubstitute;
            }
        } else {
            c.target = sub;
            c.flags |= kRecSubstitute;
            ++out.substituted;
        }
        if (s.key.find_first_not_of('\0') == std::string::npos && !s.shifted) c.flags |= kRecEnd;
        (s.shifted ? out.shifted : out.initial).push_back(std::move(c));
    }
    if (out.source_stateful) {
        // Shift-out enters the second table, shift-in leaves it; each is a character that
        // writes nothing where its state is already in force.
        out.initial.push_back({"\x0e", "", static_cast<unsigned char>(kRecValid | kRecSourceShift)});
        out.initial.push_back({"\x0f", "", kRecValid});
        out.shifted.push_back({"\x0f", "", static_cast<unsigned char>(kRecValid | kRecSourceShift)});
        out.shifted.push_back({"\x0e", "", kRecValid});
    }
    if (out.initial.empty()) return "iconv converts no character from " + from;
    finish(out);
    return std::nullopt;
}

std::optional<std::string> write_conversion(FILE *out, const Conversion &c,
                                            const std::vector<std::string> &header) {
    std::fprintf(out, "FILE_TYPE=codeset_conversion_object\nCOMPILER_VERSION=%s\nHEADER_LENGTH=%zu\n",
                 nu_cv_version(), header.size() + 3);
    for (const std::string &line : header) std::fprintf(out, "%s\n", line.c_str());
    std::fprintf(out, "%d %d\n", c.source_stateful ? 1 : 0, c.target_stateful ? 1 : 0);
    std::fprintf(out, "%s %s 0 0\n", hex_sequence(c.shift_out).c_str(), hex_sequence(c.shift_in).c_str());
    // The byte table is asked for (0) in single-byte conversions only.
    const int byte_table = c.source_max == 1 && c.target_max == 1 ? 0 : 1;
    std::fprintf(out, "%d %d 0 0 %d %d %d\n", c.target_min, c.target_max, c.source_min,
                 c.source_max, byte_table);
    std::fprintf(out, "%g\n", expansion_of(c));
    if (auto e = write_table(out, c.initial, c.target_max)) return e;
    if (c.source_stateful) {
        if (auto e = write_table(out, c.shifted, c.target_max)) return e;
    }
    return std::nullopt;
}

} // namespace nus::tools
