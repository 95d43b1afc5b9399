// Opening conversion descriptors (by specifications, code-set numbers, names and file names),
// reading conversion object files good and damaged, and unloading.
#include "convert/convert.h"
#include "convert/convert_test_util.h"
#include "frame/frame.h"

#include <functional>

using namespace nus_test;

namespace {

std::string fixture_text(const char *name) {
    return read_file(std::string(NUS_SOURCE_DIR) + "/tests/data/cv9/" + name);
}

// Reads a conversion file from text into a fresh descriptor; the descriptor is unloaded.
struct Read {
    int result;
    int error;
    nu_cv_convert_fn convert;
};
Read read_text(const std::string &text) {
    nu_cv_rec *cv = nus::alloc_zeroed<nu_cv_rec>(1);
    FILE *stream = text_stream(text);
    const int result = nus::read_cv_file(stream, cv);
    if (result != 0) std::fclose(stream);
    Read r{result, cv->error, cv->convert};
    nu_cv_unload(cv);
    return r;
}

// What `body` logs with NUSLOG on.
std::string logged(const std::function<void()> &body) {
    TempDir dir;
    {
        CwdGuard cwd(dir.path());
        EnvGuard on("NUSLOG", "on");
        nus::reset_debug_state();
        body();
    }
    nus::reset_debug_state();
    return read_file(dir.path() / "nus.log");
}

std::string replace(std::string text, const std::string &from, const std::string &to) {
    const size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return text.replace(at, from.size(), to);
}

TEST(ReadCvFile, FieldsOfTheHeaderAndTheChoiceOfConverter) {
    nu_cv_rec cv{};
    const std::string text = fixture_text("stgt.cvo");
    FILE *stream = text_stream(text);
    std::string log = logged([&] { EXPECT_EQ(nus::read_cv_file(stream, &cv), 0); });
    EXPECT_NE(log.find("CVO file loaded successfully."), std::string::npos);
    EXPECT_EQ(cv.source_stateful, 0);
    EXPECT_EQ(cv.target_stateful, 1);
    EXPECT_EQ(cv.special_len[0], 1);
    EXPECT_EQ(cv.special[0][0], 0x0e);
    EXPECT_EQ(cv.special_len[1], 1);
    EXPECT_EQ(cv.special[1][0], 0x0f);
    EXPECT_EQ(cv.special_len[2], 0);
    EXPECT_EQ(cv.target_min_len, 1);
    EXPECT_EQ(cv.target_max_len, 2);
    EXPECT_EQ(cv.source_min_len, 1);
    EXPECT_EQ(cv.source_max_len, 3);
    EXPECT_EQ(cv.build_byte_table, 1);
    EXPECT_FLOAT_EQ(cv.expansion, 4.0f);
    EXPECT_EQ(cv.shift_table, nullptr);
    EXPECT_EQ(cv.byte_table, nullptr);
    EXPECT_EQ(cv.convert, &nus::mb_miconv);
    _nu_free_multi(cv.table);

    // Single-byte with the seventh integer 1: no byte table.
    const std::string sb = replace(fixture_text("sb.cvo"), "1 1 0 0 1 1 0", "1 1 0 0 1 1 1");
    nu_cv_rec plain{};
    stream = text_stream(sb);
    EXPECT_EQ(nus::read_cv_file(stream, &plain), 0);
    EXPECT_EQ(plain.convert, &nus::sb_miconv);
    EXPECT_EQ(plain.byte_table, nullptr);
    EXPECT_EQ(plain.error, 0);
    _nu_free_multi(plain.table);
}

TEST(ReadCvFile, ConverterChoiceFollowsTheLengths) {
    const std::string base = fixture_text("mb.cvo");
    struct Case {
        const char *lengths;
        nu_cv_convert_fn expected;
    } cases[] = {
        {"1 4 0 0 2 2 1", nus::little_endian_unicode_source_miconv},
        {"1 4 0 0 4 4 1", nus::little_endian_unicode_source_miconv},
        {"4 4 0 0 1 3 1", nus::little_endian_unicode_target_miconv},
        {"4 4 0 0 4 4 1", nus::little_endian_unicode_source_miconv},   // source first
        {"1 4 0 0 1 2 1", nus::mb_miconv},
        {"1 4 0 0 2 4 1", nus::mb_miconv},
    };
    for (const Case &c : cases) {
        const Read r = read_text(replace(base, "1 4 0 0 1 3 1", c.lengths));
        EXPECT_EQ(r.result, 0) << c.lengths;
        EXPECT_EQ(r.convert, c.expected) << c.lengths;
    }
}

TEST(ReadCvFile, BadHeadersAreNoFile) {
    const std::string good = fixture_text("mb.cvo");
    struct Case {
        std::string text;
        const char *message;
    } cases[] = {
        {replace(good, "FILE_TYPE=codeset_conversion_object", "FILE_TYPE=locale_object"),
         "Invalid CVO file. Wrong FILE_TYPE."},
        {replace(good, "FILE_TYPE=codeset_conversion_object", "FILE_TYPE=codeset_conversion_object "),
         "Invalid CVO file. Wrong FILE_TYPE."},
        {replace(good, "COMPILER_VERSION=9", "COMPILER_VERSION=8"), "Invalid CVO file. Wrong Version."},
        {replace(good, "HEADER_LENGTH=5", "HEADER_LENGTH=x"), nullptr},
        {replace(good, "HEADER_LENGTH=5", "HEADER_SIZE=5"), nullptr},
        {replace(good, "HEADER_LENGTH=5", "HEADER_LENGTH=99999"), nullptr},
        {"FILE_TYPE=codeset_conversion_object\nCOMPILER_VERSION=9\n", nullptr},
        {"", nullptr},
    };
    for (const Case &c : cases) {
        Read r{};
        const std::string log = logged([&] { r = read_text(c.text); });
        EXPECT_EQ(r.result, -1) << c.text.substr(0, 60);
        EXPECT_EQ(r.error, NU_ENOFILE) << c.text.substr(0, 60);
        if (c.message != nullptr) {
            EXPECT_NE(log.find(c.message), std::string::npos) << log;
        }
    }
    nu_cv_rec cv{};
    EXPECT_EQ(nus::read_cv_file(nullptr, &cv), -1);
    EXPECT_EQ(cv.error, NU_ENOFILE);
}

TEST(ReadCvFile, FieldsOutOfRange) {
    const std::string good = fixture_text("mb.cvo");
    // A target length outside 1 to 4 is refused without an error code.
    for (const char *lengths : {"1 5 0 0 1 3 1", "1 0 0 0 1 3 1", "1 -1 0 0 1 3 1"}) {
        Read r{};
        const std::string log =
            logged([&] { r = read_text(replace(good, "1 4 0 0 1 3 1", lengths)); });
        EXPECT_EQ(r.result, -1) << lengths;
        EXPECT_EQ(r.error, 0) << lengths;
        EXPECT_NE(log.find("cv->target_max_len should be in range 1..4"), std::string::npos);
    }
    // Damaged fields: malformed file.
    const std::pair<const char *, const char *> damaged[] = {
        {"0 0\n0 0 0 0", "x 0\n0 0 0 0"},
        {"0 0\n0 0 0 0", "0 0\n5 0 0 0"},          // a sequence longer than four bytes
        {"0 0\n0 0 0 0", "0 0\n2zz 0 0 0"},        // not hexadecimal
        {"1.5\n", "-1\n"},
        {"1.5\n", "1e9\n"},
    };
    for (const auto &[from, to] : damaged) {
        const Read r = read_text(replace(good, from, to));
        EXPECT_EQ(r.result, -1) << to;
        EXPECT_EQ(r.error, NU_EBADFILE) << to;
    }
    // A record announcing more target bytes than the records hold.
    const std::string sb = fixture_text("sb.cvo");
    const Read r = read_text(replace(sb, "4100100111" "41", "4100100112" "4141"));
    EXPECT_EQ(r.result, -1);
    EXPECT_NE(r.error, 0);
    // A table deeper than four bytes.
    const Read deep = read_text(replace(good, "\n3 1 0 00\n", "\n5 1 0 00\n"));
    EXPECT_EQ(deep.result, -1);
    EXPECT_EQ(deep.error, NU_ETOODEEP);
}

TEST(ReadCvFile, EveryTruncationIsRefusedOrHarmless) {
    for (const char *name : {"mb.cvo", "ssrc.cvo", "le2src.cvo", "stgt.cvo"}) {
        const std::string text = fixture_text(name);
        // The table starts after nine lines (five of header, four of fields).
        size_t table_start = 0;
        for (int line = 0; line < 9; ++line) table_start = text.find('\n', table_start) + 1;
        for (size_t n = 0; n < text.size(); ++n) {
            nu_cv_rec *cv = nus::alloc_zeroed<nu_cv_rec>(1);
            const std::string piece = text.substr(0, n);
            FILE *stream = text_stream(piece);
            if (stream == nullptr) stream = std::fopen("/dev/null", "r");
            const int result = nus::read_cv_file(stream, cv);
            if (result != 0) {
                std::fclose(stream);
            } else {
                // Whatever was read must still convert safely.
                EXPECT_GT(n, table_start) << name << " " << n;
                unsigned char in[] = "A\xc1\xa1\xa1";
                unsigned char *p = in;
                int length = 4, room = 16, irreversible;
                unsigned char out[16];
                unsigned char *o = out;
                nu_cv_state state{1, 1, 0, 0};
                nu_cv_mconv(cv, &state, &p, &length, &o, &room, &irreversible);
            }
            nu_cv_unload(cv);
        }
    }
}

TEST(Open, BySpecificationsNamesAndNumbers) {
    TempDir dir;
    const std::string mb = fixture_text("mb.cvo");
    dir.write("nus/cv9/toyeuc_toyutf8.cvo", mb);
    dir.write("registry", "toyeuc 57600\ntoyutf8 57601\nother 57602\n");
    dir.write("objects/e100e101.cvo", mb);
    EnvGuard root("TESSARONDIR", dir.str() + "/");
    EnvGuard path("NU_PATH", std::nullopt);

    Cv cv;
    EXPECT_EQ(nu_cv_open(cv.out(), "xx_yy.toyutf8", "aa_bb.toyeuc@mod"), 1);
    Conv c = convert(cv, "a\xa1\xa1", 10);
    EXPECT_EQ(c.out, "a\xe3\x80\x80");

    nu_cv_t same = &nus::cd_einval;
    EXPECT_EQ(nu_cv_open(&same, "de_de.8859-1", "fr_fr.8859-1@euro"), 0);
    EXPECT_EQ(same, nullptr);
    nu_cv_t failed = nullptr;
    EXPECT_EQ(nu_cv_open(&failed, "de_de", "fr_fr.8859-1"), -1);
    EXPECT_EQ(failed, &nus::cd_fileerr);
    EXPECT_EQ(nu_cv_open(&failed, "de_de.", "fr_fr.8859-1"), -1);
    EXPECT_EQ(failed, &nus::cd_fileerr);
    // Opened by names the other way round: no such file; the descriptor carries the error.
    Cv missing;
    EXPECT_EQ(nu_cv_open(missing.out(), "aa_bb.toyeuc", "xx_yy.toyutf8"), -1);
    EXPECT_EQ(missing.error(), NU_ENOFILE);

    Cv named;
    EXPECT_EQ(nu_iconv_open(named.out(), "toyutf8", "toyeuc"), 0);
    EXPECT_NE(static_cast<nu_cv_rec *>(named)->table, nullptr);
    EXPECT_EQ(nu_iconv_open(&failed, "toyeuc", "toyeuc"), -1);
    EXPECT_EQ(failed, &nus::cd_fileerr);
    const std::string long_name(1016, 'x');
    EXPECT_EQ(nu_iconv_open(&failed, long_name.c_str(), "abc"), -1);   // 1024 with the zero
    EXPECT_EQ(failed, &nus::cd_fileerr);
    Cv null_name;
    EXPECT_EQ(nu_iconv_open1(null_name.out(), nullptr), -1);
    EXPECT_EQ(null_name.error(), NU_ENOFILE);

    // By code-set numbers: the file named by the source's number and the target's.
    const std::string registry = dir.str() + "/registry";
    const std::string objects = dir.str() + "/objects";
    Cv by_number;
    EXPECT_EQ(nu_cv_load(by_number.out(), "xx_yy.toyutf8", "toyeuc", registry.c_str(),
                         objects.c_str()),
              1);
    EXPECT_EQ(convert(by_number, "\xa1\xa2", 10).out, "\xe3\x80\x81");
    Cv reversed;
    EXPECT_EQ(nu_cv_load(reversed.out(), "toyeuc", "toyutf8", registry.c_str(), objects.c_str()), -1);
    EXPECT_EQ(reversed.error(), NU_ENOFILE);
    EXPECT_EQ(nu_cv_load(&failed, "toyeuc", "unknown", registry.c_str(), objects.c_str()), -1);
    EXPECT_EQ(failed, &nus::cd_einval);
    EXPECT_EQ(*_nu_ext_errno(failed), NU_EINVAL);
    EXPECT_EQ(nu_cv_load(&same, "toyeuc", "aa_bb.toyeuc", registry.c_str(), objects.c_str()), 0);
    EXPECT_EQ(same, nullptr);

    EXPECT_EQ(nu_cv_unload(nullptr), -1);
    for (nu_cv_t fixed : {&nus::cd_enomem, &nus::cd_fileerr, &nus::cd_einval}) {
        EXPECT_EQ(nu_cv_unload(fixed), 0);
    }
    EXPECT_EQ(nus::cd_enomem.error, NU_ENOMEM);
    EXPECT_EQ(nus::cd_fileerr.error, NU_ENOFILE);
    EXPECT_EQ(nus::cd_einval.error, NU_EINVAL);
}

TEST(Open, EveryAllocationFailureIsReportedWithoutLeaks) {
    EnvGuard path("NU_PATH", std::string(NUS_SOURCE_DIR) + "/tests/data/cv9");
    for (const char *name : {"ssrc.cvo", "sb.cvo", "mb.cvo"}) {
        for (long n = 1;; ++n) {
            CountingAllocator counter;
            counter.fail_from(n);
            nu_cv_t cv = nullptr;
            const int result = nu_iconv_open1(&cv, name);
            ASSERT_NE(cv, nullptr);
            if (result == 0) {
                nu_cv_unload(cv);
                EXPECT_EQ(counter.live, 0);
                break;
            }
            if (n == 1) {
                EXPECT_EQ(cv, &nus::cd_enomem);
            } else {
                EXPECT_EQ(*_nu_ext_errno(cv), NU_ENOMEM) << name << " " << n;
            }
            nu_cv_unload(cv);
            EXPECT_EQ(counter.live, 0) << name << " " << n;
        }
    }
}

TEST(Names, CodeSetOfASpecification) {
    char out[nus::kCsNameBuffer];
    const std::pair<std::string, std::string> cases[] = {
        {"ja_jp.sjis", "sjis"},
        {"de_de.8859-1@euro", "8859-1"},
        {"de_de.8859-1 ; rest", "8859-1"},
        {"a.b.c", "b.c"},
        {"de_de", ""},
        {"de_de.", ""},
        {"de_de.@euro", ""},
        {"x." + std::string(1022, 'c'), std::string(1022, 'c')},
        {"x." + std::string(1023, 'c'), ""},
    };
    for (const auto &[spec, name] : cases) {
        nus::lc_spec2cs_name(spec.c_str(), out);
        EXPECT_EQ(std::string(out), name) << spec.substr(0, 40);
    }
    nus::lc_spec2cs_name(nullptr, out);
    EXPECT_STREQ(out, "");
}

TEST(Sizes, OutputBufferLengthRoundsTheExpansionUp) {
    nu_cv_rec cv{};
    const std::pair<float, int> cases[] = {{1.0f, 10}, {1.5f, 20}, {2.0f, 20}, {0.0f, 0}, {3.25f, 40}};
    for (const auto &[expansion, expected] : cases) {
        cv.expansion = expansion;
        EXPECT_EQ(nu_cv_outbuflen(&cv, 10), expected) << expansion;
        EXPECT_DOUBLE_EQ(nu_iconv_expansion(&cv), expansion);
    }
}

} // namespace
