// The default conversions of the generated tree against glibc's iconv: every character of
// every source code set, real and generated text, round trips through UTF-8, and the mixed
// single/double-byte code set converted whole and in pieces split at every byte. Last, every
// kind of descriptor converting into every room, with the bytes after its output watched.
#include "support/utf8.h"
#include "convert/convert_test_util.h"
#include "convert/cv_rec.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <cerrno>
#include <fstream>
#include <iconv.h>
#include <map>
#include <random>
#include <sstream>
#include <vector>

using namespace nus_test;

namespace {

struct Pair {
    std::string from, to;            // iconv names
    std::string from_name, to_name;  // registry names (the conversion file's name)
};

std::string lower(std::string s) {
    for (char &c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

std::vector<std::vector<std::string>> lines_of(const std::string &file) {
    std::vector<std::vector<std::string>> out;
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);) {
        if (const size_t hash = line.find('#'); hash != std::string::npos) line.erase(hash);
        std::istringstream words(line);
        std::vector<std::string> w;
        for (std::string word; words >> word;) w.push_back(word);
        if (!w.empty()) out.push_back(w);
    }
    return out;
}

// The pairs the build compiles, from data/conversions, named as data/charmap-names says.
const std::vector<Pair> &default_pairs() {
    static const std::vector<Pair> pairs = [] {
        std::map<std::string, std::string> names;
        for (const auto &w : lines_of(std::string(NUS_SOURCE_DIR) + "/data/charmap-names"))
            if (w.size() == 2) names[lower(w[0])] = w[1];
        auto name_of = [&](const std::string &charmap) {
            auto it = names.find(lower(charmap));
            return it != names.end() ? it->second : lower(charmap);
        };
        std::vector<Pair> out;
        for (const auto &w : lines_of(std::string(NUS_SOURCE_DIR) + "/data/conversions")) {
            if (w.size() == 2) out.push_back({w[0], w[1], name_of(w[0]), name_of(w[1])});
            else if (w.size() == 5) out.push_back({w[1], w[2], w[3], w[4]});
        }
        return out;
    }();
    return pairs;
}

// A default conversion opened by its names from the generated tree.
Cv open_pair(const Pair &p) {
    EnvGuard root("TESSARONDIR", std::string(NUS_DATA_DIR) + "/");
    EnvGuard path("NU_PATH", std::nullopt);
    Cv cv;
    if (nu_iconv_open(cv.out(), p.to_name.c_str(), p.from_name.c_str()) != 0) return Cv();
    return cv;
}

class Iconv {
public:
    Iconv(const std::string &to, const std::string &from) : cd_(iconv_open(to.c_str(), from.c_str())) {}
    ~Iconv() {
        if (ok()) iconv_close(cd_);
    }
    Iconv(const Iconv &) = delete;
    Iconv &operator=(const Iconv &) = delete;
    bool ok() const { return cd_ != reinterpret_cast<iconv_t>(-1); }
    // The whole input converted and the state closed, or nothing.
    std::optional<std::string> operator()(const std::string &in) {
        iconv(cd_, nullptr, nullptr, nullptr, nullptr);
        std::string out(in.size() * 4 + 16, '\0');
        char *src = const_cast<char *>(in.data());
        size_t src_left = in.size();
        char *dst = out.data();
        size_t dst_left = out.size();
        if (iconv(cd_, &src, &src_left, &dst, &dst_left) == static_cast<size_t>(-1)) return std::nullopt;
        if (iconv(cd_, nullptr, nullptr, &dst, &dst_left) == static_cast<size_t>(-1)) return std::nullopt;
        out.resize(out.size() - dst_left);
        return out;
    }

private:
    iconv_t cd_;
};

using nus_test::utf8_of;

bool is_utf8(const std::string &name) { return lower(name) == "utf-8"; }
bool is_ucs2(const std::string &name) { return lower(name) == "ucs-2le"; }
bool is_mixed(const std::string &name) { return lower(name) == "ibm937"; }

// The code points of the UTF-8 charmap, the repertoire of the UTF-8 code set in the
// conversions the build compiles (a range "<U3400>..<U343F>" counts every code point in it).
const std::vector<bool> &utf8_repertoire() {
    static const std::vector<bool> known = [] {
        std::vector<bool> out(0x110000, false);
        FILE *in = popen("zcat /usr/share/i18n/charmaps/UTF-8.gz", "r");
        if (in == nullptr) return out;
        char line[512];
        bool body = false;
        while (std::fgets(line, sizeof line, in) != nullptr) {
            if (std::strncmp(line, "CHARMAP", 7) == 0) body = true;
            else if (std::strncmp(line, "END CHARMAP", 11) == 0) body = false;
            else if (body && line[0] == '<' && line[1] == 'U') {
                unsigned long first = std::strtoul(line + 2, nullptr, 16), last = first;
                if (const char *range = std::strstr(line, ">..<U")) last = std::strtoul(range + 5, nullptr, 16);
                for (unsigned long cp = first; cp <= last && cp < out.size(); ++cp) out[cp] = true;
            }
        }
        pclose(in);
        return out;
    }();
    return known;
}

// Every character of a source code set: the UTF-8 charmap's for UTF-8, else as iconv knows
// them (byte strings that convert to exactly one code point).
std::vector<std::string> characters_of(const std::string &code_set) {
    std::vector<std::string> out;
    if (is_utf8(code_set)) {
        for (uint32_t cp = 0; cp <= 0x10FFFF; ++cp)
            if (utf8_repertoire()[cp]) out.push_back(utf8_of(cp));
        return out;
    }
    Iconv to32("UTF-32LE", code_set);
    auto single = [&](const std::string &s) {
        auto r = to32(s);
        return r && r->size() == 4;
    };
    if (is_ucs2(code_set)) {
        for (unsigned u = 0; u <= 0xFFFF; ++u) {
            std::string s{static_cast<char>(u & 0xFF), static_cast<char>(u >> 8)};
            if (utf8_repertoire()[u] && single(s)) out.push_back(s);
        }
        return out;
    }
    for (unsigned b = 0; b < 256; ++b) {
        std::string s(1, static_cast<char>(b));
        if (single(s)) out.push_back(s);
    }
    for (unsigned b1 = 0x80; b1 < 256; ++b1) {
        for (unsigned b2 = 0; b2 < 256; ++b2) {
            std::string s{static_cast<char>(b1), static_cast<char>(b2)};
            if (single(s)) out.push_back(s);
        }
    }
    if (lower(code_set) == "euc-jp") {
        for (unsigned b2 = 0xA1; b2 < 0xFF; ++b2)
            for (unsigned b3 = 0xA1; b3 < 0xFF; ++b3) {
                std::string s{'\x8f', static_cast<char>(b2), static_cast<char>(b3)};
                if (single(s)) out.push_back(s);
            }
    }
    return out;
}

// The substitute nus writes for a character the target lacks: the target's SUB control.
std::string substitute_of(const std::string &target) {
    Iconv from8(target, "UTF-8");
    std::string sub = from8("\x1a").value_or("?");
    return sub;
}

struct Result {
    int result;
    std::string out;
    int irreversible;
};

Result nus_convert(nu_cv_t cv, const std::string &in) {
    std::string buffer(in.size() * 4 + 16, '\0');
    unsigned char *p = reinterpret_cast<unsigned char *>(const_cast<char *>(in.data()));
    unsigned char *o = reinterpret_cast<unsigned char *>(buffer.data());
    int length = static_cast<int>(in.size()), room = static_cast<int>(buffer.size()), irr = -1;
    const int r = nu_miconv(cv, &p, &length, &o, &room, &irr);
    buffer.resize(buffer.size() - static_cast<size_t>(room));
    return {r == 0 && length == 0 ? 0 : -1, buffer, irr};
}

// Reports at most a few differences of one kind, and how many there were.
class Differences {
public:
    explicit Differences(std::string what) : what_(std::move(what)) {}
    void add(const std::string &in, const std::string &detail) {
        if (++count_ <= 8) examples_ += "\n  " + hex(in) + ": " + detail;
    }
    ~Differences() { EXPECT_EQ(count_, 0) << what_ << examples_; }
    static std::string hex(const std::string &s) {
        std::string out;
        char b[4];
        for (unsigned char c : s) {
            std::snprintf(b, sizeof b, "%02x", c);
            out += b;
        }
        return out.empty() ? "(empty)" : out;
    }

private:
    std::string what_;
    std::string examples_;
    long count_ = 0;
};

#define OPEN_OR_SKIP(var, pair)                                                              \
    Cv var = open_pair(pair);                                                                \
    if (static_cast<nu_cv_t>(var) == nullptr) GTEST_SKIP() << "the generated tree has no " << (pair).from_name << "_" << (pair).to_name << ".cvo"

// Where iconv converts a character, nus writes the same bytes, and calls the conversion
// irreversible exactly when iconv's reverse conversion does not give the character back
// (iconv's own fallbacks such as U+FFE0 to Shift-JIS 8191, and the tag characters iconv drops).
// Where iconv cannot convert, nus writes the target's substitute, irreversibly.
TEST(Oracle, EveryCharacterOfEveryDefaultPairAgreesWithIconv) {
    ASSERT_GE(default_pairs().size(), 30u);
    for (const Pair &p : default_pairs()) {
        if (is_mixed(p.from)) continue;   // the mixed code set has its own tests below
        OPEN_OR_SKIP(cv, p);
        Iconv oracle(p.to, p.from), reverse(p.from, p.to);
        ASSERT_TRUE(oracle.ok() && reverse.ok()) << p.from << " -> " << p.to;
        const std::string sub = substitute_of(p.to);
        Differences differ(p.from + " -> " + p.to + ": nus and iconv disagree");
        long substituted = 0;
        for (const std::string &c : characters_of(p.from)) {
            const Result n = nus_convert(cv, c);
            const auto expected = oracle(c);
            // A 2-byte target writes a unit for every character: what iconv drops becomes
            // the substitute.
            if (expected && expected->empty() && is_ucs2(p.to)) {
                if (n.out != sub || n.irreversible != 1) differ.add(c, "dropped by iconv; nus " + Differences::hex(n.out));
            } else if (expected) {
                const int irreversible = reverse(*expected) == c ? 0 : 1;
                if (n.result != 0 || n.out != *expected || n.irreversible != irreversible)
                    differ.add(c, "nus " + (n.result != 0 ? std::string("fails") : Differences::hex(n.out)) +
                                      " irreversible " + std::to_string(n.irreversible) + "; iconv " +
                                      Differences::hex(*expected) + " irreversible " + std::to_string(irreversible));
            } else {
                ++substituted;
                if (n.result != 0 || n.out != sub || n.irreversible != 1)
                    differ.add(c, "iconv has none; nus " + Differences::hex(n.out) + " irreversible " +
                                      std::to_string(n.irreversible));
            }
        }
        // A pair between different repertoires substitutes; one into UTF-8 never does.
        if (is_utf8(p.to)) {
            EXPECT_EQ(substituted, 0) << p.from;
        }
    }
}

TEST(Oracle, Utf8OutsideTheCharmapIsRefused) {
    const Pair *p = nullptr;
    for (const Pair &q : default_pairs())
        if (is_utf8(q.from) && is_ucs2(q.to)) p = &q;
    ASSERT_NE(p, nullptr);
    OPEN_OR_SKIP(cv, *p);
    long known = 0;
    Differences differ("UTF-8 code points outside the charmap");
    for (uint32_t cp = 0; cp <= 0x10FFFF; ++cp) {
        if (cp >= 0xD800 && cp <= 0xDFFF) continue;
        const bool listed = utf8_repertoire()[cp];
        known += listed;
        const Result r = nus_convert(cv, utf8_of(cp));
        if ((r.result == 0) != listed) differ.add(utf8_of(cp), listed ? "refused" : "converted");
    }
    EXPECT_GT(known, 250000);
    // The 2-byte form has the same repertoire.
    const Pair *back = nullptr;
    for (const Pair &q : default_pairs())
        if (is_ucs2(q.from) && is_utf8(q.to)) back = &q;
    ASSERT_NE(back, nullptr);
    OPEN_OR_SKIP(ucs2, *back);
    for (uint32_t u = 0; u <= 0xFFFF; ++u) {
        if (u >= 0xD800 && u <= 0xDFFF) continue;
        const std::string s{static_cast<char>(u & 0xFF), static_cast<char>(u >> 8)};
        if ((nus_convert(ucs2, s).result == 0) != utf8_repertoire()[u]) differ.add(s, "2-byte form");
    }
}

TEST(Oracle, NusRefusesWhatIconvRefuses) {
    for (const Pair &p : default_pairs()) {
        if (is_utf8(p.from) || is_ucs2(p.from) || is_mixed(p.from)) continue;
        OPEN_OR_SKIP(cv, p);
        Iconv to32("UTF-32LE", p.from);
        Differences differ(p.from + ": nus accepts sequences iconv refuses");
        for (unsigned b1 = 0; b1 < 256; ++b1) {
            for (unsigned b2 = 0; b2 < 256; ++b2) {
                const std::string s{static_cast<char>(b1), static_cast<char>(b2)};
                if (to32(s)) continue;
                if (nus_convert(cv, s).result == 0) differ.add(s, "converted");
            }
        }
    }
}

TEST(Oracle, RoundTripsThroughUtf8) {
    for (const Pair &there : default_pairs()) {
        if (!is_utf8(there.to) || is_mixed(there.from)) continue;
        const auto back_pair = std::find_if(default_pairs().begin(), default_pairs().end(), [&](const Pair &q) {
            return q.from == there.to && q.to == there.from;
        });
        ASSERT_NE(back_pair, default_pairs().end()) << there.from;
        OPEN_OR_SKIP(forth, there);
        OPEN_OR_SKIP(back, *back_pair);
        Differences differ(there.from + " -> UTF-8 -> back is not the identity");
        for (const std::string &c : characters_of(there.from)) {
            const Result u = nus_convert(forth, c);
            if (u.result != 0 || u.irreversible != 0) continue;
            const Result r = nus_convert(back, u.out);
            if (r.result != 0 || r.out != c || r.irreversible != 0) differ.add(c, "back as " + Differences::hex(r.out));
        }
    }
}

// ---- text ------------------------------------------------------------------------------------

std::string word_list_text(const char *file, size_t limit) {
    std::ifstream in(std::string("/usr/share/dict/") + file);
    std::string text, word;
    while (text.size() < limit && std::getline(in, word)) text += word + " ";
    return text;
}

// Random text of a code set: words of ASCII letters and runs of its other characters.
std::string generated_text(const std::vector<std::string> &chars, size_t size, unsigned seed) {
    std::vector<std::string> wide;
    for (const std::string &c : chars)
        if (c.size() > 1 || static_cast<unsigned char>(c[0]) >= 0x80) wide.push_back(c);
    std::mt19937 rng(seed);
    std::string text;
    while (text.size() < size) {
        if (rng() % 3 == 0) {
            for (unsigned n = 2 + rng() % 6; n > 0; --n) text += static_cast<char>('a' + rng() % 26);
        } else {
            for (unsigned n = 1 + rng() % 8; n > 0 && !wide.empty(); --n) text += wide[rng() % wide.size()];
        }
        text += rng() % 5 == 0 ? ", " : " ";
    }
    return text;
}

TEST(Oracle, RealAndGeneratedTextAgreeWithIconv) {
    std::string words;
    for (const char *list : {"ngerman", "french", "spanish", "svenska", "words"})
        words += word_list_text(list, 200000);
    for (const Pair &p : default_pairs()) {
        if (is_mixed(p.from) || is_mixed(p.to)) continue;
        OPEN_OR_SKIP(cv, p);
        Iconv oracle(p.to, p.from);
        std::string text;
        if (is_utf8(p.from)) {
            // The words the target can hold, plus, for East Asian targets, generated text.
            Iconv to_target(p.to, "UTF-8");
            std::istringstream in(words);
            for (std::string w; in >> w;)
                if (to_target(w)) text += w + " ";
            Iconv target_to_utf8("UTF-8", p.to);
            if (!is_ucs2(p.to)) {
                if (auto more = target_to_utf8(generated_text(characters_of(p.to), 100000, 7))) text += *more;
            }
        } else if (is_ucs2(p.from)) {
            Iconv to_ucs2("UCS-2LE", "UTF-8");
            text = to_ucs2(word_list_text("ngerman", 100000)).value_or("");
        } else {
            std::vector<std::string> chars;
            for (const std::string &c : characters_of(p.from))
                if (oracle(c)) chars.push_back(c);
            text = generated_text(chars, 200000, 11);
        }
        ASSERT_FALSE(text.empty()) << p.from;
        const auto expected = oracle(text);
        ASSERT_TRUE(expected.has_value()) << p.from << " -> " << p.to;
        const Result n = nus_convert(cv, text);
        EXPECT_EQ(n.result, 0) << p.from << " -> " << p.to;
        Iconv reverse(p.from, p.to);
        EXPECT_EQ(n.irreversible, reverse(*expected) == text ? 0 : 1) << p.from << " -> " << p.to;
        EXPECT_TRUE(n.out == *expected) << p.from << " -> " << p.to << ": " << n.out.size() << " bytes, iconv "
                                        << expected->size();
    }
}

// ---- the mixed single/double-byte code set ------------------------------------------------------

const Pair *pair_of(const std::string &from, const std::string &to) {
    for (const Pair &p : default_pairs())
        if (lower(p.from) == lower(from) && lower(p.to) == lower(to)) return &p;
    return nullptr;
}

// Mixed text in the code set: letters, digits and runs of double-byte characters.
std::string mixed_text(size_t size, unsigned seed) {
    Iconv to_utf8("UTF-8", "IBM937");
    std::vector<std::string> dbcs;
    for (unsigned b1 = 0x40; b1 < 0xFF; ++b1)
        for (unsigned b2 = 0x40; b2 < 0xFF; ++b2) {
            const std::string s{'\x0e', static_cast<char>(b1), static_cast<char>(b2), '\x0f'};
            if (to_utf8(s)) dbcs.push_back(s.substr(1, 2));
        }
    std::mt19937 rng(seed);
    std::string text;
    while (text.size() < size) {
        if (rng() % 2 == 0) {
            for (unsigned n = 1 + rng() % 6; n > 0; --n) text += static_cast<char>("\xc1\xc2\xc3\x81\x82\xf1\xf2\x40"[rng() % 8]);
        } else {
            text += '\x0e';
            for (unsigned n = 1 + rng() % 5; n > 0; --n) text += dbcs[rng() % dbcs.size()];
            text += '\x0f';
        }
    }
    return text;
}

TEST(Stateful, EveryMixedCharacterAgreesWithIconv) {
    const Pair *p = pair_of("IBM937", "UTF-8");
    ASSERT_NE(p, nullptr);
    OPEN_OR_SKIP(cv, *p);
    Iconv oracle("UTF-8", "IBM937");
    Iconv reverse("IBM937", "UTF-8");
    Differences differ("IBM937 -> UTF-8");
    long characters = 0;
    for (unsigned b = 0; b < 256; ++b) {
        const std::string s(1, static_cast<char>(b));
        const auto expected = oracle(s);
        const Result n = nus_convert(cv, s);
        if (!expected) continue;
        ++characters;
        if (n.result != 0 || n.out != *expected) differ.add(s, Differences::hex(n.out) + " iconv " + Differences::hex(*expected));
    }
    for (unsigned b1 = 0; b1 < 256; ++b1)
        for (unsigned b2 = 0; b2 < 256; ++b2) {
            const std::string s{'\x0e', static_cast<char>(b1), static_cast<char>(b2), '\x0f'};
            const auto expected = oracle(s);
            const Result n = nus_convert(cv, s);
            if (!expected) {
                if (n.result == 0 && b1 != 0x0e && b1 != 0x0f && b2 != 0x0e && b2 != 0x0f)
                    differ.add(s, "nus converts what iconv refuses");
                continue;
            }
            ++characters;
            // A double-byte character is irreversible exactly when iconv does not give it
            // back (pairs with shift bytes inside are shift sequences, not characters).
            const bool character = b1 != 0x0e && b1 != 0x0f && b2 != 0x0e && b2 != 0x0f;
            const int irreversible = reverse(*expected) == s ? 0 : 1;
            if (n.result != 0 || n.out != *expected ||
                (character && n.irreversible != irreversible))
                differ.add(s, Differences::hex(n.out) + " irreversible " +
                                  std::to_string(n.irreversible) + "; iconv " +
                                  Differences::hex(*expected) + " irreversible " +
                                  std::to_string(irreversible));
        }
    EXPECT_GT(characters, 10000);
}

TEST(Stateful, MixedTextWholeAndInPiecesAgreesWithIconv) {
    const Pair *from = pair_of("IBM937", "UTF-8");
    const Pair *to = pair_of("UTF-8", "IBM937");
    ASSERT_TRUE(from != nullptr && to != nullptr);
    OPEN_OR_SKIP(decode, *from);
    OPEN_OR_SKIP(encode, *to);
    const std::string text = mixed_text(300, 5);
    const auto utf8 = Iconv("UTF-8", "IBM937")(text);
    ASSERT_TRUE(utf8.has_value());
    const auto ebcdic = Iconv("IBM937", "UTF-8")(*utf8);
    ASSERT_TRUE(ebcdic.has_value());

    const Result whole = nus_convert(decode, text);
    EXPECT_EQ(whole.result, 0);
    EXPECT_TRUE(whole.out == *utf8);
    const Result back = nus_convert(encode, *utf8);
    EXPECT_EQ(back.result, 0);
    EXPECT_EQ(Differences::hex(back.out), Differences::hex(*ebcdic));

    // Two pieces split at every byte: a character cut in two is reported and resubmitted.
    for (auto [cv, input, expected] : {std::tuple{static_cast<nu_cv_t>(decode), text, *utf8},
                                       std::tuple{static_cast<nu_cv_t>(encode), *utf8, *ebcdic}}) {
        // The last piece holds a character at least: flush closes the text after it.
        for (size_t cut = 0; cut < input.size(); ++cut) {
            nu_cv_state state{1, 0, 0, 0};
            std::string out(input.size() * 4 + 16, '\0');
            unsigned char *o = reinterpret_cast<unsigned char *>(out.data());
            int room = static_cast<int>(out.size()), irr;
            unsigned char *p = reinterpret_cast<unsigned char *>(input.data());
            int length = static_cast<int>(cut);
            const int first = nu_cv_mconv(cv, &state, &p, &length, &o, &room, &irr);
            if (first != 0) {
                EXPECT_EQ(*_nu_ext_errno(cv), NU_EINVAL) << cut;
            }
            state.reset = 0;
            state.flush = 1;
            length = static_cast<int>(input.size() - (p - reinterpret_cast<unsigned char *>(input.data())));
            EXPECT_EQ(nu_cv_mconv(cv, &state, &p, &length, &o, &room, &irr), 0) << cut;
            out.resize(out.size() - static_cast<size_t>(room));
            EXPECT_EQ(Differences::hex(out), Differences::hex(expected)) << cut;
        }
    }
}

} // namespace

// ---- nothing after the output changes ------------------------------------------------------------

namespace {

// How a text is handed over: with its length; without one (the text ends with its NUL); with
// a state that is reset but not flushed, so that a shifted target stays shifted at the end.
enum class Mode { counted, terminated, unflushed };

struct Canaried {
    int result = 0;
    int error = 0;
    int room = 0;
    std::string out;   // the bytes stored
    size_t counted = 0;   // how far the output moved on
};

// Converts into `room` bytes followed by a guard, all of them canaries beforehand; every byte
// after the stored output must still be a canary. (A target of 4-byte units counts its last
// unit whole when the room holds only part of it, and stores only that part.)
Canaried convert_canaried(nu_cv_t cv, const std::string &in, int room, Mode mode, const std::string &what) {
    constexpr char kCanary = '\xa5';
    std::string buffer(static_cast<size_t>(room) + 8, kCanary);
    unsigned char *p = reinterpret_cast<unsigned char *>(const_cast<char *>(in.data()));
    unsigned char *o = reinterpret_cast<unsigned char *>(buffer.data());
    int length = static_cast<int>(in.size()), irreversible = -1;
    nu_cv_state state{1, 0, 0, 0};
    Canaried c;
    c.room = room;
    *_nu_ext_errno(cv) = 0;
    c.result = nu_cv_mconv(cv, mode == Mode::unflushed ? &state : nullptr, &p,
                           mode == Mode::terminated ? nullptr : &length, &o, &c.room, &irreversible);
    c.error = *_nu_ext_errno(cv);
    c.counted = static_cast<size_t>(o - reinterpret_cast<unsigned char *>(buffer.data()));
    const size_t written = std::min(c.counted, static_cast<size_t>(room));
    c.out = buffer.substr(0, written);
    const size_t changed = buffer.find_first_not_of(kCanary, written);
    EXPECT_TRUE(changed == std::string::npos)
        << what << ", room " << room << ": " << written << " bytes written, byte " << changed
        << " after them changed";
    return c;
}

// Converted into every room from none to the whole output: the output is the whole
// conversion's beginning, the room goes down by what was written, and a conversion stops
// short only for want of room.
void every_room(nu_cv_t cv, const std::string &text, const std::string &what) {
    for (Mode mode : {Mode::counted, Mode::terminated, Mode::unflushed}) {
        // The NUL of a source of 2- or 4-byte units is a whole unit.
        const size_t nul = static_cast<size_t>(std::max(static_cast<const nu_cv_rec *>(cv)->source_min_len, 1));
        const std::string in = mode == Mode::terminated ? text + std::string(nul, '\0') : text;
        const std::string label = what + (mode == Mode::counted ? "" : mode == Mode::terminated ? " (to its NUL)" : " (unflushed)");
        const int big = static_cast<int>(in.size()) * 8 + 16;
        const Canaried whole = convert_canaried(cv, in, big, mode, label);
        ASSERT_EQ(whole.result, 0) << label << ": error " << whole.error;
        for (int room = 0; room <= static_cast<int>(whole.out.size()); ++room) {
            const Canaried c = convert_canaried(cv, in, room, mode, label);
            ASSERT_LE(c.out.size(), whole.out.size()) << label << ", room " << room;
            EXPECT_EQ(Differences::hex(c.out), Differences::hex(whole.out.substr(0, c.out.size())))
                << label << ", room " << room;
            EXPECT_EQ(c.room, room - static_cast<int>(c.counted)) << label << ", room " << room;
            if (c.result != 0) {
                EXPECT_EQ(c.error, NU_E2BIG) << label << ", room " << room;
            } else {
                EXPECT_EQ(c.counted, whole.out.size()) << label << ", room " << room;
            }
        }
    }
}

// The UTF-8 characters of a string, one string each.
std::vector<std::string> utf8_characters(const std::string &s) {
    std::vector<std::string> out;
    for (size_t i = 0; i < s.size();) {
        const unsigned char b = static_cast<unsigned char>(s[i]);
        const size_t n = b < 0x80 ? 1 : b < 0xE0 ? 2 : b < 0xF0 ? 3 : 4;
        out.push_back(s.substr(i, n));
        i += n;
    }
    return out;
}

// Short and long ASCII runs between characters of one to four bytes in UTF-8, from many
// scripts, so that every code set finds some of its own and some it lacks.
const std::string kSample =
    "Gr\xc3\xbc\xc3\x9f" "e aus K\xc3\xb6ln, na\xc3\xafve caf\xc3\xa9 \xe2\x80\x94 a\xc3\xa9" "b "
    "\xce\x95\xce\xbb\xce\xbb\xce\xb7\xce\xbd\xce\xb9\xce\xba\xce\xac, \xd0\xa0\xd1\x83\xd1\x81\xd1\x81\xd0\xba\xd0\xb8\xd0\xb9, "
    "\xd7\xa2\xd7\x91\xd7\xa8\xd7\x99\xd7\xaa, \xe0\xb9\x84\xe0\xb8\x97\xe0\xb8\xa2, "
    "\xe6\x97\xa5\xe6\x9c\xac\xe8\xaa\x9e\xe3\x81\xae\xe3\x83\x86\xe3\x82\xad\xe3\x82\xb9\xe3\x83\x88 "
    "\xef\xbd\xb6\xef\xbe\x80\xef\xbd\xb6\xef\xbe\x85, \xed\x95\x9c\xea\xb5\xad\xec\x96\xb4, "
    "\xe4\xb8\xad\xe6\x96\x87\xe7\xb9\x81\xe9\xab\x94\xe5\xad\x97, \xf0\x9f\x98\x80 and then a long plain run of ASCII text.";

// The sample in a source code set: the characters it has, converted together (so that a code
// set with shift states shifts around runs).
std::string sample_in(const std::string &code_set) {
    if (is_utf8(code_set)) return kSample;
    Iconv to(code_set, "UTF-8");
    std::string kept;
    for (const std::string &c : utf8_characters(kSample))
        if (auto converted = to(c); converted && !converted->empty()) kept += c;
    return to(kept).value_or("");
}

// The sample's characters other than ASCII, one at each position 0 to 17 of a run of 24
// ASCII characters, in a source code set: the runs that go sixteen and eight bytes at a time
// end at every place in a block, at a character above 0x7f or at an ASCII byte that does
// not convert to itself.
std::string runs_in(const std::string &code_set) {
    Iconv to(code_set, "UTF-8");
    std::vector<std::string> kept;
    for (const std::string &c : utf8_characters(kSample))
        if (static_cast<unsigned char>(c[0]) >= 0x80 && to(c).value_or("") != "") kept.push_back(c);
    if (kept.empty()) return "";
    // Backslash and tilde, which some code sets put other characters in place of, inside the
    // runs after the character.
    const bool odd_ascii = to("\\").value_or("") != "" && to("~").value_or("") != "";
    std::string text;
    for (size_t at = 0; at < 18; ++at) {
        std::string dots(24 - at, '.');
        if (odd_ascii) {
            dots[(at * 5) % dots.size()] = '\\';
            dots[(at * 3 + 1) % dots.size()] = '~';
        }
        text += std::string(at, static_cast<char>('a' + at)) + kept[at % kept.size()] + dots;
    }
    return to(text).value_or("");
}

// Every descriptor kind, the default conversions and the hand-made objects, converted into
// every room: nothing after the output changes (a caller may keep data there). Then a
// conversion that shrinks the text, done in place: the output never overtakes the input, so
// the text converts whole and what follows the output is the input as it was.
TEST(Output, NothingAfterTheOutputChangesAtAnyRoomNorInPlace) {
    for (const Pair &p : default_pairs()) {
        OPEN_OR_SKIP(cv, p);
        const std::string text = sample_in(p.from);
        ASSERT_GT(text.size(), 40u) << p.from;
        every_room(cv, text, p.from_name + " -> " + p.to_name);
        every_room(cv, runs_in(p.from), p.from_name + " -> " + p.to_name + ", runs");
    }
    const std::string mixed = "\xc1\x0e\x4c\x41\x40\x40\x0f\xc2\x0e\x4c\x41\x0f\x40\x0f\x0e\x0e\x4c\x42\x0f\xc1";
    const std::pair<const char *, std::string> fixtures[] = {
        {"sb.cvo", "abc 1 x\x80y and \x82 then a long run of plain text\x80"},
        {"mb.cvo", "plain ascii text \xa1\xa1" "a\xa1\xa2" "b\x8f\xa2\xaf\xa1\xa4 x\xa1\xa3 a long run of plain text"},
        {"le2src.cvo", std::string("A\0\xe9\0\0\x4e" "B\0A\0A\0\xe9\0\xe9\0", 16)},
        {"le4src.cvo", std::string("A\0\0\0\x00\xf6\x01\x00" "A\0\0\0A\0\0\0", 16)},
        {"le2tgt.cvo", "A\xc3\xa9\xe4\xb8\x80" "AA\xc3\xa9\xc3\xa9\xe4\xb8\x80"},
        {"le4tgt.cvo", "A\xf0\x9f\x98\x80" "AA\xf0\x9f\x98\x80"},
        {"ssrc.cvo", mixed + mixed},
        {"stgt.cvo", "A\xe4\xb8\x80\xe3\x80\x80" "B\xe4\xb8\x80 AB  A\xe3\x80\x80\xe4\xb8\x80"},
    };
    for (const auto &[name, text] : fixtures) {
        Cv cv = fixture(name);
        every_room(cv, text, name);
    }

    const Pair *p = pair_of("UTF-8", "ISO-8859-1");
    ASSERT_NE(p, nullptr);
    OPEN_OR_SKIP(cv, *p);
    std::string text = kSample.substr(0, kSample.find("\xce"));   // Latin-1 but for a dash
    for (const char *more : {"x\xc3\xa9y\xc3\xa9z ", "ab \xc3\x9f\xc3\x9f cd\xc3\xa4", "\xc3\xbc", " tail"}) text += more;
    const Canaried expected = convert_canaried(cv, text, static_cast<int>(text.size()), Mode::counted, "in place");
    ASSERT_EQ(expected.result, 0);
    ASSERT_LT(expected.out.size(), text.size());
    std::string buffer = text;
    unsigned char *in = reinterpret_cast<unsigned char *>(buffer.data()), *o = in;
    int length = static_cast<int>(buffer.size()), room = length, irreversible = -1;
    EXPECT_EQ(nu_miconv(cv, &in, &length, &o, &room, &irreversible), 0);
    const size_t written = static_cast<size_t>(o - reinterpret_cast<unsigned char *>(buffer.data()));
    EXPECT_EQ(Differences::hex(buffer.substr(0, written)), Differences::hex(expected.out));
    EXPECT_EQ(Differences::hex(buffer.substr(written)), Differences::hex(text.substr(written)));
}

} // namespace
