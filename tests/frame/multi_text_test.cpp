// The text form of the multi-level byte table: exact output, round trips in both forms, and
// the reader's answers to damaged input.
#include "frame/frame.h"
#include "frame/multi.h"
#include "support/support.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

using nus_test::CountingAllocator;

namespace {

struct FreeTable {
    void operator()(multi_t *t) const { _nu_free_multi(t); }
};
using Table = std::unique_ptr<multi_t, FreeTable>;
using Bytes = std::vector<unsigned char>;

Table new_table() {
    const uint16_t zero = 0;
    return Table(_nu_create_multi(2, 0, &zero));
}

int insert(multi_t *t, const Bytes &bytes, const uint16_t *value) {
    multi_key k{static_cast<int32_t>(bytes.size()), {}};
    std::copy(bytes.begin(), bytes.end(), k.bytes);
    return _nu_insert_desc_multi(&k, value, t);
}
int insert(multi_t *t, const Bytes &bytes, uint16_t value) { return insert(t, bytes, &value); }

// Descriptors are 16-bit values written as four hexadecimal digits.
void print_u16(FILE *f, const void *desc) {
    uint16_t v;
    std::memcpy(&v, desc, 2);
    std::fprintf(f, "%04x", v);
}
int read_u16(FILE *f, void *desc, unsigned size) {
    const uint16_t v = static_cast<uint16_t>(_nu_get_hex(f, 4));
    std::memcpy(desc, &v, 2);
    return size == 2 ? 0 : 1;
}

std::string write(multi_t *t) {
    char *text = nullptr;
    size_t size = 0;
    FILE *f = open_memstream(&text, &size);
    _nu_fprintf_multi(f, t, print_u16);
    std::fclose(f);
    std::string out(text, size);
    std::free(text);
    return out;
}

struct ReadResult {
    Table table;
    int result;
    int err;
};
// How a table is read: character by character with the tests' reader, or as the loaders
// read it, through a block of lines with the library's own 16-bit reader.
enum class Way { characters, block };

ReadResult read(const std::string &text, int limit = 4, nu_desc_reader reader = read_u16,
                Way way = Way::characters) {
    FILE *f = std::tmpfile();
    std::fwrite(text.data(), 1, text.size(), f);
    std::rewind(f);
    Table t = new_table();
    int result;
    if (way == Way::block) {
        const nus::BlockInput block(f);
        result = _nu_fscanf_multi(f, t.get(), limit, nus::ub2_reader);
    } else {
        result = _nu_fscanf_multi(f, t.get(), limit, reader);
    }
    std::fclose(f);
    const int err = _nu_multi_err(t.get());
    return {std::move(t), result, err};
}

// The answer of a bounded lookup: descriptor value (or -1), bytes walked, error code.
std::tuple<int, int, int> answer(const multi_t *t, const Bytes &s, int count) {
    int32_t err = 0;
    int length = -1;
    void *d = _nu_retrieve_text_multi_limit(s.data(), t, count, &length, &err);
    int value = -1;
    if (d != nullptr) value = *static_cast<const uint16_t *>(d);
    return {value, length, err};
}

// A small two-byte table: 41 alone, A1 and A2 with equal trails and descriptors, A3 with one.
Table two_byte_table() {
    Table t = new_table();
    EXPECT_EQ(insert(t.get(), {0x41}, 0x41), 0);
    for (int lead : {0xA1, 0xA2}) {
        EXPECT_EQ(insert(t.get(), {static_cast<unsigned char>(lead), 0xB0}, 1), 0);
        EXPECT_EQ(insert(t.get(), {static_cast<unsigned char>(lead), 0xB1}, 2), 0);
    }
    EXPECT_EQ(insert(t.get(), {0xA3, 0xB0}, 1), 0);
    return t;
}

const std::string kRootFlags = "4100100104\na1003001010101\n0000000\n";
const std::string kRootData = "410010010041\n0000000\n";
const std::string kPairFlags = "b00020010404\n0000000\n";
const std::string kPairData = "b000200100010002\n0000000\n";
const std::string kOneFlags = "b000100104\n0000000\n";
const std::string kOneData = "b00010010001\n0000000\n";
const std::string kUncompressed = "2 1 1 0000\n1 1\n" + kRootFlags + kRootData + "1 1\n" +
                                  kPairFlags + kPairData + "1 1\n" + kPairFlags + kPairData +
                                  "1 1\n" + kOneFlags + kOneData;
const std::string kCompressed = "2 1 3 0000\n3 3\n" + kRootFlags + kPairFlags + kOneFlags +
                                kRootData + kPairData + kOneData +
                                "1 1 0 0\n1 1 1 1\n1 1 1 1\n1 1 2 2\n";

} // namespace

TEST(MultiText, WorkedExamples) {
    Table empty = new_table();
    EXPECT_EQ(write(empty.get()), "0 4 1 0000\n1 0\n0000000\n");

    // A single-byte table: every root flag becomes 4, one repeated record. The data array
    // shows how records are chosen: literal stretches, repeats of four or more, a literal
    // stretch ending before the fourth of four equal elements, gaps of default slots.
    Table t = new_table();
    const std::vector<std::pair<std::vector<int>, uint16_t>> runs = {
        {{0x10}, 1},       {{0x11}, 2}, {{0x12}, 3},       {{0x13}, 4}, {{0x20, 0x27}, 7},
        {{0x30, 0x32}, 5}, {{0x40}, 1}, {{0x41, 0x44}, 9}, {{0x50}, 1}, {{0x52}, 2},
        {{0x60, 0x63}, 3}, {{0x64}, 4}, {{0xF0, 0xFF}, 6}};
    for (const auto &[range, value] : runs) {
        for (int b = range.front(); b <= range.back(); ++b) {
            ASSERT_EQ(insert(t.get(), {static_cast<unsigned char>(b)}, value), 0);
        }
    }
    // clang-format off
    EXPECT_EQ(write(t.get()), "1 1 1 0000\n1 1\n"
                              "0000110004\n0000000\n"
                              "10004001" "0001000200030004\n"
                              "20001008" "0007\n"
                              "30003001" "000500050005\n"
                              "40004001" "0001000900090009\n"
                              "44001001" "0009\n"
                              "50003001" "000100000002\n"
                              "60001004" "0003\n"
                              "64001001" "0004\n"
                              "f0001010" "0006\n"
                              "0000000\n");
    // clang-format on
}

TEST(MultiText, BothFormsRoundTrip) {
    Table t = two_byte_table();
    ASSERT_EQ(write(t.get()), kUncompressed);
    ASSERT_EQ(_nu_compress_multi(t.get()), 0);
    ASSERT_EQ(write(t.get()), kCompressed);
    for (const std::string &text : {kUncompressed, kCompressed}) {
        ReadResult r = read(text);
        ASSERT_EQ(r.result, 0) << r.err;
        EXPECT_EQ(write(r.table.get()), text);
        EXPECT_EQ(std::get<0>(answer(r.table.get(), {0xA2, 0xB1}, 2)), 2);
        EXPECT_EQ(std::get<2>(answer(r.table.get(), {0xA3, 0xB1}, 2)), NU_EILSEQ);
    }
    // Read back compressed, the equal arrays of A1 and A2 are one; freeing frees them once.
    CountingAllocator counter;
    {
        ReadResult r = read(kCompressed);
        const multi_arr_t *root = r.table->root;
        const multi_arr_t *a1 = root->next_arr[root->offset_arr[0xA1]];
        const multi_arr_t *a2 = root->next_arr[root->offset_arr[0xA2]];
        EXPECT_EQ(a1->flag_arr, a2->flag_arr);
        EXPECT_EQ(a1->data_arr, a2->data_arr);
        EXPECT_EQ(r.table->flag_count, 3);
    }
    EXPECT_EQ(counter.live, 0);
}

// Random tables obeying the prefix rule: insertion agrees with a model; written and read back
// in either form, a table answers every lookup as the original does, valid or not.
TEST(MultiText, RandomTablesRoundTrip) {
    std::mt19937 rng(20240611);
    const unsigned char alphabet[] = {0x00, 0x01, 0x41, 0x7F, 0x80, 0x8E, 0x8F, 0xA1, 0xA2, 0xFF};
    auto random_bytes = [&](int length) {
        Bytes b(static_cast<size_t>(length));
        for (auto &c : b) {
            c = rng() % 4 == 0 ? static_cast<unsigned char>(rng())
                               : alphabet[rng() % std::size(alphabet)];
        }
        return b;
    };
    for (int round = 0; round < 40; ++round) {
        SCOPED_TRACE(round);
        const int longest = 1 + round % 4;
        std::map<Bytes, uint16_t> model;
        std::set<Bytes> leads; // proper prefixes of the model's keys
        Table t = new_table();
        for (int n = 0, keys = 1 + static_cast<int>(rng() % 300); n < keys; ++n) {
            const Bytes k = random_bytes(1 + static_cast<int>(rng() % longest));
            bool conflict = leads.count(k) != 0;
            for (size_t len = 1; len < k.size(); ++len)
                conflict |= model.count(Bytes(k.begin(), k.begin() + len)) != 0;
            const uint16_t value = static_cast<uint16_t>(rng());
            const bool with_desc = rng() % 8 != 0;
            ASSERT_EQ(insert(t.get(), k, with_desc ? &value : nullptr), conflict ? -1 : 0);
            if (conflict) continue;
            if (with_desc)
                model[k] = value;
            else
                model.emplace(k, 0);
            for (size_t len = 1; len < k.size(); ++len)
                leads.insert(Bytes(k.begin(), k.begin() + len));
        }
        std::vector<std::pair<Bytes, int>> probes;
        for (const auto &kv : model)
            probes.push_back({kv.first, static_cast<int>(kv.first.size())});
        for (int i = 0; i < 400; ++i)
            probes.push_back({random_bytes(4), 1 + static_cast<int>(rng() % 4)});
        for (const auto &[s, count] : probes) {
            std::tuple<int, int, int> expected{-1, count, NU_EINVAL};
            for (int d = 0; d < count; ++d) {
                const Bytes prefix(s.begin(), s.begin() + d + 1);
                if (auto it = model.find(prefix); it != model.end()) {
                    expected = {it->second, d + 1, 0};
                    break;
                }
                if (leads.count(prefix) == 0) {
                    expected = {-1, d + 1, NU_EILSEQ};
                    break;
                }
            }
            ASSERT_EQ(answer(t.get(), s, count), expected);
        }
        // Writing completes a single-byte table, so the copies are compared with the
        // original as written.
        for (bool compress : {false, true}) {
            if (compress) {
                ASSERT_EQ(_nu_compress_multi(t.get()), 0);
            }
            const std::string text = write(t.get());
            ReadResult r = read(text);
            ASSERT_EQ(r.result, 0) << r.err << "\n" << text;
            EXPECT_EQ(write(r.table.get()), text);
            ReadResult blocked = read(text, 4, nullptr, Way::block);
            ASSERT_EQ(blocked.result, 0) << blocked.err;
            EXPECT_EQ(write(blocked.table.get()), text);
            EXPECT_EQ(_nu_multi_min_length(r.table.get()), _nu_multi_min_length(t.get()));
            for (const auto &[s, count] : probes) {
                ASSERT_EQ(answer(r.table.get(), s, count), answer(t.get(), s, count));
            }
            for (nu_wchar wc : {0x41u, 0xA1A1u, 0x8FA1A2u, 0x010041FFu}) {
                int32_t e1 = 0, e2 = 0;
                EXPECT_EQ(_nu_retrieve_wchar_multi_nl(&e1, wc, r.table.get()) == nullptr,
                          _nu_retrieve_wchar_multi_nl(&e2, wc, t.get()) == nullptr);
                EXPECT_EQ(e1, e2);
            }
        }
    }
}

TEST(MultiBadInput, Rejected) {
    const std::string empty_body = "1 0\n0000000\n";
    const std::string lead = "0000100101\n0000000\n"; // byte 00 leads on
    const struct {
        std::string text;
        int limit;
        int err;
    } cases[] = {
        {"", 4, NU_EBADFILE},
        {"x 4 1 0000\n" + empty_body, 4, NU_EBADFILE}, // garbage for a number
        {"0 4 z 0000\n" + empty_body, 4, NU_EBADFILE},
        {"1 1 1 0000\n1 x\n", 4, NU_EBADFILE},
        {"3 1 1 0000\n" + empty_body, 2, NU_ETOODEEP}, // longer than the caller takes
        {"5 1 1 0000\n" + empty_body, 8, NU_ETOODEEP}, // longer than any table
        {"1 1 -2 0000\n" + empty_body, 4, NU_EBADFILE},
        {"1 1 1 0000\n2 0\n0000000\n", 4, NU_EBADFILE},               // has-flags neither 0 nor 1
        {"1 1 1 0000\n1 0\n0000100102\n0000000\n", 4, NU_EBADFILE},   // flag 2
        {"1 1 1 0000\n1 0\nf00020090404\n0000000\n", 4, NU_EBADFILE}, // past 256
        {"1 1 1 0000\n1 0\n00101001", 4, NU_EBADFILE},                // 257 elements
        {"1 1 1 0000\n1 0\n0g00100104\n0000000\n", 4, NU_EBADFILE},
        {"1 1 1 0000\n1 0\n00g0100104\n0000000\n", 4, NU_EBADFILE},
        {"1 1 1 0000\n1 0\n0000100g04\n0000000\n", 4, NU_EBADFILE},
        {"1 1 1 0000\n1 0\n00001", 4, NU_EBADFILE},                // ends in a record head
        {"1 1 1 0000\n1 0\n" + lead + empty_body, 4, NU_EBADFILE}, // child below max_length
        {"4 1 1 0000\n1 0\n" + lead + "1 0\n" + lead + "1 0\n" + lead + "1 0\n" + lead + empty_body,
         4, NU_EBADFILE},                       // a fifth level
        {"2 1 3 0000\n-1 0\n", 4, NU_EBADFILE}, // absurd counts
        {"2 1 3 0000\n258 0\n", 4, NU_EBADFILE},
        {"1 1 3 0000\n1 2\n", 4, NU_EBADFILE},
        {"4 1 3 0000\n16843009 0\n", 4, NU_EBADFILE},            // allowed, but the file ends
        {"1 1 3 0000\n1 0\n0000000\n1 0 1 0\n", 4, NU_EBADFILE}, // indexes out of range
        {"1 1 3 0000\n1 0\n0000000\n1 1 0 0\n", 4, NU_EBADFILE},
        {"1 1 3 0000\n1 0\n0000000\n3 0 0 0\n", 4, NU_EBADFILE},
        {"2 1 3 0000\n1 0\n" + lead + "1 0 0 0\n1 0 0 0\n", 4, NU_EBADFILE}, // too deep
    };
    for (const auto &c : cases) {
        CountingAllocator counter;
        {
            ReadResult r = read(c.text, c.limit);
            EXPECT_EQ(r.result, -1) << c.text;
            EXPECT_EQ(r.err, c.err) << c.text;
        }
        EXPECT_EQ(counter.live, 0) << c.text;
        EXPECT_LT(counter.allocations, 40) << c.text; // an absurd count costs nothing
    }
    // Lengths that describe no code set are the table's users' to refuse; the table itself
    // reads, and its lookups fail where no walk of that width exists.
    for (const char *head : {"-1 1 1 0000\n", "1 0 1 0000\n", "1 5 1 0000\n"}) {
        ReadResult r = read(head + empty_body, 4);
        EXPECT_EQ(r.result, 0) << head;
        int32_t err = 0;
        EXPECT_EQ(_nu_retrieve_wchar_multi_nl(&err, 0x41, r.table.get()), nullptr) << head;
        EXPECT_EQ(err, NU_EILSEQ) << head;
    }
    // A table that already has longer characters, or no reader.
    Table used = new_table();
    ASSERT_EQ(insert(used.get(), {0xA1, 0xA1}, 1), 0);
    FILE *f = std::tmpfile();
    EXPECT_EQ(_nu_fscanf_multi(f, used.get(), 4, read_u16), -1);
    EXPECT_EQ(_nu_multi_err(used.get()), NU_EBADARG);
    Table fresh = new_table();
    EXPECT_EQ(_nu_fscanf_multi(f, fresh.get(), 4, nullptr), -1);
    EXPECT_EQ(_nu_multi_err(fresh.get()), NU_EBADARG);
    EXPECT_EQ(_nu_fscanf_multi(f, nullptr, 4, read_u16), -1);
    std::fclose(f);
    // A descriptor reader that fails: on the default, and on the third element.
    EXPECT_EQ(read(kUncompressed, 4, [](FILE *, void *, unsigned) { return 1; }).err, NU_ENOMEM);
    static int calls;
    calls = 0;
    auto third_fails = [](FILE *s, void *d, unsigned n) {
        return ++calls == 3 ? 1 : read_u16(s, d, n);
    };
    ReadResult r = read(kCompressed, 4, third_fails);
    EXPECT_EQ(std::make_pair(r.result, r.err), std::make_pair(-1, NU_ENOMEM));
}

// Cut anywhere, both forms fail as malformed (only the unread tail of the last line may go);
// the partial table frees without a leak.
TEST(MultiBadInput, TruncatedAnywhere) {
    for (const auto &[text, optional_tail] :
         {std::pair{kUncompressed, 3}, std::pair{kCompressed, 1}}) {
        for (size_t length = 0; length < text.size(); ++length) {
            CountingAllocator counter;
            {
                const std::string cut = text.substr(0, length);
                ReadResult r = read(cut);
                const bool complete = length + optional_tail >= text.size();
                EXPECT_EQ(r.result, complete ? 0 : -1) << length << "\n" << cut;
                EXPECT_EQ(r.err, complete ? 0 : NU_EBADFILE) << length;
                // Through a block, the library's reader fails where it fails read alone.
                ReadResult plain = read(cut, 4, nus::ub2_reader);
                ReadResult blocked = read(cut, 4, nullptr, Way::block);
                EXPECT_EQ(std::make_pair(blocked.result, blocked.err),
                          std::make_pair(plain.result, plain.err)) << length;
            }
            EXPECT_EQ(counter.live, 0) << length;
        }
    }
}

// Every allocation of reading is refused in turn: the read fails with NU_ENOMEM and the
// partial table frees completely; lookups on it stay safe.
TEST(MultiBadInput, RefusedMemoryWhileReading) {
    for (const std::string &text : {kUncompressed, kCompressed})
    for (Way way : {Way::characters, Way::block}) {
        for (long n = 1;; ++n) {
            CountingAllocator counter;
            int result;
            {
                Table t = new_table();
                FILE *f = nus_test::text_stream(text);
                {
                    // The block itself is allocated before the refusals start.
                    std::optional<nus::BlockInput> block;
                    if (way == Way::block) block.emplace(f);
                    counter.fail_from(counter.allocations + n);
                    result = _nu_fscanf_multi(f, t.get(), 4, way == Way::block ? nus::ub2_reader : read_u16);
                }
                std::fclose(f);
                counter.fail_from(0);
                if (result != 0) {
                    EXPECT_EQ(_nu_multi_err(t.get()), NU_ENOMEM) << n;
                }
                for (int lead : {0x41, 0xA1, 0xA2, 0xA3})
                    answer(t.get(), {static_cast<unsigned char>(lead), 0xB0}, 2);
            }
            EXPECT_EQ(counter.live, 0) << n;
            if (result == 0) break;
        }
    }
}
