// The multi-level byte table in memory: insertion, every lookup, compression, freeing, and
// behaviour when the allocator refuses.
#include "convert/cv_rec.h"
#include "frame/frame.h"
#include "frame/multi.h"
#include "support/support.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

using nus_test::CountingAllocator;

namespace {

struct FreeTable {
    void operator()(multi_t *t) const { _nu_free_multi(t); }
};
using Table = std::unique_ptr<multi_t, FreeTable>;

const uint16_t kDefault = 0xDEF0;
// The default descriptor as bytes, long enough for every descriptor size the tests use.
const unsigned char kDefaultBytes[16] = {0xF0, 0xDE};

Table new_table(unsigned desc_size = 2) {
    return Table(_nu_create_multi(desc_size, 0, kDefaultBytes));
}

multi_key key(std::initializer_list<int> bytes) {
    multi_key k{static_cast<int32_t>(bytes.size()), {}};
    int i = 0;
    for (int b : bytes) k.bytes[i++] = static_cast<unsigned char>(b);
    return k;
}

int insert(multi_t *t, std::initializer_list<int> bytes, uint16_t value) {
    multi_key k = key(bytes);
    return _nu_insert_desc_multi(&k, &value, t);
}

uint16_t value_of(const void *desc) {
    uint16_t v;
    std::memcpy(&v, desc, sizeof v);
    return v;
}

// ASCII and 0x8E as one byte, A1-A3 followed by B0-B2 as two, 8F A1 B0 as three.
Table sample_table() {
    Table t = new_table();
    for (int b = 0; b < 0x80; ++b) EXPECT_EQ(insert(t.get(), {b}, static_cast<uint16_t>(b)), 0);
    EXPECT_EQ(insert(t.get(), {0x8E}, 0x8E), 0);
    for (int lead = 0xA1; lead <= 0xA3; ++lead) {
        for (int trail = 0xB0; trail <= 0xB2; ++trail) {
            EXPECT_EQ(insert(t.get(), {lead, trail}, static_cast<uint16_t>(lead << 8 | trail)), 0);
        }
    }
    EXPECT_EQ(insert(t.get(), {0x8F, 0xA1, 0xB0}, 0x8FB0), 0);
    return t;
}

} // namespace

TEST(MultiCreate, FreshTable) {
    Table t = new_table();
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(_nu_multi_max_length(t.get()), 0);
    EXPECT_EQ(_nu_multi_min_length(t.get()), 4);
    EXPECT_EQ(_nu_multi_err(t.get()), 0);
    EXPECT_EQ(t->flags, MULTI_MARK_END);
    EXPECT_EQ(value_of(t->default_desc), kDefault);
    int data = -1, flags = -1, offsets = -1;
    EXPECT_EQ(_nu_multi_node_count(t.get(), &data, &flags, &offsets), 0);
    EXPECT_EQ(std::make_tuple(data, flags, offsets), std::make_tuple(0, 1, 0));
    // Slots are a power of two apart.
    const std::pair<unsigned, uint32_t> shifts[] = {{0, 0}, {1, 0}, {2, 1}, {3, 2}, {4, 2},
                                                    {5, 3}, {8, 3}, {9, 4}, {16, 4}};
    for (auto [size, shift] : shifts) EXPECT_EQ(new_table(size)->shift, shift) << size;
    EXPECT_EQ(_nu_create_multi(1u << 30, 0, &kDefault), nullptr);
}

TEST(MultiInsert, LengthsCountsAndPrefixRule) {
    Table t = new_table();
    ASSERT_EQ(insert(t.get(), {0xA1, 0xB2}, 1), 0);
    EXPECT_EQ(_nu_multi_max_length(t.get()), 2);
    EXPECT_EQ(_nu_multi_min_length(t.get()), 2);
    // A character that is a prefix of another, or has another as prefix, is refused in
    // either order, and the lengths stay.
    EXPECT_EQ(insert(t.get(), {0xA1}, 2), -1);
    EXPECT_EQ(insert(t.get(), {0xA1, 0xB2, 0xC3}, 2), -1);
    ASSERT_EQ(insert(t.get(), {0x41}, 3), 0);
    EXPECT_EQ(insert(t.get(), {0x41, 0x42}, 4), -1);
    EXPECT_EQ(_nu_multi_max_length(t.get()), 2);
    EXPECT_EQ(_nu_multi_min_length(t.get()), 1);
    ASSERT_EQ(insert(t.get(), {0xA1, 0xB3, 0xC4, 0xD5}, 5), 0);
    EXPECT_EQ(_nu_multi_max_length(t.get()), 4);
    int32_t err = 0;
    EXPECT_EQ(value_of(_nu_retrieve_text_multi_nl(t.get(), key({0xA1, 0xB2}).bytes, &err)), 1);
    // Keys of impossible lengths.
    for (int length : {0, -1, 5}) {
        multi_key k = key({1, 2, 3, 4});
        k.length = length;
        EXPECT_EQ(_nu_insert_desc_multi(&k, &kDefault, t.get()), -1);
    }
    // Flags: root, A1, A1 B3, A1 B3 C4; data: root, A1, A1 B3 C4; offsets: the inner three.
    int data, flags, offsets;
    EXPECT_EQ(_nu_multi_node_count(t.get(), &data, &flags, &offsets), 3);
    EXPECT_EQ(std::make_tuple(data, flags, offsets), std::make_tuple(3, 4, 3));
}

TEST(MultiInsert, DescriptorsAndDefault) {
    Table t = new_table();
    multi_key a = key({0xA1, 0xB0}), b = key({0xA1, 0xB1}), c = key({0xA2, 0xB0});
    ASSERT_EQ(_nu_insert_desc_multi(&a, nullptr, t.get()), 0);
    // Without a descriptor and without a data array: the default.
    EXPECT_EQ(value_of(_nu_retrieve_desc_multi(&a, t.get())), kDefault);
    uint16_t v = 7;
    ASSERT_EQ(_nu_insert_desc_multi(&b, &v, t.get()), 0);
    EXPECT_EQ(value_of(_nu_retrieve_desc_multi(&b, t.get())), 7);
    EXPECT_EQ(value_of(_nu_retrieve_desc_multi(&a, t.get())), kDefault); // slot holds the default
    v = 9;
    ASSERT_EQ(_nu_insert_desc_multi(&b, &v, t.get()), 0); // inserting again overwrites
    EXPECT_EQ(value_of(_nu_retrieve_desc_multi(&b, t.get())), 9);
    EXPECT_EQ(_nu_retrieve_desc_multi(&c, t.get()), nullptr);
}

TEST(MultiLookup, ByKey) {
    Table t = sample_table();
    multi_key two = key({0xA2, 0xB1}), three = key({0x8F, 0xA1, 0xB0});
    EXPECT_EQ(value_of(_nu_retrieve_desc_multi(&two, t.get())), 0xA2B1);
    EXPECT_EQ(value_of(_nu_retrieve_desc_multi(&three, t.get())), 0x8FB0);
    // Null: a key longer than the character it starts with, a key ending inside a character,
    // an invalid byte, impossible lengths.
    for (multi_key k : {key({0x41, 0x42}), key({0xA1}), key({0x8F, 0xA1}), key({0xA1, 0x41}),
                        key({0xFF}), key({0x41, 0, 0, 0}), key({})}) {
        EXPECT_EQ(_nu_retrieve_desc_multi(&k, t.get()), nullptr) << k.length;
    }
    multi_key five = key({0x41});
    five.length = 5;
    EXPECT_EQ(_nu_retrieve_desc_multi(&five, t.get()), nullptr);
}

// Every byte-string variant on the same inputs: descriptor (or length), length walked, error.
TEST(MultiLookup, TextVariants) {
    Table t = sample_table();
    struct Case {
        std::vector<unsigned char> s;
        int count;     // bytes available to the bounded variants
        int value;     // descriptor value, or -1 for none
        int length;    // bytes walked
        int error;     // of the unbounded variants (no error: 0)
        int lim_error; // of the bounded variants
    };
    const Case cases[] = {
        {{0x41, 0xA1}, 2, 0x41, 1, 0, 0},
        {{0xA3, 0xB2, 0}, 3, 0xA3B2, 2, 0, 0},
        {{0x8F, 0xA1, 0xB0}, 3, 0x8FB0, 3, 0, 0},
        {{0x8E, 0xA1}, 2, 0x8E, 1, 0, 0},
        {{0xFF, 0x41}, 2, -1, 1, NU_EILSEQ, NU_EILSEQ}, // invalid lead: its byte counted
        {{0xA1, 0x41}, 2, -1, 2, NU_EILSEQ, NU_EILSEQ}, // invalid trail
        {{0x8F, 0xA1, 0xB1}, 3, -1, 3, NU_EILSEQ, NU_EILSEQ},
        {{0xA1, 0xB0}, 1, -1, 1, 0, NU_EINVAL}, // count ends inside
        {{0x8F, 0xA1, 0xB0}, 2, -1, 2, 0, NU_EINVAL},
        {{0xFF}, 1, -1, 1, NU_EILSEQ, NU_EILSEQ}, // count 1 on an invalid byte
        {{0x41}, 0, -1, 0, 0, NU_EINVAL},         // nothing available
        {{0x41}, -3, -1, 0, 0, NU_EINVAL},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << "case " << &c - cases);
        const unsigned char *s = c.s.data();
        int32_t err = 0;
        int length = -9;
        if (c.count >= static_cast<int>(c.s.size())) { // the unbounded variants
            void *d = _nu_retrieve_text_multi(t.get(), s, &length, &err);
            EXPECT_EQ(d ? value_of(d) : -1, c.value);
            EXPECT_EQ(length, c.length);
            EXPECT_EQ(err, c.error);
            err = 0;
            d = _nu_retrieve_text_multi_nl(t.get(), s, &err);
            EXPECT_EQ(d ? value_of(d) : -1, c.value);
            EXPECT_EQ(err, c.error);
            err = 0;
            EXPECT_EQ(_nu_retrieve_text_multi_nv(t.get(), s, &err), c.value >= 0 ? c.length : 0);
            EXPECT_EQ(err, c.error);
        }
        err = 0;
        length = -9;
        void *d = _nu_retrieve_text_multi_limit(s, t.get(), c.count, &length, &err);
        EXPECT_EQ(d ? value_of(d) : -1, c.value);
        EXPECT_EQ(length, c.length);
        EXPECT_EQ(err, c.lim_error);
        err = 0;
        d = _nu_retrieve_text_multi_limit_nl(t.get(), s, c.count, &err);
        EXPECT_EQ(d ? value_of(d) : -1, c.value);
        EXPECT_EQ(err, c.lim_error);
    }
}

TEST(MultiLookup, LittleEndianCodeUnits) {
    Table t = new_table();
    ASSERT_EQ(insert(t.get(), {0x30, 0x42}, 0x3042), 0);
    ASSERT_EQ(insert(t.get(), {0x05}, 0x0005), 0);
    ASSERT_EQ(insert(t.get(), {0x41}, 0x0041), 0);
    ASSERT_EQ(insert(t.get(), {0x31, 0x32, 0x33}, 0x3133), 0);
    ASSERT_EQ(insert(t.get(), {0x00, 0x00, 0xD8, 0x3D}, 0xD83D), 0);
    nu_cv_rec cv{};
    cv.source_min_len = 2;
    cv.source_max_len = 2;
    auto lookup = [&](std::initializer_list<unsigned char> bytes, int count) {
        const std::vector<unsigned char> s(bytes);
        void *d = _nu_retrieve_little_endian_unicode_limit(s.data(), t.get(), count, &cv);
        return d ? value_of(d) : -1;
    };
    EXPECT_EQ(lookup({0x42, 0x30}, 2), 0x3042);
    // Deliberate: the walk ends on 05 at the higher address, but the slot is the low byte's.
    EXPECT_EQ(lookup({0x41, 0x05}, 2), 0x0041);
    EXPECT_EQ(lookup({0x05, 0x41}, 2), 0x0005);
    EXPECT_EQ(cv.error, 0);
    EXPECT_EQ(lookup({0x42, 0x30}, 1), -1);
    EXPECT_EQ(cv.error, NU_EINVAL);
    // Two bytes that lead on without ending a character, and an invalid byte.
    cv.error = 0;
    EXPECT_EQ(lookup({0x32, 0x31}, 2), -1);
    EXPECT_EQ(cv.error, NU_EILSEQ);
    cv.error = 0;
    EXPECT_EQ(lookup({0x41, 0xFF}, 2), -1);
    EXPECT_EQ(cv.error, NU_EILSEQ);
    // Four-byte units only when both source lengths are 4.
    cv.source_min_len = 4;
    EXPECT_EQ(lookup({0x3D, 0xD8, 0x00, 0x00}, 4), -1); // still two-byte units
    cv.source_max_len = 4;
    cv.error = 0;
    EXPECT_EQ(lookup({0x3D, 0xD8, 0x00, 0x00}, 4), 0xD83D);
    EXPECT_EQ(lookup({0x3D, 0xD8, 0x00, 0x00}, 3), -1);
    EXPECT_EQ(cv.error, NU_EINVAL);
}

TEST(MultiLookup, WideCharacters) {
    Table t = sample_table();
    const std::pair<nu_wchar, int> found[] = {{0x41, 0x41}, {0xA2B0, 0xA2B0}, {0x8FA1B0, 0x8FB0}};
    for (auto [wc, value] : found) {
        int32_t err = 0;
        void *d = _nu_retrieve_wchar_multi_nl(&err, wc, t.get());
        ASSERT_NE(d, nullptr) << std::hex << wc;
        EXPECT_EQ(value_of(d), value);
        EXPECT_EQ(err, 0);
    }
    // A leading byte that is a whole character, a width whose low byte leads on, too long.
    for (nu_wchar wc : {0x4142u, 0xA1u, 0x8FA1u, 0x8FA1B0B1u, 0xFFu, 0x1000041u}) {
        int32_t err = 0;
        EXPECT_EQ(_nu_retrieve_wchar_multi_nl(&err, wc, t.get()), nullptr) << std::hex << wc;
        EXPECT_EQ(err, NU_EILSEQ);
    }
    // The width starts at the shortest character: 0x41 in a two-byte code set is 00 41.
    Table two = new_table();
    ASSERT_EQ(insert(two.get(), {0x00, 0x41}, 0x41), 0);
    int32_t err = 0;
    EXPECT_EQ(value_of(_nu_retrieve_wchar_multi_nl(&err, 0x41, two.get())), 0x41);
    // A table without characters has a shortest length of 4 and answers nothing.
    Table empty = new_table();
    EXPECT_EQ(_nu_retrieve_wchar_multi_nl(&err, 0x41, empty.get()), nullptr);
    EXPECT_EQ(err, NU_EILSEQ);
}

TEST(MultiCompress, SharesEqualArraysOnce) {
    EXPECT_EQ(_nu_compress_multi(nullptr), 0);
    CountingAllocator counter;
    {
        const uint32_t zero = 0;
        Table t(_nu_create_multi(3, 0, &zero)); // three-byte descriptors in four-byte slots
        // A1 and A2 take the same trails with the same descriptors; A3 differs in one.
        for (int lead = 0xA1; lead <= 0xA3; ++lead) {
            for (int trail = 0xB0; trail <= 0xB2; ++trail) {
                const uint32_t v = lead == 0xA3 && trail == 0xB2 ? 0x77u : unsigned(trail);
                multi_key k = key({lead, trail});
                ASSERT_EQ(_nu_insert_desc_multi(&k, &v, t.get()), 0);
            }
        }
        multi_arr_t *a1 = t->root->next_arr[t->root->offset_arr[0xA1]];
        multi_arr_t *a2 = t->root->next_arr[t->root->offset_arr[0xA2]];
        multi_arr_t *a3 = t->root->next_arr[t->root->offset_arr[0xA3]];
        a2->data_arr[0xB0 * 4 + 3] = 0x5A; // a padding byte: not compared
        ASSERT_EQ(_nu_compress_multi(t.get()), 0);
        EXPECT_TRUE(_nu_compress_multi(t.get()) == 0); // a second compression changes nothing
        int data, flags, offsets;
        _nu_multi_node_count(t.get(), &data, &flags, &offsets);
        EXPECT_EQ(std::make_tuple(data, flags, offsets), std::make_tuple(2, 2, 1));
        EXPECT_EQ(a1->flag_arr, a2->flag_arr);
        EXPECT_EQ(a1->flag_arr, a3->flag_arr);
        EXPECT_EQ(a1->data_arr, a2->data_arr);
        EXPECT_NE(a1->data_arr, a3->data_arr);
        EXPECT_EQ(
            std::make_tuple(t->root->flag_index, a1->flag_index, a2->data_index, a3->data_index),
            std::make_tuple(0, 1, 0, 1));
        EXPECT_EQ(t->root->data_index, -1);
        int32_t err = 0;
        const unsigned char s[] = {0xA3, 0xB2};
        EXPECT_EQ(value_of(_nu_retrieve_text_multi_limit_nl(t.get(), s, 2, &err)), 0x77);
        // Arrays are shared now: no more insertions.
        EXPECT_EQ(insert(t.get(), {0xA4, 0xB0}, 1), -1);
    }
    EXPECT_EQ(counter.live, 0);
}

TEST(MultiCompress, SingleByteTableTakesEveryByte) {
    Table t = new_table();
    ASSERT_EQ(insert(t.get(), {0x41}, 1), 0);
    int32_t err = 0;
    const unsigned char s[] = {0x42};
    EXPECT_EQ(_nu_retrieve_text_multi_nv(t.get(), s, &err), 0);
    ASSERT_EQ(_nu_compress_multi(t.get()), 0);
    EXPECT_EQ(value_of(_nu_retrieve_text_multi_nl(t.get(), s, &err)), kDefault);
    for (int b = 0; b < 256; ++b) EXPECT_EQ(t->root->flag_arr[b], MULTI_LAST);
}

// Every allocation of building, compressing and freeing is refused in turn: each step fails
// cleanly, what was inserted before still answers, nothing half-inserted answers, and freeing
// returns every block.
TEST(MultiAlloc, FailAtEveryAllocation) {
    std::vector<multi_key> keys;
    for (int lead : {0x8E, 0xA1, 0xA2}) {
        for (int trail : {0xA1, 0xC0, 0xFE}) keys.push_back(key({lead, trail}));
    }
    keys.push_back(key({0x8F, 0xA1, 0xA1}));
    keys.push_back(key({0x8F, 0xA2, 0xA1, 0xB0}));
    keys.push_back(key({0x41}));
    long total = 0;
    for (long fail_at = 1;; ++fail_at) {
        CountingAllocator counter;
        counter.fail_from(total == 0 ? 0 : fail_at);
        multi_t *t = _nu_create_multi(2, 0, &kDefault);
        std::vector<bool> inserted;
        bool compressed = false;
        if (t != nullptr) {
            for (const multi_key &k : keys) {
                const uint16_t v = static_cast<uint16_t>(k.bytes[k.length - 1]);
                inserted.push_back(_nu_insert_desc_multi(&k, &v, t) == 0);
            }
            compressed = _nu_compress_multi(t) == 0;
            counter.fail_from(0);
            for (size_t i = 0; i < keys.size(); ++i) {
                void *d = _nu_retrieve_desc_multi(&keys[i], t);
                EXPECT_EQ(d != nullptr, inserted[i]) << fail_at << " " << i;
                if (d) {
                    EXPECT_EQ(value_of(d), keys[i].bytes[keys[i].length - 1]);
                }
            }
            // The counts match the arrays that exist, whatever failed.
            if (!compressed) {
                int counted[3] = {};
                auto visit = [&](auto &self, const multi_arr_t *n) -> void {
                    counted[0] += n->data_arr != nullptr;
                    counted[1] += n->flag_arr != nullptr;
                    counted[2] += n->offset_arr != nullptr;
                    for (int c = 0; c < n->child_count; ++c) self(self, n->next_arr[c]);
                };
                visit(visit, t->root);
                EXPECT_EQ(std::make_tuple(counted[0], counted[1], counted[2]),
                          std::make_tuple(t->data_count, t->flag_count, t->offset_count));
            }
            _nu_free_multi(t);
        }
        EXPECT_EQ(counter.live, 0) << fail_at;
        if (total == 0) {
            ASSERT_TRUE(compressed);
            total = counter.allocations;
            fail_at = 0;
        } else if (fail_at > total) {
            EXPECT_TRUE(compressed);
            break;
        }
    }
    EXPECT_GT(total, 20);
}
