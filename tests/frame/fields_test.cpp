// Text-field readers and character descriptors.
#include "frame/frame.h"
#include "support/support.h"

#include <gtest/gtest.h>

#include <clocale>
#include <climits>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

using nus_test::rest_of;
using nus_test::text_stream;

namespace {

// Runs a reader over `text` and returns its result and what it left unread.
template <typename Reader>
auto read_and_rest(const std::string &text, Reader reader) {
    FILE *f = text_stream(text);
    auto value = reader(f);
    std::string rest = rest_of(f);
    std::fclose(f);
    return std::make_pair(value, rest);
}

} // namespace

TEST(Fields, Integers) {
    EXPECT_EQ(read_and_rest("   -12x", _nu_get_int), std::make_pair(-12L, std::string("x")));
    EXPECT_EQ(read_and_rest("\n\t+7 8", _nu_get_int), std::make_pair(7L, std::string(" 8")));
    EXPECT_EQ(read_and_rest("0042", _nu_get_int), std::make_pair(42L, std::string()));
    // The first character is kept whatever it is.
    EXPECT_EQ(read_and_rest("x12 ", _nu_get_int), std::make_pair(0L, std::string(" ")));
    // 45 digits: the first 40 characters are converted (saturating) and all 45 consumed.
    EXPECT_EQ(read_and_rest(std::string(45, '9') + ";", _nu_get_int),
              std::make_pair(LONG_MAX, std::string(";")));
    EXPECT_EQ(read_and_rest("-" + std::string(39, '0') + "123", _nu_get_int),
              std::make_pair(0L, std::string()));
    EXPECT_EQ(read_and_rest("", _nu_get_int).first, 0L);
}

TEST(Fields, DecimalReaderTellsDigitsFromGarbage) {
    auto strict = [](FILE *f) {
        long value = -1;
        bool ok = nus::read_decimal(f, &value);
        return std::make_pair(ok, value);
    };
    EXPECT_EQ(read_and_rest(" 17 ", strict).first, std::make_pair(true, 17L));
    EXPECT_EQ(read_and_rest("-3", strict).first, std::make_pair(true, -3L));
    EXPECT_EQ(read_and_rest("x3", strict).first.first, false);
    EXPECT_EQ(read_and_rest("-", strict).first.first, false);
    EXPECT_EQ(read_and_rest("", strict).first.first, false);
    EXPECT_EQ(read_and_rest("  \n", strict).first.first, false);
}

// The loaders read through a block of lines (BlockInput): every field reader must give what
// it gives character by character, and leave the stream where those characters leave it.
// The texts put fields across the places where a block ends: lines longer than one fgets
// call, NUL bytes inside lines, a last line without newline, runs of digits past every limit.
TEST(Fields, BlockReadingAgreesWithCharacterReading) {
    using namespace std::string_literals;
    const std::string texts[] = {
        "1 2 3\n-4 +5 x 6\n0041 00e9\n",
        "12345678901234567890 123456789 1234567890 -9223372036854775809\n",
        "10 2\0 30\n4\0\n 99"s,
        "  \t\r\n 42",
        std::string(4200, ' ') + "17 " + std::string(60, '9') + "\n5 abcd\n",
        std::string(4093, '0') + "123 4\n" + std::string(5000, '1') + "\n",
        "5\n" + std::string(4091, ' ') + "123456 7 0a1f\n" + std::string(4094, '\t') + "c3 21\n",
        "\n\n\n\n" + std::string(50, '0') + "12 -" + std::string(41, '7') + " \n",
    };
    using Step = std::tuple<bool, long, uint32_t>;
    auto steps = [](FILE *f) {
        std::vector<Step> out;
        nus::Chars in(f);
        for (int i = 0; i < 24; ++i) {
            long value = -1;
            const bool ok = nus::read_decimal(in, &value);
            out.emplace_back(ok, value, i % 3 == 2 ? nus::spaced_hex4(in) : 0u);
        }
        return out;
    };
    for (const std::string &text : texts) {
        SCOPED_TRACE(text.substr(0, 40));
        FILE *plain = text_stream(text);
        FILE *blocked = text_stream(text);
        const std::vector<Step> expected = steps(plain);
        std::vector<Step> got;
        {
            const nus::BlockInput block(blocked);
            got = steps(blocked);
        }
        EXPECT_EQ(got, expected);
        EXPECT_EQ(std::ftell(blocked), std::ftell(plain));
        EXPECT_EQ(rest_of(blocked), rest_of(plain));
        std::fclose(plain);
        std::fclose(blocked);
    }
    // Lines holding NUL bytes keep them, and a last line without newline is whole.
    const std::string with_nul = "ab\0c\n\0\nlast"s;
    FILE *f = text_stream(with_nul);
    std::string lines;
    {
        const nus::BlockInput block(f);
        char line[16];
        for (int n = 0; n < 3; ++n) {
            std::memset(line, '#', sizeof line);
            ASSERT_NE(nus::stream_gets(line, sizeof line, f), nullptr);
            const char *end = static_cast<const char *>(std::memchr(line, '\n', sizeof line));
            lines.append(line, end != nullptr ? end + 1 - line : 4);
        }
        EXPECT_EQ(nus::stream_gets(line, sizeof line, f), nullptr);
    }
    EXPECT_EQ(lines, with_nul);
    std::fclose(f);
}

TEST(Fields, Doubles) {
    // "+" is not part of a number here, deliberately.
    EXPECT_EQ(read_and_rest("1e+5", _nu_get_dbl), std::make_pair(1.0, std::string("+5")));
    EXPECT_EQ(read_and_rest("  2.5e-1 x", _nu_get_dbl), std::make_pair(0.25, std::string(" x")));
    EXPECT_EQ(read_and_rest("-4", _nu_get_dbl), std::make_pair(-4.0, std::string()));
    // The 80-character limit stops the reading without pushing anything back.
    const std::string long_number = "1" + std::string(85, '0');
    auto [value, rest] = read_and_rest(long_number, _nu_get_dbl);
    EXPECT_DOUBLE_EQ(value, 1e79);
    EXPECT_EQ(rest, std::string(6, '0'));
}

TEST(Fields, DoublesIgnoreTheProcessDecimalPoint) {
    const std::string old = std::setlocale(LC_NUMERIC, nullptr);
    if (std::setlocale(LC_NUMERIC, "de_DE.UTF-8") == nullptr &&
        std::setlocale(LC_NUMERIC, "de_DE.utf8") == nullptr)
        GTEST_SKIP() << "no German locale generated on this machine";
    EXPECT_EQ(read_and_rest("1.5", _nu_get_dbl).first, 1.5);
    std::setlocale(LC_NUMERIC, old.c_str());
}

TEST(Fields, Hexadecimal) {
    auto hex = [](int n) { return [n](FILE *f) { return _nu_get_hex(f, n); }; };
    EXPECT_EQ(read_and_rest("00ffZ", hex(4)), std::make_pair(0xffu, std::string("Z")));
    EXPECT_EQ(read_and_rest("AbCd", hex(4)).first, 0xabcdu);
    // No white space is skipped, and a non-digit adds its own code: the terminator of a
    // table array reads as a zero count with the newline in the repeat field.
    EXPECT_EQ(read_and_rest(" 1", hex(2)).first, uint32_t{' ' * 16 + 1});
    EXPECT_EQ(read_and_rest("0000000\n", hex(3)).first, 0u);
    FILE *f = text_stream("0000000\nrest");
    EXPECT_EQ(_nu_get_hex(f, 2), 0u);
    EXPECT_EQ(_nu_get_hex(f, 3), 0u);
    EXPECT_EQ(_nu_get_hex(f, 3), uint32_t{'\n'});
    EXPECT_EQ(rest_of(f), "rest");
    std::fclose(f);
    // At most eight digits; nothing for n <= 0.
    EXPECT_EQ(read_and_rest("123456789", hex(12)), std::make_pair(0x12345678u, std::string("9")));
    EXPECT_EQ(read_and_rest("12", hex(0)), std::make_pair(0u, std::string("12")));
    EXPECT_EQ(read_and_rest("12", hex(-3)), std::make_pair(0u, std::string("12")));

    EXPECT_EQ(read_and_rest("F", _nu_get_hex_digit).first, 15);
    EXPECT_EQ(read_and_rest("g", _nu_get_hex_digit).first, 0);
    EXPECT_EQ(read_and_rest("7e9", _nu_get_hex_byte), std::make_pair(0x7e, std::string("9")));
}

TEST(Fields, WordsAndWhiteSpace) {
    auto word = [](int size) {
        return [size](FILE *f) {
            char buffer[16];
            std::memset(buffer, 'X', sizeof buffer);
            _nu_get_str(buffer, size, f);
            return std::string(buffer);
        };
    };
    // No skipping first: leading white space gives an empty word.
    EXPECT_EQ(read_and_rest(" abc", word(16)), std::make_pair(std::string(), std::string(" abc")));
    EXPECT_EQ(read_and_rest("abc def", word(16)),
              std::make_pair(std::string("abc"), std::string(" def")));
    EXPECT_EQ(read_and_rest("abcdef", word(4)),
              std::make_pair(std::string("abc"), std::string("def")));
    EXPECT_EQ(read_and_rest("abc", word(16)).first, "abc");
    EXPECT_EQ(read_and_rest(" \t\n x", _nu_skip_whitespace), std::make_pair(int{'x'}, std::string("x")));
    EXPECT_EQ(read_and_rest("   ", _nu_skip_whitespace), std::make_pair(EOF, std::string()));
}

TEST(Descriptors, EqualityAndWideValue) {
    const nu_chardesc a{2, {0xA1, 0xB2, 0, 0}};
    const nu_chardesc b{2, {0xA1, 0xB2, 9, 9}};
    const nu_chardesc c{1, {0xA1, 0xB2, 0, 0}};
    EXPECT_EQ(_nu_desc_eq(&a, &b), 1); // bytes past the length do not count
    EXPECT_EQ(_nu_desc_eq(&a, &c), 0);
    EXPECT_EQ(_nu_desc_to_nu_wchar(&a), 0xA1B2u);
    const nu_chardesc four{4, {0x8F, 0xA1, 0xA2, 0xA3}};
    EXPECT_EQ(_nu_desc_to_nu_wchar(&four), 0x8FA1A2A3u);
    const nu_chardesc none{0, {1, 2, 3, 4}};
    EXPECT_EQ(_nu_desc_to_nu_wchar(&none), 0u);
}

TEST(Descriptors, OffsetCarriesAndBorrows) {
    struct Case {
        nu_chardesc from;
        long delta;
        nu_chardesc to;
    };
    const Case cases[] = {
        {{2, {0x81, 0xFF}}, 1, {2, {0x82, 0x00}}},
        {{2, {0x82, 0x00}}, -1, {2, {0x81, 0xFF}}},
        {{3, {0x01, 0xFF, 0xFF}}, 1, {3, {0x02, 0x00, 0x00}}},
        {{2, {0x10, 0x20}}, 0x0305, {2, {0x13, 0x25}}},
        {{2, {0x10, 0x20}}, -0x0121, {2, {0x0E, 0xFF}}},
        {{2, {0xFF, 0xFF}}, 1, {2, {0x00, 0x00}}},     // carry out of the first byte is dropped
        {{2, {0x00, 0x00}}, -1, {2, {0xFF, 0xFF}}},    // and so is the borrow
        {{1, {0x41}}, 0, {1, {0x41}}},
        {{0, {0x41}}, 5, {0, {0x41}}},
    };
    for (const Case &c : cases) {
        nu_chardesc out{};
        _nu_desc_offset(&c.from, c.delta, &out);
        EXPECT_EQ(out.length, c.to.length);
        EXPECT_EQ(_nu_desc_eq(&out, &c.to), 1)
            << std::hex << _nu_desc_to_nu_wchar(&c.from) << " + " << c.delta << " gave "
            << _nu_desc_to_nu_wchar(&out);
    }
}
